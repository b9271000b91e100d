#include "estimation/sandwich.hpp"

#include <algorithm>
#include <cmath>

#include "numerics/lower_triangular.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::estimation {
namespace {

constexpr double smallest_pivot = 1e-6;

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

}  // namespace

int32 invert_information(const free_parameters& map, const array<double, 2>& information,
                         array<double, 2>& inverse, error_type& err) {
  const int32 n = map.count();
  array<double, 2> scaled;
  scaled.allocate({n, n});
  inverse.allocate({n, n});
  std::vector<int32> included;
  std::vector<double> unit(static_cast<std::size_t>(n), 0.0);
  for (int32 k = 1; k <= n; ++k) {
    if (map.estimated(k) == logical::no) continue;
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
  if (matrix_methods::symmetric_real_inverse(scaled, inverse, err, &map.estimated, 0.0) != 0)
    return -1;
  for (int32 j = 1; j <= n; ++j)
    for (int32 i = 1; i <= n; ++i) inverse(i, j) *= scale(i, j);
  return 0;
}

}  // namespace tolvenra::estimation
