/// \file fixed_values.hpp  Restricted rows: starting values, and what their counts must tell.
#pragma once

#include <algorithm>
#include <span>

#include "core/types.hpp"
#include "model/prob_rows.hpp"

namespace tolvenra::api {

/// Puts the host's values into the fixed cells (code 0) of probability rows and scales the other
/// cells of such rows to what these leave; rows without fixed cells stay as they are.
inline void keep_fixed_values(std::span<const double> given, std::span<const int32> codes,
                              const row_layout& rows, std::span<double> values) {
  for (int32 m = 0; m < rows.nrows; ++m) {
    const int32 length = rows.length[static_cast<std::size_t>(m)];
    const auto at = [&](int32 r) { return static_cast<std::size_t>(rows.base(m) + r * rows.step); };
    double fixed = 0.0;
    double open = 0.0;
    bool any_fixed = false;
    for (int32 r = 0; r < length; ++r) {
      if (codes[at(r)] == 0) {
        any_fixed = true;
        fixed += given[at(r)];
      } else {
        open += values[at(r)];
      }
    }
    if (!any_fixed) continue;
    const double scale = open > 0.0 ? std::max(0.0, 1.0 - fixed) / open : 0.0;
    for (int32 r = 0; r < length; ++r)
      values[at(r)] = codes[at(r)] == 0 ? given[at(r)] : values[at(r)] * scale;
  }
}

/// Whether the counts of row m must tell its elements apart: two or more are free.
inline bool needs_counts(std::span<const int32> codes, const row_layout& rows, int32 m) {
  int32 free = 0;
  for (int32 r = 0; r < rows.length[static_cast<std::size_t>(m)]; ++r)
    free += codes[static_cast<std::size_t>(rows.base(m) + r * rows.step)] == 1 ? 1 : 0;
  return free >= 2;
}

}  // namespace tolvenra::api
