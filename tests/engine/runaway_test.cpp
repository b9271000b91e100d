// Regressions without a finite maximum. With a dummy as the only covariate they are the model of
// two groups with probabilities of their own, where an empty class is an ordinary zero: what the
// regression finds must be what the groups find.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/lca_problem.hpp"
#include "support/lta_problem.hpp"

namespace tolvenra::test {
namespace {

/// Three clear classes of six binary items; those with x = 1 are never in class 3.
lca_problem third_class_only_at_zero(int n, unsigned seed) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  lca_problem p;
  p.nkase = n;
  p.nci = 6;
  p.nrc.assign(6, 2);
  p.nc = 3;
  p.y.resize(static_cast<std::size_t>(6 * n));
  for (int k = 1; k <= n; ++k) {
    const int x = k % 2;
    const int c = static_cast<int>(uniform() * (x == 1 ? 2.0 : 3.0));
    for (int j = 1; j <= 6; ++j) {
      const bool mostly_yes = c == 0 || (c == 1 && j > 3);
      p.set_response(k, j, uniform() < (mostly_yes ? 0.9 : 0.12) ? 1 : 2);
    }
    p.strata.push_back(1 + x);
    p.weight.push_back(0.5 + uniform());
  }
  p.nstarts = 5;
  p.criterion = 1e-10;
  p.se_option = 1;
  return p;
}

lca_problem in_two_groups(lca_problem p) {
  p.nstr = 2;
  p.rho_equal_strata = true;
  return p;
}

/// Class numbers of `a` in the order of the shares of class responses in `b`: by item 1 and 4.
std::vector<int> matched(const lca_problem& a, const lca_problem& b) {
  std::vector<int> of;
  for (int c = 1; c <= 3; ++c)
    for (int d = 1; d <= 3; ++d)
      if (std::abs(a.rho_at(1, c, 1, 1) - b.rho_at(1, d, 1, 1)) < 1e-4 &&
          std::abs(a.rho_at(4, c, 1, 1) - b.rho_at(4, d, 1, 1)) < 1e-4)
        of.push_back(d);
  return of;
}

TEST(Runaways, ClassesAgreeWithGroupsOfTheirOwn) {
  for (const bool weighted : {false, true}) {
    lca_problem base = third_class_only_at_zero(800, 5);
    if (!weighted) base.weight.clear();
    lca_problem groups = in_two_groups(base);
    ASSERT_EQ(groups.run(), 0) << groups.message;
    int empty = 0;  // class without members in group 2
    for (int c = 1; c <= 3; ++c)
      if (groups.gamma_at(c, 2) < 1e-8) empty = c;
    ASSERT_GT(empty, 0);
    struct coding {
      double zero, one;
      bool intercept_inherits;
    };
    for (const coding x : {coding{0.0, 1.0, false}, {-1.0, 1.0, true}, {2.02e7, 2.02e7 + 1, true}})
      for (int baseline = 1; baseline <= 3; ++baseline) {
        SCOPED_TRACE(testing::Message() << "x " << x.zero << ", reference " << baseline
                                        << (weighted ? ", weighted" : ""));
        lca_problem p = base;
        p.ncov = 1;
        for (int k = 1; k <= p.nkase; ++k) p.cov.push_back(p.stratum(k) == 2 ? x.one : x.zero);
        p.strata.clear();
        p.baseline = baseline;
        p.criterion = x.zero > 1.0 ? 1e-3 : 1e-10;  // in units of a distant intercept
        p.want_tests = true;
        ASSERT_EQ(p.run(), 0) << p.message;
        EXPECT_EQ(p.converged, 255);
        EXPECT_EQ(std::count(p.start_status.begin(), p.start_status.end(), 0), 5);
        EXPECT_NEAR(p.loglik, groups.loglik, 1e-6);
        EXPECT_EQ(p.n_params, (std::array<std::int32_t, 9>{22, 0, 18, 4, 0, 0, 0, 0, 0}));
        const std::vector<int> of = matched(p, groups);
        ASSERT_EQ(of.size(), 3U);
        // One direction is flat. Against the empty class it moves both slopes, else its own.
        const bool against_empty = of[static_cast<std::size_t>(baseline - 1)] == empty;
        EXPECT_EQ(p.run_info[15], (against_empty ? 2 : 1) * (x.intercept_inherits ? 2 : 1));
        EXPECT_EQ(p.run_info[9], 0);  // none of them lies on a boundary
        EXPECT_EQ(p.run_info[7], 1) << p.message;
        for (int c = 1; c <= 3; ++c) {
          const int d = of[static_cast<std::size_t>(c - 1)];
          for (int j = 1; j <= 6; ++j)
            EXPECT_NEAR(p.std_rho[static_cast<std::size_t>(j - 1 + 6 * (c - 1))],
                        groups.std_rho[static_cast<std::size_t>(j - 1 + 6 * (d - 1))], 1e-5);
          const bool runs = c != baseline && (d == empty || against_empty);
          EXPECT_EQ(std::isnan(p.std_beta[static_cast<std::size_t>(2 * c - 1)]), runs);
          if (c == baseline || runs || x.intercept_inherits) continue;
          // log(gamma_d / gamma_b) of group 1 is the intercept
          EXPECT_NEAR(p.beta_at(0, c, 1),
                      std::log(groups.gamma_at(d, 1) /
                               groups.gamma_at(of[static_cast<std::size_t>(baseline - 1)], 1)),
                      1e-5);
        }
        EXPECT_EQ(p.test_status[0], 0);
        EXPECT_GT(p.test_stat[0], 50.0);
      }
  }
}

TEST(Runaways, TransitionsAgreeWithGroupsOfTheirOwn) {
  for (const double strength : {0.0, 2.0}) {
    lta_problem groups = simulate_lta(120, {2, 2, 3, 2}, 3, 3, 12, 0.05, 0.02, 2);
    groups.equal_time = groups.equal_strata = true;
    groups.criterion = 1e-9;
    ASSERT_EQ(groups.run(), 0) << groups.message;
    const auto zeros = std::count_if(groups.tau.begin(), groups.tau.end(),
                                     [](double value) { return value < 1e-8; });
    ASSERT_GT(zeros, 3);
    lta_problem p = groups;
    p.nstr = 1;
    p.ncov_delta = p.ncov_tau = 1;
    for (int column = 0; column < p.nt; ++column)
      for (int k = 1; k <= p.nkase; ++k) p.cov.push_back(groups.stratum(k) - 1.0);
    p.strata.clear();
    p.delta.clear();
    p.tau.clear();
    p.big_rho.clear();
    p.want_tests = true;
    p.prior_strength = strength;
    ASSERT_EQ(p.run(), 0) << p.message;
    verify_lta(p);
    EXPECT_EQ(p.converged, 255);
    for (std::size_t i = 1; i < p.llvec.size() && strength == 0.0; ++i)
      EXPECT_GE(p.llvec[i], p.llvec[i - 1] - 1e-9 * std::abs(p.llvec[i]));
    for (const int status : p.test_status) EXPECT_TRUE(status == 0 || status == 5) << status;
    if (strength > 0.0) {
      EXPECT_EQ(p.run_info[15], 0);
      continue;
    }
    EXPECT_NEAR(p.loglik, groups.loglik, 1e-5);
    EXPECT_GE(p.run_info[15], zeros);
    for (int k = 1; k <= p.nkase; ++k)
      for (int t = 1; t < p.nt; ++t)
        for (int s = 1; s <= 3; ++s)
          for (int d = 1; d <= 3; ++d)
            EXPECT_NEAR(p.move_probability(k, s, d, t),
                        groups.tau[groups.tau_cell(s, d, t, groups.stratum(k))], 1e-4);
  }
}

}  // namespace
}  // namespace tolvenra::test
