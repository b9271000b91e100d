/// \file beta_ratio.hpp  The incomplete beta ratio, part of module `cdf`.
///
/// I_x(a, b) = integral of t^(a-1) (1-t)^(b-1) / B(a, b) over (0, x). It and its complement are
/// computed so that the smaller one keeps its relative accuracy. Division into regimes and
/// expansions after DiDonato & Morris (1992), ACM TOMS 18, 360-373: power series, recurrence in a
/// parameter, continued fraction, and asymptotic expansions for one or both parameters large.
#pragma once

#include "core/error_handler.hpp"
#include "numerics/gamma_ratio.hpp"

namespace tolvenra::cdf {

/// w = I_x(a, b) and w1 = 1 - w for a, b >= 0, not both zero, and y = 1 - x, which is an argument
/// of its own because near x = 1 it holds the digits that x cannot.
/// \return 0, or -1 with w and w1 unchanged
int32 bratio(double a, double b, double x, double y, double& w, double& w1, error_type& err);

/// Adds I_x(a, b) to w >= 0 for a >= 15 and 0 < b <= 1 by the expansion in incomplete gamma ratios
/// Q(b + 2n, -(a + (b-1)/2) ln x).
/// \return 0, or -1 with w unchanged where the expansion does not exist (x = 1) or fails
int32 bgrat(double a, double b, double x, double y, double& w, error_type& err);

namespace detail {

/// Where I_x(a, b) is asked for: y = 1 - x and lambda = a y - b x, each accurate in its own digits.
struct beta_point {
  double a, b, x, y, lambda;
};

/// I_x(a, b) as p and its complement as q, without any check; a, b > 0.
/// \return false when `bgrat` fails
[[nodiscard]] bool beta_tails(const beta_point& at, tails& out);

}  // namespace detail
}  // namespace tolvenra::cdf
