/// \file exports.cpp  The version check of the interface.
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "api/version.hpp"
#include "tolvenra/tolvenra.h"

extern "C" TOLVENRA_API void TOLVENRA_CALL checkversion(const std::int32_t* version,
                                                        std::uint8_t* mismatch) {
  using namespace tolvenra::api;
  constexpr std::array<std::string_view, 3> stored = {interface_major, interface_minor,
                                                      interface_revision};
  if (mismatch == nullptr) return;
  *mismatch = 255;
  if (version == nullptr) return;
  for (std::size_t k = 0; k < stored.size(); ++k) {
    std::int32_t own = -1;
    std::from_chars(stored[k].data(), stored[k].data() + stored[k].size(), own);
    if (version[k] != own) return;
  }
  *mismatch = 0;
}
