#include "numerics/cdf.hpp"

#include <cmath>
#include <limits>
#include <numbers>
#include <string_view>

#include "numerics/beta_ratio.hpp"
#include "numerics/cdf_search.hpp"
#include "numerics/gamma_ratio.hpp"

namespace tolvenra::cdf {
namespace {

int32 out_of_range(const routine& here, std::string_view argument, error_type& err) {
  return fail(
      err, here,
      {text("Error in routine ", here.name, " -- argument <", argument, "> is out of range.")});
}

/// p may be 0 where `zero_p` says so (the distribution has a lower end), q never.
int32 check_tails(const routine& here, double p, double q, bool zero_p, error_type& err) {
  if (!(p > 0.0 || (zero_p && p == 0.0)) || !(p <= 1.0)) return out_of_range(here, "p", err);
  if (!(q > 0.0 && q <= 1.0)) return out_of_range(here, "q", err);
  return 0;
}

/// Three rounding errors are allowed to p + q.
int32 check_sum(const routine& here, double p, double q, error_type& err) {
  if (std::abs(((p + q) - 0.5) - 0.5) <= 6.66133814775e-16) return 0;
  return fail(err, here, {text("Error in routine ", here.name, " -- p and q do not sum to 1 .")});
}

bool positive_finite(double v) { return v > 0.0 && v <= std::numeric_limits<double>::max(); }

constexpr double least_df = 1e-100, most = 1e100;

int32 beyond_bound(const routine& here, detail::outcome where, error_type& err) {
  if (where == detail::outcome::found) return 0;
  return fail(
      err, here,
      {text("Inverse CDF appears to be ", where == detail::outcome::below ? "lower" : "higher",
            " than the specified bound.")});
}

/// How far the tails `of(v)` are from the given ones, on the log scale of the smaller given tail;
/// ascending in v where the lower tail is.
template <class Tails>
auto distance(const Tails& of, double p, double q) {
  return [of, p, q](double v) {
    const tails now = of(v);
    return p <= q ? detail::log_ratio(now.p, p) : -detail::log_ratio(now.q, q);
  };
}

/// Reports the only way in which a beta ratio of proper arguments can fail.
int32 expansion_failed(const routine& here, error_type& err) {
  fail(err, {"bratio", "cdf"}, {text("Error in function bgrat.")});
  return pass_on(err, here);
}

/// Both tails of Student's t at t, by the beta ratio of df/(df + t^2).
bool t_tails(double t, double df, tails& out) {
  const double size = std::abs(t);
  const double u = size * (size / df), s = df / size / size;
  const double x = u <= 1.0 ? 1.0 / (1.0 + u) : s / (1.0 + s);
  const double y = u <= 1.0 ? u / (1.0 + u) : 1.0 / (1.0 + s);
  tails beyond{};
  if (!detail::beta_tails({0.5 * df, 0.5, x, y, 0.5 * (df * y - x)}, beyond)) return false;
  const double tail = 0.5 * beyond.p;
  out = t < 0.0 ? tails{tail, 1.0 - tail} : tails{1.0 - tail, tail};
  return true;
}

/// Both tails of F at f, by the beta ratio of dfn f/(dfn f + dfd). The distance from the mean
/// comes from 1 - f: taken from x it would lose as many digits as dfn and dfd have.
bool f_tails(double f, double dfn, double dfd, tails& out) {
  if (f == 0.0 || std::isinf(f)) {  // the ratio of dfn and dfd may be beyond the doubles too
    out = f == 0.0 ? tails{0.0, 1.0} : tails{1.0, 0.0};
    return true;
  }
  const double u = dfn / dfd * f, s = dfd / dfn / f;
  const double x = u <= 1.0 ? u / (1.0 + u) : 1.0 / (1.0 + s);
  const double y = u <= 1.0 ? 1.0 / (1.0 + u) : s / (1.0 + s);
  const double lambda = u <= 1.0 ? 0.5 * dfn * (1.0 - f) * y : 0.5 * dfd * (1.0 / f - 1.0) * x;
  return detail::beta_tails({0.5 * dfn, 0.5 * dfd, x, y, lambda}, out);
}

/// Both tails of the standard normal at z + error, |error| below a rounding error of z.
tails normal_tails(double z, double error) {
  const double y = std::abs(z) * (0.5 * std::numbers::sqrt2);
  // the rounding error of y, with the digits of sqrt(1/2) behind its double
  const double rest = std::fma(std::abs(z), 0.5 * std::numbers::sqrt2, -y) +
                      std::abs(z) * -4.8336466567264567e-17 +
                      std::copysign(0.5 * std::numbers::sqrt2, z) * error;
  const double tail = 0.5 * std::erfc(y) - std::numbers::inv_sqrtpi * std::exp(-y * y) * rest;
  return z < 0.0 ? tails{tail, 1.0 - tail} : tails{1.0 - tail, tail};
}

/// The standardised argument carries its rounding errors along, which the far tails magnify.
tails normal_tails_at(double x, double mean, double sd) {
  const double d = x - mean;
  const double z = d / sd;
  if (std::isinf(z)) return z < 0.0 ? tails{0.0, 1.0} : tails{1.0, 0.0};
  const double x_part = d + mean, mean_part = x_part - d;  // Knuth's exact error of a difference
  const double d_error = (x - x_part) - (mean - mean_part);
  return normal_tails(z, (std::fma(-z, sd, d) + d_error) / sd);
}

/// The same for lower tails that descend in v.
template <class Tails>
auto distance_down(const Tails& of, double p, double q) {
  return [up = distance(of, p, q)](double v) { return -up(v); };
}

}  // namespace

int32 cdf_chi(int32 which, double& p, double& q, double& x, double& df, error_type& err) {
  constexpr routine here{"cdf_chi", "cdf"};
  if (which < 1 || which > 3) return out_of_range(here, "which", err);
  if (which != 1 && check_tails(here, p, q, true, err) != 0) return -1;
  if (which != 2 && !(x >= 0.0)) return out_of_range(here, "x", err);
  if (which != 3 && !positive_finite(df)) return out_of_range(here, "df", err);
  if (which == 1) return gamma_inc(0.5 * df, 0.5 * x, p, q, err) == 0 ? 0 : pass_on(err, here);
  if (check_sum(here, p, q, err) != 0) return -1;
  if (which == 2) {
    const auto of_x = [df](double v) { return detail::gamma_tails(0.5 * df, 0.5 * v); };
    double root = 0.0;  // stays when the solution is below the smallest normal number
    const auto where = detail::solve(distance(of_x, p, q), smallest_normal, most, 5.0, root);
    if (where == detail::outcome::above) return beyond_bound(here, where, err);
    x = root;
    return 0;
  }
  const auto of_df = [x](double v) { return detail::gamma_tails(0.5 * v, 0.5 * x); };
  return beyond_bound(here, detail::solve(distance_down(of_df, p, q), least_df, most, 5.0, df),
                      err);
}

int32 cdf_t(int32 which, double& p, double& q, double& t, double& df, error_type& err) {
  constexpr routine here{"cdf_t", "cdf"};
  if (which < 1 || which > 3) return out_of_range(here, "which", err);
  if (which != 1 && check_tails(here, p, q, false, err) != 0) return -1;
  if (which != 2 && std::isnan(t)) return out_of_range(here, "t", err);
  if (which != 3 && !positive_finite(df)) return out_of_range(here, "df", err);
  tails now{};
  if (which == 1) {
    if (!t_tails(t, df, now)) return expansion_failed(here, err);
    p = now.p;
    q = now.q;
    return 0;
  }
  if (check_sum(here, p, q, err) != 0) return -1;
  bool failed = false;
  if (which == 2) {
    const auto of_size = [&](double v) {
      failed = !t_tails(v, df, now) || failed;
      return now;
    };
    double size = 0.0;
    auto where = detail::outcome::below;
    if (p != q)
      where = detail::solve(distance(of_size, std::max(p, q), std::min(p, q)), smallest_normal,
                            most, 1.0, size);
    if (failed) return expansion_failed(here, err);
    if (where == detail::outcome::above)
      return beyond_bound(here, p < q ? detail::outcome::below : where, err);
    t = p < q ? -size : size;
    return 0;
  }
  const auto of_df = [&](double v) {
    failed = !t_tails(t, v, now) || failed;
    return now;
  };
  double root = df;
  const auto where = t < 0.0 ? detail::solve(distance_down(of_df, p, q), least_df, 1e10, 5.0, root)
                             : detail::solve(distance(of_df, p, q), least_df, 1e10, 5.0, root);
  if (failed) return expansion_failed(here, err);
  if (beyond_bound(here, where, err) != 0) return -1;
  df = root;
  return 0;
}

int32 cdf_f(int32 which, double& p, double& q, double& f, double& dfn, double& dfd,
            error_type& err) {
  constexpr routine here{"cdf_f", "cdf"};
  if (which < 1 || which > 4) return out_of_range(here, "which", err);
  if (which != 1 && check_tails(here, p, q, true, err) != 0) return -1;
  if (which != 2 && !(f >= 0.0)) return out_of_range(here, "f", err);
  if (which != 3 && !positive_finite(dfn)) return out_of_range(here, "dfn", err);
  if (which != 4 && !positive_finite(dfd)) return out_of_range(here, "dfd", err);
  tails now{};
  if (which == 1) {
    if (!f_tails(f, dfn, dfd, now)) return expansion_failed(here, err);
    p = now.p;
    q = now.q;
    return 0;
  }
  if (check_sum(here, p, q, err) != 0) return -1;
  double* const sought = which == 2 ? &f : which == 3 ? &dfn : &dfd;
  bool failed = false;
  const auto of = [&](double v) {
    failed =
        !f_tails(which == 2 ? v : f, which == 3 ? v : dfn, which == 4 ? v : dfd, now) || failed;
    return now;
  };
  const auto away = distance(of, p, q);
  double root = 0.0;  // stays when f is below the smallest normal number
  auto where = which == 2 ? detail::solve(away, smallest_normal, most, 5.0, root)
                          : detail::scan(away, least_df, most, 5.0, root);
  if (failed) return expansion_failed(here, err);
  if (which == 2 && where == detail::outcome::below) where = detail::outcome::found;
  if (beyond_bound(here, where, err) != 0) return -1;
  *sought = root;
  return 0;
}

int32 cdf_nor(int32 which, double& p, double& q, double& x, double& mean, double& sd,
              error_type& err) {
  constexpr routine here{"cdf_nor", "cdf"};
  if (which < 1 || which > 4) return out_of_range(here, "which", err);
  if (which != 1 && check_tails(here, p, q, false, err) != 0) return -1;
  if (which != 2 && std::isnan(x)) return out_of_range(here, "x", err);
  if (which != 3 && !std::isfinite(mean)) return out_of_range(here, "mean", err);
  if (which != 4 && !positive_finite(sd)) return out_of_range(here, "sd", err);
  if (which == 1) {
    const tails both = normal_tails_at(x, mean, sd);
    p = both.p;
    q = both.q;
    return 0;
  }
  if (check_sum(here, p, q, err) != 0) return -1;
  double z = 0.0;
  if (p != q)
    detail::solve(
        distance([](double v) { return normal_tails(v, 0.0); }, std::max(p, q), std::min(p, q)),
        smallest_normal, most, 1.0, z);
  if (p < q) z = -z;
  if (which == 2) x = mean + sd * z;
  if (which == 3) mean = x - sd * z;
  if (which != 4) return 0;
  const double root = (x - mean) / z;  // no spread puts x at a tail on the other side of the mean
  if (!(root > 0.0)) return beyond_bound(here, detail::outcome::below, err);
  if (!(root <= most)) return beyond_bound(here, detail::outcome::above, err);
  sd = root;
  return 0;
}

}  // namespace tolvenra::cdf
