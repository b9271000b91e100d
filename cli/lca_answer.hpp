/// \file lca_answer.hpp  A fit as the user sees it: classes by size, criteria on -2 log-likelihood.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lca_run.hpp"

namespace tolvenra::cli {

/// Figures of fit; what does not exist is empty.
struct lca_fit_figures {
  double loglik = 0.0;
  std::int32_t n_params = 0;
  std::optional<std::int32_t> df;  ///< empty above 32 bits
  std::optional<double> G2, G2_p, X2;
  double aic = 0.0, bic = 0.0, caic = 0.0, abic = 0.0;
  double entropy = 0.0;  ///< relative entropy of the classification, weighted by cases
};

struct lca_answer {
  lca_fit_figures figures;
  bool missing_without_G2 = false;  ///< responses are missing, and G2 cannot be had
  bool converged = false;
  std::int32_t iterations = 0, best_start_hits = 0;
  /// order[k] is the engine's class (from 0) that is printed as class k + 1.
  std::vector<std::size_t> order;
  std::vector<double> shares;                           ///< [class], over the groups by their size
  std::vector<std::vector<double>> gamma;               ///< [group][class]
  using item_table = std::vector<std::vector<double>>;  ///< [class][category]
  std::vector<std::vector<item_table>> rho;             ///< [group][item]
  std::vector<lca_start> starts;
  std::vector<std::string> warnings;
};

/// \param fit  completed.
lca_answer make_lca_answer(const lca_data& data, const lca_options& options, const lca_fit& fit);

}  // namespace tolvenra::cli
