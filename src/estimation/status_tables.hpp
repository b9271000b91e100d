/// \file status_tables.hpp  Probabilities and expected counts of the latent statuses in the order
/// in which the forward-backward recursion reads them.
///
/// Vectors hold one value per status, padded to `width` with zeros. A unit is a stratum, or a
/// covariate pattern where the probabilities are regressed on covariates. Offsets are 0-based.
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"

namespace tolvenra {

struct status_tables {
  int32 nc = 1, ns = 0, nt = 1, waves = 0;
  int32 width = 0;                ///< padded status count
  int32 slots = 0;                ///< of one time: every item's missing response and its categories
  std::vector<int32> item_slot;   ///< slot of the missing response of each item; last, slots
  std::vector<double> responses;  ///< (stratum, time, class) slabs of slots vectors
  std::vector<double> emission;   ///< (class, wave) probability of the wave
  std::vector<double> delta;      ///< (unit, class)
  std::vector<double> tau;        ///< (unit, class, transition) matrices: a vector per origin,
                                  ///< then the same transposed, a vector per destination
  std::vector<double> wave_count;      ///< expected counts, as emission
  std::vector<double> response_count;  ///< as responses; the missing slot collects what was missing
  std::vector<double> delta_count, tau_count;  ///< as delta, as tau without its second halves
  bool delta_by_pattern = false, tau_by_pattern = false;

  [[nodiscard]] std::size_t vectors(int64 count) const {
    return static_cast<std::size_t>(count) * static_cast<std::size_t>(width);
  }
  [[nodiscard]] std::size_t response_at(int32 g, int32 t, int32 c) const {
    return vectors(((int64{g} * nt + t) * nc + c) * slots);
  }
  [[nodiscard]] std::size_t emission_at(int32 c, int32 wave) const {
    return vectors(int64{c} * waves + wave);
  }
  [[nodiscard]] std::size_t delta_at(int32 unit, int32 c) const {
    return vectors(int64{unit} * nc + c);
  }
  [[nodiscard]] std::size_t tau_at(int32 unit, int32 c, int32 k) const {
    return vectors(((int64{unit} * nc + c) * (nt - 1) + k) * 2 * ns);
  }
  [[nodiscard]] std::size_t tau_count_at(int32 unit, int32 c, int32 k) const {
    return vectors(((int64{unit} * nc + c) * (nt - 1) + k) * ns);
  }
};

}  // namespace tolvenra
