/// \file fit_stats.hpp  Comparison with the saturated model, information criteria and entropy,
/// module `estimation`.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/em.hpp"
#include "estimation/mlresult.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Degrees of freedom of the model against the table of all cells: strata * (cells - 1) less the
/// estimated parameters. Beyond 32 bits it is 2147483647 and counts as an overflow.
void set_apparent_df(const mlworkspace& work, mlresult_type& result);

struct fit_stats_controls {
  bool saturated = true;  ///< fit the saturated model of incomplete responses; else cat_loglik is 0
  bool expected = true;   ///< compute expected counts and X2; else NaN
  em_watch watch;         ///< shown the fit, with the steps of the statistics as its iteration
};

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
/// Once the host cancels what is not finished is NaN, a count -1.
/// \return 0, or -1 with a report of what could not be computed; all else is filled even then.
int32 run_compute_fit_stats(mlworkspace& work, mlresult_type& result, error_type& err,
                            const fit_stats_controls& controls = {});

}  // namespace tolvenra::estimation
