/// \file gamma_ratio.hpp  The incomplete gamma ratios, part of module `cdf`.
///
/// P(a, x) = integral of t^(a-1) exp(-t) / Gamma(a) over (0, x), and Q = 1 - P. Both are computed
/// so that the smaller one keeps its relative accuracy (about 1e-14, and 3 eps |ln p| in far
/// tails). Regimes after DiDonato & Morris (1986), ACM TOMS 12, 377-393: power series below the
/// mean, continued fraction above it, a difference-free series for small a and x, and for x near a
/// large a the uniform expansion of Temme (1979), SIAM J. Math. Anal. 10, 757-766.
#pragma once

#include "core/error_handler.hpp"

namespace tolvenra::cdf {

/// Lower and upper probability.
struct tails {
  double p, q;
};

/// P and Q for a >= 0 and x >= 0, not both zero; x may be infinite.
/// \return 0, or -1 with p and q unchanged: both arguments zero, or an a beyond 1e28 that agrees
///         with x to rounding, where the ratio depends on digits that a double does not hold.
int32 gratio(double a, double x, double& p, double& q, error_type& err);

/// `gratio` behind a check of the signs, with a report that tells which argument was at fault.
int32 gamma_inc(double a, double x, double& p, double& q, error_type& err);

namespace detail {

/// P and Q without any check, for a > 0 and x >= 0.
tails gamma_tails(double a, double x);
/// Q(a, x) divided by x^a exp(-x) / Gamma(a), which may underflow; 0 < a <= 1, x > 0.
double upper_over_density(double a, double x);
/// x^a exp(-x) / Gamma(a)
double gamma_density(double a, double x);

/// 1 / Gamma(1 + a) - 1 for -0.5 <= a <= 1.5, accurate relative to itself at both zeros.
double reciprocal_gamma_minus_one(double a);
/// 1 / Gamma(a) for 0 < a < 10.
double reciprocal_gamma(double a);
/// ln Gamma(a) - ((a - 1/2) ln a - a + ln(2 pi)/2), a >= 10.
double stirling_correction(double a);
/// u - ln(1 + u), u > -1.
double rlog1(double u);

}  // namespace detail
}  // namespace tolvenra::cdf
