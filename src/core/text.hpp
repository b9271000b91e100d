/// \file text.hpp  Building message lines out of fixed pieces and numbers.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "core/types.hpp"

namespace tolvenra {

/// Message lines hold exactly this many characters.
inline constexpr std::size_t line_length = 80;

/// Shortest decimal form of an integer, never locale dependent.
std::string to_text(int64 value);
/// A real with up to nine significant digits, never locale dependent ("nan", "inf" for such).
std::string to_text(double value);

using text_lines = std::vector<std::string>;

namespace detail {
/// Appends a piece; a piece that would pass the line's end starts a new line, leading blank kept.
/// \param number  the piece is one: a blank parts it from a letter or comma before it
void append_piece(text_lines& lines, std::string_view piece, bool number);

template <class P>
std::string piece_of(const P& piece) {
  if constexpr (std::is_floating_point_v<P>)
    return to_text(static_cast<double>(piece));
  else if constexpr (std::is_integral_v<P>)
    return to_text(static_cast<int64>(piece));
  else
    return std::string(std::string_view(piece));
}
}  // namespace detail

/// One message line (more, when it would pass 80 characters) out of pieces and numbers. A number
/// never sticks to the word or comma before it.
template <class... P>
text_lines text(const P&... pieces) {
  text_lines lines(1);
  (detail::append_piece(lines, detail::piece_of(pieces), std::is_arithmetic_v<P>), ...);
  return lines;
}

}  // namespace tolvenra
