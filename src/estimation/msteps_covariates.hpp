/// \file msteps_covariates.hpp  M-steps of the probabilities that are regressed on covariates,
/// module `estimation`.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Decides whether class membership is regressed, and then refuses equality and nonzero fixed
/// restrictions on gamma. Before the decoding of restrictions.
int32 check_gamma_codes(mlworkspace& work, error_type& err);

/// Prepares the regression of class membership: designs, references, structural zeros, prior.
int32 load_beta(mlworkspace& work, error_type& err);

/// Class probabilities of every covariate pattern from beta.now; gamma.now becomes their average
/// over the cases of each stratum. \return 0, or -1 with "exp for gamma" (predictor above
/// 709.782712893384) or "denom for gamma"; `limit` as in predict
int32 predict_gamma(mlworkspace& work, error_type& err, double limit = largest_exponent);

/// Regresses the posterior classes on the covariates, stratum by stratum, and predicts anew.
/// \param[in,out] work  reads post.cls; writes beta.now, classes.prior, gamma.now
int32 mstep_beta(mlworkspace& work, error_type& err);

/// Notes the coefficients without a finite estimate, by the final posteriors.
void find_class_runaways(mlworkspace& work);

/// Regresses the final posterior classes, as find_class_runaways left them, on all covariates but
/// one, from zero: where a model without that covariate can start when the coefficients of the full
/// one are of no use.
/// \param left_out  covariate, 1-based \param[out] beta  (ncov, nc, nstr)
int32 regress_classes_without(const mlworkspace& work, int32 left_out, array<double, 3>& beta,
                              error_type& err);

}  // namespace tolvenra::estimation
