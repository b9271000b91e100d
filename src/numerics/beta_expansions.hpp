/// \file beta_expansions.hpp  Asymptotic pieces of the incomplete beta ratio.
#pragma once

#include <cmath>

#include "numerics/beta_ratio.hpp"

namespace tolvenra::cdf::detail {

/// m exp(e), kept apart so that e may lie beyond the range of exp.
struct scaled {
  double m, e;
  [[nodiscard]] double times_exp(double more) const { return m * std::exp(e + more); }
};

/// x^a y^b / B(a, b); lambda is read where both parameters are 10 or more.
scaled beta_front(const beta_point& at);

/// Adds I_x(a, b) to w, see `bgrat`. \return false where the expansion fails
[[nodiscard]] bool add_large_a(double a, double b, double x, double y, double& w);

/// I_x(a, b) for a, b > 100 and x below the mean by at most 3 %.
double large_both(const beta_point& at);

}  // namespace tolvenra::cdf::detail
