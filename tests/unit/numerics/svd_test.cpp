#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "matrix_fixture.hpp"

namespace tolvenra::matrix_methods {
namespace {

using namespace tests;

matrix hilbert(int32 m, int32 n) {
  matrix a = zeros(m, n);
  for (int32 i = 1; i <= m; ++i)
    for (int32 j = 1; j <= n; ++j) a(i, j) = 1.0 / (i + j - 1);
  return a;
}

void expect_decomposition(const matrix& a) {
  const int32 m = a.n[0], n = a.n[1];
  matrix u = random_matrix(m, n, 1), v = random_matrix(n, n, 2);
  column w = zeros(n);
  error_type err;
  ASSERT_EQ(sv_decomp(a, u, w, v, err), 0);
  matrix scaled = u;
  for (int32 j = 1; j <= n; ++j) {
    EXPECT_GE(w(j), 0.0);
    EXPECT_LE(w(j), w(std::max(j - 1, 1)));
    for (int32 i = 1; i <= m; ++i) scaled(i, j) *= w(j);
  }
  EXPECT_LE(difference(product(scaled, transpose(v)), a), 1e-12 * w(1));
  EXPECT_LE(difference(product(transpose(u), u), identity(n)), 1e-12);
  EXPECT_LE(difference(product(transpose(v), v), identity(n)), 1e-12);
}

TEST(SingularValues, DecomposeOrdinaryAndAwkwardMatrices) {
  std::vector<std::pair<std::string, matrix>> cases{
      {"one", random_matrix(1, 1, 1)},
      {"column", random_matrix(7, 1, 2)},
      {"square", random_matrix(40, 40, 3)},
      {"tall", random_matrix(150, 37, 4)},
      {"zero", zeros(5, 3)},
      {"identity", identity(6)},
      {"Hilbert 12", hilbert(12, 12)},
      {"Hilbert 60 x 30", hilbert(60, 30)},
      {"huge", random_matrix(8, 4, 5)},
      {"tiny", random_matrix(8, 4, 6)},
      {"rank 3 of 20", product(random_matrix(30, 3, 7), random_matrix(3, 20, 8))},
      {"equal columns", zeros(9, 4)},
      {"graded", random_matrix(20, 10, 9)},
      {"a column of zeros", random_matrix(9, 4, 10)}};
  for (double& x : cases[8].second.flat) x *= 1e300;
  for (double& x : cases[9].second.flat) x *= 1e-290;
  for (double& x : cases[11].second.flat) x = 0.3;
  for (int32 j = 1; j <= 10; ++j)
    for (int32 i = 1; i <= 20; ++i) cases[12].second(i, j) *= std::pow(10.0, -3 * j);
  for (int32 i = 1; i <= 9; ++i) cases[13].second(i, 2) = 0.0;
  for (const auto& [name, a] : cases) {
    SCOPED_TRACE(name);
    expect_decomposition(a);
  }
}

TEST(SingularValues, MatchKnownValues) {
  error_type err;
  matrix a = zeros(4, 2), u = zeros(4, 2), v = zeros(2, 2);
  column w = zeros(2);
  a(1, 1) = a(2, 2) = 3.0;
  a(1, 2) = a(2, 1) = 2.0;  // a' a has the eigenvalues 25 and 1
  ASSERT_EQ(sv_decomp(a, u, w, v, err), 0);
  EXPECT_NEAR(w(1), 5.0, 1e-14);
  EXPECT_NEAR(w(2), 1.0, 1e-14);
  // The 2-norm condition number of the Hilbert matrix of order 5.
  matrix h = hilbert(5, 5), hu = h, hv = h;
  column hw = zeros(5);
  ASSERT_EQ(sv_decomp(h, hu, hw, hv, err), 0);
  EXPECT_NEAR(hw(1) / hw(5), 476607.25024172, 1e-3);
}

TEST(SingularValues, PseudoInverseMeetsThePenroseConditions) {
  for (const auto& [name, a] :
       {std::pair{"full rank", random_matrix(12, 5, 1)},
        {"rank 2", product(random_matrix(12, 2, 2), random_matrix(2, 5, 3))},
        {"zero", zeros(4, 3)},
        {"square", random_matrix(6, 6, 4)}}) {
    SCOPED_TRACE(name);
    matrix x = random_matrix(a.n[1], a.n[0], 5);
    error_type err;
    ASSERT_EQ(pseudo_inv(a, x, err), 0);
    const matrix ax = product(a, x), xa = product(x, a);
    EXPECT_LE(difference(product(ax, a), a), 1e-12);
    EXPECT_LE(difference(product(xa, x), x), 1e-12 * (1.0 + largest(x)));
    EXPECT_LE(difference(ax, transpose(ax)), 1e-12);
    EXPECT_LE(difference(xa, transpose(xa)), 1e-12);
  }
}

}  // namespace
}  // namespace tolvenra::matrix_methods
