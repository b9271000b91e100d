/// \file score_sums.hpp  The one pass over distinct rows behind all derivatives, module
/// `estimation`.
#pragma once

#include "estimation/derivatives.hpp"

namespace tolvenra::estimation {

/// Sums over the rows of stratum g; the same bits at any thread count. \throws std::bad_alloc
stratum_sums sum_over_stratum(const mlworkspace& work, const free_parameters& map,
                              const scaled_design& design, int32 g);

}  // namespace tolvenra::estimation
