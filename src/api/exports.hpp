/// \file exports.hpp  What stands between the exported calls and the run drivers.
#pragma once

#include <cstdint>

namespace tolvenra::api {

struct lca_call;
struct lta_call;

/// Run one analysis; no exception leaves them. \return 0 when a fit was completed, else -1
std::int32_t guarded_run_lca(const lca_call& call) noexcept;
std::int32_t guarded_run_lta(const lta_call& call) noexcept;

}  // namespace tolvenra::api
