/// \file naive_sandwich.hpp  Standard errors of a fit from the raw data by numerical derivatives of
/// the log-likelihood, with no code of the engine.
#pragma once

#include "support/lca_problem.hpp"

namespace tolvenra::test {

/// Compares every standard error, cov_b and the design effect of a fit with their recomputation.
///
/// The parameters are the probabilities themselves (and coefficients), moved along a basis of the
/// directions that keep sums, fixed cells and equalities; the sandwich does not depend on the
/// choice of parameters. Scores of the cases and the information are central differences in long
/// double, extrapolated from two steps.
/// \param beta_prior_shares  (nc) class shares of the stabilising prior where one is in force
void verify_standard_errors(const lca_problem& fit, double tolerance,
                            const std::vector<double>& beta_prior_shares = {});

/// Mean eigenvalue of the robust against the model-based covariance of the coefficients of one
/// covariate (1-based), by the same derivatives; without restrictions on the classes.
double naive_rao_scott(const lca_problem& fit, int covariate);

}  // namespace tolvenra::test
