/// \file covariate_scale.hpp  Covariates far from zero, or in very large or small units, are fitted
/// centred and scaled; coefficients come and go in the user's units.
///
/// The iterations stop when no coefficient moves by more than the criterion. Of a calendar date the
/// intercept, which stands for the year 0, moves by millions of the slope's steps and never rests.
/// With x = mean + spread z, a + b x = (a + b mean) + (b spread) z: the fit is the same.
#pragma once

#include <span>
#include <vector>

#include "case_data.hpp"

namespace tolvenra::cli {

struct column_scale {
  double mean = 0.0, spread = 1.0;
};

/// Of each column of numbers: mean and standard deviation over the rows where the mean is more than
/// ten standard deviations from zero or these are outside 0.01 to 100; else 0 and 1, which changes
/// no digit. Constant columns are left alone.
std::vector<column_scale> covariate_scales(const case_data& data);

/// (rows, covariates) numbers as the engine takes them.
std::vector<double> scaled_matrix(const case_data& data, std::span<const column_scale> scales);

/// Coefficients (intercept, one per scale) in the user's units for the engine, and back; `step`
/// apart.
void to_engine(std::span<const column_scale> scales, double* b, std::size_t step = 1);
void to_user(std::span<const column_scale> scales, double* b, std::size_t step = 1);

/// A covariance matrix of blocks of such coefficients, carried back. \param order  of the matrix
void covariance_to_user(std::span<const column_scale> scales, std::size_t order,
                        std::vector<double>& covariance);

/// The parts of coefficients in a direction without a maximum: an intercept at the user's zero has
/// a part in whatever the slope of a centred column has.
void direction_to_user(std::span<const column_scale> scales, double* part);

}  // namespace tolvenra::cli
