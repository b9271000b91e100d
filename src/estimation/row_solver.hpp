/// \file row_solver.hpp  The exact update of probability vectors under fixed values and equality
/// groups, module `estimation`.
///
/// Rows r sum to one; an element is fixed (code 0), free (code 1) or a member of equality group g
/// (code >= 2). With counts n_i the update maximises sum n_i log p_i subject to
///     sum of free p_i + sum over groups of m_rg v_g = S_r,     S_r = 1 - sum of fixed elements,
/// m_rg the members of g in r. The free elements of a row share their part by their counts, so that
/// the groups' values v_g and the free parts decide all.
///
/// What the sums alone determine, such as v_g = 0.4 in a row of two members and a fixed 0.2, is
/// found when the codes are decoded and kept; counts have no say in it. The remaining rows fall
/// into components that no group links. Each is solved in closed form where that is exact, else by
/// Newton's method (linked_rows.hpp).
/// Source: Mooijaart & van der Heijden (1992), Psychometrika 57, 261-269 (the trap of the naive
/// pooling).
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "core/types.hpp"
#include "estimation/linked_rows.hpp"
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

  /// A row that cannot sum to one together with the others, whatever the values; such restrictions
  /// must not be solved.
  [[nodiscard]] std::optional<std::size_t> unmet_row() const { return unmet_; }

  /// Distinct values that can move, less the rank of the sum constraints on them.
  [[nodiscard]] int32 free_parameters() const;

 private:
  friend class row_sampler;  // draws over the same decoded restrictions

  enum class path { apart, pooled, newton };
  struct group {
    std::vector<linked_sums::link> links;  ///< rows that hold members
    std::vector<std::size_t> elements;     ///< offsets of its members
    bool known = false;                    ///< the sums alone determine its value
    double count = 0.0;                    ///< N_g
    double value = 0.0;                    ///< v_g
  };
  struct row {
    std::vector<std::size_t> free, members;  ///< offsets by kind of code, of unknown value
    std::vector<std::size_t> known;          ///< offsets whose values the sums alone determine
    double left = 1.0;                       ///< S_r less the known values
    double count = 0.0;                      ///< D_r, of all elements that are not fixed
    double free_count = 0.0;                 ///< F_r
    double rest = 0.0;                       ///< of `left`, the part of the free elements
    std::size_t local = 0;                   ///< number within its component
  };
  struct component {
    path kind = path::apart;
    std::vector<std::size_t> rows, groups;
    linked_rows values;  ///< of the Newton path
  };
  struct known_element {
    std::size_t at;
    double value;
  };

  void decode(std::span<const int32> codes, std::span<const double> values,
              const row_layout& layout, int32 nrows);
  [[nodiscard]] std::vector<component> split_into_components();
  [[nodiscard]] linked_sums sums_of(const component& c) const;
  void find_known_values();
  void keep_known_values(const component& c, const sum_solution& solution);
  [[nodiscard]] path path_of(const component& c) const;
  bool sum_counts(std::span<const double> counts, std::span<double> denominator);
  void solve_pooled(const component& c);
  bool solve_newton(component& c);
  void write(const component& c, std::span<const double> counts, std::span<double> values) const;

  std::vector<row> rows_;
  std::vector<group> groups_;
  std::vector<component> components_;
  std::vector<known_element> known_;
  std::optional<std::size_t> unmet_;
  std::vector<double> counts_;  ///< scratch of the Newton path
};

}  // namespace tolvenra::estimation
