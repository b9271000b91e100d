/// \file msteps_status_covariates.hpp  Initial statuses and transitions regressed on covariates,
/// module `estimation`.
///
/// One regression per stratum and class for the initial status, one per stratum, class, transition
/// and origin for the transitions; the outcomes are the expected statuses and moves of the E-step.
/// Fixed zeros are structural: the status takes no part in that regression.
/// Source: Chung, Walls & Park (2007), J. Educ. Behav. Stat. 32, 408-435; Vermunt, Langeheine &
/// Boeckenholt (1999), J. Educ. Behav. Stat. 24, 179-207.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Decides which of the two are regressed, and refuses restriction codes that a regression cannot
/// honour. Before the decoding of restrictions.
int32 check_status_codes(mlworkspace& work, error_type& err);

/// Load designs and starting coefficients and predict the first probabilities; nothing without
/// covariates. After the E-step has been planned. \return 0 or -1
int32 load_delta_beta(mlworkspace& work, error_type& err);
int32 load_tau_beta(mlworkspace& work, error_type& err);

/// Fit the regressions and recompute the probabilities of the covariate patterns.
/// \return 0, or -1 with a report that tells where
int32 mstep_delta_beta(mlworkspace& work, error_type& err);
int32 mstep_tau_beta(mlworkspace& work, error_type& err);

/// Notes the coefficients without a finite estimate, by the expected counts of the last E-step.
void find_status_runaways(mlworkspace& work);

/// Regress the expected statuses and moves of the last E-step anew, from zero, on all covariates
/// but one: where a model without it can start when the coefficients of the full one are of no use.
/// \param of_start, of_moves  covariate to leave out, 1-based, 0 for none
/// \param[out] delta_beta, tau_beta  in the shapes of the smaller model
int32 regress_statuses_without(mlworkspace& work, int32 of_start, int32 of_moves,
                               array<double, 4>& delta_beta, array<double, 6>& tau_beta,
                               error_type& err);

/// Sets delta.now and tau.now, where they are regressed, to their averages over the cases: weighted
/// by the expected cases in the class, and in the origin status.
void average_status_probabilities(mlworkspace& work);

/// Logarithm of the stabilising priors in force, up to a constant.
double status_log_prior(const mlworkspace& work);

}  // namespace tolvenra::estimation
