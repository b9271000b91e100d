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

void detail::append_piece(text_lines& lines, std::string_view piece, bool number) {
  const auto is_word_end = [](char c) {
    return c == ',' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  std::string& line = lines.back();
  const bool parted = number && !line.empty() && is_word_end(line.back());
  if (!line.empty() && line.size() + (parted ? 1 : 0) + piece.size() > line_length)
    lines.emplace_back(piece);
  else
    line.append(parted ? " " : "").append(piece);
}

}  // namespace tolvenra
