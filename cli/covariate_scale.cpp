#include "covariate_scale.hpp"

#include <cmath>

namespace tolvenra::cli {
namespace {

constexpr double far_from_zero = 10.0;  ///< standard deviations
constexpr double least_spread = 0.01, largest_spread = 100.0;

column_scale scale_of(const std::vector<double>& values) {
  const auto n = static_cast<double>(values.size());
  double mean = 0.0;
  double squares = 0.0;
  for (const double value : values) mean += value / n;
  for (const double value : values) squares += (value - mean) * (value - mean) / n;
  const double spread = std::sqrt(squares);
  const bool constant = !(spread > 1e-12 * std::abs(mean));
  const bool ordinary = std::abs(mean) <= far_from_zero * spread && spread >= least_spread &&
                        spread <= largest_spread;
  return constant || ordinary ? column_scale{} : column_scale{mean, spread};
}

}  // namespace

std::vector<column_scale> covariate_scales(const case_data& data) {
  std::vector<column_scale> scales;
  for (const covariate& column : data.covariates) scales.push_back(scale_of(column.value));
  return scales;
}

std::vector<double> scaled_matrix(const case_data& data, std::span<const column_scale> scales) {
  std::vector<double> matrix;
  for (std::size_t v = 0; v < scales.size(); ++v)
    for (const double value : data.covariates[v].value)
      matrix.push_back((value - scales[v].mean) / scales[v].spread);
  return matrix;
}

void to_engine(std::span<const column_scale> scales, double* b, std::size_t step) {
  for (std::size_t v = 0; v < scales.size(); ++v) {
    double& slope = b[(v + 1) * step];
    b[0] += scales[v].mean * slope;
    slope *= scales[v].spread;
  }
}

void to_user(std::span<const column_scale> scales, double* b, std::size_t step) {
  for (std::size_t v = 0; v < scales.size(); ++v) {
    double& slope = b[(v + 1) * step];
    slope /= scales[v].spread;
    b[0] -= scales[v].mean * slope;
  }
}

void covariance_to_user(std::span<const column_scale> scales, std::size_t order,
                        std::vector<double>& covariance) {
  const std::size_t block = scales.size() + 1;
  for (std::size_t line = 0; line < order; ++line)
    for (std::size_t first = 0; first < order; first += block) {
      to_user(scales, &covariance[first + line * order]);
    }
  for (std::size_t line = 0; line < order; ++line)
    for (std::size_t first = 0; first < order; first += block)
      to_user(scales, &covariance[line + first * order], order);
}

void direction_to_user(std::span<const column_scale> scales, double* part) {
  for (std::size_t v = 0; v < scales.size(); ++v)
    if (scales[v].mean != 0.0) part[0] += part[v + 1];
}

}  // namespace tolvenra::cli
