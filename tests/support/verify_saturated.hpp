/// \file verify_saturated.hpp  The naive oracle of the saturated model.
#pragma once

#include <map>
#include <vector>

#include "support/lca_problem.hpp"

namespace tolvenra::test {

/// Bounds on the maximum of the saturated log-likelihood.
struct loglik_range {
  double low = 0.0, high = 0.0;
  std::vector<double> theta;  ///< cell probabilities behind them, first item fastest
};

/// Plain EM over every cell of the table.
/// \param counts  by response pattern, 0 missing
loglik_range saturated_maximum(const std::vector<int>& levels,
                               const std::map<std::vector<int>, double>& counts, int passes);

/// Checks the table of patterns, X2, G2, cat_loglik, cat_g2 and cat_df of a fit.
void verify_saturated(const lca_problem& fit);

}  // namespace tolvenra::test
