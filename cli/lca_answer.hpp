/// \file lca_answer.hpp  A fit as the user sees it: classes by size where nothing names them,
/// criteria on -2 log-likelihood, coefficients against the reference class asked for.
#pragma once

#include <string>
#include <vector>

#include "fit_answer.hpp"
#include "lca_run.hpp"
#include "residuals.hpp"
#include "standard_errors.hpp"

namespace tolvenra::cli {

struct cluster_sizes {
  std::int32_t number = 0;
  double smallest = 0.0, largest = 0.0;  ///< cases
  std::optional<double> deff;            ///< design effect; empty without standard errors
};

struct lca_answer : fit_answer {
  std::vector<pair_residual> residuals;  ///< empty unless printed or written
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
  /// Whether a coefficient has no finite estimate, in the shape of beta.
  std::vector<std::vector<std::vector<bool>>> runaway;
  std::vector<std::string> class_labels;  ///< "1", "2", ... or the user's names
  std::optional<standard_errors> errors;  ///< empty when not wanted
  std::optional<cluster_sizes> clusters;
};

/// \param fit  completed.
lca_answer make_lca_answer(const lca_data& data, const lca_options& options, const lca_fit& fit);

}  // namespace tolvenra::cli
