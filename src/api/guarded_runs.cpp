#include <exception>
#include <new>

#include "api/exports.hpp"
#include "api/host_message.hpp"
#include "api/run_lca.hpp"
#include "api/run_lta.hpp"
#include "core/error_handler.hpp"
#include "core/parallel.hpp"

namespace tolvenra::api {
namespace {

/// Nothing leaves an export but its status: whatever is thrown becomes a report.
template <class Run>
int32 guarded(std::string_view name, char* message, int32 msg_len, Run&& run) noexcept {
  const parallel::fp_environment_guard plain_arithmetic;
  const host_message host(message, msg_len);
  try {
    try {
      return run();
    } catch (const std::bad_alloc&) {
      error_type err;
      fail(err, {name, ""}, error_code::allocation);
      host.write(err);
    } catch (const std::exception& failure) {
      error_type err;
      fail(err, {name, ""}, {text("Unexpected failure: ", failure.what())});
      host.write(err);
    }
  } catch (...) {  // not even room for the report: the entry text stays
  }
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
