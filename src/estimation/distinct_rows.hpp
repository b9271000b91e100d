/// \file distinct_rows.hpp  The cases of a data set collapsed to their distinct rows.
///
/// Cases of the same stratum, responses and covariates have the same likelihood and the same
/// posteriors, so the E-step, the expected counts and the derivatives run over distinct rows. The
/// rows are sorted (stratum, then item by item, then covariates): results do not depend on the
/// order of the cases, and neighbours share long runs of leading responses, which the E-step uses.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"
#include "estimation/prefix_tree.hpp"
#include "estimation/status_tree.hpp"

namespace tolvenra {

/// The distinct covariate rows of each stratum; regressions run over them.
struct covariate_patterns {
  int32 count = 0;
  std::vector<int32> of_row;         ///< pattern of every distinct row, 1-based
  std::vector<int32> stratum_start;  ///< nstr + 1 offsets, as in distinct_rows
  std::vector<int32> first_case;     ///< count
  std::vector<double> weight;        ///< count: sum of frequency times weight
};

/// Immutable once built; offsets are 0-based, `row_of_case` and `first_case` are 1-based numbers.
struct distinct_rows {
  int32 nrow = 0;
  int32 ncol = 0;                      ///< response columns
  bool any_missing = false;            ///< some response is 0
  std::vector<std::uint8_t> codes8;    ///< nrow x ncol responses, row by row, when all fit 8 bits
  std::vector<std::uint16_t> codes16;  ///< the same otherwise; one of the two is empty
  std::vector<int32> shared;  ///< leading responses shared with the row before (same stratum)
  std::vector<int32> stratum_start;  ///< nstr + 1 offsets: rows of stratum g are [g-1, g)
  std::vector<int32> first_case;     ///< nrow: the row's first case
  std::vector<int32> row_of_case;    ///< nkase
  std::vector<double> cases;         ///< nrow: cases as the host gave them
  std::vector<double> freq;          ///< nrow: sum of the frequencies
  std::vector<double> weight;        ///< nrow: sum of frequency times weight
  std::vector<double> weight2;       ///< nrow: sum of frequency times squared weight
  prefix_tree tree;                  ///< over the class items; empty with status items
  status_tree statuses;              ///< over the waves of the status items; empty without
  covariate_patterns covariates;     ///< empty without covariates

  [[nodiscard]] int32 response(int32 row, int32 column) const {  ///< 1-based both
    const std::size_t at = static_cast<std::size_t>(row - 1) * static_cast<std::size_t>(ncol) +
                           static_cast<std::size_t>(column - 1);
    return codes8.empty() ? int32{codes16[at]} : int32{codes8[at]};
  }
};

/// What is collapsed; absent arrays are null. All shapes have been validated.
struct case_columns {
  const array<int32, 2>* y = nullptr;        ///< (nkase, ncol) responses, 0 missing
  const array<int32, 1>* strata = nullptr;   ///< (nkase) 1..nstr
  const array<double, 2>* cov = nullptr;     ///< (nkase, k), finite
  const array<double, 1>* freq = nullptr;    ///< (nkase) > 0
  const array<double, 1>* weight = nullptr;  ///< (nkase) > 0
  const array<int32, 1>* nrc = nullptr;      ///< categories of the class items, the first columns
  int32 nstr = 1;
  const array<int32, 1>* nrs = nullptr;  ///< categories of the status items, null without
  int32 nt = 1;
  bool status_covariates = false;  ///< some covariates are of the statuses
};

/// Collapses the cases by a radix sort, O(nkase). \throws std::bad_alloc
std::shared_ptr<const distinct_rows> collapse_cases(const case_columns& cases);

}  // namespace tolvenra
