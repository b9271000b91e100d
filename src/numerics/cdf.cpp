#include "numerics/cdf.hpp"

#include <cmath>
#include <limits>
#include <string_view>

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

}  // namespace tolvenra::cdf
