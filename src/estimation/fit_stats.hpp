/// \file fit_stats.hpp  Comparison with the saturated model, information criteria and entropy, module
/// `estimation`.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlresult.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// The distinct response patterns of each stratum (neighbouring rows that differ in covariates alone
/// are one pattern) with their weighted counts: fills pattern_row and observed.
int32 aggregate_items(const mlworkspace& work, mlresult_type& result, error_type& err);

/// Degrees of freedom of the model against the table of all cells: strata * (cells - 1) less the
/// estimated parameters. Beyond 32 bits it is 2147483647 and counts as an overflow.
void set_apparent_df(const mlworkspace& work, mlresult_type& result);

/// Fills G2, X2, the information criteria (on the scale of G2) and the entropies of a finished run.
///
/// The model is conditional on the stratum, so the saturated log-likelihood is the sum over strata of
/// n log(n / N_g) over the patterns. X2 adds the exact contribution N_g - sum of the expected counts
/// of the cells that nobody shows.
/// Source: Goodman (1974), Biometrika 61, 215-231; Celeux & Soromenho (1996), J. Classification 13,
/// 195-212 (entropy).
int32 run_compute_fit_stats(mlworkspace& work, mlresult_type& result, error_type& err);

}  // namespace tolvenra::estimation
