// The saturated model of incomplete responses and the statistics that rest on it; `verify_fit`
// checks each of them from the cases.
#include "estimation/saturated.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include "api/exports.hpp"
#include "estimation/mlresult.hpp"
#include "support/lca_problem.hpp"
#include "support/mcar_data.hpp"
#include "support/verify_saturated.hpp"

namespace tolvenra::test {
namespace {

using estimation::md_catmod;
using estimation::md_preliminaries;
using counts_by_pattern = std::map<std::vector<int>, double>;

std::string trimmed(const std::string& message) {
  return message.substr(0, message.find_last_not_of(' ') + 1);
}

counts_by_pattern count_patterns(const lca_problem& problem) {
  counts_by_pattern counts;
  for (int k = 1; k <= problem.nkase; ++k) {
    std::vector<int> responses;
    for (int j = 1; j <= problem.nci; ++j) responses.push_back(problem.response(k, j));
    counts[responses] += problem.case_weight(k);
  }
  return counts;
}

/// The data alone, loaded as a run loads them.
mlworkspace load(const lca_problem& problem) {
  array<int32, 2> y;
  array<int32, 1> nrc;
  y.allocate({problem.nkase, problem.nci});
  nrc.allocate({problem.nci});
  y.flat.assign(problem.y.begin(), problem.y.end());
  nrc.flat.assign(problem.nrc.begin(), problem.nrc.end());
  dataset_type data;
  mlworkspace work;
  error_type err;
  EXPECT_EQ(dataset::put_nt(1, data, err), 0);
  EXPECT_EQ(dataset::put_nrc(nrc, data, err), 0);
  EXPECT_EQ(dataset::put_nstr(1, data, err), 0);
  EXPECT_EQ(dataset::put_y(y, data, err), 0);
  EXPECT_EQ(estimation::put_dataset(data, work, err), 0);
  return work;
}

struct direct_fit {
  mdinfo_type mdinfo;
  int32 iterations = 0;
};

direct_fit fit_directly(const lca_problem& problem, double criterion) {
  const mlworkspace work = load(problem);
  direct_fit fit;
  error_type err;
  EXPECT_EQ(md_preliminaries(work, fit.mdinfo, err), 0);
  EXPECT_EQ(md_catmod(work, fit.mdinfo, criterion, fit.iterations, err), 0);
  return fit;
}

/// Maximum of the log-likelihood by Newton steps on the logits of the cells, line search included.
double maximise_directly(const lca_problem& problem) {
  const auto counts = count_patterns(problem);
  std::size_t cells = 1;
  for (const int levels : problem.nrc) cells *= static_cast<std::size_t>(levels);
  const auto agrees = [&](const std::vector<int>& responses, std::size_t cell) {
    for (std::size_t j = 0; j < responses.size(); ++j) {
      const auto levels = static_cast<std::size_t>(problem.nrc[j]);
      if (responses[j] > 0 && static_cast<std::size_t>(responses[j] - 1) != cell % levels)
        return false;
      cell /= levels;
    }
    return true;
  };
  const auto evaluate = [&](const std::vector<double>& eta, std::vector<double>* slope,
                            std::vector<double>* curvature) {
    std::vector<double> theta;
    for (const double value : eta) theta.push_back(std::exp(value));
    const double scale = std::accumulate(theta.begin(), theta.end(), 0.0);
    for (double& value : theta) value /= scale;
    double loglik = 0.0;
    if (slope) slope->assign(cells, 0.0);
    if (curvature) curvature->assign(cells * cells, 0.0);
    for (const auto& [responses, n] : counts) {
      std::vector<double> share(cells, 0.0);
      double probability = 0.0;
      for (std::size_t c = 0; c < cells; ++c)
        if (agrees(responses, c)) probability += share[c] = theta[c];
      loglik += n * std::log(probability);
      if (!slope) continue;
      for (std::size_t c = 0; c < cells; ++c) share[c] /= probability;
      for (std::size_t c = 0; c < cells; ++c) {
        (*slope)[c] += n * (share[c] - theta[c]);
        for (std::size_t d = 0; d < cells; ++d)  // minus the Hessian
          (*curvature)[c * cells + d] += n * ((c == d ? theta[c] - share[c] : 0.0) -
                                              theta[c] * theta[d] + share[c] * share[d]);
      }
    }
    return loglik;
  };
  std::vector<double> eta(cells, 0.0), slope, curvature;
  double best = evaluate(eta, &slope, &curvature);
  double ridge = 1.0;
  for (int step = 0; step < 2000 && ridge < 1e12; ++step) {
    std::vector<double> a = curvature, x = slope;  // solved by elimination
    for (std::size_t c = 0; c < cells; ++c) a[c * cells + c] += ridge;
    for (std::size_t c = 0; c < cells; ++c)
      for (std::size_t d = c + 1; d < cells; ++d) {
        const double f = a[d * cells + c] / a[c * cells + c];
        for (std::size_t e = c; e < cells; ++e) a[d * cells + e] -= f * a[c * cells + e];
        x[d] -= f * x[c];
      }
    for (std::size_t c = cells; c-- > 0;) {
      for (std::size_t d = c + 1; d < cells; ++d) x[c] -= a[c * cells + d] * x[d];
      x[c] /= a[c * cells + c];
    }
    std::vector<double> next = eta;
    for (std::size_t c = 0; c < cells; ++c) next[c] += std::clamp(x[c], -3.0, 3.0);
    const double value = evaluate(next, nullptr, nullptr);
    if (value > best) {
      best = value;
      eta = next;
      evaluate(eta, &slope, &curvature);
      ridge = std::max(ridge / 4, 1e-9);
    } else {
      ridge *= 4;
    }
  }
  return best;
}

TEST(Saturated, ReachesTheMaximumOfDirectMaximisation) {
  const struct {
    const char* why;
    int n;
    std::vector<std::int32_t> nrc;
    double missing;
    unsigned seed;
  } cases[] = {{"two items", 60, {2, 3}, 0.3, 1},
               {"every pattern of missingness", 400, {2, 2, 3}, 0.4, 2},
               {"few cases, empty cells", 40, {2, 2, 2, 2}, 0.25, 3},
               {"an item of one level", 80, {3, 1, 2}, 0.3, 4},
               {"overlapping patterns only", 30, {2, 2, 2}, 0.6, 5}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = simulate(t.n, t.nrc, 1, t.seed, t.missing);
    fit.run();
    verify_fit(fit);
    EXPECT_NEAR(fit.cat_loglik, maximise_directly(fit), 1e-8);
    EXPECT_LT(fit.fit_extra[7], 1e-6);
    EXPECT_EQ(fit.run_info[14], 0);
  }
}

TEST(Saturated, CellProbabilitiesAreThoseOfPlainEmOverAllCells) {
  const lca_problem problem = simulate(600, {2, 3, 2, 2}, 2, 11, 0.15);
  const auto dense = saturated_maximum(problem.nrc, count_patterns(problem), 20000);
  const direct_fit fit = fit_directly(problem, 1e-12);
  ASSERT_EQ(fit.mdinfo.theta.size(), dense.theta.size());
  for (std::size_t cell = 0; cell < dense.theta.size(); ++cell)
    EXPECT_NEAR(fit.mdinfo.theta.flat[cell], dense.theta[cell], 1e-8) << "cell " << cell;
  EXPECT_NEAR(fit.mdinfo.fit.loglik, dense.low, 1e-8);
}

TEST(Saturated, PassesOverClassesOfCellsArePassesOverCells) {
  // Many incomplete patterns on few cases: most cells are alike.
  const lca_problem problem = simulate(60, {2, 2, 2, 2, 2, 3}, 2, 12, 0.3);
  direct_fit fit = fit_directly(problem, 1e-8);
  ASSERT_LT(fit.mdinfo.classes.size(), 96U);
  std::vector<double> counts;
  for (int32 i = 1; i <= fit.mdinfo.ord.n[0]; ++i)
    if (fit.mdinfo.mobs(fit.mdinfo.mdp(fit.mdinfo.ord(i))) > 0)
      counts.push_back(fit.mdinfo.orig_counts(fit.mdinfo.ord(i)));
  for (const int passes : {2, 5, 40}) {
    const auto dense = saturated_maximum(problem.nrc, count_patterns(problem), passes);
    estimation::cell_fit_controls controls;
    controls.criterion = 0.0;
    controls.max_passes = passes;
    controls.plain = true;
    const auto plain = estimation::fit_cells(fit.mdinfo.classes, counts, controls);
    EXPECT_EQ(plain.passes, passes);
    for (std::size_t cell = 0; cell < dense.theta.size(); ++cell) {
      const int32 k = fit.mdinfo.classes.class_of[cell];
      const double mine = k < 0 ? 0.0
                                : plain.mass[static_cast<std::size_t>(k)] /
                                      fit.mdinfo.classes.cells[static_cast<std::size_t>(k)];
      EXPECT_NEAR(mine, dense.theta[cell], 1e-14) << "pass " << passes << ", cell " << cell;
    }
  }
}

TEST(Saturated, TheBoundHoldsWhereverItEnds) {
  const direct_fit fit = fit_directly(simulate(60, {2, 2, 2, 2, 2, 3}, 2, 12, 0.3), 1e-8);
  std::vector<double> counts;
  for (const int32 i : fit.mdinfo.ord.flat)
    if (fit.mdinfo.mobs(fit.mdinfo.mdp(i)) > 0) counts.push_back(fit.mdinfo.orig_counts(i));
  for (const int passes : {1, 2, 3, 4}) {
    estimation::cell_fit_controls controls;
    controls.max_passes = passes;
    const auto ended = estimation::fit_cells(fit.mdinfo.classes, counts, controls);
    EXPECT_GE(ended.loglik + ended.shortfall, fit.mdinfo.fit.loglik - 1e-9) << passes << " passes";
  }
}

TEST(Saturated, CompleteDataSettleInTheSecondPass) {
  const lca_problem problem = simulate(200, {2, 2, 3}, 2, 13);
  const direct_fit fit = fit_directly(problem, 1e-8);
  EXPECT_EQ(fit.iterations, 2);
  EXPECT_EQ(fit.mdinfo.mdpst.n[0], 1);
  for (int32 i = 1; i <= fit.mdinfo.ord.n[0]; ++i)
    EXPECT_NEAR(fit.mdinfo.expect_sat(i), fit.mdinfo.orig_counts(i), 1e-10);
}

TEST(Saturated, TablesTellThePatternsApart) {
  const direct_fit fit = fit_directly(simulate(300, {2, 3, 2, 4}, 2, 14, 0.3), 1e-8);
  const mdinfo_type& info = fit.mdinfo;
  EXPECT_EQ(info.jmp.flat, (std::vector<int32>{1, 2, 6, 12}));
  double expected = 0.0;
  for (int32 m = 1; m <= info.mdpst.n[0]; ++m) {
    double observed = 0.0;
    double saturated = 0.0;
    for (int32 at = info.mdpst(m); at < info.mdpst(m) + info.nmdp(m); ++at) {
      const int32 p = info.ord(at);
      EXPECT_EQ(info.mdp(p), m);
      for (int32 j = 1; j <= 4; ++j) EXPECT_EQ(info.r(m, j) == 1, info.orig_obspat(p, j) > 0);
      observed += info.orig_counts(p);
      saturated += info.expect_sat(p);
    }
    EXPECT_LE(saturated, observed * (1 + 1e-12));  // the rest belongs to cells that nobody shows
    expected += saturated;
  }
  EXPECT_GT(expected, 0.0);
  EXPECT_NEAR(std::accumulate(info.theta.flat.begin(), info.theta.flat.end(), 0.0), 1.0, 1e-12);
}

TEST(Saturated, FrequenciesWeightsAndCasesAgree) {
  lca_problem cases = simulate(500, {2, 3, 2, 2}, 2, 15, 0.12);
  cases.criterion = 1e-10;
  cases.max_iter = 50000;
  cases.seed = 4;
  lca_problem table = cases;
  const auto counts = count_patterns(cases);
  table.nkase = static_cast<int>(counts.size());
  table.y.assign(counts.size() * 4, 0);
  int k = 0;
  for (const auto& [responses, count] : counts) {
    ++k;
    for (int j = 1; j <= 4; ++j)
      table.set_response(k, j, responses[static_cast<std::size_t>(j - 1)]);
    table.freq.push_back(count);
  }
  lca_problem weighted = table;
  weighted.weight.swap(weighted.freq);
  for (lca_problem* fit : {&cases, &table, &weighted}) {
    fit->run();
    verify_fit(*fit);
  }
  for (const lca_problem* fit : {&table, &weighted}) {
    EXPECT_NEAR(fit->G2, cases.G2, 1e-8);
    EXPECT_NEAR(fit->cat_loglik, cases.cat_loglik, 1e-8);
    EXPECT_NEAR(fit->cat_g2, cases.cat_g2, 1e-8);
    EXPECT_EQ(fit->cat_df, cases.cat_df);
    for (const auto criterion :
         {&lca_problem::aic, &lca_problem::bic, &lca_problem::caic, &lca_problem::abic})
      EXPECT_NEAR(fit->*criterion, cases.*criterion, 1e-8);
    for (const std::size_t element : {0U, 2U, 3U})  // X2 and the weighted entropies
      EXPECT_NEAR(fit->fit_extra[element], cases.fit_extra[element], 1e-8);
  }
}

TEST(Saturated, GroupsAddUp) {
  lca_problem both = simulate(600, {2, 2, 3}, 1, 16, 0.15, 2);
  both.run();
  verify_fit(both);
  double loglik = 0.0, g2 = 0.0;
  int df = 0, passes = 0;
  for (const int g : {1, 2}) {
    lca_problem one = both;
    one.nstr = 1;
    one.strata.clear();
    one.nkase = 300;
    one.y.assign(900, 0);
    int to = 0;
    for (int k = 1; k <= both.nkase; ++k)
      if (both.stratum(k) == g) {
        ++to;
        for (int j = 1; j <= 3; ++j) one.set_response(to, j, both.response(k, j));
      }
    one.run();
    verify_fit(one);
    loglik += one.cat_loglik;
    g2 += one.cat_g2;
    df += one.cat_df;
    passes += one.run_info[6];
  }
  EXPECT_NEAR(both.cat_loglik, loglik, 1e-9);
  EXPECT_NEAR(both.cat_g2, g2, 1e-9);
  EXPECT_EQ(both.cat_df, df);
  EXPECT_EQ(both.run_info[6], passes);
}

TEST(Saturated, ManyItemsGiveAValueOrSayThatTheyOverflow) {
  const struct {
    const char* why;
    int items, levels;
    double missing;
    bool fitted;
  } cases[] = {{"thirty items", 30, 2, 0.05, true},
               {"a table beyond 2^63", 100, 2, 0.02, true},
               {"ninety levels each", 25, 90, 0.1, true},
               {"half of all responses missing", 40, 2, 0.5, true},
               {"beyond all limits", 200, 2, 0.7, false}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit =
        simulate(1000, std::vector<std::int32_t>(static_cast<std::size_t>(t.items), t.levels), 2,
                 17, t.missing);
    fit.max_iter = 20;
    fit.want_post = false;
    fit.run();
    verify_fit(fit);
    EXPECT_EQ(fit.cat_loglik != 0.0, t.fitted);
    lca_problem alone = fit;
    alone.threads = 1;
    fit.threads = 4;
    for (lca_problem* one : {&alone, &fit}) one->run();
    EXPECT_EQ(fit.cat_loglik, alone.cat_loglik);
    EXPECT_GE(fit.overflow, t.items > 30 || !t.fitted ? 1 : 0);
    if (t.fitted) {
      EXPECT_LE(fit.loglik, fit.cat_loglik);
      EXPECT_LT(fit.fit_extra[7], 0.01);
    } else {
      EXPECT_EQ(fit.overflow, 2);
      EXPECT_EQ(fit.cat_df, 0);
      EXPECT_NEAR(fit.aic, -2 * fit.loglik + 2 * fit.n_params[0], 1e-9 * fit.aic);
      EXPECT_TRUE(std::isnan(fit.fit_extra[0]));
      EXPECT_TRUE(std::isnan(fit.fit_extra[1]));
    }
  }
}

TEST(Saturated, IsComputedWhereItIsWanted) {
  lca_problem fit = simulate(300, {2, 3, 2}, 2, 22, 0.2);
  api::lca_call call = fit.prepare();
  call.cat_g2 = call.G2 = call.aic = call.bic = call.caic = call.abic = call.fit_extra = nullptr;
  call.cat_df = call.overflow_count = nullptr;
  EXPECT_EQ(api::guarded_run_lca(call), 0);
  EXPECT_GT(fit.run_info[6], 0);
  call.cat_loglik = nullptr;
  EXPECT_EQ(api::guarded_run_lca(call), 0);
  EXPECT_EQ(fit.run_info[6], 0);
}

TEST(Saturated, TheHostCanCancelIt) {
  tolvenra_progress record{};
  record.size = sizeof record;
  record.notify = [](tolvenra_progress* at) { return at->stage == 5 && at->iteration > 4 ? 1 : 0; };
  lca_problem fit = simulate(3000, {2, 3, 2, 2, 2, 3, 2, 2}, 2, 23, 0.3);
  fit.nstarts = 3;
  fit.se_option = 1;
  fit.progress = &record;
  EXPECT_EQ(fit.run(), 0);
  EXPECT_EQ(trimmed(fit.message), "The run was cancelled by the host.\r\nOCCURRED IN: runlca");
  EXPECT_EQ(fit.run_info[11], 1);
  EXPECT_EQ(fit.run_info[7], -1);
  EXPECT_EQ(record.loglik, fit.loglik);
  EXPECT_EQ(record.best_loglik, fit.loglik);
  EXPECT_EQ(record.starts_done, 3);
  EXPECT_EQ(record.max_iter, fit.max_iter);
  EXPECT_TRUE(std::isnan(fit.G2) && std::isnan(fit.bic) && std::isnan(fit.fit_extra[0]));
  EXPECT_EQ(fit.cat_df, -1);
  EXPECT_GT(fit.entropy, 0.0);
  EXPECT_TRUE(std::isnan(fit.std_gamma[0]));
}

TEST(Saturated, NothingObservedIsNoInformation) {
  lca_problem fit = simulate(50, {2, 2}, 1, 18);
  fit.y.assign(fit.y.size(), 0);
  fit.run();
  verify_fit(fit);
  EXPECT_EQ(fit.cat_loglik, 0.0);
  EXPECT_EQ(fit.overflow, 0);
  EXPECT_EQ(fit.cat_df, 0);
  EXPECT_NEAR(fit.G2, 0.0, 1e-12);
}

TEST(Saturated, PlannedMissingnessHasItsOwnDegreesOfFreedom) {
  // Three booklets leave out one pair of items each: 24 + 36 + 24 cells; no pattern is complete,
  // and the pairs of 6, 4 and 6 cells have 84 - 16 + 1 - 1 = 68 parameters in common.
  lca_problem fit = simulate(900, {2, 3, 2, 2, 3, 2}, 1, 19);
  for (int k = 1; k <= fit.nkase; ++k)
    for (const int j : {1, 2}) fit.set_response(k, j + 2 * (k % 3), 0);
  fit.run();
  verify_fit(fit);
  EXPECT_EQ(fit.cat_df, 24 + 36 + 24 - 3 - 68);
}

/// Skewed items give patterns with a single case whose probability one class of cells holds.
TEST(Saturated, RarePatternsKeepTheirShare) {
  std::mt19937_64 engine(5);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  std::normal_distribution<double> normal;
  for (int trial = 0; trial < 20; ++trial) {
    lca_problem fit = simulate(2000, std::vector<std::int32_t>(6, 2), 1, 30);
    for (std::size_t i = 0; i < fit.y.size(); ++i)
      fit.y[i] = uniform() < 0.2 ? 0 : uniform() < std::pow(uniform(), 4) ? 1 : 2;
    for (int k = 0; k < fit.nkase; ++k) fit.weight.push_back(std::exp(2.0 * normal(engine)));
    ASSERT_EQ(fit.run(), 0) << fit.message;
    verify_fit(fit);
    EXPECT_EQ(fit.run_info[14], 0) << "trial " << trial;
    EXPECT_EQ(fit.overflow, 0) << "trial " << trial << "\n" << fit.message;
  }
}

TEST(Saturated, ReleaseNamesTheArray) {
  direct_fit fit = fit_directly(simulate(50, {2, 2}, 1, 21, 0.2), 1e-8);
  error_type err;
  fit.mdinfo.umdp.flat.push_back(0);  // storage that is not what the extents say
  EXPECT_EQ(estimation::nullify_mdinfo(fit.mdinfo, err), -1);
  const auto lines = lines_of(err);
  EXPECT_NE(std::find(lines.begin(), lines.end(), "nullify_mdinfo: mdinfo%umdp"), lines.end());
  fit.mdinfo.umdp.flat.pop_back();
  EXPECT_EQ(estimation::nullify_mdinfo(fit.mdinfo, err), 0);
  EXPECT_FALSE(fit.mdinfo.orig_counts.allocated);
}

/// The full study has 400 data sets (bench/studies).
TEST(Saturated, TheTestOfMissingAtRandomHasItsDistribution) {
  const mcar_summary study = study_mcar(60, 1001);
  EXPECT_EQ(study.df, 7);
  EXPECT_NEAR(study.mean, study.df, 3 * study.standard_error);
  EXPECT_LE(study.rejected, 60 * (0.05 + 3 * std::sqrt(0.05 * 0.95 / 60)));
}

}  // namespace
}  // namespace tolvenra::test
