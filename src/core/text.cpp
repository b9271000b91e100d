#include "core/text.hpp"

#include <array>
#include <charconv>

namespace tolvenra {

std::string to_text(int64 value) {
  std::array<char, 24> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
  return {buffer.data(), end};
}

std::string to_text(double value) {
  std::array<char, 40> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                 std::chars_format::general, 9)
                       .ptr;
  return {buffer.data(), end};
}

void detail::append_piece(text_lines& lines, std::string_view piece) {
  if (!lines.back().empty() && lines.back().size() + piece.size() > line_length)
    lines.emplace_back();
  lines.back() += piece;
}

}  // namespace tolvenra
