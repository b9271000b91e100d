#include "estimation/response_patterns.hpp"

#include "core/dynamic_allocation.hpp"
#include "numerics/sort.hpp"

namespace tolvenra::estimation {
namespace {

using namespace dynamic_allocation;

constexpr routine here{"aggregate_items", "estimation"};

/// Integers up to this one are exact in a key.
constexpr double largest_key = 9007199254740992.0;

int32 refuse_sort(error_type& err) {
  return fail(err, here,
              {text("Could not sort y_sort during"), text("data aggregation operation.")});
}

/// Replaces keys by their ranks from 0. \return how many distinct keys there are, 0 for a failure
int32 replace_by_ranks(array<double, 1>& keys, array<int32, 1>& y_index, error_type& err) {
  if (sort::indexx_dble(keys, y_index, err) != 0) return 0;
  int32 rank = -1;
  double last = -1.0;
  for (const int32 i : y_index.flat) {
    if (keys(i) != last) ++rank;
    last = keys(i);
    keys(i) = rank;
  }
  return rank + 1;
}

}  // namespace

int32 response_levels(const mlworkspace& work, array<int32, 1>& levs, error_type& err) {
  const case_data& data = work.data;
  if (int1_alloc(levs, data.nci + data.ni * data.nt, err) != 0) return -1;
  for (int32 j = 1; j <= data.nci; ++j) levs(j) = data.nrc(j);
  for (int32 t = 0; t < data.nt; ++t)
    for (int32 i = 1; i <= data.ni; ++i) levs(data.nci + t * data.ni + i) = data.nrs(i);
  return 0;
}

int32 sort_by_key(int32 n, const code_of& code, const array<int32, 1>& range,
                  array<int32, 1>& y_index, array<double, 1>& y_sort, error_type& err) {
  array<double, 1> place_val;
  if (dbl1_alloc(place_val, range.n[0], err, {}, "aggregate_items: place_val") != 0 ||
      int1_alloc(y_index, n, err, {}, "aggregate_items: y_index") != 0 ||
      dbl1_alloc(y_sort, n, err, {}, "aggregate_items: y_sort") != 0)
    return pass_on(err, here);
  double place = 1.0;
  for (int32 j = 1; j <= range.n[0]; ++j) {
    if (place * range(j) > largest_key) {
      place = replace_by_ranks(y_sort, y_index, err);
      if (place < 1.0) return refuse_sort(err);
    }
    place_val(j) = place;
    for (int32 i = 1; i <= n; ++i) y_sort(i) += place_val(j) * code(i, j);
    place *= range(j);
  }
  array<double, 1> keys = y_sort;
  if (sort::indexx_dble(keys, y_index, err) != 0) return refuse_sort(err);
  for (int32 i = 1; i <= n; ++i) y_sort(i) = keys(y_index(i));
  return 0;
}

int32 aggregate_items(const distinct_rows& rows, const array<int32, 1>& y,
                      const array<double, 1>& w, const array<int32, 1>& levs,
                      array<int32, 1>& obspat, array<double, 1>& counts, error_type& err) {
  const int32 n = y.n[0];
  array<int32, 1> range = levs;
  for (int32& levels : range.flat) ++levels;  // 0 is a code, too
  array<int32, 1> y_index;
  array<double, 1> y_sort;
  const auto code = [&](int32 i, int32 j) { return rows.response(y(i), j); };
  if (sort_by_key(n, code, range, y_index, y_sort, err) != 0) return -1;
  int32 npatt = 0;
  for (int32 i = 1; i <= n; ++i) npatt += i == 1 || y_sort(i) != y_sort(i - 1) ? 1 : 0;
  if (int1_alloc(obspat, npatt, err, {}, "aggregate_items: obspat") != 0 ||
      dbl1_alloc(counts, npatt, err, {}, "aggregate_items: counts") != 0)
    return pass_on(err, here);
  int32 p = 0;
  for (int32 i = 1; i <= n; ++i) {
    if (i == 1 || y_sort(i) != y_sort(i - 1)) obspat(++p) = y(y_index(i));
    counts(p) += w(y_index(i));
  }
  return 0;
}

int32 aggregate_stratum(const mlworkspace& work, int32 stratum, stratum_patterns& patterns,
                        error_type& err) {
  const distinct_rows& rows = *work.rows;
  const int32 before = rows.stratum_start[static_cast<std::size_t>(stratum - 1)];
  const int32 n = rows.stratum_start[static_cast<std::size_t>(stratum)] - before;
  array<int32, 1> levs;
  array<int32, 1> y_tmp;
  array<double, 1> w_tmp;
  if (response_levels(work, levs, err) != 0 ||
      int1_alloc(y_tmp, n, err, {}, "run_compute_fit_stats: y_tmp") != 0 ||
      dbl1_alloc(w_tmp, n, err, {}, "run_compute_fit_stats: w_tmp") != 0 ||
      int1_alloc(patterns.row, n, err, {}, "run_compute_fit_stats: obspat") != 0 ||
      dbl1_alloc(patterns.count, n, err, {}, "run_compute_fit_stats: counts") != 0)
    return -1;
  for (int32 i = 1; i <= n; ++i) {
    y_tmp(i) = before + i;
    w_tmp(i) = rows.weight[static_cast<std::size_t>(before + i - 1)];
  }
  return aggregate_items(rows, y_tmp, w_tmp, levs, patterns.row, patterns.count, err);
}

}  // namespace tolvenra::estimation
