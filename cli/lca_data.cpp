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
      : table_(table),
        options_(options),
        items(select_columns(table, options.items, options.asked_by("items"))) {
    if (items.size() > most_items)
      throw input_error::of("{} names {} columns; at most {} can be analysed.",
                            options.asked_by("items"), items.size(), most_items);
    for (const std::size_t j : items) take(j, "items");
    freq = find(options.freq, "freq");
    weight = find(options.weight, "weight");
    group = find(options.group, "group");
    if (options.covariates.empty()) return;
    covariates = select_columns(table, options.covariates, options.asked_by("covariates"));
    for (const std::size_t j : covariates) take(j, "covariates");
  }

 private:
  std::optional<std::size_t> find(const std::string& name, const char* key) {
    if (name.empty()) return std::nullopt;
    const std::size_t column = find_column(table_, name, options_.asked_by(key));
    take(column, key);
    return column;
  }

  void take(std::size_t column, const char* key) {
    for (const auto& [other, used_by] : taken_)
      if (other == column)
        throw input_error::of(
            "{} and {} both name column \"{}\"; a column can serve only one of them.",
            options_.asked_by(used_by), options_.asked_by(key), table_.columns[column].name);
    taken_.emplace_back(column, key);
  }

  const data_table& table_;
  const lca_options& options_;
  std::vector<std::pair<std::size_t, const char*>> taken_;

 public:
  std::vector<std::size_t> items, covariates;
  std::optional<std::size_t> freq, weight, group;
};

/// The categories of columns: as the user lists them, else as the data show them.
class category_reader {
 public:
  category_reader(const data_table& table, const lca_options& options)
      : table_(table), missing(options.na), listed_(table.columns.size(), nullptr) {
    for (const listed_categories& list : options.categories)
      for (const std::size_t j : select_columns(table, {list.columns.text}, list.columns.where)) {
        if (listed_[j] != nullptr)
          throw input_error::of("{}: the categories of column \"{}\" are also listed in {}.",
                                list.columns.where, table.columns[j].name,
                                listed_[j]->columns.where);
        listed_[j] = &list;
      }
  }

  [[nodiscard]] categories read(std::size_t column) const {
    const listed_categories* list = listed_[column];
    if (list == nullptr) return categorise(table_, column, missing);
    return categorise_as(table_, column, missing, list->labels, list->columns.where);
  }

 private:
  const data_table& table_;

 public:
  missing_texts missing;

 private:
  std::vector<const listed_categories*> listed_;
};

void add_group(const data_table& table, std::size_t column, const category_reader& reader,
               lca_data& data) {
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

void add_item(const data_table& table, std::size_t column, const category_reader& reader,
              lca_data& data) {
  categories item = reader.read(column);
  const auto observed =
      std::count_if(item.code.begin(), item.code.end(), [](auto c) { return c > 0; });
  if (observed == 0)
    throw input_error::of("{}: item \"{}\" has no observed response; leave it out of --items.",
                          table.source, item.name);
  if (item.labels.size() == 1)
    data.warnings.push_back(fmt::format(
        "Item \"{}\" has only one observed category, \"{}\": it tells nothing about the "
        "classes, and the model is not identified by it.",
        item.name, item.labels.front()));
  data.items.push_back(std::move(item));
}

/// Throws where a covariate has one value only in some group.
void check_variation(const data_table& table, const lca_options& options, const covariate& added,
                     const lca_data& data) {
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
          options.asked_by("covariates"), added.name, *first[g],
          data.group ? fmt::format(" of group \"{}\"", data.group->labels[g]) : "", table.source);
}

void add_covariates(const data_table& table, const std::vector<std::size_t>& columns,
                    const lca_options& options, const missing_texts& missing, lca_data& data) {
  for (const std::size_t column : columns) {
    const covariate& added = data.covariates.emplace_back(
        covariate{table.columns[column].name, covariate_numbers(table, column, missing)});
    if (added.name == "intercept")
      throw input_error::of(
          "{}: a covariate cannot be called \"intercept\", the name of the first coefficient; "
          "rename "
          "the column.",
          options.asked_by("covariates"));
    check_variation(table, options, added, data);
  }
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

/// Classes that start alike stay alike: EM cannot tell them apart.
void warn_of_equal_starts(const lca_options& options, lca_data& data) {
  const std::size_t nitem = data.items.size();
  const auto nc = static_cast<std::size_t>(options.classes);
  const std::vector<double>& rho = data.model.rho;  // (item, class, category, group)
  const auto same = [&](std::size_t a, std::size_t b) {
    for (std::size_t at = 0; at < rho.size(); at += nitem * nc)
      for (std::size_t j = 0; j < nitem; ++j)
        if (rho[at + j + nitem * a] != rho[at + j + nitem * b]) return false;
    return true;
  };
  for (std::size_t b = 1; data.model.start_given && b < nc; ++b)
    for (std::size_t a = 0; a < b; ++a)
      if (same(a, b))
        data.warnings.push_back(
            fmt::format("Classes {} and {} start from the same response probabilities: the fit "
                        "cannot tell them apart.",
                        a + 1, b + 1));
}

}  // namespace

std::int32_t most_categories_of(const lca_data& data) {
  std::size_t most = 0;
  for (const categories& item : data.items) most = std::max(most, item.labels.size());
  return static_cast<std::int32_t>(most);
}

lca_data prepare_lca(const data_table& table, const lca_options& options) {
  const column_roles roles(table, options);
  const category_reader reader(table, options);
  lca_data data;
  data.rows = table.rows();
  for (const std::size_t column : roles.items) add_item(table, column, reader, data);
  if (roles.freq) data.freq = positive_numbers(table, *roles.freq, "frequency");
  if (roles.weight) data.weight = positive_numbers(table, *roles.weight, "weight");
  if (roles.group) add_group(table, *roles.group, reader, data);
  add_covariates(table, roles.covariates, options, reader.missing, data);
  count_cases(data);
  count_missing(data);
  const auto classes = static_cast<std::size_t>(options.classes);
  if (const std::size_t patterns = count_patterns(data, classes); patterns < classes)
    throw input_error::of(
        "{}: {} classes asked for, but {} has only {} distinct response pattern{} in these items; "
        "ask for at most {}.",
        options.asked_by("classes"), classes, table.source, patterns, patterns == 1 ? "" : "s",
        patterns);
  data.model = make_lca_model(data, options);
  warn_of_equal_starts(options, data);
  return data;
}

}  // namespace tolvenra::cli
