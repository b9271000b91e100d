// Degrees of freedom of the test of "missing completely at random".
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <numeric>

#include "estimation/saturated.hpp"

namespace tolvenra::estimation {
namespace {

/// The missingness patterns whose items no other one observes as well.
std::vector<int32> maximal(const mdinfo_type& mdinfo) {
  const array<int32, 2>& r = mdinfo.r;
  const auto groups = static_cast<std::size_t>(r.n[0]);
  const std::size_t words = (static_cast<std::size_t>(r.n[1]) + 63) / 64;
  std::vector<std::uint64_t> sets(groups * words, 0);
  for (std::size_t m = 0; m < groups; ++m)
    for (std::size_t j = 0; j < static_cast<std::size_t>(r.n[1]); ++j)
      if (r(static_cast<int32>(m) + 1, static_cast<int32>(j) + 1) == 1)
        sets[m * words + j / 64] |= std::uint64_t{1} << j % 64;
  const auto covers = [&](std::size_t m, std::size_t l) {
    for (std::size_t w = 0; w < words; ++w)
      if ((sets[l * words + w] & ~sets[m * words + w]) != 0) return false;
    return true;
  };
  std::vector<std::size_t> order(groups);  // only a larger set covers another
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::stable_sort(order, std::ranges::greater{},
                           [&](std::size_t m) { return mdinfo.mobs.flat[m]; });
  std::vector<std::size_t> largest;
  for (const std::size_t l : order)
    if (std::ranges::none_of(largest, [&](std::size_t m) { return covers(m, l); }))
      largest.push_back(l);
  std::vector<int32> numbers;
  for (const std::size_t m : largest) numbers.push_back(static_cast<int32>(m) + 1);
  std::ranges::sort(numbers);
  return numbers;
}

}  // namespace

double missingness_df(const mdinfo_type& mdinfo) {
  const array<int32, 2>& r = mdinfo.r;
  const std::vector<int32> sets = maximal(mdinfo);
  double free = 0.0;
  for (int32 m = 1; m <= r.n[0]; ++m) {
    if (sets.size() == 1 && m == sets[0]) continue;  // its own cells are the common ones
    double cells = 1.0;
    for (int32 j = 1; j <= r.n[1]; ++j)
      if (r(m, j) == 1) cells *= mdinfo.levs(j);
    free += cells - 1.0;
  }
  if (sets.size() == 1 || !std::isfinite(free)) return free;
  // Sets of items as cells: level 1 of an item says that the set leaves it out, every other level
  // that it is in. A set lies in what a missingness pattern observes exactly if the cell agrees
  // with a pattern that has level 1 where that one misses and any level where it observes.
  array<int32, 2> y;
  y.allocate({static_cast<int32>(sets.size()), r.n[1]});
  for (int32 s = 1; s <= y.n[0]; ++s)
    for (int32 j = 1; j <= r.n[1]; ++j) y(s, j) = 1 - r(sets[static_cast<std::size_t>(s - 1)], j);
  cell_classes classes;
  const cell_limits limits{int64{1} << 20, int64{1} << 22, int64{1} << 26, 0};
  if (!find_cell_classes(y, mdinfo.levs, limits, classes))
    return std::numeric_limits<double>::quiet_NaN();
  return free - (std::accumulate(classes.cells.begin(), classes.cells.end(), 0.0) - 1.0);
}

}  // namespace tolvenra::estimation
