/// \file array.hpp  The one owning array of the engine: column-major, 1-based unless told
/// otherwise.
#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <utility>
#include <vector>

#include "core/types.hpp"

namespace tolvenra {

/// An array of rank R that owns its memory.
///
/// Elements are named by 1-based indices, as responses, classes and all indices in messages are;
/// flat offsets (`flat`) are 0-based, first index fastest. The strides and one folded origin are
/// kept so that an access costs one multiplication per further dimension.
/// Allocate through `allocate` where running out of memory may throw, or through the operations of
/// `dynamic_allocation` where it must become a report.
template <class T, std::size_t R>
struct array {
  bool allocated = false;         ///< an empty array is not an absent one
  std::array<int32, R> n{};       ///< extents, never negative
  std::array<int32, R> lower{};   ///< lower bounds, 1 unless told
  std::array<int64, R> stride{};  ///< stride[0] == 1; 0 behind an empty extent
  int64 origin = 0;               ///< minus the sum of stride * lower
  std::vector<T> flat;            ///< elements, first index fastest

  /// Replaces the array by one of the given extents, all elements `fill`. \throws std::bad_alloc
  void allocate(const std::array<int32, R>& extents, const T& fill = T{}) {
    std::array<int32, R> ones;
    ones.fill(1);
    allocate_from(ones, extents, fill);
  }

  /// The same with lower bounds; a negative extent counts as 0. \throws std::bad_alloc
  void allocate_from(const std::array<int32, R>& lower_bounds, const std::array<int32, R>& extents,
                     const T& fill = T{}) {
    release();
    const int64 total = shape(lower_bounds, extents);
    flat.assign(static_cast<std::size_t>(total), fill);
    allocated = true;
  }

  void release() { *this = array{}; }

  template <class... I>
  T& operator()(I... i) {
    static_assert(sizeof...(I) == R);
    return flat.data()[at(std::make_index_sequence<R>{}, i...)];
  }
  template <class... I>
  const T& operator()(I... i) const {
    static_assert(sizeof...(I) == R);
    return flat.data()[at(std::make_index_sequence<R>{}, i...)];
  }

  [[nodiscard]] std::size_t size() const { return flat.size(); }
  T* data() { return flat.data(); }
  const T* data() const { return flat.data(); }

  /// Start of column `j` of a matrix (all indices behind the first given).
  template <class... I>
  T* column(I... i) {
    return &(*this)(lower[0], i...);
  }
  template <class... I>
  const T* column(I... i) const {
    return &(*this)(lower[0], i...);
  }

  bool operator==(const array&) const = default;

 private:
  int64 shape(const std::array<int32, R>& lower_bounds, const std::array<int32, R>& extents) {
    const bool empty = std::any_of(extents.begin(), extents.end(), [](int32 e) { return e <= 0; });
    constexpr int64 most_of_empty = std::numeric_limits<int32>::max();
    int64 total = 1;
    origin = 0;
    for (std::size_t k = 0; k < R; ++k) {
      n[k] = extents[k] > 0 ? extents[k] : 0;
      lower[k] = lower_bounds[k];
      stride[k] = total;
      origin -= total * lower[k];
      total *= n[k];  // of an empty array the extents before the empty one may be beyond a product
      if (empty && total > most_of_empty) total = 0;
    }
    return empty ? 0 : total;
  }

  template <std::size_t... K, class... I>
  [[nodiscard]] std::size_t at(std::index_sequence<K...>, I... i) const {
    assert(((i >= lower[K] && i < lower[K] + n[K]) && ...));
    return static_cast<std::size_t>(origin + ((stride[K] * static_cast<int64>(i)) + ...));
  }
};

/// A vector of the given elements, for braced lists in calls and tests.
template <class T>
array<T, 1> vector_of(std::initializer_list<T> values) {
  array<T, 1> a;
  a.allocate({static_cast<int32>(values.size())});
  std::copy(values.begin(), values.end(), a.flat.begin());
  return a;
}

}  // namespace tolvenra
