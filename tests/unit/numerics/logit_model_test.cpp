#include "numerics/logit_model.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "allocation_count.hpp"
#include "numerics/random_generator.hpp"

namespace tolvenra::logit_model {
namespace {

using strings = std::vector<std::string>;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
const std::string here = "OCCURRED IN: run_logit_model_threads in MOD logit_model";

/// One regression: its data, and what a fit returned.
struct fit {
  array<double, 2> x, y, beta;
  array<double, 1> weight;
  bool weighted = false;
  array<int32, 1> grpvar;
  int32 group = 1, baseline = 1, slots = 1;
  std::optional<int32> max_iterations;
  logit_mt_workspace_type work;

  int32 status = 0, iterations = 0;
  bool converged = false;
  double loglik = 0.0;
  strings lines;

  void run() {
    error_type err;
    status =
        run_logit_model_threads(x, y, weighted ? &weight : nullptr, baseline, iterations, converged,
                                loglik, beta, grpvar, group, slots, max_iterations, work, err);
    lines = lines_of(err);
  }
};

/// Fractional outcomes that depend on the predictors; weights 0.2 to 3, three groups.
fit random_problem(int32 n, int32 p, int32 r, int32 baseline, int32 seed) {
  fit f;
  ran_state_type state;
  error_type err;
  random_generator::ran_setall(state, seed, 99, err);
  const auto uniform = [&](double low, double high) {
    double u = 0.0;
    random_generator::ran_genunf(state, low, high, u, err);
    return u;
  };
  f.x.allocate({n, p}, 1.0);
  f.y.allocate({n, r});
  f.beta.allocate({p, r});
  f.weight.allocate({n});
  f.grpvar.allocate({n});
  f.baseline = baseline;
  f.slots = slots_for(n, p, r);
  for (int32 i = 1; i <= n; ++i) {
    for (int32 j = 2; j <= p; ++j) f.x(i, j) = uniform(-1.0, 1.5);
    for (int32 k = 1; k <= r; ++k)
      f.y(i, k) = uniform(0.0, 1.0) * std::exp(0.4 * (k - 2) * f.x(i, p) - 0.3 * f.x(i, 1 + k % p));
    f.weight(i) = uniform(0.2, 3.0);
    f.grpvar(i) = 1 + i * 7 % 3;
  }
  return f;
}

/// Newton's method in extended precision on full matrices, row by row, solved by elimination: the
/// estimates and, in `loglik`, the log-likelihood at them.
std::vector<std::vector<long double>> reference_fit(const fit& f, long double& loglik) {
  const int32 n = f.x.n[0], p = f.x.n[1], r = f.y.n[1];
  const auto order = static_cast<std::size_t>(p * r);
  const auto at = [p](int32 j, int32 k) { return static_cast<std::size_t>((k - 1) * p + j - 1); };
  std::vector<long double> beta(order);
  for (int round = 0; round < 60; ++round) {
    std::vector<std::vector<long double>> h(order, std::vector<long double>(order + 1));
    loglik = 0.0L;
    for (int32 i = 1; i <= n; ++i) {
      if (f.grpvar(i) != f.group) continue;
      std::vector<long double> pi(static_cast<std::size_t>(r) + 1);
      long double sum = 0.0L, m = 0.0L;
      const long double w = f.weighted ? f.weight(i) : 1.0;
      for (int32 k = 1; k <= r; ++k) {
        long double eta = 0.0L;
        for (int32 j = 1; j <= p; ++j) eta += beta[at(j, k)] * f.x(i, j);
        sum += pi[static_cast<std::size_t>(k)] = std::exp(eta);
        m += f.y(i, k);
      }
      for (auto& value : pi) value /= sum;
      for (int32 k = 1; k <= r; ++k) {
        const long double pk = pi[static_cast<std::size_t>(k)];
        loglik += w * f.y(i, k) * std::log(pk);
        for (int32 j = 1; j <= p; ++j) {
          h[at(j, k)][order] += w * f.x(i, j) * (f.y(i, k) - m * pk);
          for (int32 l = 1; l <= r; ++l)
            for (int32 g = 1; g <= p; ++g)
              h[at(j, k)][at(g, l)] += w * m * f.x(i, j) * f.x(i, g) * pk *
                                       ((k == l ? 1.0L : 0.0L) - pi[static_cast<std::size_t>(l)]);
        }
      }
    }
    // The baseline's coefficients stay 0.
    for (int32 j = 1; j <= p; ++j) {
      const auto q = at(j, f.baseline);
      for (std::size_t c = 0; c < order; ++c) h[q][c] = h[c][q] = 0.0L;
      h[q][q] = 1.0L;
      h[q][order] = 0.0L;
    }
    for (std::size_t c = 0; c < order; ++c)
      for (std::size_t d = 0; d < order; ++d) {
        if (d == c) continue;
        const long double factor = h[d][c] / h[c][c];
        for (std::size_t e = c; e <= order; ++e) h[d][e] -= factor * h[c][e];
      }
    for (std::size_t c = 0; c < order; ++c) beta[c] += h[c][order] / h[c][c];
  }
  std::vector<std::vector<long double>> out(static_cast<std::size_t>(r) + 1);
  for (int32 k = 1; k <= r; ++k)
    out[static_cast<std::size_t>(k)].assign(beta.begin() + (k - 1) * p, beta.begin() + k * p);
  return out;
}

TEST(LogitModel, AgreesWithAnIndependentSolver) {
  const struct {
    int32 n, p, r, baseline;
    bool weighted;
    int32 group;
  } cases[] = {{60, 1, 2, 2, false, 1},  {300, 2, 2, 1, true, 2},  {400, 3, 3, 2, false, 3},
               {700, 4, 4, 4, true, 1},  {900, 8, 2, 1, false, 2}, {1500, 5, 5, 3, true, 3},
               {1200, 6, 4, 1, true, 2}, {1600, 8, 6, 6, true, 1}, {2100, 2, 6, 3, false, 1}};
  for (const auto& t : cases) {
    SCOPED_TRACE(testing::Message()
                 << t.n << " rows, " << t.p << " columns, " << t.r << " categories");
    fit f = random_problem(t.n, t.p, t.r, t.baseline, 7 * t.n + t.p);
    f.weighted = t.weighted;
    f.group = t.group;
    f.run();
    ASSERT_EQ(f.status, 0);
    EXPECT_TRUE(f.converged);
    long double loglik = 0.0L;
    const auto beta = reference_fit(f, loglik);
    for (int32 k = 1; k <= t.r; ++k)
      for (int32 j = 1; j <= t.p; ++j)
        EXPECT_NEAR(
            f.beta(j, k),
            static_cast<double>(beta[static_cast<std::size_t>(k)][static_cast<std::size_t>(j - 1)]),
            1e-8);
    // The log-likelihood belongs to the coefficients before the last, tiny, update.
    EXPECT_NEAR(f.loglik, static_cast<double>(loglik), 1e-7 * std::abs(f.loglik));
  }
}

TEST(LogitModel, HasTheSameBitsAtEveryThreadCount) {
  for (const auto& [n, p, r] : {std::tuple{5000, 3, 3}, {20011, 6, 4}}) {
    fit one = random_problem(n, p, r, r, 5);
    one.weighted = true;
    ASSERT_GT(one.slots, 8);
    one.work.threads = 1;
    one.run();
    ASSERT_EQ(one.status, 0);
    for (const int32 threads : {2, 3, 4}) {
      omp_set_num_threads(4);
      fit more = random_problem(n, p, r, r, 5);
      more.weighted = true;
      more.work.threads = threads;
      more.run();
      EXPECT_EQ(more.beta, one.beta) << threads;
      EXPECT_EQ(more.loglik, one.loglik) << threads;
      EXPECT_EQ(more.iterations, one.iterations) << threads;
    }
  }
  omp_set_num_threads(omp_get_num_procs());
}

TEST(LogitModel, ReusesItsWorkspaceWithoutAllocating) {
  fit f = random_problem(3000, 4, 3, 1, 21);
  f.run();
  const auto first = f.beta;
  const double* const storage = f.work.slot_hessian.data();
  error_type err;
  array<double, 2> beta = first;
  const long before = tests::allocations;
  for (int32 baseline = 1; baseline <= 3; ++baseline) {
    std::fill(beta.flat.begin(), beta.flat.end(), 0.0);
    f.status |=
        run_logit_model_threads(f.x, f.y, nullptr, baseline, f.iterations, f.converged, f.loglik,
                                beta, f.grpvar, 1, f.slots, std::nullopt, f.work, err);
  }
  EXPECT_EQ(tests::allocations, before);
  EXPECT_EQ(f.status, 0);
  EXPECT_EQ(f.work.slot_hessian.data(), storage);

  // Other sizes force a new set-up, and the old sizes give the old result again.
  fit wide = random_problem(4100, 7, 4, 2, 22);
  wide.work = std::move(f.work);
  wide.run();
  EXPECT_EQ(wide.status, 0);
  f.work = std::move(wide.work);
  std::fill(f.beta.flat.begin(), f.beta.flat.end(), 0.0);
  f.run();
  EXPECT_EQ(f.beta, first);

  EXPECT_EQ(nullify_logit_mt_workspace_type(f.work, err), 0);
  EXPECT_TRUE(f.work.needs_setup);
  EXPECT_EQ(f.work.n + f.work.p + f.work.r + f.work.b + f.work.t, 0);
  EXPECT_FALSE(f.work.coefficients.allocated || f.work.tile.allocated ||
               f.work.slot_failure.allocated);
  EXPECT_TRUE(lines_of(err).empty());
}

TEST(LogitModel, RowsOfOtherGroupsDoNotExist) {
  fit f = random_problem(900, 3, 3, 2, 31);
  f.weighted = true;
  f.group = 2;
  f.run();
  ASSERT_EQ(f.status, 0);
  fit spoilt = random_problem(900, 3, 3, 2, 31);
  spoilt.weighted = true;
  spoilt.group = 2;
  for (int32 i = 1; i <= 900; ++i)
    if (spoilt.grpvar(i) != 2) spoilt.x(i, 2) = spoilt.y(i, 1) = i % 2 == 0 ? nan : inf;
  spoilt.run();
  EXPECT_EQ(spoilt.status, 0);
  EXPECT_EQ(spoilt.beta, f.beta);
  EXPECT_EQ(spoilt.loglik, f.loglik);
}

TEST(LogitModel, EqualWeightsAreNoWeights) {
  for (const double w : {7.0, 1.0, 1e-3}) {
    fit plain = random_problem(500, 3, 3, 1, 41), equal = random_problem(500, 3, 3, 1, 41);
    equal.weighted = true;
    std::fill(equal.weight.flat.begin(), equal.weight.flat.end(), w);
    plain.run();
    equal.run();
    EXPECT_EQ(equal.beta, plain.beta) << w;
    EXPECT_EQ(equal.loglik, plain.loglik) << w;
  }
}

TEST(LogitModel, InterceptAloneGivesTheLogOddsAndItsLogLikelihoodIsOneUpdateOld) {
  fit f;
  f.x.allocate({10, 1}, 1.0);
  f.y.allocate({10, 2});
  for (int32 i = 1; i <= 10; ++i) f.y(i, i <= 7 ? 1 : 2) = 1.0;
  f.grpvar.allocate({10}, 1);
  f.beta.allocate({1, 2});
  f.baseline = 2;
  f.max_iterations = 1;
  f.run();
  EXPECT_EQ(f.status, 0);
  EXPECT_EQ(f.iterations, 1);
  EXPECT_FALSE(f.converged);
  EXPECT_NEAR(f.loglik, 10.0 * std::log(0.5), 1e-13);
  EXPECT_NEAR(f.beta(1, 1), 0.8, 1e-14);  // the Newton step: score 7 - 5, information 10 / 4
  f.max_iterations.reset();
  f.run();
  EXPECT_TRUE(f.converged);
  EXPECT_NEAR(f.beta(1, 1), std::log(7.0 / 3.0), 1e-12);
  EXPECT_EQ(f.beta(1, 2), 0.0);
}

TEST(LogitModel, CoefficientsThatAreTrulyZeroRarelyMeetTheRelativeRule) {
  int32 unconverged = 0;
  for (int32 seed = 1; seed <= 50; ++seed) {
    fit f = random_problem(200, 2, 2, 2, seed);
    // Every row has its mirror image: the intercept's estimate is 0 but for rounding.
    std::fill(f.grpvar.flat.begin(), f.grpvar.flat.end(), 1);
    for (int32 i = 1; i <= 100; ++i) {
      f.x(i + 100, 2) = -f.x(i, 2);
      f.y(i + 100, 1) = f.y(i, 2);
      f.y(i + 100, 2) = f.y(i, 1);
    }
    f.run();
    ASSERT_EQ(f.status, 0) << seed;
    if (!f.converged) {
      ++unconverged;
      EXPECT_EQ(f.iterations, 20);
    }
    const auto before = f.beta;
    f.max_iterations = 1;
    f.run();
    for (std::size_t q = 0; q < before.size(); ++q)
      EXPECT_NEAR(f.beta.flat[q], before.flat[q], 1e-8 * (1.0 + std::abs(before.flat[q])));
  }
  EXPECT_GT(unconverged, 0);
}

TEST(LogitModel, AFitThatDoesNotMoveHasConverged) {
  fit f;
  f.x.allocate({4, 1}, 1.0);
  f.y.allocate({4, 2}, 0.5);
  f.grpvar.allocate({4}, 1);
  f.beta.allocate({1, 2});
  f.run();
  EXPECT_EQ(f.status, 0);
  EXPECT_TRUE(f.converged);
  EXPECT_EQ(f.iterations, 1);

  f.x.allocate({4, 0});  // no coefficient at all
  f.beta.allocate({0, 2});
  f.run();
  EXPECT_EQ(f.status, 0);
  EXPECT_TRUE(f.converged);
  EXPECT_NEAR(f.loglik, 4.0 * std::log(0.5), 1e-13);
}

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
