/// \file report_parts.hpp  The sections of a report that every analysis has.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fit_answer.hpp"

namespace tolvenra::cli {

using table_rows = std::vector<std::vector<std::string>>;

/// As many classes as fit side by side on a line of 100 characters with room for labels.
inline constexpr std::size_t classes_side_by_side = 8;

/// Rows of cells in aligned columns: the first `left` columns flush left, the others flush right,
/// two blanks between them. Widths count characters, not bytes.
std::string aligned(const table_rows& rows, std::size_t left, std::string_view indent = "  ");

/// Lines of at most 92 characters, two blanks before each, words kept whole.
std::string paragraph(std::string_view text);

/// Four decimals, never "-0.0000".
std::string fixed(double value);

/// "p < 0.0001" or "p = 0.0123".
std::string p_text(double p);

/// The odds ratio of a coefficient; large and small ones need more than four decimals.
std::string odds_text(double coefficient);

/// "1 class", "2 classes".
std::string counted(std::size_t n, std::string_view one, std::string_view several);

/// Rows of the section on the sample: the file, cases, groups. \param rows_are  what a row of the
/// file stands for, and how many there are
table_rows sample_rows(const case_data& data, const analysis_options& options,
                       std::pair<std::string, std::size_t> rows_are);

/// Items with counts and the labels of their categories. \param headings  of the counts
std::string item_table(const std::vector<std::string>& headings,
                       const std::vector<std::vector<std::string>>& counts,
                       const std::vector<const categories*>& items);

/// The statistics with what is said of their p-values beside the column of figures.
std::string fit_section(const fit_answer& answer, bool covariates);

/// Did it converge, how many starts reached the best, and what is to be warned of?
std::string search_section(const analysis_options& options, bool start_given,
                           const fit_answer& answer);

/// Likelihood-ratio tests of covariates. \param correction  what the heading says of the statistics
std::string test_table(const std::vector<covariate_test>& tests, std::string_view correction = "");

/// Names of the columns of latent classes: the user's, else "Class 1", "Class 2", ...
std::vector<std::string> with_latent_names(std::vector<std::string> heading,
                                           const std::vector<std::string>& names,
                                           std::string_view word, std::size_t first,
                                           std::size_t end);

/// Calls `table(first, end)` for blocks of classes that fit side by side.
template <class Table>
std::string in_blocks(std::size_t classes, Table&& table,
                      std::size_t at_once = classes_side_by_side) {
  std::string text;
  for (std::size_t first = 0; first < classes; first += at_once) {
    if (first > 0) text += '\n';
    text += table(first, std::min(first + at_once, classes));
  }
  return text;
}

/// A table with one row for each item and category. \param cell  text for (item, category, class)
template <class Cell>
std::string response_cells(const std::vector<const categories*>& items,
                           const std::vector<std::string>& names, std::string_view word,
                           std::size_t first, std::size_t end, Cell&& cell) {
  table_rows rows{with_latent_names({"Item", "Category"}, names, word, first, end)};
  for (std::size_t j = 0; j < items.size(); ++j)
    for (std::size_t k = 0; k < items[j]->labels.size(); ++k) {
      rows.push_back({k == 0 ? items[j]->name : "", items[j]->labels[k]});
      for (std::size_t c = first; c < end; ++c) rows.back().push_back(cell(j, k, c));
    }
  return aligned(rows, 2);
}

/// Response probabilities. \param probability  of (item, category, class)
template <class Probability>
std::string response_table(const std::vector<const categories*>& items,
                           const std::vector<std::string>& names, std::string_view word,
                           std::size_t first, std::size_t end, Probability&& probability) {
  return response_cells(items, names, word, first, end,
                        [&](auto j, auto k, auto c) { return fixed(probability(j, k, c)); });
}

/// What stands in the place of a coefficient that has none.
inline constexpr const char* no_finite_estimate = "no finite estimate";

/// Why that is, and what helps. \param what  the data do, "a class is empty" \param prior_option
/// empty where a prior was given
std::string runaway_paragraph(const std::string& what, const std::string& prior_option);

}  // namespace tolvenra::cli
