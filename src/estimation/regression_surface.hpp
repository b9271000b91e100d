/// \file regression_surface.hpp  The objective of a regression's M-step with its derivatives,
/// module `estimation`.
///
/// With outcome totals y_uk of the patterns (prior included), m_u = sum_k y_uk and fitted
/// probabilities p_uk the objective is sum_u sum_k y_uk log p_uk; its derivatives by the free
/// coefficients, category slowest and column of the scaled design fastest, are
///   score        sum_u x_uj (y_uk - m_u p_uk),
///   information  sum_u m_u x_uj x_uh p_uk ([k = l] - p_ul).
/// Sums run over the ordered blocks of the patterns: the same bits at any number of threads.
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"
#include "estimation/regression.hpp"

namespace tolvenra::estimation {

class regression_surface {
 public:
  /// Of a regression whose outcome is loaded.
  regression_surface(regression& fit, int32 threads);

  /// Free coefficients: columns times the fitted categories but the reference.
  [[nodiscard]] int32 order() const { return order_; }
  /// Column j and fitted category k, 1-based, of free coefficient q (from 0).
  [[nodiscard]] int32 column(int32 q) const { return q % columns_ + 1; }
  [[nodiscard]] int32 category(int32 q) const {
    const int32 k = q / columns_ + 1;
    return k < fit_.fitted.baseline ? k : k + 1;
  }

  /// Objective at (p, fitted categories) coefficients, reference column 0; NaN where a predictor
  /// is not finite.
  double objective(const array<double, 2>& beta);
  /// Objective, score and information, which stay in the members below.
  void expand(const array<double, 2>& beta);

  double value = 0.0;              ///< objective
  std::vector<double> score;       ///< (order)
  std::vector<double> score_size;  ///< (order) sum of the absolute values of what it adds up
  array<double, 2> information;    ///< (order, order)

  /// Slope of the objective along a direction; 0 where rounding alone could have made it.
  [[nodiscard]] double slope(const double* direction) const;
  /// sum_u m_u E(a_u - E a_u)^3, a_u the change of the predictors along a direction: how fast the
  /// information of the direction grows along it.
  double third_moment(const array<double, 2>& beta, const double* direction);
  /// Largest absolute change of a predictor along a direction, over patterns and categories.
  [[nodiscard]] double reach(const double* direction) const;
  /// A bound on a direction's reach that costs no pass over the patterns.
  [[nodiscard]] double reach_bound(const double* direction) const;
  /// What rounding of large predictors may do to the objective.
  [[nodiscard]] double rounding(const array<double, 2>& beta) const;
  /// Adds a direction to coefficients.
  void add(const double* direction, array<double, 2>& beta) const;
  /// Sum of the outcomes.
  [[nodiscard]] double total() const;

 private:
  /// One pattern at the coefficients: predictors less the largest, and the logarithm of the sum of
  /// their exponentials.
  struct fitted_pattern {
    const double *predictor, *probability;
    double log_scale, total;
  };
  [[nodiscard]] double loglik_of(int32 u, const fitted_pattern& now) const;
  template <class Row>
  void sum_rows(const array<double, 2>& beta, std::size_t width, Row&& row);

  regression& fit_;
  int32 threads_, columns_, categories_, order_;
};

}  // namespace tolvenra::estimation
