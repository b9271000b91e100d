// What a host reads when an analysis cannot be done.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "api/exports.hpp"
#include "support/allocations.hpp"
#include "support/lca_problem.hpp"

namespace tolvenra::test {
namespace {

std::string trimmed(const std::string& message) {
  return message.substr(0, message.find_last_not_of(' ') + 1);
}

TEST(LcaFailure, SaysWhatIsWrong) {
  const struct {
    const char* why;
    std::function<void(lca_problem&)> spoil;
    std::string message;
  } cases[] = {
      {"too many classes", [](auto& p) { p.nc = 100; },
       "The number of latent classes specified was 100 The allowable range is 0 to 99\r\n"
       "OCCURRED IN: put_nc in MOD model"},
      {"no class", [](auto& p) { p.nc = 0; },
       "The number of latent classes specified was 0\r\nA run needs at least 1.\r\n"
       "OCCURRED IN: runlca"},
      {"response out of range", [](auto& p) { p.set_response(3, 2, 4); },
       "Row 3, column 2 of the response (y) array\r\n is inconsistent with nrc; the value was 4\r\n"
       "OCCURRED IN: put_y in MOD dataset"},
      {"no seed, one start", [](auto& p) { p.seed = 0; },
       "If neither a starting value dataset nor a positive integer seed\r\n"
       "is specified, then the NSTARTS option must be used.\r\nOCCURRED IN: runlca"},
      {"no criterion", [](auto& p) { p.criterion = 0.0; },
       "Convergence criterion must be positive.\r\nOCCURRED IN: run_em_modelfit in MOD "
       "estimation\r\n"
       "The model could not be fitted from any\r\nset of starting values.\r\nOCCURRED IN: runlca"},
      {"groups without their array", [](auto& p) { p.nstr = 2; },
       "The number of strata specified was 2\r\nbut no strata array was given.\r\n"
       "OCCURRED IN: runlca"},
      {"seed of the draws out of range",
       [](auto& p) {
         p.want_draws = true;
         p.seed2 = 2147483400;
       },
       "The seed of the class draws (seed2) specified was 2147483400\r\n"
       "The allowable range is 1 to 2147483399\r\nOCCURRED IN: runlca"},
      {"items without categories, held equal across groups",
       [](auto& p) {
         p.nrc = {0, 0, 0};
         p.nstr = 2;
         p.rho_equal_strata = true;
         p.y.assign(p.y.size(), 0);
         p.strata.assign(static_cast<std::size_t>(p.nkase), 1);
         p.strata[0] = 2;
       },
       "Item 1 has 0 response categories.\r\nEvery item must have at least one.\r\n"
       "OCCURRED IN: runlca"},
      {"group without cases",
       [](auto& p) {
         p.nstr = 2;
         p.strata.assign(static_cast<std::size_t>(p.nkase), 1);
       },
       "There are no cases in stratum (group) 2.\r\nEvery stratum must have at least one case.\r\n"
       "OCCURRED IN: runlca"},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = simulate(50, {2, 3, 2}, 2, 1);
    t.spoil(fit);
    fit.loglik = 77.0;
    EXPECT_EQ(fit.run(), -1);
    EXPECT_EQ(trimmed(fit.message), t.message);
    EXPECT_EQ(fit.iterations, -1);
    EXPECT_EQ(fit.converged, 0);
    EXPECT_EQ(fit.loglik, 77.0);
    EXPECT_EQ(fit.run_info[0], 0);
  }
}

TEST(LcaFailure, AnImpossibleCaseEndsTheRun) {
  lca_problem fit = simulate(50, {2, 2, 2}, 2, 1);
  fit.start_given = true;
  fit.msg_len = 1000;
  fit.nstarts = 3;  // one fit stands for all
  fit.gamma = {0.5, 0.5};
  fit.rho.assign(12, 0.5);
  for (int c = 1; c <= 2; ++c) {
    fit.rho_ref(1, c, 1, 1) = 0.0;
    fit.rho_ref(1, c, 2, 1) = 1.0;
  }
  int first = 1;
  while (fit.response(first, 1) != 1) ++first;
  EXPECT_EQ(fit.run(), -1);
  EXPECT_EQ(
      trimmed(fit.message),
      "Attempted division by zero\r\npost_denom\r\nOCCURRED IN: estep in MOD estimation\r\n"
      "E-step for LTA failed at iteration 1\r\nOCCURRED IN: run_em_modelfit in MOD estimation\r\n"
      "The model could not be fitted from any\r\nset of starting values.\r\n"
      "OCCURRED IN: runlca\r\n"
      "No class can give the responses of case " +
          std::to_string(first) +
          ", stratum (group) 1:\r\n"
          "in class 1 response 1 to item 1 has probability 0.\r\nOCCURRED IN: runlca");
  EXPECT_EQ(fit.start_status, std::vector<std::int32_t>(3, 1));
  EXPECT_EQ(fit.start_iter, std::vector<std::int32_t>(3, -1));
}

TEST(LcaFailure, AClassWithoutCasesEndsTheRun) {
  lca_problem started = simulate(50, {2, 2, 2}, 2, 1);
  started.start_given = true;
  started.gamma = {1.0, 0.0};
  started.rho.assign(12, 0.5);
  lca_problem fixed = simulate(60, {2, 2, 2}, 2, 1, 0.0, 2);
  fixed.gamma = {0.4, 0.6, 1.0, 0.0};
  fixed.gamma_restrictions = {1, 1, 1, 0};
  for (lca_problem* fit : {&started, &fixed}) {
    fit->msg_len = 1000;
    EXPECT_EQ(fit->run(), -1);
    EXPECT_EQ(trimmed(fit->message),
              "Attempted division by zero\r\nrtmp_denom\r\nOCCURRED IN: mstep_rho in MOD "
              "estimation\r\nM-step for RHO failed at iteration 1\r\n"
              "OCCURRED IN: run_em_modelfit in MOD estimation\r\n"
              "The model could not be fitted from any\r\nset of starting values.\r\n"
              "OCCURRED IN: runlca\r\n"
              "The share of class 2 in stratum (group) " +
                  std::to_string(fit->nstr) +
                  " is 0, so no case tells its\r\n"
                  "responses to item 1. Fix its response probabilities, or hold rho\r\n"
                  "equal across strata with one where the class occurs.\r\nOCCURRED IN: runlca");
  }
  fixed.rho_equal_strata = true;
  EXPECT_EQ(fixed.run(), 0) << fixed.message;
}

TEST(LcaFailure, TheHostCanCancelTheFirstStage) {
  tolvenra_progress record{};
  record.size = sizeof record;
  record.cancel = 1;
  lca_problem fit = simulate(60, {2, 2, 2}, 2, 1);
  fit.ncov = 1;
  for (int k = 0; k < fit.nkase; ++k) fit.cov.push_back(k % 7);
  fit.beta_prior = 1.0;
  fit.progress = &record;
  EXPECT_EQ(fit.run(), -1);
  EXPECT_EQ(trimmed(fit.message), "The run was cancelled by the host.\r\nOCCURRED IN: runlca");
}

TEST(LcaFailure, TheHostCanCancel) {
  struct host {
    tolvenra_progress record{};
    int calls = 0;
  } host;
  host.record.size = sizeof(tolvenra_progress);
  host.record.user = &host;
  host.record.notify = [](tolvenra_progress* record) -> std::int32_t {
    auto& self = *static_cast<struct host*>(record->user);
    EXPECT_EQ(record->nstarts, 5);
    EXPECT_GE(record->iteration, 1);
    return ++self.calls >= 4 && record->start >= 2 ? 1 : 0;
  };
  lca_problem fit = simulate(300, {2, 2, 2, 3}, 3, 2);
  fit.nstarts = 5;
  fit.progress = &host.record;
  EXPECT_EQ(fit.run(), -1);
  EXPECT_EQ(trimmed(fit.message), "The run was cancelled by the host.\r\nOCCURRED IN: runlca");
  EXPECT_EQ(fit.run_info[11], 1);
  EXPECT_EQ(fit.start_status[0], 0);  // finished before the host cancelled
  EXPECT_EQ(fit.start_status[4], 7);  // untouched
  EXPECT_EQ(fit.iterations, -1);
}

TEST(LcaFailure, EveryFailedAllocationBecomesAReport) {
  if (!heap_is_watched) GTEST_SKIP() << "the sanitizer owns operator new";
  lca_problem fit = simulate(120, {2, 3, 2}, 2, 1);
  fit.nstarts = 2;
  fit.max_iter = 3;
  fit.want_draws = true;
  for (int k = 1; k <= fit.nkase; ++k) {
    fit.freq.push_back(1.0);
    fit.clusters.push_back(1 + k % 5);
  }
  lca_problem whole = fit;
  ASSERT_EQ(whole.run(), 0) << whole.message;
  int failures = 0, without_draws = 0;
  for (long n = 0;; ++n) {
    lca_problem tried = fit;
    tried.loglik = 77.0;
    const api::lca_call call = tried.prepare();
    fail_after(n);
    const int status = api::guarded_run_lca(call);
    fail_after(-1);
    if (status == 0 && tried.drawn == whole.drawn) break;
    ++failures;
    if (status == 0) {  // the draws come last and take nothing else with them
      ++without_draws;
      EXPECT_EQ(tried.drawn, std::vector<std::int32_t>(tried.drawn.size(), -1));
      EXPECT_EQ(tried.loglik, whole.loglik);
      continue;
    }
    EXPECT_EQ(status, -1);
    EXPECT_EQ(tried.loglik, 77.0) << "after " << n << " allocations";
    EXPECT_EQ(tried.iterations, -1);
    ASSERT_LT(n, 100000);
  }
  EXPECT_GT(failures, 50);
  EXPECT_GT(without_draws, 0);
}

}  // namespace
}  // namespace tolvenra::test
