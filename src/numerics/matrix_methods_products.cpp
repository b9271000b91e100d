#include <limits>
#include <new>

#include "numerics/dot_products.hpp"
#include "numerics/lower_triangular.hpp"
#include "numerics/matrix_checks.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::matrix_methods {
namespace {

using lower_triangular::subtract_four;
using lower_triangular::subtract_multiple;

/// y(first..m) += sum over k of a(., k) * factor(k), k = 0..count-1.
template <class Factor>
void add_columns(double* y, const double* a, std::size_t first, std::size_t m, std::size_t count,
                 Factor factor) {
  std::size_t k = 0;
  for (; k + 4 <= count; k += 4)
    subtract_four(y, a + k * m, m, {-factor(k), -factor(k + 1), -factor(k + 2), -factor(k + 3)},
                  first, m);
  for (; k < count; ++k) subtract_multiple(y, a + k * m, -factor(k), first, m);
}

std::size_t extent(int32 n) { return static_cast<std::size_t>(n); }

void mirror_lower(array<double, 2>& c) {
  for (int32 j = 2; j <= c.n[1]; ++j)
    for (int32 i = 1; i < j; ++i) c(i, j) = c(j, i);
}

/// c = a a' where column k of a starts at row first(k).
template <class Columns>
void multiply_by_transpose(const array<double, 2>& a, array<double, 2>& c, Columns columns) {
  const std::size_t m = extent(a.n[0]);
  std::fill(c.flat.begin(), c.flat.end(), 0.0);
  for (std::size_t j = 0; j < m; ++j)
    add_columns(c.data() + j * m, a.data(), j, m, columns(j),
                [&](std::size_t k) { return a.flat[j + k * m]; });
  mirror_lower(c);
}

}  // namespace

int32 mat_mult(const array<double, 2>& a, const array<double, 2>& b, array<double, 2>& c,
               error_type& err) {
  constexpr routine here = in("mat_mult");
  if (a.n[1] != b.n[0])
    return fail(err, here, error_code::not_conformable, {text("input_1, input_2")});
  if (c.n[0] != a.n[0] || c.n[1] != b.n[1])
    return fail(err, here, error_code::not_conformable, {text("output")});
  const std::size_t m = extent(a.n[0]), inner = extent(a.n[1]), n = extent(b.n[1]);
  std::fill(c.flat.begin(), c.flat.end(), 0.0);
  for (std::size_t j = 0; j < n; ++j)
    add_columns(c.data() + j * m, a.data(), 0, m, inner,
                [&](std::size_t k) { return b.flat[k + j * inner]; });
  return finish(c, here, err);
}

int32 mat_mult(const array<double, 2>& a, const array<double, 1>& b, array<double, 1>& c,
               error_type& err) {
  constexpr routine here = in("mat_mult");
  if (a.n[1] != b.n[0])
    return fail(err, here, error_code::not_conformable, {text("input_1, input_2")});
  if (c.n[0] != a.n[0]) return fail(err, here, error_code::not_conformable, {text("output")});
  std::fill(c.flat.begin(), c.flat.end(), 0.0);
  add_columns(c.data(), a.data(), 0, extent(a.n[0]), extent(a.n[1]),
              [&](std::size_t k) { return b.flat[k]; });
  return finish(c, here, err);
}

int32 mat_mult_pre_and_post(const array<double, 2>& a, const array<double, 2>& b,
                            array<double, 2>& c, error_type& err) {
  constexpr routine here = in("mat_mult_pre_and_post");
  // The reports number the middle matrix first.
  if (!is_square(b)) return fail(err, here, error_code::not_conformable, {text("input_1")});
  if (a.n[1] != b.n[0])
    return fail(err, here, error_code::not_conformable, {text("input_1, input_2")});
  if (c.n[0] != a.n[0] || c.n[1] != a.n[0])
    return fail(err, here, error_code::not_conformable, {text("input_2, output")});
  array<double, 2> product;
  try {
    product.allocate({a.n[0], b.n[1]});
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation);
  }
  if (mat_mult(a, b, product, err) != 0) return pass_on(err, here);
  const std::size_t n = extent(a.n[0]), inner = extent(a.n[1]);
  std::fill(c.flat.begin(), c.flat.end(), 0.0);
  for (std::size_t j = 0; j < n; ++j)
    add_columns(c.data() + j * n, product.data(), 0, n, inner,
                [&](std::size_t k) { return a.flat[j + k * n]; });
  return finish(c, here, err);
}

int32 outer_product_of_vector(const array<double, 1>& v, array<double, 2>& m, error_type& err) {
  constexpr routine here = in("outer_product_of_vector");
  if (m.n[0] != v.n[0] || m.n[1] != v.n[0])
    return fail(err, here, error_code::not_conformable, {text("input, output")});
  for (int32 j = 1; j <= v.n[0]; ++j)
    for (int32 i = 1; i <= v.n[0]; ++i) m(i, j) = v(i) * v(j);
  return finish(m, here, err);
}

int32 premult_by_transpose(const array<double, 2>& a, array<double, 2>& c, error_type& err) {
  constexpr routine here = in("premult_by_transpose");
  if (c.n[0] != a.n[1] || c.n[1] != a.n[1])
    return fail(err, here, {text("Input and output dimensions do not match")});
  const std::size_t m = extent(a.n[0]), n = extent(a.n[1]);
  std::fill(c.flat.begin(), c.flat.end(), 0.0);
  for (std::size_t j = 0; j < n; ++j)
    dot_products::add_all(a.data() + j * m, a.data() + j * m, m, m, n - j, c.data() + j + j * n);
  mirror_lower(c);
  return finish(c, here, err);
}

int32 postmult_by_transpose(const array<double, 2>& a, array<double, 2>& c, error_type& err) {
  constexpr routine here = in("postmult_by_transpose");
  if (c.n[0] != a.n[0] || c.n[1] != a.n[0])
    return fail(err, here, {text("Input and output dimensions do not match")});
  multiply_by_transpose(a, c, [&](std::size_t) { return extent(a.n[1]); });
  return finish(c, here, err);
}

int32 mult_tri_by_its_transpose(const array<double, 2>& l, array<double, 2>& c, error_type& err) {
  constexpr routine here = in("mult_tri_by_its_transpose");
  if (check_squares(l, c, here, err) != 0) return -1;
  // Row j of l ends at its diagonal.
  multiply_by_transpose(l, c, [](std::size_t j) { return j + 1; });
  return finish(c, here, err);
}

int32 quadratic_form_trace_real_matrix(const array<double, 2>& a, const array<double, 2>& b,
                                       double& trace, error_type& err) {
  constexpr routine here = in("quadratic_form_trace_real_matrix");
  trace = 0.0;
  if (a.n[0] != b.n[1] || a.n[1] != b.n[0])
    return fail(err, here, error_code::not_conformable, {text("input_1, input_2")});
  const double order = std::max({a.n[0], a.n[1], 1});
  const double bound = std::sqrt(std::numeric_limits<double>::max()) / order;
  const auto check = [&](const array<double, 2>& m, std::string_view name) {
    for (const double v : m.flat) {
      if (!(v <= bound))
        return fail(err, here, {text("Some element of ", name, " is too large (positive)")});
      if (!(v >= -bound))
        return fail(err, here, {text("Some element of ", name, " is too large (negative)")});
    }
    return int32{0};
  };
  if (check(a, "A") != 0 || check(b, "B") != 0) return -1;
  for (int32 i = 1; i <= a.n[0]; ++i)
    for (int32 k = 1; k <= a.n[1]; ++k) trace += a(i, k) * b(k, i);
  return 0;
}

int32 real_cross_product(const array<double, 1>& u, const array<double, 1>& v, array<double, 1>& w,
                         error_type& err) {
  constexpr routine here = in("real_cross_product");
  if (u.n[0] != 3 || v.n[0] != 3 || w.n[0] != 3)
    return fail(err, here, error_code::not_conformable);
  w.flat = {u(2) * v(3) - u(3) * v(2), u(3) * v(1) - u(1) * v(3), u(1) * v(2) - u(2) * v(1)};
  return finish(w, here, err);
}

}  // namespace tolvenra::matrix_methods
