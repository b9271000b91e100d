/// \file matrix_fixture.hpp  Matrices and naive products for the tests of the matrix methods.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "numerics/matrix_methods.hpp"

namespace tolvenra::matrix_methods::tests {

using strings = std::vector<std::string>;
using matrix = array<double, 2>;
using column = array<double, 1>;
inline constexpr double nan = std::numeric_limits<double>::quiet_NaN();
inline constexpr double inf = std::numeric_limits<double>::infinity();
inline constexpr double eps = std::numeric_limits<double>::epsilon();

inline matrix zeros(int32 m, int32 n) {
  matrix a;
  a.allocate({m, n});
  return a;
}

inline matrix identity(int32 n) {
  matrix a = zeros(n, n);
  for (int32 i = 1; i <= n; ++i) a(i, i) = 1.0;
  return a;
}

inline column zeros(int32 n) {
  column a;
  a.allocate({n});
  return a;
}

inline matrix random_matrix(int32 m, int32 n, unsigned seed) {
  std::mt19937_64 draw(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  matrix a = zeros(m, n);
  for (double& v : a.flat) v = u(draw);
  return a;
}

inline matrix transpose(const matrix& a) {
  matrix t = zeros(a.n[1], a.n[0]);
  for (int32 i = 1; i <= a.n[0]; ++i)
    for (int32 j = 1; j <= a.n[1]; ++j) t(j, i) = a(i, j);
  return t;
}

/// By the definition, in extended precision.
inline matrix product(const matrix& a, const matrix& b) {
  const auto m = static_cast<std::size_t>(a.n[0]);
  matrix c = zeros(a.n[0], b.n[1]);
  std::vector<long double> sums(m);
  for (int32 j = 1; j <= b.n[1]; ++j) {
    std::fill(sums.begin(), sums.end(), 0.0L);
    for (int32 k = 1; k <= a.n[1]; ++k) {
      const double* const from = a.column(k);
      const long double factor = b(k, j);
      for (std::size_t i = 0; i < m; ++i) sums[i] += factor * from[i];
    }
    std::copy(sums.begin(), sums.end(), c.column(j));
  }
  return c;
}

inline double largest(const matrix& a) {
  double most = 0.0;
  for (const double v : a.flat) most = std::max(most, std::abs(v));
  return most;
}

inline double difference(const matrix& a, const matrix& b) {
  EXPECT_EQ(a.n, b.n);
  double most = 0.0;
  for (std::size_t q = 0; q < a.size(); ++q) {
    const double d = std::abs(a.flat[q] - b.flat[q]);
    most = d <= most ? most : d;  // NaN stays
  }
  return most;
}

}  // namespace tolvenra::matrix_methods::tests
