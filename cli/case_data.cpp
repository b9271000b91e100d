#include "case_data.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_set>

#include "input_error.hpp"

namespace tolvenra::cli {

std::int32_t most_categories_of(const case_data& data) {
  std::size_t most = 0;
  for (const categories& item : data.items) most = std::max(most, item.labels.size());
  return static_cast<std::int32_t>(most);
}

void column_uses::take(std::size_t column, const char* key) {
  for (const auto& [other, used_by] : taken_) {
    if (other != column) continue;
    const std::string& name = table_.columns[column].name;
    if (options_.asked_by(used_by) == options_.asked_by(key))
      throw input_error::of("{} names column \"{}\" twice; once is enough.", options_.asked_by(key),
                            name);
    throw input_error::of("{} and {} both name column \"{}\"; a column can serve only one of them.",
                          options_.asked_by(used_by), options_.asked_by(key), name);
  }
  taken_.emplace_back(column, key);
}

std::optional<std::size_t> column_uses::find(const std::string& name, const char* key) {
  if (name.empty()) return std::nullopt;
  const std::size_t column = find_column(table_, name, options_.asked_by(key));
  take(column, key);
  return column;
}

std::vector<std::size_t> column_uses::select(const std::vector<std::string>& lists,
                                             const char* key) {
  if (lists.empty()) return {};
  std::vector<std::size_t> columns = select_columns(table_, lists, options_.asked_by(key));
  for (const std::size_t column : columns) take(column, key);
  return columns;
}

category_reader::category_reader(const data_table& table, const analysis_options& options)
    : table_(table), missing(options.na), listed_(table.columns.size(), nullptr) {
  for (const listed_categories& list : options.categories)
    for (const std::size_t j : select_columns(table, {list.columns.text}, list.columns.where)) {
      if (listed_[j] != nullptr)
        throw input_error::of("{}: the categories of column \"{}\" are also listed in {}.",
                              list.columns.where, table.columns[j].name, listed_[j]->columns.where);
      listed_[j] = &list;
    }
}

categories category_reader::read(std::size_t column) const {
  const listed_categories* list = listed_[column];
  if (list == nullptr) return categorise(table_, column, missing);
  return categorise_as(table_, column, missing, list->labels, list->columns.where);
}

void add_group(const data_table& table, std::size_t column, const category_reader& reader,
               case_data& data) {
  data.group = reader.read(column);
  const auto& code = data.group->code;
  for (std::size_t g = 1; g <= data.group->labels.size(); ++g)
    if (std::find(code.begin(), code.end(), static_cast<std::int32_t>(g)) == code.end())
      throw input_error::of(
          "{}: no row belongs to group \"{}\"; leave it out of the categories of \"{}\".",
          table.source, data.group->labels[g - 1], data.group->name);
  const auto none = std::find(code.begin(), code.end(), 0);
  if (none == code.end()) return;
  const auto row = static_cast<std::size_t>(none - code.begin());
  throw input_error::of(
      "{}, line {}: group \"{}\" is missing; every row should belong to a group. Remove the row or "
      "give it a group of its own.",
      table.source, table.line[row], data.group->name);
}

void check_item(const data_table& table, const categories& item, const char* latents,
                case_data& data) {
  if (std::all_of(item.code.begin(), item.code.end(), [](auto c) { return c == 0; }))
    throw input_error::of("{}: item \"{}\" has no observed response; leave it out of --items.",
                          table.source, item.name);
  if (item.labels.size() == 1)
    data.warnings.push_back(fmt::format(
        "Item \"{}\" has only one observed category, \"{}\": it tells nothing about the "
        "{}, and the model is not identified by it.",
        item.name, item.labels.front(), latents));
}

void check_covariate(const data_table& table, const analysis_options& options, const char* key,
                     const covariate& added, const case_data& data) {
  if (added.name == "intercept")
    throw input_error::of(
        "{}: a covariate cannot be called \"intercept\", the name of the first coefficient; "
        "rename "
        "the column.",
        options.asked_by(key));
  std::vector<const double*> first(data.groups(), nullptr);
  std::vector<bool> varies(data.groups(), false);
  for (std::size_t i = 0; i < data.rows; ++i) {
    const std::size_t g = data.group_of(i);
    if (first[g] == nullptr) first[g] = &added.value[i];
    if (added.value[i] != *first[g]) varies[g] = true;
  }
  for (std::size_t g = 0; g < data.groups(); ++g)
    if (!varies[g])
      throw input_error::of(
          "{}: \"{}\" is {} in every row{} of {}: its effect cannot be told from the intercept. "
          "Leave it out.",
          options.asked_by(key), added.name, *first[g],
          data.group ? fmt::format(" of group \"{}\"", data.group->labels[g]) : "", table.source);
}

namespace {

/// Adds what a column has beside the directions there are. \return false when that is rounding
bool add_direction(std::vector<double> column, std::vector<std::vector<double>>& directions) {
  const auto length_of = [](const std::vector<double>& v) {
    return std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
  };
  // Beside the intercept, whose part dwarfs that of a date.
  const auto remove = [&](const std::vector<double>& direction) {
    const double part = std::inner_product(column.begin(), column.end(), direction.begin(), 0.0);
    for (std::size_t i = 0; i < column.size(); ++i) column[i] -= part * direction[i];
  };
  const double whole = length_of(column);
  if (!directions.empty()) {
    remove(directions.front());
    remove(directions.front());
  }
  const double before = length_of(column);
  for (int twice = 0; twice < 2; ++twice)
    for (const auto& direction : directions) remove(direction);
  const double left = length_of(column);
  constexpr double rounding =
      3e-7;  // of what follows from others; its square is the engine's limit
  if (!(left > rounding * before) || !(before > 1e-12 * whole)) return false;
  for (double& value : column) value /= left;
  directions.push_back(std::move(column));
  return true;
}

}  // namespace

void check_independent(const case_data& data, const analysis_options& options, const char* key,
                       std::size_t first, std::size_t count) {
  for (std::size_t g = 0; g < data.groups(); ++g) {
    std::vector<std::vector<double>> directions;  // orthonormal, the intercept's among them
    std::vector<double> ones(data.rows, 0.0);
    for (std::size_t i = 0; i < data.rows; ++i) ones[i] = data.group_of(i) == g ? 1.0 : 0.0;
    add_direction(std::move(ones), directions);
    for (std::size_t v = first; v < first + count; ++v) {
      std::vector<double> own = data.covariates[v].value;
      for (std::size_t i = 0; i < data.rows; ++i)
        if (data.group_of(i) != g) own[i] = 0.0;
      if (add_direction(std::move(own), directions)) continue;
      throw input_error::of(
          "{}: \"{}\" follows from {}{}: no data could tell their effects apart. Leave one of them "
          "out.",
          options.asked_by(key), data.covariates[v].name,
          v == first ? "the intercept" : covariate_names(data, first, v - first),
          data.group ? fmt::format(" in group \"{}\"", data.group->labels[g]) : "");
    }
  }
}

std::string covariate_names(const case_data& data, std::size_t first, std::size_t count) {
  std::string text;
  for (std::size_t v = 0; v < count; ++v)
    text += (v == 0 ? "" : v + 1 == count ? " and " : ", ") + data.covariates[first + v].name;
  return text;
}

void count_cases(case_data& data) {
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

void check_patterns(const case_data& data, const std::string& source,
                    const analysis_options& options, const char* key, std::size_t asked,
                    const char* they) {
  std::unordered_set<std::string> seen;
  std::string pattern;
  for (std::size_t i = 0; i < data.rows && seen.size() < asked; ++i) {
    pattern.clear();
    bool any = false;
    for (const categories& item : data.items) {
      const auto code = static_cast<unsigned>(item.code[i]);
      any = any || code != 0;
      pattern += {static_cast<char>(code & 0xFF), static_cast<char>(code >> 8)};
    }
    if (any) seen.insert(pattern);
  }
  if (seen.size() >= asked) return;
  throw input_error::of(
      "{}: {} {} asked for, but {} has only {} distinct response pattern{} in these items; "
      "ask for at most {}.",
      options.asked_by(key), asked, they, source, seen.size(), seen.size() == 1 ? "" : "s",
      seen.size());
}

}  // namespace tolvenra::cli
