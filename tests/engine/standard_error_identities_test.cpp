// Standard errors under changes of the data that must leave them, and at the boundary.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "support/naive_sandwich.hpp"
#include "support/separated_classes.hpp"

namespace tolvenra::test {
namespace {

void expect_same_errors(const lca_problem& a, const lca_problem& b, double tolerance) {
  expect_same(a.std_gamma, b.std_gamma, tolerance);
  expect_same(a.std_rho, b.std_rho, tolerance);
  expect_same(a.std_beta, b.std_beta, tolerance);
  expect_same(a.cov_b, b.cov_b, tolerance);
}

/// The rows of `from` in the given order; weights, clusters and frequencies are left out.
lca_problem pick(const lca_problem& from, const std::vector<int>& rows) {
  lca_problem to = from;
  to.nkase = static_cast<int>(rows.size());
  to.y.assign(rows.size() * static_cast<std::size_t>(from.nci), 0);
  to.cov.assign(rows.size() * static_cast<std::size_t>(from.ncov), 0.0);
  to.freq.clear();
  to.weight.clear();
  to.clusters.clear();
  to.strata.clear();
  for (int k = 1; k <= to.nkase; ++k) {
    const int row = rows[static_cast<std::size_t>(k - 1)];
    for (int j = 1; j <= from.nci; ++j) to.set_response(k, j, from.response(row, j));
    for (int q = 1; q <= from.ncov; ++q)
      to.cov[static_cast<std::size_t>(k - 1 + (q - 1) * to.nkase)] = from.cov_at(row, q);
    if (from.nstr > 1) to.strata.push_back(from.stratum(row));
  }
  return to;
}

TEST(StandardErrorIdentities, FrequenciesAreExpandedData) {
  lca_problem table = separated(300, {2, 3, 2, 2, 3}, 2, 21, 1, 2, 0.05);
  table.rho_equal_strata = true;
  table.criterion = 1e-12;
  add_frequencies(table);
  std::vector<int> rows;
  for (int k = 1; k <= table.nkase; ++k)
    for (int copy = 0; copy < table.freq[static_cast<std::size_t>(k - 1)]; ++copy)
      rows.push_back(k);
  const lca_problem expanded = pick(table, rows);
  const lca_problem a = done(table);
  expect_same_errors(a, done(expanded), 1e-8);

  add_clusters(table, 30);
  lca_problem clustered = expanded;
  for (const int k : rows)
    clustered.clusters.push_back(table.clusters[static_cast<std::size_t>(k - 1)]);
  const lca_problem b = done(table), c = done(clustered);
  expect_same_errors(b, c, 1e-8);
  EXPECT_NEAR(b.deff, c.deff, 1e-8);
}

TEST(StandardErrorIdentities, AFactorOfTheWeightsChangesNothing) {
  lca_problem fit = separated(300, {2, 3, 2, 2, 3}, 2, 22, 1);
  fit.criterion = 1e-12;
  add_weights(fit, 3);
  const lca_problem once = done(fit);
  for (double& w : fit.weight) w *= 1000;
  const lca_problem scaled = done(fit);
  expect_same_errors(scaled, once, 1e-8);
  expect_same(scaled.std_gamma_model, once.std_gamma_model, 1e-8, 1 / std::sqrt(1000.0));
}

TEST(StandardErrorIdentities, ClustersOfOneAndOfTwins) {
  const lca_problem fit = separated(300, {2, 3, 2, 2, 3}, 2, 23, 1);
  const lca_problem single = done(fit);
  lca_problem alone = fit;
  for (int k = 1; k <= fit.nkase; ++k) alone.clusters.push_back(5000 - k);
  alone = done(alone);
  expect_same_errors(alone, single, 1e-12);
  EXPECT_EQ(alone.deff, 1.0);
  EXPECT_EQ(alone.n_clusters, 300);

  std::vector<int> rows;
  for (int k = 1; k <= fit.nkase; ++k) rows.insert(rows.end(), {k, k});
  lca_problem twins = pick(fit, rows);
  for (const int k : rows) twins.clusters.push_back(k);
  twins = done(twins);
  expect_same_errors(twins, single, 1e-7);
  EXPECT_NEAR(twins.deff, 2.0, 0.02);
}

TEST(StandardErrorIdentities, TheSameBitsAtAnyThreadCount) {
  lca_problem fit = separated(3000, {2, 3, 2, 4, 3, 3}, 3, 24, 2, 1, 0.1);
  fit.criterion = 1e-6;
  add_weights(fit, 4);
  add_clusters(fit, 700);
  const lca_problem one = done(fit);
  for (const int threads : {2, 4}) {
    fit.threads = threads;
    const lca_problem other = done(fit);
    EXPECT_EQ(other.std_rho, one.std_rho);
    EXPECT_EQ(other.cov_b, one.cov_b);
    EXPECT_EQ(other.deff, one.deff);
  }
}

TEST(StandardErrorIdentities, EstimatesAtTheBoundaryAreHeld) {
  lca_problem fit = separated(400, {2, 3, 2, 2, 3}, 2, 25);
  for (int k = 1; k <= fit.nkase; ++k) {  // item 1 splits the classes; category 1 of item 2 is rare
    fit.set_response(k, 1, fit.response(k, 3));
    if (fit.response(k, 3) == 1 && fit.response(k, 2) == 1) fit.set_response(k, 2, 2);
  }
  fit.nci = 5;
  fit = done(fit);
  int held = 0;
  for (int c = 1; c <= 2; ++c)
    for (int j = 1; j <= fit.nci; ++j)
      for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r) {
        const auto cell = static_cast<std::size_t>(j - 1 + fit.nci * (c - 1 + 2 * (r - 1)));
        const bool boundary = std::abs(fit.rho[cell] - 0.5) > 0.5 - 1e-6;
        held += boundary ? 1 : 0;
        EXPECT_EQ(fit.std_rho[cell] == 0.0, boundary) << j << ' ' << c << ' ' << r;
        EXPECT_LT(fit.std_rho[cell], 0.2);
      }
  EXPECT_EQ(held, 9);  // four rows of two categories, one of three
  EXPECT_EQ(fit.run_info[9], 5);
  verify_standard_errors(fit, 1e-6);
}

TEST(StandardErrorIdentities, ACoarseCriterionHoldsOnlyTheProbabilitiesNextToTheBoundary) {
  lca_problem fit = separated(400, {2, 3, 2, 2, 3}, 2, 26);
  fit.criterion = 0.05;
  fit = done(fit);
  EXPECT_EQ(fit.run_info[9], 0);
  for (const double error : fit.std_gamma) EXPECT_GT(error, 0.0);
}

TEST(StandardErrorIdentities, CoefficientsOfASingleClassAreItsReference) {
  const lca_problem fit = done(separated(200, {2, 3, 2}, 1, 27, 2));
  EXPECT_EQ(fit.std_beta, std::vector<double>(3, 0.0));
}

}  // namespace
}  // namespace tolvenra::test
