/// \file covariate_design.hpp  What the regressions of classes, initial statuses and transitions
/// have in common, module `estimation`: designs over covariate patterns and starting values.
#pragma once

#include <span>
#include <vector>

#include "estimation/mlworkspace.hpp"
#include "estimation/regression.hpp"

namespace tolvenra::estimation {

/// First covariate pattern of a stratum (0-based) and their number.
struct pattern_range {
  int32 first, count;
};
pattern_range patterns_of(const mlworkspace& work, int32 g);

/// Covariates of a stratum's patterns behind a column of ones, centred and scaled, and the
/// patterns' weights. \param first_column  of the covariates in the data, 1-based
void fill_design(const mlworkspace& work, int32 first_pattern, int32 first_column, regression& fit);

/// Proportions of the categories that the binary form does not compare, from their probabilities.
/// \param compared  1-based; 0 for the other form, which has none: all categories share
std::vector<double> starting_shares(std::span<const double> p, int32 compared);

/// Starting coefficients against the reference: its column becomes zero, the others change by as
/// much, which leaves the probabilities as they were. Columns that are not estimated become zero.
/// \param[in,out] beta  (columns of x, categories), column-major
void refer_to_baseline(const regression& fit, double* beta);

/// Refusal of codes that a regression cannot honour. \return -1
int32 refuse_with_covariates(const routine& here, std::string_view what, error_type& err);

}  // namespace tolvenra::estimation
