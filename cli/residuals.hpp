/// \file residuals.hpp  Bivariate residuals: what the classes leave of the association of two
/// items.
#pragma once

#include <string>
#include <vector>

#include "lca_run.hpp"

namespace tolvenra::cli {

/// The two-way table of one pair of items over the cases that answered both.
struct pair_residual {
  std::size_t first = 0, second = 0;       ///< items from 0, first < second
  std::vector<double> observed, expected;  ///< [category of first][category of second], flat
  double cases = 0.0;                      ///< weighted
  double X2 = 0.0;                         ///< sum of (observed - expected)^2 / expected
  double df = 0.0;                         ///< (categories - 1)(categories - 1)
};

/// All pairs, in item order. Expected: cases of a group that answered both items, times
/// sum over classes of share * probability * probability, summed over the groups. With covariates
/// the shares are averages over the cases. X2 is not distributed as
/// chi-square: the parameters were estimated from the whole table (Maydeu-Olivares & Joe 2005, JASA
/// 100, 1009-1020).
std::vector<pair_residual> bivariate_residuals(const lca_data& data, std::int32_t classes,
                                               const lca_fit& fit);

/// The section of the report: X2 of every pair, the largest X2 / df first, then the tables.
std::string residual_section(const lca_data& data, const std::vector<pair_residual>& residuals);

}  // namespace tolvenra::cli
