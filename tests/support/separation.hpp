/// \file separation.hpp  Data sets in which covariates tell latent categories apart, wholly or
/// nearly so, and how the engine's fits of them compare with a naive maximiser's.
#pragma once

#include <string>

#include "support/lca_problem.hpp"
#include "support/lta_problem.hpp"

namespace tolvenra::test {

/// Random designs: a category that a group lacks, one that a dummy excludes, a covariate that is
/// constant within a category, cut points of a continuous one with and without a little noise;
/// baseline and binary form, priors, groups, weights, structural zeros.
lca_problem separated_design_of_classes(unsigned seed);
lta_problem separated_design_of_statuses(unsigned seed);

struct separation_outcome {
  std::string what;      ///< the design in words
  std::string failure;   ///< first line of the report of a run that failed
  bool refused = false;  ///< the run gave no answer at all
  int lost = 0;          ///< starts
  double fall = 0.0;     ///< largest fall of the criterion in one iteration, beyond rounding
  bool converged = false;
  int runaways = 0;
  double loglik = 0.0;
  double disagreement = 0.0;   ///< relative, of log-likelihood and criterion at the estimates
  double predictor = 0.0;      ///< largest one at the estimates
  double below = 0.0;          ///< how far the criterion lies below the best naive maximum
  int best_start = 0;          ///< the start of that maximum, from 1
  double of_that_start = 0.0;  ///< how far the engine's log-likelihood from that start lies below
  /// Where the best start is below by more than 1e-4: how far a fit that begins at the naive
  /// maximum (and with a prior takes its labels from there) lies below it.
  double resumed = 0.0;
  double left = 0.0;  ///< what the naive maximiser gains from the engine's own estimates
};

/// \param em_steps  of the naive maximiser
separation_outcome compare_with_naive(lca_problem problem, int em_steps, int threads);
separation_outcome compare_with_naive(lta_problem problem, int em_steps, int threads);

}  // namespace tolvenra::test
