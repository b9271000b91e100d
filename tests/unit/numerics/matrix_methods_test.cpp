#include "numerics/matrix_methods.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "matrix_fixture.hpp"

namespace tolvenra::matrix_methods {
namespace {

using namespace tests;

matrix lower_of(matrix a) {
  for (int32 i = 1; i <= a.n[0]; ++i)
    for (int32 j = i + 1; j <= a.n[1]; ++j) a(i, j) = 0.0;
  return a;
}

/// Symmetric positive definite with condition number about `condition`.
matrix definite_matrix(int32 n, double condition, unsigned seed) {
  matrix x = random_matrix(2 * n, n, seed);
  for (int32 j = 1; j <= n; ++j)
    for (int32 i = 1; i <= 2 * n; ++i)
      x(i, j) *= std::pow(condition, -0.5 * (j - 1) / std::max(n - 1, 1));
  return product(transpose(x), x);
}

TEST(MatrixProducts, FollowTheirDefinitions) {
  error_type err;
  for (const auto& [m, k, n] :
       {std::tuple{1, 1, 1}, {3, 4, 2}, {5, 7, 9}, {33, 18, 41}, {2, 0, 3}}) {
    SCOPED_TRACE(testing::Message() << m << " x " << k << " x " << n);
    const matrix a = random_matrix(m, k, 1), b = random_matrix(k, n, 2), d = random_matrix(k, k, 3);
    matrix c = random_matrix(m, n, 4), s = random_matrix(m, m, 5), g = random_matrix(k, k, 6);
    const double bound = 4.0 * eps * (k + m);
    EXPECT_EQ(mat_mult(a, b, c, err), 0);
    EXPECT_LE(difference(c, product(a, b)), bound);
    EXPECT_EQ(mat_mult_pre_and_post(a, d, s, err), 0);
    EXPECT_LE(difference(s, product(product(a, d), transpose(a))), bound * (k + 1));
    EXPECT_EQ(premult_by_transpose(a, g, err), 0);
    EXPECT_LE(difference(g, product(transpose(a), a)), bound);
    EXPECT_EQ(postmult_by_transpose(a, s, err), 0);
    EXPECT_LE(difference(s, product(a, transpose(a))), bound);

    // What stands above a lower factor's diagonal must not matter.
    EXPECT_EQ(mult_tri_by_its_transpose(d, g, err), 0);
    EXPECT_LE(difference(g, product(lower_of(d), transpose(lower_of(d)))), bound);
    EXPECT_EQ(premult_lower_by_transpose(d, g, err), 0);
    EXPECT_LE(difference(g, product(transpose(lower_of(d)), lower_of(d))), bound);
    matrix in_place = d;
    EXPECT_EQ(premult_lower_by_transpose(in_place, err), 0);
    EXPECT_LE(difference(in_place, g), bound);

    column v = zeros(k), out = zeros(m);
    for (int32 i = 1; i <= k; ++i) v(i) = d(i, 1);
    EXPECT_EQ(mat_mult(a, v, out, err), 0);
    EXPECT_EQ(outer_product_of_vector(v, g, err), 0);
    for (int32 i = 1; i <= k; ++i)
      for (int32 j = 1; j <= k; ++j) EXPECT_EQ(g(i, j), v(i) * v(j));
    for (int32 i = 1; i <= m; ++i) {
      double sum = 0.0;
      for (int32 j = 1; j <= k; ++j) sum += a(i, j) * v(j);
      EXPECT_NEAR(out(i), sum, bound);
    }
  }
  EXPECT_TRUE(lines_of(err).empty());
}

TEST(MatrixProducts, SmallUtilitiesFollowTheirDefinitions) {
  error_type err;
  column w = zeros(3), d = zeros(3);
  ASSERT_EQ(real_cross_product(vector_of({1.0, 2.0, 3.0}), vector_of({-2.0, 0.5, 4.0}), w, err), 0);
  EXPECT_EQ(w, vector_of({6.5, -10.0, 4.5}));
  matrix a = random_matrix(3, 3, 9);
  const matrix b = random_matrix(3, 3, 10), before = a;
  double trace = 0.0;
  ASSERT_EQ(quadratic_form_trace_real_matrix(a, b, trace, err), 0);
  const matrix ab = product(a, b);
  EXPECT_NEAR(trace, ab(1, 1) + ab(2, 2) + ab(3, 3), 1e-15);
  ASSERT_EQ(take_trace_real(a, trace, err), 0);
  EXPECT_EQ(trace, a(1, 1) + a(2, 2) + a(3, 3));
  ASSERT_EQ(add_a_ridge_to(a, 0.5, err), 0);
  const column added = vector_of({1.0, 2.0, -3.0});
  ASSERT_EQ(add_a_diag_matrix_to(a, added, err), 0);
  ASSERT_EQ(take_diag_real(a, d, err), 0);
  for (int32 i = 1; i <= 3; ++i) EXPECT_EQ(d(i), before(i, i) + 0.5 + added(i));
  EXPECT_EQ(a(1, 2), before(1, 2));
}

TEST(MatrixFactors, CholeskyAndItsInverseHaveSmallBackwardErrors) {
  error_type err;
  for (const int32 n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 30, 121, 500}) {
    for (const double condition : {1.0, 1e8}) {
      if (n == 500 && condition > 1.0) continue;
      SCOPED_TRACE(testing::Message() << n << ", condition " << condition);
      const matrix a = definite_matrix(n, condition, static_cast<unsigned>(n));
      matrix l = random_matrix(n, n, 3), in_place = a;
      ASSERT_EQ(cholesky(a, l, err), 0);
      EXPECT_EQ(difference(l, lower_of(l)), 0.0);
      EXPECT_LE(difference(product(l, transpose(l)), a), 4.0 * n * eps * largest(a));
      ASSERT_EQ(cholesky_lower(in_place, err), 0);
      EXPECT_EQ(in_place.flat, l.flat);

      ASSERT_EQ(invert_lower(in_place, err), 0);
      const double growth = largest(in_place) * largest(l);
      EXPECT_LE(difference(product(in_place, l), identity(n)), 8.0 * n * eps * growth);

      column b = zeros(n), x = zeros(n);
      for (int32 i = 1; i <= n; ++i) b(i) = std::sin(i);
      ASSERT_EQ(backsolve(l, b, x, err), 0);
      for (int32 i = 1; i <= n; ++i) {
        double sum = 0.0, size = 0.0;
        for (int32 j = 1; j <= i; ++j) {
          sum += l(i, j) * x(j);
          size += std::abs(l(i, j) * x(j));
        }
        ASSERT_NEAR(sum, b(i), 4.0 * n * eps * (size + std::abs(b(i))));
      }
    }
  }
}

TEST(MatrixFactors, SymmetricInverseIsAnInverse) {
  error_type err;
  for (const int32 n : {2, 3, 8, 50, 200}) {
    SCOPED_TRACE(n);
    const matrix y = definite_matrix(n, 1e4, static_cast<unsigned>(n) + 7);
    matrix inverse = random_matrix(n, n, 1);
    ASSERT_EQ(symmetric_real_inverse(y, inverse, err), 0);
    EXPECT_LE(difference(product(inverse, y), identity(n)),
              16.0 * n * eps * largest(y) * largest(inverse));
    EXPECT_EQ(inverse.flat, transpose(inverse).flat);
  }
  matrix one = zeros(1, 1), out = zeros(1, 1);
  one(1, 1) = 4.0;
  ASSERT_EQ(symmetric_real_inverse(one, out, err), 0);
  EXPECT_EQ(out(1, 1), 1.0 / (4.0 + 1e-15));
  ASSERT_EQ(symmetric_real_inverse(one, out, err, nullptr, 1.0), 0);
  EXPECT_EQ(out(1, 1), 0.2);
  one(1, 1) = -2.0;
  ASSERT_EQ(symmetric_real_inverse(one, out, err), 0);
  EXPECT_NEAR(out(1, 1), -0.5, 1e-15);
  matrix unit = zeros(4, 4);
  ASSERT_EQ(symmetric_real_inverse(identity(4), unit, err), 0);
  EXPECT_LE(difference(unit, identity(4)), 2e-15);
}

TEST(MatrixFactors, MaskedRowsBecomeZero) {
  error_type err;
  const matrix y = definite_matrix(6, 10.0, 2);
  array<logical, 1> mask;
  mask.allocate({6}, logical::yes);
  mask(2) = mask(5) = logical::no;
  matrix spoilt = y, inverse = random_matrix(6, 6, 1), part = zeros(4, 4),
         part_inverse = zeros(4, 4);
  for (int32 i = 1; i <= 6; ++i) spoilt(i, 2) = spoilt(2, i) = nan;
  const std::vector<int32> kept{1, 3, 4, 6};
  const auto kept_at = [&](int32 i) { return kept[static_cast<std::size_t>(i - 1)]; };
  for (int32 i = 1; i <= 4; ++i)
    for (int32 j = 1; j <= 4; ++j) part(i, j) = y(kept_at(i), kept_at(j));
  ASSERT_EQ(symmetric_real_inverse(spoilt, inverse, err, &mask), 0);
  ASSERT_EQ(symmetric_real_inverse(part, part_inverse, err), 0);
  matrix expected = zeros(6, 6);
  for (int32 i = 1; i <= 4; ++i)
    for (int32 j = 1; j <= 4; ++j) expected(kept_at(i), kept_at(j)) = part_inverse(i, j);
  EXPECT_EQ(inverse.flat, expected.flat);

  mask.allocate({6}, logical::no);
  ASSERT_EQ(symmetric_real_inverse(spoilt, inverse, err, &mask), 0);
  EXPECT_EQ(largest(inverse), 0.0);
}

TEST(MatrixFactors, SingularityDoesNotDependOnScale) {
  for (const double scale : {1e-12, 1.0, 1e12}) {
    for (const bool singular : {false, true}) {
      SCOPED_TRACE(testing::Message() << scale << (singular ? ", singular" : ", regular"));
      matrix x = random_matrix(40, 5, 8);
      for (int32 i = 1; i <= 40; ++i) {
        if (singular) x(i, 4) = x(i, 1) - 2.0 * x(i, 3);
        x(i, 2) *= 1e-6;  // columns of unlike scale are no reason to refuse
        for (int32 j = 1; j <= 5; ++j) x(i, j) *= scale;
      }
      error_type err;
      matrix inverse = zeros(5, 5);
      EXPECT_EQ(symmetric_real_inverse(product(transpose(x), x), inverse, err, nullptr, 0.0),
                singular ? -1 : 0);
      if (!singular) continue;
      EXPECT_EQ(lines_of(err).front(), "Matrix apparently singular");
      EXPECT_EQ(lines_of(err).back(), "OCCURRED IN: symmetric_real_inverse in MOD matrix_methods");
    }
  }
}

TEST(MatrixFactors, FailingPivotsAreReported) {
  matrix a = zeros(2, 2), l = zeros(2, 2);
  const strings singular{"Matrix apparently singular",
                         "OCCURRED IN: cholesky in MOD matrix_methods"};
  const struct {
    double a11, a21, a22;
    bool ok;
  } cases[] = {{4.0, 2.0, 1.0 + 1e-9, true}, {4.0, 2.0, 1.0, false},  {4.0, 2.0, 0.9, false},
               {0.0, 0.0, 1.0, false},       {-1.0, 0.0, 1.0, false}, {nan, 0.0, 1.0, false},
               {1.0, nan, 1.0, false},       {inf, 0.0, 1.0, false},  {1.0, 0.0, inf, false}};
  for (const auto& t : cases) {
    a.flat = {t.a11, t.a21, 77.0, t.a22};
    error_type err;
    EXPECT_EQ(cholesky(a, l, err), t.ok ? 0 : -1) << t.a11 << " " << t.a21 << " " << t.a22;
    EXPECT_EQ(lines_of(err), t.ok ? strings{} : singular);
  }
  error_type err;
  matrix one = zeros(1, 1), out = zeros(1, 1);
  for (const double value : {-0.5e-15, -1e-15, nan, inf}) {
    one(1, 1) = value;
    EXPECT_EQ(symmetric_real_inverse(one, out, err), -1) << value;
  }
}

TEST(MatrixMethods, ExtentsThatDoNotConformAreNamed) {
  const std::string conform = "Dimensions of matrix arguments not conformable",
                    square = "Non-square matrix encountered; square expected",
                    match = "Input and output dimensions do not match",
                    outputs = "Dimension of output matrix do not match input.",
                    tall = "Rectangular input matrix must be taller than it is wide.";
  const matrix m23 = zeros(2, 3), m22 = identity(2), m33 = identity(3), m32 = zeros(3, 2);
  matrix o22 = zeros(2, 2), o33 = zeros(3, 3), o23 = zeros(2, 3), o32 = zeros(3, 2);
  column v2 = zeros(2), v3 = zeros(3);
  double trace = 0.0;
  error_type e;
  const struct {
    const char* routine;
    int32 status;
    strings lines;
  } cases[] = {
      {"mat_mult", mat_mult(m23, m22, o22, e), {conform, "input_1, input_2"}},
      {"mat_mult", mat_mult(m23, m33, o22, e), {conform, "output"}},
      {"mat_mult", mat_mult(m23, v2, v2, e), {conform, "input_1, input_2"}},
      {"mat_mult_pre_and_post", mat_mult_pre_and_post(m23, m23, o22, e), {conform, "input_1"}},
      {"mat_mult_pre_and_post",
       mat_mult_pre_and_post(m23, m22, o22, e),
       {conform, "input_1, input_2"}},
      {"mat_mult_pre_and_post",
       mat_mult_pre_and_post(m23, m33, o33, e),
       {conform, "input_2, output"}},
      {"outer_product_of_vector", outer_product_of_vector(v2, o33, e), {conform, "input, output"}},
      {"premult_by_transpose", premult_by_transpose(m23, o22, e), {match}},
      {"postmult_by_transpose", postmult_by_transpose(m23, o33, e), {match}},
      {"mult_tri_by_its_transpose", mult_tri_by_its_transpose(m23, o22, e), {square, "input"}},
      {"mult_tri_by_its_transpose", mult_tri_by_its_transpose(m22, o23, e), {square, "output"}},
      {"mult_tri_by_its_transpose",
       mult_tri_by_its_transpose(m22, o33, e),
       {conform, "input, output"}},
      {"cholesky", cholesky(m23, o22, e), {square, "input"}},
      {"cholesky", cholesky(m22, o32, e), {square, "output"}},
      {"cholesky", cholesky(m22, o33, e), {conform, "input, output"}},
      {"cholesky_lower", cholesky_lower(o23, e), {square, "input"}},
      {"invert_lower", invert_lower(o23, e), {square, "input"}},
      {"backsolve", backsolve(m23, v2, v2, e), {square, "input"}},
      {"backsolve", backsolve(m22, v3, v3, e), {conform, "input"}},
      {"backsolve", backsolve(m22, v2, v3, e), {conform, "input, output"}},
      {"symmetric_real_inverse", symmetric_real_inverse(m23, o22, e), {square, "input"}},
      {"symmetric_real_inverse", symmetric_real_inverse(m22, o33, e), {conform, "input, output"}},
      {"sv_decomp", sv_decomp(m32, o32, v3, o22, e), {outputs}},
      {"sv_decomp", sv_decomp(m23, o23, v3, o33, e), {tall}},
      {"pseudo_inv", pseudo_inv(m23, o32, e), {tall}},
      {"pseudo_inv", pseudo_inv(m32, o32, e), {outputs}},
      {"add_a_ridge_to", add_a_ridge_to(o23, 1.0, e), {"Invalid matrix"}},
      {"add_a_ridge_to", add_a_ridge_to(o22, nan, e), {"Invalid ridge constant"}},
      {"add_a_diag_matrix_to", add_a_diag_matrix_to(o23, v2, e), {"Invalid matrix"}},
      {"add_a_diag_matrix_to", add_a_diag_matrix_to(o22, v3, e), {"Invalid ridge vector"}},
      {"take_diag_real", take_diag_real(m23, v2, e), {square, "input"}},
      {"take_trace_real", take_trace_real(m23, trace, e), {square, "input"}},
      {"quadratic_form_trace_real_matrix",
       quadratic_form_trace_real_matrix(m23, m23, trace, e),
       {conform, "input_1, input_2"}},
      {"real_cross_product", real_cross_product(v2, v3, v3, e), {conform}}};
  strings expected;
  for (const auto& t : cases) {
    EXPECT_EQ(t.status, -1) << t.routine;
    expected.insert(expected.end(), t.lines.begin(), t.lines.end());
    expected.push_back("OCCURRED IN: " + std::string(t.routine) + " in MOD matrix_methods");
  }
  EXPECT_EQ(lines_of(e), expected);
}

TEST(MatrixMethods, NothingThatIsNotFiniteIsASuccess) {
  matrix a = identity(3), out = zeros(3, 3), v = zeros(3, 3);
  a(2, 1) = a(1, 2) = nan;
  column w = zeros(3);
  double trace = 0.0;
  error_type err;
  EXPECT_EQ(mat_mult(a, a, out, err), -1);
  EXPECT_EQ(mat_mult_pre_and_post(a, a, out, err), -1);
  EXPECT_EQ(premult_by_transpose(a, out, err), -1);
  EXPECT_EQ(postmult_by_transpose(a, out, err), -1);
  EXPECT_EQ(mult_tri_by_its_transpose(a, out, err), -1);
  EXPECT_EQ(premult_lower_by_transpose(a, out, err), -1);
  EXPECT_EQ(symmetric_real_inverse(a, out, err), -1);
  EXPECT_EQ(invert_lower(out = a, err), -1);
  EXPECT_EQ(sv_decomp(a, out, w, v, err), -1);
  EXPECT_EQ(pseudo_inv(a, out, err), -1);
  EXPECT_EQ(outer_product_of_vector(vector_of({1.0, nan, 1.0}), out, err), -1);
  EXPECT_EQ(backsolve(identity(3), vector_of({1.0, inf, 1.0}), w, err), -1);

  const struct {
    double value;
    const char* line;
  } cases[] = {{1e300, "Some element of B is too large (positive)"},
               {-1e300, "Some element of B is too large (negative)"},
               {nan, "Some element of B is too large (positive)"}};
  for (const auto& t : cases) {
    error_type e;
    matrix b = identity(3);
    b(3, 1) = t.value;
    EXPECT_EQ(quadratic_form_trace_real_matrix(identity(3), b, trace, e), -1);
    EXPECT_EQ(lines_of(e)[0], t.line);
    EXPECT_EQ(quadratic_form_trace_real_matrix(b, identity(3), trace, e), -1);
    EXPECT_EQ(lines_of(e)[2][16], 'A');
  }
}

}  // namespace
}  // namespace tolvenra::matrix_methods
