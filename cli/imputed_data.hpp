/// \file imputed_data.hpp  The imputed data sets as one CSV file.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "data_reader.hpp"
#include "imputation.hpp"
#include "lca_answer.hpp"
#include "lta_answer.hpp"

namespace tolvenra::cli {

/// How the rows of a data file hold the cases of an analysis.
struct imputed_layout {
  static constexpr auto none = static_cast<std::size_t>(-1);

  std::vector<std::string> added;     ///< names of the columns for the class, or the statuses
  std::vector<std::string> labels;    ///< of classes or statuses, by the engine's number
  std::vector<std::size_t> case_of;   ///< [row]
  std::vector<std::size_t> time_of;   ///< [row] of long data; empty when a row is a whole case
  std::vector<std::size_t> response;  ///< [column] column of responses that it holds, at the first
                                      ///< time in long data; none for others
  std::size_t items = 0;              ///< columns of responses at each time
  std::optional<std::size_t> freq;    ///< column of frequencies
};

/// Throw input_error when a column of the data has a name that is added, and for long data with
/// frequencies.
imputed_layout layout_of(const data_table& table, const lca_data& data, const lca_options& options);
imputed_layout layout_of(const data_table& table, const lta_data& data, const lta_options& options);

/// CSV: the number of the imputation, the columns of the data with missing responses filled in,
/// then class or statuses. The data sets follow one another, each with the rows of the data in
/// their order. A row of frequency f is written once for every set of draws of its subjects, with
/// the number of these subjects as frequency.
void write_imputed(const data_table& table, const imputed_layout& layout, const case_data& data,
                   const imputation& result, std::FILE* file);

}  // namespace tolvenra::cli
