/// \file types.hpp  The scalar types that the engine's interfaces speak.
#pragma once

#include <array>
#include <cstdint>

namespace tolvenra {

using int32 = std::int32_t;
using int64 = std::int64_t;

/// A logical that may stand in an array (`std::vector<bool>` has no data()).
enum class logical : std::uint8_t { no = 0, yes = 1 };

/// A display name of the fixed length 8, blank padded.
using name8 = std::array<char, 8>;

/// Numerical guards shared by the E-step, the M-steps and the regressions.
inline constexpr double smallest_normal = 2.2250738585072014e-308;
inline constexpr double largest_exponent = 709.782712893384;

}  // namespace tolvenra
