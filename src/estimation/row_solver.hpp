/// \file row_solver.hpp  The exact update of probability vectors under fixed values and equality
/// groups, module `estimation`.
///
/// Rows r sum to one; an element is fixed (code 0), free (code 1) or a member of equality group g
/// (code >= 2). With counts n_i the update maximises sum n_i log p_i subject to
///     sum of free p_i + sum over groups of m_rg v_g = S_r,     S_r = 1 - sum of fixed elements,
/// m_rg the members of g in r. Lagrange gives p_i = n_i / lambda_r and v_g = N_g / a_g with
/// a_g = sum_r m_rg lambda_r, N_g = sum of the counts of g's members, and lambda minimises the
/// convex
///     D(lambda) = sum S_r lambda_r - sum F_r log lambda_r - sum N_g log a_g,
/// F_r the counts of r's free elements. Rows that no group links are solved apart: in closed form
/// where that is exact, else by a damped Newton method on D.
/// Source: Mooijaart & van der Heijden (1992), Psychometrika 57, 261-269 (the trap of the naive
/// pooling); Boyd & Vandenberghe (2004), Convex Optimization, ch. 5 and 9 (dual and Newton method).
#pragma once

#include <span>
#include <vector>

#include "core/types.hpp"
#include "model/prob_rows.hpp"

namespace tolvenra::estimation {

class row_solver {
 public:
  enum class outcome { solved, zero_denominator, inconsistent };

  row_solver() = default;
  /// Decodes the first `nrows` rows of `codes`; the fixed elements are read from `values`.
  /// \throws std::bad_alloc
  row_solver(std::span<const int32> codes, std::span<const double> values, const row_layout& layout,
             int32 nrows);

  /// Writes the new values of all elements that are not fixed.
  /// \param counts       expected counts plus pseudo-counts, in the layout of `values`
  /// \param denominator  out, one per row: the counts of its elements that are not fixed
  outcome solve(std::span<const double> counts, std::span<double> values,
                std::span<double> denominator);

  /// Whether values above zero meet all sums at the same time; solves with all counts 1.
  bool consistent(std::span<const double> values) const;

  /// Distinct values that can move, less the rank of the sum constraints on them.
  [[nodiscard]] int32 free_parameters() const;

 private:
  friend class row_sampler;  // draws over the same decoded restrictions

  enum class path { apart, pooled, newton };
  struct link {  ///< a row that holds members of a group
    std::size_t row;
    double members;
  };
  struct group {
    std::vector<link> links;
    std::vector<std::size_t> elements;  ///< offsets of its members
    bool dead = false;                  ///< forced to 0 by a row whose fixed elements leave nothing
    double count = 0.0;                 ///< N_g
    double value = 0.0;                 ///< v_g
  };
  struct row {
    std::vector<std::size_t> free, members;  ///< offsets by kind of code
    double left = 1.0;                       ///< S_r
    double count = 0.0, free_count = 0.0;    ///< D_r, F_r
    std::size_t local = 0;                   ///< number within its component
  };
  struct component {
    path kind = path::apart;
    std::vector<std::size_t> rows, groups;
    std::vector<double> multipliers;  ///< lambda of the last update, the next start
  };
  struct dual_point;

  void decode(std::span<const int32> codes, std::span<const double> values,
              const row_layout& layout, int32 nrows);
  void split_into_components();
  [[nodiscard]] path path_of(const component& c) const;
  bool sum_counts(std::span<const double> counts, std::span<double> denominator);
  double lift_empty_rows(const component& c);
  void solve_pooled(const component& c);
  bool solve_newton(component& c);
  bool minimise_dual(component& c);
  [[nodiscard]] dual_point evaluate(const component& c, std::span<const double> lambda) const;
  void write(const component& c, std::span<const double> counts, std::span<double> values) const;

  std::vector<row> rows_;
  std::vector<group> groups_;
  std::vector<component> components_;
};

}  // namespace tolvenra::estimation
