/// \file run_lta.hpp  The driver of one latent transition analysis.
#pragma once

#include <functional>

#include "api/generated/call_records.hpp"
#include "api/starts.hpp"
#include "core/types.hpp"

namespace tolvenra::api {

/// Fits one latent transition model from the host's arrays to the host's arrays; the frame of
/// `run_lca`, without standard errors.
/// \return 0 when a fit was completed, else -1
/// \param completed  called with the chosen start of a run that returns 0, or empty
int32 run_lta(const lta_call& call, const std::function<void(const fitted_start&)>& completed = {});

}  // namespace tolvenra::api
