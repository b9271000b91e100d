// Refusals that no analysis can provoke through the library: each driver under its own name.
#include "estimation/standard_errors.hpp"

#include <gtest/gtest.h>

#include <functional>

#include "estimation/derivatives.hpp"
#include "estimation/jacobians.hpp"
#include "support/allocations.hpp"

namespace tolvenra::estimation {
namespace {

using lines = std::vector<std::string>;

const lines not_obtained{"The property could not be set because",
                         "results of maximum likelihood estimation", "have not yet been obtained."};

struct named_driver {
  standard_error_driver* run;
  std::string name;
};
const named_driver general{run_compute_standard_errors_lca, ""};
const named_driver invariant{run_compute_standard_errors_lca_meas_invar, "_meas_invar"};
const named_driver binary{run_compute_standard_errors_lca_binary, "_binary"};
const named_driver binary_invariant{run_compute_standard_errors_lca_binary_meas_invar,
                                    "_binary_meas_invar"};

/// A workspace that looks like a fitted one of three classes to the checks.
mlworkspace looks_fitted() {
  mlworkspace work;
  work.initialised = true;
  work.latent.nc = 3;
  work.gamma.code.allocate({3, 1}, 1);
  return work;
}

/// The same with two groups whose responses are their own.
mlworkspace two_free_groups() {
  mlworkspace work = looks_fitted();
  work.data.nstr = 2;
  work.data.nci = 1;
  work.data.nrc = vector_of({2});
  work.gamma.code.allocate({3, 2}, 1);
  work.rho.code.allocate({1, 3, 2, 2}, 1);
  return work;
}

TEST(StandardErrorDrivers, RefuseUnderTheirOwnNames) {
  const auto with_binary = [](mlworkspace& work) {
    work.beta.active = true;
    work.given.param.gamma_binary_regression = true;
  };
  const struct {
    const char* why;
    const named_driver& driver;
    std::function<void(mlworkspace&)> make;
    std::string line;
  } cases[] = {
      {"statuses", general, [](auto& w) { w.latent.ns = 2; },
       "Not able to get standard errors yet for LTA."},
      {"statuses", invariant, [](auto& w) { w.data.ni = 1; },
       "Not able to get standard errors yet for LTA."},
      {"statuses", binary, [](auto& w) { w.latent.ns = 2; },
       "Not able to get standard errors yet for LTA."},
      {"statuses", binary_invariant, [](auto& w) { w.data.ni = 1; },
       "Not able to get standard errors yet for LTA."},
      {"binary form", general, with_binary,
       "Not able to get std. errs. for the binary regression case yet"},
      {"binary form", invariant, with_binary,
       "Not able to get std. errs. for the binary regression case yet"},
      {"two classes", binary_invariant, [](auto& w) { w.latent.nc = 2; },
       "The BINARY option is not meaningful unless there are >2 classes."},
      {"not binary", binary, [](auto&) {}, "Not able to get std. errs. for this situation yet"},
      {"groups of their own", invariant, [](auto& w) { w = two_free_groups(); },
       "Not able to get std. errs. for this situation yet"},
      {"clusters", general, [](auto& w) { w.data.clustered = true; },
       "Not able to get std. errs. for this situation yet"},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why + t.driver.name);
    mlworkspace work = looks_fitted();
    t.make(work);
    mlresult_type result;
    result.filled = true;
    error_type err;
    EXPECT_EQ(t.driver.run(work, result, err), -1);
    const std::string here =
        "OCCURRED IN: run_compute_standard_errors_lca" + t.driver.name + " in MOD estimation";
    EXPECT_EQ(lines_of(err), (lines{t.line, here}));
  }
}

TEST(StandardErrorDrivers, ReportAnyAllocationThatFails) {
  if (!test::heap_is_watched) GTEST_SKIP() << "the sanitizer owns operator new";
  const mlworkspace work = two_free_groups();
  mlresult_type result;
  result.filled = true;
  int32 failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 1000);
    error_type err;
    int32 status = 0;
    test::fail_once_after(failures);
    EXPECT_NO_THROW(status = invariant.run(work, result, err));
    test::fail_after(-1);
    EXPECT_EQ(status, -1);
    const lines all = lines_of(err);
    if (all.size() == 2) break;  // the refusal that it ends with
    ASSERT_GE(all.size(), 3U);
    EXPECT_EQ(all[all.size() - 2], "run_compute_standard_errors_lca_meas_invar: cov_of_beta");
  }
  EXPECT_GT(failures, 5);
}

/// The ratio of the covariances, 1.5, is a matter neither of the unit of the covariate nor of the
/// classes that are held.
TEST(RaoScott, TheFactorDoesNotDependOnUnits) {
  for (const double unit : {1.0, 1e-9, 1e9})
    for (const int32 tested : {1, 2}) {  // slopes, each behind its intercept; one more is held
      mlworkspace work;
      work.data.ncov = 1;
      mlresult_type result;
      result.cov_b_model.allocate({2 * tested + 2, 2 * tested + 2});
      for (int32 i = 1; i <= 2 * tested; ++i)
        for (int32 j = 1; j <= 2 * tested; ++j)
          result.cov_b_model(i, j) =
              (i == j ? 0.4 : 0.1) * (i % 2 == 0 ? unit : 1.0) * (j % 2 == 0 ? unit : 1.0);
      result.cov_b_held = result.cov_b_model;
      for (double& value : result.cov_b_held.flat) value *= 1.5;
      EXPECT_NEAR(rao_scott_factor(work, result, 1), 1.5, 1e-12) << unit << ' ' << tested;
    }
}

TEST(StandardErrorDrivers, NeedAFit) {
  mlresult_type result;
  error_type err;
  EXPECT_EQ(run_compute_standard_errors_lca({}, result, err), -1);
  lines expected = not_obtained;
  expected.push_back("OCCURRED IN: run_compute_standard_errors_lca in MOD estimation");
  EXPECT_EQ(lines_of(err), expected);
}

TEST(StandardErrorParts, RefuseSizesAndClassesOutOfRange) {
  constexpr routine here{"driver", "estimation"};
  mlworkspace work = looks_fitted();
  work.rho.now.allocate({2, 3, 2, 1}, 0.5);
  work.data.nrc = vector_of({2, 2});
  free_parameters map;
  map.nc = 3;
  map.nstr = map.copies = 1;
  map.membership = 2;
  const auto report = [&](auto&& call) {
    error_type err;
    EXPECT_EQ(call(err), -1);
    const lines all = lines_of(err);
    EXPECT_EQ(all.back(), "OCCURRED IN: driver in MOD estimation");
    return lines(all.begin(), all.end() - 1);
  };
  const auto jacobian = [](int32 rows, int32 columns) {
    array<double, 2> a;
    a.allocate({rows, columns});
    return a;
  };
  const std::string too =
      "Cannot get derivatives or standard errors because the reference class is too";
  const auto reference = [&](int32 compared) {
    work.given.param.binary_gamma = compared;
    return report([&](error_type& err) {
      derivatives derivs;
      return run_compute_neg_second_for_lca_binary(work, map, derivs, here, err);
    });
  };
  EXPECT_EQ(reference(0), (lines{too, " small."}));
  EXPECT_EQ(reference(4), (lines{too, " big."}));
  const auto of = [&](auto routine_of, array<double, 2> a) {
    return report(
        [&](error_type& err) { return routine_of(work, map, scaled_design{}, a, here, err); });
  };
  EXPECT_EQ(of(run_compute_lca_beta_jacobian, jacobian(3, 3)),
            (lines{"Error calculating the Jacobian matrix for the gamma parameters"}));
  EXPECT_EQ(of(run_compute_lca_b_jacobian_binary, jacobian(2, 2)),
            (lines{"Wrong number of rows in Jacobian matrix"}));
  EXPECT_EQ(of(run_compute_lca_b_jacobian_binary, jacobian(3, 3)),
            (lines{"Wrong number of columns in Jacobian matrix"}));
  EXPECT_EQ(report([&](error_type& err) {
              array<double, 2> a = jacobian(12, 2);
              return run_compute_lca_phi_jacobian(work, map, a, here, err);
            }),
            (lines{"The Jacobian matrix is the wrong size"}));
}

TEST(StandardErrorGetters, SayWhatIsMissing) {
  mlresult_type result;
  array<double, 2> matrix;
  array<double, 3> beta;
  array<double, 4> rho;
  const struct {
    std::string name, getter;
    std::function<int32(error_type&)> get;
  } cases[] = {
      {"std_gamma", "get_std_errs_for_gamma",
       [&](error_type& err) { return get_std_errs_for_gamma(result, matrix, err); }},
      {"std_rho", "get_std_errs_for_rho",
       [&](error_type& err) { return get_std_errs_for_rho(result, rho, err); }},
      {"std_beta", "get_std_errs_for_beta",
       [&](error_type& err) { return get_std_errs_for_beta(result, beta, err); }},
      {"cov_b", "get_cov_b", [&](error_type& err) { return get_cov_b(result, matrix, err); }},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.name);
    const std::string here = "OCCURRED IN: " + t.getter + " in MOD estimation";
    lines expected = not_obtained;
    expected.push_back(here);
    error_type before, after;
    result.filled = false;
    EXPECT_EQ(t.get(before), -1);
    EXPECT_EQ(lines_of(before), expected);
    result.filled = true;
    EXPECT_EQ(t.get(after), -1);
    EXPECT_EQ(lines_of(after), (lines{"The " + t.name + " array has not been associated",
                                      "in the mlresult type provided.", here}));
  }
}

}  // namespace
}  // namespace tolvenra::estimation
