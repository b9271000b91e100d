/// \file outer_products.hpp  Weighted sums of outer products, sum_k w_k v_k v_k'.
///
/// Vectors are collected by the dozen in panels of four elements; a tile of 4 x 4 products stays in
/// registers while it runs over the vectors. The order of additions depends on the sizes only.
#pragma once

#include <cstddef>
#include <vector>

#include "numerics/dot_products.hpp"

namespace tolvenra::outer_products {

inline constexpr std::size_t tile = 4;

inline std::size_t padded(std::size_t n) { return (n + tile - 1) / tile * tile; }

/// Up to `capacity` vectors of `order` elements; the padding stays 0.
class panels {
 public:
  panels() = default;
  panels(std::size_t order, std::size_t capacity)
      : order_(padded(order)), capacity_(capacity), values_(order_ * capacity, 0.0) {}

  void put(std::size_t k, const double* vector, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
      values_[i / tile * tile * capacity_ + k * tile + i % tile] = vector[i];
  }

  /// Adds the lower triangle of the weighted products of the first `count` vectors, tile by tile.
  /// \param sum     column-major, padded(order) both ways
  /// \param scaled  work, tile * capacity values
  void add_products(const double* weight, std::size_t count, double* sum, double* scaled) const {
    for (std::size_t j = 0; j < order_; j += tile) {
      const double* column = &values_[j * capacity_];
      for (std::size_t k = 0; k < count; ++k)
        for (std::size_t q = 0; q < tile; ++q)
          scaled[k * tile + q] = weight[k] * column[k * tile + q];
      for (std::size_t i = j; i < order_; i += tile)
        add_tile(&values_[i * capacity_], scaled, count, sum + i + j * order_);
    }
  }

 private:
  void add_tile(const double* row, const double* scaled, std::size_t count, double* sum) const {
    using dot_products::double_pair;
    using dot_products::load;
    double_pair low[tile] = {}, high[tile] = {};
    for (std::size_t k = 0; k < count; ++k) {
      const double_pair first = load(row + k * tile), second = load(row + k * tile + 2);
      for (std::size_t q = 0; q < tile; ++q) {
        const double factor = scaled[k * tile + q];
        low[q] += first * factor;
        high[q] += second * factor;
      }
    }
    for (std::size_t q = 0; q < tile; ++q)
      for (std::size_t r = 0; r < 2; ++r) {
        sum[q * order_ + r] += low[q][r];
        sum[q * order_ + r + 2] += high[q][r];
      }
  }

  std::size_t order_ = 0, capacity_ = 0;
  std::vector<double> values_;
};

}  // namespace tolvenra::outer_products
