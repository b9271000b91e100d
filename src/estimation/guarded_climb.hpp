/// \file guarded_climb.hpp  Damped Newton ascent of a regression's objective, module `estimation`.
///
/// For regressions that the plain Newton fitter cannot fit: separated, nearly so, or started where
/// its steps overshoot. The damping is a multiple of the reference information
/// (flat_directions.hpp) rather than of the own diagonal: the diagonal vanishes with a category,
/// which then overshoots when it returns. In the eigenvectors of the pencil the damped step is one
/// division each.
/// Source: Marquardt (1963), J. SIAM 11, 431-441; Lange (1995), JRSS B 57, 425-437 (gradient EM).
#pragma once

#include "core/array.hpp"
#include "estimation/regression_surface.hpp"

namespace tolvenra::estimation {

struct climb_outcome {
  bool converged = false;
  bool finite = true;   ///< false where the objective does not exist
  double margin = 0.0;  ///< information of the weakest direction, per 1 + |objective|
};

/// Climbs from `beta` within the span of a reference-orthonormal basis.
///
/// Directions that are flat stop by gain: a step along one that gains less than 1e-12 (1 +
/// |objective|) is not taken, unless it leads back to more information. The others stop by the
/// fitter's test: no free coefficient's Newton step reaches 1e-5 of it, or none 1e-8 (1 + the
/// largest coefficient). The objective never falls.
/// \param[in,out] beta  (p, fitted categories) scaled coefficients
climb_outcome climb(regression_surface& surface, const array<double, 2>& basis,
                    const climb_limits& limits, array<double, 2>& beta);

}  // namespace tolvenra::estimation
