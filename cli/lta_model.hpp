/// \file lta_model.hpp  What a transition analysis says about its parameters.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "case_data.hpp"
#include "lta_options.hpp"
#include "parameter_model.hpp"

namespace tolvenra::cli {

/// The cases of a transition analysis. `items` holds a block of columns for every time, covariates
/// those of the start and then a block for every transition.
struct lta_cases : case_data {
  std::vector<std::string> times;
  std::vector<categories> item_labels;        ///< items, without responses
  std::vector<std::string> starting, moving;  ///< covariates of the start and of a transition

  [[nodiscard]] std::size_t nitem() const { return item_labels.size(); }
  [[nodiscard]] std::size_t ntime() const { return times.size(); }
};

/// The arrays are the engine's: delta(status, group), tau(from, to, transition, group),
/// rho(item, status, category, time, group), delta_beta(coefficient, status, group) and
/// tau_beta(coefficient, from, to, transition, group), column-major. Codes: 0 fixed, 1 free,
/// k >= 2 member of set k.
struct lta_model : stated_parameters {
  std::vector<std::string> status_names;  ///< as the user gave them; empty for numbers
  bool binary = false;                    ///< `compared` against all others together
  std::size_t compared = 0;               ///< status (from 0) of the binary regressions
  std::size_t reference = 0;              ///< status (from 0) of the regression of the start
  std::vector<std::size_t> reference_of;  ///< (from, transition): destinations (from 0)
  std::vector<std::int32_t> delta_code, tau_code, rho_code;  ///< empty: all free
  std::vector<double> delta, tau;                 ///< starting values, in rows that sum to 1
  std::vector<double> rho, delta_beta, tau_beta;  ///< fixed and starting values, else 0
};

/// The names of a transition analysis. \param data  outlives the space
parameter_space lta_parameters(const lta_cases& data, const lta_options& options);

/// Throws input_error, which names the place, for what the data do not have and for restrictions
/// and starting values that contradict each other.
lta_model make_lta_model(const lta_cases& data, const lta_options& options);

}  // namespace tolvenra::cli
