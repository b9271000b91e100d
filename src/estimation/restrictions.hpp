/// \file restrictions.hpp  Decoding of restriction codes and the count of estimated parameters,
/// module `estimation`.
///
/// Codes: 0 fixed at the starting value, 1 free, k >= 2 member of equality group k.
#pragma once

#include <span>

#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "estimation/mlworkspace.hpp"
#include "model/prob_rows.hpp"

namespace tolvenra::estimation {

/// Validate the codes of one family and decode them into its solver: an equality number used once,
/// rows without anything to estimate, groups whose sums cannot be met and, for rho and big_rho held
/// equal across strata, times or classes, codes or fixed values that differ between these are
/// refused. \return 0 or -1
int32 get_info_from_gamma_restriction(mlworkspace& work, error_type& err);
int32 get_info_from_rho_restriction(mlworkspace& work, error_type& err);
int32 get_info_from_delta_restriction(mlworkspace& work, error_type& err);
int32 get_info_from_tau_restriction(mlworkspace& work, error_type& err);
int32 get_info_from_big_rho_restriction(mlworkspace& work, error_type& err);

/// Number of parameters that EM estimates in a family of rows: of every row, its free elements plus
/// the equality groups met in it for the first time, less one for the sum (never below 0).
int32 number_of_parameters_estimated(std::span<const int32> codes, const row_layout& rows);

}  // namespace tolvenra::estimation
