// What a host reads when standard errors, or corrected tests of covariates, cannot be had.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "api/exports.hpp"
#include "support/allocations.hpp"
#include "support/naive_sandwich.hpp"
#include "support/separated_classes.hpp"

namespace tolvenra::test {
namespace {

std::string trimmed(const std::string& message) {
  return message.substr(0, message.find_last_not_of(' ') + 1);
}

/// Expected frequencies of a model with one parameter too many for its 15 degrees of freedom
/// (14, of which 13 can be told apart), started at the truth.
lca_problem four_items_three_classes() {
  lca_problem p = separated(16, {2, 2, 2, 2}, 3, 1);
  p.start_given = true;
  p.gamma = {0.3, 0.3, 0.4};
  p.rho.assign(24, 0.0);
  for (int c = 1; c <= 3; ++c)
    for (int j = 1; j <= 4; ++j) {
      p.rho_ref(j, c, 1, 1) = c == 1 ? 0.9 - 0.02 * j : c == 2 ? 0.1 + 0.03 * j : 0.3 + 0.1 * j;
      p.rho_ref(j, c, 2, 1) = 1 - p.rho_ref(j, c, 1, 1);
    }
  for (int k = 1; k <= 16; ++k) {
    double frequency = 0.0;
    for (int j = 1; j <= 4; ++j) p.set_response(k, j, 1 + ((k - 1) >> (j - 1)) % 2);
    for (int c = 1; c <= 3; ++c) {
      double product = 1000.0 * p.gamma[static_cast<std::size_t>(c - 1)];
      for (int j = 1; j <= 4; ++j) product *= p.rho_at(j, c, p.response(k, j), 1);
      frequency += product;
    }
    p.freq.push_back(frequency);
  }
  return p;
}

TEST(StandardErrorFailure, TheReportLeavesTheEstimates) {
  const std::string cannot = "Standard errors cannot be provided if ";
  const auto three_classes = [](auto& p) { p = separated(300, {3, 3, 3, 3}, 3, 31); };
  const struct {
    const char* why;
    std::function<void(lca_problem&)> spoil;
    std::string message, routine;
  } cases[] = {
      {"more parameters than cells",
       [](auto& p) {
         p = separated(300, {2, 2, 2}, 3, 32);
         p.criterion = 1e-6;
       },
       "Error in inverting information matrix.", ""},
      {"cells to spare, yet not identified", [](auto& p) { p = four_items_three_classes(); },
       "Error in inverting information matrix.", ""},
      {"collinear covariates",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 2, 34, 2);
         p.beta_prior = 1.0;
         p.criterion = 1e-3;
         for (std::size_t k = 0; k < 300; ++k)
           p.cov[k + 300] = 3.0 - 2.0 * p.cov[k] + 1e-4 * std::sin(static_cast<double>(k));
       },
       "Error in inverting information matrix.", ""},
      {"total weight below 2", [](auto& p) { p.weight.assign(300, 0.001); },
       "The sample size is too small to get sandwich standard errors.", ""},
      {"one cluster", [](auto& p) { p.clusters.assign(300, 4); },
       "The sample size is too small to get sandwich standard errors.", "_meas_invar"},
      {"binary form of two classes",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 2, 35, 1);
         p.binary = 2;
       },
       "The BINARY option is not meaningful unless there are >2 classes.", "_binary"},
      {"clusters in groups with responses of their own",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 2, 36, 0, 2);
         add_clusters(p, 20);
       },
       "The current version of this software does not allow clustered data with\r\n"
       "non-measurement-invariant groups.",
       "_meas_invar"},
      {"part of a long row equal", [](auto& p) { code(p, 1, 1, 1) = code(p, 1, 2, 2) = 2; },
       cannot + "a rho in a polychotomous item\r\n"
                "is constrained but another rho in the same item is free.",
       ""},
      {"a long row and a short one",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 2}, 2, 37);
         code(p, 1, 1, 1) = code(p, 1, 1, 2) = 2;
         code(p, 1, 1, 3) = code(p, 4, 1, 1) = 3;
       },
       "Cannot get derivatives or standard errors because the pattern of constraints is\r\n"
       " too complicated.",
       ""},
      {"some gammas equal across groups",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 3, 38, 0, 2);
         p.rho_equal_strata = true;
         p.gamma_restrictions = {5, 1, 1, 5, 1, 1};
       },
       cannot + "one or more gammas\r\n"
                "are set to be in the same equivalence class as gammas in a different group\r\n"
                "but others are not.",
       "_meas_invar"},
      {"a structural zero under covariates",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 3, 39, 1, 2);
         p.rho_equal_strata = true;
         p.gamma_restrictions = {1, 1, 1, 1, 1, 0};
         p.gamma = {0.3, 0.3, 0.4, 0.5, 0.5, 0.0};
       },
       cannot + "there are constraints\r\n"
                "on the gammas but there are covariates are in the model.",
       "_meas_invar"},
      {"a fixed class share with clusters",
       [&](auto& p) {
         three_classes(p);
         p.gamma_restrictions = {0, 1, 1};
         p.gamma = {0.2, 0.4, 0.4};
         add_clusters(p, 20);
       },
       cannot + "some gammas within\r\na group are constrained but others are not.", "_meas_invar"},
      {"one of two rhos equal across groups",
       [](auto& p) {
         p = separated(300, {2, 3, 3, 3}, 2, 40, 0, 2);
         code(p, 1, 1, 1, 1) = code(p, 1, 1, 1, 2) = 2;
         add_clusters(p, 20);
       },
       cannot + "one or more rhos\r\n"
                "are set to be in the same equivalence class as rhos in a different group\r\n"
                "but others in the same stratum, class, and item are not.",
       "_meas_invar"},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = separated(300, {3, 3, 3, 3}, 2, 30);
    t.spoil(fit);
    ASSERT_EQ(fit.run(), 0) << fit.message;
    const std::string last =
        "\r\nOCCURRED IN: run_compute_standard_errors_lca" + t.routine + " in MOD estimation";
    const std::string report = trimmed(fit.message);
    EXPECT_EQ(report.substr(std::max<std::size_t>(report.size(), t.message.size() + last.size()) -
                            t.message.size() - last.size()),
              t.message + last);
    EXPECT_EQ(fit.run_info[0], 1);
    EXPECT_EQ(fit.run_info[7], -1);
    EXPECT_GT(fit.iterations, 0);
    EXPECT_LT(fit.loglik, 0.0);
    for (const auto* cells :
         {&fit.std_gamma, &fit.std_gamma_model, &fit.std_rho, &fit.std_beta, &fit.cov_b})
      for (const double cell : *cells) EXPECT_TRUE(std::isnan(cell));
  }
}

TEST(StandardErrorFailure, NothingIsAskedOfMissingAddresses) {
  lca_problem fit = separated(200, {3, 3, 3}, 2, 41, 1);
  add_clusters(fit, 20);
  const lca_problem whole = done(fit);
  for (int missing = 0; missing < 7; ++missing) {
    lca_problem tried = fit;
    api::lca_call call = tried.prepare();
    double** const cells[] = {&call.std_gamma, &call.std_gamma_model, &call.std_rho,
                              &call.std_beta,  &call.cov_b,           &call.deff};
    if (missing < 6)
      *cells[missing] = nullptr;
    else
      call.run_info = nullptr;
    EXPECT_EQ(api::guarded_run_lca(call), 0);
    if (missing != 2) {
      EXPECT_EQ(tried.std_rho, whole.std_rho);
    }
    if (missing != 3) {
      EXPECT_EQ(tried.std_beta, whole.std_beta);
    }
  }
}

TEST(StandardErrorFailure, TheHostCanLeaveThemOut) {
  tolvenra_progress record{};
  record.size = sizeof record;
  record.notify = [](tolvenra_progress* at) -> std::int32_t { return at->stage == 4 ? 1 : 0; };
  lca_problem fit = separated(200, {3, 3, 3}, 2, 44);
  fit.progress = &record;
  EXPECT_EQ(fit.run(), 0);
  EXPECT_EQ(trimmed(fit.message), "The run was cancelled by the host.\r\nOCCURRED IN: runlca");
  EXPECT_EQ(fit.run_info[7], -1);
  EXPECT_EQ(fit.run_info[11], 1);
  EXPECT_EQ(fit.converged, 255);
  EXPECT_TRUE(std::isnan(fit.std_gamma[0]));
}

TEST(StandardErrorFailure, WhatHasNoFreeParameterHasNoneToEstimate) {
  for (const bool fixed : {true, false}) {
    SCOPED_TRACE(fixed ? "one of two categories fixed" : "items of one category");
    lca_problem fit = simulate(60, std::vector<std::int32_t>(2, fixed ? 2 : 1), 1, 3);
    fit.se_option = 1;
    for (int k = 1; k <= fit.nkase; ++k) fit.clusters.push_back(1 + k % 7);
    if (fixed) {
      fit.rho.assign(4, 0.5);
      fit.rho_restrictions = {0, 0, 1, 1};
    }
    ASSERT_EQ(fit.run(), 0) << fit.message;
    EXPECT_EQ(fit.run_info[7], 1) << fit.message;
    for (const double error : fit.std_rho) EXPECT_EQ(error, 0.0);
    EXPECT_TRUE(std::isnan(fit.deff));
  }
}

TEST(StandardErrorFailure, RunningOutOfMemoryLeavesTheEstimates) {
  if (!heap_is_watched) GTEST_SKIP() << "the sanitizer owns operator new";
  lca_problem fit = separated(120, {2, 3, 2}, 2, 42, 1);
  fit.criterion = 1e-3;
  fit.weight.assign(120, 1.5);
  add_clusters(fit, 12);
  const lca_problem whole = done(fit);
  int failures = 0;
  for (long n = 0;; ++n) {
    lca_problem tried = fit;
    const api::lca_call call = tried.prepare();
    fail_after(n);
    const int status = api::guarded_run_lca(call);
    fail_after(-1);
    if (tried.run_info[7] == 1) break;
    ASSERT_LT(n, 100000);
    if (status != 0) continue;  // before the estimates were complete
    ++failures;
    EXPECT_EQ(tried.run_info[7], -1);
    EXPECT_EQ(tried.rho, whole.rho);
    EXPECT_TRUE(std::isnan(tried.std_rho[0]));
    EXPECT_TRUE(std::isnan(tried.cov_b[0]));
  }
  EXPECT_GT(failures, 50);
}

TEST(StandardErrorTests, CovariateTestsUnderWeightsAreCorrected) {
  lca_problem fit = separated(400, {3, 3, 3, 3}, 3, 43, 2);
  fit.want_tests = true;
  add_clusters(fit, 80);
  add_weights(fit, 10);
  for (double& w : fit.weight) w *= w * w;
  lca_problem reduced = fit;  // without the first covariate
  reduced.ncov = 1;
  reduced.cov.erase(reduced.cov.begin(), reduced.cov.begin() + 400);
  const lca_problem whole = done(fit);
  reduced = done(reduced);
  const double factor = naive_rao_scott(whole, 1);
  EXPECT_GT(factor, 1.1);
  EXPECT_EQ(whole.test_status[0], 0);
  EXPECT_NEAR(whole.test_stat[0], 2 * (whole.loglik - reduced.loglik) / factor, 1e-4);
  EXPECT_NEAR(whole.test_p[0], std::exp(-whole.test_stat[0] / 2), 1e-10);  // 2 df
}

TEST(StandardErrorTests, TheBinaryFormOfTwoClassesIsCorrectedAsTheMultinomialModel) {
  lca_problem multinomial = separated(400, {3, 3, 3, 3}, 2, 45, 2);
  multinomial.se_option = 0;
  multinomial.want_tests = true;
  add_clusters(multinomial, 80);
  lca_problem binary = multinomial;
  binary.binary = 2;
  ASSERT_EQ(multinomial.run(), 0) << multinomial.message;
  ASSERT_EQ(binary.run(), 0) << binary.message;
  EXPECT_EQ(binary.test_status, (std::vector<std::int32_t>{0, 0}));
  expect_same(binary.test_stat, multinomial.test_stat, 1e-6);
}

TEST(StandardErrorTests, WithoutACorrectionTheMessageSaysWhy) {
  lca_problem fit = separated(300, {3, 3, 3, 3}, 2, 46, 1, 2);
  fit.se_option = 0;
  fit.want_tests = true;
  add_clusters(fit, 20);
  ASSERT_EQ(fit.run(), 0) << fit.message;
  EXPECT_EQ(fit.test_status, std::vector<std::int32_t>{1});
  EXPECT_TRUE(std::isnan(fit.test_stat[0]));
  EXPECT_EQ(trimmed(fit.message),
            "The current version of this software does not allow clustered data with\r\n"
            "non-measurement-invariant groups.\r\n"
            "OCCURRED IN: run_compute_standard_errors_lca_meas_invar in MOD estimation");
}

}  // namespace
}  // namespace tolvenra::test
