#include "lta_waves.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <unordered_map>

#include "case_data.hpp"
#include "input_error.hpp"
#include "lta_columns.hpp"

namespace tolvenra::cli {
namespace {

/// Builds a column that holds each distinct text once.
class column_builder {
 public:
  explicit column_builder(const std::string& name) { made_.name = name; }

  std::int32_t code_of(const std::string& text) {
    const auto [at, is_new] =
        known_.try_emplace(text, static_cast<std::int32_t>(made_.values.size()));
    if (is_new) made_.values.push_back(text);
    return at->second;
  }
  void add(std::int32_t code) { made_.code.push_back(code); }
  table_column take() { return std::move(made_); }

 private:
  table_column made_;
  std::unordered_map<std::string, std::int32_t> known_;
};

/// Long data: a row of `cases` for every person.
class long_data {
 public:
  long_data(const data_table& table, const lta_options& options)
      : table_(table), options_(options), missing_(options.na), uses_(table, options) {}

  wave_data arrange() {
    const std::size_t id = *uses_.find(options_.id, "id");
    const std::size_t time = *uses_.find(options_.time, "time");
    result_.items = uses_.select(options_.items, "items");
    result_.freq = uses_.find(options_.freq, "freq");
    result_.weight = uses_.find(options_.weight, "weight");
    result_.group = uses_.find(options_.group, "group");
    result_.starting = uses_.select(options_.covariates_start, "covariates_start");
    if (!options_.covariates_transition.empty())
      result_.moving = select_columns(table_, options_.covariates_transition,
                                      options_.asked_by("covariates_transition"));
    for (const std::size_t column : result_.moving)
      if (std::find(result_.starting.begin(), result_.starting.end(), column) ==
          result_.starting.end())
        uses_.take(column, "covariates_transition");
    refuse_missing(id);
    refuse_missing(time);
    place_rows(table_.columns[id], read_times(time));
    result_.waves = table_;
    make_cases();
    return std::move(result_);
  }

 private:
  void refuse_missing(std::size_t column) const {
    const table_column& from = table_.columns[column];
    for (std::size_t r = 0; r < table_.rows(); ++r)
      if (missing_(from.text(r)))
        throw input_error::of("{}, line {}: \"{}\" is missing; every row of long data needs it.",
                              table_.source, table_.line[r], from.name);
  }

  [[nodiscard]] categories read_times(std::size_t column) {
    const std::vector<std::string> given = listed(options_.times);
    categories times =
        given.empty() ? categorise(table_, column, missing_)
                      : categorise_as(table_, column, missing_, given, options_.asked_by("times"));
    for (std::size_t t = 0; t < times.labels.size(); ++t)
      if (std::find(times.code.begin(), times.code.end(), static_cast<std::int32_t>(t + 1)) ==
          times.code.end())
        throw input_error::of("{}: {} has no row of time \"{}\".", options_.asked_by("times"),
                              table_.source, times.labels[t]);
    result_.times = times.labels;
    return times;
  }

  void place_rows(const table_column& id, const categories& times) {
    const std::size_t people = id.values.size();
    result_.row.assign(people, std::vector<std::size_t>(times.labels.size(), no_row));
    for (std::size_t i = 0; i < people; ++i)
      result_.person.push_back(fmt::format("{}: {} \"{}\"", table_.source, id.name, id.values[i]));
    rows_of_.resize(people);
    for (std::size_t r = 0; r < table_.rows(); ++r) {
      const auto i = static_cast<std::size_t>(id.code[r]);
      const auto t = static_cast<std::size_t>(times.code[r]) - 1;
      std::size_t& row = result_.row[i][t];
      if (row != no_row)
        throw input_error::of("{} has two rows for {} \"{}\" (lines {} and {}); keep one of them.",
                              result_.person[i], times.name, times.labels[t], table_.line[row],
                              table_.line[r]);
      row = r;
      rows_of_[i].push_back(r);
    }
  }

  void make_cases() {
    result_.cases.source = table_.source;
    for (const auto& rows : rows_of_) result_.cases.line.push_back(table_.line[rows.front()]);
    result_.cases.columns.resize(table_.columns.size());
    for (std::size_t j = 0; j < table_.columns.size(); ++j)
      result_.cases.columns[j].name = table_.columns[j].name;
    for (const auto& [column, key] :
         {std::pair{result_.freq, "freq"}, {result_.weight, "weight"}, {result_.group, "group"}})
      if (column) reduce(*column, key);
    for (const std::size_t column : result_.starting) reduce(column, "covariates_start");
  }

  /// One text for every person: that of the rows which have one.
  void reduce(std::size_t column, const char* key) {
    const table_column& from = table_.columns[column];
    column_builder to(from.name);
    for (std::size_t i = 0; i < rows_of_.size(); ++i) {
      std::size_t chosen = rows_of_[i].front();
      for (const std::size_t r : rows_of_[i]) {
        if (missing_(from.text(r))) continue;
        if (missing_(from.text(chosen))) chosen = r;
        if (!same(from.text(chosen), from.text(r)))
          throw input_error::of(
              "{}: {} changes in column \"{}\" (\"{}\" in line {}, \"{}\" in line {}); it should "
              "be the same in all rows of a person.",
              options_.asked_by(key), result_.person[i].substr(table_.source.size() + 2), from.name,
              from.text(chosen), table_.line[chosen], from.text(r), table_.line[r]);
      }
      to.add(to.code_of(from.text(chosen)));
    }
    result_.cases.columns[column] = to.take();
  }

  static bool same(const std::string& a, const std::string& b) {
    return a == b || (as_number(a) && as_number(a) == as_number(b));
  }

  const data_table& table_;
  const lta_options& options_;
  missing_texts missing_;
  column_uses uses_;
  std::vector<std::vector<std::size_t>> rows_of_;  ///< [person], in the order of the file
  wave_data result_;
};

/// The columns of one item at all times, one below the other.
table_column stacked(const data_table& table, const wide_columns& item) {
  column_builder result(item.name);
  for (const std::size_t column : item.at) {
    const table_column& from = table.columns[column];
    std::vector<std::int32_t> number;
    for (const std::string& text : from.values) number.push_back(result.code_of(text));
    for (const std::int32_t code : from.code) result.add(number[static_cast<std::size_t>(code)]);
  }
  return result.take();
}

wave_data arrange_wide(const data_table& table, const lta_options& options) {
  column_uses uses(table, options);
  const wide_form form = find_wide_columns(table, options);
  wave_data result;
  result.times = form.times;
  for (const wide_columns& item : form.items)
    for (const std::size_t column : item.at) uses.take(column, "items");
  result.freq = uses.find(options.freq, "freq");
  result.weight = uses.find(options.weight, "weight");
  result.group = uses.find(options.group, "group");
  result.starting = uses.select(options.covariates_start, "covariates_start");
  for (const wide_columns& moving : form.moving) {
    const bool constant = moving.at.front() == moving.at.back();
    const bool shared = constant && std::find(result.starting.begin(), result.starting.end(),
                                              moving.at.front()) != result.starting.end();
    for (std::size_t t = 0; !shared && t < (constant ? 1 : form.times.size() - 1); ++t)
      uses.take(moving.at[t], "covariates_transition");
  }
  result.cases = table;
  const std::size_t people = table.rows();
  result.waves.source = table.source;
  for (std::size_t t = 0; t < form.times.size(); ++t)
    result.waves.line.insert(result.waves.line.end(), table.line.begin(), table.line.end());
  for (const auto* list : {&form.items, &form.moving})
    for (const wide_columns& columns : *list) {
      (list == &form.items ? result.items : result.moving).push_back(result.waves.columns.size());
      result.waves.columns.push_back(stacked(table, columns));
    }
  for (std::size_t i = 0; i < people; ++i) {
    std::vector<std::size_t>& row = result.row.emplace_back();
    for (std::size_t t = 0; t < form.times.size(); ++t) row.push_back(t * people + i);
    result.person.push_back(fmt::format("{}, line {}", table.source, table.line[i]));
  }
  return result;
}

}  // namespace

wave_data arrange_waves(const data_table& table, const lta_options& options) {
  wave_data result =
      options.is_long() ? long_data(table, options).arrange() : arrange_wide(table, options);
  if (result.times.size() < 2)
    throw input_error::of(
        "{}: there is only one time, \"{}\"; a transition needs two. Use tolvenra lca.",
        options.asked_by(options.is_long() ? "time" : "items"), result.times.front());
  if (result.times.size() > most_times)
    throw input_error::of("{}: there are {} times; at most {} can be analysed.",
                          options.asked_by(options.is_long() ? "time" : "items"),
                          result.times.size(), most_times);
  return result;
}

}  // namespace tolvenra::cli
