/// \file lta_waves.hpp  Wide and long data brought to one form.
///
/// Wide data have a row for every person and a column for every item at every time. Long data have
/// a row for every person and time; people may miss times, and rows come in any order.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "data_reader.hpp"
#include "lta_options.hpp"

namespace tolvenra::cli {

/// Where a person has no row.
inline constexpr auto no_row = static_cast<std::size_t>(-1);

struct wave_data {
  std::vector<std::string> times;  ///< labels, in order
  data_table waves;                ///< a row for every person and time that the data have
  data_table cases;                ///< a row for every person: what does not change with time
  std::vector<std::vector<std::size_t>> row;       ///< [person][time], into waves
  std::vector<std::string> person;                 ///< how messages call a person
  std::vector<std::size_t> items;                  ///< columns of waves
  std::vector<std::size_t> moving;                 ///< columns of waves: covariates of transitions
  std::vector<std::size_t> starting;               ///< columns of cases: covariates of the start
  std::optional<std::size_t> freq, weight, group;  ///< columns of cases
};

/// Throws input_error for columns that are not there, for people with two rows at one time or
/// without a name or time, and for what changes with time but should not.
wave_data arrange_waves(const data_table& table, const lta_options& options);

}  // namespace tolvenra::cli
