#include "data_reader.hpp"

#include <csv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <unordered_map>

#include "input_error.hpp"
#include "utf8.hpp"

namespace tolvenra::cli {
namespace {

struct text_hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>{}(text);
  }
};
using code_map = std::unordered_map<std::string, std::int32_t, text_hash, std::equal_to<>>;

std::int64_t lines_inside(std::string_view text) {
  std::int64_t lines = 0;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] == '\n' || (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n')))
      ++lines;
  return lines;
}

/// Receives fields and row ends from the parser. The parser is C: nothing may be thrown through it,
/// so the first error is kept, and whatever follows it is ignored.
class table_builder {
 public:
  explicit table_builder(data_table& table) : table_(table) {}

  static void on_field(void* text, std::size_t size, void* self) {
    static_cast<table_builder*>(self)->guarded([&](table_builder& builder) {
      builder.add_field({static_cast<const char*>(text), size});
    });
  }
  static void on_row_end(int terminator, void* self) {
    static_cast<table_builder*>(self)->guarded(
        [&](table_builder& builder) { builder.end_row(terminator); });
  }

  [[nodiscard]] std::int64_t line() const { return line_; }
  void rethrow() const {
    if (error_) std::rethrow_exception(error_);
  }
  void finish() const {
    if (!has_header_)
      throw input_error::of("{} is empty; its first line should name the columns.", table_.source);
    if (table_.line.empty())
      throw input_error::of("{} has a header but no data rows.", table_.source);
  }

 private:
  template <class Body>
  void guarded(Body&& body) noexcept {
    if (error_) return;
    try {
      body(*this);
    } catch (...) {
      error_ = std::current_exception();
    }
  }

  void add_field(std::string_view field) {
    after_return_ = false;
    if (fields_ == 0) begin_row();
    if (!has_header_) {
      table_.columns.push_back({std::string(field), {}, {}});
    } else if (fields_ < table_.columns.size()) {
      add_value(table_.columns[fields_], codes_[fields_], field);
    }
    ++fields_;
    line_ += lines_inside(field);
  }

  void begin_row() {
    row_line_ = line_;
    if (empty_line_ != 0 && has_header_)
      throw input_error::of(
          "{}, line {}: the line is empty, but more rows follow; a row needs {} {}.", table_.source,
          empty_line_, table_.columns.size(),
          table_.columns.size() == 1 ? "field (NA where it is missing)" : "fields");
  }

  static void add_value(table_column& column, code_map& codes, std::string_view field) {
    const auto known = codes.find(field);
    if (known != codes.end()) {
      column.code.push_back(known->second);
      return;
    }
    const auto code = static_cast<std::int32_t>(column.values.size());
    column.values.emplace_back(field);
    column.code.push_back(code);
    codes.emplace(column.values.back(), code);
  }

  void end_row(int terminator) {
    const bool second_half_of_line_end = terminator == '\n' && after_return_;
    after_return_ = terminator == '\r';
    if (second_half_of_line_end) return;
    if (fields_ == 0) {
      if (has_header_ && empty_line_ == 0) empty_line_ = line_;
    } else if (has_header_) {
      end_data_row();
    } else {
      end_header();
    }
    fields_ = 0;
    ++line_;
  }

  void end_data_row() {
    const std::size_t wanted = table_.columns.size();
    if (fields_ != wanted)
      throw input_error::of("{}, line {}: {} field{} found, but the header names {} column{}.",
                            table_.source, row_line_, fields_, fields_ == 1 ? "" : "s", wanted,
                            wanted == 1 ? "" : "s");
    if (table_.line.size() == std::numeric_limits<std::int32_t>::max())
      throw input_error::of("{} has more than {} rows.", table_.source, table_.line.size());
    table_.line.push_back(row_line_);
  }

  void end_header() {
    has_header_ = true;
    codes_.resize(table_.columns.size());
    std::unordered_map<std::string_view, std::size_t> seen;
    for (std::size_t j = 0; j < table_.columns.size(); ++j) {
      const std::string& name = table_.columns[j].name;
      if (name.empty()) continue;
      const auto [first, fresh] = seen.emplace(name, j);
      if (!fresh)
        throw input_error::of(
            "{}, line {}: columns {} and {} are both named \"{}\"; the first line should give each "
            "column a name of its own.",
            table_.source, row_line_, first->second + 1, j + 1, name);
    }
  }

  data_table& table_;
  std::vector<code_map> codes_;
  std::exception_ptr error_;
  std::size_t fields_ = 0;
  std::int64_t line_ = 1, row_line_ = 1, empty_line_ = 0;
  bool has_header_ = false, after_return_ = false;
};

void check_text(std::string_view text, const std::string& source) {
  if (text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff"))
    throw input_error::of("{} is UTF-16 text; save it as UTF-8.", source);
  const std::size_t bad = std::min(first_invalid_utf8(text), text.find('\0'));
  if (bad >= text.size()) return;
  const std::int64_t line = 1 + lines_inside(text.substr(0, bad));
  if (text[bad] == '\0')
    throw input_error::of("{}, line {}: a NUL byte; the file should be plain text.", source, line);
  throw input_error::of("{}, line {}: byte 0x{:02x} is not UTF-8; save the file as UTF-8.", source,
                        line, static_cast<unsigned char>(text[bad]));
}

struct parser {
  csv_parser state{};
  explicit parser(char separator) {
    if (csv_init(&state, CSV_STRICT | CSV_STRICT_FINI | CSV_REPALL_NL) != 0) throw std::bad_alloc();
    csv_set_delim(&state, static_cast<unsigned char>(separator));
  }
  parser(const parser&) = delete;
  parser& operator=(const parser&) = delete;
  ~parser() { csv_free(&state); }
};

std::string slurp(std::FILE* file, const std::string& source) {
  std::string text;
  std::vector<char> buffer(std::size_t{1} << 18);
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), file))
    text.append(buffer.data(), got);
  if (std::ferror(file))
    throw input_error::of("{} cannot be read: {}.", source, std::strerror(errno));
  return text;
}

}  // namespace

char detect_separator(std::string_view text) {
  constexpr std::string_view candidates = ",\t;";
  std::array<std::size_t, candidates.size()> count{};
  bool quoted = false;
  const std::size_t start = text.find_first_not_of("\r\n \t");
  for (std::size_t i = text.find_last_of("\r\n", start) + 1; i < text.size(); ++i) {
    const char c = text[i];
    if (!quoted && (c == '\n' || c == '\r')) {
      if (i > start) break;
      continue;
    }
    if (c == '"') quoted = !quoted;
    const std::size_t k = candidates.find(c);
    if (!quoted && k != std::string_view::npos) ++count[k];
  }
  return candidates[static_cast<std::size_t>(std::max_element(count.begin(), count.end()) -
                                             count.begin())];
}

data_table parse_table(std::string_view text, std::string source, char separator) {
  if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
  check_text(text, source);
  data_table table;
  table.source = std::move(source);
  table_builder builder(table);
  parser csv(separator != 0 ? separator : detect_separator(text));
  constexpr std::size_t chunk = std::size_t{1} << 16;
  for (std::size_t at = 0; at < text.size(); at += chunk) {
    const std::string_view piece = text.substr(at, chunk);
    const std::size_t done =
        csv_parse(&csv.state, piece.data(), piece.size(), table_builder::on_field,
                  table_builder::on_row_end, &builder);
    builder.rethrow();
    if (done == piece.size()) continue;
    if (csv_error(&csv.state) != CSV_EPARSE) throw std::bad_alloc();
    throw input_error::of(
        "{}, line {}: a quote in the wrong place; a field that holds a quote should stand in "
        "quotes, "
        "with the quote doubled.",
        table.source, builder.line());
  }
  if (csv_fini(&csv.state, table_builder::on_field, table_builder::on_row_end, &builder) != 0)
    throw input_error::of("{}, line {}: a field begins with a quote that is never closed.",
                          table.source, builder.line());
  builder.rethrow();
  builder.finish();
  return table;
}

data_table read_table(const std::string& path) {
  if (path == "-") return parse_table(slurp(stdin, "standard input"), "standard input");
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored))
    throw input_error::of("{} is a folder; a file was expected.", path);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             &std::fclose);
  if (!file) throw input_error::of("{} cannot be opened: {}.", path, std::strerror(errno));
  const bool tabs = path.ends_with(".tsv") || path.ends_with(".tab");
  return parse_table(slurp(file.get(), path), path, tabs ? '\t' : '\0');
}

}  // namespace tolvenra::cli
