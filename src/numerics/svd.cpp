#include <limits>
#include <new>

#include "numerics/dot_products.hpp"
#include "numerics/matrix_checks.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::matrix_methods {
namespace {

constexpr double eps = std::numeric_limits<double>::epsilon();
constexpr int32 most_sweeps = 75;

double dot(const double* x, const double* y, std::size_t n) {
  double sum = 0.0;
  dot_products::add<1>(x, y, n, n, &sum);
  return sum;
}

void rotate(double* x, double* y, double c, double s, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    const double before = x[i];
    x[i] = c * before - s * y[i];
    y[i] = s * before + c * y[i];
  }
}

/// Columns of u rotated until they are orthogonal; v collects the rotations.
class jacobi {
 public:
  jacobi(array<double, 2>& u, array<double, 2>& v)
      : u_(u), v_(v), m_(static_cast<std::size_t>(u.n[0])), n_(static_cast<std::size_t>(v.n[0])) {}

  bool run() {
    for (int32 sweep = 0; sweep < most_sweeps; ++sweep)
      if (!sweep_once()) return true;
    return n_ < 2;
  }

 private:
  double* column_u(std::size_t j) { return u_.data() + j * m_; }
  double* column_v(std::size_t j) { return v_.data() + j * n_; }

  /// \return true when a pair still had to be rotated
  bool sweep_once() {
    bool rotated = false;
    for (std::size_t i = 0; i + 1 < n_; ++i) {
      bring_longest(i);
      for (std::size_t j = i + 1; j < n_; ++j) rotated = orthogonalise(i, j) || rotated;
    }
    return rotated;
  }

  /// Puts the longest of the columns i.. in place i: large columns first converge fastest.
  void bring_longest(std::size_t i) {
    std::size_t best = i;
    double most = -1.0;
    for (std::size_t j = i; j < n_; ++j) {
      const double length = dot(column_u(j), column_u(j), m_);
      if (length > most) {
        most = length;
        best = j;
      }
    }
    if (best == i) return;
    std::swap_ranges(column_u(i), column_u(i) + m_, column_u(best));
    std::swap_ranges(column_v(i), column_v(i) + n_, column_v(best));
  }

  bool orthogonalise(std::size_t i, std::size_t j) {
    double *const x = column_u(i), *const y = column_u(j);
    const double xx = dot(x, x, m_), yy = dot(y, y, m_), xy = dot(x, y, m_);
    // A column lost in the rounding of the others has no direction of its own.
    if (!(yy > lost * xx) || !(xx > lost * yy)) return false;
    if (!(std::abs(xy) > eps * std::sqrt(static_cast<double>(m_)) * std::sqrt(xx) * std::sqrt(yy)))
      return false;
    const double zeta = (yy - xx) / (2.0 * xy);
    const double t = std::copysign(1.0 / (std::abs(zeta) + std::hypot(1.0, zeta)), zeta);
    const double c = 1.0 / std::hypot(1.0, t), s = c * t;
    rotate(x, y, c, s, m_);
    rotate(column_v(i), column_v(j), c, s, n_);
    return true;
  }

  static constexpr double lost = 1e-40;  // squared
  array<double, 2>&u_, &v_;
  std::size_t m_, n_;
};

/// Replaces column j of u by a unit vector orthogonal to the columns before it.
void complete(array<double, 2>& u, std::size_t j) {
  const auto m = static_cast<std::size_t>(u.n[0]);
  double* const x = u.data() + j * m;
  for (std::size_t axis = 0; axis < m; ++axis) {
    std::fill_n(x, m, 0.0);
    x[axis] = 1.0;
    for (int pass = 0; pass < 2; ++pass)
      for (std::size_t k = 0; k < j; ++k) {
        const double* const q = u.data() + k * m;
        const double share = dot(q, x, m);
        for (std::size_t i = 0; i < m; ++i) x[i] -= share * q[i];
      }
    const double length = std::sqrt(dot(x, x, m));
    // Some axis keeps at least this much beside j < m orthonormal columns.
    if (length * length * static_cast<double>(m) < 0.5) continue;
    for (std::size_t i = 0; i < m; ++i) x[i] /= length;
    return;
  }
}

/// Lengths of the columns of u into w (in units of `scale`), descending, u and v permuted alike.
int32 order_values(array<double, 2>& u, array<double, 1>& w, array<double, 2>& v, double scale,
                   const routine& here, error_type& err) {
  const int32 m = u.n[0], n = w.n[0];
  const auto rows = static_cast<std::size_t>(m);
  for (int32 j = 1; j <= n; ++j) w(j) = std::sqrt(dot(u.column(j), u.column(j), rows));
  array<int32, 1> ascending;
  ascending.allocate({n});
  if (indexx_dble(w, ascending, err) != 0)
    return fail(err, here, {text("Could not sort w after"), text("singular value decomposition.")});
  const array<double, 2> old_u = u, old_v = v;
  const array<double, 1> old_w = w;
  const double negligible = n > 0 ? old_w(ascending(n)) * 1e-19 : 0.0;
  for (int32 j = 1; j <= n; ++j) {
    const int32 from = ascending(n + 1 - j);
    std::copy_n(old_v.column(from), static_cast<std::size_t>(n), v.column(j));
    if (old_w(from) > negligible) {
      for (int32 i = 1; i <= m; ++i) u(i, j) = old_u(i, from) / old_w(from);
    } else {
      complete(u, static_cast<std::size_t>(j - 1));
    }
    w(j) = old_w(from) * scale;
  }
  return 0;
}

int32 decompose(const array<double, 2>& a, array<double, 2>& u, array<double, 1>& w,
                array<double, 2>& v, const routine& here, error_type& err) {
  double scale = 0.0;
  for (const double value : a.flat) scale = std::max(scale, std::abs(value));
  if (!(scale > smallest_normal)) scale = 1.0;
  if (!all_finite(a)) return fail(err, here, {text("Decomposition failed to converge.")});
  std::transform(a.flat.begin(), a.flat.end(), u.flat.begin(),
                 [scale](double value) { return value / scale; });
  std::fill(v.flat.begin(), v.flat.end(), 0.0);
  for (int32 j = 1; j <= v.n[0]; ++j) v(j, j) = 1.0;
  if (!jacobi(u, v).run()) return fail(err, here, {text("Decomposition failed to converge.")});
  return order_values(u, w, v, scale, here, err);
}

}  // namespace

int32 sv_decomp(const array<double, 2>& a, array<double, 2>& u, array<double, 1>& w,
                array<double, 2>& v, error_type& err) {
  constexpr routine here = in("sv_decomp");
  const int32 n = a.n[1];
  if (u.n != a.n || w.n[0] != n || v.n[0] != n || v.n[1] != n)
    return fail(err, here, {text("Dimension of output matrix do not match input.")});
  if (a.n[0] < n)
    return fail(err, here, {text("Rectangular input matrix must be taller than it is wide.")});
  try {
    return decompose(a, u, w, v, here, err);
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation);
  }
}

int32 pseudo_inv(const array<double, 2>& a, array<double, 2>& inverse, error_type& err) {
  constexpr routine here = in("pseudo_inv");
  const int32 m = a.n[0], n = a.n[1];
  if (m < n)
    return fail(err, here, {text("Rectangular input matrix must be taller than it is wide.")});
  if (inverse.n[0] != n || inverse.n[1] != m)
    return fail(err, here, {text("Dimension of output matrix do not match input.")});
  array<double, 2> u, v;
  array<double, 1> w;
  try {
    u.allocate({m, n});
    v.allocate({n, n});
    w.allocate({n});
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation);
  }
  if (sv_decomp(a, u, w, v, err) != 0)
    return fail(err, here, {text("Singular value decomposition failed.")});
  std::fill(inverse.flat.begin(), inverse.flat.end(), 0.0);
  const double bound = n > 0 ? m * eps * w(1) : 0.0;
  for (int32 k = 1; k <= n && w(k) > bound; ++k)
    for (int32 j = 1; j <= m; ++j) {
      const double share = u(j, k) / w(k);
      for (int32 i = 1; i <= n; ++i) inverse(i, j) += v(i, k) * share;
    }
  return finish(inverse, here, err);
}

}  // namespace tolvenra::matrix_methods
