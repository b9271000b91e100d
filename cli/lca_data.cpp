#include "lca_data.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::size_t most_items = 999;

/// The columns that the options name. A column serves one purpose only.
class column_roles {
 public:
  column_roles(const data_table& table, const lca_options& options)
      : table_(table), items(select_columns(table, options.items, "--items")) {
    if (items.size() > most_items)
      throw input_error::of("--items names {} columns; at most {} can be analysed.", items.size(),
                            most_items);
    for (const std::size_t j : items) taken_.emplace_back(j, "--items");
    freq = take(options.freq, "--freq");
    weight = take(options.weight, "--weight");
    group = take(options.group, "--group");
  }

 private:
  std::optional<std::size_t> take(const std::string& name, const char* option) {
    if (name.empty()) return std::nullopt;
    const std::size_t column = find_column(table_, name, option);
    for (const auto& [other, used_by] : taken_)
      if (other == column)
        throw input_error::of(
            "{} and {} both name column \"{}\"; a column can serve only one of them.", used_by,
            option, name);
    taken_.emplace_back(column, option);
    return column;
  }

  const data_table& table_;
  std::vector<std::pair<std::size_t, const char*>> taken_;

 public:
  std::vector<std::size_t> items;
  std::optional<std::size_t> freq, weight, group;
};

void add_group(const data_table& table, std::size_t column, const missing_texts& missing,
               lca_data& data) {
  data.group = categorise(table, column, missing);
  const auto& code = data.group->code;
  const auto none = std::find(code.begin(), code.end(), 0);
  if (none == code.end()) return;
  const auto row = static_cast<std::size_t>(none - code.begin());
  throw input_error::of(
      "{}, line {}: group \"{}\" is missing; every row should belong to a group. Remove the row or "
      "give it a group of its own.",
      table.source, table.line[row], data.group->name);
}

void add_item(const data_table& table, std::size_t column, const missing_texts& missing,
              lca_data& data) {
  categories item = categorise(table, column, missing);
  if (item.labels.empty())
    throw input_error::of("{}: item \"{}\" has no observed response; leave it out of --items.",
                          table.source, item.name);
  if (item.labels.size() == 1)
    data.warnings.push_back(fmt::format(
        "Item \"{}\" has only one observed category, \"{}\": it tells nothing about the "
        "classes, and the model is not identified by it.",
        item.name, item.labels.front()));
  data.items.push_back(std::move(item));
}

void count_cases(lca_data& data) {
  data.group_cases.assign(data.groups(), 0.0);
  data.group_weighted_cases.assign(data.groups(), 0.0);
  for (std::size_t i = 0; i < data.rows; ++i) {
    data.group_cases[data.group_of(i)] += data.freq_of(i);
    data.group_weighted_cases[data.group_of(i)] += data.freq_of(i) * data.weight_of(i);
  }
  for (const double n : data.group_cases) data.cases += n;
  for (const double n : data.group_weighted_cases) data.weighted_cases += n;
  if (!std::isfinite(data.weighted_cases) || !std::isfinite(data.cases))
    throw input_error(
        "The frequencies or weights add up to more than a number can hold; scale them.");
}

/// Missing responses of every item, and a warning where a whole group gave none.
void count_missing(lca_data& data) {
  for (const categories& item : data.items) {
    double missing = 0.0;
    std::vector<bool> answered(data.groups(), false);
    for (std::size_t i = 0; i < data.rows; ++i) {
      if (item.code[i] == 0) missing += data.freq_of(i);
      if (item.code[i] != 0) answered[data.group_of(i)] = true;
    }
    data.missing.push_back(missing);
    for (std::size_t g = 0; g < answered.size(); ++g)
      if (!answered[g])
        data.warnings.push_back(fmt::format(
            "Item \"{}\" has no observed response in group \"{}\": its probabilities there mean "
            "nothing, and the model is not identified.",
            item.name, data.group->labels[g]));
  }
}

/// Distinct rows of responses, counted no further than `enough`; rows without any do not count.
std::size_t count_patterns(const lca_data& data, std::size_t enough) {
  std::unordered_set<std::string> seen;
  std::string key;
  for (std::size_t i = 0; i < data.rows && seen.size() < enough; ++i) {
    key.clear();
    bool any = false;
    for (const categories& item : data.items) {
      const auto code = static_cast<unsigned>(item.code[i]);
      any = any || code != 0;
      key += {static_cast<char>(code & 0xFF), static_cast<char>(code >> 8)};
    }
    if (any) seen.insert(key);
  }
  return seen.size();
}

}  // namespace

lca_data prepare_lca(const data_table& table, const lca_options& options) {
  const column_roles roles(table, options);
  const missing_texts missing(options.na);
  lca_data data;
  data.rows = table.rows();
  for (const std::size_t column : roles.items) add_item(table, column, missing, data);
  if (roles.freq) data.freq = positive_numbers(table, *roles.freq, "frequency");
  if (roles.weight) data.weight = positive_numbers(table, *roles.weight, "weight");
  if (roles.group) add_group(table, *roles.group, missing, data);
  count_cases(data);
  count_missing(data);
  const auto classes = static_cast<std::size_t>(options.classes);
  if (const std::size_t patterns = count_patterns(data, classes); patterns < classes)
    throw input_error::of(
        "--classes: {} classes asked for, but {} has only {} distinct response pattern{} in these "
        "items; ask for at most {}.",
        classes, table.source, patterns, patterns == 1 ? "" : "s", patterns);
  return data;
}

}  // namespace tolvenra::cli
