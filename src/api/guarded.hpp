/// \file guarded.hpp  The outermost frame of every call from a host.
#pragma once

#include <exception>
#include <new>
#include <string_view>

#include "api/host_message.hpp"
#include "core/error_handler.hpp"
#include "core/parallel.hpp"

namespace tolvenra::api {

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

}  // namespace tolvenra::api
