#include "lta_columns.hpp"

#include <algorithm>
#include <optional>
#include <set>

#include "columns.hpp"
#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

/// Columns that were listed for one time.
struct listed_wave {
  std::string label;  ///< empty without one
  std::vector<std::size_t> columns;
};

bool is_column(const data_table& table, const std::string& name) {
  return std::any_of(table.columns.begin(), table.columns.end(),
                     [&](const table_column& column) { return column.name == name; });
}

/// "1: a1,b1; 2: a2,b2", whole or in pieces.
std::vector<listed_wave> read_waves(const data_table& table, const std::vector<std::string>& lists,
                                    const std::string& asked_by) {
  std::vector<listed_wave> waves;
  for (const std::string& list : lists)
    for (const std::string& part : split(list, ';')) {
      if (part.empty()) continue;
      listed_wave& wave = waves.emplace_back();
      std::string columns = part;
      if (const std::size_t colon = part.find(':');
          colon != std::string::npos && !is_column(table, part)) {
        wave.label = split(part.substr(0, colon), ':').front();
        columns = part.substr(colon + 1);
      }
      wave.columns = select_columns(table, {columns}, asked_by);
    }
  const auto size = waves.empty() ? 0 : waves.front().columns.size();
  for (std::size_t t = 0; t < waves.size(); ++t)
    if (waves[t].columns.size() != size)
      throw input_error::of(
          "{}: {} columns are named for time {}, but {} for time 1; name the same items in the "
          "same order at every time, as in \"1: a1,b1; 2: a2,b2\".",
          asked_by, waves[t].columns.size(), t + 1, size);
  return waves;
}

std::string common_beginning(const data_table& table, const std::vector<std::size_t>& columns) {
  std::string common = table.columns[columns.front()].name;
  for (const std::size_t column : columns) {
    const std::string& name = table.columns[column].name;
    const auto end = std::mismatch(common.begin(), common.end(), name.begin(), name.end()).first;
    common.erase(end, common.end());
  }
  while (!common.empty() && std::string_view("_-. ").find(common.back()) != std::string_view::npos)
    common.pop_back();
  // Half a letter is no name.
  while (!common.empty() && (static_cast<unsigned char>(common.back()) & 0x80) != 0)
    common.pop_back();
  return common;
}

/// Turns waves into items, and names these.
std::vector<wide_columns> items_of(const data_table& table, const std::vector<listed_wave>& waves) {
  std::vector<wide_columns> items;
  std::set<std::string> names;
  for (std::size_t j = 0; j < waves.front().columns.size(); ++j) {
    wide_columns& item = items.emplace_back();
    for (const listed_wave& wave : waves) item.at.push_back(wave.columns[j]);
    item.name = common_beginning(table, item.at);
    if (!item.name.empty()) names.insert(item.name);
  }
  if (names.size() == items.size()) return items;
  for (wide_columns& item : items) item.name = table.columns[item.at.front()].name;
  return items;
}

/// How wide columns are called: what stands before, between and behind {item} and {time}.
class name_pattern {
 public:
  name_pattern(const std::string& pattern, const std::string& asked_by) : pattern_(pattern) {
    for (const char* part : {"{item}", "{time}"}) {
      const std::size_t at = pattern.find(part);
      if (at == std::string::npos || pattern.find(part, at + 1) != std::string::npos)
        throw input_error::of(
            "{}: \"{}\" should hold {{item}} and {{time}} once each, as in {{item}}_{{time}}.",
            asked_by, pattern);
    }
  }

  [[nodiscard]] std::string name(const std::string& item, const std::string& time) const {
    return replaced(replaced(pattern_, "{item}", item), "{time}", time);
  }

  /// The time in a name of this item.
  [[nodiscard]] std::optional<std::string> time_in(const std::string& name,
                                                   const std::string& item) const {
    const std::string form = replaced(pattern_, "{item}", item);
    const std::size_t at = form.find("{time}");
    const std::string_view before(form.data(), at), behind(form.data() + at + 6);
    if (name.size() <= before.size() + behind.size() || !name.starts_with(before) ||
        !name.ends_with(behind))
      return std::nullopt;
    return name.substr(at, name.size() - before.size() - behind.size());
  }

 private:
  static std::string replaced(std::string text, std::string_view what, const std::string& by) {
    return text.replace(text.find(what), what.size(), by);
  }

  std::string pattern_;
};

/// The times of the columns of an item: numbers by size, other texts as they come.
std::vector<std::string> times_in(const data_table& table, const name_pattern& pattern,
                                  const std::string& item) {
  std::vector<std::string> times;
  for (const table_column& column : table.columns)
    if (const auto time = pattern.time_in(column.name, item)) times.push_back(*time);
  if (std::all_of(times.begin(), times.end(), [](const auto& time) { return as_number(time); }))
    std::stable_sort(times.begin(), times.end(),
                     [](const auto& a, const auto& b) { return *as_number(a) < *as_number(b); });
  return times;
}

void check_labels(const std::vector<std::string>& times, const std::string& asked_by) {
  for (std::size_t t = 0; t < times.size(); ++t)
    if (std::find(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(t), times[t]) !=
        times.begin() + static_cast<std::ptrdiff_t>(t))
      throw input_error::of("{}: time \"{}\" is named twice.", asked_by, times[t]);
}

wide_form by_pattern(const data_table& table, const lta_options& options) {
  const name_pattern pattern(options.pattern, options.asked_by("pattern"));
  const std::vector<std::string> items = listed(options.items);
  wide_form form;
  form.times = listed(options.times);
  if (form.times.empty() && !items.empty()) form.times = times_in(table, pattern, items.front());
  if (form.times.empty())
    throw input_error::of("{}: {} has no column such as \"{}\" for item \"{}\".",
                          options.asked_by("pattern"), table.source,
                          items.empty() ? "" : pattern.name(items.front(), "1"),
                          items.empty() ? "" : items.front());
  check_labels(form.times, options.asked_by("times"));
  for (const std::string& item : items) {
    wide_columns& columns = form.items.emplace_back(wide_columns{item, {}});
    for (const std::string& time : form.times)
      columns.at.push_back(find_column(table, pattern.name(item, time), options.asked_by("items")));
  }
  for (const std::string& name : listed(options.covariates_transition)) {
    wide_columns& columns = form.moving.emplace_back(wide_columns{name, {}});
    for (std::size_t t = 0; t + 1 < form.times.size(); ++t)
      columns.at.push_back(
          find_column(table, is_column(table, name) ? name : pattern.name(name, form.times[t]),
                      options.asked_by("covariates_transition")));
  }
  return form;
}

wide_form by_list(const data_table& table, const lta_options& options) {
  wide_form form;
  const std::vector<listed_wave> waves =
      read_waves(table, options.items, options.asked_by("items"));
  for (std::size_t t = 0; t < waves.size(); ++t)
    form.times.push_back(waves[t].label.empty() ? fmt::format("{}", t + 1) : waves[t].label);
  check_labels(form.times, options.asked_by("items"));
  if (waves.size() < 2)
    throw input_error::of(
        "{}: there is only one time; name the columns of each, as in \"1: a1,b1; 2: a2,b2\", give "
        "a --pattern, or describe long data (--id, --time).",
        options.asked_by("items"));
  form.items = items_of(table, waves);
  if (options.covariates_transition.empty()) return form;
  const std::string asked_by = options.asked_by("covariates_transition");
  const std::vector<listed_wave> moves = read_waves(table, options.covariates_transition, asked_by);
  if (moves.size() == 1 && moves.front().label.empty()) {
    for (const std::size_t column : moves.front().columns)
      form.moving.push_back(
          {table.columns[column].name, std::vector<std::size_t>(form.times.size() - 1, column)});
    return form;
  }
  if (moves.size() != form.times.size() - 1)
    throw input_error::of(
        "{}: columns are named for {} transitions, but there are {}; name those of the time at "
        "which each transition starts, or columns that hold for all of them.",
        asked_by, moves.size(), form.times.size() - 1);
  for (std::size_t t = 0; t < moves.size(); ++t)
    if (!moves[t].label.empty() && moves[t].label != form.times[t])
      throw input_error::of("{}: \"{}\" stands where time \"{}\" is expected.", asked_by,
                            moves[t].label, form.times[t]);
  form.moving = items_of(table, moves);
  return form;
}

}  // namespace

wide_form find_wide_columns(const data_table& table, const lta_options& options) {
  wide_form form = options.pattern.empty() ? by_list(table, options) : by_pattern(table, options);
  for (wide_columns& columns : form.moving)
    if (!columns.at.empty()) columns.at.push_back(columns.at.back());
  return form;
}

}  // namespace tolvenra::cli
