#include "numerics/variates.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

namespace tolvenra::random_generator {
namespace {

using strings = std::vector<std::string>;
using sampler = std::function<int32(ran_state_type&, double&, error_type&)>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

ran_state_type seeded(int32 seed1, int32 seed2) {
  ran_state_type state;
  error_type err;
  EXPECT_EQ(ran_setall(state, seed1, seed2, err), 0);
  return state;
}

/// 1e6 draws, ascending.
std::vector<double> sorted_draws(const sampler& draw, int32 seed) {
  auto state = seeded(seed, 2 * seed + 1);
  error_type err;
  std::vector<double> x(1000000);
  for (double& v : x)
    if (draw(state, v, err) != 0) ADD_FAILURE() << "a draw failed";
  std::sort(x.begin(), x.end());
  return x;
}

/// The largest distance between the distribution of the sorted draws and `cdf`, from every 20th
/// draw; the draws between can add 2e-5.
double distance(const std::vector<double>& x, const std::function<double(double)>& cdf) {
  double most = 0.0;
  const auto n = static_cast<double>(x.size());
  for (std::size_t i = 0; i < x.size(); i += 20)
    most = std::max(most, std::abs(cdf(x[i]) - (static_cast<double>(i) + 0.5) / n));
  return most;
}

/// Mean of the `power`-th powers.
double moment(const std::vector<double>& x, int power, double about = 0.0) {
  double sum = 0.0;
  for (const double v : x) sum += std::pow(v - about, power);
  return sum / static_cast<double>(x.size());
}

/// Regularised lower incomplete gamma function: the series, and Lentz's continued fraction.
double gamma_cdf(double shape, double x) {
  if (!(x > 0.0)) return 0.0;
  const double front = std::exp(shape * std::log(x) - x - std::lgamma(shape));
  if (x < shape + 1.0) {
    double term = 1.0 / shape, sum = term;
    for (double k = shape + 1.0; term > 1e-12 * sum; ++k) sum += term *= x / k;
    return front * sum;
  }
  double b = x + 1.0 - shape, c = 1e300, d = 1.0 / b, h = d;
  for (int i = 1; i < 500; ++i) {
    const double a = i * (shape - i);
    b += 2.0;
    d = 1.0 / (a * d + b);
    c = b + a / c;
    h *= d * c;
    if (std::abs(d * c - 1.0) < 1e-12) break;
  }
  return 1.0 - front * h;
}

constexpr double largest_distance = 0.0017;  // exceeded by chance in 0.6 % of samples of 1e6

TEST(Variates, NormalDeviatesFollowTheNormalDistribution) {
  const auto x = sorted_draws(ran_snorm, 101);
  EXPECT_LT(distance(x, [](double v) { return 0.5 * std::erfc(-v / std::numbers::sqrt2); }),
            largest_distance);
  // Four standard errors of each moment.
  EXPECT_NEAR(moment(x, 1), 0.0, 0.004);
  EXPECT_NEAR(moment(x, 2), 1.0, 0.0057);
  EXPECT_NEAR(moment(x, 3), 0.0, 0.0155);
  EXPECT_NEAR(moment(x, 4), 3.0, 0.04);
}

/// Chi-square statistic, less its expectation and over its standard deviation, of 1e7 draws in
/// cells of equal probability: slips in single table entries show.
double excess(const sampler& draw, int cells, const std::function<double(double)>& cdf,
              const std::function<void(double)>& watch) {
  auto state = seeded(909, 910);
  error_type err;
  constexpr int draws = 10000000;
  std::vector<double> count(static_cast<std::size_t>(cells));
  for (int i = 0; i < draws; ++i) {
    double v = 0.0;
    if (draw(state, v, err) != 0) ADD_FAILURE() << "a draw failed";
    watch(v);
    ++count[static_cast<std::size_t>(std::min(cells - 1.0, cdf(v) * cells))];
  }
  const double expected = static_cast<double>(draws) / cells;
  double chi_square = 0.0;
  for (const double c : count) chi_square += (c - expected) * (c - expected) / expected;
  return (chi_square - (cells - 1)) / std::sqrt(2.0 * (cells - 1));
}

TEST(Variates, NormalDeviatesFillEveryIntervalOfTheTable) {
  // The tail's intervals are narrower than a cell and are counted apart.
  std::vector<double> bounds{2.153875, 2.417559, 2.660067, 2.885635, 3.097269, 3.4, 3.8, 4.2, 4.6};
  std::vector<double> beyond(bounds.size());
  const auto count = [&](double v) {
    for (std::size_t k = 0; k < bounds.size() && std::abs(v) > bounds[k]; ++k) ++beyond[k];
  };
  const auto cdf = [](double v) { return 0.5 * std::erfc(-v / std::numbers::sqrt2); };
  EXPECT_LT(std::abs(excess(ran_snorm, 640, cdf, count)), 3.5);
  for (std::size_t k = 0; k < bounds.size(); ++k) {
    const double expected = 1e7 * std::erfc(bounds[k] / std::numbers::sqrt2);
    EXPECT_NEAR(beyond[k], expected, 4.0 * std::sqrt(expected)) << bounds[k];
  }
}

TEST(Variates, ExponentialDeviatesFillEveryInterval) {
  // The method adds multiples of ln 2 to a deviate below ln 2, which its series decides.
  const auto within = [](double v) { return -2.0 * std::expm1(-std::fmod(v, std::numbers::ln2)); };
  EXPECT_LT(std::abs(excess(ran_sexp, 20, within, [](double) {})), 3.5);
}

TEST(Variates, ExponentialDeviatesFollowTheExponentialDistribution) {
  const auto x = sorted_draws(ran_sexp, 202);
  EXPECT_LT(distance(x, [](double v) { return -std::expm1(-v); }), largest_distance);
  EXPECT_NEAR(moment(x, 1), 1.0, 0.004);
  EXPECT_NEAR(moment(x, 2), 2.0, 0.018);
  EXPECT_GE(x.front(), 0.0);
}

TEST(Variates, GammaDeviatesFollowTheGammaDistribution) {
  int32 seed = 300;
  for (const double shape : {0.1, 0.9, 1.0, 1.5, 3.6, 3.7, 13.1, 100.0}) {
    SCOPED_TRACE(shape);
    const auto x = sorted_draws(
        [shape](ran_state_type& s, double& v, error_type& e) { return ran_sgamma(s, shape, v, e); },
        ++seed);
    EXPECT_LT(distance(x, [shape](double v) { return gamma_cdf(shape, v); }), largest_distance);
    const double mean_error = std::sqrt(shape / 1e6);
    EXPECT_NEAR(moment(x, 1), shape, 4.0 * mean_error);
    // The fourth central moment is 3 shape^2 + 6 shape.
    EXPECT_NEAR(moment(x, 2, shape), shape, 4.0 * std::sqrt((2.0 * shape + 6.0) * shape / 1e6));
  }
}

TEST(Variates, DerivedDeviatesScaleTheGammaDeviate) {
  auto a = seeded(7, 8), b = seeded(7, 8);
  error_type err;
  for (const double shape : {0.4, 2.5, 40.0}) {
    double base = 0.0, other = 0.0;
    ASSERT_EQ(ran_sgamma(a, shape, base, err), 0);
    ASSERT_EQ(ran_gengam(b, 4.0, shape, other, err), 0);
    EXPECT_EQ(other, base / 4.0);
    ASSERT_EQ(ran_sgamma(a, shape, base, err), 0);
    ASSERT_EQ(ran_genchi(b, 2.0 * shape, other, err), 0);
    EXPECT_EQ(other, 2.0 * base);
  }
}

TEST(Variates, StudentDeviatesFollowTheirDistribution) {
  const auto x = sorted_draws(
      [](ran_state_type& s, double& v, error_type& e) { return ran_gent(s, 3.0, v, e); }, 77);
  const auto cdf = [](double t) {  // closed form for three degrees of freedom
    const double r = t / std::numbers::sqrt3;
    return 0.5 + (r / (1.0 + r * r) + std::atan(r)) / std::numbers::pi;
  };
  EXPECT_LT(distance(x, cdf), largest_distance);
}

TEST(Variates, MultivariateNormalDeviatesHaveTheirMomentsAndReadTheLowerTriangle) {
  auto state = seeded(19, 84);
  error_type err;
  const auto mean = vector_of({1.0, -2.0, 0.5});
  const double want[3][3] = {{4.0, 1.0, -0.6}, {1.0, 1.0, 0.2}, {-0.6, 0.2, 0.5}};
  array<double, 2> cov;
  cov.allocate({3, 3}, nan);
  for (int i = 1; i <= 3; ++i)
    for (int j = 1; j <= i; ++j) cov(i, j) = want[i - 1][j - 1];
  array<double, 1> x;
  x.allocate({3});
  constexpr int draws = 400000;
  double sum[3] = {}, products[3][3] = {};
  for (int d = 0; d < draws; ++d) {
    ASSERT_EQ(ran_genmn(state, mean, cov, x, err), 0);
    for (int i = 0; i < 3; ++i) {
      sum[i] += x(i + 1);
      for (int j = 0; j < 3; ++j)
        products[i][j] += (x(i + 1) - mean(i + 1)) * (x(j + 1) - mean(j + 1));
    }
  }
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(sum[i] / draws, mean(i + 1), 4.0 * std::sqrt(want[i][i] / draws));
    for (int j = 0; j < 3; ++j)
      EXPECT_NEAR(products[i][j] / draws, want[i][j],
                  4.0 * std::sqrt((want[i][i] * want[j][j] + want[i][j] * want[i][j]) / draws));
  }
}

TEST(Variates, UnseededStatesAndBadParametersAreRefused) {
  const auto where = [](const std::string& name) {
    return "OCCURRED IN: " + name + " in MOD random_generator";
  };
  const strings unseeded{"Random generator seeds have not been set.", where("ran_genint"),
                         "Operation failed."};
  const std::string gengam = "Shape or scale parameter not positive.",
                    df = "Degrees of freedom not positive.";
  const struct {
    std::string name;
    sampler draw;
    strings lines;
  } cases[] = {
      {"ran_snorm", ran_snorm, {}},
      {"ran_sexp", ran_sexp, {}},
      {"ran_sgamma",
       [](auto& s, auto& v, auto& e) { return ran_sgamma(s, 0.0, v, e); },
       {"Shape parameter not positive."}},
      {"ran_sgamma",
       [](auto& s, auto& v, auto& e) { return ran_sgamma(s, nan, v, e); },
       {"Shape parameter not positive."}},
      {"ran_gengam",
       [](auto& s, auto& v, auto& e) { return ran_gengam(s, 0.0, 1.0, v, e); },
       {gengam}},
      {"ran_gengam",
       [](auto& s, auto& v, auto& e) { return ran_gengam(s, 1.0, -1.0, v, e); },
       {gengam}},
      {"ran_gengam",
       [](auto& s, auto& v, auto& e) { return ran_gengam(s, nan, 1.0, v, e); },
       {gengam}},
      {"ran_genchi", [](auto& s, auto& v, auto& e) { return ran_genchi(s, 0.0, v, e); }, {df}},
      {"ran_genchi", [](auto& s, auto& v, auto& e) { return ran_genchi(s, inf, v, e); }, {df}},
      {"ran_gent",
       [](auto& s, auto& v, auto& e) { return ran_gent(s, -2.0, v, e); },
       {df, where("ran_genchi"), "Operation failed."}}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.name);
    for (const bool with_seeds : {false, true}) {
      if (with_seeds && t.lines.empty()) continue;
      auto state = with_seeds ? seeded(1, 2) : ran_state_type{};
      error_type err;
      double v = 9.0;
      EXPECT_EQ(t.draw(state, v, err), -1);
      EXPECT_EQ(v, 0.0);
      auto expected = with_seeds ? t.lines : unseeded;
      expected.push_back(where(t.name));
      EXPECT_EQ(lines_of(err), expected);
    }
  }
}

TEST(Variates, MultivariateNormalArgumentsMustConform) {
  array<double, 1> absent, two = vector_of({0.0, 0.0}), three = vector_of({0.0, 0.0, 0.0});
  array<double, 2> none, square, oblong, indefinite;
  square.allocate({2, 2});
  square(1, 1) = square(2, 2) = 1.0;
  oblong.allocate({2, 3});
  indefinite = square;
  indefinite(2, 1) = 1.0;  // a pivot of zero
  const strings conform{"Dimensions of mean and cov arrays", "do not conform."};
  const struct {
    array<double, 1>*mean, x;
    array<double, 2>* cov;
    strings lines;
  } cases[] = {
      {&absent, two, &square, {"Argument mean is not associated with an array."}},
      {&two, two, &none, {"Argument cov is not associated with an array."}},
      {&two, two, &oblong, {"Array cov is not square."}},
      {&three, three, &square, conform},
      {&two,
       three,
       &square,
       {"Dimension 1 of x and mean arrays", "does not conform.", "Dimensions of x and cov arrays",
        "do not conform."}},
      {&two,
       two,
       &indefinite,
       {"Matrix apparently singular", "OCCURRED IN: cholesky_lower in MOD random_generator",
        "Unable to compute Cholesky factorization."}}};
  for (const auto& t : cases) {
    auto state = seeded(3, 3);
    error_type err;
    auto x = t.x;
    auto expected = t.lines;
    expected.emplace_back("OCCURRED IN: ran_genmn in MOD random_generator");
    EXPECT_EQ(ran_genmn(state, *t.mean, *t.cov, x, err), -1);
    EXPECT_EQ(lines_of(err), expected);
  }
  ran_state_type unseeded;
  error_type err;
  EXPECT_EQ(ran_genmn(unseeded, two, square, two, err), -1);
  const strings lines = lines_of(err);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], "Error calling ran_snorm.");
}

}  // namespace
}  // namespace tolvenra::random_generator
