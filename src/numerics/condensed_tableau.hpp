/// \file condensed_tableau.hpp  Sums with shared terms, solved for one term of every row.
///
/// Of the sums of linked_sums.hpp, variable number k is the value v_k and number (values + r) the
/// rest of the open row r. The tableau holds
///     variable basic(i) = constant(i) - sum over j of at(i, j) * variable outside(j).
/// Source: Tucker (1960), in Bellman & Hall, Combinatorial Analysis, 129-140.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "numerics/linked_sums.hpp"

namespace tolvenra {

class condensed_tableau {
 public:
  /// Stands for a variable that must be zero: the lack of a row without a rest. Once outside it
  /// is left out, its column 0.
  static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

  condensed_tableau() = default;
  /// Solved for the rests. \throws std::bad_alloc
  explicit condensed_tableau(const linked_sums& sums)
      : t_(sums.totals.size() * sums.columns.size(), 0.0),
        constant_(sums.totals),
        basic_(sums.totals.size(), none),
        outside_(sums.columns.size()) {
    for (std::size_t k = 0; k < columns(); ++k) {
      outside_[k] = k;
      for (const linked_sums::link& l : sums.columns[k]) cell(l.row, k) = l.members;
    }
    for (std::size_t i = 0; i < rows(); ++i)
      if (sums.open[i]) basic_[i] = columns() + i;
  }

  [[nodiscard]] std::size_t rows() const { return basic_.size(); }
  [[nodiscard]] std::size_t columns() const { return outside_.size(); }
  [[nodiscard]] std::size_t basic(std::size_t i) const { return basic_[i]; }
  [[nodiscard]] std::size_t outside(std::size_t j) const { return outside_[j]; }
  [[nodiscard]] double at(std::size_t i, std::size_t j) const { return t_[i * columns() + j]; }
  [[nodiscard]] double& constant(std::size_t i) { return constant_[i]; }
  [[nodiscard]] double constant(std::size_t i) const { return constant_[i]; }

  /// Exchanges basic(p) and outside(q); at(p, q) is not 0.
  void pivot(std::size_t p, std::size_t q) {
    const double by = at(p, q);
    for (std::size_t j = 0; j < columns(); ++j) cell(p, j) /= by;
    cell(p, q) = 1.0 / by;
    constant_[p] /= by;
    for (std::size_t i = 0; i < rows(); ++i) {
      const double factor = at(i, q);
      if (i == p || factor == 0.0) continue;
      for (std::size_t j = 0; j < columns(); ++j) {
        cell(i, j) -= factor * at(p, j);
        if (std::abs(at(i, j)) <= rounding) cell(i, j) = 0.0;
      }
      cell(i, q) = -factor / by;
      constant_[i] -= factor * constant_[p];
    }
    std::swap(basic_[p], outside_[q]);
    if (outside_[q] != none) return;
    for (std::size_t i = 0; i < rows(); ++i) cell(i, q) = 0.0;
  }

  /// Solves unwanted rows for a wanted variable, the one with the largest entry. Rows without any
  /// repeat others, or hold unwanted variables alone. \param wanted  bool(variable)
  template <class Wanted>
  void solve_for(Wanted&& wanted) {
    for (std::size_t i = 0; i < rows(); ++i) {
      if (basic_[i] != none && wanted(basic_[i])) continue;
      std::size_t best = none;
      for (std::size_t j = 0; j < columns(); ++j)
        if (outside_[j] != none && at(i, j) != 0.0 && wanted(outside_[j]) &&
            (best == none || std::abs(at(i, j)) > std::abs(at(i, best))))
          best = j;
      if (best != none) pivot(i, best);
    }
  }

 private:
  /// Entries are ratios of small determinants of whole numbers; what is smaller is 0.
  static constexpr double rounding = 1e-10;

  double& cell(std::size_t i, std::size_t j) { return t_[i * columns() + j]; }

  std::vector<double> t_, constant_;
  std::vector<std::size_t> basic_, outside_;
};

}  // namespace tolvenra
