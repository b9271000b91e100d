/// \file posteriors.hpp  The data with the class probabilities of every row.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "lca_answer.hpp"

namespace tolvenra::cli {

/// A field as it stands in a CSV file: in quotes where a reader would else take it for something
/// else.
std::string csv_field(std::string_view text);

/// Throws input_error when a column of the data has a name that `write_posteriors` adds.
void check_posterior_names(const data_table& table, std::int32_t classes);

/// CSV: the columns of the data, then class_1, ... and modal_class; one line per row, in their
/// order. Classes are numbered as printed; of equally probable classes the first is the modal one.
void write_posteriors(const data_table& table, const lca_fit& fit, const lca_answer& answer,
                      std::FILE* file);

}  // namespace tolvenra::cli
