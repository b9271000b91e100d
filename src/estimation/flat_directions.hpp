/// \file flat_directions.hpp  Directions of a regression's coefficients about which the data say
/// next to nothing, module `estimation`.
///
/// The information I of a regression is compared with what the same design would hold at equal
/// probabilities of the fitted categories, R = (diag(1/r) - 11'/r^2) x (mean of xx'). The
/// eigenvectors v of I v = lambda R v are orthogonal in both, so that a Newton step is the sum of
/// one step along each. Scaled until the largest change of any linear predictor is 1, v'Iv counts
/// the cases that inform about the direction. Where it has all but vanished (separated categories,
/// a destination nobody takes, a class that a group does not have) the likelihood goes on rising by
/// ever less, and the direction is flat. A singular R, whose columns repeat each other, is another
/// matter: no data could tell its directions apart.
/// Source: Albert & Anderson (1984), Biometrika 71, 1-10; Golub & Van Loan (2013), Matrix
/// Computations, 4th ed., section 8.7 (symmetric-definite pencils).
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"
#include "estimation/regression.hpp"
#include "estimation/regression_surface.hpp"

namespace tolvenra::estimation {

/// Below this information per 1 + |objective| a direction is held by the M-steps, and below the
/// other one its coefficients have no finite estimate.
inline constexpr double held_below = 1e-10;
inline constexpr double runaway_below = 1e-8;

/// Directions, orthonormal in the reference and orthogonal in the information.
struct direction_set {
  array<double, 2> v;               ///< (order, directions)
  std::vector<double> information;  ///< v'Iv
  std::vector<bool> flat;           ///< below the limit asked for, after scaling
  double weakest = 0.0;             ///< bound from below on the scaled information of all of them

  [[nodiscard]] int32 count() const { return v.n[1]; }
  [[nodiscard]] bool any_flat() const;
};

/// R-orthonormal basis of all directions, (order, order). \return false where R is singular
bool reference_basis(const regression& fit, array<double, 2>& basis);
/// The reference R itself, (order, order).
array<double, 2> reference_of(const regression& fit);

/// The pencil's eigenvectors within the span of a reference-orthonormal basis, of the information
/// that the surface holds. \param limit  flat below limit * (1 + |objective|)
direction_set find_directions(const regression_surface& surface, const array<double, 2>& basis,
                              double limit);

/// What a step along a direction gains at most: a Newton step's gain, and the objective, being
/// concave, no more than its slope over a change of the predictors by 1e4.
double most_to_gain(const regression_surface& surface, const direction_set& directions,
                    std::size_t i, double slope);

/// Basis of the directions in which an M-step may move: all but the flat ones along which what is
/// to be gained is negligible and leads to even less information. A way back is never closed.
array<double, 2> movable_directions(regression_surface& surface, const array<double, 2>& beta,
                                    const direction_set& directions);

/// Finds the coefficients without a finite estimate at the end of the iterations and notes them in
/// the row. \param beta  user coefficients, (p, r)
void find_runaways(regression& fit, const double* beta, int32 threads, fitted_row& row);

/// A coefficient takes part in a flat direction from here on.
inline constexpr double runaway_weight = 1e-6;

/// Marks of a fitted row's coefficients, (p, r): whether one has no finite estimate.
bool is_runaway(const fitted_row& row, int32 column, int32 category);
/// Coefficients of a row so marked.
int32 count_runaways(const fitted_row& row);

/// Basis of what the flat directions leave, orthogonal to them in the reference, (order, order -
/// flat ones); empty where the reference is singular.
array<double, 2> complement_of(const array<double, 2>& flat, const array<double, 2>& reference);

}  // namespace tolvenra::estimation
