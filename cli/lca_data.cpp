#include "lca_data.hpp"

#include <map>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::size_t most_items = 999;

/// The columns that the options name.
struct column_roles {
  std::vector<std::size_t> items, covariates;
  std::optional<std::size_t> freq, weight, group, cluster;

  column_roles(const data_table& table, const lca_options& options) {
    column_uses uses(table, options);
    items = uses.select(options.items, "items");
    if (items.size() > most_items)
      throw input_error::of("{} names {} columns; at most {} can be analysed.",
                            options.asked_by("items"), items.size(), most_items);
    freq = uses.find(options.freq, "freq");
    weight = uses.find(options.weight, "weight");
    group = uses.find(options.group, "group");
    cluster = uses.find(options.cluster, "cluster");
    covariates = uses.select(options.covariates, "covariates");
  }
};

/// Clusters are numbered in the order of their first rows; texts of the same number are one.
std::vector<std::int32_t> read_clusters(const data_table& table, std::size_t column,
                                        const missing_texts& missing) {
  const table_column& labels = table.columns[column];
  std::vector<std::int32_t> number_of(labels.values.size(), 0);  // of each distinct text
  std::map<double, std::int32_t> of_value;
  std::int32_t clusters = 0;
  for (std::size_t text = 0; text < labels.values.size(); ++text) {
    if (missing(labels.values[text])) continue;
    const auto value = as_number(labels.values[text]);
    std::int32_t& number = value ? of_value[*value] : number_of[text];
    if (number == 0) number = ++clusters;
    number_of[text] = number;
  }
  std::vector<std::int32_t> cluster;
  for (std::size_t i = 0; i < table.rows(); ++i) {
    cluster.push_back(number_of[static_cast<std::size_t>(labels.code[i])]);
    if (cluster.back() == 0)
      throw input_error::of(
          "{}, line {}: cluster \"{}\" is missing; every row should belong to a cluster. Remove "
          "the row or give it a cluster of its own.",
          table.source, table.line[i], labels.name);
  }
  return cluster;
}

/// Their time grows with the third power: 2400 parameters of 1000 cases take half a minute.
constexpr std::size_t most_parameters_with_errors = 1500;

std::size_t count_parameters(const lca_data& data, std::size_t classes) {
  std::size_t responses = 0;
  for (const categories& item : data.items) responses += item.labels.size() - 1;
  return data.groups() * ((data.covariates.size() + 1) * (classes - 1) + classes * responses);
}

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
  if (roles.cluster) data.cluster = read_clusters(table, *roles.cluster, reader.missing);
  for (const std::size_t column : roles.covariates) {
    data.covariates.push_back(
        {table.columns[column].name, covariate_numbers(table, column, reader.missing)});
    check_covariate(table, options, "covariates", data.covariates.back(), data);
  }
  check_independent(data, options, "covariates", 0, data.covariates.size());
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
  data.parameters = count_parameters(data, static_cast<std::size_t>(options.classes));
  data.errors_wanted = options.se.value_or(data.parameters <= most_parameters_with_errors);
  if (data.model.start_given)
    warn_of_equal_starts(data.items.size(), static_cast<std::size_t>(options.classes),
                         data.model.rho, "Classes", data.warnings);
  return data;
}

report_terms report_terms_of(const lca_data& data, const lca_options& options) {
  return {"--prior-beta",
          options.prior_beta > 0.0,
          covariate_names(data, 0, data.covariates.size()),
          {},
          data.group ? data.group->labels : std::vector<std::string>{},
          {}};
}

}  // namespace tolvenra::cli
