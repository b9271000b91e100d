#include "numerics/beta_expansions.hpp"

#include <algorithm>
#include <limits>
#include <numbers>

namespace tolvenra::cdf::detail {
namespace {

constexpr double eps = std::numeric_limits<double>::epsilon();

/// ln v of a v in (0, 1) that is known with its complement.
double log_of(double v, double complement) {
  return complement < 0.4 ? std::log1p(-complement) : std::log(v);
}

/// u - ln(1 + u) where 1 + u is known as `ratio` too.
double deviance(double u, double ratio) { return u < -0.7 ? u - std::log(ratio) : rlog1(u); }

/// a deviance(x/x0) + b deviance(y/y0) about the mean x0 = a/(a+b): minus the logarithm of
/// x^a y^b relative to its greatest value.
double exponent_of(const beta_point& at) {
  const double sum = at.a + at.b;
  return at.a * deviance(-at.lambda / at.a, at.x * (sum / at.a)) +
         at.b * deviance(at.lambda / at.b, at.y * (sum / at.b));
}

/// Stirling's correction of ln(1/B(a, b)), a, b >= 10.
double correction_of(double a, double b) {
  return stirling_correction(a + b) - stirling_correction(a) - stirling_correction(b);
}

/// ln(Gamma(s + l)/Gamma(l)) - s ln(s + l) for l >= 10.
double log_gamma_step(double s, double l) {
  return (l - 0.5) * std::log1p(s / l) - s + (stirling_correction(s + l) - stirling_correction(l));
}

}  // namespace

scaled beta_front(const beta_point& at) {
  const auto [a, b, x, y, lambda] = at;
  if (std::min(a, b) >= 10.0)
    return {std::sqrt(a / (a + b) * b / (2.0 * std::numbers::pi)) * std::exp(correction_of(a, b)),
            -exponent_of(at)};
  if (std::max(a, b) < 10.0)
    return {reciprocal_gamma(a) / reciprocal_gamma(a + b) * reciprocal_gamma(b),
            a * log_of(x, y) + b * log_of(y, x)};
  const bool a_small = a < b;
  const double s = a_small ? a : b, l = a_small ? b : a;
  const double xs = a_small ? x : y, xl = a_small ? y : x;
  return {reciprocal_gamma(s),
          log_gamma_step(s, l) + s * std::log((s + l) * xs) + l * log_of(xl, xs)};
}

bool add_large_a(double a, double b, double x, double y, double& w) {
  constexpr int most = 30;
  const double nu = a + 0.5 * (b - 1.0);
  const double log_x = log_of(x, y);
  const double z = -nu * log_x;
  if (!(b > 0.0 && z > 0.0) || std::isinf(z)) return std::isinf(z);  // far out there is nothing
  const double u =
      reciprocal_gamma(b) * std::exp(log_gamma_step(b, a) + b * std::log((a + b) * -log_x) - z);
  if (u == 0.0) return true;
  double c[most + 1]{}, d[most + 1]{};
  const double v = 0.25 / (nu * nu), quarter_square = 0.25 * log_x * log_x;
  double j = upper_over_density(b, z), sum = j, power = 1.0, cn = 1.0;
  for (int n = 1; n <= most; ++n) {
    const double shifted = b + 2.0 * (n - 1);
    j = (shifted * (shifted + 1.0) * j + (z + shifted + 1.0) * power) * v;
    power *= quarter_square;
    cn /= 2.0 * n * (2.0 * n + 1.0);
    c[n] = cn;  // coefficients of sinh(t)/t in t^2
    double s = 0.0;
    for (int i = 1; i < n; ++i) s += (b * i - n) * c[i] * d[n - i];
    d[n] = (b - 1.0) * cn + s / n;  // of (sinh(t)/t)^(b-1)
    const double add = d[n] * j;
    sum += add;
    if (!(sum > 0.0)) return false;
    if (std::abs(add) <= 0.1 * eps * (sum + w / u)) break;
  }
  w += u * sum;
  return true;
}

/// With f the exponent over the greatest value and z = sqrt(f), the substitution that makes f a
/// square turns I_x into exp(-f) sum d_n w0^n J_n(z), where J_n are repeated integrals of the
/// normal tail; the d_n come from reverting and raising power series (section 5 of the paper).
double large_both(const beta_point& at) {
  constexpr int most = 20;
  const auto [a, b, x, y, lambda] = at;
  const double f = exponent_of(at);
  if (f > 708.0) return 0.0;
  const double h = std::min(a, b) / std::max(a, b);
  const double r0 = 1.0 / (1.0 + h), r1 = (b - a) / std::max(a, b);
  const double w0 = 1.0 / std::sqrt(std::min(a, b) * (1.0 + h));
  const double root8 = 1.0 / (2.0 * std::numbers::sqrt2);
  const double z0 = std::sqrt(f), z = z0 * std::numbers::sqrt2, z2 = 2.0 * f;
  double series[most + 1]{}, power[most + 1]{}, c[most + 1]{}, d[most + 1]{};
  series[0] = 2.0 / 3.0 * r1;
  c[0] = -0.5 * series[0];
  d[0] = -c[0];
  double j0 = 0.25 / std::numbers::inv_sqrtpi * std::exp(f) * std::erfc(z0);
  double j1 = root8, sum = j0 + d[0] * w0 * j1;
  double s = 1.0, h_power = 1.0, w = w0, z_odd = z, z_even = z2;
  for (int n = 2; n <= most; n += 2) {
    h_power *= h * h;
    series[n - 1] = 2.0 * r0 * (1.0 + h * h_power) / (n + 2.0);
    s += h_power;
    series[n] = 2.0 * r1 * s / (n + 3.0);
    for (int i = n; i <= n + 1; ++i) {
      const double r = -0.5 * (i + 1.0);
      power[0] = r * series[0];
      for (int m = 2; m <= i; ++m) {
        double total = 0.0;
        for (int k = 1; k < m; ++k) total += (k * r - (m - k)) * series[k - 1] * power[m - k - 1];
        power[m - 1] = r * series[m - 1] + total / m;
      }
      c[i - 1] = power[i - 1] / (i + 1.0);
      double total = 0.0;
      for (int k = 1; k < i; ++k) total += d[i - k - 1] * c[k - 1];
      d[i - 1] = -(total + c[i - 1]);
    }
    j0 = root8 * z_odd + (n - 1.0) * j0;
    j1 = root8 * z_even + n * j1;
    z_odd *= z2;
    z_even *= z2;
    const double first = d[n - 1] * (w *= w0) * j0;
    const double second = d[n] * (w *= w0) * j1;
    sum += first + second;
    if (std::abs(first) + std::abs(second) <= 0.5 * eps * sum) break;
  }
  return 2.0 * std::numbers::inv_sqrtpi * std::exp(-f) * std::exp(correction_of(a, b)) * sum;
}

}  // namespace tolvenra::cdf::detail
