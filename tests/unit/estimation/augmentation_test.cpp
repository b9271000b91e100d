// Rubin's combination, and the records of data augmentation.
#include "estimation/augmentation.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "numerics/cdf.hpp"

namespace tolvenra::estimation {
namespace {

/// A summary of one row of two elements.
daparam<2> summary(const std::vector<double>& imp, const std::vector<double>& var_imp) {
  daparam<2> param;
  error_type err;
  EXPECT_EQ(allocate_daparam<2>({2, 1}, static_cast<int32>(imp.size()) / 2, param, err), 0);
  param.imp.flat = imp;
  param.var_imp.flat = var_imp;
  return param;
}

TEST(ComputeDaResults, AgreesWithAnExampleByHand) {
  // Estimates 1, 2, 3 with variance 2 each: U = 2, B = 1, T = 2 + 4/3, df = 2 (1 + 2/(4/3))^2 =
  // 12.5; t(12.5, 0.95) = 1.7764 by interpolation in 1/df of the printed 1.78229 and 1.77093.
  daparam<2> param = summary({1, 5, 2, 5, 3, 5}, {2, .25, 2, .25, 2, .25});
  error_type err;
  ASSERT_EQ(compute_da_results(param, err), 0);
  EXPECT_DOUBLE_EQ(param.qbar(1, 1), 2.0);
  EXPECT_DOUBLE_EQ(param.ubar(1, 1), 2.0);
  EXPECT_DOUBLE_EQ(param.bi_var(1, 1), 1.0);
  EXPECT_DOUBLE_EQ(param.var(1, 1), 10.0 / 3);
  EXPECT_DOUBLE_EQ(param.std_err(1, 1), std::sqrt(10.0 / 3));
  EXPECT_DOUBLE_EQ(param.df(1, 1), 12.5);
  EXPECT_NEAR(param.hi_ci(1, 1), 2.0 + 1.7764 * std::sqrt(10.0 / 3), 2e-4);
  EXPECT_NEAR(param.lo_ci(1, 1), 2.0 - 1.7764 * std::sqrt(10.0 / 3), 2e-4);
  // r = (4/3) / 2; (r + 2 / 15.5) / (r + 1)
  EXPECT_NEAR(missing_information(2.0, 1.0, 12.5, 3), (2.0 / 3 + 2 / 15.5) / (5.0 / 3), 1e-15);
  // No variance between: normal quantile 1.644853627.
  EXPECT_EQ(param.bi_var(2, 1), 0.0);
  EXPECT_EQ(param.df(2, 1), 1e10);
  EXPECT_NEAR(param.hi_ci(2, 1), 5.0 + 1.644853627 * 0.5, 1e-8);
  EXPECT_EQ(missing_information(0.25, 0.0, 1e10, 3), 0.0);
}

TEST(ComputeDaResults, OneImputationAndNoVarianceWithinAreNoObstacle) {
  daparam<2> one = summary({0.5, 0.25}, {0.09, 0.09});
  error_type err;
  ASSERT_EQ(compute_da_results(one, err), 0);
  EXPECT_EQ(one.var(1, 1), 0.09);
  EXPECT_EQ(one.df(1, 1), 1e10);
  EXPECT_NEAR(one.lo_ci(2, 1), 0.25 - 1.644853627 * 0.3, 1e-8);
  daparam<2> between = summary({1, 1, 3, 1}, {0, 0, 0, 0});  // nothing but variance between
  ASSERT_EQ(compute_da_results(between, err), 0);
  EXPECT_DOUBLE_EQ(between.df(1, 1), 1.0);
  EXPECT_NEAR(between.hi_ci(1, 1), 2.0 + 6.313751515 * std::sqrt(3.0), 1e-7);
  EXPECT_EQ(missing_information(0.0, 2.0, 1.0, 2), 1.0);
}

TEST(ComputeDaResults, AgreesWithTheFormulasOnRandomInput) {
  std::mt19937_64 engine(5);
  std::uniform_real_distribution<double> uniform(0.01, 1.0);
  for (int trial = 0; trial < 200; ++trial) {
    const auto m = static_cast<std::size_t>(2 + engine() % 30);
    std::vector<double> imp(2 * m), var(2 * m);
    for (double& value : imp) value = uniform(engine);
    for (double& value : var) value = uniform(engine) * uniform(engine);
    daparam<2> param = summary(imp, var);
    error_type err;
    ASSERT_EQ(compute_da_results(param, err), 0);
    const double n = static_cast<double>(m);
    double mean = 0.0, within = 0.0, squares = 0.0;
    for (std::size_t i = 0; i < m; ++i) mean += imp[2 * i + 1] / n;
    for (std::size_t i = 0; i < m; ++i) within += var[2 * i + 1] / n;
    for (std::size_t i = 0; i < m; ++i) squares += std::pow(imp[2 * i + 1] - mean, 2);
    const double between = squares / (n - 1);
    const double total = within + (1 + 1 / n) * between;
    double df = (n - 1) * std::pow(1 + within / ((1 + 1 / n) * between), 2);
    EXPECT_NEAR(param.var(2, 1), total, 1e-13 * total);
    EXPECT_NEAR(param.df(2, 1), df, 1e-11 * df);
    // The interval leaves 5 % above it.
    double p = 0.0, q = 0.0, t = (param.hi_ci(2, 1) - mean) / std::sqrt(total);
    ASSERT_EQ(cdf::cdf_t(1, p, q, t, df, err), 0);
    EXPECT_NEAR(p, 0.95, 1e-9);
    EXPECT_NEAR(param.lo_ci(2, 1) + param.hi_ci(2, 1), 2 * mean, 1e-12);
  }
}

TEST(DaRecords, GettersRefuseBeforeARunAndReleaseEmptiesTheRecord) {
  daresult result;
  daparam<2> stats;
  array<int32, 3> classes;
  array<int32, 5> statuses;
  const std::vector<std::string> refusal{"The property could not be retrieved because",
                                         "results of the data augmentation procedure",
                                         "have not yet been obtained."};
  const auto expect = [](std::vector<std::string> lines, const char* name, error_type& err) {
    lines.push_back(std::string("OCCURRED IN: ") + name + " in MOD estimation");
    EXPECT_EQ(lines_of(err), lines);
    err_reset(err);
  };
  error_type err;
  EXPECT_EQ(get_da_param_stats(result, &daresult::gamma, stats, err), -1);
  expect(refusal, "get_da_param_stats", err);
  EXPECT_EQ(get_class_label_tracking(result, classes, err), -1);
  expect(refusal, "get_class_label_tracking", err);
  EXPECT_EQ(get_status_label_tracking(result, statuses, err), -1);
  expect(refusal, "get_status_label_tracking", err);
  result.obtained = true;
  EXPECT_EQ(get_da_param_stats(result, &daresult::gamma, stats, err), -1);
  expect({"The parameter has not yet been allocated."}, "get_da_param_stats", err);

  result.gamma = summary({1, 2}, {3, 4});
  ASSERT_EQ(get_da_param_stats(result, &daresult::gamma, stats, err), 0);
  EXPECT_EQ(stats.var_imp.flat, (std::vector<double>{3, 4}));
  result.logit_tau.df.allocated = true;  // storage that is not what its extents say
  result.logit_tau.df.n = {1, 1, 1, 1, 1};
  EXPECT_EQ(nullify_daresult(result, err), -1);
  const auto lines = lines_of(err);
  EXPECT_NE(std::find(lines.begin(), lines.end(), "Could not deallocate daresult%logit_tau."),
            lines.end());
  result.logit_tau.df.allocated = false;
  EXPECT_EQ(nullify_daresult(result, err), 0);
  EXPECT_FALSE(result.gamma.imp.allocated || result.obtained);
}

}  // namespace
}  // namespace tolvenra::estimation
