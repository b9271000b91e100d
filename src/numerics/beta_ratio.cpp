#include "numerics/beta_ratio.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "numerics/beta_expansions.hpp"

namespace tolvenra::cdf {
namespace detail {
namespace {

constexpr double eps = std::numeric_limits<double>::epsilon();

/// Power series in x; b <= 1, or b x below about 0.7.
double power_series(const beta_point& at) {
  double c = 1.0, sum = 0.0;
  for (int n = 1; n < 2000; ++n) {
    c *= (1.0 - at.b / n) * at.x;
    const double term = c / (at.a + n);
    sum += term;
    if (std::abs(term) * at.a <= 0.1 * eps * std::abs(1.0 + at.a * sum) ||
        std::abs(c) <= 0.01 * eps)
      break;
  }
  const scaled front = beta_front(at);
  return front.times((1.0 + at.a * sum) / at.a, -at.b * std::log1p(-at.x));
}

/// I_x(a, b) - I_x(a + n, b), a sum of n positive terms.
double recurrence(const beta_point& at, int n) {
  double term = 1.0, sum = 1.0;
  for (int i = 0; i < n - 1; ++i) {
    term *= (at.a + at.b + i) / (at.a + 1.0 + i) * at.x;
    sum += term;
  }
  return beta_front(at).times(sum / at.a);
}

/// Continued fraction for x below the mean and a, b > 1, evaluated forward (Lentz).
double fraction(const beta_point& at) {
  const double a = at.a, b = at.b, x = at.x;
  const double front = beta_front(at).times(1.0);
  if (front == 0.0) return 0.0;
  const auto beta = [&](double n) {
    return n + n * (b - n) * x / (a + 2.0 * n - 1.0) +
           (a + n) / (a + 2.0 * n + 1.0) * (at.lambda + 1.0 + n * (1.0 + at.y));
  };
  constexpr double tiny = 1e-290;
  double c = 1.0 / tiny, d = 1.0 / beta(0.0), h = d;
  for (int n = 1; n < 100000; ++n) {
    const double share = x / (a + 2.0 * n - 1.0);
    const double alpha = (a + n - 1.0) * share * ((a + b + n - 1.0) * share) * (n * (b - n));
    const double bn = beta(n);
    const double below = bn + alpha * d, above = bn + alpha / c;
    d = 1.0 / (below == 0.0 ? tiny : below);
    c = above == 0.0 ? tiny : above;
    const double change = c * d;
    h *= change;
    if (std::abs(change - 1.0) <= 0.5 * eps) break;
  }
  return front * h;
}

/// The point seen from the other end of the interval: I_y(b, a).
beta_point mirrored(const beta_point& at) { return {at.b, at.a, at.y, at.x, -at.lambda}; }

tails lower(double w) { return {w, 1.0 - w}; }
tails upper(double w1) { return {1.0 - w1, w1}; }

/// I_x(a, b) for b <= 1 and x beyond the reach of the power series: twenty steps of the recurrence
/// where a is not large enough for the expansion at once. `w` comes in with what is there already.
bool by_expansion(beta_point at, double& w) {
  constexpr int steps = 20;
  if (at.a <= 15.0) {
    w += recurrence(at, steps);
    at.a += steps;
  }
  return add_large_a(at.a, at.b, at.x, at.y, w);
}

/// The smaller parameter at most 1 and x <= 1/2.
bool tails_with_small_parameter(const beta_point& at, tails& out) {
  const auto [a, b, x, y, lambda] = at;
  const double power = std::pow(std::max(b, 1.0) * x, a);
  const bool near_zero = std::max(a, b) <= 1.0 ? a >= std::min(0.2, b) || power <= 0.9
                                               : b <= 1.0 || (x < 0.1 && power <= 0.7);
  if (near_zero) {
    out = lower(power_series(at));
    return true;
  }
  if (x >= 0.3) {
    out = upper(power_series(mirrored(at)));
    return true;
  }
  double w1 = 0.0;
  if (!by_expansion(mirrored(at), w1)) return false;
  out = upper(w1);
  return true;
}

/// 1 < b < 40, 1 < a and x below the mean: the whole part of b goes by the recurrence.
bool tails_with_moderate_b(const beta_point& at, tails& out) {
  const auto [a, b, x, y, lambda] = at;
  if (b * x <= 0.7) {
    out = lower(power_series(at));
    return true;
  }
  const int steps = static_cast<int>(std::ceil(b)) - 1;
  const double rest = b - steps;  // in (0, 1]
  double w = recurrence({rest, a, y, x, 0.0}, steps);
  const beta_point remaining{a, rest, x, y, 0.0};
  if (x <= 0.7)
    w += power_series(remaining);
  else if (!by_expansion(remaining, w))
    return false;
  out = lower(w);
  return true;
}

}  // namespace

bool beta_tails(const beta_point& at, tails& out) {
  const bool small = std::min(at.a, at.b) <= 1.0;
  if (at.x == 0.0 || at.y == 0.0) {
    out = at.x == 0.0 ? tails{0.0, 1.0} : tails{1.0, 0.0};
    return true;
  }
  if (small ? at.x > 0.5 : at.lambda < 0.0) {
    const bool done = beta_tails(mirrored(at), out);
    std::swap(out.p, out.q);
    return done;
  }
  if (small) return tails_with_small_parameter(at, out);
  if (at.b < 40.0) return tails_with_moderate_b(at, out);
  const double least = std::min(at.a, at.b);
  const bool central = least > 100.0 && at.lambda <= 0.03 * least;
  out = lower(central ? large_both(at) : fraction(at));
  return true;
}

}  // namespace detail

int32 bgrat(double a, double b, double x, double y, double& w, error_type& err) {
  if (detail::add_large_a(a, b, x, y, w)) return 0;
  return fail(err, {"bgrat", "cdf"},
              {text("Error in routine bgrat -- expansion cannot be computed.")});
}

int32 bratio(double a, double b, double x, double y, double& w, double& w1, error_type& err) {
  constexpr routine here{"bratio", "cdf"};
  const auto refuse = [&](const char* what) {
    return fail(err, here, {text("Error in routine bratio -- ", what)});
  };
  if (!(a >= 0.0 && b >= 0.0)) return refuse("a or b was negative.");
  if (a == 0.0 && b == 0.0) return refuse("a or b was zero.");
  if (!(x >= 0.0 && x <= 1.0)) return refuse("x was out of range.");
  if (!(y >= 0.0 && y <= 1.0)) return refuse("y was out of range.");
  if (!(std::abs(((x + y) - 0.5) - 0.5) <= 3.0 * detail::eps))
    return refuse("x and y do not sum to 1.");
  if (x == 0.0 && a == 0.0) return refuse("x and a were both zero.");
  if (y == 0.0 && b == 0.0) return refuse("y and b were both zero.");
  tails out{a == 0.0 ? 1.0 : 0.0, a == 0.0 ? 0.0 : 1.0};
  if (a > 0.0 && b > 0.0) {
    const double ay = a * y, bx = b * x;
    const double lambda = (ay - bx) + (std::fma(a, y, -ay) - std::fma(b, x, -bx));
    if (!detail::beta_tails({a, b, x, y, lambda}, out))
      return fail(err, here, {text("Error in function bgrat.")});
  }
  w = out.p;
  w1 = out.q;
  return 0;
}

}  // namespace tolvenra::cdf
