// Degrees of freedom of the test of "missing completely at random".
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "estimation/saturated.hpp"

namespace tolvenra::estimation {
namespace {

/// Whether missingness pattern m observes every item that l observes.
bool covers(const array<int32, 2>& r, int32 m, int32 l) {
  for (int32 j = 1; j <= r.n[1]; ++j)
    if (r(m, j) < r(l, j)) return false;
  return true;
}

/// The missingness patterns whose items no other one observes as well.
std::vector<int32> maximal(const array<int32, 2>& r) {
  std::vector<int32> largest;
  for (int32 l = 1; l <= r.n[0]; ++l) {
    bool covered = false;
    for (int32 m = 1; m <= r.n[0] && !covered; ++m) covered = m != l && covers(r, m, l);
    if (!covered) largest.push_back(l);
  }
  return largest;
}

}  // namespace

double missingness_df(const mdinfo_type& mdinfo) {
  const array<int32, 2>& r = mdinfo.r;
  const std::vector<int32> sets = maximal(r);
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
