/// \file case_data.hpp  The cases of an analysis: responses, frequencies, groups, covariates.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "analysis_options.hpp"
#include "columns.hpp"

namespace tolvenra::cli {

struct covariate {
  std::string name;
  std::vector<double> value;  ///< one per case
};

struct case_data {
  std::vector<categories> items;     ///< columns of responses; with several times one for each
  std::vector<double> missing;       ///< per column: cases (by frequency) without a response
  std::vector<double> freq, weight;  ///< one per row; empty when there is no such column
  std::optional<categories> group;
  std::vector<std::int32_t> cluster;  ///< of each row, from 1; empty without clusters
  std::vector<covariate> covariates;  ///< the columns of the engine's matrix
  std::size_t rows = 0;               ///< of the engine's arrays
  double cases = 0.0;                 ///< sum of the frequencies
  double weighted_cases = 0.0;        ///< sum of frequency times weight: the N of the criteria
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

/// Can the effect of each covariate be tested? Not with sampling weights, as yet.
inline bool covariates_are_tested(const case_data& data) {
  return !data.covariates.empty() && data.weight.empty();
}

/// The largest number of categories of an item.
std::int32_t most_categories_of(const case_data& data);

/// Which columns serve what: a column serves one purpose only.
class column_uses {
 public:
  column_uses(const data_table& table, const analysis_options& options)
      : table_(table), options_(options) {}

  /// Throws input_error when the column already serves another option.
  void take(std::size_t column, const char* key);
  /// Takes the column of that name; empty when no name is given.
  std::optional<std::size_t> find(const std::string& name, const char* key);
  /// Takes the columns of a list.
  std::vector<std::size_t> select(const std::vector<std::string>& lists, const char* key);

 private:
  const data_table& table_;
  const analysis_options& options_;
  std::vector<std::pair<std::size_t, const char*>> taken_;
};

/// The categories of columns: as the user lists them, else as the data show them.
class category_reader {
 public:
  category_reader(const data_table& table, const analysis_options& options);
  [[nodiscard]] categories read(std::size_t column) const;

 private:
  const data_table& table_;

 public:
  missing_texts missing;

 private:
  std::vector<const listed_categories*> listed_;
};

/// Throws input_error unless every case belongs to a group and every group has cases.
void add_group(const data_table& table, std::size_t column, const category_reader& reader,
               case_data& data);

/// Warns of an item with one category and throws input_error for one without any.
/// \param latents  "classes" or "statuses"
void check_item(const data_table& table, const categories& item, const char* latents,
                case_data& data);

/// Throws input_error for a covariate with the name of the intercept and for one that has a single
/// value in some group. \param key  the option that names it
void check_covariate(const data_table& table, const analysis_options& options, const char* key,
                     const covariate& added, const case_data& data);

/// Throws input_error where one of `count` covariates from `first` on follows from those before it
/// in some group: no data could tell their effects apart. \param key  the option that names them
void check_independent(const case_data& data, const analysis_options& options, const char* key,
                       std::size_t first, std::size_t count);

/// "a, b and c"
std::string covariate_names(const case_data& data, std::size_t first, std::size_t count);

/// Fills the counts of cases; throws input_error when they are more than a number can hold.
void count_cases(case_data& data);

/// Missing responses of every column. Calls `unanswered(column, group)` where a whole group gave
/// none.
template <class Unanswered>
void count_missing(case_data& data, Unanswered&& unanswered) {
  for (std::size_t j = 0; j < data.items.size(); ++j) {
    double missing = 0.0;
    std::vector<bool> answered(data.groups(), false);
    for (std::size_t i = 0; i < data.rows; ++i) {
      if (data.items[j].code[i] == 0) missing += data.freq_of(i);
      if (data.items[j].code[i] != 0) answered[data.group_of(i)] = true;
    }
    data.missing.push_back(missing);
    for (std::size_t g = 0; g < answered.size(); ++g)
      if (!answered[g]) unanswered(j, g);
  }
}

/// Throws input_error when there are fewer distinct rows of responses than `asked`. Rows without a
/// response do not count. \param key  the option that asks; \param they  how the message calls them
void check_patterns(const case_data& data, const std::string& source,
                    const analysis_options& options, const char* key, std::size_t asked,
                    const char* they);

}  // namespace tolvenra::cli
