#include "lta_posteriors.hpp"

#include <fmt/ranges.h>

#include <algorithm>

#include "input_error.hpp"
#include "posteriors.hpp"

namespace tolvenra::cli {
namespace {

std::vector<std::string> added_names(const lta_data& data, const lta_options& options) {
  std::vector<std::string> names;
  for (const std::string& time : data.times) {
    for (std::int32_t s = 1; s <= options.statuses; ++s)
      names.push_back(fmt::format("status_{}_{}", s, time));
    names.push_back("modal_" + time);
    names.push_back("sequence_" + time);
  }
  return names;
}

/// The columns that are repeated: all of wide data, of long data the people.
std::vector<const table_column*> kept_columns(const data_table& table, const lta_options& options) {
  std::vector<const table_column*> kept;
  for (const table_column& column : table.columns)
    if (!options.is_long() || column.name == options.id) kept.push_back(&column);
  return kept;
}

}  // namespace

void check_posterior_names(const data_table& table, const lta_data& data,
                           const lta_options& options) {
  const std::vector<std::string> added = added_names(data, options);
  for (const table_column* column : kept_columns(table, options))
    if (std::find(added.begin(), added.end(), column->name) != added.end())
      throw input_error::of(
          "--posteriors: {} already has a column \"{}\", which would be added; rename or remove "
          "it.",
          table.source, column->name);
}

void write_posteriors(const data_table& table, const lta_data& data, const lta_options& options,
                      const lta_fit& fit, const lta_answer& answer, std::FILE* file) {
  const std::vector<const table_column*> kept = kept_columns(table, options);
  const std::size_t ns = answer.status_labels.size();
  std::string line;
  for (const table_column* column : kept) line += csv_field(column->name) + ',';
  std::vector<std::string> names;
  for (const std::string& name : added_names(data, options)) names.push_back(csv_field(name));
  fmt::print(file, "{}{}\n", line, fmt::join(names, ","));
  for (std::size_t i = 0; i < data.rows; ++i) {
    line.clear();
    for (const table_column* column : kept) {
      const std::string& text = options.is_long() ? data.ids[i] : column->text(i);
      line += (text.empty() ? "" : csv_field(text)) + ',';
    }
    for (std::size_t t = 0; t < data.ntime(); ++t) {
      std::size_t modal = 0;
      const auto probability = [&](std::size_t s) {
        return fit.post[i + data.rows * (t + data.ntime() * s)];
      };
      for (std::size_t s = 0; s < ns; ++s) {
        line += fmt::format("{},", probability(s));
        if (probability(s) > probability(modal)) modal = s;
      }
      line += fmt::format("{},{},", modal + 1, answer.sequences[i][t] + 1);
    }
    line.pop_back();
    fmt::print(file, "{}\n", line);
  }
}

}  // namespace tolvenra::cli
