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
[[nodiscard]] inline bool is_regular(const double* l, double* row_length, std::size_t n) {
  std::fill_n(row_length, n, 0.0);
  for (std::size_t k = 0; k < n; ++k)
    for (std::size_t i = k; i < n; ++i) row_length[i] += l[i + k * n] * l[i + k * n];
  for (std::size_t j = 0; j < n; ++j) {
    const double pivot = l[j + j * n];
    if (!(pivot * pivot > singular_share * row_length[j]) || !std::isfinite(row_length[j]))
      return false;
  }
  return true;
}

/// Overwrites L by its inverse, from the last column to the first: column j below the diagonal is
/// minus the trailing inverse times column j of L, over the pivot. \param work  n values
inline void invert(double* l, double* work, std::size_t n) {
  for (std::size_t j = n; j-- > 0;) {
    double* const col = l + j * n;
    const double inverse_pivot = 1.0 / col[j];
    for (std::size_t i = j + 1; i < n; ++i) {
      work[i] = col[i] * inverse_pivot;
      col[i] = 0.0;
    }
    col[j] = inverse_pivot;
    std::size_t k = j + 1;
    // Columns k..k+3 of the trailing inverse reach upwards to their diagonals only.
    for (; k + 4 <= n; k += 4) {
      const double* const x = l + k * n;
      for (std::size_t c = 0; c < 3; ++c)
        subtract_multiple(col, x + c * n, work[k + c], k + c, k + 3);
      subtract_four(col, x, n, {work[k], work[k + 1], work[k + 2], work[k + 3]}, k + 3, n);
    }
    for (; k < n; ++k) subtract_multiple(col, l + k * n, work[k], k, n);
  }
}

/// out = M' M for lower M, both triangles written; `out` is apart from `m`.
inline void transpose_product(const double* m, double* out, std::size_t n) {
  // Element (i, j), i >= j, sums over rows i..n; four columns j share the pass over column i.
  const auto dot_four = [&](std::size_t i, std::size_t j) {
    const double* const x = m + i * n;
    double s[4][2] = {};
    std::size_t r = i;
    for (; r + 2 <= n; r += 2)
      for (std::size_t c = 0; c < 4; ++c) {
        s[c][0] += x[r] * m[r + (j + c) * n];
        s[c][1] += x[r + 1] * m[r + 1 + (j + c) * n];
      }
    for (std::size_t c = 0; c < 4; ++c) {
      if (r < n) s[c][0] += x[r] * m[r + (j + c) * n];
      out[i + (j + c) * n] = out[j + c + i * n] = s[c][0] + s[c][1];
    }
  };
  const auto dot_one = [&](std::size_t i, std::size_t j) {
    double s = 0.0;
    for (std::size_t r = i; r < n; ++r) s += m[r + i * n] * m[r + j * n];
    out[i + j * n] = out[j + i * n] = s;
  };
  for (std::size_t i = 0; i < n; ++i) {
    std::size_t j = 0;
    for (; j + 4 <= i + 1; j += 4) dot_four(i, j);
    for (; j <= i; ++j) dot_one(i, j);
  }
}

/// x = L^-1 b in place.
inline void solve(const double* l, double* x, std::size_t n) {
  for (std::size_t j = 0; j < n; ++j) {
    x[j] /= l[j + j * n];
    subtract_multiple(x, l + j * n, x[j], j + 1, n);
  }
}

}  // namespace tolvenra::lower_triangular
