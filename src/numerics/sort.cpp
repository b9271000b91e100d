#include "numerics/sort.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

namespace tolvenra::sort {
namespace {

/// Numbers ascending, NaN behind them.
bool less_number(double a, double b) { return a < b || (std::isnan(b) && !std::isnan(a)); }

template <class T, class Less>
int32 index_array(const array<T, 1>& a, array<int32, 1>& idx, std::string_view name, Less less,
                  error_type& err) {
  const routine here{name, "sort"};
  if (idx.size() != a.size())
    return fail(err, here, {text("Sort array size does not match index array size.")});
  std::iota(idx.flat.begin(), idx.flat.end(), 1);
  const auto by_key_then_position = [&](int32 i, int32 j) {
    const T x = a.flat[static_cast<std::size_t>(i - 1)],
            y = a.flat[static_cast<std::size_t>(j - 1)];
    return less(x, y) || (i < j && !less(y, x));
  };
  std::array<int32, 50> stack;
  if (!detail::quicksort<int32>(idx.flat, stack, by_key_then_position))
    return fail(err, here, {text("Stack size is too small.")});
  return 0;
}

}  // namespace

bool detail::less_without_case(std::string_view a, std::string_view b) {
  const auto folded = [](char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](char x, char y) { return folded(x) < folded(y); });
}

int32 indexx_int(const array<int32, 1>& a, array<int32, 1>& idx, error_type& err) {
  return index_array(a, idx, "indexx_int", std::less<int32>{}, err);
}

int32 indexx_dble(const array<double, 1>& a, array<int32, 1>& idx, error_type& err) {
  return index_array(a, idx, "indexx_dble", less_number, err);
}

int32 qsort_int(array<int32, 1>& a, error_type& err) {
  return detail::sort_array(a, "qsort_int", std::less<int32>{}, err);
}

int32 qsort_double(array<double, 1>& a, error_type& err) {
  return detail::sort_array(a, "qsort_double", less_number, err);
}

}  // namespace tolvenra::sort
