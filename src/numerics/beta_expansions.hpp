/// \file beta_expansions.hpp  Asymptotic pieces of the incomplete beta ratio.
#pragma once

#include <cmath>

#include "numerics/beta_ratio.hpp"

namespace tolvenra::cdf::detail {

/// m exp(e), kept apart so that a large factor may come in before exp(e) underflows.
struct scaled {
  double m, e;
  /// m exp(e + more) factor; 0 where exp is far below that, whatever the factor
  [[nodiscard]] double times(double factor, double more = 0.0) const {
    const double half = std::exp(0.5 * (e + more));
    return half == 0.0 ? 0.0 : half * (m * factor) * half;
  }
};

/// x^a y^b / B(a, b); lambda is read where both parameters are 10 or more.
scaled beta_front(const beta_point& at);

/// Adds I_x(a, b) to w, see `bgrat`. \return false where the expansion fails
[[nodiscard]] bool add_large_a(double a, double b, double x, double y, double& w);

/// I_x(a, b) for a, b > 100 and x below the mean by at most 3 %.
double large_both(const beta_point& at);

}  // namespace tolvenra::cdf::detail
