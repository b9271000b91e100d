#include "columns.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <tuple>

#include "input_error.hpp"
#include "near_names.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::size_t most_categories = 999;

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return result;
}

std::optional<std::size_t> column_named(const data_table& table, std::string_view name) {
  for (std::size_t j = 0; j < table.columns.size(); ++j)
    if (!name.empty() && table.columns[j].name == name) return j;
  return std::nullopt;
}

/// "first-last", where a hyphen may also belong to a name.
std::optional<std::pair<std::size_t, std::size_t>> as_range(const data_table& table,
                                                            std::string_view text) {
  for (std::size_t at = text.find('-'); at != std::string_view::npos; at = text.find('-', at + 1)) {
    const auto first = column_named(table, text.substr(0, at));
    const auto last = column_named(table, text.substr(at + 1));
    if (first && last) return std::pair{*first, *last};
  }
  return std::nullopt;
}

class selection {
 public:
  selection(const data_table& table, std::string_view asked_by)
      : table_(table), asked_by_(asked_by) {}

  void add(std::string_view text) {
    if (const auto column = column_named(table_, text)) return add_column(*column);
    const auto range = as_range(table_, text);
    if (!range) return add_column(find_column(table_, text, asked_by_));
    if (range->first > range->second)
      throw input_error::of(
          "{}: the range {} runs backwards in {} (columns {} and {}); name the left column first.",
          asked_by_, text, table_.source, range->first + 1, range->second + 1);
    for (std::size_t j = range->first; j <= range->second; ++j) add_column(j);
  }

  std::vector<std::size_t> columns;

 private:
  void add_column(std::size_t column) {
    if (std::find(columns.begin(), columns.end(), column) != columns.end())
      throw input_error::of("{} names column \"{}\" twice; once is enough.", asked_by_,
                            table_.columns[column].name);
    columns.push_back(column);
  }

  const data_table& table_;
  std::string_view asked_by_;
};

std::size_t first_row_of(const table_column& column, std::size_t code) {
  const auto at =
      std::find(column.code.begin(), column.code.end(), static_cast<std::int32_t>(code));
  return static_cast<std::size_t>(at - column.code.begin());
}

std::optional<double> as_boolean(std::string_view text) {
  const std::string folded = lower(text);
  if (folded == "true") return 1.0;
  if (folded == "false") return 0.0;
  return std::nullopt;
}

bool is_not_finite(std::string_view text) {
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return end == text.data() + text.size() && (error == std::errc::result_out_of_range ||
                                              (error == std::errc{} && !std::isfinite(value)));
}

/// What tells the distinct texts of a column apart and orders them.
enum class kind { numbers, booleans, texts };

kind kind_of(const data_table& table, const table_column& column,
             const std::vector<bool>& is_missing) {
  bool numbers = true, booleans = true;
  std::optional<std::size_t> not_finite;
  for (std::size_t v = 0; v < column.values.size(); ++v) {
    if (is_missing[v]) continue;
    booleans = booleans && as_boolean(column.values[v]);
    if (is_not_finite(column.values[v])) {
      not_finite = not_finite.value_or(v);
    } else {
      numbers = numbers && as_number(column.values[v]);
    }
  }
  if (numbers && not_finite)
    throw input_error::of(
        "{}, line {}: item \"{}\" holds \"{}\", which is no category; for a missing response leave "
        "the field empty or give --na {}.",
        table.source, table.line[first_row_of(column, *not_finite)], column.name,
        column.values[*not_finite], column.values[*not_finite]);
  if (numbers) return kind::numbers;
  return booleans ? kind::booleans : kind::texts;
}

}  // namespace

std::vector<std::string> split(std::string_view list, char separator) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at <= list.size();) {
    const std::size_t end = std::min(list.find(separator, at), list.size());
    std::string_view part = list.substr(at, end - at);
    while (part.starts_with(' ')) part.remove_prefix(1);
    while (part.ends_with(' ')) part.remove_suffix(1);
    parts.emplace_back(part);
    at = end + 1;
  }
  return parts;
}

std::optional<double> as_number(std::string_view text) {
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

missing_texts::missing_texts(const std::vector<std::string>& added) {
  for (const std::string& text : added) {
    texts_.insert(text);
    if (const auto number = as_number(text)) numbers_.insert(*number);
  }
}

bool missing_texts::operator()(const std::string& text) const {
  if (texts_.contains(text)) return true;
  if (numbers_.empty()) return false;
  const auto number = as_number(text);
  return number && numbers_.contains(*number);
}

std::size_t find_column(const data_table& table, std::string_view name, std::string_view asked_by) {
  if (const auto column = column_named(table, name)) return *column;
  std::vector<std::string> known;
  for (const table_column& column : table.columns) known.push_back(column.name);
  throw input_error::of("{}: {} has no column \"{}\". {}", asked_by, table.source, name,
                        suggestion(name, known, "The columns"));
}

std::vector<std::size_t> select_columns(const data_table& table,
                                        const std::vector<std::string>& lists,
                                        std::string_view asked_by) {
  selection chosen(table, asked_by);
  for (const std::string& list : lists) {
    if (column_named(table, list)) {
      chosen.add(list);
      continue;
    }
    for (const std::string& part : split(list, ',')) chosen.add(part);
  }
  return std::move(chosen.columns);
}

categories categorise(const data_table& table, std::size_t column, const missing_texts& missing) {
  const table_column& from = table.columns[column];
  std::vector<bool> is_missing(from.values.size());
  for (std::size_t v = 0; v < from.values.size(); ++v) is_missing[v] = missing(from.values[v]);
  const kind how = kind_of(table, from, is_missing);

  // One entry per category; of several spellings the shortest is the label.
  std::map<std::pair<double, std::string>, std::string> label_of;
  const auto key_of = [&](const std::string& text) -> std::pair<double, std::string> {
    if (how == kind::texts) return {0.0, text};
    return {*(how == kind::numbers ? as_number(text) : as_boolean(text)), ""};
  };
  const auto shorter = [](const std::string& a, const std::string& b) {
    return std::tuple(a.size(), a) < std::tuple(b.size(), b);
  };
  for (std::size_t v = 0; v < from.values.size(); ++v) {
    if (is_missing[v]) continue;
    const auto [at, fresh] = label_of.try_emplace(key_of(from.values[v]), from.values[v]);
    if (!fresh && shorter(from.values[v], at->second)) at->second = from.values[v];
  }
  if (label_of.size() > most_categories)
    throw input_error::of(
        "{}: column \"{}\" has {} different values; an item or group may have at most {}. Is it a "
        "measurement?",
        table.source, from.name, label_of.size(), most_categories);

  categories result{from.name, {}, {}};
  std::vector<std::int32_t> code_of_value(from.values.size(), 0);
  for (const auto& [key, label] : label_of) result.labels.push_back(label);
  for (std::size_t v = 0; v < from.values.size(); ++v)
    if (!is_missing[v])
      code_of_value[v] = 1 + static_cast<std::int32_t>(std::distance(
                                 label_of.begin(), label_of.find(key_of(from.values[v]))));
  result.code.reserve(from.code.size());
  for (const std::int32_t code : from.code)
    result.code.push_back(code_of_value[static_cast<std::size_t>(code)]);
  return result;
}

categories categorise_as(const data_table& table, std::size_t column, const missing_texts& missing,
                         const std::vector<std::string>& labels, std::string_view asked_by) {
  const table_column& from = table.columns[column];
  categories result{from.name, labels, {}};
  std::vector<std::int32_t> code_of_value;
  for (std::size_t v = 0; v < from.values.size(); ++v) {
    code_of_value.push_back(0);
    if (missing(from.values[v])) continue;
    const auto at = find_label(labels, from.values[v]);
    if (!at)
      throw input_error::of(
          "{}, line {}: \"{}\" holds \"{}\", which is none of the categories {} of {}.",
          table.source, table.line[first_row_of(from, v)], from.name, from.values[v],
          fmt::join(labels, ", "), asked_by);
    code_of_value.back() = static_cast<std::int32_t>(*at) + 1;
  }
  for (const std::int32_t code : from.code)
    result.code.push_back(code_of_value[static_cast<std::size_t>(code)]);
  return result;
}

std::optional<std::size_t> find_label(const std::vector<std::string>& labels,
                                      std::string_view text) {
  const auto same = std::find(labels.begin(), labels.end(), text);
  if (same != labels.end()) return static_cast<std::size_t>(same - labels.begin());
  for (const auto value_of : {as_number, as_boolean}) {
    const auto value = value_of(text);
    const auto known = [&](const std::string& label) { return value_of(label).has_value(); };
    if (!value || !std::all_of(labels.begin(), labels.end(), known)) continue;
    for (std::size_t k = 0; k < labels.size(); ++k)
      if (value_of(labels[k]) == value) return k;
  }
  return std::nullopt;
}

namespace {

/// The number of every row, from those of the distinct texts.
std::vector<double> by_row(const table_column& from, const std::vector<double>& number) {
  std::vector<double> result;
  result.reserve(from.code.size());
  for (const std::int32_t code : from.code)
    result.push_back(number[static_cast<std::size_t>(code)]);
  return result;
}

}  // namespace

std::vector<double> positive_numbers(const data_table& table, std::size_t column,
                                     std::string_view meaning) {
  const table_column& from = table.columns[column];
  std::vector<double> number(from.values.size());
  for (std::size_t v = 0; v < from.values.size(); ++v) {
    const std::string& text = from.values[v];
    const auto value = as_number(text);
    if (value && *value > 0.0) {
      number[v] = *value;
      continue;
    }
    const bool no_number = !value && !is_not_finite(text);
    throw input_error::of("{}, line {}: {} \"{}\" is {}; it should be a {} number.", table.source,
                          table.line[first_row_of(from, v)], meaning, from.name,
                          text.empty() ? "empty"
                          : no_number  ? fmt::format("\"{}\", which is no number", text)
                                       : fmt::format("\"{}\"", text),
                          value || no_number ? "positive" : "finite positive");
  }
  return by_row(from, number);
}

std::vector<double> covariate_numbers(const data_table& table, std::size_t column,
                                      const missing_texts& missing, bool gaps) {
  const table_column& from = table.columns[column];
  std::vector<double> number(from.values.size());
  for (std::size_t v = 0; v < from.values.size(); ++v) {
    const auto complain = [&](std::string_view found, std::string_view remedy) {
      return input_error::of("{}, line {}: covariate \"{}\" is {}; {}", table.source,
                             table.line[first_row_of(from, v)], from.name, found, remedy);
    };
    const std::string& text = from.values[v];
    if (missing(text) && gaps) {
      number[v] = std::numeric_limits<double>::quiet_NaN();
      continue;
    }
    if (missing(text))
      throw complain("missing", "every row needs a value. Remove the row or fill in the value.");
    const auto value = as_number(text);
    if (!value && is_not_finite(text))
      throw complain('"' + text + '"', "it should be a finite number.");
    if (!value)
      throw complain('"' + text + "\", which is no number",
                     "turn categories into columns of 0 and 1, one for each category but one, and "
                     "name these columns instead.");
    number[v] = *value;
  }
  return by_row(from, number);
}

}  // namespace tolvenra::cli
