#include <algorithm>

#include "api/exports.hpp"
#include "api/guarded.hpp"
#include "api/host_arrays.hpp"
#include "api/run_lca.hpp"

namespace tolvenra::api {
namespace {

int32 run_lta(const lta_call& call) {
  set_logical(call.converged, false);
  set_cell(call.iterations, -1);
  if (call.run_info) std::fill_n(call.run_info, 16, 0);
  const host_message message(call.message, call.msg_len);
  message.begin();
  error_type err;
  fail(err, {"runlta", ""}, {text("Latent transition analysis is not available yet.")});
  message.write(err);
  return -1;
}

}  // namespace

std::int32_t guarded_run_lca(const lca_call& call) noexcept {
  return guarded("runlca", call.message, call.msg_len, [&] { return run_lca(call); });
}

std::int32_t guarded_run_lta(const lta_call& call) noexcept {
  return guarded("runlta", call.message, call.msg_len, [&] { return run_lta(call); });
}

}  // namespace tolvenra::api
