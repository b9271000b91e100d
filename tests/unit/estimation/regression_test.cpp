// The regressions of the M-steps: five attempts, stabilising prior, binary form, structural zeros.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "estimation/flat_directions.hpp"

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
  scale_design(fit);
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
      fitted_row row;
      error_type err;
      ASSERT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err), 0);
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
  scale_design(fit);
  std::vector<double> beta{0.0, 0.0, 0.3, 0.7};
  fitted_row row;
  error_type err;
  ASSERT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err), 0);
  EXPECT_NEAR(beta[3], 0.0, 1e-9);
}

/// Patterns (x, outcomes of two or three categories) of weight `each`.
regression from_table(const std::vector<std::vector<double>>& table, double each = 1.0) {
  regression fit;
  const auto r = static_cast<int32>(table.front().size()) - 1;
  size_regression(static_cast<int32>(table.size()), 2, r, fit);
  for (int32 u = 1; u <= fit.x.n[0]; ++u) {
    const std::vector<double>& row = table[static_cast<std::size_t>(u - 1)];
    fit.x(u, 1) = 1.0;
    fit.x(u, 2) = row[0];
    for (int32 c = 1; c <= r; ++c)
      fit.weight(u) += fit.y(u, c) = each * row[static_cast<std::size_t>(c)];
  }
  scale_design(fit);
  return fit;
}

struct unbounded {
  const char* why;
  std::vector<std::vector<double>> table;
  double supremum;          ///< of the log-likelihood, over each
  std::vector<bool> marks;  ///< by coefficient, category slowest: no finite estimate
};

const std::vector<unbounded>& unbounded_regressions() {
  static const double log2 = std::log(2.0);
  static const std::vector<unbounded> all = {
      {"separated",
       {{-2, 0, 5}, {-1, 0, 5}, {1, 5, 0}, {2, 5, 0}},
       0.0,
       {true, true, false, false}},
      // x = 0 is the user's origin: the intercept is found, the slope is not
      {"one level of a dummy lacks a category",
       {{0, 8, 8}, {1, 6, 0}},
       -16 * log2,
       {false, true, false, false}},
      {"a category nobody takes",
       {{-1, 4, 4, 0}, {0, 4, 4, 0}, {1, 4, 4, 0}},
       -24 * log2,
       {false, false, false, false, true, true}},
      {"the reference vanishes: only differences are found",
       {{-1, 4, 0, 4}, {0, 4, 0, 4}, {1, 4, 0, 4}},
       -24 * log2,
       {true, true, false, false, true, true}},
      {"cases at a ten-thousandth of the range still count",
       {{-1, 0, 9}, {-5e-5, 0, 1}, {2e-4, 1, 0}, {1, 9, 0}},
       0.0,
       {true, true, false, false}}};
  return all;
}

TEST(Regression, AnUnboundedOneIsClimbedThenHeldAndItsCoefficientsAreMarked) {
  for (const unbounded& t : unbounded_regressions())
    for (const double each : {1.0, 1e-3, 1e4}) {
      SCOPED_TRACE(testing::Message() << t.why << ", weight " << each);
      regression fit = from_table(t.table, each);
      fit.baseline = 2;
      std::vector<double> beta(t.marks.size(), 0.0);
      fitted_row row;
      error_type err;
      const auto step = [&] {
        const int32 status = fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err);
        EXPECT_EQ(status, 0) << testing::PrintToString(lines_of(err));
        regression_surface surface(fit, 1);
        load_coefficients(fit, beta.data());
        return surface.objective(fit.coefficients);
      };
      const double value = step();
      const double allowed = 1e-9 * (1.0 - each * t.supremum);
      EXPECT_NEAR(value, each * t.supremum, 2 * allowed);
      const std::vector<double> before = beta;
      EXPECT_NEAR(step(), value, 1e-12 * (1.0 + std::abs(value)));
      find_runaways(fit, beta.data(), 1, row);
      for (std::size_t q = 0; q < beta.size(); ++q) {
        const auto column = static_cast<int32>(q % 2) + 1;
        const auto category = static_cast<int32>(q / 2) + 1;
        EXPECT_EQ(is_runaway(row, column, category), t.marks[q]) << q;
        EXPECT_NEAR(beta[q], before[q], t.marks[q] ? 0.0 : 1e-8) << q;  // held, or found
      }
    }
}

TEST(Regression, AHeldCategoryReturnsWhenItsOutcomesDo) {
  const std::vector<std::vector<double>> gone{{-1, 4, 4, 0}, {0, 4, 4, 0}, {1, 4, 4, 0}};
  std::vector<double> beta(6, 0.0);
  fitted_row row;
  error_type err;
  regression fit = from_table(gone);
  ASSERT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err), 0);
  // EM sends it back a little at a time: outcomes of half as much again as are fitted
  std::vector<double> p(9);
  for (int iteration = 0; iteration < 200; ++iteration) {
    ASSERT_EQ(predict(fit, beta.data(), row.shares, p.data(), 3, "gamma", here, err), 0);
    for (int32 u = 1; u <= 3; ++u)
      fit.y(u, 3) = std::min(1.5 * 8 * p[static_cast<std::size_t>(3 * u - 1)], 4.0);
    ASSERT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err), 0);
  }
  for (const double s : score(fit, beta)) EXPECT_NEAR(s, 0.0, 1e-6);
  EXPECT_FALSE(row.climbs);
  find_runaways(fit, beta.data(), 1, row);
  EXPECT_TRUE(row.runaway.empty());
}

TEST(Regression, ThePriorKeepsCoefficientsFiniteWhateverItCopied) {
  for (const unbounded& t : unbounded_regressions()) {
    SCOPED_TRACE(t.why);
    regression fit = from_table(t.table);
    fit.baseline = 2;
    std::vector<double> copied(t.marks.size() / 2, 0.0);
    copied[0] = 1.0;  // an estimate on the boundary
    fit.prior = compute_stabilizing_prior(copied, fit.absent);
    fit.prior_ess = 1.0;
    std::vector<double> beta(t.marks.size(), 0.0);
    fitted_row row;
    error_type err;
    ASSERT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err), 0);
    for (const double s : score(fit, beta)) EXPECT_NEAR(s, 0.0, 1e-6);
    find_runaways(fit, beta.data(), 1, row);
    EXPECT_EQ(count_runaways(row), 0);
  }
  const std::vector<double> ample{0.25, 0.5, 0.25};
  EXPECT_EQ(compute_stabilizing_prior(ample, {false, false, false}), ample);
  const auto raised = compute_stabilizing_prior({0.0, 0.6, 0.4}, {false, true, false});
  EXPECT_NEAR(raised[0], 0.005 / 1.005, 1e-15);
  EXPECT_EQ(raised[1], 0.0);
  EXPECT_NEAR(raised[0] + raised[2], 1.0, 1e-15);
}

TEST(Regression, AClimbCutShortSaysWhereAndWhatHelps) {
  for (const bool prior : {false, true}) {
    regression fit = from_table(unbounded_regressions().front().table);
    fit.limits.rounds = 2;
    if (prior) fit.prior = {0.5, 0.5};
    std::vector<double> beta(4, 0.0), before = beta;
    fitted_row row;
    error_type err;
    EXPECT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 3", err), -1);
    const std::vector<std::string> expected =
        prior ? std::vector<std::string>{"Logit model did not converge after 5", " attempts.",
                                         "Could not fit logit model. The problem occured in",
                                         "Group: 3", "OCCURRED IN: mstep_beta in MOD estimation"}
              : std::vector<std::string>{"Logit model did not converge after 5",
                                         " attempts.",
                                         "Could not fit logit model. We suggest",
                                         "using the BETA PRIOR statement.",
                                         "Group: 3",
                                         "OCCURRED IN: mstep_beta in MOD estimation"};
    EXPECT_EQ(lines_of(err), expected);
    EXPECT_EQ(beta, before);
  }
}

TEST(Regression, ColumnsThatRepeatOthersStayAnError) {
  regression fit = example(60, 2, 3, 0.0);
  for (int32 u = 1; u <= 60; ++u) fit.x(u, 2) = 0.1;
  scale_design(fit);
  std::vector<double> beta(4, 0.0);
  fitted_row row;
  error_type err;
  EXPECT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 3", err), -1);
  const auto lines = lines_of(err);
  EXPECT_NE(
      std::find(lines.begin(), lines.end(), "Could not fit logit model.  The problem occurred in:"),
      lines.end());
}

TEST(Regression, UnitsOfACovariateDoNotMatter) {
  regression plain = example(200, 3, 11, 1.0);
  plain.baseline = 1;
  std::vector<double> beta(6, 0.0), moved(6, 0.0);
  fitted_row row;
  error_type err;
  ASSERT_EQ(fit_regression(plain, beta.data(), row, 1, here, "Group: 1", err), 0);
  for (const auto& [mean, sd] : {std::pair{1e7, 1.0}, {2.02e7, 3e3}, {0.0, 1e-8}, {-5.0, 1e9}}) {
    SCOPED_TRACE(mean);
    regression fit = example(200, 3, 11, 1.0);
    for (int32 u = 1; u <= 200; ++u)
      fit.x(u, 2) = mean + sd * (plain.mean[1] + plain.scale[1] * plain.x(u, 2));
    scale_design(fit);
    std::fill(moved.begin(), moved.end(), 0.0);
    fitted_row own;
    ASSERT_EQ(fit_regression(fit, moved.data(), own, 1, here, "Group: 1", err), 0);
    for (const std::size_t c : {1, 2}) {
      EXPECT_NEAR(moved[2 * c + 1] * sd, beta[2 * c + 1], 1e-7);  // x itself has nine digits left
      EXPECT_NEAR(moved[2 * c] + mean * moved[2 * c + 1], beta[2 * c], 1e-7);
    }
  }
}

TEST(Regression, ACategoryThatIsAbsentTakesNoPart) {
  regression fit = example(80, 3, 5, 1.0);
  fit.absent[1] = true;
  for (int32 u = 1; u <= 80; ++u) fit.y(u, 2) = 0.0;
  std::vector<double> beta(6, 0.0);
  fitted_row row;
  error_type err;
  ASSERT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err), 0);
  std::vector<double> p(240);
  ASSERT_EQ(predict(fit, beta.data(), row.shares, p.data(), 3, "gamma", here, err), 0);
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
  fitted_row row;
  error_type err;
  ASSERT_EQ(fit_regression(fit, beta.data(), row, 1, here, "Group: 1", err), 0);
  double totals[4] = {0, 0, 0, 0};
  for (int32 u = 1; u <= 80; ++u)
    for (int32 c = 1; c <= 4; ++c) totals[c - 1] += fit.y(u, c);
  const double others = totals[0] + totals[2] + totals[3];
  EXPECT_NEAR(row.shares[0], totals[0] / others, 1e-14);
  EXPECT_EQ(row.shares[1], 0.0);
  EXPECT_EQ(beta[0], 0.0);
  EXPECT_EQ(regression_parameters(fit), 2 + 2);
  std::vector<double> p(320);
  ASSERT_EQ(predict(fit, beta.data(), row.shares, p.data(), 4, "gamma", here, err), 0);
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
