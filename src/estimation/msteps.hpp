/// \file msteps.hpp  M-steps of the probabilities that are not regressed on covariates, module
/// `estimation`.
///
/// Expected counts divided so that every row sums to one; a row's fixed elements keep their values
/// and the others share what is left: new = (1 - fixed sum) * numerator / denominator. A missing
/// response spreads its posterior over the categories in proportion to the previous estimates.
/// Each returns 0, or -1 with "rtmp_denom" when a row's denominator is below the smallest normal
/// number (a class that no case supports).
/// Source: Goodman (1974), Biometrika 61, 215-231; Clogg & Goodman (1984), JASA 79, 762-771.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Item-response probabilities: reads classes.counts and rho.old, writes rho.now.
int32 mstep_rho(mlworkspace& work, error_type& err);
/// Class prevalences per stratum: reads classes.counts, writes gamma.now.
int32 mstep_gamma(mlworkspace& work, error_type& err);

/// Responses to the status items: reads statuses.response_count and big_rho.old, writes
/// big_rho.now.
int32 mstep_big_rho(mlworkspace& work, error_type& err);
/// Initial statuses per class and stratum: reads statuses.delta_count, writes delta.now.
int32 mstep_delta(mlworkspace& work, error_type& err);
/// Transitions: reads statuses.tau_count, writes tau.now.
int32 mstep_tau(mlworkspace& work, error_type& err);

}  // namespace tolvenra::estimation
