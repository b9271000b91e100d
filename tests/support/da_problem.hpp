/// \file da_problem.hpp  Data augmentation, as the tests pose it.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "core/error_handler.hpp"
#include "estimation/augmentation.hpp"
#include "support/lca_problem.hpp"
#include "support/lta_problem.hpp"

namespace tolvenra::test {

/// The engine's records of a fitted problem, its estimates as the starting parameters.
struct da_problem {
  dataset_type dataset;
  model_type model;
  param_type param;
  da_options options;
  daresult result;
  mlresult_type ml;
  error_type err;

  explicit da_problem(const lca_problem& fit);
  explicit da_problem(const lta_problem& fit);
  /// \return the status of the procedure
  int32 run() {
    return estimation::run_da_procedure(dataset, model, param, options, result, ml, err);
  }
};

/// Log probability of counts, their probabilities integrated out under a Dirichlet prior.
double log_dirichlet_multinomial(const std::vector<double>& counts,
                                 const std::vector<double>& prior);

/// Upper tail of the chi-square statistic of observed counts against probabilities; cells that are
/// expected fewer than five times count as one. 0 when an impossible cell was observed.
double tail_of_fit(const std::vector<double>& observed, const std::vector<double>& probability);

/// A study of interval coverage: 500 cases of two classes on six dichotomous items, the intervals
/// of 90 %.
struct coverage_study {
  static constexpr double gamma = 0.6;  ///< share of class 1
  static constexpr std::array<std::array<double, 6>, 2> rho{
      {{0.9, 0.85, 0.8, 0.75, 0.8, 0.85}, {0.2, 0.3, 0.15, 0.25, 0.3, 0.2}}};  ///< of category 1

  int sets = 0;
  int gamma_covered = 0, logit_gamma_covered = 0;
  std::array<std::array<int, 6>, 2> rho_covered{}, logit_rho_covered{};

  /// Analyses one more data set; `seed` is that of the data and of the imputations.
  void add(unsigned seed, const da_options& options);
  [[nodiscard]] double mean_rho(bool logit) const;
};

/// The same for latent statuses: 500 cases at three times, two statuses, four dichotomous items of
/// the same probabilities at every time.
struct status_coverage_study {
  static constexpr int parameters = 13;  ///< a start share, four transitions, eight responses
  int sets = 0;
  std::array<int, parameters> covered{}, logit_covered{};

  void add(unsigned seed, const da_options& options);
  /// Share of intervals that cover, over parameters first to last - 1.
  [[nodiscard]] double mean(bool logit, int first, int last) const;
};

}  // namespace tolvenra::test
