// Whole latent class fits through the driver, each checked by the naive oracle.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "support/lca_problem.hpp"

namespace tolvenra::test {
namespace {

TEST(LcaFit, ReachesThePublishedMaxima) {
  const struct {
    const char* file;
    int nc;
    double loglik;
    int parameters;
    double g2;
    int df;
  } cases[] = {{"stouffer_toby.csv", 1, -543.64982478, 4, 81.084231, 11},
               {"stouffer_toby.csv", 2, -504.46767012, 9, 2.719922, 6},
               {"carcinoma.csv", 2, -317.25683730, 15, 62.365429, 112},
               {"carcinoma.csv", 3, -293.70497878, 23, 15.261712, 104},
               {"cheating.csv", 2, -440.02711241, 9, 7.764242, 6},
               {"gss82.csv", 3, -2754.54540479, 20, 21.892020, 15}};
  for (const auto& t : cases)
    for (const auto& [criterion, tolerance] : {std::pair{1e-6, 1e-3}, std::pair{1e-9, 1e-6}}) {
      SCOPED_TRACE(std::string(t.file) + ", criterion " + std::to_string(criterion));
      lca_problem fit = example(t.file, t.nc);
      fit.nstarts = 20;
      fit.criterion = criterion;
      fit.max_iter = 50000;
      fit.run();
      verify_fit(fit);
      EXPECT_EQ(fit.converged, 255);
      EXPECT_NEAR(fit.loglik, t.loglik, tolerance);
      EXPECT_NEAR(fit.G2, t.g2, 2 * tolerance + 1e-6);  // the figures have six decimals
      EXPECT_EQ(fit.n_params[0], t.parameters);
      EXPECT_EQ(fit.apparent_df, t.df);
    }
}

TEST(LcaFit, AgreesWithTheOracleOnAllShapes) {
  const struct {
    const char* why;
    int n, nc;
    std::vector<std::int32_t> nrc;
    double missing;
    int nstr;
    bool weighted, equal;
  } cases[] = {
      {"one class", 300, 1, {2, 3, 2}, 0.0, 1, false, false},
      {"ragged categories", 400, 3, {2, 3, 5, 2, 4}, 0.0, 1, false, false},
      {"missing responses", 500, 2, {2, 3, 2, 4, 2}, 0.2, 1, false, false},
      {"groups", 600, 2, {2, 2, 3, 2}, 0.0, 3, false, false},
      {"groups, equal rho, missing", 600, 2, {2, 2, 3, 2}, 0.1, 3, false, true},
      {"frequencies and weights", 500, 3, {2, 2, 3, 2, 2}, 0.05, 2, true, false},
      {"eight classes", 900, 8, {3, 3, 3, 3, 2}, 0.0, 1, false, false},
      {"nine classes", 900, 9, {3, 3, 3, 3, 2}, 0.0, 1, true, false},
      {"nineteen classes", 1500, 19, {3, 3, 3, 3, 3, 4}, 0.05, 2, false, false},
      {"forty groups", 1200, 2, {2, 2, 3, 2}, 0.05, 40, false, false},
      {"forty groups, equal rho", 1200, 2, {2, 2, 3, 2}, 0.05, 40, true, true},
      {"ninety-nine classes", 1500, 99, {4, 4, 4, 4}, 0.0, 1, false, false},
      {"an item of one category", 300, 2, {2, 1, 3, 2}, 0.1, 1, false, false},
      {"codes beyond eight bits", 4000, 2, {300, 2, 2, 2}, 0.0, 1, false, false},
  };
  unsigned seed = 100;
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = simulate(t.n, t.nrc, t.nc, ++seed, t.missing, t.nstr);
    if (t.weighted)
      for (int k = 1; k <= t.n; ++k) {
        fit.freq.push_back(1 + k % 4);
        fit.weight.push_back(0.25 + 0.5 * (k % 3));
      }
    fit.rho_equal_strata = t.equal;
    fit.nstarts = 3;
    fit.max_iter = 300;
    fit.run();
    verify_fit(fit);
    int rho = 0;
    for (const int categories : t.nrc) rho += categories - 1;
    EXPECT_EQ(fit.n_params[0], t.nstr * (t.nc - 1) + rho * t.nc * (t.equal ? 1 : t.nstr));
  }
}

TEST(LcaFit, FrequenciesEqualTheExpandedData) {
  lca_problem table = example("gss82.csv", 3);
  lca_problem cases = table;
  cases.nkase = static_cast<int>(std::accumulate(table.freq.begin(), table.freq.end(), 0.0));
  cases.freq.clear();
  cases.y.assign(static_cast<std::size_t>(cases.nkase * cases.nci), 0);
  int to = 0;
  for (int k = table.nkase; k >= 1; --k)  // another order of the cases, too
    for (int copy = 0; copy < table.freq[static_cast<std::size_t>(k - 1)]; ++copy) {
      ++to;
      for (int j = 1; j <= table.nci; ++j) cases.set_response(to, j, table.response(k, j));
    }
  for (lca_problem* fit : {&table, &cases}) {
    fit->nstarts = 5;
    fit->criterion = 1e-9;
    fit->run();
    verify_fit(*fit);
  }
  EXPECT_NEAR(table.loglik, cases.loglik, 1e-8);
  EXPECT_NEAR(table.bic, cases.bic, 1e-8);
  EXPECT_NEAR(table.fit_extra[0], cases.fit_extra[0], 1e-8);
  EXPECT_NEAR(table.fit_extra[3], cases.fit_extra[3], 1e-8);
  for (std::size_t q = 0; q < table.rho.size(); ++q) EXPECT_NEAR(table.rho[q], cases.rho[q], 1e-8);
}

TEST(LcaFit, GivesTheSameBitsAtEveryThreadCount) {
  // The first runs its starts side by side, the second divides its rows (4 MB and more).
  for (const int n : {600, 20000}) {
    SCOPED_TRACE(n);
    const std::vector<std::int32_t> nrc(n == 600 ? 6 : 12, 3);
    lca_problem one = simulate(n, nrc, 3, 5, 0.02);
    one.nstarts = n == 600 ? 8 : 2;
    one.max_iter = 40;
    lca_problem two = one;
    lca_problem four = one;
    two.threads = 2;
    four.threads = 4;
    for (lca_problem* fit : {&one, &two, &four}) ASSERT_EQ(fit->run(), 0) << fit->message;
    for (const lca_problem* fit : {&two, &four}) {
      EXPECT_EQ(one.rho, fit->rho);
      EXPECT_EQ(one.gamma, fit->gamma);
      EXPECT_EQ(one.post_cls, fit->post_cls);
      EXPECT_EQ(one.llvec, fit->llvec);
      EXPECT_EQ(one.start_loglik, fit->start_loglik);
      EXPECT_EQ(one.run_info[1], fit->run_info[1]);
    }
  }
}

TEST(LcaFit, CasesWithoutAnyResponseChangeNothing) {
  lca_problem some = simulate(400, {2, 2, 3, 2}, 2, 9, 0.1);
  lca_problem more = some;
  more.nkase += 100;
  more.y.assign(static_cast<std::size_t>(more.nkase * more.nci), 0);
  for (int k = 1; k <= some.nkase; ++k)
    for (int j = 1; j <= some.nci; ++j) more.set_response(k, j, some.response(k, j));
  for (lca_problem* fit : {&some, &more}) {
    fit->criterion = 1e-10;
    fit->seed = 3;
    fit->max_iter = 200000;
    fit->run();
    verify_fit(*fit);
  }
  EXPECT_NEAR(some.loglik, more.loglik, 1e-6);  // spreading by the old rho slows EM down
  for (std::size_t q = 0; q < some.rho.size(); ++q) EXPECT_NEAR(some.rho[q], more.rho[q], 1e-6);
}

TEST(LcaFit, AnItemThatNobodyAnsweredKeepsItsStart) {
  lca_problem fit = simulate(200, {2, 3, 2}, 2, 4);
  for (int k = 1; k <= fit.nkase; ++k) fit.set_response(k, 2, 0);
  fit.start_given = true;
  fit.gamma = {0.6, 0.4};
  fit.rho.assign(3 * 2 * 3, 0.0);
  const double item2[2][3] = {{0.2, 0.5, 0.3}, {0.7, 0.1, 0.2}};
  for (int c = 1; c <= 2; ++c) {
    for (const int j : {1, 3}) {
      fit.rho_ref(j, c, 1, 1) = c == 1 ? 0.3 : 0.6;
      fit.rho_ref(j, c, 2, 1) = c == 1 ? 0.7 : 0.4;
    }
    for (int r = 1; r <= 3; ++r) fit.rho_ref(2, c, r, 1) = item2[c - 1][r - 1];
  }
  fit.max_iter = 50;
  fit.run();
  verify_fit(fit);
  for (int c = 1; c <= 2; ++c)
    for (int r = 1; r <= 3; ++r) EXPECT_NEAR(fit.rho_at(2, c, r, 1), item2[c - 1][r - 1], 1e-14);
}

TEST(LcaFit, TheHistoryStartsAtTheStartingValues) {
  lca_problem fit = simulate(200, {2, 2, 3}, 2, 6);
  fit.start_given = true;
  fit.nstarts = 3;
  fit.gamma = {0.25, 0.75};
  fit.rho.assign(3 * 2 * 3, 0.0);
  for (int j = 1; j <= 3; ++j)
    for (int c = 1; c <= 2; ++c)
      for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r)
        fit.rho_ref(j, c, r, 1) = j < 3 ? (r == c ? 0.7 : 0.3) : (r == c ? 0.5 : 0.25);
  const double at_start = fit.naive_loglik();
  fit.max_iter = 1;
  fit.run();
  verify_fit(fit);
  EXPECT_EQ(fit.iterations, 1);
  EXPECT_EQ(fit.converged, 0);
  EXPECT_NEAR(fit.llvec[0], at_start, 1e-10 * std::abs(at_start));
  EXPECT_EQ(fit.start_loglik, std::vector<double>(3, fit.loglik));  // one fit for all slots
}

TEST(LcaFit, FortyItemsOverflowTheCellsAndKeepTheirPatterns) {
  lca_problem fit = simulate(500, std::vector<std::int32_t>(40, 2), 2, 8);
  fit.run();
  verify_fit(fit);  // counts the patterns by a map
  EXPECT_EQ(fit.overflow, 1);
  EXPECT_EQ(fit.apparent_df, 2147483647);
}

TEST(LcaFit, EveryStartIsReportedAndTheFirstBestIsChosen) {
  lca_problem fit = example("carcinoma.csv", 3);
  fit.nstarts = 30;
  fit.max_iter = 60;
  fit.threads = 2;
  fit.run();
  verify_fit(fit);
  const auto best = std::max_element(fit.start_loglik.begin(), fit.start_loglik.end());
  EXPECT_EQ(fit.loglik, *best);
  EXPECT_EQ(fit.run_info[1], best - fit.start_loglik.begin() + 1);
  EXPECT_EQ(fit.run_info[2], 30);
  EXPECT_EQ(fit.run_info[3], std::count_if(fit.start_loglik.begin(), fit.start_loglik.end(),
                                           [&](double l) { return l >= *best - 0.001 - 3e-7; }));
  // A single start with a seed of the list repeats that start.
  lca_problem again = fit;
  again.nstarts = 1;
  again.seed = fit.start_seeds[6];
  again.run();
  EXPECT_EQ(again.loglik, fit.start_loglik[6]);
  // Given values are fitted once, however many starts they stand for.
  again.start_given = true;
  again.nstarts = 3;
  again.run();
  EXPECT_EQ(again.start_loglik[2], again.loglik);
  EXPECT_EQ(again.run_info[2], 3);
  EXPECT_EQ(again.run_info[3], 1);
  EXPECT_EQ(again.n_clusters, -1);
  EXPECT_TRUE(std::isnan(again.cluster_min) && std::isnan(again.cluster_max));
}

TEST(LcaFit, FrequenciesAtTheEdgeOfTheRangeLeaveTheCriteriaFinite) {
  lca_problem fit = simulate(200, {2, 2, 2, 2}, 2, 3);
  for (int k = 1; k <= fit.nkase; ++k)
    fit.freq.push_back(fit.response(k, 1) == 1 && fit.response(k, 2) == 1 ? 5e-324 : 1.0);
  EXPECT_EQ(fit.run(), 0) << fit.message;
  for (const double value : {fit.G2, fit.aic, fit.bic, fit.cat_loglik, fit.fit_extra[0]})
    EXPECT_TRUE(std::isfinite(value)) << value;
}

TEST(LcaFit, DrawnClassesFollowThePosteriors) {
  lca_problem fit = simulate(20000, {2, 2, 2}, 2, 12);
  fit.want_draws = true;
  fit.max_iter = 50;
  fit.run();
  verify_fit(fit);
  double expected = 0.0;
  double variance = 0.0;
  for (int k = 0; k < fit.nkase; ++k) {
    const double p = fit.post_cls[static_cast<std::size_t>(k)];
    expected += p;
    variance += p * (1 - p);
  }
  const auto drawn = std::count(fit.drawn.begin(), fit.drawn.end(), 1);
  EXPECT_NEAR(static_cast<double>(drawn), expected, 4 * std::sqrt(variance));
}

}  // namespace
}  // namespace tolvenra::test
