#include "core/dynamic_allocation.hpp"
#include "numerics/lower_triangular.hpp"
#include "numerics/matrix_checks.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::matrix_methods {
namespace {

std::size_t order_of(const array<double, 2>& a) { return static_cast<std::size_t>(a.n[0]); }

int32 factor(array<double, 2>& a, const routine& here, error_type& err) {
  if (!lower_triangular::factor(a.data(), order_of(a)))
    return fail(err, here, error_code::singular);
  lower_triangular::clear_upper(a.data(), order_of(a));
  return 0;
}

/// The 1-based positions that take part, ascending.
int32 list_included(int32 n, const array<logical, 1>* mask, array<int32, 1>& included,
                    error_type& err) {
  const auto takes_part = [mask](int32 i) { return mask == nullptr || (*mask)(i) == logical::yes; };
  int32 count = 0;
  for (int32 i = 1; i <= n; ++i) count += takes_part(i) ? 1 : 0;
  if (dynamic_allocation::int1_alloc(included, count, err, {},
                                     "symmetric_real_inverse: indices_to_include") != 0)
    return -1;
  for (int32 i = 1, k = 1; i <= n; ++i)
    if (takes_part(i)) included(k++) = i;
  return 0;
}

/// Inverse of the included rows and columns of y in `inverse`, through the work matrix `part`.
int32 invert_part(const array<double, 2>& y, const array<int32, 1>& included, double ridge,
                  array<double, 2>& part, array<double, 2>& inverse, error_type& err) {
  using dynamic_allocation::dbl2_alloc;
  const int32 m = included.n[0];
  if (dbl2_alloc(part, m, m, err, {}, "symmetric_real_inverse: Y") != 0 ||
      dbl2_alloc(inverse, m, m, err, {}, "symmetric_real_inverse: Yinv") != 0)
    return -1;
  for (int32 j = 1; j <= m; ++j) {
    for (int32 i = j; i <= m; ++i) part(i, j) = y(included(i), included(j));
    part(j, j) += ridge;
  }
  if (cholesky_lower(part, err) != 0 || invert_lower(part, err) != 0) return -1;
  return premult_lower_by_transpose(part, inverse, err);
}

int32 invert_scalar(double value, array<double, 2>& yinv, const routine& here, error_type& err) {
  if (!(std::abs(value) >= 1e-15) || !std::isfinite(value))
    return fail(err, here, error_code::singular);
  yinv(1, 1) = 1.0 / value;
  return 0;
}

}  // namespace

int32 cholesky(const array<double, 2>& a, array<double, 2>& l, error_type& err) {
  constexpr routine here = in("cholesky");
  if (check_squares(a, l, here, err) != 0) return -1;
  std::copy(a.flat.begin(), a.flat.end(), l.flat.begin());
  return factor(l, here, err);
}

int32 cholesky_lower(array<double, 2>& a, error_type& err) {
  constexpr routine here = in("cholesky_lower");
  if (!is_square(a)) return fail(err, here, error_code::not_square, {text("input")});
  return factor(a, here, err);
}

int32 invert_lower(array<double, 2>& l, error_type& err) {
  constexpr routine here = in("invert_lower");
  if (!is_square(l)) return fail(err, here, error_code::not_square, {text("input")});
  if (!lower_triangular::is_regular(l.data(), order_of(l)))
    return fail(err, here, error_code::singular);
  lower_triangular::invert(l.data(), order_of(l));
  return finish(l, here, err);
}

int32 premult_lower_by_transpose(const array<double, 2>& m, array<double, 2>& c, error_type& err) {
  constexpr routine here = in("premult_lower_by_transpose");
  if (check_squares(m, c, here, err) != 0) return -1;
  lower_triangular::transpose_product(m.data(), c.data(), order_of(m));
  return finish(c, here, err);
}

int32 premult_lower_by_transpose(array<double, 2>& m, error_type& err) {
  constexpr routine here = in("premult_lower_by_transpose");
  if (!is_square(m)) return fail(err, here, error_code::not_square, {text("input")});
  // Row i of the result needs rows i and below of the factor only, its diagonal to the last.
  const std::size_t n = order_of(m);
  double* const a = m.data();
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = 0.0;
      dot_products::add<1>(a + i + i * n, a + i + j * n, n, n - i, &sum);
      a[i + j * n] = sum;
    }
  for (int32 j = 2; j <= m.n[1]; ++j)
    for (int32 i = 1; i < j; ++i) m(i, j) = m(j, i);
  return finish(m, here, err);
}

int32 backsolve(const array<double, 2>& l, const array<double, 1>& b, array<double, 1>& x,
                error_type& err) {
  constexpr routine here = in("backsolve");
  if (!is_square(l)) return fail(err, here, error_code::not_square, {text("input")});
  if (b.n[0] != l.n[0]) return fail(err, here, error_code::not_conformable, {text("input")});
  if (x.n[0] != b.n[0])
    return fail(err, here, error_code::not_conformable, {text("input, output")});
  for (int32 i = 1; i <= l.n[0]; ++i)
    if (!(std::abs(l(i, i)) > 0.0)) return fail(err, here, error_code::singular);
  std::copy(b.flat.begin(), b.flat.end(), x.flat.begin());
  lower_triangular::solve(l.data(), x.data(), order_of(l));
  return finish(x, here, err);
}

int32 symmetric_real_inverse(const array<double, 2>& y, array<double, 2>& yinv, error_type& err,
                             const array<logical, 1>* mask, std::optional<double> ridge) {
  constexpr routine here = in("symmetric_real_inverse");
  if (!is_square(y)) return fail(err, here, error_code::not_square, {text("input")});
  if (yinv.n != y.n) return fail(err, here, error_code::not_conformable, {text("input, output")});
  if (mask != nullptr && mask->n[0] != y.n[0])
    return fail(err, here, error_code::not_conformable, {text("input, mask")});
  std::fill(yinv.flat.begin(), yinv.flat.end(), 0.0);
  const double added = ridge.value_or(1e-15);
  array<int32, 1> included;
  array<double, 2> part, inverse;
  if (list_included(y.n[0], mask, included, err) != 0) return pass_on(err, here);
  if (y.n[0] == 1 && included.n[0] == 1) return invert_scalar(added + y(1, 1), yinv, here, err);
  if (invert_part(y, included, added, part, inverse, err) != 0) return pass_on(err, here);
  for (int32 j = 1; j <= included.n[0]; ++j)
    for (int32 i = 1; i <= included.n[0]; ++i) yinv(included(i), included(j)) = inverse(i, j);
  return all_finite(yinv) ? 0 : fail(err, here, {text("Unknown error")});
}

}  // namespace tolvenra::matrix_methods
