#include "numerics/logit_model.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>
#include <vector>

#include "logit_fixture.hpp"
#include "support/allocations.hpp"

namespace tolvenra::logit_model {
namespace {

using namespace tests;

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
  if (!tolvenra::test::heap_is_watched) GTEST_SKIP() << "the sanitizer owns operator new";
  fit f = random_problem(3000, 4, 3, 1, 21);
  f.run();
  const auto first = f.beta;
  const double* const storage = f.work.slot_hessian.data();
  error_type err;
  array<double, 2> beta = first;
  const long before = tolvenra::test::allocations;
  for (int32 baseline = 1; baseline <= 3; ++baseline) {
    std::fill(beta.flat.begin(), beta.flat.end(), 0.0);
    f.status |=
        run_logit_model_threads(f.x, f.y, nullptr, baseline, f.iterations, f.converged, f.loglik,
                                beta, f.grpvar, 1, f.slots, std::nullopt, f.work, err);
  }
  EXPECT_EQ(tolvenra::test::allocations, before);
  EXPECT_EQ(f.status, 0);
  EXPECT_EQ(f.work.slot_hessian.data(), storage);

  // Any other size forces a new set-up, and the old sizes give the old result again.
  const std::tuple<int32, int32, int32> others[] = {
      {3060, 4, 3}, {3000, 5, 3}, {3000, 3, 4}, {9000, 4, 3}};
  for (const auto& [n, p, r] : others) {
    SCOPED_TRACE(testing::Message() << n << " rows, " << p << " columns, " << r << " categories");
    fit other = random_problem(n, p, r, 2, 22), alone = random_problem(n, p, r, 2, 22);
    other.work = std::move(f.work);
    other.run();
    alone.run();
    EXPECT_EQ(other.status, 0);
    EXPECT_EQ(other.beta, alone.beta);
    f.work = std::move(other.work);
    std::fill(f.beta.flat.begin(), f.beta.flat.end(), 0.0);
    f.run();
    EXPECT_EQ(f.beta, first);
  }

  ++f.slots;
  f.run();
  EXPECT_EQ(f.work.t, f.slots);

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

}  // namespace
}  // namespace tolvenra::logit_model
