/// \file sort.hpp  Sorting in place and by index, module `sort`.
///
/// Quicksorts (Hoare 1962, Computer J. 5, 10-16; median of three) that keep pending ranges on an
/// explicit stack, the larger part always stacked. All orders are total and ascending: NaN comes
/// behind every number, and index vectors name equal elements in ascending index, so that equal
/// inputs give equal outputs. Each routine returns 0, or -1 with its report.
#pragma once

#include <array>
#include <new>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra::sort {

/// idx(k) becomes the 1-based position in `a` of the k-th smallest element.
/// \param idx  allocated by the caller with the length of `a`
int32 indexx_int(const array<int32, 1>& a, array<int32, 1>& idx, error_type& err);
int32 indexx_dble(const array<double, 1>& a, array<int32, 1>& idx, error_type& err);

int32 qsort_int(array<int32, 1>& a, error_type& err);
int32 qsort_double(array<double, 1>& a, error_type& err);
/// Letters compare without regard to case, other characters by their codes.
template <std::size_t N>
int32 qsort_strings(array<std::array<char, N>, 1>& a, error_type& err);

namespace detail {

/// Ranges of fewer elements are finished by insertion: a stack of 2 * (n div 7) entries is
/// empty for n < 7 and must suffice all the same.
inline constexpr int32 short_range = 8;

template <class T, class Less>
void insertion_sort(std::span<T> v, Less less) {
  for (std::size_t i = 1; i < v.size(); ++i) {
    T moving = v[i];
    std::size_t k = i;
    for (; k > 0 && less(moving, v[k - 1]); --k) v[k] = v[k - 1];
    v[k] = moving;
  }
}

/// Partitions v[first..last] about the median of three elements; `first` and `last` become the
/// bounds of the gap: left part ..last, right part first.. . The scans stop at equal elements,
/// and the outer elements are sentinels, so neither scan can leave the range.
template <class T, class Less>
std::pair<int32, int32> partition(std::span<T> v, int32 first, int32 last, Less less) {
  const auto at = [&](int32 i) -> T& { return v[static_cast<std::size_t>(i)]; };
  const int32 middle = first + (last - first) / 2;
  if (less(at(middle), at(first))) std::swap(at(middle), at(first));
  if (less(at(last), at(middle))) {
    std::swap(at(last), at(middle));
    if (less(at(middle), at(first))) std::swap(at(middle), at(first));
  }
  const T pivot = at(middle);
  int32 up = first, down = last;
  while (up <= down) {
    while (less(at(up), pivot)) ++up;
    while (less(pivot, at(down))) --down;
    if (up <= down) std::swap(at(up++), at(down--));
  }
  return {down, up};
}

/// Sorts by the strict weak order `less`. \return false when the stack would overflow, with the
/// elements partly sorted
template <class T, class Less>
[[nodiscard]] bool quicksort(std::span<T> v, std::span<int32> stack, Less less) {
  std::size_t top = 0;
  int32 first = 0, last = static_cast<int32>(v.size()) - 1;
  for (;;) {
    const auto length = static_cast<std::size_t>(last - first) + 1;
    if (last - first < short_range - 1) {
      if (last > first)
        insertion_sort(v.first(static_cast<std::size_t>(last) + 1).last(length), less);
      if (top == 0) return true;
      last = stack[--top];
      first = stack[--top];
      continue;
    }
    const auto [left_end, right_start] = partition(v, first, last, less);
    if (top + 2 > stack.size()) return false;
    const bool left_is_larger = left_end - first > last - right_start;
    stack[top++] = left_is_larger ? first : right_start;
    stack[top++] = left_is_larger ? left_end : last;
    (left_is_larger ? first : last) = left_is_larger ? right_start : left_end;
  }
}

/// A quicksort of a whole array with a stack sized from its length, reporting as `name`.
template <class T, class Less>
int32 sort_array(array<T, 1>& a, std::string_view name, Less less, error_type& err) {
  const routine here{name, "sort"};
  std::vector<int32> stack;
  try {
    stack.resize(2 * (a.size() / 7));
  } catch (const std::bad_alloc&) {
    return fail(err, here, {text("Unable to allocate sort stack.")});
  }
  if (!quicksort<T>(a.flat, stack, less))
    return fail(err, here, {text("Could not sort: Stack size is too small")});
  return 0;
}

bool less_without_case(std::string_view a, std::string_view b);

}  // namespace detail

template <std::size_t N>
int32 qsort_strings(array<std::array<char, N>, 1>& a, error_type& err) {
  const auto less = [](const std::array<char, N>& x, const std::array<char, N>& y) {
    return detail::less_without_case({x.data(), N}, {y.data(), N});
  };
  return detail::sort_array(a, "qsort_strings", less, err);
}

}  // namespace tolvenra::sort
