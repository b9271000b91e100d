/// \file restrictions.hpp  Decoding of restriction codes and the count of estimated parameters,
/// module `estimation`.
#pragma once

#include <span>

#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "model/prob_rows.hpp"

namespace tolvenra::estimation {

/// Number of parameters that EM estimates in a family of rows: of every row, its free elements plus
/// the equality groups met in it for the first time, less one for the sum (never below 0).
int32 number_of_parameters_estimated(std::span<const int32> codes, const row_layout& rows);

}  // namespace tolvenra::estimation
