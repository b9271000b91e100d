// What a host reads when a transition analysis cannot be done, and what it may leave out.
#include <gtest/gtest.h>

#include <cmath>

#include "api/exports.hpp"
#include "support/allocations.hpp"
#include "support/lta_problem.hpp"

namespace tolvenra::test {
namespace {

/// A small run that takes every path: covariates on both sides, tests, posteriors, two starts.
lta_problem full_run() {
  lta_problem p = simulate_lta(150, {2, 3, 2}, 3, 2, 11, 0.1, 0.0, 2);
  p.ncov_delta = 1;
  p.ncov_tau = 1;
  for (int j = 0; j < 3; ++j)
    for (int k = 0; k < p.nkase; ++k) p.cov.push_back((k * (7 + j) % 11) / 5.0 - 1.0);
  p.equal_time = p.equal_strata = true;
  p.prior_strength = 1.0;
  p.nstarts = 2;
  p.want_tests = true;
  p.criterion = 1e-3;
  return p;
}

TEST(LtaFailure, EveryFailedAllocationBecomesAReport) {
  if (!heap_is_watched) GTEST_SKIP() << "the sanitizer owns operator new";
  lta_problem fit = full_run();
  fit.nkase = 40;
  const lta_problem all = fit;
  fit.y.clear();
  fit.cov.clear();
  for (int column = 0; column < 9; ++column)
    fit.y.insert(fit.y.end(), all.y.begin() + 150 * column, all.y.begin() + 150 * column + 40);
  for (int column = 0; column < 3; ++column)
    fit.cov.insert(fit.cov.end(), all.cov.begin() + 150 * column,
                   all.cov.begin() + 150 * column + 40);
  fit.criterion = 0.5;
  fit.nstarts = 1;
  fit.max_iter = 50;
  lta_problem whole = fit;
  ASSERT_EQ(whole.run(), 0) << whole.message;
  int failures = 0;
  long step = 1;  // every allocation of the set-up, then ever fewer of the many in the tests
  for (long n = 0;; n += step) {
    if (n > 500) step = n / 50;
    lta_problem tried = fit;
    tried.loglik = 77.0;
    const api::lta_call call = tried.prepare();
    fail_after(n);
    const int status = api::guarded_run_lta(call);
    fail_after(-1);
    if (status == 0 && tried.test_status == whole.test_status) break;
    ++failures;
    ASSERT_LT(n, 1000000);
    if (status == 0) continue;  // only the refit of a test failed, and the test says so
    EXPECT_EQ(tried.loglik, 77.0) << "after " << n << " allocations";
    EXPECT_EQ(tried.iterations, -1);
  }
  EXPECT_GT(failures, 200);
}

TEST(LtaFailure, AnyResultMayBeLeftOut) {
  lta_problem whole = full_run();
  ASSERT_EQ(whole.run(), 0) << whole.message;
  const auto leave_out = [&](auto field) {
    lta_problem p = full_run();
    api::lta_call call = p.prepare();
    call.*field = nullptr;
    EXPECT_EQ(api::guarded_run_lta(call), 0);
    EXPECT_TRUE(&(call.*field) == nullptr || p.loglik == whole.loglik || p.loglik == 0.0);
    return p;
  };
  using call = api::lta_call;
  for (auto field : {&call::delta,
                     &call::tau,
                     &call::big_rho,
                     &call::delta_beta,
                     &call::tau_beta,
                     &call::post_cls_sta,
                     &call::post_cls_adj_sta,
                     &call::pattern_counts,
                     &call::start_loglik,
                     &call::max_abs_diff,
                     &call::mean_abs_diff,
                     &call::loglik,
                     &call::G2,
                     &call::aic,
                     &call::bic,
                     &call::cat_loglik,
                     &call::cat_g2,
                     &call::llvec,
                     &call::madvec,
                     &call::fit_extra,
                     &call::test_stat,
                     &call::test_p})
    EXPECT_EQ(leave_out(field).iterations, whole.iterations);
  for (auto field : {&call::response_patterns, &call::start_seeds, &call::start_iter,
                     &call::start_status, &call::iterations, &call::run_info, &call::overflow_count,
                     &call::apparent_df, &call::n_params, &call::cat_df, &call::test_status})
    leave_out(field);
  for (auto field : {&call::start_converged, &call::converged}) leave_out(field);
  leave_out(&call::message);
  EXPECT_EQ(leave_out(&call::nstarts).start_seeds[0], whole.start_seeds[0]);
}

TEST(LtaFailure, TheHostCanCancelInEveryStage) {
  for (const int stage : {1, 2, 3, 5}) {
    tolvenra_progress record{};
    record.size = sizeof record;
    int wanted = stage;
    record.user = &wanted;
    record.notify = [](tolvenra_progress* r) -> std::int32_t {
      return r->stage == *static_cast<int*>(r->user) ? 1 : 0;
    };
    lta_problem p = full_run();
    p.progress = &record;
    const bool fitted = stage > 2;
    EXPECT_EQ(p.run(), fitted ? 0 : -1);
    EXPECT_EQ(p.message.find("The run was cancelled by the host.\r\nOCCURRED IN: runlta"), 0U)
        << p.message;
    EXPECT_EQ(p.run_info[11], 1);
    EXPECT_EQ(p.iterations > 0, fitted);
    if (!fitted) continue;
    EXPECT_EQ(std::isnan(p.aic), stage == 5);
    EXPECT_TRUE(std::isnan(p.test_stat[0]) && std::isnan(p.test_p[0]));
    EXPECT_EQ(p.test_status[0], -1);
    EXPECT_EQ(record.starts_done, static_cast<int>(p.start_loglik.size()));
    EXPECT_EQ(record.best_loglik, p.loglik);
  }
}

}  // namespace
}  // namespace tolvenra::test
