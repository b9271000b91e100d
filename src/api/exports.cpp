/// \file exports.cpp  The version check of the interface.
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "api/version.hpp"

#if defined(_WIN32)
#define TOLVENRA_EXPORTED __declspec(dllexport)
#else
#define TOLVENRA_EXPORTED __attribute__((visibility("default")))
#endif

extern "C" TOLVENRA_EXPORTED void checkversion(const std::int32_t* version,
                                               std::uint8_t* mismatch) {
  *mismatch = 0;
  const std::array<std::string_view, 3> stored = {tolvenra::api::interface_major,
                                                  tolvenra::api::interface_minor,
                                                  tolvenra::api::interface_revision};
  for (const std::string_view digits : stored) {
    std::int32_t own = -1;
    std::from_chars(digits.data(), digits.data() + digits.size(), own);
    if (*version++ != own) {
      *mismatch = 255;
      return;
    }
  }
}
