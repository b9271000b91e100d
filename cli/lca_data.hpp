/// \file lca_data.hpp  The table and the options as one latent class analysis.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "columns.hpp"
#include "lca_model.hpp"
#include "lca_options.hpp"

namespace tolvenra::cli {

struct covariate {
  std::string name;
  std::vector<double> value;  ///< one per row
};

struct lca_data {
  std::vector<categories> items;
  std::vector<double> missing;       ///< per item: cases (by frequency) without a response
  std::vector<double> freq, weight;  ///< one per row; empty when there is no such column
  std::optional<categories> group;
  std::vector<covariate> covariates;
  lca_model model;
  std::size_t rows = 0;
  double cases = 0.0;           ///< sum of the frequencies
  double weighted_cases = 0.0;  ///< sum of frequency times weight: the N of the criteria
  std::vector<double> group_cases, group_weighted_cases;  ///< the same per group; one group without
  std::vector<std::string> warnings;                      ///< why the model is not identified

  [[nodiscard]] std::size_t groups() const { return group ? group->labels.size() : 1; }
  [[nodiscard]] double freq_of(std::size_t row) const { return freq.empty() ? 1.0 : freq[row]; }
  [[nodiscard]] double weight_of(std::size_t row) const {
    return weight.empty() ? 1.0 : weight[row];
  }
  [[nodiscard]] std::size_t group_of(std::size_t row) const {
    return group ? static_cast<std::size_t>(group->code[row]) - 1 : 0;
  }
};

/// The largest number of categories of an item.
std::int32_t most_categories_of(const lca_data& data);

/// Throws input_error for everything that leaves no analysis to be made.
lca_data prepare_lca(const data_table& table, const lca_options& options);

}  // namespace tolvenra::cli
