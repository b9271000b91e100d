#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "logit_fixture.hpp"

namespace tolvenra::logit_model {
namespace {

using namespace tests;

TEST(LogitModel, ChecksItsArgumentsInOrder) {
  const std::string conform = "Dimensions of matrix arguments not conformable";
  const strings baseline{"Invalid value for baseline category;", "must lie between 0 and ncol(y).",
                         here},
      beta{"Input array beta not of correct size;", "starting values could not be used.", here},
      totals{"Non-positive total count for one or more", "response categories.", here},
      positive{"weight must be positive.", here};
  using change = void (*)(fit&);
  // Each change is made on top of all later ones as well: the first fault alone is reported.
  const struct {
    const char* why;
    change spoil;
    strings lines;
  } cases[] = {
      {"rows of y",
       [](fit& f) {
         f.y.allocate({5, f.y.n[1]}, 1.0);
       },
       {conform, "x and y", here}},
      {"length of grpvar",
       [](fit& f) { f.grpvar.allocate({5}, 1); },
       {conform, "x and grpvar", here}},
      {"one category",
       [](fit& f) {
         f.y.allocate({30, 1}, 1.0);
       },
       {"There must be at least two response categories.", here}},
      {"baseline", [](fit& f) { f.baseline = 0; }, baseline},
      {"length of weight",
       [](fit& f) { f.weight.allocate({29}, 1.0); },
       {conform, "y and weight", here}},
      {"zero weight", [](fit& f) { f.weight(3) = 0.0; }, positive},
      {"weights of 1e11",
       [](fit& f) { f.weight.allocate({30}, 1e11); },
       {"One or more of the weights is too large.", here}},
      {"iterations",
       [](fit& f) { f.max_iterations = 0; },
       {"Maximum number of iterations", "must be positive.", here}},
      {"shape of beta",
       [](fit& f) {
         f.beta.allocate({2, 2});
       },
       beta},
      {"baseline column",
       [](fit& f) { f.beta(2, f.baseline) = 1e-9; },
       {"Starting value for beta not valid;", "column corresponding to the baseline category",
        "should be entirely zero.", here}},
      {"slots", [](fit& f) { f.slots = 0; }, {"Number of thread slots", "must be positive.", here}},
      {"empty group", [](fit& f) { f.group = 9; }, totals}};
  constexpr std::size_t count = std::size(cases);
  for (std::size_t first = 0; first < count; ++first) {
    SCOPED_TRACE(cases[first].why);
    for (const bool others : {false, true}) {
      fit f = random_problem(30, 3, 3, 2, 51);
      f.weighted = true;
      // Later faults that would undo this one by replacing its array are left out.
      if (others) {
        if (first < 11) f.group = 9;
        if (first < 7) f.max_iterations = 0;
        if (first < 5 && first != 4) f.weight(3) = 0.0;
        if (first < 3) f.baseline = 0;
      }
      cases[first].spoil(f);
      f.run();
      EXPECT_EQ(f.status, -1);
      EXPECT_EQ(f.lines, cases[first].lines);
      EXPECT_EQ(f.iterations, 0);
    }
  }
  fit above = random_problem(30, 3, 3, 2, 51);
  above.baseline = 4;
  above.run();
  EXPECT_EQ(above.lines, baseline);
  for (const double w : {-1.0, nan}) {
    fit f = random_problem(30, 3, 3, 2, 51);
    f.weighted = true;
    f.weight(30) = w;
    f.run();
    EXPECT_EQ(f.lines, positive) << w;
  }
  fit zero_total = random_problem(30, 3, 3, 2, 51);
  for (int32 i = 1; i <= 30; ++i)
    if (zero_total.grpvar(i) == 1) zero_total.y(i, 3) = 0.0;
  zero_total.run();
  EXPECT_EQ(zero_total.lines, totals);
}

TEST(LogitModel, OneLargeWeightPasses) {
  fit f = random_problem(100, 2, 2, 1, 61);
  std::fill(f.weight.flat.begin(), f.weight.flat.end(), 1.0);
  std::fill(f.grpvar.flat.begin(), f.grpvar.flat.end(), 1);
  f.weighted = true;
  f.weight(50) = 1e11;
  f.max_iterations = 1;
  f.run();
  for (const auto& line : f.lines) EXPECT_NE(line, "One or more of the weights is too large.");
  EXPECT_EQ(f.iterations, 1);
}

TEST(LogitModel, FailedIterationsSayWhereAndReturnNoNaN) {
  const std::string failed = "Logistic regression failed at iteration 1";
  const struct {
    const char* why;
    void (*spoil)(fit&);
    std::vector<std::string> any_of;
  } cases[] = {
      {"collinear",
       [](fit& f) {
         for (int32 i = 1; i <= f.x.n[0]; ++i) f.x(i, 3) = 2.0 * f.x(i, 2) - f.x(i, 1);
       },
       {failed}},
      {"repeats the intercept",
       [](fit& f) {
         for (int32 i = 1; i <= f.x.n[0]; ++i) f.x(i, 3) = 1.0;
       },
       {failed}},
      {"a tiny repeat of the intercept",
       [](fit& f) {
         for (int32 i = 1; i <= f.x.n[0]; ++i) f.x(i, 3) = 1e-9;
       },
       {failed}},
      {"more columns than rows",
       [](fit& f) {
         for (int32 i = 3; i <= f.x.n[0]; ++i) f.grpvar(i) = 2;
       },
       {failed}},
      {"NaN predictor", [](fit& f) { f.x(77, 2) = nan; }, {"Attempted division by zero"}},
      {"infinite predictor", [](fit& f) { f.x(77, 2) = inf; }, {"Attempted division by zero"}},
      {"NaN outcome",
       [](fit& f) { f.y(77, 2) = nan; },
       {"Non-positive total count for one or more"}},
      {"infinite outcome", [](fit& f) { f.y(77, 2) = inf; }, {failed}},
      {"infinite weight",
       [](fit& f) {
         f.weighted = true;
         f.weight(77) = inf;
       },
       {failed}},
      {"start beyond the exponent",
       [](fit& f) {
         f.beta(1, 1) = 709.8;
         f.beta(2, 1) = 0.0;
       },
       {"Argument to exp function too large"}},
      {"NaN start", [](fit& f) { f.beta(2, 1) = nan; }, {"Attempted division by zero"}}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    fit f = random_problem(400, 3, 3, 3, 71);
    std::fill(f.grpvar.flat.begin(), f.grpvar.flat.end(), 1);
    t.spoil(f);
    const auto start = f.beta;
    f.run();
    EXPECT_EQ(f.status, -1);
    EXPECT_FALSE(f.converged);
    EXPECT_TRUE(std::any_of(f.lines.begin(), f.lines.end(), [&](const std::string& line) {
      return line == t.any_of[0];
    })) << testing::PrintToString(f.lines);
    ASSERT_FALSE(f.lines.empty());
    EXPECT_EQ(f.lines.back(), here);
    for (std::size_t q = 0; q < start.size(); ++q)
      EXPECT_TRUE(f.beta.flat[q] == start.flat[q] || std::isnan(start.flat[q]))
          << "beta was changed";
  }
}

TEST(LogitModel, ColumnsThatRepeatOthersAreRefusedHoweverTheirPivotIsRounded) {
  int32 singular = 0;
  for (int32 seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    fit f = random_problem(150, 4, 3, 1 + seed % 3, seed);
    const double scale = std::pow(10.0, seed % 7 - 3);
    for (int32 i = 1; i <= 150; ++i) f.x(i, 4) = scale * (f.x(i, 2) - 0.3 * f.x(i, 3) + 0.1);
    f.run();
    EXPECT_EQ(f.status, -1);
    ASSERT_GE(f.lines.size(), 2U);
    const auto& reason = f.lines[f.lines.size() - 2];
    EXPECT_TRUE(reason == "-Hessian apparently singular." ||
                reason == "-Hessian not positive definite.")
        << reason;
    if (reason == "-Hessian apparently singular.") ++singular;
  }
  EXPECT_GT(singular, 0) << "no pivot was rounded upwards: the rule on pivots was not tried";
}

TEST(LogitModel, ReportsOfTheFactorisationComeBeforeItsOwn) {
  fit f = random_problem(50, 2, 2, 2, 81);
  std::fill(f.grpvar.flat.begin(), f.grpvar.flat.end(), 1);
  for (int32 i = 1; i <= 50; ++i) f.x(i, 2) = 0.0;  // a pivot of exactly zero
  f.run();
  EXPECT_EQ(f.lines, (strings{"Matrix apparently singular",
                              "OCCURRED IN: cholesky_in_place in MOD logit_model",
                              "Logistic regression failed at iteration 1",
                              "-Hessian not positive definite.", here}));
  f.x.allocate({50, 2}, 1.0);
  f.beta.allocate({2, 2});
  f.beta(1, 1) = 400.0;
  f.beta(2, 1) = 310.0;
  f.run();
  EXPECT_EQ(f.lines, (strings{"Argument to exp function too large", "at iteration 1", here}));
}

TEST(LogitModel, LargeExponentsBelowTheLimitDoNotOverflowTogether) {
  fit f = random_problem(60, 1, 4, 1, 91);
  std::fill(f.grpvar.flat.begin(), f.grpvar.flat.end(), 1);
  for (int32 k = 2; k <= 4; ++k) f.beta(1, k) = 709.7;
  f.max_iterations = 1;
  f.run();
  EXPECT_TRUE(std::isfinite(f.loglik));
  double expected = 0.0;
  for (int32 i = 1; i <= 60; ++i)
    expected +=
        f.y(i, 1) * (-709.7 - std::log(3.0)) - (f.y(i, 2) + f.y(i, 3) + f.y(i, 4)) * std::log(3.0);
  EXPECT_NEAR(f.loglik, expected, 1e-10 * std::abs(expected));
}

TEST(LogitModel, SeparationNeverConverges) {
  for (const int32 iterations : {20, 5000}) {
    fit f = random_problem(80, 2, 2, 2, 101);
    std::fill(f.grpvar.flat.begin(), f.grpvar.flat.end(), 1);
    for (int32 i = 1; i <= 80; ++i) {
      f.y(i, 1) = f.x(i, 2) > 0.2 ? 1.0 : 0.0;
      f.y(i, 2) = 1.0 - f.y(i, 1);
    }
    f.max_iterations = iterations;
    f.run();
    EXPECT_FALSE(f.converged);
    for (const double b : f.beta.flat) EXPECT_TRUE(std::isfinite(b));
    if (iterations == 20) continue;
    EXPECT_EQ(f.status, -1);
    EXPECT_EQ(f.lines.back(), here);
  }
}

TEST(LogitSweep, ForwardGivesMinusTheInverseAndReverseUndoesIt) {
  array<double, 2> a;
  a.allocate({3, 3});
  const double entries[3][3] = {{4.0, 1.0, -2.0}, {1.0, 3.0, 0.5}, {-2.0, 0.5, 5.0}};
  for (int32 i = 1; i <= 3; ++i)
    for (int32 j = 1; j <= 3; ++j) a(i, j) = entries[i - 1][j - 1];
  const auto original = a;
  error_type err;
  for (const int32 k : {2, 1, 3}) ASSERT_EQ(sweep_forward(a, k, err), 0);
  for (int32 i = 1; i <= 3; ++i)
    for (int32 j = 1; j <= 3; ++j) {
      double product = 0.0;
      for (int32 k = 1; k <= 3; ++k) product -= original(i, k) * a(k, j);
      EXPECT_NEAR(product, i == j ? 1.0 : 0.0, 1e-14);
    }
  for (const int32 k : {3, 2, 1}) ASSERT_EQ(sweep_reverse(a, k, err), 0);
  for (std::size_t q = 0; q < a.size(); ++q) EXPECT_NEAR(a.flat[q], original.flat[q], 1e-13);

  a = original;
  a(2, 2) = 1e-309;
  for (const int32 k : {0, 2}) EXPECT_EQ(sweep_forward(a, k, err), -1);
  EXPECT_TRUE(lines_of(err).empty());
  EXPECT_EQ(sweep_forward(a, 4, err), -1);
  EXPECT_EQ(sweep_reverse(a, -1, err), -1);
  EXPECT_EQ(lines_of(err),
            (strings{"Pivot out of bounds.", "OCCURRED IN: sweep_forward in MOD logit_model",
                     "Pivot out of bounds.", "OCCURRED IN: sweep_reverse in MOD logit_model"}));
}

}  // namespace
}  // namespace tolvenra::logit_model
