/// \file prob_rows.hpp  Probability vectors as rows of a column-major array.
///
/// gamma, rho, delta, tau and big_rho each hold rows that sum to one along one dimension (gamma and
/// delta the first, tau the second, rho and big_rho the third). What is done to a row is one
/// routine over (flat values, row_layout) for all of them, and for their priors and slices. One
/// value per row (effective sample sizes, fixed sums, denominators) is kept in row order, which is
/// the column-major order of the array with the summing dimension left out.
#pragma once

#include <array>
#include <cmath>
#include <span>
#include <vector>

#include "core/types.hpp"

namespace tolvenra {

struct param_type;

/// Sums of probabilities may differ from 1 by this much.
inline constexpr double sum_tolerance = 1e-6;

struct row_layout {            ///< element r of row m is flat[base(m) + r * step]; m, r from 0
  int32 nrows = 0, width = 0;  ///< width = extent of the summing dimension
  int64 step = 1;              ///< product of the extents before it
  std::vector<int32>
      length;  ///< own elements of row m: nc, ns, nrc(j) or nrs(i); the rest is padding
  [[nodiscard]] int64 base(int64 m) const { return m % step + m / step * step * width; }
};

/// Rows along dimension `along` (0-based) of an array of the given extents.
/// \param own  own elements by the array's first index (categories of each item); empty: all
/// \throws std::bad_alloc
row_layout rows_along(std::span<const int32> extents, std::size_t along,
                      std::span<const int32> own = {});

/// Checks cells, then the sum, row by row. Rows without elements and padding are passed over; a
/// value that is not a number fails through the sum.
/// \param say_negative  int32(offset of the cell), reports and returns -1
/// \param say_sum       int32(offset of the row's first cell, sum), reports and returns -1
template <class SayNegative, class SaySum>
int32 check_rows(std::span<const double> values, const row_layout& rows, SayNegative&& say_negative,
                 SaySum&& say_sum) {
  for (int32 m = 0; m < rows.nrows; ++m) {
    const int32 length = rows.length[static_cast<std::size_t>(m)];
    if (length == 0) continue;
    const int64 base = rows.base(m);
    double sum = 0.0;
    for (int32 r = 0; r < length; ++r) {
      const double value = values[static_cast<std::size_t>(base + r * rows.step)];
      if (value < 0.0) return say_negative(base + r * rows.step);
      sum += value;
    }
    if (!(std::abs(sum - 1.0) <= sum_tolerance)) return say_sum(base, sum);
  }
  return 0;
}

/// Sets the cells behind each row's own elements to 0.
void clear_padding(std::span<double> values, const row_layout& rows);

/// Sets the restriction codes of these cells, which mean nothing, to free (1).
void free_padding(std::span<int32> codes, const row_layout& rows);

/// 1-based indices of a flat offset in an array of the given extents.
template <std::size_t R>
std::array<int32, R> indices_at(const std::array<int32, R>& extents, int64 offset) {
  std::array<int32, R> index{};
  for (std::size_t k = 0; k < R; ++k) {
    index[k] = static_cast<int32>(offset % extents[k]) + 1;
    offset /= extents[k];
  }
  return index;
}

namespace param {

/// Rows of the five probability arrays of a set whose dimensions are known. \throws std::bad_alloc
row_layout gamma_rows(const param_type& param);
row_layout rho_rows(const param_type& param);
row_layout delta_rows(const param_type& param);
row_layout tau_rows(const param_type& param);
row_layout big_rho_rows(const param_type& param);

}  // namespace param
}  // namespace tolvenra
