/// \file response_patterns.hpp  The distinct response patterns of a stratum, module `estimation`.
#pragma once

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Levels of the response columns: `nrc` of the class items, then `nrs` of the status items, once
/// per time.
int32 response_levels(const mlworkspace& work, array<int32, 1>& levs, error_type& err);

/// Sorts rows of codes by an integer key, first column fastest, and names the runs of equal keys.
///
/// A key is the sum of code times place value, the place value of a column being the product of the
/// ranges before it. Whenever the next column would carry the keys beyond what a double holds
/// exactly, they are first replaced by their ranks, so that any number of columns is told apart.
/// \param y      (rows, columns) codes of at least 0
/// \param range  (columns) number of codes of each column
/// \param[out] y_index  row numbers in ascending order of their keys, equal ones in ascending order
/// \param[out] y_sort   the keys in that order
int32 sort_by_key(const array<int32, 2>& y, const array<int32, 1>& range, array<int32, 1>& y_index,
                  array<double, 1>& y_sort, error_type& err);

/// Distinct patterns with their counts, in ascending order of their keys (missing is 0, the first
/// item fastest). \param y     (rows, columns) responses, 0 missing \param w     (rows) weights
/// \param levs  (columns) levels
/// \param[out] obspat  first row of `y` that shows each pattern
/// \param[out] counts  sum of the weights of its rows
int32 aggregate_items(const array<int32, 2>& y, const array<double, 1>& w,
                      const array<int32, 1>& levs, array<int32, 1>& obspat,
                      array<double, 1>& counts, error_type& err);

/// Patterns of one stratum: numbers of distinct rows of the data that show them, and their counts.
struct stratum_patterns {
  array<int32, 1> row;
  array<double, 1> count;
};

/// Aggregates the responses of one stratum, 1-based.
int32 aggregate_stratum(const mlworkspace& work, int32 stratum, stratum_patterns& patterns,
                        error_type& err);

}  // namespace tolvenra::estimation
