/// \file lca_model.hpp  What an analysis says about its parameters: classes, restrictions, starting
/// values.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "case_data.hpp"
#include "lca_options.hpp"
#include "parameter_model.hpp"

namespace tolvenra::cli {

/// The arrays are the engine's: rho(item, class, category, group), gamma(class, group) and
/// beta(coefficient, class, group), column-major. Codes: 0 fixed, 1 free, k >= 2 member of set k.
struct lca_model : stated_parameters {
  std::vector<std::string> class_names;  ///< as the user gave them; empty for numbers
  std::size_t reference = 0;             ///< class (from 0) that the others are compared with
  bool binary = false;                   ///< `compared` against all others together
  std::size_t compared = 0;              ///< class (from 0) of a binary regression
  std::vector<std::int32_t> rho_code, gamma_code;  ///< empty: all free
  std::vector<double> rho, gamma, beta;            ///< fixed and starting values, else 0

  /// Does anything name a class by its number? Otherwise classes may be listed by size.
  [[nodiscard]] bool tells_classes_apart() const {
    return binary || start_given || !rho_code.empty() || !gamma_code.empty();
  }
};

/// The names of a latent class analysis: families gamma, rho and beta.
/// \param data  outlives the space
parameter_space lca_parameters(const case_data& data, const lca_options& options);

/// Throws input_error, which names the place, for what the data do not have and for restrictions
/// and starting values that contradict each other.
lca_model make_lca_model(const case_data& data, const lca_options& options);

}  // namespace tolvenra::cli
