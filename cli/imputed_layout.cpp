#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "imputed_data.hpp"
#include "input_error.hpp"
#include "lta_columns.hpp"

namespace tolvenra::cli {
namespace {

void check_names(const data_table& table, const imputed_layout& layout) {
  for (const table_column& column : table.columns)
    if (column.name == "imputation" ||
        std::find(layout.added.begin(), layout.added.end(), column.name) != layout.added.end())
      throw input_error::of(
          "--imputed: {} already has a column \"{}\", which would be added; rename or remove it.",
          table.source, column.name);
}

/// Every row a case; the columns of responses are still to be found.
imputed_layout plain_layout(const data_table& table, const analysis_options& options) {
  imputed_layout layout;
  layout.case_of.resize(table.rows());
  std::iota(layout.case_of.begin(), layout.case_of.end(), std::size_t{0});
  layout.response.assign(table.columns.size(), imputed_layout::none);
  if (!options.freq.empty())
    layout.freq = find_column(table, options.freq, options.asked_by("freq"));
  return layout;
}

void arrange_long(const data_table& table, const lta_data& data, const lta_options& options,
                  imputed_layout& layout) {
  if (layout.freq)
    throw input_error::of(
        "--imputed: subjects of one row of {} may differ, which long data cannot show; bring the "
        "data to wide form.",
        options.asked_by("freq"));
  const table_column& id = table.columns[find_column(table, options.id, options.asked_by("id"))];
  const table_column& time =
      table.columns[find_column(table, options.time, options.asked_by("time"))];
  for (std::size_t row = 0; row < table.rows(); ++row) {
    layout.case_of[row] = static_cast<std::size_t>(id.code[row]);
    layout.time_of.push_back(find_label(data.times, time.text(row)).value());
  }
  for (std::size_t j = 0; j < data.nitem(); ++j)
    layout.response[find_column(table, data.item_labels[j].name, options.asked_by("items"))] = j;
  layout.added = {"status"};
}

}  // namespace

imputed_layout layout_of(const data_table& table, const lca_data& data,
                         const lca_options& options) {
  imputed_layout layout = plain_layout(table, options);
  layout.added = {"class"};
  layout.items = data.items.size();
  for (std::size_t j = 0; j < data.items.size(); ++j)
    layout.response[find_column(table, data.items[j].name, options.asked_by("items"))] = j;
  check_names(table, layout);
  return layout;
}

imputed_layout layout_of(const data_table& table, const lta_data& data,
                         const lta_options& options) {
  imputed_layout layout = plain_layout(table, options);
  layout.items = data.nitem();
  if (options.is_long()) {
    arrange_long(table, data, options, layout);
  } else {
    for (const std::string& time : data.times) layout.added.push_back("status_" + time);
    const wide_form form = find_wide_columns(table, options);
    for (std::size_t j = 0; j < form.items.size(); ++j)
      for (std::size_t t = 0; t < form.times.size(); ++t)
        layout.response[form.items[j].at[t]] = j + data.nitem() * t;
  }
  check_names(table, layout);
  return layout;
}

}  // namespace tolvenra::cli
