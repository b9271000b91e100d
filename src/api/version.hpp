/// \file version.hpp  The version of the interface: it moves only with the call frame, never with
/// the product's own version.
#pragma once

namespace tolvenra::api {

inline constexpr char interface_major[] = "4";
inline constexpr char interface_minor[] = "3";
inline constexpr char interface_revision[] = "2";

}  // namespace tolvenra::api
