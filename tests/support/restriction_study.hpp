/// \file restriction_study.hpp  The update of rows under random fixed values and equality groups,
/// judged by a linear program in exact fractions and by the dual function of the maximum.
#pragma once

#include <string>

namespace tolvenra::test {

struct restriction_study {
  int patterns = 0, possible = 0;
  int with_zeros = 0;   ///< patterns whose sums force elements that are not fixed to zero
  int with_pinned = 0;  ///< or determine others
  int refused_wrongly = 0, accepted_wrongly = 0;
  int miscounted = 0;        ///< another number of free parameters than terms less independent sums
  int updates = 0;           ///< with counts that determine the values
  int outcome_wrong = 0;     ///< updates that failed, or did not where counts are missing
  int broken = 0;            ///< updates with negative or unequal values, or other fixed ones
  double worst_sum = 0.0;    ///< of rows, from 1
  double worst_known = 0.0;  ///< of determined values, from their fraction
  /// How far the maximum can lie above the values: duality gap, relative to the total count.
  double worst_gap = 0.0;
  double worst_stationarity = 0.0;  ///< of value times multiplier less count, on the same scale
  std::string first_fault;

  [[nodiscard]] bool good() const;
};

/// Three updates of every feasible pattern, each with other counts, half of them zero.
restriction_study study_restrictions(int patterns, unsigned seed);

}  // namespace tolvenra::test
