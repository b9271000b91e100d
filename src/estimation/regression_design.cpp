// Designs, outcomes and coefficients of the regressions.
#include <algorithm>
#include <cmath>

#include "estimation/regression.hpp"
#include "numerics/lower_triangular.hpp"

namespace tolvenra::estimation {
namespace {

/// Rounding of a column's mean leaves a constant column this far from constant.
constexpr double constant_column = 1e-12;
/// Smallest element of a stabilising prior, times the number of categories.
constexpr double least_prior = 0.01;

std::size_t at(int32 i) { return static_cast<std::size_t>(i); }

fitted_categories categories_of(const regression& fit) {
  fitted_categories all;
  if (fit.binary > 0) {  // the compared category against the rest
    all.of = {fit.binary, 0};
    all.baseline = 2;
    return all;
  }
  for (int32 c = 1; c <= fit.y.n[1]; ++c) {
    if (fit.absent[at(c - 1)]) continue;
    all.of.push_back(c);
    if (c == fit.baseline) all.baseline = all.count();
  }
  return all;
}

double row_total(const array<double, 2>& y, int32 u) {
  double total = 0.0;
  for (int32 c = 1; c <= y.n[1]; ++c) total += y(u, c);
  return total;
}

}  // namespace

void size_regression(int32 n, int32 p, int32 r, regression& fit) {
  fit.x.allocate({n, p});
  fit.y.allocate({n, r});
  fit.weight.allocate({n});
  fit.mask.allocate({n});
  fit.absent.assign(at(r), false);
}

void scale_design(regression& fit) {
  const int32 n = fit.x.n[0];
  const int32 p = fit.x.n[1];
  fit.total_weight = 0.0;
  for (const double w : fit.weight.flat) fit.total_weight += w;
  fit.mean.assign(at(p), 0.0);
  fit.scale.assign(at(p), 1.0);
  fit.reach.assign(at(p), 0.0);
  const auto largest_of = [&](int32 j) {
    double most = 0.0;
    for (int32 u = 1; u <= n; ++u) most = std::max(most, std::abs(fit.x(u, j)));
    return most;
  };
  for (int32 j = 1; j <= p; ++j) {
    const double largest = largest_of(j);
    double mean = 0.0;
    double squares = 0.0;
    for (int32 u = 1; u <= n; ++u) mean += fit.weight(u) * fit.x(u, j) / fit.total_weight;
    for (int32 u = 1; u <= n; ++u) {
      const double apart = fit.x(u, j) - mean;
      squares += fit.weight(u) * apart * apart / fit.total_weight;
    }
    // A constant column repeats the intercept; scaling would make a covariate of its rounding.
    if (j > 1 && std::sqrt(squares) > constant_column * largest) {
      fit.mean[at(j - 1)] = mean;
      fit.scale[at(j - 1)] = std::sqrt(squares);
    }
    for (int32 u = 1; u <= n; ++u)
      fit.x(u, j) = (fit.x(u, j) - fit.mean[at(j - 1)]) / fit.scale[at(j - 1)];
    fit.reach[at(j - 1)] = largest_of(j);
  }
  fit.moments.allocate({p, p});
  for (int32 j = 1; j <= p; ++j)
    for (int32 i = 1; i <= p; ++i)
      for (int32 u = 1; u <= n; ++u)
        fit.moments(i, j) += fit.weight(u) * fit.x(u, i) * fit.x(u, j) / fit.total_weight;
  std::vector<double> factor = fit.moments.flat;
  fit.aliased = !lower_triangular::factor(factor.data(), at(p)) ||
                !lower_triangular::is_regular(factor.data(), at(p));
}

void to_scaled(const regression& fit, const double* beta, double* scaled) {
  scaled[0] = beta[0];
  for (std::size_t j = 1; j < fit.mean.size(); ++j) {
    scaled[0] += fit.mean[j] * beta[j];
    scaled[j] = fit.scale[j] * beta[j];
  }
}

void to_user(const regression& fit, const double* scaled, double* beta) {
  beta[0] = scaled[0];
  for (std::size_t j = 1; j < fit.mean.size(); ++j) {
    beta[j] = scaled[j] / fit.scale[j];
    beta[0] -= fit.mean[j] * beta[j];
  }
}

std::vector<double> compute_stabilizing_prior(std::vector<double> prior,
                                              const std::vector<bool>& absent) {
  const auto present = static_cast<double>(std::count(absent.begin(), absent.end(), false));
  const auto complete = [&] {
    double sum = 0.0;
    for (std::size_t c = 0; c < prior.size(); ++c) sum += absent[c] ? 0.0 : prior[c];
    return sum;
  };
  const double least = least_prior / present;
  const auto small = [&](std::size_t c) { return absent[c] || !(prior[c] >= least); };
  bool any_small = false;
  for (std::size_t c = 0; c < prior.size(); ++c) any_small = any_small || small(c);
  if (!any_small) return prior;
  const double mass = complete();
  for (std::size_t c = 0; c < prior.size(); ++c) {
    prior[c] = absent[c] ? 0.0 : (mass > 0.0 ? prior[c] / mass : 0.0);
    if (!absent[c] && !(prior[c] >= least)) prior[c] = least;
  }
  const double sum = complete();
  for (double& share : prior) share /= sum;
  return prior;
}

bool load_outcome(regression& fit) {
  fit.fitted = categories_of(fit);
  const int32 n = fit.x.n[0];
  const int32 r = fit.fitted.count();
  if (fit.outcome.n != std::array<int32, 2>{n, r}) fit.outcome.allocate({n, r});
  const double worth = fit.prior.empty() ? 0.0 : fit.prior_ess / fit.total_weight;
  for (int32 k = 1; k <= r; ++k) {
    const int32 c = fit.fitted.of[at(k - 1)];
    double share = 0.0;
    if (worth > 0.0) share = c > 0 ? fit.prior[at(c - 1)] : 1.0 - fit.prior[at(fit.binary - 1)];
    for (int32 u = 1; u <= n; ++u) {
      const double observed = c > 0 ? fit.y(u, c) : row_total(fit.y, u) - fit.y(u, fit.binary);
      fit.outcome(u, k) = std::max(observed, 0.0) + worth * fit.weight(u) * share;
    }
  }
  bool any = false;
  for (int32 u = 1; u <= n; ++u) {
    fit.mask(u) = row_total(fit.outcome, u) > 0.0 ? 1 : 0;
    any = any || fit.mask(u) == 1;
  }
  return any;
}

void load_coefficients(regression& fit, const double* beta) {
  const int32 p = fit.x.n[1];
  const int32 r = fit.fitted.count();
  fit.coefficients.allocate({p, r});
  for (int32 k = 1; k <= r; ++k)
    if (k != fit.fitted.baseline)
      to_scaled(fit, beta + (fit.fitted.of[at(k - 1)] - 1) * p, fit.coefficients.column(k));
}

int32 predict(const regression& fit, const double* beta, const std::vector<double>& shares,
              double* p, int32 step, std::string_view name, const routine& here, error_type& err,
              double limit) {
  const int32 r = fit.y.n[1];
  const int32 columns = fit.x.n[1];
  std::vector<double> scaled(at(r * columns), 0.0);
  for (int32 c = 0; c < r; ++c) to_scaled(fit, beta + c * columns, &scaled[at(c * columns)]);
  for (int32 u = 1; u <= fit.x.n[0]; ++u, p += step) {
    double most = 0.0;  // the reference's predictor
    for (int32 c = 1; c <= r; ++c) {
      p[c - 1] = 0.0;
      const bool reference = fit.binary > 0 ? c != fit.binary : c == fit.baseline;
      if (reference || fit.absent[at(c - 1)]) continue;
      for (int32 j = 1; j <= columns; ++j)
        p[c - 1] += fit.x(u, j) * scaled[at((c - 1) * columns + j - 1)];
      if (!(p[c - 1] <= limit))
        return fail(err, here, error_code::exp_too_large, {text("exp for ", name)});
      most = std::max(most, p[c - 1]);
    }
    // The maximum is taken out after the check: exponentials near the limit would overflow.
    double denominator = std::exp(-most);
    for (int32 c = 1; c <= r; ++c) {
      const bool reference = fit.binary > 0 ? c != fit.binary : c == fit.baseline;
      if (reference || fit.absent[at(c - 1)]) continue;
      p[c - 1] = std::exp(p[c - 1] - most);
      denominator += p[c - 1];
    }
    if (!(denominator >= smallest_normal))
      return fail(err, here, error_code::division_by_zero, {text("denom for ", name)});
    const double rest = std::exp(-most) / denominator;
    for (int32 c = 1; c <= r; ++c) {
      if (fit.binary > 0)
        p[c - 1] = c == fit.binary ? p[c - 1] / denominator : rest * shares[at(c - 1)];
      else
        p[c - 1] = c == fit.baseline ? rest : p[c - 1] / denominator;
    }
  }
  return 0;
}

int32 regression_parameters(const regression& fit) {
  const int32 absent = static_cast<int32>(std::count(fit.absent.begin(), fit.absent.end(), true));
  const int32 categories = fit.y.n[1] - absent;
  return fit.binary > 0 ? fit.x.n[1] + categories - 2 : fit.x.n[1] * (categories - 1);
}

}  // namespace tolvenra::estimation
