#include "lca_data.hpp"

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::size_t most_items = 999;

/// The columns that the options name.
struct column_roles {
  std::vector<std::size_t> items, covariates;
  std::optional<std::size_t> freq, weight, group;

  column_roles(const data_table& table, const lca_options& options) {
    column_uses uses(table, options);
    items = uses.select(options.items, "items");
    if (items.size() > most_items)
      throw input_error::of("{} names {} columns; at most {} can be analysed.",
                            options.asked_by("items"), items.size(), most_items);
    freq = uses.find(options.freq, "freq");
    weight = uses.find(options.weight, "weight");
    group = uses.find(options.group, "group");
    covariates = uses.select(options.covariates, "covariates");
  }
};

}  // namespace

lca_data prepare_lca(const data_table& table, const lca_options& options) {
  const column_roles roles(table, options);
  const category_reader reader(table, options);
  lca_data data;
  data.rows = table.rows();
  for (const std::size_t column : roles.items) {
    data.items.push_back(reader.read(column));
    check_item(table, data.items.back(), "classes", data);
  }
  if (roles.freq) data.freq = positive_numbers(table, *roles.freq, "frequency");
  if (roles.weight) data.weight = positive_numbers(table, *roles.weight, "weight");
  if (roles.group) add_group(table, *roles.group, reader, data);
  for (const std::size_t column : roles.covariates) {
    data.covariates.push_back(
        {table.columns[column].name, covariate_numbers(table, column, reader.missing)});
    check_covariate(table, options, "covariates", data.covariates.back(), data);
  }
  count_cases(data);
  count_missing(data, [&](std::size_t item, std::size_t group) {
    data.warnings.push_back(fmt::format(
        "Item \"{}\" has no observed response in group \"{}\": its probabilities there mean "
        "nothing, and the model is not identified.",
        data.items[item].name, data.group->labels[group]));
  });
  check_patterns(data, table.source, options, "classes", static_cast<std::size_t>(options.classes),
                 "classes");
  data.model = make_lca_model(data, options);
  if (data.model.start_given)
    warn_of_equal_starts(data.items.size(), static_cast<std::size_t>(options.classes),
                         data.model.rho, "Classes", data.warnings);
  return data;
}

}  // namespace tolvenra::cli
