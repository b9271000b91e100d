/// \file class_counts.hpp  Probabilities and expected counts of the class items in the order in
/// which the E-step reads them.
///
/// A slab of `slots * width` values per stratum. Slot 0 is the class prevalence, then for every
/// item one slot for a missing response and one per category; a slot holds one value per class,
/// padded to `width` with zeros. In the table the missing slot holds ones: a missing response
/// contributes the factor 1. In the counts slot 0 collects the class totals, the missing slot of an
/// item the class mass of the cases without a response to it.
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"

namespace tolvenra {

struct class_counts {
  int32 nc = 0;
  int32 width = 0;  ///< padded class count
  int32 slots = 0;  ///< 1 + sum of (categories + 1)
  std::vector<int32>
      item_slot;               ///< slot of the missing response of each item (0-based); last, slots
  std::vector<double> table;   ///< nstr slabs of probabilities
  std::vector<double> counts;  ///< nstr slabs of expected counts
  std::vector<double> prior;   ///< class probabilities by covariate pattern, `width` apart;
                               ///< empty unless class membership is regressed

  [[nodiscard]] std::size_t slab() const {
    return static_cast<std::size_t>(slots) * static_cast<std::size_t>(width);
  }
  /// Offset of class 1 in the slot of category r (0 missing) of item j, stratum g; all 1-based.
  [[nodiscard]] std::size_t at(int32 j, int32 r, int32 g) const {
    return static_cast<std::size_t>(g - 1) * slab() +
           static_cast<std::size_t>(item_slot[static_cast<std::size_t>(j - 1)] + r) *
               static_cast<std::size_t>(width);
  }
  /// Offset of class 1 in the prevalence slot of stratum g.
  [[nodiscard]] std::size_t prevalence(int32 g) const {
    return static_cast<std::size_t>(g - 1) * slab();
  }
};

/// Classes padded to an even number, above eight to a multiple of eight.
inline int32 padded_classes(int32 nc) { return nc <= 8 ? (nc + 1) / 2 * 2 : (nc + 7) / 8 * 8; }

}  // namespace tolvenra
