/// \file cdf_search.hpp  Bracketing search and zero finder behind the inverse distribution
/// functions.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace tolvenra::cdf::detail {

enum class outcome { found, below, above };

/// A distance that counts as a solution where the sign does not change: the tails may depend on
/// the argument so weakly that rounding hides the change, or come to the target at a bound.
inline constexpr double negligible = 1e-11;

/// ln(value/target), finite: a tail that underflows is known to be too small, unless it should
/// be 0, which inside the range no tail is.
inline double log_ratio(double value, double target) {
  if (target == 0.0) return 1e9;
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

/// Zero between 0 < a < b, where f has opposite signs or a zero: geometric bisection down to a
/// factor of two, then the zero finder.
template <class F>
double refine(const F& f, double a, double fa, double b, double fb) {
  while (b > 2.0 * a && fa != 0.0 && fb != 0.0) {
    const double middle = std::sqrt(a) * std::sqrt(b);
    const double fm = f(middle);
    const bool beyond = (fm > 0.0) == (fa > 0.0) && fm != 0.0;
    (beyond ? a : b) = middle;
    (beyond ? fa : fb) = fm;
  }
  return fa == 0.0 ? a : fb == 0.0 ? b : find_zero(f, a, fa, b, fb);
}

/// Solves f(x) = 0 for an f that ascends over 0 < lo <= x <= hi, by steps of growing ratio from
/// `start` until the sign changes. `root` is set only when a solution was found.
template <class F>
outcome solve(const F& f, double lo, double hi, double start, double& root) {
  double a = start, fa = f(a);
  const bool upward = fa < 0.0;
  double b = a, fb = fa;
  for (double ratio = 2.0; fa != 0.0 && (fb < 0.0) == upward; ratio *= ratio) {
    if (b == (upward ? hi : lo)) {
      if (!(std::abs(fb) <= negligible)) return upward ? outcome::above : outcome::below;
      root = b;
      return outcome::found;
    }
    a = b;
    fa = fb;
    b = upward ? std::min(b * ratio, hi) : std::max(b / ratio, lo);
    fb = f(b);
  }
  root = a < b ? refine(f, a, fa, b, fb) : refine(f, b, fb, a, fa);
  return outcome::found;
}

/// Looks for a zero between a and b, where |f| dips at m without a change of sign at the three: by
/// golden section down to the bottom of the dip. \return whether there is one
template <class F>
bool search_dip(const F& f, double a, double m, double fm, double b, double& root) {
  constexpr double golden = 0.3819660112501051;
  while (b > a * (1.0 + 1e-9)) {
    const bool right = b / m > m / a;
    const double x = m * std::pow((right ? b : a) / m, golden);
    const double fx = f(x);
    if ((fx > 0.0) != (fm > 0.0)) {
      root = right ? refine(f, m, fm, x, fx) : refine(f, x, fx, m, fm);
      return true;
    }
    if (std::abs(fx) < std::abs(fm)) {
      (right ? a : b) = std::exchange(m, x);
      fm = fx;
    } else {
      (right ? b : a) = x;
    }
  }
  root = m;
  return std::abs(fm) <= negligible;
}

/// The same as `solve` for an f that need not be monotone: walks outwards from `start` on both
/// sides at once in steps of `ratio` and takes the first change of sign, whether between two
/// points or in a dip about one. Without any the nearer bound tells.
template <class F>
outcome scan(const F& f, double lo, double hi, double start, double& root) {
  constexpr double ratio = 3.0;
  struct side {
    double before, f_before, at, f_at, bound;
  };
  const double f_start = f(start);
  side sides[] = {{start / ratio, f(start / ratio), start, f_start, hi},
                  {start * ratio, f(start * ratio), start, f_start, lo}};
  while (sides[0].at < hi || sides[1].at > lo)
    for (side& s : sides) {
      if (s.at == s.bound) continue;
      const bool up = s.bound == hi;
      const double next = up ? std::min(s.at * ratio, hi) : std::max(s.at / ratio, lo);
      const double f_next = f(next);
      if ((f_next > 0.0) != (s.f_at > 0.0)) {
        root = up ? refine(f, s.at, s.f_at, next, f_next) : refine(f, next, f_next, s.at, s.f_at);
        return outcome::found;
      }
      const double size = std::abs(s.f_at);
      if (size < std::abs(s.f_before) && size <= std::abs(f_next) &&
          search_dip(f, std::min(s.before, next), s.at, s.f_at, std::max(s.before, next), root))
        return outcome::found;
      s = {s.at, s.f_at, next, f_next, s.bound};
    }
  const side& nearer = std::abs(sides[1].f_at) < std::abs(sides[0].f_at) ? sides[1] : sides[0];
  root = nearer.at;
  if (std::abs(nearer.f_at) <= negligible) return outcome::found;
  return nearer.bound == lo ? outcome::below : outcome::above;
}

}  // namespace tolvenra::cdf::detail
