/// \file linked_sums.hpp  What sums with shared terms say by themselves.
///
/// Rows r of non-negative terms with given sums s_r,
///     f_r + sum over k of m_rk v_k = s_r,    v_k >= 0, f_r >= 0,
/// where the rest f_r belongs to row r alone and is there only in open rows, and a value v_k may
/// occur in several rows, m_rk >= 1 times. Such sums can contradict each other, force values to
/// zero or determine them.
/// Source: Dantzig (1963), Linear Programming and Extensions, ch. 5 (simplex method, phase one);
/// Bland (1977), Mathematics of Operations Research 2, 103-107 (its rule against cycling).
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace tolvenra {

struct linked_sums {
  struct link {
    std::size_t row;
    double members;  ///< m_rk
  };
  std::vector<std::vector<link>> columns;  ///< of every value: the rows that hold it
  std::vector<double> totals;              ///< s_r
  std::vector<bool> open;                  ///< rows with a rest
};

/// Sums are met, and values are zero, to within this much.
inline constexpr double sum_rounding = 1e-12;

struct sum_solution {
  std::optional<std::size_t> unmet;  ///< a row whose sum contradicts those of the others
  /// A solution in which everything that can be above zero is; nothing if a row is unmet.
  std::vector<double> values, rests;
  std::vector<bool> value_known, rest_known;  ///< the same in every solution
};

/// \throws std::bad_alloc
sum_solution solve_sums(const linked_sums& sums);

}  // namespace tolvenra
