#include "estimation/sandwich.hpp"

#include <algorithm>
#include <cmath>

#include "estimation/flat_directions.hpp"
#include "numerics/lower_triangular.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::estimation {
namespace {

constexpr double smallest_pivot = 1e-6;

array<double, 2> transposed(const array<double, 2>& a) {
  array<double, 2> t;
  t.allocate({a.n[1], a.n[0]});
  for (int32 j = 1; j <= a.n[1]; ++j)
    for (int32 i = 1; i <= a.n[0]; ++i) t(j, i) = a(i, j);
  return t;
}

/// t' a t for symmetric a.
array<double, 2> quadratic(const array<double, 2>& t, const array<double, 2>& a) {
  array<double, 2> half, result;
  half.allocate({a.n[0], t.n[1]});
  result.allocate({t.n[1], t.n[1]});
  for (int32 d = 1; d <= t.n[1]; ++d)
    for (int32 k = 1; k <= a.n[1]; ++k)
      for (int32 i = 1; i <= a.n[0]; ++i) half(i, d) += a(i, k) * t(k, d);
  for (int32 d = 1; d <= t.n[1]; ++d)
    for (int32 e = 1; e <= t.n[1]; ++e)
      for (int32 i = 1; i <= a.n[0]; ++i) result(e, d) += t(i, e) * half(i, d);
  return result;
}

/// Whether every pivot of a matrix of unit diagonal keeps enough of its row.
bool regular(const array<double, 2>& scaled, const std::vector<int32>& included) {
  const std::size_t n = included.size();
  std::vector<double> factor(n * n);
  for (std::size_t j = 0; j < n; ++j)
    for (std::size_t i = j; i < n; ++i) factor[i + j * n] = scaled(included[i], included[j]);
  if (!lower_triangular::factor(factor.data(), n)) return false;
  for (std::size_t j = 0; j < n; ++j)
    if (!(factor[j + j * n] * factor[j + j * n] >= smallest_pivot)) return false;
  return true;
}

/// Inverts the estimated rows and columns of a matrix scaled to unit diagonal.
int32 invert_estimated(const array<logical, 1>& estimated, const array<double, 2>& information,
                       array<double, 2>& inverse, error_type& err) {
  const int32 n = estimated.n[0];
  array<double, 2> scaled;
  scaled.allocate({n, n});
  inverse.allocate({n, n});
  std::vector<int32> included;
  std::vector<double> unit(static_cast<std::size_t>(n), 0.0);
  for (int32 k = 1; k <= n; ++k) {
    if (estimated(k) == logical::no) continue;
    if (!(information(k, k) > 0.0)) return -1;
    included.push_back(k);
    unit[static_cast<std::size_t>(k - 1)] = 1.0 / std::sqrt(information(k, k));
  }
  if (included.empty()) return 0;
  const auto scale = [&](int32 i, int32 j) {
    return unit[static_cast<std::size_t>(i - 1)] * unit[static_cast<std::size_t>(j - 1)];
  };
  for (int32 j = 1; j <= n; ++j)
    for (int32 i = 1; i <= n; ++i) scaled(i, j) = information(i, j) * scale(i, j);
  if (!regular(scaled, included)) return -1;
  if (matrix_methods::symmetric_real_inverse(scaled, inverse, err, &estimated, 0.0) != 0) return -1;
  for (int32 j = 1; j <= n; ++j)
    for (int32 i = 1; i <= n; ++i) inverse(i, j) *= scale(i, j);
  return 0;
}

/// Free parameters behind the slopes of a stratum, 0-based, in the order of its regression.
std::vector<int32> slopes_of(const mlworkspace& work, const free_parameters& map, int32 g) {
  const regression& fit = work.beta.fits[static_cast<std::size_t>(g - 1)];
  std::vector<int32> free;
  std::size_t at = map.membership_at(g);
  for (const int32 c : map.slope_class)
    for (int32 j = 0; j < map.columns; ++j, ++at)
      if (!fit.absent[static_cast<std::size_t>(c - 1)]) free.push_back(map.place[at].free);
  return free;
}

/// What the flat directions of a stratum leave of the coefficients that are estimated: columns over
/// all free parameters, appended to `basis`.
void add_informed(const mlworkspace& work, const free_parameters& map, int32 g,
                  std::vector<std::vector<double>>& basis) {
  const auto at = static_cast<std::size_t>(g - 1);
  const fitted_row& row = work.beta.rows[at];
  const std::vector<int32> free = slopes_of(work, map, g);
  const array<double, 2> all = reference_of(work.beta.fits[at]);
  std::vector<int32> kept;  // places among the slopes, 1-based
  for (std::size_t q = 0; q < free.size(); ++q)
    if (map.estimated(free[q] + 1) == logical::yes) kept.push_back(static_cast<int32>(q) + 1);
  const auto n = static_cast<int32>(kept.size());
  array<double, 2> flat, reference;
  flat.allocate({n, row.flat.n[1]});
  reference.allocate({n, n});
  for (int32 i = 1; i <= n; ++i) {
    const int32 from = kept[static_cast<std::size_t>(i - 1)];
    for (int32 d = 1; d <= flat.n[1]; ++d) flat(i, d) = row.flat(from, d);
    for (int32 j = 1; j <= n; ++j)
      reference(i, j) = all(from, kept[static_cast<std::size_t>(j - 1)]);
  }
  const array<double, 2> rest = complement_of(flat, reference);
  for (int32 d = 1; d <= rest.n[1]; ++d) {
    auto& column = basis.emplace_back(static_cast<std::size_t>(map.count()), 0.0);
    for (int32 i = 1; i <= n; ++i) {
      const auto q = static_cast<std::size_t>(kept[static_cast<std::size_t>(i - 1)] - 1);
      column[static_cast<std::size_t>(free[q])] = rest(i, d);
    }
  }
}

/// Basis of the estimated parameters beside the flat directions, (free parameters, kept).
array<double, 2> informed_basis(const mlworkspace& work, const free_parameters& map) {
  std::vector<std::vector<double>> columns;
  std::vector<bool> done(static_cast<std::size_t>(map.count()), false);
  for (int32 g = 1; g <= map.nstr; ++g) {
    if (work.beta.rows[static_cast<std::size_t>(g - 1)].flat.n[1] == 0) continue;
    add_informed(work, map, g, columns);
    for (const int32 free : slopes_of(work, map, g)) done[static_cast<std::size_t>(free)] = true;
  }
  for (std::size_t k = 0; k < done.size(); ++k) {
    if (done[k] || map.estimated.flat[k] == logical::no) continue;
    columns.emplace_back(done.size(), 0.0)[k] = 1.0;
  }
  array<double, 2> basis;
  basis.allocate({map.count(), static_cast<int32>(columns.size())});
  for (std::size_t d = 0; d < columns.size(); ++d)
    std::copy(columns[d].begin(), columns[d].end(), basis.column(static_cast<int32>(d) + 1));
  return basis;
}

}  // namespace

int32 invert_information(const mlworkspace& work, const free_parameters& map,
                         const array<double, 2>& information, array<double, 2>& inverse,
                         error_type& err) {
  const bool any_flat = std::any_of(work.beta.rows.begin(), work.beta.rows.end(),
                                    [](const fitted_row& row) { return row.flat.n[1] > 0; });
  if (!any_flat) return invert_estimated(map.estimated, information, inverse, err);
  const array<double, 2> basis = informed_basis(work, map);
  array<double, 2> inner;
  array<logical, 1> all;
  all.allocate({basis.n[1]}, logical::yes);
  if (invert_estimated(all, quadratic(basis, information), inner, err) != 0) return -1;
  inverse = quadratic(transposed(basis), inner);
  return 0;
}

}  // namespace tolvenra::estimation
