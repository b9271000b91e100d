/// \file data_reader.hpp  Delimited text to a table of coded columns.
///
/// The first line that is not empty names the columns. Fields are separated by a comma, a tab or a
/// semicolon, whichever the header has most of (a file named .tsv or .tab is read with tabs).
/// Fields in double quotes may hold separators, line ends and doubled quotes; blanks around
/// unquoted fields do not count. A UTF-8 byte order mark, any kind of line end and empty lines at
/// the end are accepted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tolvenra::cli {

/// A column holds each distinct text once: files of responses repeat few texts many times.
struct table_column {
  std::string name;                 ///< empty where the header has no name
  std::vector<std::string> values;  ///< distinct texts in the order of their first row
  std::vector<std::int32_t> code;   ///< row i (from 0) holds values[code[i]]

  [[nodiscard]] const std::string& text(std::size_t row) const {
    return values[static_cast<std::size_t>(code[row])];
  }
};

struct data_table {
  std::string source;  ///< how messages call the file
  std::vector<table_column> columns;
  std::vector<std::int64_t> line;  ///< line of the source on which each row begins, from 1

  [[nodiscard]] std::size_t rows() const { return line.size(); }
};

/// The separator of a text whose header is its first line that is not empty.
char detect_separator(std::string_view text);

/// Parses a whole text. Throws input_error, which names the line, for an empty text, rows of
/// unequal length, columns of the same name, faulty quotes, empty lines between rows and bytes that
/// are no UTF-8 text. \param separator  0 to detect it.
data_table parse_table(std::string_view text, std::string source, char separator = 0);

/// Reads a file, or standard input for "-". Throws input_error also when it cannot be read.
data_table read_table(const std::string& path);

}  // namespace tolvenra::cli
