#include "numerics/logit_model_rows.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "core/parallel.hpp"
#include "numerics/dot_products.hpp"

namespace tolvenra::logit_model {
namespace {

using dot_products::lanes;
using tile_column = std::array<double, tile_rows>;

/// sums(c) += w' x_c for neighbouring columns of a tile.
void add_products(const double* w, const double* x, std::size_t length, std::size_t count,
                  double* sums) {
  dot_products::add_all(w, x, tile_rows, length, count, sums);
}

/// The rows of one tile and the slot's arrays that hold them.
class tile {
 public:
  tile(const regression_rows& rows, logit_mt_workspace_type& work, int32 slot, int32 first)
      : rows_(rows), work_(work), slot_(slot + 1), first_(first) {}

  void clear() { count_ = 0; }
  void take(int32 row) { row_[count_++] = row; }
  [[nodiscard]] std::size_t count() const { return count_; }

  /// Adds the tile's sums to the slot. \return 0 or an error code
  int32 process() {
    padded_ = (count_ + lanes - 1) / lanes * lanes;
    pack();
    predict();
    const int32 code = weigh();
    if (code != 0 || work_.p == 0) return code;
    add_score();
    add_hessian();
    return 0;
  }

 private:
  double* predictor(int32 k) { return &work_.predictor(first_, k); }
  double* probability(int32 k) { return &work_.probability(first_, k); }
  double* row_weight() { return &work_.row_weight(first_); }
  [[nodiscard]] double weight(std::size_t i) const {
    return rows_.weight == nullptr ? 1.0 : (*rows_.weight)(row_[i]);
  }

  void pack() {
    for (int32 j = 1; j <= work_.p; ++j) {
      double* const to = work_.tile.column(j, slot_);
      const double* const from = rows_.x.column(j) - 1;
      for (std::size_t i = 0; i < count_; ++i) to[i] = from[row_[i]];
      std::fill(to + count_, to + padded_, 0.0);
    }
  }

  void predict() {
    for (int32 k = 1; k <= work_.r; ++k) {
      double* const eta = predictor(k);
      std::fill_n(eta, count_, 0.0);
      if (k == work_.b) continue;
      for (int32 j = 1; j <= work_.p; ++j) {
        const double slope = work_.coefficients(j, k);
        const double* const x = work_.tile.column(j, slot_);
        for (std::size_t i = 0; i < count_; ++i) eta[i] += slope * x[i];
      }
    }
  }

  /// Probabilities, log-likelihood and residuals (over the predictors) of the tile.
  int32 weigh() {
    std::array<double, tile_rows> shift, log_sum;
    std::fill_n(shift.begin(), count_, 0.0);
    for (int32 k = 1; k <= work_.r; ++k) {
      const double* const eta = predictor(k);
      for (std::size_t i = 0; i < count_; ++i) shift[i] = eta[i] > shift[i] ? eta[i] : shift[i];
    }
    // Several exponentials below the largest number can add up beyond it: shift large ones only.
    for (std::size_t i = 0; i < count_; ++i) {
      if (shift[i] > largest_exponent) return error_code::exp_too_large;
      if (shift[i] < 600.0) shift[i] = 0.0;
    }
    const int32 code = normalise(shift, log_sum);
    if (code == 0) add_loglik(shift, log_sum);
    return code;
  }

  int32 normalise(const tile_column& shift, tile_column& log_sum) {
    tile_column sum;
    std::fill_n(sum.begin(), count_, 0.0);
    for (int32 k = 1; k <= work_.r; ++k) {
      const double* const eta = predictor(k);
      double* const pi = probability(k);
      for (std::size_t i = 0; i < count_; ++i) {
        const double exponent = eta[i] - shift[i];
        pi[i] = k == work_.b && exponent == 0.0 ? 1.0 : std::exp(exponent);
        sum[i] += pi[i];
      }
    }
    for (std::size_t i = 0; i < count_; ++i) {
      if (!(sum[i] >= smallest_normal)) return error_code::division_by_zero;
      log_sum[i] = std::log(sum[i]);
      sum[i] = 1.0 / sum[i];
    }
    for (int32 k = 1; k <= work_.r; ++k) {
      double* const pi = probability(k);
      for (std::size_t i = 0; i < count_; ++i) pi[i] *= sum[i];
    }
    return 0;
  }

  void add_loglik(const tile_column& shift, const tile_column& log_sum) {
    tile_column w;
    double* const total = row_weight();
    double loglik = 0.0;
    for (std::size_t i = 0; i < count_; ++i) w[i] = weight(i);
    std::fill_n(total, count_, 0.0);
    for (int32 k = 1; k <= work_.r; ++k) {
      double* const eta = predictor(k);
      const double* const y = rows_.y.column(k) - 1;
      for (std::size_t i = 0; i < count_; ++i) {
        const double count = w[i] * y[row_[i]];
        if (count != 0.0) loglik += count * (eta[i] - shift[i] - log_sum[i]);
        eta[i] = count;
        total[i] += count;
      }
    }
    for (int32 k = 1; k <= work_.r; ++k) {
      double* const residual = predictor(k);
      const double* const pi = probability(k);
      for (std::size_t i = 0; i < count_; ++i) residual[i] -= total[i] * pi[i];
    }
    work_.slot_loglik(slot_) += loglik;
  }

  void add_score() {
    alignas(32) tile_column residual;
    double* sums = work_.slot_score.column(slot_);
    const auto p = static_cast<std::size_t>(work_.p);
    for (int32 k = 1; k <= work_.r; ++k) {
      if (k == work_.b) continue;
      std::copy_n(predictor(k), count_, residual.begin());
      std::fill(residual.begin() + count_, residual.begin() + padded_, 0.0);
      add_products(residual.data(), work_.tile.column(1, slot_), padded_, p, sums);
      sums += p;
    }
  }

  void add_hessian() {
    alignas(32) tile_column share;
    const auto p = static_cast<std::size_t>(work_.p),
               order = p * static_cast<std::size_t>(work_.r - 1);
    double* const sums = work_.slot_hessian.column(1, slot_);
    std::fill_n(share.begin() + count_, padded_ - count_, 0.0);
    std::size_t column = 0;
    for (int32 l = 1; l <= work_.r; ++l) {
      if (l == work_.b) continue;
      std::size_t row = column;
      for (int32 k = l; k <= work_.r; ++k) {
        if (k == work_.b) continue;
        const double own = k == l ? 1.0 : 0.0;
        const double *const w = row_weight(), *const pk = probability(k),
                            *const pl = probability(l);
        for (std::size_t i = 0; i < count_; ++i) share[i] = w[i] * pk[i] * (own - pl[i]);
        add_block(share, sums + row + column * order, order);
        row += p;
      }
      column += p;
    }
  }

  /// sums(h, j) += sum over rows of share * x_h * x_j for h >= j.
  void add_block(const tile_column& share, double* sums, std::size_t order) {
    alignas(32) tile_column product;
    const auto p = static_cast<std::size_t>(work_.p);
    const double* const x = work_.tile.column(1, slot_);
    constexpr std::size_t rows = tile_rows;
    for (std::size_t j = 0; j < p; ++j) {
      const double* const xj = x + j * rows;
      for (std::size_t i = 0; i < padded_; ++i) product[i] = share[i] * xj[i];
      add_products(product.data(), xj, padded_, p - j, sums + j + j * order);
    }
  }

  const regression_rows& rows_;
  logit_mt_workspace_type& work_;
  int32 slot_, first_;  // 1-based: the slot's column, the first row of its block
  std::size_t count_ = 0, padded_ = 0;
  std::array<int32, tile_rows> row_;
};

}  // namespace

void accumulate_rows(const regression_rows& rows, logit_mt_workspace_type& work, int32 slot) {
  const auto order = static_cast<std::size_t>(work.score.n[0]);
  const auto at = static_cast<std::size_t>(slot);
  std::fill_n(work.slot_score.flat.begin() + static_cast<std::ptrdiff_t>(order * at), order, 0.0);
  std::fill_n(work.slot_hessian.flat.begin() + static_cast<std::ptrdiff_t>(order * order * at),
              order * order, 0.0);
  work.slot_loglik(slot + 1) = 0.0;
  work.slot_failure(slot + 1) = 0;
  const auto block = parallel::rows_of_block(work.n, slot, work.t);
  tile rows_taken(rows, work, slot, block.first);
  for (int32 row = block.first; row <= block.last;) {
    rows_taken.clear();
    for (; row <= block.last && rows_taken.count() < std::size_t{tile_rows}; ++row)
      if (rows.grpvar(row) == rows.group) rows_taken.take(row);
    if (rows_taken.count() == 0) continue;
    const int32 code = rows_taken.process();
    if (code != 0) {
      work.slot_failure(slot + 1) = code;
      return;
    }
  }
}

}  // namespace tolvenra::logit_model
