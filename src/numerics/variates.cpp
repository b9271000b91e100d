#include "numerics/variates.hpp"

#include <algorithm>
#include <cmath>

#include "core/dynamic_allocation.hpp"
#include "numerics/lower_triangular.hpp"

namespace tolvenra::random_generator {
namespace {

constexpr routine in(std::string_view name) { return {name, "random_generator"}; }

/// Bounds of the 32 intervals of equal probability of the half-normal distribution.
constexpr std::array<float, 32> bound{
    0.0F,      .3917609E-1F, .7841241E-1F, .1177700F, .1573107F, .1970991F, .2372021F, .2776904F,
    .3186394F, .3601299F,    .4022501F,    .4450965F, .4887764F, .5334097F, .5791322F, .6260990F,
    .6744898F, .7245144F,    .7764218F,    .8305109F, .8871466F, .9467818F, 1.009990F, 1.077516F,
    1.150349F, 1.229859F,    1.318011F,    1.417797F, 1.534121F, 1.675940F, 1.862732F, 2.153875F};
/// Lengths of the tail's intervals, each of half the probability of the one before; from the sixth.
constexpr std::array<float, 31> tail{
    0.0F,      0.0F,      0.0F,      0.0F,      0.0F,      .2636843F, .2425085F, .2255674F,
    .2116342F, .1999243F, .1899108F, .1812252F, .1736014F, .1668419F, .1607967F, .1553497F,
    .1504094F, .1459026F, .1417700F, .1379632F, .1344418F, .1311722F, .1281260F, .1252791F,
    .1226109F, .1201036F, .1177417F, .1155119F, .1134023F, .1114027F, .1095039F};
/// Below this share of an interval the centre samples once more ...
constexpr std::array<float, 31> again{
    .7673828E-3F, .2306870E-2F, .3860618E-2F, .5438454E-2F, .7050699E-2F, .8708396E-2F,
    .1042357E-1F, .1220953E-1F, .1408125E-1F, .1605579E-1F, .1815290E-1F, .2039573E-1F,
    .2281177E-1F, .2543407E-1F, .2830296E-1F, .3146822E-1F, .3499233E-1F, .3895483E-1F,
    .4345878E-1F, .4864035E-1F, .5468334E-1F, .6184222E-1F, .7047983E-1F, .8113195E-1F,
    .9462444E-1F, .1123001F,    .1364980F,    .1716886F,    .2276241F,    .3304980F,
    .5847031F};
/// ... above it the rest is stretched to the interval.
constexpr std::array<float, 31> stretch{
    .3920617E-1F, .3932705E-1F, .3950999E-1F, .3975703E-1F, .4007093E-1F, .4045533E-1F,
    .4091481E-1F, .4145507E-1F, .4208311E-1F, .4280748E-1F, .4363863E-1F, .4458932E-1F,
    .4567523E-1F, .4691571E-1F, .4833487E-1F, .4996298E-1F, .5183859E-1F, .5401138E-1F,
    .5654656E-1F, .5953130E-1F, .6308489E-1F, .6737503E-1F, .7264544E-1F, .7926471E-1F,
    .8781922E-1F, .9930398E-1F, .1155599F,    .1404344F,    .1836142F,    .2790016F,
    .7010474F};

double uniform(ran_state_type& state) { return detail::next_uniform(state); }

/// Forsythe's comparison: runs of descending uniforms decide with probability exp(-limit).
/// `reached` enters and leaves as the uniform compared first.
bool accepted(ran_state_type& state, double limit, double& reached) {
  while (!(reached > limit)) {
    limit = uniform(state);
    if (!(reached >= limit)) return false;
    reached = uniform(state);
  }
  return true;
}

/// Distance from the interval's start `a` of a deviate between it and the next bound.
double centre(ran_state_type& state, std::size_t i, double rest) {
  const double a = bound[i - 1];
  while (!(rest > again[i - 1])) {
    const double w = uniform(state) * (double{bound[i]} - a);
    if (accepted(state, (0.5 * w + a) * w, rest)) return w;
    rest = uniform(state);
  }
  return (rest - again[i - 1]) * stretch[i - 1];
}

/// A deviate beyond the last bound; u in (0, 1).
double beyond(ran_state_type& state, double u) {
  double a = bound[31];
  std::size_t i = 5;
  u += u;
  while (u < 1.0 && i + 1 < tail.size()) {
    a += tail[i++];
    u += u;
  }
  u -= 1.0;
  for (;;) {
    const double w = u * tail[i];
    double first = uniform(state);
    if (accepted(state, (0.5 * w + a) * w, first)) return a + w;
    u = uniform(state);
  }
}

double normal(ran_state_type& state) {
  double u = uniform(state);
  const bool negative = u > 0.5;
  u = 32.0 * (u + u - (negative ? 1.0 : 0.0));
  const auto i = std::min<std::size_t>(static_cast<std::size_t>(u), 31);
  const double y =
      i == 0 ? beyond(state, u) : bound[i - 1] + centre(state, i, u - static_cast<double>(i));
  return negative ? -y : y;
}

/// Partial sums of (ln 2)^k / k!.
constexpr std::array<float, 8> ln2_series{.6931472F, .9333737F, .9888778F, .9984959F,
                                          .9998293F, .9999833F, .9999986F, .9999999F};

double exponential(ran_state_type& state) {
  constexpr double ln2 = ln2_series[0];
  double a = 0.0, u = uniform(state);
  u += u;
  while (u < 1.0) {
    a += ln2;
    u += u;
  }
  u -= 1.0;
  if (u <= ln2) return a + u;
  double least = uniform(state);
  for (std::size_t i = 1; i < ln2_series.size(); ++i) {
    least = std::min(least, uniform(state));
    if (u <= ln2_series[i]) break;
  }
  return a + least * ln2;
}

/// value = c[0] + c[1] x + ...
template <std::size_t N>
double polynomial(const std::array<float, N>& c, double x) {
  double value = 0.0;
  for (std::size_t k = N; k-- > 0;) value = value * x + c[k];
  return value;
}

/// Gamma deviates of shape 1 or more: a squared normal deviate, corrected by rejection.
class large_shape {
 public:
  explicit large_shape(double shape)
      : s2_(shape - 0.5), s_(std::sqrt(s2_)), d_(double{5.656854F} - 12.0 * s_) {
    constexpr std::array<float, 7> q{0.04166669F, 0.02083148F, 0.00801191F, 0.00144121F,
                                     -7.388E-5F,  2.4511E-4F,  2.424E-4F};
    const double r = 1.0 / shape;
    q0_ = polynomial(q, r) * r;
    if (shape <= 3.686F) {
      b_ = 0.463F + s_ + 0.178F * s2_;
      sigma_ = 1.235F;
      c_ = 0.195F / s_ - 0.079F + 0.16F * s_;
    } else if (shape <= 13.022F) {
      b_ = 1.654F + 0.0076F * s2_;
      sigma_ = 1.68F / s_ + 0.275F;
      c_ = 0.062F / s_ + 0.024F;
    } else {
      b_ = 1.77F;
      sigma_ = 0.75F;
      c_ = 0.1515F / s_;
    }
  }

  double draw(ran_state_type& state) const {
    const double t = normal(state);
    const double x = s_ + 0.5 * t;
    if (t >= 0.0) return x * x;
    const double u = uniform(state);
    if (d_ * u <= t * t * t) return x * x;
    if (x > 0.0 && std::log(1.0 - u) <= quotient(t)) return x * x;
    return double_exponential(state);
  }

 private:
  /// Logarithm of the ratio of the gamma density to the normal one.
  [[nodiscard]] double quotient(double t) const {
    constexpr std::array<float, 7> a{0.3333333F, -0.250003F,  0.2000062F, -0.1662921F,
                                     0.1423657F, -0.1367177F, 0.1233795F};
    const double v = t / (s_ + s_);
    if (std::abs(v) > 0.25) return q0_ - s_ * t + 0.25 * t * t + (s2_ + s2_) * std::log(1.0 + v);
    return q0_ + 0.5 * t * t * polynomial(a, v) * v;
  }

  /// Rejection from a double exponential hat.
  double double_exponential(ran_state_type& state) const {
    constexpr std::array<float, 5> e{1.0F, 0.4999897F, 0.166829F, 0.0407753F, 0.010293F};
    for (;;) {
      const double height = exponential(state);
      double u = uniform(state);
      u += u - 1.0;
      const double t = b_ + std::copysign(sigma_ * height, u);
      if (t < -0.7187449F) continue;
      const double q = quotient(t);
      if (!(q > 0.0)) continue;
      const double log_normal = height - 0.5 * t * t;
      // Beyond 15 the ratio is its exponential, taken in one with the hat lest it overflow.
      const bool keep =
          q >= 15.0 ? q + log_normal >= std::log(c_ * std::abs(u))
                    : c_ * std::abs(u) <= (q > 0.5 ? std::exp(q) - 1.0 : polynomial(e, q) * q) *
                                              std::exp(log_normal);
      if (!keep) continue;
      const double x = s_ + 0.5 * t;
      return x * x;
    }
  }

  double s2_, s_, d_;
  double q0_ = 0.0, b_ = 0.0, sigma_ = 0.0, c_ = 0.0;
};

/// Gamma deviates of a shape below 1.
double small_shape(ran_state_type& state, double shape) {
  const double b = 1.0 + double{0.3678794F} * shape;
  for (;;) {
    const double p = b * uniform(state);
    const double x = p < 1.0 ? std::exp(std::log(p) / shape) : -std::log((b - p) / shape);
    const double bar = p < 1.0 ? x : (1.0 - shape) * std::log(x);
    if (exponential(state) >= bar) return x;
  }
}

double gamma_deviate(ran_state_type& state, double shape) {
  return shape < 1.0 ? small_shape(state, shape) : large_shape(shape).draw(state);
}

int32 fail_with(error_type& err, std::string_view name, std::string_view line) {
  return fail(err, in(name), {text(line)});
}

bool positive(double value) { return value > 0.0 && std::isfinite(value); }

}  // namespace

int32 ran_snorm(ran_state_type& state, double& result, error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_snorm", err);
  result = normal(state);
  return 0;
}

int32 ran_sexp(ran_state_type& state, double& result, error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_sexp", err);
  result = exponential(state);
  return 0;
}

int32 ran_sgamma(ran_state_type& state, double shape, double& result, error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_sgamma", err);
  if (!positive(shape)) return fail_with(err, "ran_sgamma", "Shape parameter not positive.");
  result = gamma_deviate(state, shape);
  return 0;
}

int32 ran_gengam(ran_state_type& state, double rate, double shape, double& result,
                 error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_gengam", err);
  if (!positive(rate) || !positive(shape))
    return fail_with(err, "ran_gengam", "Shape or scale parameter not positive.");
  result = gamma_deviate(state, shape) / rate;
  return 0;
}

int32 ran_genchi(ran_state_type& state, double df, double& result, error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_genchi", err);
  if (!positive(df)) return fail_with(err, "ran_genchi", "Degrees of freedom not positive.");
  result = 2.0 * gamma_deviate(state, 0.5 * df);
  return 0;
}

int32 ran_gent(ran_state_type& state, double df, double& result, error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_gent", err);
  if (!positive(df)) {
    fail_with(err, "ran_genchi", "Degrees of freedom not positive.");
    return fail_with(err, "ran_gent", "Operation failed.");
  }
  const double z = normal(state);
  result = z / std::sqrt(2.0 * gamma_deviate(state, 0.5 * df) / df);
  return 0;
}

int32 cholesky_lower(const array<double, 2>& a, array<double, 2>& lower, error_type& err) {
  constexpr routine here = in("cholesky_lower");
  if (a.n[0] != a.n[1]) return fail(err, here, error_code::not_square, {text("input")});
  if (dynamic_allocation::dbl2_alloc(lower, a.n[0], a.n[1], err) != 0)
    return fail_with(err, "cholesky_lower", "Could not allocate return array.");
  const auto n = static_cast<std::size_t>(a.n[0]);
  lower.flat = a.flat;
  lower_triangular::clear_upper(lower.data(), n);
  if (!lower_triangular::factor(lower.data(), n)) return fail(err, here, error_code::singular);
  return 0;
}

int32 ran_genmn(ran_state_type& state, const array<double, 1>& mean, const array<double, 2>& cov,
                array<double, 1>& x, error_type& err) {
  constexpr routine here = in("ran_genmn");
  std::fill(x.flat.begin(), x.flat.end(), 0.0);
  if (!mean.allocated)
    return fail(err, here, {text("Argument mean is not associated with an array.")});
  if (!cov.allocated)
    return fail(err, here, {text("Argument cov is not associated with an array.")});
  if (cov.n[0] != cov.n[1]) return fail(err, here, {text("Array cov is not square.")});
  if (cov.n[0] != mean.n[0])
    return fail(err, here, {text("Dimensions of mean and cov arrays"), text("do not conform.")});
  if (x.n[0] != mean.n[0])
    return fail(err, here,
                {text("Dimension 1 of x and mean arrays"), text("does not conform."),
                 text("Dimensions of x and cov arrays"), text("do not conform.")});
  array<double, 2> lower;
  if (cholesky_lower(cov, lower, err) != 0)
    return fail(err, here, {text("Unable to compute Cholesky factorization.")});
  array<double, 1> deviates;
  if (dynamic_allocation::dbl1_alloc(deviates, mean.n[0], err) != 0)
    return fail(err, here, {text("Could not allocate rtmp array.")});
  for (double& z : deviates.flat)
    if (ran_snorm(state, z, err) != 0) return fail(err, here, {text("Error calling ran_snorm.")});
  const auto p = static_cast<std::size_t>(mean.n[0]);
  std::copy(mean.flat.begin(), mean.flat.end(), x.flat.begin());
  for (std::size_t j = 0; j < p; ++j)  // x = mean + L z, one column of L for each deviate
    lower_triangular::subtract_multiple(x.data(), lower.data() + j * p, -deviates.flat[j], j, p);
  return 0;
}

}  // namespace tolvenra::random_generator
