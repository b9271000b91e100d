#include "numerics/gamma_ratio.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "numerics/gamma_ratio_tables.hpp"

namespace tolvenra::cdf {
namespace {

constexpr double eps = std::numeric_limits<double>::epsilon();

/// Horner's rule.
template <class C>
double polynomial(const C& c, int terms, double x) {
  double sum = 0.0;
  for (int k = terms; k-- > 0;) sum = sum * x + c[k];
  return sum;
}

/// P/(x^a exp(-x)/Gamma(a)) = (1/a)(1 + x/(a+1) + x^2/((a+1)(a+2)) + ...)
double lower_over_density(double a, double x) {
  double term = 1.0, sum = 1.0;
  for (double n = a + 1.0; term > 0.1 * eps * sum; n += 1.0) {
    term *= x / n;
    sum += term;
  }
  return sum / a;
}

/// Legendre's continued fraction of Q/(x^a exp(-x)/Gamma(a)), evaluated forward by the method of
/// Lentz (1976), Appl. Opt. 15, 668-671.
double upper_fraction(double a, double x) {
  constexpr double tiny = 1e-290;
  double b = x + 1.0 - a;
  double c = 1.0 / tiny;
  double d = 1.0 / b;
  double h = d;
  for (int n = 1; n < 100000; ++n) {
    const double an = n * (a - n);
    b += 2.0;
    const double below = an * d + b;
    const double above = b + an / c;
    d = 1.0 / (below == 0.0 ? tiny : below);
    c = above == 0.0 ? tiny : above;
    const double change = c * d;
    h *= change;
    if (std::abs(change - 1.0) <= 0.5 * eps) break;
  }
  return h;
}

/// For a < 1 and x < 1.5: with w = x^a and g = 1/Gamma(1+a), P = w g (1 - j), and Q from w - 1,
/// g - 1 and j, which are each small when Q is.
tails small_tails(double a, double x) {
  double term = 1.0, sum = 0.0;
  for (int n = 1; n < 60; ++n) {
    term *= -x / n;
    const double add = term / (a + n);
    sum += add;
    if (std::abs(add) <= 0.1 * eps * std::abs(sum)) break;
  }
  const double j = -a * sum;
  const double z = a * std::log(x);
  const double h = detail::reciprocal_gamma_minus_one(a);
  const double g = 1.0 + h;
  const double p = std::exp(z) * g * (1.0 - j);
  if (p < 0.5) return {p, 1.0 - p};
  const double q = std::exp(z) * g * j - (std::expm1(z) * g + h);
  return {1.0 - q, q};
}

/// x - a - a ln(x/a), the exponent of the density below its greatest value. The rounding errors of
/// mu = (x - a)/a are carried along: in far tails they would be magnified.
double exponent_about_mean(double a, double x) {
  const double d = x - a, mu = d / a, ratio = x / a;
  if (ratio < 0.3) return a * (mu - std::log(ratio));
  const double x_part = d + a, a_part = x_part - d;  // Knuth's exact error of a difference
  const double d_error = (x - x_part) + (a_part - a);
  return a * detail::rlog1(mu) + (std::fma(-mu, a, d) + d_error) * (d / x);
}

/// Temme's uniform expansion, a >= 20 and x within 40 % of a.
tails temme_tails(double a, double x) {
  const double mu = (x - a) / a;
  const double exponent = exponent_about_mean(a, x);
  const double eta = std::copysign(std::sqrt(2.0 * detail::rlog1(mu)), mu);
  double sum = 0.0, power = 1.0;
  for (const auto& row : detail::temme_rows) {
    const double term = polynomial(row.c, row.terms, eta) * power;
    sum += term;
    power /= a;
    if (power <= 1e-17) break;
  }
  const double fall = std::exp(-exponent);
  const double rest = fall * sum / std::sqrt(2.0 * std::numbers::pi * a);
  const double y = std::sqrt(exponent);
  double half_erfc = 0.5 * std::erfc(y);
  if (y > 1.0)  // the rounding error of y
    half_erfc += 0.5 * std::numbers::inv_sqrtpi * fall * std::fma(y, y, -exponent) / y;
  if (mu >= 0.0) {
    const double q = half_erfc + rest;
    return {1.0 - q, q};
  }
  const double p = half_erfc - rest;
  return {p, 1.0 - p};
}

}  // namespace

double detail::reciprocal_gamma_minus_one(double a) {
  // Taylor coefficients of 1/Gamma(1 + t) behind the leading 1 (Wrench 1968, Math. Comp. 22)
  constexpr double h[] = {
      0.57721566490153286061,     -0.65587807152025388108,     -0.042002635034095235529,
      0.1665386113822914895,      -0.042197734555544336748,    -0.0096219715278769735621,
      0.0072189432466630995424,   -0.0011651675918590651121,   -0.00021524167411495097282,
      0.00012805028238811618615,  -0.000020134854780788238656, -1.2504934821426706573e-6,
      1.1330272319816958824e-6,   -2.0563384169776071035e-7,   6.1160951044814158179e-9,
      5.0020076444692229301e-9,   -1.1812745704870201446e-9,   1.0434267116911005105e-10,
      7.782263439905071254e-12,   -3.6968056186422057082e-12,  5.100370287454475979e-13,
      -2.0583260535665067832e-14, -5.3481225394230179824e-15};
  constexpr int terms = static_cast<int>(std::size(h));
  if (a <= 0.5) return a * polynomial(h, terms, a);
  const double t = a - 1.0;  // Gamma(1 + a) = a Gamma(1 + t)
  return t * (polynomial(h, terms, t) - 1.0) / a;
}

double detail::reciprocal_gamma(double a) {
  if (a <= 0.5) return a * (1.0 + reciprocal_gamma_minus_one(a));
  double product = 1.0;
  while (a > 1.5) product *= (a -= 1.0);
  return (1.0 + reciprocal_gamma_minus_one(a - 1.0)) / product;
}

double detail::stirling_correction(double a) {
  constexpr double c[] = {1.0 / 12.0,   -1.0 / 360.0,      1.0 / 1260.0, -1.0 / 1680.0,
                          1.0 / 1188.0, -691.0 / 360360.0, 1.0 / 156.0,  -3617.0 / 122400.0};
  return polynomial(c, 8, 1.0 / (a * a)) / a;
}

double detail::rlog1(double u) {
  if (u <= -0.7 || u >= 1.0) return u - std::log1p(u);
  const double r = u / (2.0 + u);  // ln(1 + u) = 2 artanh(r)
  const double square = r * r;
  double sum = 0.0, power = 1.0;
  for (double n = 3.0; power > 1e-17; n += 2.0) {
    sum += power / n;
    power *= square;
  }
  return r * (u - 2.0 * square * sum);
}

double detail::gamma_density(double a, double x) {
  if (a < 10.0) {
    const double half = std::exp(-0.5 * x);  // in two steps: exp(-x) alone may underflow early
    if (half == 0.0) return 0.0;             // where the power may overflow
    return half * (std::pow(x, a) * reciprocal_gamma(a)) * half;
  }
  return std::sqrt(a / (2.0 * std::numbers::pi)) * std::exp(-exponent_about_mean(a, x)) *
         std::exp(-stirling_correction(a));
}

double detail::upper_over_density(double a, double x) {
  if (x >= 1.5) return upper_fraction(a, x);
  if (a < 1.0) return small_tails(a, x).q / gamma_density(a, x);
  return 1.0 / x;  // Q = exp(-x)
}

tails detail::gamma_tails(double a, double x) {
  if (x == 0.0) return {0.0, 1.0};
  if (std::isinf(x)) return {1.0, 0.0};
  const double mu = (x - a) / a;
  if (a >= 20.0 && std::abs(mu) <= 0.4) return temme_tails(a, x);
  if (a < 1.0 && x < 1.5) return small_tails(a, x);
  const double density = gamma_density(a, x);
  if (density == 0.0) return x < a ? tails{0.0, 1.0} : tails{1.0, 0.0};
  if (x < (a < 20.0 ? a + 1.0 : a)) {
    const double p = density * lower_over_density(a, x);
    return {p, 1.0 - p};
  }
  const double q = density * upper_fraction(a, x);
  return {1.0 - q, q};
}

int32 gratio(double a, double x, double& p, double& q, error_type& err) {
  constexpr routine here{"gratio", "cdf"};
  if (a == 0.0 && x == 0.0)
    return fail(err, here, {text("Error in routine gratio -- a or x was zero.")});
  // beyond, the spacing of doubles at a is more than a twentieth of the standard deviation sqrt(a)
  if (!(a > 0.0 || x > 0.0) || (std::sqrt(a) * eps > 0.05 && std::abs(x - a) <= 2.0 * eps * a))
    return fail(err, here, {text("Error in routine gratio -- p and q are indeterminate.")});
  const tails both = a == 0.0 ? tails{1.0, 0.0} : detail::gamma_tails(a, x);
  p = both.p;
  q = both.q;
  return 0;
}

int32 gamma_inc(double a, double x, double& p, double& q, error_type& err) {
  constexpr routine here{"gamma_inc", "cdf"};
  if (!(a >= 0.0 && x >= 0.0)) return fail(err, here, {text("Argument a or x was negative.")});
  if (std::isinf(a)) return fail(err, here, {text("Argument a was too large.")});
  if (gratio(a, x, p, q, err) == 0) return 0;
  if (a == 0.0) return fail(err, here, {text("Argument a or x was zero.")});
  if (x == a) return fail(err, here, {text("Arguments a and x are too close.")});
  return fail(err, here, {text("Argument a is extremely large or x is very close to a.")});
}

}  // namespace tolvenra::cdf
