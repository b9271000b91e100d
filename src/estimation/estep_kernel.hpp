/// \file estep_kernel.hpp  The inner loop of the E-step of latent class models.
///
/// Rows come sorted, so a row shares its leading responses with its neighbours. The products over
/// shared leading items are kept in a stack and not formed again; likewise the posteriors of rows
/// that share them are added up before they reach the items' counts. On a full table of patterns
/// both cost about one product and one sum per row instead of one per item.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/types.hpp"

namespace tolvenra::estep_kernel {

/// What one block of rows reads and writes; rows and offsets are 0-based.
struct block {
  int32 ncol = 0, nc = 0, width = 0, slots = 0;
  const int32* item_slot = nullptr;      ///< slot of every item's missing response
  const int32* shared = nullptr;         ///< leading responses shared with the row before
  const int32* stratum_start = nullptr;  ///< rows of stratum g: [g-1, g)
  const double* weight = nullptr;        ///< by row
  const double* table = nullptr;         ///< nstr slabs, see class_counts
  const double* prior = nullptr;         ///< by covariate pattern and class, or null: slot 0
  const int32* pattern = nullptr;        ///< covariate pattern of every row, 1-based, with `prior`
  int32 first_row = 0, end_row = 0;
  int32 first_stratum = 0, end_stratum = 0;  ///< 0-based strata that the block touches
  double* counts = nullptr;                  ///< slabs of these strata, zeroed by the caller
  double* stack = nullptr;                   ///< 2 (ncol + 1) + 1 vectors of `width`
  double* posterior = nullptr;               ///< by row and class (nc apart), or null: not wanted
  double* likelihood = nullptr;              ///< by row, or null
  double loglik = 0.0;                       ///< out: sum of weight * log(likelihood)
  int32 failed_row = -1;                     ///< out: first row whose likelihood underflows
};

/// \tparam W  padded class count as a constant, 0 for any multiple of eight.
/// \tparam Code  type of the response codes.
template <int W, class Code>
class class_rows {
 public:
  class_rows(block& b, const Code* codes)
      : b_(b),
        codes_(codes),
        n_(W > 0 ? W : b.width),
        product_(b.stack),
        pending_(b.stack + vectors(b.ncol + 1)) {
    spare_ = pending_ + vectors(b.ncol + 1);
  }

  void run() {
    std::fill(product_, product_ + n_, 0.0);
    std::fill(product_, product_ + b_.nc, 1.0);
    std::fill(pending_, pending_ + vectors(b_.ncol + 1), 0.0);
    for (int32 g = b_.first_stratum; g < b_.end_stratum; ++g) {
      const int32 first = std::max(b_.first_row, b_.stratum_start[g]);
      const int32 end = std::min(b_.end_row, b_.stratum_start[g + 1]);
      const std::ptrdiff_t slab = vectors(b_.slots);
      table_ = b_.table + slab * g;
      counts_ = b_.counts + slab * (g - b_.first_stratum);
      int32 before = 0;  // leading responses shared with the row before, then with the row behind
      for (int32 row = first; row < end; ++row) {
        const int32 behind = row + 1 < end ? b_.shared[row + 1] : 0;
        if (!one_row(row, before, behind)) return;
        before = behind;
      }
      add(counts_, pending_);
      std::fill(pending_, pending_ + n_, 0.0);
    }
    b_.loglik += std::log(chain_);
  }

 private:
  [[nodiscard]] std::ptrdiff_t vectors(int32 count) const {
    return static_cast<std::ptrdiff_t>(count) * n_;
  }
  /// The slot of item `j` (0-based) that the response selects, as an offset.
  [[nodiscard]] std::ptrdiff_t slot(const Code* code, int32 j) const {
    return vectors(b_.item_slot[j] + static_cast<int32>(code[j]));
  }
  void add(double* to, const double* from) const {
    for (int32 c = 0; c < n_; ++c) to[c] += from[c];
  }
  void multiply(double* f, const double* by) const {
    for (int32 c = 0; c < n_; ++c) f[c] *= by[c];
  }

  /// Adds weight * log(likelihood). Rows of weight 1 are multiplied first: one logarithm for dozens
  /// of rows, and less rounding than the sum of their logarithms.
  void add_log(double weight, double likelihood) {
    if (weight != 1.0 || likelihood < 1e-100) {
      b_.loglik += weight * std::log(likelihood);
      return;
    }
    chain_ *= likelihood;
    if (chain_ < 1e-200) {
      b_.loglik += std::log(chain_);
      chain_ = 1.0;
    }
  }

  /// \return false when the row's likelihood is below the smallest normal number
  bool one_row(int32 row, int32 before, int32 behind) {
    const Code* code = codes_ + static_cast<std::ptrdiff_t>(row) * b_.ncol;
    double lanes[W == 0 ? 1 : W];  // a local the compiler can keep in registers
    double* const f = W == 0 ? spare_ : lanes;
    std::copy(product_ + vectors(before), product_ + vectors(before) + n_, f);
    for (int32 j = before; j < behind; ++j) {
      multiply(f, table_ + slot(code, j));
      std::copy(f, f + n_, product_ + vectors(j + 1));
    }
    for (int32 j = std::max(before, behind); j < b_.ncol; ++j) multiply(f, table_ + slot(code, j));
    multiply(f, b_.prior ? b_.prior + vectors(b_.pattern[row] - 1) : table_);

    double likelihood = 0.0;
    for (int32 c = 0; c < n_; ++c) likelihood += f[c];
    if (!(likelihood >= smallest_normal)) {
      b_.failed_row = row;
      return false;
    }
    const double weight = b_.weight[row];
    add_log(weight, likelihood);
    if (b_.posterior) {
      double* posterior = b_.posterior + static_cast<std::ptrdiff_t>(row) * b_.nc;
      for (int32 c = 0; c < b_.nc; ++c) posterior[c] = f[c] / likelihood;
      b_.likelihood[row] = likelihood;
    }
    const double scale = weight / likelihood;
    for (int32 c = 0; c < n_; ++c) f[c] *= scale;

    // The counts of the responses that no neighbour shares take the weighted posterior at once; the
    // rest stays pending until the last row that shares it.
    const int32 common = std::max(before, behind);
    for (int32 j = common; j < b_.ncol; ++j) add(counts_ + slot(code, j), f);
    add(pending_ + vectors(common), f);
    for (int32 j = common; j > behind; --j) {
      double* sum = pending_ + vectors(j);
      add(counts_ + slot(code, j - 1), sum);
      add(sum - n_, sum);
      std::fill(sum, sum + n_, 0.0);
    }
    return true;
  }

  block& b_;
  const Code* codes_;
  const int32 n_;
  double* product_;  ///< product over the first j items of the current row, j = 0..ncol
  double* pending_;  ///< posteriors of finished rows that share the first j responses
  const double* table_ = nullptr;
  double* counts_ = nullptr;
  double* spare_;       ///< room for one vector
  double chain_ = 1.0;  ///< product of likelihoods whose logarithm is still to be added
};

/// Runs one block; `codes` are the responses of all rows, row by row.
template <class Code>
void run(block& b, const Code* codes) {
  switch (b.width) {
    case 2:
      return class_rows<2, Code>(b, codes).run();
    case 4:
      return class_rows<4, Code>(b, codes).run();
    case 6:
      return class_rows<6, Code>(b, codes).run();
    case 8:
      return class_rows<8, Code>(b, codes).run();
    default:
      return class_rows<0, Code>(b, codes).run();
  }
}

}  // namespace tolvenra::estep_kernel
