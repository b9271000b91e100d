#include "estimation/regression_surface.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/parallel.hpp"

namespace tolvenra::estimation {
namespace {

std::size_t at(int32 i) { return static_cast<std::size_t>(i); }

/// Rows of a pass that are worth a thread of their own.
int32 team(int32 rows, std::size_t width, int32 threads) {
  const double products = static_cast<double>(rows) * static_cast<double>(width);
  return std::min(threads, static_cast<int32>(1.0 + std::min(products / 2e4, 1000.0)));
}

}  // namespace

regression_surface::regression_surface(regression& fit, int32 threads)
    : fit_(fit),
      threads_(threads),
      columns_(fit.x.n[1]),
      categories_(fit.fitted.count()),
      order_(columns_ * (categories_ - 1)) {}

/// Calls row(u, pattern, part) for every pattern that takes part; the sums of the parts end in
/// fit.sums.
template <class Row>
void regression_surface::sum_rows(const array<double, 2>& beta, std::size_t width, Row&& row) {
  const int32 n = fit_.x.n[0];
  const int32 r = categories_;
  const int32 blocks = parallel::blocks_for(n, width + 2 * at(r));
  fit_.sums.assign(width, 0.0);
  fit_.scratch.resize((width + 2 * at(r)) * at(blocks));
  parallel::for_blocks(blocks, team(n, width, threads_), [&](int32 b) {
    double* part = &fit_.scratch[(width + 2 * at(r)) * at(b)];
    double* eta = part + width;
    double* p = eta + r;
    std::fill_n(part, width, 0.0);
    const parallel::row_range rows = parallel::rows_of_block(n, b, blocks);
    for (int32 u = rows.first; u <= rows.last; ++u) {
      if (fit_.mask(u) == 0) continue;
      fitted_pattern now{eta, p, 0.0, 0.0};
      for (int32 k = 1; k <= r; ++k) {
        eta[k - 1] = 0.0;
        for (int32 j = 1; j <= columns_; ++j) eta[k - 1] += fit_.x(u, j) * beta(j, k);
        now.total += fit_.outcome(u, k);
      }
      const double most = *std::max_element(eta, eta + r);
      double scale = 0.0;
      for (int32 k = 0; k < r; ++k) scale += p[k] = std::exp(eta[k] -= most);
      for (int32 k = 0; k < r; ++k) p[k] /= scale;
      now.log_scale = std::log(scale);
      row(u, now, part);
    }
  });
  for (int32 b = 0; b < blocks; ++b)
    for (std::size_t q = 0; q < width; ++q)
      fit_.sums[q] += fit_.scratch[(width + 2 * at(r)) * at(b) + q];
}

double regression_surface::loglik_of(int32 u, const fitted_pattern& now) const {
  double sum = 0.0;
  for (int32 k = 1; k <= categories_; ++k)
    if (fit_.outcome(u, k) > 0.0)
      sum += fit_.outcome(u, k) * (now.predictor[k - 1] - now.log_scale);
  return sum;
}

double regression_surface::objective(const array<double, 2>& beta) {
  sum_rows(beta, 1,
           [&](int32 u, const fitted_pattern& now, double* part) { part[0] += loglik_of(u, now); });
  return fit_.sums[0];
}

void regression_surface::expand(const array<double, 2>& beta) {
  const auto K = at(order_);
  const auto p = at(columns_);
  // Sums of the others instead of differences to 1 keep their digits where a category is certain.
  const auto but = [&](int32 k, auto&& value_of) {
    double sum = 0.0;
    for (int32 l = 1; l <= categories_; ++l) sum += l == k ? 0.0 : value_of(l);
    return sum;
  };
  const auto add_row = [&](int32 u, const fitted_pattern& now, double* part) {
    part[0] += loglik_of(u, now);
    double* slope = part + 1;
    double* size = slope + K;
    double* info = size + K;
    const auto fitted = [&](int32 k) { return now.probability[k - 1]; };
    for (std::size_t a = 0; a < K; a += p) {
      const int32 k = category(static_cast<int32>(a));
      const double missed = but(k, fitted);
      const double more = fit_.outcome(u, k) * missed;
      const double less = fitted(k) * but(k, [&](int32 l) { return fit_.outcome(u, l); });
      for (std::size_t j = 0; j < p; ++j) {
        const double x = fit_.x(u, static_cast<int32>(j) + 1);
        slope[a + j] += (more - less) * x;
        size[a + j] += (more + less) * std::abs(x);
      }
      for (std::size_t b = 0; b <= a; b += p) {
        const int32 l = category(static_cast<int32>(b));
        const double w = now.total * fitted(k) * (k == l ? missed : -fitted(l));
        for (std::size_t h = 0; h < p; ++h) {
          const double wx = w * fit_.x(u, static_cast<int32>(h) + 1);
          for (std::size_t j = 0; j < p; ++j)
            info[a + j + (b + h) * K] += wx * fit_.x(u, static_cast<int32>(j) + 1);
        }
      }
    }
  };
  sum_rows(beta, 1 + 2 * K + K * K, add_row);
  value = fit_.sums[0];
  score.assign(fit_.sums.begin() + 1, fit_.sums.begin() + 1 + order_);
  score_size.assign(fit_.sums.begin() + 1 + order_, fit_.sums.begin() + 1 + 2 * order_);
  if (information.n != std::array<int32, 2>{order_, order_}) information.allocate({order_, order_});
  const double* info = &fit_.sums[1 + 2 * K];
  for (std::size_t j = 0; j < K; ++j)
    for (std::size_t i = 0; i < K; ++i) {
      const bool summed = i / p >= j / p;  // blocks below the diagonal
      information.flat[i + j * K] = summed ? info[i + j * K] : info[j + i * K];
    }
}

double regression_surface::slope(const double* direction) const {
  double sum = 0.0;
  double noise = 0.0;
  for (std::size_t q = 0; q < score.size(); ++q) {
    sum += direction[q] * score[q];
    noise += std::abs(direction[q]) * score_size[q];
  }
  return std::abs(sum) <= 8.0 * std::numeric_limits<double>::epsilon() * noise ? 0.0 : sum;
}

double regression_surface::third_moment(const array<double, 2>& beta, const double* direction) {
  std::vector<double> of(at(categories_) * at(columns_), 0.0);
  for (int32 q = 0; q < order_; ++q)
    of[at(category(q) - 1) * at(columns_) + at(column(q) - 1)] = direction[q];
  const auto add_row = [&](int32 u, const fitted_pattern& now, double* part) {
    const double* fitted = now.probability;
    const auto change = [&](int32 k) {
      double a = 0.0;
      for (int32 j = 1; j <= columns_; ++j)
        a += fit_.x(u, j) * of[at(k - 1) * at(columns_) + at(j - 1)];
      return a;
    };
    double mean = 0.0;
    for (int32 k = 1; k <= categories_; ++k) mean += fitted[k - 1] * change(k);
    for (int32 k = 1; k <= categories_; ++k)
      part[0] += now.total * fitted[k - 1] * std::pow(change(k) - mean, 3);
  };
  sum_rows(beta, 1, add_row);
  return fit_.sums[0];
}

double regression_surface::reach(const double* direction) const {
  double most = 0.0;
  for (int32 u = 1; u <= fit_.x.n[0]; ++u)
    for (int32 q = 0; q < order_ && fit_.mask(u) != 0; q += columns_) {
      double a = 0.0;
      for (int32 j = 1; j <= columns_; ++j) a += fit_.x(u, j) * direction[q + j - 1];
      most = std::max(most, std::abs(a));
    }
  return most;
}

double regression_surface::reach_bound(const double* direction) const {
  double most = 0.0;
  for (int32 q = 0; q < order_; q += columns_) {
    double a = 0.0;
    for (int32 j = 0; j < columns_; ++j) a += fit_.reach[at(j)] * std::abs(direction[q + j]);
    most = std::max(most, a);
  }
  return most;
}

double regression_surface::rounding(const array<double, 2>& beta) const {
  double largest = 0.0;
  for (int32 k = 1; k <= categories_; ++k) {
    double bound = 0.0;
    for (int32 j = 1; j <= columns_; ++j) bound += fit_.reach[at(j - 1)] * std::abs(beta(j, k));
    largest = std::max(largest, bound);
  }
  return 4.0 * std::numeric_limits<double>::epsilon() * total() * largest;
}

void regression_surface::add(const double* direction, array<double, 2>& beta) const {
  for (int32 q = 0; q < order_; ++q) beta(column(q), category(q)) += direction[q];
}

double regression_surface::total() const {
  double sum = 0.0;
  for (const double y : fit_.outcome.flat) sum += y;
  return sum;
}

}  // namespace tolvenra::estimation
