#include "numerics/cdf.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "numerics/beta_ratio.hpp"
#include "numerics/gamma_ratio.hpp"

namespace tolvenra {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double eps = std::numeric_limits<double>::epsilon();

/// One distribution with its arguments behind p and q as an array.
struct distribution {
  const char* name;
  double slack;  ///< allowed error in units of the chi-square's
  std::vector<const char*> arguments;
  std::function<int32(int32, double&, double&, double*, error_type&)> call;
};

const std::vector<distribution>& distributions() {
  using cdf::cdf_chi, cdf::cdf_f, cdf::cdf_nor, cdf::cdf_t;
  static const std::vector<distribution> all = {
      {"chi",
       1,
       {"x", "df"},
       [](int32 w, double& p, double& q, double* v, error_type& e) {
         return cdf_chi(w, p, q, v[0], v[1], e);
       }},
      {"t",
       10,
       {"t", "df"},
       [](int32 w, double& p, double& q, double* v, error_type& e) {
         return cdf_t(w, p, q, v[0], v[1], e);
       }},
      {"f",
       10,
       {"f", "dfn", "dfd"},
       [](int32 w, double& p, double& q, double* v, error_type& e) {
         return cdf_f(w, p, q, v[0], v[1], v[2], e);
       }},
      {"nor",
       0.1,
       {"x", "mean", "sd"},
       [](int32 w, double& p, double& q, double* v, error_type& e) {
         return cdf_nor(w, p, q, v[0], v[1], v[2], e);
       }}};
  return all;
}

struct reference_point {
  double v[3], p, q;
  std::string line;
};

/// The points of one distribution out of the file made by make_distribution_reference.py.
std::vector<reference_point> reference_points(const std::string& name) {
#ifdef TOLVENRA_TEST_DATA
  const std::filesystem::path folder = TOLVENRA_TEST_DATA;
#else
  const auto folder = std::filesystem::path(__FILE__).parent_path() / "../../data";
#endif
  std::ifstream in(folder / "distribution_reference.csv");
  std::vector<reference_point> points;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(name + ",", 0) != 0) continue;
    std::vector<std::string> cells;
    std::stringstream row(line);
    for (std::string cell; std::getline(row, cell, ',');) cells.push_back(cell);
    const auto number = [&](std::size_t k) { return std::strtod(cells.at(k).c_str(), nullptr); };
    points.push_back({{number(1), number(2), number(3)}, number(4), number(5), line});
  }
  return points;
}

double tolerance(double tail, double slack) {
  return slack * std::max(1e-13, 4.0 * eps * std::abs(std::log(tail)));
}

TEST(Cdf, BothTailsAgreeWithMultiplePrecision) {
  for (const auto& d : distributions()) {
    const auto points = reference_points(d.name);
    ASSERT_GT(points.size(), 300U) << d.name;
    double worst = 0.0;
    for (auto at : points) {
      error_type err;
      double p = nan, q = nan;
      ASSERT_EQ(d.call(1, p, q, at.v, err), 0) << at.line;
      const double share = std::max(std::abs(p / at.p - 1.0) / tolerance(at.p, d.slack),
                                    std::abs(q / at.q - 1.0) / tolerance(at.q, d.slack));
      EXPECT_TRUE(share <= 1.0) << at.line << " gives " << p << ", " << q;
      worst = std::max(worst, share);
    }
    RecordProperty(std::string("worst_share_of_tolerance_") + d.name, std::to_string(worst));
  }
}

/// The smaller given tail must come back to 1e-10 from the argument that an inverse mode found.
void expect_round_trip(const distribution& d, int32 which, const reference_point& at) {
  SCOPED_TRACE(at.line + " which " + std::to_string(which));
  double v[3] = {at.v[0], at.v[1], at.v[2]}, p = at.p, q = at.q;
  v[which - 2] = nan;
  error_type err;
  ASSERT_EQ(d.call(which, p, q, v, err), 0) << lines_of(err).front();
  EXPECT_EQ(p, at.p);
  const bool too_small = which == 2 && v[0] == 0.0;
  if (too_small) v[0] = smallest_normal;
  ASSERT_EQ(d.call(1, p, q, v, err), 0);
  const double share = at.p <= at.q ? p / at.p : q / at.q;
  if (too_small)  // even there the lower tail is above the one sought
    EXPECT_GE(p, at.p * (1.0 - 1e-10));
  else
    EXPECT_NEAR(share, 1.0, 1e-10) << "from " << v[0] << ", " << v[1] << ", " << v[2];
}

TEST(Cdf, InversesReproduceTheTails) {
  for (const auto& d : distributions()) {
    for (const auto& at : reference_points(d.name)) {
      const bool centred = std::string(d.name) == "nor" && std::abs(at.p - 0.5) < 0.4;
      if (std::abs(at.v[0]) <= 1e100) expect_round_trip(d, 2, at);
      // where the argument hardly matters, rounding of the tails decides about it
      if (at.v[0] != 0.0 && !centred)
        for (int32 which = 3; which < 2 + static_cast<int32>(d.arguments.size()); ++which)
          expect_round_trip(d, which, at);
      if (HasFailure()) return;
    }
  }
}

TEST(Cdf, KnownPointsAndEndsOfTheRange) {
  const struct {
    const char* why;
    std::size_t distribution;
    int32 which;
    double p, q, v[3];  // all of them as they must come out; the sought ones go in as NaN
  } cases[] = {{"no mass below 0", 0, 1, 0, 1, {0, 10}},
               {"far tail", 0, 1, 1, 4.4147360999137313e-101, {500, 10}},
               {"", 0, 1, 1, 0, {infinity, 10}},
               {"the lower end", 0, 2, 0, 1, {0, 10}},
               {"upper 5 % point", 1, 2, 0.95, 0.05, {1.8124611228116764, 10}},
               {"the median", 1, 2, 0.5, 0.5, {0, 10}},
               {"", 1, 1, 0, 1, {-infinity, 10}},
               {"", 1, 1, 1, 0, {infinity, 10}},
               {"", 2, 1, 0, 1, {0, 3, 1e-3}},
               {"", 2, 1, 1, 0, {infinity, 3, 1e-3}},
               {"", 3, 1, 0, 1, {-infinity, 1, 2}},
               {"", 3, 1, 1, 0, {infinity, 1, 2}},
               {"the median", 3, 2, 0.5, 0.5, {1, 1, 2}},
               {"", 3, 3, 0.5, 0.5, {1, 1, 2}}};
  for (const auto& t : cases) {
    const auto& d = distributions()[t.distribution];
    SCOPED_TRACE(std::string(d.name) + " " + t.why);
    double p = t.which == 1 ? nan : t.p, q = t.which == 1 ? nan : t.q;
    double v[3] = {t.v[0], t.v[1], t.v[2]};
    if (t.which > 1) v[t.which - 2] = nan;
    error_type err;
    EXPECT_EQ(d.call(t.which, p, q, v, err), 0);
    const double got[] = {p, q, v[0], v[1]}, want[] = {t.p, t.q, t.v[0], t.v[1]};
    for (int k = 0; k < 4; ++k)
      EXPECT_TRUE(got[k] == want[k] || std::abs(got[k] / want[k] - 1.0) <= 5e-13) << got[k];
    EXPECT_FALSE(err_occurred(err));
  }
}

TEST(Cdf, ArgumentsAreCheckedInOrderAndNanIsRefused) {
  const double good[] = {1.0, 2.0, 3.0};
  for (const auto& d : distributions()) {
    const std::string name = std::string("cdf_") + d.name;
    const auto say = [&](const std::string& what) {
      return std::vector<std::string>{"Error in routine " + name + " -- " + what,
                                      "OCCURRED IN: " + name + " in MOD cdf"};
    };
    const auto range = [&](const char* argument) {
      return say(std::string("argument <") + argument + "> is out of range.");
    };
    const auto expect = [&](int32 which, double p, double q, std::vector<double> v,
                            const std::vector<std::string>& lines) {
      SCOPED_TRACE(name + " which " + std::to_string(which));
      const double p_before = p, q_before = q;
      error_type err;
      EXPECT_EQ(d.call(which, p, q, v.data(), err), -1);
      EXPECT_EQ(lines_of(err), lines);
      EXPECT_TRUE(p == p_before || p_before != p_before);
      EXPECT_TRUE(q == q_before || q_before != q_before);
    };
    const std::vector<double> fine(good, good + 3), bad(3, nan);
    const int32 last = 1 + static_cast<int32>(d.arguments.size());
    expect(0, nan, nan, bad, range("which"));
    expect(last + 1, nan, nan, bad, range("which"));
    for (const double p : {-1e-9, 1.0 + 1e-9, nan}) expect(2, p, nan, bad, range("p"));
    for (const double q : {0.0, -1e-9, 1.0 + 1e-9, nan}) expect(2, 0.5, q, bad, range("q"));
    expect(1, nan, nan, bad, range(d.arguments[0]));
    expect(2, 0.5, 0.6, bad, range(d.arguments[1]));
    for (std::size_t k = 0; k < d.arguments.size(); ++k) {
      auto v = fine;
      v[k] = nan;
      expect(1, 0.5, 0.5, v, range(d.arguments[k]));
      if (k == 0 || std::string(d.arguments[k]) == "mean") continue;
      for (const double not_positive : {0.0, -2.0, infinity}) {
        v[k] = not_positive;
        expect(1, 0.5, 0.5, v, range(d.arguments[k]));
        expect(2, 0.5, 0.6, v, range(d.arguments[k]));
      }
    }
    const auto sum = say("p and q do not sum to 1 .");
    for (int32 which = 2; which <= last; ++which) {
      expect(which, 0.95, 0.06, fine, sum);
      expect(which, 0.5, 0.5 + 1e-15, fine, sum);
    }
  }
}

TEST(Cdf, SolutionsBeyondTheSearchBoundsAreReported) {
  const struct {
    std::size_t distribution;
    int32 which;
    double p, q, v[3];
    const char* where;
  } cases[] = {{0, 2, 0.7, 0.3, {nan, 1e150}, "higher"},  // mean beyond 1e100
               {0, 3, 0.0, 1.0, {3.0, nan}, "higher"},
               {0, 3, 0.5, 0.5, {0.0, nan}, "lower"},    // all mass at 0 only without df
               {1, 2, 0.9, 0.1, {nan, 1e-3}, "higher"},  // q(1e100) is 0.4
               {1, 2, 0.1, 0.9, {nan, 1e-3}, "lower"},
               {1, 3, 0.999, 0.001, {2.0, nan}, "higher"},  // the normal has 0.977
               {1, 3, 0.4, 0.6, {2.0, nan}, "lower"},       // the lower tail at t > 0 is above 1/2
               {2, 2, 0.9, 0.1, {nan, 5.0, 1e-3}, "higher"},
               {3, 4, 0.9, 0.1, {1.0, 2.0, nan}, "lower"},  // x below the mean has p < 1/2
               {3, 4, 0.5, 0.5, {1.0, 0.5, nan}, "higher"}};
  for (const auto& t : cases) {
    const auto& d = distributions()[t.distribution];
    SCOPED_TRACE(std::string(d.name) + " which " + std::to_string(t.which));
    double p = t.p, q = t.q, v[3] = {t.v[0], t.v[1], t.v[2]};
    error_type err;
    EXPECT_EQ(d.call(t.which, p, q, v, err), -1);
    EXPECT_EQ(lines_of(err), (std::vector<std::string>{
                                 std::string("Inverse CDF appears to be ") + t.where +
                                     " than the specified bound.",
                                 std::string("OCCURRED IN: cdf_") + d.name + " in MOD cdf"}));
    EXPECT_TRUE(std::isnan(v[t.which - 2]));
  }
}

TEST(Cdf, TailsStayTailsFarOutsideTheUsualRange) {
  std::mt19937 draw(7);
  const auto power_of_ten = [&](double lowest, double highest) {
    return std::pow(10.0, std::uniform_real_distribution<>(lowest, highest)(draw));
  };
  for (const auto& d : distributions())
    for (int k = 0; k < 20000; ++k) {
      double p = nan, q = nan, v[3] = {power_of_ten(-100, 100), power_of_ten(-30, 30), 0};
      v[2] = power_of_ten(-30, 30);
      if (k % 2 == 0 && d.arguments.size() == 2) v[0] = v[1] * power_of_ten(-1e-3, 1e-3);
      if (k % 2 == 0 && d.arguments.size() == 3) v[0] = power_of_ten(-0.1, 0.1);
      error_type err;
      if (d.call(1, p, q, v, err) != 0) {
        EXPECT_GT(v[1], 1e28);  // only a chi-square beyond the digits of a double
        continue;
      }
      EXPECT_TRUE(p >= 0.0 && p <= 1.0 && q >= 0.0 && q <= 1.0 && std::abs(p + q - 1.0) < 1e-15)
          << d.name << " " << v[0] << " " << v[1] << " " << v[2] << ": " << p << ", " << q;
    }
}

TEST(Cdf, AllOfFLiesBetweenItsEnds) {
  for (double dfn : {1e-300, 1.0, 1e300})
    for (double dfd : {1e-300, 1.0, 1e300})
      for (double f : {0.0, infinity}) {
        error_type err;
        double p = nan, q = nan;
        EXPECT_EQ(cdf::cdf_f(1, p, q, f, dfn, dfd, err), 0);
        EXPECT_EQ(p, f == 0.0 ? 0.0 : 1.0) << dfn << ' ' << dfd;
        EXPECT_EQ(q, f == 0.0 ? 1.0 : 0.0) << dfn << ' ' << dfd;
      }
}

TEST(GammaRatio, ReportsWhatItCannotCompute) {
  const double a = 1e30;
  const std::string indeterminate = "Error in routine gratio -- p and q are indeterminate.";
  const std::string from_gratio = "OCCURRED IN: gratio in MOD cdf";
  const struct {
    double a, x;
    std::vector<std::string> lines;
  } cases[] = {
      {-1.0, 1.0, {"Argument a or x was negative."}},
      {1.0, nan, {"Argument a or x was negative."}},
      {infinity, 1.0, {"Argument a was too large."}},
      {0.0,
       0.0,
       {"Error in routine gratio -- a or x was zero.", from_gratio, "Argument a or x was zero."}},
      {a, a, {indeterminate, from_gratio, "Arguments a and x are too close."}},
      {a,
       a * (1.0 + eps),
       {indeterminate, from_gratio, "Argument a is extremely large or x is very close to a."}}};
  for (auto t : cases) {
    error_type err;
    double p = 7, q = 8;
    EXPECT_EQ(cdf::gamma_inc(t.a, t.x, p, q, err), -1);
    t.lines.emplace_back("OCCURRED IN: gamma_inc in MOD cdf");
    EXPECT_EQ(lines_of(err), t.lines);
    EXPECT_EQ(p, 7.0);
  }
}

TEST(BetaRatio, ReportsBadArgumentsInOrder) {
  const struct {
    double a, b, x, y;
    const char* what;
  } cases[] = {
      {-1, nan, 2, 2, "a or b was negative."},    {nan, 1, 0.5, 0.5, "a or b was negative."},
      {0, 0, 2, 2, "a or b was zero."},           {1, 1, 1.5, 2, "x was out of range."},
      {1, 1, nan, 0, "x was out of range."},      {1, 1, 0.5, -0.5, "y was out of range."},
      {0, 1, 0, 0.9, "x and y do not sum to 1."}, {0, 1, 0, 1, "x and a were both zero."},
      {1, 0, 1, 0, "y and b were both zero."}};
  for (const auto& t : cases) {
    error_type err;
    double w = 7, w1 = 8;
    EXPECT_EQ(cdf::bratio(t.a, t.b, t.x, t.y, w, w1, err), -1);
    EXPECT_EQ(lines_of(err),
              (std::vector<std::string>{std::string("Error in routine bratio -- ") + t.what,
                                        "OCCURRED IN: bratio in MOD cdf"}));
    EXPECT_EQ(w, 7.0);
  }
  error_type err;
  double w = 0.25;
  EXPECT_EQ(cdf::bgrat(20, 0.5, 1, 0, w, err), -1);
  EXPECT_EQ(lines_of(err),
            (std::vector<std::string>{"Error in routine bgrat -- expansion cannot be computed.",
                                      "OCCURRED IN: bgrat in MOD cdf"}));
  EXPECT_EQ(w, 0.25);
}

/// I_x(a+1, b) = I_x(a, b) - x^a y^b / (a B(a, b)) ties neighbouring regimes to each other, and the
/// closed forms I_x(a, 1) = x^a and I_x(1, b) = 1 - y^b to the definition.
TEST(BetaRatio, ClosedFormsAndTheExpansionAgree) {
  for (const double a : {1e-3, 0.4, 1.0, 3.5, 17.0, 60.0, 1000.0})
    for (const double x : {1e-5, 0.2, 0.49, 0.51, 0.8, 0.999}) {
      SCOPED_TRACE(std::to_string(a) + " " + std::to_string(x));
      error_type err;
      double w = 0, w1 = 0, back = 0, back1 = 0;
      ASSERT_EQ(cdf::bratio(a, 1, x, 1 - x, w, w1, err), 0);
      const double power = a * std::log(x);
      if (power > -700) {
        EXPECT_NEAR(w / std::exp(power), 1, 1e-13 + 4 * eps * std::abs(power));
      }
      EXPECT_NEAR(w1 / -std::expm1(power), 1, 1e-12);  // 1 - x as a double limits the agreement
      ASSERT_EQ(cdf::bratio(1, a, 1 - x, x, back, back1, err), 0);
      EXPECT_EQ(back1, w);
      EXPECT_EQ(back, w1);
      if (a < 15 || power < -700) continue;
      double added = 0.125;
      ASSERT_EQ(cdf::bgrat(a, 1, x, 1 - x, added, err), 0);
      EXPECT_NEAR(added, 0.125 + std::exp(power), 1e-14);
    }
}

}  // namespace
}  // namespace tolvenra
