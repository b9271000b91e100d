#include <cmath>

#include "numerics/logit_model.hpp"
#include "numerics/lower_triangular.hpp"

namespace tolvenra::logit_model {
namespace {

constexpr routine in(std::string_view name) { return {name, "logit_model"}; }

/// Both sweeps: they differ in the sign of the pivot's row and column only.
int32 sweep(array<double, 2>& a, int32 k, double sign, const routine& here, error_type& err) {
  const int32 n = a.n[0];
  if (n != a.n[1]) return fail(err, here, error_code::not_square, {text("input")});
  if (k < 0 || k > n) return fail(err, here, {text("Pivot out of bounds.")});
  if (k == 0 || !(std::abs(a(k, k)) > smallest_normal)) return -1;
  const double pivot = a(k, k);
  for (int32 j = 1; j <= n; ++j) {
    if (j == k) continue;
    const double factor = a(k, j) / pivot;
    for (int32 i = 1; i <= n; ++i)
      if (i != k) a(i, j) -= a(i, k) * factor;
  }
  for (int32 i = 1; i <= n; ++i) {
    if (i == k) continue;
    a(i, k) *= sign / pivot;
    a(k, i) *= sign / pivot;
  }
  a(k, k) = -1.0 / pivot;
  return 0;
}

}  // namespace

int32 cholesky_in_place(array<double, 2>& a, error_type& err) {
  constexpr routine here = in("cholesky_in_place");
  if (a.n[0] != a.n[1]) return fail(err, here, error_code::not_square, {text("input")});
  const auto n = static_cast<std::size_t>(a.n[0]);
  if (!lower_triangular::factor(a.data(), n)) return fail(err, here, error_code::singular);
  lower_triangular::clear_upper(a.data(), n);
  return 0;
}

int32 invert_lower(array<double, 2>& a, error_type& err) {
  constexpr routine here = in("invert_lower");
  if (a.n[0] != a.n[1]) return fail(err, here, error_code::not_square, {text("input")});
  const auto n = static_cast<std::size_t>(a.n[0]);
  if (!lower_triangular::is_regular(a.data(), n)) return fail(err, here, error_code::singular);
  lower_triangular::invert(a.data(), n);
  return 0;
}

int32 premult_lower_by_transpose(const array<double, 2>& l, array<double, 2>& out,
                                 error_type& err) {
  constexpr routine here = in("premult_lower_by_transpose");
  if (l.n[0] != l.n[1]) return fail(err, here, error_code::not_square, {text("input")});
  if (out.n != l.n) return fail(err, here, error_code::not_conformable, {text("input, output")});
  lower_triangular::transpose_product(l.data(), out.data(), static_cast<std::size_t>(l.n[0]));
  return 0;
}

int32 sweep_forward(array<double, 2>& a, int32 k, error_type& err) {
  return sweep(a, k, 1.0, in("sweep_forward"), err);
}

int32 sweep_reverse(array<double, 2>& a, int32 k, error_type& err) {
  return sweep(a, k, -1.0, in("sweep_reverse"), err);
}

}  // namespace tolvenra::logit_model
