/// \file cdf_search.hpp  Bracketing search and zero finder behind the inverse distribution
/// functions.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace tolvenra::cdf::detail {

enum class outcome { found, below, above };

/// ln(value/target), finite: a tail that underflows is only known to be too small.
inline double log_ratio(double value, double target) {
  if (value == target) return 0.0;
  return std::clamp(std::log(value) - std::log(target), -1e9, 1e9);
}

/// Zero of f between a and b, where f has opposite signs fa and fb: inverse quadratic
/// interpolation where it is safe and bisection elsewhere, to the last digits of the argument.
/// Chandrupatla (1997), Adv. Eng. Software 28, 145-149.
template <class F>
double find_zero(const F& f, double a, double fa, double b, double fb) {
  double c = a, fc = fa, t = 0.5;
  for (int step = 0; step < 200; ++step) {
    const double x = a + t * (b - a);
    const double fx = f(x);
    if ((fx > 0.0) == (fa > 0.0)) {
      c = std::exchange(a, x);
      fc = std::exchange(fa, fx);
    } else {
      c = std::exchange(b, std::exchange(a, x));
      fc = std::exchange(fb, std::exchange(fa, fx));
    }
    const double best = std::abs(fa) < std::abs(fb) ? a : b;
    const double least = 2.0 * std::numeric_limits<double>::epsilon() * std::abs(best) /
                         std::abs(b - a);  // smallest step worth taking, as a share of b - a
    if (fx == 0.0 || least > 0.5) return best;
    const double xi = (a - b) / (c - b), phi = (fa - fb) / (fc - fb);
    t = 0.5;
    if (phi * phi < xi && (1.0 - phi) * (1.0 - phi) < 1.0 - xi)
      t = fa / (fb - fa) * (fc / (fb - fc)) +
          (c - a) / (b - a) * (fa / (fc - fa)) * (fb / (fc - fb));
    t = std::clamp(t, least, 1.0 - least);
  }
  return a;
}

/// Solves f(x) = 0 for an f that ascends over 0 < lo <= x <= hi: steps of growing ratio from
/// `start` until the sign changes, geometric bisection down to a factor of two, then the zero
/// finder. `root` is set only when a solution was found.
template <class F>
outcome solve(const F& f, double lo, double hi, double start, double& root) {
  double a = start, fa = f(a);
  const bool upward = fa < 0.0;
  double b = a, fb = fa;
  for (double ratio = 2.0; fa != 0.0 && (fb < 0.0) == upward; ratio *= ratio) {
    if (b == (upward ? hi : lo)) return upward ? outcome::above : outcome::below;
    a = b;
    fa = fb;
    b = upward ? std::min(b * ratio, hi) : std::max(b / ratio, lo);
    fb = f(b);
  }
  if (a > b) {
    std::swap(a, b);
    std::swap(fa, fb);
  }
  while (b > 2.0 * a && fa != 0.0 && fb != 0.0) {
    const double middle = std::sqrt(a) * std::sqrt(b);
    const double fm = f(middle);
    (fm < 0.0 ? a : b) = middle;
    (fm < 0.0 ? fa : fb) = fm;
  }
  root = fa == 0.0 ? a : fb == 0.0 ? b : find_zero(f, a, fa, b, fb);
  return outcome::found;
}

}  // namespace tolvenra::cdf::detail
