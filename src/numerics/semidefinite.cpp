#include "numerics/semidefinite.hpp"

#include <cmath>
#include <utility>

namespace tolvenra {

void semidefinite_factor::clear(std::size_t n) {
  n_ = n;
  rank_ = 0;
  a_.assign(n * n, 0.0);
  scale_.resize(n);
  work_.resize(n);
  order_.resize(n);
}

/// Exchanges rows and columns k < p of the lower triangle; columns before k hold the factor.
void semidefinite_factor::bring_to_front(std::size_t k, std::size_t p) {
  std::swap(order_[k], order_[p]);
  for (std::size_t j = 0; j < k; ++j) std::swap(at(k, j), at(p, j));
  for (std::size_t j = k + 1; j < p; ++j) std::swap(at(j, k), at(p, j));
  for (std::size_t i = p + 1; i < n_; ++i) std::swap(at(i, k), at(i, p));
  std::swap(at(k, k), at(p, p));
}

void semidefinite_factor::factor() {
  for (std::size_t i = 0; i < n_; ++i) {
    order_[i] = i;
    scale_[i] = at(i, i) > 0.0 ? 1.0 / std::sqrt(at(i, i)) : 0.0;
  }
  for (std::size_t i = 0; i < n_; ++i)
    for (std::size_t j = 0; j <= i; ++j) at(i, j) *= scale_[i] * scale_[j];
  for (rank_ = 0; rank_ < n_; ++rank_) {
    const std::size_t k = rank_;
    std::size_t p = k;
    for (std::size_t i = k + 1; i < n_; ++i)
      if (at(i, i) > at(p, p)) p = i;
    if (!(at(p, p) > 1e-13)) return;
    if (p != k) bring_to_front(k, p);
    const double root = std::sqrt(at(k, k));
    at(k, k) = root;
    for (std::size_t i = k + 1; i < n_; ++i) work_[i] = at(i, k) /= root;
    for (std::size_t i = k + 1; i < n_; ++i) {
      const double factor = work_[i];
      if (factor == 0.0) continue;
      double* row = &at(i, 0);
      for (std::size_t j = k + 1; j <= i; ++j) row[j] -= factor * work_[j];
    }
  }
}

void semidefinite_factor::solve(std::span<double> b) {
  for (std::size_t i = 0; i < rank_; ++i) {
    double sum = b[order_[i]] * scale_[order_[i]];
    for (std::size_t j = 0; j < i; ++j) sum -= at(i, j) * work_[j];
    work_[i] = sum / at(i, i);
  }
  for (std::size_t i = rank_; i-- > 0;) {
    const double x = work_[i] / at(i, i);
    work_[i] = x;
    for (std::size_t j = 0; j < i; ++j) work_[j] -= at(i, j) * x;
  }
  for (std::size_t i = 0; i < n_; ++i)
    b[order_[i]] = i < rank_ ? work_[i] * scale_[order_[i]] : 0.0;
}

}  // namespace tolvenra
