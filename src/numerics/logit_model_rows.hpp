/// \file logit_model_rows.hpp  The sums over rows of the multinomial regression.
#pragma once

#include "numerics/logit_model.hpp"

namespace tolvenra::logit_model {

/// Rows of a tile: its columns of x stay in the first cache while all products are formed.
inline constexpr int32 tile_rows = 128;

/// What one Newton iteration reads.
struct regression_rows {
  const array<double, 2>& x;
  const array<double, 2>& y;
  const array<double, 1>* weight;  ///< null: ones
  const array<int32, 1>& grpvar;
  int32 group;
};

/// Sums the rows of block `slot` (0-based) at work.coefficients into the arrays of that slot. Of
/// each Hessian block (k, l), k >= l, the entries on and below the block's own diagonal are
/// written. A row whose exponent or denominator is out of bounds ends the block with its code in
/// work.slot_failure.
void accumulate_rows(const regression_rows& rows, logit_mt_workspace_type& work, int32 slot);

}  // namespace tolvenra::logit_model
