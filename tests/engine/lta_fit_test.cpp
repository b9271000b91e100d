// Whole transition models through the driver; `verify_lta` recomputes each by full enumeration.
#include <gtest/gtest.h>

#include <cmath>

#include "support/lta_problem.hpp"

namespace tolvenra::test {
namespace {

/// Parameters as they are counted by hand.
int parameters(const lta_problem& p) {
  int categories = 0;
  for (const int r : p.nrs) categories += r - 1;
  const int slabs = (p.equal_time ? 1 : p.nt) * (p.equal_strata ? 1 : p.nstr);
  return p.nstr * (p.ns - 1) * (1 + p.ns * (p.nt - 1)) + slabs * p.ns * categories;
}

TEST(LtaFit, AgreesWithEnumerationInAllSmallShapes) {
  struct shape {
    std::vector<std::int32_t> nrs;
    int nt, ns, nstr;
    bool equal_time, equal_strata;
    double missing_wave, missing;
  };
  const shape shapes[] = {{{2, 2, 2}, 2, 2, 1, true, false, 0.0, 0.0},
                          {{2, 3, 4}, 3, 3, 1, true, false, 0.2, 0.1},
                          {{3, 2, 2, 2}, 2, 4, 2, false, true, 0.0, 0.1},
                          {{2, 2, 2, 3}, 3, 2, 2, false, false, 0.1, 0.0},
                          {{2, 2, 5}, 4, 2, 2, true, true, 0.2, 0.0},
                          {{4, 4}, 1, 3, 1, false, false, 0.0, 0.0},
                          {{2, 1, 3}, 3, 1, 1, false, false, 0.0, 0.2},
                          {{2, 2, 2, 2, 2, 2}, 2, 9, 1, true, false, 0.0, 0.0}};
  unsigned seed = 40;
  for (const shape& s : shapes) {
    SCOPED_TRACE(::testing::Message() << s.ns << " statuses, " << s.nt << " times");
    lta_problem fit =
        simulate_lta(300, s.nrs, s.nt, s.ns, ++seed, s.missing_wave, s.missing, s.nstr);
    fit.equal_time = s.equal_time;
    fit.equal_strata = s.equal_strata;
    fit.criterion = 1e-7;
    fit.nstarts = 2;
    fit.run();
    verify_lta(fit);
    EXPECT_EQ(fit.n_params[0], parameters(fit));
    EXPECT_EQ(fit.start_seeds[0], fit.seed);
    EXPECT_EQ(fit.loglik, std::max(fit.start_loglik[0], fit.start_loglik[1]));
  }
}

TEST(LtaFit, TakesFrequenciesForExpandedRowsAndGivesTheSameBitsAtAnyThreadCount) {
  lta_problem expanded = simulate_lta(900, {2, 2, 3}, 3, 3, 7, 0.1, 0.05);
  lta_problem collapsed = expanded;
  collapsed.nkase = 300;
  for (lta_problem* p : {&expanded, &collapsed}) p->equal_time = true;
  const lta_problem all = expanded;
  collapsed.y.resize(static_cast<std::size_t>(300 * 9));
  for (int k = 1; k <= 300; ++k)
    for (int t = 1; t <= 3; ++t)
      for (int i = 1; i <= 3; ++i) {
        collapsed.response(k, i, t) = all.response(k, i, t);
        for (int copy = 1; copy <= 2; ++copy)
          expanded.response(k + 300 * copy, i, t) = all.response(k, i, t);
      }
  collapsed.freq.assign(300, 3.0);
  expanded.run();
  collapsed.run();
  verify_lta(collapsed);
  EXPECT_NEAR(expanded.loglik, collapsed.loglik, 1e-8);
  for (std::size_t q = 0; q < expanded.tau.size(); ++q)
    EXPECT_NEAR(expanded.tau[q], collapsed.tau[q], 1e-8);
  for (const int threads : {2, 4}) {
    lta_problem again = all;
    lta_problem once = all;
    again.threads = threads;
    again.run();
    once.run();
    EXPECT_EQ(again.loglik, once.loglik);
    EXPECT_EQ(again.tau, once.tau);
    EXPECT_EQ(again.big_rho, once.big_rho);
    EXPECT_EQ(again.sta, once.sta);
  }
}

TEST(LtaFit, KeepsLongSeriesFastAndWithoutTablesOfSequences) {
  lta_problem fit = simulate_lta(500, {2, 2, 2, 2, 2}, 10, 5, 3, 0.1, 0.0);  // 5^10 sequences
  fit.equal_time = true;
  fit.max_iter = 20;
  ASSERT_EQ(fit.run(), 0) << fit.message;
  EXPECT_EQ(fit.iterations, 20);
  EXPECT_GT(fit.overflow, 0);  // 2^50 cells
  for (int i = 2; i < 20; ++i)
    EXPECT_GE(fit.llvec[static_cast<std::size_t>(i)], fit.llvec[static_cast<std::size_t>(i - 1)]);
  double worst = 0.0;  // what each marginal must satisfy, whatever the length
  for (int k = 1; k <= fit.nkase; ++k)
    for (int t = 1; t < fit.nt; ++t)
      for (int s = 1; s <= fit.ns; ++s) {
        double out = 0.0;
        double in = 0.0;
        for (int d = 1; d <= fit.ns; ++d) {
          out += fit.move(k, s, d, t);
          in += fit.move(k, d, s, t);
        }
        worst = std::max({worst, std::abs(out - fit.posterior(k, t, s)),
                          std::abs(in - fit.posterior(k, t + 1, s))});
      }
  EXPECT_LT(worst, 1e-12);
}

TEST(LtaFit, RecoversTheTruth) {
  constexpr int sets = 20;  // a short form of the study in bench/
  double error = 0.0;
  int cells = 0;
  for (int set = 0; set < sets; ++set) {
    lta_problem fit;
    fit.nkase = 2000;
    fit.nrs.assign(6, 2);
    fit.ni = 6;
    fit.nt = 3;
    fit.ns = 3;
    const lta_truth truth = clear_truth(fit, 900);
    simulate_cases(fit, truth, 1000 + static_cast<unsigned>(set));
    fit.equal_time = true;
    fit.random = false;  // start at the truth: what is asked is the error of the maximum
    fit.delta = truth.delta;
    fit.tau = truth.tau;
    fit.big_rho = truth.big_rho;
    ASSERT_EQ(fit.run(), 0) << fit.message;
    for (std::size_t q = 0; q < fit.tau.size(); ++q, ++cells)
      error += std::abs(fit.tau[q] - truth.tau[q]);
  }
  EXPECT_LT(error / cells, 0.02);
}

TEST(LtaFit, HoldsRestrictions) {
  lta_problem base = simulate_lta(500, {2, 2, 3}, 4, 3, 21, 0.1, 0.0);
  base.equal_time = true;
  base.set_uniform_start();
  base.criterion = 1e-8;

  lta_problem zeros = base;  // no way back from status 3, none from 1 to 3
  for (int k = 1; k <= 3; ++k)
    for (const auto& [s, d] : {std::pair{3, 1}, {3, 2}, {1, 3}}) {
      zeros.tau[zeros.tau_cell(s, d, k, 1)] = 0.0;
      zeros.tau_restrictions[zeros.tau_cell(s, d, k, 1)] = 0;
    }
  for (int k = 1; k <= 3; ++k) {
    zeros.tau[zeros.tau_cell(3, 3, k, 1)] = 1.0;
    zeros.tau[zeros.tau_cell(1, 1, k, 1)] = zeros.tau[zeros.tau_cell(1, 2, k, 1)] = 0.5;
  }
  zeros.run();
  verify_lta(zeros);
  for (int k = 1; k <= 3; ++k) {
    EXPECT_EQ(zeros.tau[zeros.tau_cell(3, 1, k, 1)], 0.0);
    EXPECT_EQ(zeros.tau[zeros.tau_cell(3, 3, k, 1)], 1.0);
  }
  EXPECT_EQ(zeros.n_params[5], 3 * (1 + 2));

  lta_problem stationary = base;  // one matrix for all transitions
  for (int k = 1; k <= 3; ++k)
    for (int s = 1; s <= 3; ++s)
      for (int d = 1; d <= 3; ++d)
        stationary.tau_restrictions[stationary.tau_cell(s, d, k, 1)] = 1 + 3 * (s - 1) + d;
  stationary.run();
  verify_lta(stationary);
  for (int s = 1; s <= 3; ++s)
    for (int d = 1; d <= 3; ++d)
      EXPECT_EQ(stationary.tau[stationary.tau_cell(s, d, 3, 1)],
                stationary.tau[stationary.tau_cell(s, d, 1, 1)]);
  EXPECT_EQ(stationary.n_params[5], 6);
  EXPECT_EQ(stationary.run_info[12], stationary.n_params[0]);

  lta_problem fixed = base;  // fixed measurement of one item in one status, at all times
  fixed.big_rho.assign(3 * 3 * 3 * 4, 0.0);
  fixed.big_rho_restrictions.assign(fixed.big_rho.size(), 1);
  for (int t = 1; t <= 4; ++t)
    for (int r = 1; r <= 2; ++r) {
      fixed.big_rho[fixed.rho_cell(1, 2, r, t, 1)] = r == 1 ? 0.9 : 0.0;
      fixed.big_rho_restrictions[fixed.rho_cell(1, 2, r, t, 1)] = r == 1 ? 0 : 1;
    }
  fixed.nstarts = 3;
  fixed.run();
  verify_lta(fixed);
  EXPECT_EQ(fixed.big_rho[fixed.rho_cell(1, 2, 1, 4, 1)], 0.9);
  EXPECT_NEAR(fixed.big_rho[fixed.rho_cell(1, 2, 2, 4, 1)], 0.1, 1e-15);
}

TEST(LtaFit, RefusesWhatCannotBeEstimated) {
  const lta_problem base = simulate_lta(100, {2, 2}, 3, 2, 5);
  struct refusal {
    const char* why;
    void (*change)(lta_problem&);
    const char* message;
  };
  const refusal refusals[] = {
      {"no seed", [](lta_problem& p) { p.seed = 0; },
       "The SEED provided for Tolvenra must be a positive integer."},
      {"statuses", [](lta_problem& p) { p.ns = 100; },
       "The number of latent statuses specified was 100"},
      {"out of reach",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.delta = {1.0, 0.0};
         p.delta_restrictions = {1, 0};
         p.equal_time = true;
         p.msg_len = 1500;
       },
       "The fixed zeros let no case of stratum (group) 1 be in status 2 at time 1."},
      {"all fixed",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.delta_restrictions.assign(2, 0);
       },
       "Delta parameter restrictions were FIXED for all"},
      {"codes that differ over time",
       [](lta_problem& p) {
         p.equal_time = true;
         p.big_rho_restrictions.assign(2 * 2 * 2 * 3, 1);
         p.big_rho_restrictions[0] = p.big_rho_restrictions[1] = 2;
       },
       "Big_Rho must be equal across time."},
      {"a lone equality number",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.tau_restrictions[0] = 2;
       },
       "Equality number must appear at least twice."}};
  for (const refusal& r : refusals) {
    SCOPED_TRACE(r.why);
    lta_problem p = base;
    r.change(p);
    EXPECT_EQ(p.run(), -1);
    EXPECT_NE(p.message.find(r.message), std::string::npos) << p.message;
    EXPECT_EQ(p.iterations, -1);
  }
}

TEST(LtaFit, KeepsTheStartingValuesOfWhatNobodyAnswered) {
  lta_problem fit = simulate_lta(200, {2, 3, 2}, 3, 2, 8);
  fit.run();
  for (int k = 1; k <= fit.nkase; ++k) fit.response(k, 2, 3) = 0;
  fit.random = false;
  const std::vector<double> before = fit.big_rho;
  fit.run();
  verify_lta(fit);
  for (int s = 1; s <= 2; ++s)
    for (int r = 1; r <= 3; ++r)
      EXPECT_NEAR(fit.big_rho[fit.rho_cell(2, s, r, 3, 1)], before[fit.rho_cell(2, s, r, 3, 1)],
                  1e-15);
}

TEST(LtaFit, CodesOfCategoriesThatAnItemLacksMeanNothing) {
  lta_problem fit = simulate_lta(200, {2, 3, 2}, 2, 2, 9);
  fit.equal_time = true;
  lta_problem plain = fit;
  plain.run();
  fit.big_rho_restrictions.assign(3 * 2 * 3 * 2, 1);
  for (int s = 1; s <= 2; ++s) {
    fit.big_rho_restrictions[fit.rho_cell(1, s, 3, 1, 1)] = 0;
    fit.big_rho_restrictions[fit.rho_cell(3, s, 3, 2, 1)] = 7;
  }
  fit.run();
  verify_lta(fit);
  EXPECT_EQ(fit.loglik, plain.loglik);
}

}  // namespace
}  // namespace tolvenra::test
