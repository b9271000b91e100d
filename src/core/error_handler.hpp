/// \file error_handler.hpp  The error object and its reports, module `error_handler`.
///
/// Every routine that can fail takes an `error_type`, appends its report to it and returns -1;
/// each caller may add its own report and returns in turn. At the library boundary the lines
/// become one text for the host (`err_msg`). No statics: objects of several threads are apart.
#pragma once

#include <array>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/text.hpp"
#include "core/types.hpp"

namespace tolvenra {

/// One line of a report: exactly 80 characters, blank padded.
struct msg_line {
  std::array<char, line_length> text{};
  std::unique_ptr<msg_line> next;
};

/// Lines in the order in which they were reported.
struct line_list {
  std::unique_ptr<msg_line> head;
  msg_line* tail = nullptr;

  line_list() = default;
  line_list(const line_list&) = delete;
  line_list& operator=(const line_list&) = delete;
  line_list(line_list&& other) noexcept;
  line_list& operator=(line_list&& other) noexcept;
  ~line_list() { clear(); }
  /// Releases the lines one by one: a long chain must not recurse.
  void clear() noexcept;
};

struct error_type {
  bool occurred = false;
  line_list lines;
};

/// Numeric codes that the engine reports; `err_handle` knows the file codes 1 to 7 too.
namespace error_code {
inline constexpr int32 singular = 100;
inline constexpr int32 not_positive_definite = 101;
inline constexpr int32 division_by_zero = 102;
inline constexpr int32 log_of_nonpositive = 103;
inline constexpr int32 exp_too_large = 104;
inline constexpr int32 allocation = 200;
inline constexpr int32 release = 201;
inline constexpr int32 not_square = 300;
inline constexpr int32 not_conformable = 301;
inline constexpr int32 own_text = 1000;  ///< no standard line
}  // namespace error_code

/// The optional texts of a report, all of any length.
struct report {
  std::optional<std::string_view> whichsub = {};  ///< routine name, " in MOD ", module
  std::optional<std::string_view> file = {};
  std::optional<int32> line = {};
  std::optional<std::string_view> msg = {};
  std::optional<std::string_view> comment1 = {}, comment2 = {}, comment3 = {}, comment4 = {};
};

/// Appends a report: the standard line of `code`, the comments as they stand, then file, line
/// number, message and routine, the last four without trailing blanks. Sets the flag always.
void err_handle(error_type& err, int32 code, const report& what = {});

/// Writes all lines into the host's buffer of `length` characters, blank filled, no NUL.
/// \param platform  "UNIX" joins lines by line feed, "MAC" by carriage return, anything else (and
///                  none) by both. The last line is cut at the buffer's end.
void err_msg(const error_type& err, char* text, std::size_t length,
             std::optional<std::string_view> platform = std::nullopt);

/// Releases all lines and clears the flag.
void err_reset(error_type& err);

inline bool err_occurred(const error_type& err) { return err.occurred; }

/// Appends one line, cut or padded to 80 characters.
void err_add_line(line_list& list, std::string_view text);

/// Takes the first line off the list; null when there is none.
std::unique_ptr<msg_line> take_head(line_list& list);
/// Puts a line at the tail, its own link cleared.
void append_at_tail(line_list& list, std::unique_ptr<msg_line> line);

/// The lines without their trailing blanks.
std::vector<std::string> lines_of(const error_type& err);

/// Name and module of a routine, for the last line of its reports.
struct routine {
  std::string_view name, module;
  [[nodiscard]] std::string whichsub() const;  ///< "estep in MOD estimation"; the name alone
                                               ///< without a module (the run drivers)
};

/// Reports under code 1000 lines of any number, then the routine line. \return -1
int32 fail(error_type& err, const routine& here, std::initializer_list<text_lines> lines);
/// Reports one of the standard codes with comment lines. \return -1
int32 fail(error_type& err, const routine& here, int32 code,
           std::initializer_list<text_lines> lines = {});
/// Adds the routine line alone, for a caller that passes a failure on. \return -1
int32 pass_on(error_type& err, const routine& here);

}  // namespace tolvenra
