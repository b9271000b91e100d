/// \file lower_triangular.hpp  Kernels on lower triangular factors, shared by the matrix methods,
/// the variates and the regression.
///
/// All work on column-major storage of order n with leading dimension n; element (i, j) is
/// a[i + j * n], 0-based. The inner loops run down columns, so that they vectorise. Entries above
/// the diagonal are neither read nor written unless told.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "numerics/dot_products.hpp"

namespace tolvenra::lower_triangular {

/// y(first..n) -= f * x(first..n)
inline void subtract_multiple(double* y, const double* x, double f, std::size_t first,
                              std::size_t n) {
  for (std::size_t i = first; i < n; ++i) y[i] -= f * x[i];
}

/// y(first..n) -= sum over four columns of f_k * x_k(first..n): one pass over y for four updates.
inline void subtract_four(double* y, const double* x, std::size_t ld, const double (&f)[4],
                          std::size_t first, std::size_t n) {
  const double *x0 = x, *x1 = x + ld, *x2 = x + 2 * ld, *x3 = x + 3 * ld;
  for (std::size_t i = first; i < n; ++i)
    y[i] -= (f[0] * x0[i] + f[1] * x1[i]) + (f[2] * x2[i] + f[3] * x3[i]);
}

/// Overwrites the lower triangle by the factor L with A = L L'. Left-looking by columns.
/// \return false at the first pivot that is not positive (a zero pivot and NaN included)
[[nodiscard]] inline bool factor(double* a, std::size_t n) {
  for (std::size_t j = 0; j < n; ++j) {
    double* const col = a + j * n;
    std::size_t k = 0;
    for (; k + 4 <= j; k += 4) {
      const double* const x = a + k * n;
      subtract_four(col, x, n, {x[j], x[j + n], x[j + 2 * n], x[j + 3 * n]}, j, n);
    }
    for (; k < j; ++k) subtract_multiple(col, a + k * n, a[j + k * n], j, n);
    if (!(col[j] > 0.0) || !std::isfinite(col[j])) return false;
    const double pivot = std::sqrt(col[j]);
    col[j] = pivot;
    for (std::size_t i = j + 1; i < n; ++i) col[i] /= pivot;
  }
  return true;
}

/// Clears the entries above the diagonal.
inline void clear_upper(double* a, std::size_t n) {
  for (std::size_t j = 1; j < n; ++j) std::fill_n(a + j * n, j, 0.0);
}

/// Largest squared pivot, as a share of its row's squared length, that counts as zero.
inline constexpr double singular_share = 1e-13;

/// True when no row of L is all but a combination of the earlier ones: the share of row j's squared
/// length that its pivot keeps is 1 - R^2 of variable j given the earlier ones, free of scale.
[[nodiscard]] inline bool is_regular(const double* l, std::size_t n) {
  for (std::size_t j = 0; j < n; ++j) {
    double length = 0.0;
    for (std::size_t k = 0; k <= j; ++k) length += l[j + k * n] * l[j + k * n];
    const double pivot = l[j + j * n];
    if (!(pivot * pivot > singular_share * length) || !std::isfinite(length)) return false;
  }
  return true;
}

/// x(first..n) = M x(first..n) in place, M lower: from the last column to the first, so that every
/// element is read before it changes; four columns share a pass.
inline void multiply_in_place(const double* m, double* x, std::size_t first, std::size_t n) {
  std::size_t k = n;
  for (; k >= first + 4; k -= 4) {
    const double* const c = m + (k - 4) * n;
    const double f[4] = {-x[k - 4], -x[k - 3], -x[k - 2], -x[k - 1]};
    subtract_four(x, c, n, f, k, n);
    for (std::size_t i = k; i-- > k - 4;) {
      double sum = 0.0;
      for (std::size_t q = k - 4; q <= i; ++q) sum += m[i + q * n] * x[q];
      x[i] = sum;
    }
  }
  for (; k-- > first;) {
    subtract_multiple(x, m + k * n, -x[k], k + 1, n);
    x[k] *= m[k + k * n];
  }
}

/// Overwrites L by its inverse, from the last column to the first: column j below the diagonal is
/// minus the trailing inverse times column j of L, over the pivot.
inline void invert(double* l, std::size_t n) {
  for (std::size_t j = n; j-- > 0;) {
    double* const col = l + j * n;
    multiply_in_place(l, col, j + 1, n);
    col[j] = 1.0 / col[j];
    for (std::size_t i = j + 1; i < n; ++i) col[i] *= -col[j];
  }
}

/// out = M' M for lower M, both triangles written; `out` is apart from `m`.
inline void transpose_product(const double* m, double* out, std::size_t n) {
  std::fill_n(out, n * n, 0.0);
  // Element (i, j), i >= j, sums over rows i..n.
  for (std::size_t i = 0; i < n; ++i)
    dot_products::add_all(m + i + i * n, m + i, n, n - i, i + 1, out + i, n);
  for (std::size_t j = 1; j < n; ++j)
    for (std::size_t i = 0; i < j; ++i) out[i + j * n] = out[j + i * n];
}

/// x = L^-1 b in place.
inline void solve(const double* l, double* x, std::size_t n) {
  for (std::size_t j = 0; j < n; ++j) {
    x[j] /= l[j + j * n];
    subtract_multiple(x, l + j * n, x[j], j + 1, n);
  }
}

}  // namespace tolvenra::lower_triangular
