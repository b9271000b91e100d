/// \file linked_rows.hpp  The most likely values of rows that share them, module `estimation`.
///
/// Under the sums of linked_sums.hpp, f_r + sum m_rk v_k = s_r, the update maximises
///     sum N_k log v_k + sum F_r log f_r
/// by Newton's method, in the null space of the sums: with the sums solved for one term of every
/// row, x_B = c - T x_N, the others' step solves
///     (D_N + T' D_B T) dx_N = w_N / x_N - T' (w_B / x_B),    D = w / x^2,
/// w the counts. Where rows are fewer than other terms the system is solved through that of the
/// rows, 1/D_B + T (1/D_N) T' (Woodbury). All terms stay above zero and on the sums throughout.
/// Terms are exchanged so that B holds those with the smallest D, the ones that move most easily:
/// that keeps both systems well conditioned and all digits of small terms.
///
/// Terms without counts weigh 1e-12 of the total, so that the maximum is one point; they are set to
/// zero afterwards where the sums allow it.
/// Source: Boyd & Vandenberghe (2004), Convex Optimization, section 10.1 and C.4; Gill, Murray &
/// Wright (1981), Practical Optimization, section 5.1.
#pragma once

#include <span>
#include <vector>

#include "numerics/condensed_tableau.hpp"
#include "numerics/linked_sums.hpp"
#include "numerics/semidefinite.hpp"

namespace tolvenra::estimation {

class linked_rows {
 public:
  linked_rows() = default;
  /// \param values, rests  above zero (rests of open rows); they meet the sums
  /// \throws std::bad_alloc
  linked_rows(linked_sums sums, std::span<const double> values, std::span<const double> rests);

  /// Updates value(k) and rest(r), from the maximum of the update before.
  /// \param counts  N_k, then F_r (read in open rows); not negative
  /// \return false when they are not found
  bool maximise(std::span<const double> counts);

  [[nodiscard]] double value(std::size_t k) const { return result_[k]; }
  [[nodiscard]] double rest(std::size_t r) const { return result_[sums_.columns.size() + r]; }

 private:
  struct entry {  ///< of T: the number of a row or column, the factor
    std::size_t number;
    double factor;
  };

  void weigh(std::span<const double> counts, double least);
  void choose_basis();
  void list_entries();
  double direction();
  void solve_outside();
  void solve_rows();
  [[nodiscard]] double longest_step() const;
  [[nodiscard]] double gain(double length) const;
  void meet_sums(std::vector<double>& x) const;
  void solve_afresh();
  void drop_empty_terms(std::span<const double> counts);
  [[nodiscard]] double lacking() const;

  linked_sums sums_;
  condensed_tableau table_;
  std::vector<std::vector<entry>> by_row_, by_column_;  ///< of T, without its zeros
  std::vector<std::size_t> terms_;                      ///< variables of the sums
  // By variable: the maximum with all terms above zero, and with those at zero that have no counts;
  // w relative to its sum, D, dx.
  std::vector<double> x_, result_, weight_, d_, step_;
  std::vector<double> right_, small_;  ///< right-hand sides
  semidefinite_factor factor_;
};

}  // namespace tolvenra::estimation
