/// \file label_exchange.hpp  Whether latent classes or statuses may exchange their numbers.
///
/// The likelihood of a mixture does not change when its classes are renumbered, unless restrictions
/// tell them apart: fixed elements with other values, or codes in another pattern.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <unordered_map>

#include "core/array.hpp"
#include "core/types.hpp"
#include "model/prob_rows.hpp"

namespace tolvenra {

/// Offset that an element has after labels k and k + 1 of the given dimensions (from 0) were
/// exchanged.
template <std::size_t R>
std::size_t exchanged_offset(const std::array<int32, R>& extents, std::size_t at,
                             std::initializer_list<std::size_t> dimensions, int32 k) {
  auto index = indices_at(extents, static_cast<int64>(at));
  for (const std::size_t d : dimensions)
    if (index[d] == k || index[d] == k + 1) index[d] = 2 * k + 1 - index[d];
  int64 offset = 0;
  for (std::size_t d = R; d-- > 0;) offset = offset * extents[d] + index[d] - 1;
  return static_cast<std::size_t>(offset);
}

/// Whether neighbouring labels may be exchanged in all of a family without a trace: fixed elements
/// keep their values, equality groups go over into each other.
/// \param same  bool(offset, offset after the exchange) of whatever else must agree
/// \throws std::bad_alloc
template <std::size_t R, class Same>
bool labels_exchangeable(const array<int32, R>& code, const array<double, R>& value,
                         std::initializer_list<std::size_t> dimensions, Same&& same) {
  for (int32 k = 1; k < code.n[*dimensions.begin()]; ++k) {
    std::unordered_map<int32, int32> image;
    for (std::size_t at = 0; at < code.size(); ++at) {
      const std::size_t to = exchanged_offset(code.n, at, dimensions, k);
      const int32 own = code.flat[at];
      const int32 other = code.flat[to];
      if (own < 2 || other < 2 ? own != other
                               : image.try_emplace(own, other).first->second != other)
        return false;
      if (own == 0 && value.flat[at] != value.flat[to]) return false;
      if (!same(at, to)) return false;
    }
  }
  return true;
}

/// The same where nothing else must agree.
template <std::size_t R>
bool labels_exchangeable(const array<int32, R>& code, const array<double, R>& value,
                         std::initializer_list<std::size_t> dimensions) {
  const bool restricted =
      std::any_of(code.flat.begin(), code.flat.end(), [](int32 k) { return k != 1; });
  return !restricted || labels_exchangeable(code, value, dimensions,
                                            [](std::size_t, std::size_t) { return true; });
}

}  // namespace tolvenra
