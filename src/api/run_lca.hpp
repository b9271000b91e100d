/// \file run_lca.hpp  The driver of one latent class analysis.
#pragma once

#include <functional>

#include "api/generated/call_records.hpp"
#include "api/starts.hpp"
#include "core/types.hpp"

namespace tolvenra::api {

/// Fits one latent class model from the host's arrays to the host's arrays.
///
/// Entry cells are set first (converged 0, iterations -1, message "OK so far!"). Every failure ends
/// the run with its report in the message; results are written only when the run succeeds.
/// \return 0 when a fit was completed, else -1
/// \param completed  called with the chosen start of a run that returns 0, or empty
int32 run_lca(const lca_call& call, const std::function<void(const fitted_start&)>& completed = {});

}  // namespace tolvenra::api
