/// \file utf8.hpp  The little that the command has to know about UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace tolvenra::cli {

/// Offset of the first byte that does not belong to a well-formed sequence (RFC 3629: no overlong
/// forms, no surrogates, nothing beyond U+10FFFF); npos when there is none.
inline std::size_t first_invalid_utf8(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  for (std::size_t i = 0; i < text.size();) {
    const unsigned lead = byte(i);
    std::size_t length = 1;
    unsigned least = 0x80, most = 0xBF;  // of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) least = 0xA0;
      if (lead == 0xED) most = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) least = 0x90;
      if (lead == 0xF4) most = 0x8F;
    } else if (lead >= 0x80) {
      return i;
    }
    if (i + length > text.size()) return i;
    for (std::size_t k = 1; k < length; ++k, least = 0x80, most = 0xBF)
      if (byte(i + k) < least || byte(i + k) > most) return i;
    i += length;
  }
  return std::string_view::npos;
}

/// Characters of a well-formed text: the width in a table of letters that take one column each.
inline std::size_t width_of(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
  return width;
}

}  // namespace tolvenra::cli
