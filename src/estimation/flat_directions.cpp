#include "estimation/flat_directions.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "numerics/lower_triangular.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::estimation {
namespace {

std::size_t at(int64 i) { return static_cast<std::size_t>(i); }

/// c = a'b for a (n, k), b (n, m).
array<double, 2> cross(const array<double, 2>& a, const array<double, 2>& b) {
  array<double, 2> c;
  c.allocate({a.n[1], b.n[1]});
  for (int32 j = 1; j <= b.n[1]; ++j)
    for (int32 i = 1; i <= a.n[1]; ++i) {
      double sum = 0.0;
      for (int32 q = 1; q <= a.n[0]; ++q) sum += a(q, i) * b(q, j);
      c(i, j) = sum;
    }
  return c;
}

/// c = a b.
array<double, 2> product(const array<double, 2>& a, const array<double, 2>& b) {
  array<double, 2> c;
  c.allocate({a.n[0], b.n[1]});
  for (int32 j = 1; j <= b.n[1]; ++j)
    for (int32 q = 1; q <= a.n[1]; ++q)
      for (int32 i = 1; i <= a.n[0]; ++i) c(i, j) += a(i, q) * b(q, j);
  return c;
}

/// The transposed inverse of the lower factor of a symmetric matrix. \return false when singular
bool inverse_factor(array<double, 2> a, array<double, 2>& transposed) {
  const std::size_t n = at(a.n[0]);
  if (!lower_triangular::factor(a.data(), n) || !lower_triangular::is_regular(a.data(), n))
    return false;
  lower_triangular::invert(a.data(), n);
  transposed.allocate(a.n);
  for (std::size_t j = 0; j < n; ++j)
    for (std::size_t i = j; i < n; ++i) transposed.flat[j + i * n] = a.flat[i + j * n];
  return true;
}

/// Covariance of the indicators of the free categories at equal probabilities.
array<double, 2> equal_shares(int32 categories) {
  array<double, 2> c;
  const double share = 1.0 / categories;
  c.allocate({categories - 1, categories - 1}, -share * share);
  for (int32 k = 1; k < categories; ++k) c(k, k) += share;
  return c;
}

/// Kronecker product, the first factor slowest.
array<double, 2> kronecker(const array<double, 2>& slow, const array<double, 2>& fast) {
  array<double, 2> all;
  const int32 p = fast.n[0];
  all.allocate({slow.n[0] * p, slow.n[0] * p});
  for (int32 l = 0; l < slow.n[0]; ++l)
    for (int32 h = 1; h <= p; ++h)
      for (int32 k = 0; k < slow.n[0]; ++k)
        for (int32 j = 1; j <= p; ++j) all(k * p + j, l * p + h) = slow(k + 1, l + 1) * fast(j, h);
  return all;
}

double dot(const double* a, const double* b, int32 n) {
  double sum = 0.0;
  for (int32 q = 0; q < n; ++q) sum += a[q] * b[q];
  return sum;
}

/// What a direction of reach 1 does to the coefficients, (p, r): a slope's change times the largest
/// distance of its column from the mean, and the intercept's at the user's origin as a share of
/// what it is made of, so that it inherits the mark of a slope whose column lies far from zero.
/// Categories whose predictors the direction leaves alone have 0.
array<double, 2> weights_of(const regression& fit, const regression_surface& surface,
                            const double* direction) {
  array<double, 2> weights, scaled;
  const int32 p = fit.x.n[1];
  weights.allocate({p, fit.y.n[1]});
  scaled.allocate({p, fit.fitted.count()});
  surface.add(direction, scaled);
  double parts = 1.0;
  for (int32 k = 1; k <= fit.fitted.count(); ++k) {
    const int32 c = fit.fitted.of[at(k - 1)];
    if (c == 0 || k == fit.fitted.baseline) continue;
    double moved = 0.0;
    double origin = scaled(1, k);
    double size = 1.0;
    for (int32 j = 1; j <= p; ++j) moved += std::abs(scaled(j, k)) * fit.reach[at(j - 1)];
    if (!(moved >= runaway_weight)) continue;
    for (int32 j = 2; j <= p; ++j) {
      const double part = scaled(j, k) * fit.mean[at(j - 1)] / fit.scale[at(j - 1)];
      weights(j, c) = scaled(j, k) * fit.reach[at(j - 1)];
      origin -= part;
      size += std::abs(part);
    }
    weights(1, c) = origin;
    parts = std::max(parts, size);
  }
  for (int32 c = 1; c <= fit.y.n[1]; ++c) weights(1, c) /= parts;
  return weights;
}

void note(const regression& fit, const regression_surface& surface,
          const std::vector<std::vector<double>>& flat, fitted_row& row) {
  row.flat.allocate({surface.order(), static_cast<int32>(flat.size())});
  for (std::size_t i = 0; i < flat.size(); ++i) {
    std::copy(flat[i].begin(), flat[i].end(), row.flat.column(static_cast<int32>(i) + 1));
    row.runaway.push_back(weights_of(fit, surface, flat[i].data()));
  }
}

/// Every direction is flat where nobody is expected.
std::vector<std::vector<double>> unit_directions(int32 order) {
  std::vector<std::vector<double>> all;
  for (int32 q = 0; q < order; ++q) {
    all.emplace_back(at(order), 0.0);
    all.back()[at(q)] = 1.0;
  }
  return all;
}

/// Orthonormal completion: columns that with the orthonormal ones of `known` span the space.
array<double, 2> completion(const array<double, 2>& known) {
  const int32 n = known.n[0];
  array<double, 2> rest;
  rest.allocate({n, n - known.n[1]});
  int32 found = 0;
  for (int32 unit = 1; unit <= n && found < rest.n[1]; ++unit) {
    std::vector<double> e(at(n), 0.0);
    e[at(unit - 1)] = 1.0;
    for (int twice = 0; twice < 2; ++twice) {
      const auto remove = [&](const double* q) {
        const double part = dot(q, e.data(), n);
        for (int32 i = 0; i < n; ++i) e[at(i)] -= part * q[i];
      };
      for (int32 j = 1; j <= known.n[1]; ++j) remove(known.column(j));
      for (int32 j = 1; j <= found; ++j) remove(rest.column(j));
    }
    const double length = std::sqrt(dot(e.data(), e.data(), n));
    // Of the units that are left one keeps at least 1 / sqrt(n) of its length.
    if (length < 0.5 / std::sqrt(static_cast<double>(n))) continue;
    ++found;
    for (int32 i = 0; i < n; ++i) rest(i + 1, found) = e[at(i)] / length;
  }
  return rest;
}

}  // namespace

bool direction_set::any_flat() const {
  return std::find(flat.begin(), flat.end(), true) != flat.end();
}

bool reference_basis(const regression& fit, array<double, 2>& basis) {
  array<double, 2> of_categories, of_columns;
  if (fit.aliased || !inverse_factor(equal_shares(fit.fitted.count()), of_categories) ||
      !inverse_factor(fit.moments, of_columns))
    return false;
  basis = kronecker(of_categories, of_columns);
  return true;
}

array<double, 2> reference_of(const regression& fit) {
  return kronecker(equal_shares(fit.fitted.count()), fit.moments);
}

direction_set find_directions(const regression_surface& surface, const array<double, 2>& basis,
                              double limit) {
  direction_set found;
  const array<double, 2> within = cross(basis, product(surface.information, basis));
  array<double, 2> left, right;
  array<double, 1> values;
  error_type unused;
  left.allocate(within.n);
  right.allocate(within.n);
  values.allocate({within.n[0]});
  if (within.n[0] > 0 &&
      matrix_methods::sv_decomp(within, left, values, right, unused) != 0) {  // not finite
    found.v = basis;
    found.information.assign(at(basis.n[1]), 0.0);
    found.flat.assign(at(basis.n[1]), true);
    return found;
  }
  found.v = product(basis, right);
  const double threshold = limit * (1.0 + std::abs(surface.value));
  found.weakest = std::numeric_limits<double>::infinity();
  for (int32 i = 1; i <= found.count(); ++i) {
    const double* v = found.v.column(i);
    const double bound = surface.reach_bound(v);
    found.information.push_back(values(i));
    double scaled = values(i) / (bound * bound);
    if (!(scaled >= threshold)) {
      const double reach = surface.reach(v);
      scaled = values(i) / (reach * reach);
    }
    found.flat.push_back(!(scaled >= threshold));
    found.weakest = std::min(found.weakest, scaled);
  }
  return found;
}

double most_to_gain(const regression_surface& surface, const direction_set& directions,
                    std::size_t i, double slope) {
  const double* v = directions.v.column(static_cast<int32>(i) + 1);
  const double far = 1e4 * std::abs(slope) / surface.reach_bound(v);
  return std::min(0.5 * slope * slope / directions.information[i], far);
}

array<double, 2> movable_directions(regression_surface& surface, const array<double, 2>& beta,
                                    const direction_set& directions) {
  // What a Newton step along a flat direction would gain decides first: single cases that the
  // scale of the direction hides may still have much to give.
  const double negligible = 1e-9 * (1.0 + std::abs(surface.value));
  std::vector<int32> movable;
  for (int32 i = 1; i <= directions.count(); ++i) {
    bool held = directions.flat[at(i - 1)];
    if (held) {
      const double* v = directions.v.column(i);
      const double slope = surface.slope(v);
      const double reach = surface.reach_bound(v);
      const bool forgotten =
          !(directions.information[at(i - 1)] > 1e-6 * negligible * reach * reach);
      held = !(most_to_gain(surface, directions, at(i - 1), slope) >= negligible) &&
             (forgotten || !(slope * surface.third_moment(beta, v) > 0.0));
    }
    if (!held) movable.push_back(i);
  }
  array<double, 2> basis;
  basis.allocate({directions.v.n[0], static_cast<int32>(movable.size())});
  for (std::size_t i = 0; i < movable.size(); ++i)
    std::copy_n(directions.v.column(movable[i]), surface.order(),
                basis.column(static_cast<int32>(i) + 1));
  return basis;
}

void find_runaways(regression& fit, const double* beta, int32 threads, fitted_row& row) {
  row.runaway.clear();
  row.flat = {};
  const bool informed = row.margin > 1e3 * runaway_below;  // by its last fit
  array<double, 2> basis;
  const bool nobody = !load_outcome(fit);
  if (fit.fitted.count() < 2 || (informed && !nobody)) return;
  regression_surface surface(fit, threads);
  if (nobody || !(surface.total() >= 1e-8 * fit.total_weight)) {
    note(fit, surface, unit_directions(surface.order()), row);
    return;
  }
  if (!reference_basis(fit, basis)) return;
  load_coefficients(fit, beta);
  surface.expand(fit.coefficients);
  const direction_set found = find_directions(surface, basis, runaway_below);
  std::vector<std::vector<double>> flat;
  for (int32 i = 1; i <= found.count(); ++i) {
    if (!found.flat[at(i - 1)]) continue;
    const double* v = found.v.column(i);
    const double reach = surface.reach(v);
    flat.emplace_back(v, v + surface.order());
    for (double& value : flat.back()) value /= reach;
  }
  if (!flat.empty()) note(fit, surface, flat, row);
}

bool is_runaway(const fitted_row& row, int32 column, int32 category) {
  return std::any_of(row.runaway.begin(), row.runaway.end(), [&](const array<double, 2>& weights) {
    return !(std::abs(weights(column, category)) < runaway_weight);
  });
}

int32 count_runaways(const fitted_row& row) {
  if (row.runaway.empty()) return 0;
  int32 count = 0;
  for (int32 c = 1; c <= row.runaway.front().n[1]; ++c)
    for (int32 j = 1; j <= row.runaway.front().n[0]; ++j) count += is_runaway(row, j, c) ? 1 : 0;
  return count;
}

array<double, 2> complement_of(const array<double, 2>& flat, const array<double, 2>& reference) {
  array<double, 2> factor = reference;
  array<double, 2> back;  // transposed inverse of the factor
  if (!lower_triangular::factor(factor.data(), at(factor.n[0])) || !inverse_factor(reference, back))
    return {};
  lower_triangular::clear_upper(factor.data(), at(factor.n[0]));
  const array<double, 2> straight = cross(factor, flat);  // there the reference is the identity
  array<double, 2> orthonormal;
  std::vector<std::vector<double>> columns;
  for (int32 j = 1; j <= straight.n[1]; ++j) {
    std::vector<double> own(straight.column(j), straight.column(j) + straight.n[0]);
    const double before = std::sqrt(dot(own.data(), own.data(), straight.n[0]));
    for (const auto& q : columns) {
      const double part = dot(q.data(), own.data(), straight.n[0]);
      for (std::size_t i = 0; i < own.size(); ++i) own[i] -= part * q[i];
    }
    const double length = std::sqrt(dot(own.data(), own.data(), straight.n[0]));
    if (!(length > 1e-8 * before)) continue;
    for (double& value : own) value /= length;
    columns.push_back(std::move(own));
  }
  orthonormal.allocate({straight.n[0], static_cast<int32>(columns.size())});
  for (std::size_t j = 0; j < columns.size(); ++j)
    std::copy(columns[j].begin(), columns[j].end(), orthonormal.column(static_cast<int32>(j) + 1));
  return product(back, completion(orthonormal));
}

}  // namespace tolvenra::estimation
