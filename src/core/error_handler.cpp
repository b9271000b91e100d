#include "core/error_handler.hpp"

#include <algorithm>
#include <utility>

namespace tolvenra {
namespace {

std::string_view without_trailing_blanks(std::string_view text) {
  const auto last = text.find_last_not_of(' ');
  return last == std::string_view::npos ? std::string_view{} : text.substr(0, last + 1);
}

std::string_view standard_line(int32 code) {
  switch (code) {
    case 0:
      return "No errors";
    case 1:
      return "File could not be opened for read-access";
    case 2:
      return "File could not be opened for write-access";
    case 3:
      return "Error in reading file";
    case 4:
      return "Error in writing to file";
    case 5:
      return "Error in reading file: EOR or EOF encountered";
    case 6:
      return "File open for write-access could not be closed";
    case 7:
      return "File open for read-access could not be closed";
    case error_code::singular:
      return "Matrix apparently singular";
    case error_code::not_positive_definite:
      return "Matrix not positive definite";
    case error_code::division_by_zero:
      return "Attempted division by zero";
    case error_code::log_of_nonpositive:
      return "Attempted logarithm of non-positive number";
    case error_code::exp_too_large:
      return "Argument to exp function too large";
    case 105:
      return "Attempted square root of negative number";
    case error_code::allocation:
      return "Unable to allocate memory for object";
    case error_code::release:
      return "Unable to deallocate memory for object";
    case error_code::not_square:
      return "Non-square matrix encountered; square expected";
    case error_code::not_conformable:
      return "Dimensions of matrix arguments not conformable";
    default:
      return "Unknown error code.";
  }
}

std::string_view text_of(const msg_line& line) {
  return without_trailing_blanks({line.text.data(), line.text.size()});
}

/// Carriage return and line feed unless the platform asks for one of the two alone.
std::string_view line_end(std::optional<std::string_view> platform) {
  std::array<char, 4> field{'P', 'C', ' ', ' '};
  if (platform) {
    field.fill(' ');
    std::copy_n(platform->begin(), std::min(platform->size(), field.size()), field.begin());
  }
  const std::string_view name(field.data(), field.size());
  if (name == "UNIX") return "\n";
  if (name == "MAC ") return "\r";
  return "\r\n";
}

}  // namespace

line_list::line_list(line_list&& other) noexcept
    : head(std::move(other.head)), tail(std::exchange(other.tail, nullptr)) {}

line_list& line_list::operator=(line_list&& other) noexcept {
  if (this != &other) {
    clear();
    head = std::move(other.head);
    tail = std::exchange(other.tail, nullptr);
  }
  return *this;
}

void line_list::clear() noexcept {
  while (head) head = std::move(head->next);
  tail = nullptr;
}

std::unique_ptr<msg_line> take_head(line_list& list) {
  auto line = std::move(list.head);
  if (!line) return line;
  list.head = std::move(line->next);
  if (!list.head) list.tail = nullptr;
  return line;
}

void append_at_tail(line_list& list, std::unique_ptr<msg_line> line) {
  line->next.reset();
  msg_line* const last = line.get();
  (list.tail ? list.tail->next : list.head) = std::move(line);
  list.tail = last;
}

void err_add_line(line_list& list, std::string_view text) {
  auto line = std::make_unique<msg_line>();
  line->text.fill(' ');
  std::copy_n(text.begin(), std::min(text.size(), line->text.size()), line->text.begin());
  append_at_tail(list, std::move(line));
}

void err_handle(error_type& err, int32 code, const report& what) {
  err.occurred = true;
  if (code != error_code::own_text) err_add_line(err.lines, standard_line(code));
  for (const auto& comment : {what.comment1, what.comment2, what.comment3, what.comment4})
    if (comment) err_add_line(err.lines, *comment);
  if (what.file)
    err_add_line(err.lines, "FILE: " + std::string(without_trailing_blanks(*what.file)));
  if (what.line) err_add_line(err.lines, "LINE: " + to_text(int64{*what.line}));
  if (what.msg) err_add_line(err.lines, without_trailing_blanks(*what.msg));
  if (what.whichsub)
    err_add_line(err.lines, "OCCURRED IN: " + std::string(without_trailing_blanks(*what.whichsub)));
}

void err_msg(const error_type& err, char* text, std::size_t length,
             std::optional<std::string_view> platform) {
  std::fill_n(text, length, ' ');
  const std::string_view end = line_end(platform);
  std::size_t pos = 0;  // length of the text so far without trailing blanks
  for (const msg_line* line = err.lines.head.get(); line; line = line->next.get()) {
    if (length <= pos + 3) return;
    if (line != err.lines.head.get()) {
      std::copy(end.begin(), end.end(), text + pos);
      pos += end.size();
    }
    const std::string_view words = text_of(*line);
    const std::size_t count = std::min(words.size(), length - pos);
    std::copy_n(words.begin(), count, text + pos);
    pos = without_trailing_blanks({text, pos + count}).size();
  }
}

void err_reset(error_type& err) {
  err.lines.clear();
  err.occurred = false;
}

std::vector<std::string> lines_of(const error_type& err) {
  std::vector<std::string> all;
  for (const msg_line* line = err.lines.head.get(); line; line = line->next.get())
    all.emplace_back(text_of(*line));
  return all;
}

std::string routine::whichsub() const {
  return module.empty() ? std::string(name) : std::string(name) + " in MOD " + std::string(module);
}

int32 fail(error_type& err, const routine& here, int32 code,
           std::initializer_list<text_lines> lines) {
  err.occurred = true;
  if (code != error_code::own_text) err_handle(err, code);
  for (const auto& group : lines)
    for (const auto& line : group) err_add_line(err.lines, line);
  return pass_on(err, here);
}

int32 fail(error_type& err, const routine& here, std::initializer_list<text_lines> lines) {
  return fail(err, here, error_code::own_text, lines);
}

int32 pass_on(error_type& err, const routine& here) {
  err_handle(err, error_code::own_text, {.whichsub = here.whichsub()});
  return -1;
}

}  // namespace tolvenra
