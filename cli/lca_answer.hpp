/// \file lca_answer.hpp  A fit as the user sees it: classes by size where nothing names them,
/// criteria on -2 log-likelihood, coefficients against the reference class asked for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fit_tests.hpp"
#include "lca_run.hpp"
#include "residuals.hpp"

namespace tolvenra::cli {

/// Figures of fit; what does not exist is empty.
struct lca_fit_figures {
  double loglik = 0.0;
  std::int32_t n_params = 0;
  std::int32_t independent = 0;    ///< parameters less those that the restrictions determine
  std::optional<std::int32_t> df;  ///< empty above 32 bits, and, as the next ones, with covariates
  std::optional<double> G2, G2_p, X2;
  std::optional<double> penalised_loglik;  ///< with the log prior; empty without priors
  double aic = 0.0, bic = 0.0, caic = 0.0, abic = 0.0;
  double entropy = 0.0;  ///< relative entropy of the classification, weighted by cases
};

/// Likelihood-ratio test of one covariate.
struct covariate_test {
  std::string name;
  std::optional<double> statistic;  ///< empty when the fit without the covariate failed
  std::int32_t df = 0;
  std::optional<double> p;
  bool converged = false;  ///< the fit without the covariate
};

struct lca_answer {
  lca_fit_figures figures;
  fit_tests of_fit;
  std::vector<pair_residual> residuals;  ///< empty unless printed or written
  bool converged = false;
  std::int32_t iterations = 0, best_start_hits = 0;
  /// order[k] is the engine's class (from 0) that is printed as class k + 1.
  std::vector<std::size_t> order;
  std::vector<double> shares;                           ///< [class], over the groups by their size
  std::vector<std::vector<double>> gamma;               ///< [group][class]
  using item_table = std::vector<std::vector<double>>;  ///< [class][category]
  std::vector<std::vector<item_table>> rho;             ///< [group][item]
  /// [group][class], one coefficient per covariate after the intercept: zeros in the reference
  /// class; with a binary regression empty in all classes but the one compared. Empty without
  /// covariates.
  std::vector<std::vector<std::vector<double>>> beta;
  std::vector<covariate_test> tests;
  std::vector<std::string> class_labels;  ///< "1", "2", ... or the user's names
  std::vector<lca_start> starts;
  std::vector<std::string> warnings;
};

/// \param fit  completed.
lca_answer make_lca_answer(const lca_data& data, const lca_options& options, const lca_fit& fit);

}  // namespace tolvenra::cli
