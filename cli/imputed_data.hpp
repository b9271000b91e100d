/// \file imputed_data.hpp  The imputed data sets as one CSV file.
#pragma once

#include <cstdio>

#include "data_reader.hpp"
#include "imputation.hpp"
#include "lca_answer.hpp"

namespace tolvenra::cli {

/// Throws input_error when a column of the data has a name that `write_imputed` adds.
void check_imputed_names(const data_table& table);

/// CSV: the number of the imputation, the columns of the data with missing responses filled in,
/// then the class. The data sets follow one another, each with the rows of the data in their order.
/// A row of frequency f is written once for every class and set of responses that its subjects
/// drew, with the number of these subjects as frequency.
void write_imputed(const data_table& table, const lca_data& data, const lca_options& options,
                   const lca_answer& answer, const imputation& result, std::FILE* file);

}  // namespace tolvenra::cli
