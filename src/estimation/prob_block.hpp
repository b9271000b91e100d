/// \file prob_block.hpp  A family of probability vectors in the workspace: gamma, rho, delta, tau
/// or big_rho with everything that its M-step needs.
///
/// Each family is a set of rows that sum to one along one dimension of a column-major array; what
/// is done to a row (decoding, counting, priors, the update, differences) is one routine for all.
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"
#include "estimation/row_solver.hpp"
#include "model/prob_rows.hpp"

namespace tolvenra {

template <std::size_t R>
struct prob_block {
  row_layout rows;
  array<double, R> now, old;        ///< estimates (new_, old_) in the parameter's shape
  array<int32, R> code;             ///< 0 fixed, 1 free, k >= 2 equality group k
  array<double, R> numerator;       ///< expected counts plus pseudo-counts
  bool use_prior = false;           ///< a prior was given and some of it counts
  std::vector<double> pseudo;       ///< its pseudo-counts, ess times prior, in the flat order
  std::vector<double> denominator;  ///< one per row: counts of the elements that are not fixed
  estimation::row_solver solver;    ///< the decoded restrictions
  int32 shared_rows = 0;            ///< rows that differ; the others are copies (equal strata)
  int32 n_estimated = 0;            ///< parameters that EM estimates
};

/// A family whose rows are held equal along some dimensions: one copy of them, which is solved, and
/// where every element of the family finds its own in it.
struct pooled_rows {
  std::vector<std::size_t> offset;  ///< by element of the family; empty: nothing is pooled
  row_layout rows;
  std::vector<int32> code;
  std::vector<double> now, numerator;

  [[nodiscard]] bool active() const { return !offset.empty(); }
};

}  // namespace tolvenra
