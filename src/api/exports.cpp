/// \file exports.cpp  The version check, and the guards around the runs.
#include "api/exports.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "api/generated/call_records.hpp"
#include "api/version.hpp"

extern "C" TOLVENRA_API void TOLVENRA_CALL checkversion(const std::int32_t* version,
                                                        std::uint8_t* mismatch) {
  using namespace tolvenra::api;
  constexpr std::array<std::string_view, 3> stored = {interface_major, interface_minor,
                                                      interface_revision};
  *mismatch = 0;
  for (std::size_t k = 0; k < stored.size(); ++k) {
    std::int32_t own = -1;
    std::from_chars(stored[k].data(), stored[k].data() + stored[k].size(), own);
    if (version[k] != own) {
      *mismatch = 255;
      return;
    }
  }
}

namespace tolvenra::api {
namespace {

/// The entry cells of a run, and the message of a run that cannot be made.
template <class Call>
std::int32_t refuse(const Call& call, std::string_view text) noexcept {
  if (call.converged != nullptr) *call.converged = 0;
  if (call.iterations != nullptr) *call.iterations = -1;
  if (call.run_info != nullptr) std::fill_n(call.run_info, TOLVENRA_RUN_INFO_SIZE, 0);
  if (call.message != nullptr && call.msg_len > 0) {
    const auto length = static_cast<std::size_t>(call.msg_len);
    std::fill_n(call.message, length, ' ');
    std::copy_n(text.data(), std::min(length, text.size()), call.message);
  }
  return -1;
}

}  // namespace

std::int32_t guarded_run_lca(const lca_call& call) noexcept {
  return refuse(call, "Latent class analysis is not available yet.");
}

std::int32_t guarded_run_lta(const lta_call& call) noexcept {
  return refuse(call, "Latent transition analysis is not available yet.");
}

}  // namespace tolvenra::api
