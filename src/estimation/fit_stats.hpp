/// \file fit_stats.hpp  Comparison with the saturated model, information criteria and entropy,
/// module `estimation`.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlresult.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Degrees of freedom of the model against the table of all cells: strata * (cells - 1) less the
/// estimated parameters. Beyond 32 bits it is 2147483647 and counts as an overflow.
void set_apparent_df(const mlworkspace& work, mlresult_type& result);

/// Expected count under the latent class model of every response pattern of one missingness
/// pattern: the number of cases that show the missingness pattern times the model's probability of
/// the responses. Under regressions on covariates the probability is averaged over these cases, so
/// that missingness may depend on the covariates. \param rows   for each response pattern a
/// distinct row that shows it; all of one stratum \param total  cases with the missingness pattern
std::vector<double> expected_counts(const mlworkspace& work, const std::vector<int32>& rows,
                                    double total);

/// Fills patterns, X2, G2, the saturated model, the information criteria (on the scale of G2) and
/// the entropies of a finished run.
///
/// The model is conditional on the stratum, so all of it is summed over strata.
///  - Saturated model, complete data: sum of n log(n / N_g) over the patterns; with missing
///  responses
///    it is fitted (saturated.hpp), and cat_g2 on cat_df tests "missing completely at random". A
///    saturated model that cannot be had leaves cat_loglik, cat_g2 and cat_df at 0 and
///    overflow_count at 2; G2 is then -2 * loglik.
///  - X2: sum of (observed - expected)^2 / expected over the observed patterns, and within each
///    missingness pattern N_m less the expected counts, which is the exact contribution of the
///    cells that nobody shows. With missing responses its degrees of freedom are apparent_df +
///    cat_df.
/// Source: Goodman (1974), Biometrika 61, 215-231; Fuchs (1982), JASA 77, 270-278; Celeux &
/// Soromenho (1996), J. Classification 13, 195-212 (entropy).
/// \return 0, or -1 with a report of what could not be computed; all else is filled even then.
int32 run_compute_fit_stats(mlworkspace& work, mlresult_type& result, error_type& err);

}  // namespace tolvenra::estimation
