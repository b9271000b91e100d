/// \file estep_kernel.hpp  The inner loops of the E-step of latent class models.
///
/// One chunk of neighbouring rows: products over shared leading items down its tree, then every row
/// through its own items, then the shared counts up the tree (see prefix_tree). All vectors hold
/// one value per class; the class count is a constant so that the compiler keeps them in registers.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/types.hpp"
#include "estimation/prefix_tree.hpp"

namespace tolvenra::estep_kernel {

/// What the chunks of one block read and write; rows and offsets are 0-based.
struct block {
  int32 ncol = 0;        ///< class items
  int32 row_length = 0;  ///< response codes of a row, class items first
  int32 nc = 0, width = 0;
  const int32* item_slot = nullptr;  ///< slot of every item's missing response
  const prefix_tree* tree = nullptr;
  const double* weight = nullptr;  ///< by row
  const double* prior = nullptr;   ///< by covariate pattern and class, or null: slot 0
  const int32* pattern = nullptr;  ///< covariate pattern of every row, 1-based, with `prior`
  double* product = nullptr;       ///< work: a vector per node, and one more
  double* pending = nullptr;       ///< work: a vector per node
  double* posterior = nullptr;     ///< by row and class (nc apart), or null: not wanted
  double* likelihood = nullptr;    ///< by row, or null
  double loglik = 0.0;             ///< out: sum of weight * log(likelihood)
  int32 failed_row = -1;           ///< out: first row whose likelihood underflows
};

/// Sum of weight * log(likelihood). Likelihoods of rows of weight 1 are multiplied first: one
/// logarithm for dozens of rows, and less rounding than the sum of their logarithms.
class log_sum {
 public:
  void add(double weight, double likelihood) {
    if (weight != 1.0 || likelihood < 1e-100) {
      sum_ += weight * std::log(likelihood);
      return;
    }
    chain_ *= likelihood;
    if (chain_ < 1e-200) {
      sum_ += std::log(chain_);
      chain_ = 1.0;
    }
  }
  [[nodiscard]] double value() const { return sum_ + std::log(chain_); }

 private:
  double sum_ = 0.0, chain_ = 1.0;
};

/// \tparam W  padded class count as a constant, 0 for any multiple of eight.
/// \tparam Code  type of the response codes.
template <int W, class Code>
class chunk_pass {
 public:
  /// \param table, counts  slabs of the chunk's stratum, see class_counts
  chunk_pass(block& b, const prefix_tree::chunk& chunk, const Code* codes, const double* table,
             double* counts)
      : b_(b),
        chunk_(chunk),
        codes_(codes),
        table_(table),
        counts_(counts),
        parent_(b.tree->parent.data() + chunk.first_node),
        slot_(b.tree->slot.data() + chunk.first_node),
        n_(W > 0 ? W : b.width) {}

  /// \return false when a row's likelihood is below the smallest normal number
  bool run(log_sum& loglik) {
    down();
    for (int32 row = chunk_.first_row; row < chunk_.end_row; ++row)
      if (!pass_row(row, loglik)) {
        b_.failed_row = row;
        return false;
      }
    up();
    return true;
  }

 private:
  [[nodiscard]] std::ptrdiff_t vectors(int32 count) const {
    return static_cast<std::ptrdiff_t>(count) * n_;
  }
  void add(double* to, const double* from) const {
    for (int32 c = 0; c < n_; ++c) to[c] += from[c];
  }
  void multiply(double* f, const double* by) const {
    for (int32 c = 0; c < n_; ++c) f[c] *= by[c];
  }

  /// The product of every node, and nothing pending.
  void down() {
    std::fill(b_.product, b_.product + n_, 0.0);
    std::fill(b_.product, b_.product + b_.nc, 1.0);
    for (int32 k = 1; k < chunk_.nodes; ++k) {
      const double* before = b_.product + vectors(parent_[k]);
      const double* by = table_ + vectors(slot_[k]);
      double* f = b_.product + vectors(k);
      for (int32 c = 0; c < n_; ++c) f[c] = before[c] * by[c];
    }
    std::fill(b_.pending, b_.pending + vectors(chunk_.nodes), 0.0);
  }

  bool pass_row(int32 row, log_sum& loglik) {
    const Code* code = codes_ + static_cast<std::ptrdiff_t>(row) * b_.row_length;
    const std::ptrdiff_t leaf = vectors(b_.tree->leaf[static_cast<std::size_t>(row)]);
    double lanes[W == 0 ? 1 : W];  // a local the compiler can keep in registers
    double* const f = W == 0 ? b_.product + vectors(b_.tree->most_nodes) : lanes;
    std::copy(b_.product + leaf, b_.product + leaf + n_, f);
    multiply(f, b_.prior ? b_.prior + vectors(b_.pattern[row] - 1) : table_);
    for (int32 j = chunk_.depth; j < b_.ncol; ++j)
      multiply(f, table_ + vectors(b_.item_slot[j] + static_cast<int32>(code[j])));

    double likelihood = 0.0;
    for (int32 c = 0; c < n_; ++c) likelihood += f[c];
    if (!(likelihood >= smallest_normal)) return false;
    const double weight = b_.weight[row];
    loglik.add(weight, likelihood);
    if (b_.posterior) {
      double* posterior = b_.posterior + static_cast<std::ptrdiff_t>(row) * b_.nc;
      for (int32 c = 0; c < b_.nc; ++c) posterior[c] = f[c] / likelihood;
      b_.likelihood[row] = likelihood;
    }
    const double scale = weight / likelihood;
    for (int32 c = 0; c < n_; ++c) f[c] *= scale;
    for (int32 j = chunk_.depth; j < b_.ncol; ++j)
      add(counts_ + vectors(b_.item_slot[j] + static_cast<int32>(code[j])), f);
    add(b_.pending + leaf, f);
    return true;
  }

  /// Passes what is pending to the counts of the nodes' responses and on to their parents.
  void up() {
    for (int32 k = chunk_.nodes - 1; k > 0; --k) {
      const double* sum = b_.pending + vectors(k);
      double* count = counts_ + vectors(slot_[k]);
      double* parent = b_.pending + vectors(parent_[k]);
      for (int32 c = 0; c < n_; ++c) {
        count[c] += sum[c];
        parent[c] += sum[c];
      }
    }
    add(counts_, b_.pending);
  }

  block& b_;
  const prefix_tree::chunk& chunk_;
  const Code* codes_;
  const double* table_;
  double* counts_;
  const int32* parent_;
  const int32* slot_;
  const int32 n_;
};

/// Runs one chunk; `codes` are the responses of all rows, row by row.
template <class Code>
bool run(block& b, const prefix_tree::chunk& chunk, const Code* codes, const double* table,
         double* counts, log_sum& loglik) {
  switch (b.width) {
    case 2:
      return chunk_pass<2, Code>(b, chunk, codes, table, counts).run(loglik);
    case 4:
      return chunk_pass<4, Code>(b, chunk, codes, table, counts).run(loglik);
    case 6:
      return chunk_pass<6, Code>(b, chunk, codes, table, counts).run(loglik);
    case 8:
      return chunk_pass<8, Code>(b, chunk, codes, table, counts).run(loglik);
    default:
      return chunk_pass<0, Code>(b, chunk, codes, table, counts).run(loglik);
  }
}

}  // namespace tolvenra::estep_kernel
