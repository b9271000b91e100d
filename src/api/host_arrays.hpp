/// \file host_arrays.hpp  Between the host's addresses and the engine's arrays.
///
/// The host's arrays are never used as work space: inputs are copied in before anything is
/// computed, results are copied out at the end, and a result address may be NULL (not wanted).
#pragma once

#include <algorithm>
#include <cstddef>

#include "core/array.hpp"
#include "core/types.hpp"

namespace tolvenra::api {

/// A copy of a host array of the given extents.
template <class T, std::size_t R>
array<T, R> copy_in(const T* from, const std::array<int32, R>& extents) {
  array<T, R> a;
  a.allocate(extents);
  std::copy_n(from, a.size(), a.data());
  return a;
}

template <class T, class V>
void set_cell(T* cell, const V& value) {
  if (cell) *cell = static_cast<T>(value);
}

/// A 1-byte logical: 255 is true.
inline void set_logical(std::uint8_t* cell, bool value) {
  if (cell) *cell = value ? 255 : 0;
}

template <class T, class Values>
void copy_out(const Values& values, T* to) {
  if (to) std::copy(values.begin(), values.end(), to);
}
template <class T, std::size_t R>
void copy_out(const array<T, R>& values, T* to) {
  if (to) std::copy(values.flat.begin(), values.flat.end(), to);
}

}  // namespace tolvenra::api
