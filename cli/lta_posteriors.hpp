/// \file lta_posteriors.hpp  The statuses of every person.
#pragma once

#include <cstdio>

#include "lta_answer.hpp"

namespace tolvenra::cli {

/// Throws input_error when a column of the data has a name that `write_posteriors` adds.
void check_posterior_names(const data_table& table, const lta_data& data,
                           const lta_options& options);

/// CSV, one line for each person: of wide data all columns, of long data the one that names the
/// person (in the order of their first rows); then for every time `status_K_TIME`, the probability
/// of status K, `modal_TIME`, the most likely status (of equally likely ones the first), and
/// `sequence_TIME`, the status in the most likely sequence of all times.
void write_posteriors(const data_table& table, const lta_data& data, const lta_options& options,
                      const lta_fit& fit, const lta_answer& answer, std::FILE* file);

}  // namespace tolvenra::cli
