/// Any bytes are either refused with a message or read as a table that survives being written and
/// read again.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "columns.hpp"
#include "data_reader.hpp"
#include "input_error.hpp"
#include "posteriors.hpp"

namespace {

using namespace tolvenra::cli;

void require(bool good) {
  if (!good) std::abort();
}

std::string as_csv(const data_table& table) {
  std::string text;
  const auto add_row = [&](auto&& field_of) {
    for (std::size_t j = 0; j < table.columns.size(); ++j)
      text += (j == 0 ? "" : ",") + csv_field(field_of(table.columns[j]));
    text += '\n';
  };
  add_row([](const table_column& column) { return column.name; });
  for (std::size_t i = 0; i < table.rows(); ++i)
    add_row([i](const table_column& column) { return column.text(i); });
  return text;
}

void check_round_trip(const data_table& table) {
  const data_table again = parse_table(as_csv(table), "again", ',');
  require(again.rows() == table.rows() && again.columns.size() == table.columns.size());
  for (std::size_t j = 0; j < table.columns.size(); ++j) {
    require(again.columns[j].name == table.columns[j].name);
    require(again.columns[j].values == table.columns[j].values);
    require(again.columns[j].code == table.columns[j].code);
  }
}

void check_lines(const data_table& table, std::string_view text) {
  std::int64_t last = 1;
  for (const std::int64_t line : table.line) {
    require(line > last);
    last = line;
  }
  require(last <= static_cast<std::int64_t>(text.size()) + 1);
}

void check_categories(const data_table& table) {
  for (std::size_t j = 0; j < table.columns.size(); ++j) {
    try {
      const categories item = categorise(table, j, missing_texts({"-9"}));
      for (const std::int32_t code : item.code)
        require(code >= 0 && code <= static_cast<std::int32_t>(item.labels.size()));
    } catch (const input_error&) {
    }
    try {
      for (const double number : positive_numbers(table, j, "frequency")) require(number > 0.0);
    } catch (const input_error&) {
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const data_table table = parse_table(text, "fuzz");
    check_lines(table, text);
    check_round_trip(table);
    check_categories(table);
  } catch (const input_error& error) {
    require(std::string_view(error.what()).find("again") != 0);
  }
  return 0;
}
