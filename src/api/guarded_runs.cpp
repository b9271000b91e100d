#include "api/exports.hpp"
#include "api/guarded.hpp"
#include "api/run_lca.hpp"
#include "api/run_lta.hpp"

namespace tolvenra::api {
std::int32_t guarded_run_lca(const lca_call& call) noexcept {
  return guarded("runlca", call.message, call.msg_len, [&] { return run_lca(call); });
}

std::int32_t guarded_run_lta(const lta_call& call) noexcept {
  return guarded("runlta", call.message, call.msg_len, [&] { return run_lta(call); });
}

}  // namespace tolvenra::api
