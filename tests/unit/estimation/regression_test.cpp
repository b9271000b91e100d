// The regressions of the M-steps: five attempts, stabilising prior, binary form, structural zeros.
#include "estimation/regression.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace tolvenra::estimation {
namespace {

constexpr routine here{"mstep_beta", "estimation"};

/// Outcomes that follow a logit in one covariate, n patterns, r categories, case weights of 1.
regression example(int32 n, int32 r, unsigned seed, double slope) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  regression fit;
  size_regression(n, 2, r, fit);
  for (int32 u = 1; u <= n; ++u) {
    fit.x(u, 1) = 1.0;
    fit.x(u, 2) = 2 * uniform() - 1;
    fit.weight(u) = 1.0;
    double total = 0.0;
    for (int32 c = 1; c <= r; ++c)
      total += fit.y(u, c) = (0.2 + uniform()) * std::exp(slope * (c - 1) * fit.x(u, 2));
    for (int32 c = 1; c <= r; ++c) fit.y(u, c) /= total;
  }
  return fit;
}

/// Score of the multinomial log-likelihood, prior included, at beta: zero at the maximum.
std::vector<double> score(const regression& fit, const std::vector<double>& beta) {
  const int32 r = fit.y.n[1];
  std::vector<double> p(static_cast<std::size_t>(r * fit.x.n[0]));
  std::vector<double> none;
  error_type err;
  EXPECT_EQ(predict(fit, beta.data(), none, p.data(), r, "gamma", here, err), 0);
  std::vector<double> sum(beta.size(), 0.0);
  double weight = 0.0;
  for (const double w : fit.weight.flat) weight += w;
  for (int32 u = 1; u <= fit.x.n[0]; ++u) {
    double total = 0.0;
    for (int32 c = 1; c <= r; ++c) total += fit.y(u, c);
    const double extra = fit.prior.empty() ? 0.0 : fit.prior_ess * fit.weight(u) / weight;
    for (int32 c = 1; c <= r; ++c) {
      const double pseudo =
          fit.prior.empty() ? 0.0 : extra * fit.prior[static_cast<std::size_t>(c - 1)];
      const double residual =
          fit.y(u, c) + pseudo - (total + extra) * p[static_cast<std::size_t>((u - 1) * r + c - 1)];
      for (int32 j = 1; j <= 2; ++j)
        sum[static_cast<std::size_t>((c - 1) * 2 + j - 1)] += residual * fit.x(u, j);
    }
  }
  return sum;
}

TEST(Regression, FindsTheMaximumFromAnyStart) {
  // From far away Newton's method overshoots; zero and halved steps are the later attempts.
  for (const double far : {0.0, 3.0, -40.0, 300.0, 1e5})
    for (const bool prior : {false, true}) {
      SCOPED_TRACE(far);
      regression fit = example(200, 3, 7, 1.5);
      fit.baseline = 2;
      if (prior) {
        fit.prior = {0.2, 0.5, 0.3};
        fit.prior_ess = 25.0;
      }
      std::vector<double> beta{far, -far, 0.0, 0.0, far, far};
      std::vector<double> shares;
      error_type err;
      ASSERT_EQ(fit_regression(fit, beta.data(), shares, 1, here, "Group: 1", err), 0);
      for (const double s : score(fit, beta))
        EXPECT_NEAR(s, 0.0, 1e-6);  // Newton's last step is 1e-5
      EXPECT_EQ(beta[2], 0.0);
      EXPECT_EQ(beta[3], 0.0);
    }
}

TEST(Regression, AnEffectOfZeroIsFound) {
  regression fit = example(100, 2, 3, 0.0);
  for (int32 u = 1; u <= 50; ++u) {  // the same outcomes at x and at -x
    fit.x(u + 50, 2) = -fit.x(u, 2);
    for (int32 c = 1; c <= 2; ++c) fit.y(u + 50, c) = fit.y(u, c);
  }
  std::vector<double> beta{0.0, 0.0, 0.3, 0.7};
  std::vector<double> shares;
  error_type err;
  ASSERT_EQ(fit_regression(fit, beta.data(), shares, 1, here, "Group: 1", err), 0);
  EXPECT_NEAR(beta[3], 0.0, 1e-9);
}

TEST(Regression, SeparationIsReportedWithItsPlaceAndCuredByThePrior) {
  regression fit = example(60, 2, 3, 0.0);
  for (int32 u = 1; u <= 60; ++u) {
    fit.y(u, 1) = fit.x(u, 2) > 0 ? 1.0 : 0.0;
    fit.y(u, 2) = 1.0 - fit.y(u, 1);
  }
  std::vector<double> beta(4, 0.0);
  std::vector<double> shares;
  error_type err;
  EXPECT_EQ(fit_regression(fit, beta.data(), shares, 1, here, "Group: 3", err), -1);
  const auto lines = lines_of(err);
  EXPECT_EQ(lines.back(), "OCCURRED IN: mstep_beta in MOD estimation");
  const bool place = std::find(lines.begin(), lines.end(), "Group: 3") != lines.end();
  const bool advice =
      std::find(lines.begin(), lines.end(), "using the BETA PRIOR statement.") != lines.end();
  EXPECT_TRUE(place || advice);
  fit.prior = {0.5, 0.5};
  fit.prior_ess = 2.0;
  err_reset(err);
  beta.assign(4, 0.0);
  ASSERT_EQ(fit_regression(fit, beta.data(), shares, 1, here, "Group: 3", err), 0);
  for (const double s : score(fit, beta)) EXPECT_NEAR(s, 0.0, 1e-6);
}

TEST(Regression, ACategoryThatIsAbsentTakesNoPart) {
  regression fit = example(80, 3, 5, 1.0);
  fit.absent[1] = true;
  for (int32 u = 1; u <= 80; ++u) fit.y(u, 2) = 0.0;
  std::vector<double> beta(6, 0.0);
  std::vector<double> shares;
  error_type err;
  ASSERT_EQ(fit_regression(fit, beta.data(), shares, 1, here, "Group: 1", err), 0);
  std::vector<double> p(240);
  ASSERT_EQ(predict(fit, beta.data(), shares, p.data(), 3, "gamma", here, err), 0);
  for (std::size_t u = 0; u < 80; ++u) {
    EXPECT_EQ(p[3 * u + 1], 0.0);
    EXPECT_NEAR(p[3 * u] + p[3 * u + 2], 1.0, 1e-14);
  }
  EXPECT_EQ(regression_parameters(fit), 2);
}

TEST(Regression, BinarySharesAreThePosteriorProportions) {
  regression fit = example(80, 4, 9, 0.5);
  fit.binary = 2;
  std::vector<double> beta(8, 0.0);
  std::vector<double> shares;
  error_type err;
  ASSERT_EQ(fit_regression(fit, beta.data(), shares, 1, here, "Group: 1", err), 0);
  double totals[4] = {0, 0, 0, 0};
  for (int32 u = 1; u <= 80; ++u)
    for (int32 c = 1; c <= 4; ++c) totals[c - 1] += fit.y(u, c);
  const double others = totals[0] + totals[2] + totals[3];
  EXPECT_NEAR(shares[0], totals[0] / others, 1e-14);
  EXPECT_EQ(shares[1], 0.0);
  EXPECT_EQ(beta[0], 0.0);
  EXPECT_EQ(regression_parameters(fit), 2 + 2);
  std::vector<double> p(320);
  ASSERT_EQ(predict(fit, beta.data(), shares, p.data(), 4, "gamma", here, err), 0);
  double score_b = 0.0;
  for (int32 u = 1; u <= 80; ++u)
    score_b += fit.x(u, 2) * (fit.y(u, 2) - p[static_cast<std::size_t>((u - 1) * 4 + 1)]);
  EXPECT_NEAR(score_b, 0.0, 1e-7);
}

TEST(Regression, APredictorBeyondTheRangeOfExpIsAnError) {
  regression fit = example(5, 2, 1, 0.0);
  std::vector<double> p(10), none;
  error_type err;
  const std::vector<double> beta{0.0, 0.0, 710.0, 0.0};
  EXPECT_EQ(predict(fit, beta.data(), none, p.data(), 2, "gamma", here, err), -1);
  EXPECT_EQ(lines_of(err)[1], "exp for gamma");
  err_reset(err);
  const std::vector<double> near{0.0, 0.0, 709.0, 0.0};
  EXPECT_EQ(predict(fit, near.data(), none, p.data(), 2, "gamma", here, err), 0);
  EXPECT_EQ(p[1], 1.0);
}

}  // namespace
}  // namespace tolvenra::estimation
