/// \file response_patterns.hpp  The distinct response patterns of a stratum, module `estimation`.
#pragma once

#include <functional>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Levels of the response columns: `nrc` of the class items, then `nrs` of the status items, once
/// per time.
int32 response_levels(const mlworkspace& work, array<int32, 1>& levs, error_type& err);

/// Code of a row in a column, both from 1.
using code_of = std::function<int32(int32 row, int32 column)>;

/// Sorts rows of codes by an integer key, first column fastest, and names the runs of equal keys.
///
/// A key is the sum of code times place value, the place value of a column being the product of the
/// ranges before it. Whenever the next column would carry the keys beyond what a double holds
/// exactly, they are first replaced by their ranks, so that any number of columns is told apart.
/// \param n      rows
/// \param code   codes of at least 0
/// \param range  (columns) number of codes of each column
/// \param[out] y_index  row numbers in ascending order of their keys, equal ones in ascending order
/// \param[out] y_sort   the keys in that order
int32 sort_by_key(int32 n, const code_of& code, const array<int32, 1>& range,
                  array<int32, 1>& y_index, array<double, 1>& y_sort, error_type& err);

/// Distinct patterns with their counts, in ascending order of their keys (missing is 0, the first
/// item fastest). \param y     numbers of the distinct rows whose responses are aggregated \param w
/// their weights \param levs  levels of the response columns \param[out] obspat  for each pattern
/// the first row that shows it \param[out] counts  sum of the weights of its rows
int32 aggregate_items(const distinct_rows& rows, const array<int32, 1>& y,
                      const array<double, 1>& w, const array<int32, 1>& levs,
                      array<int32, 1>& obspat, array<double, 1>& counts, error_type& err);

/// Patterns of one stratum: numbers of distinct rows of the data that show them, and their counts.
struct stratum_patterns {
  array<int32, 1> row;
  array<double, 1> count;
};

/// Aggregates the responses of one stratum, 1-based.
int32 aggregate_stratum(const mlworkspace& work, int32 stratum, stratum_patterns& patterns,
                        error_type& err);

}  // namespace tolvenra::estimation
