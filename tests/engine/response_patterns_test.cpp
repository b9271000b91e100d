// Patterns: keys, order, and what is handed out about them.
#include "estimation/response_patterns.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "api/exports.hpp"
#include "estimation/mlresult.hpp"
#include "support/allocations.hpp"
#include "support/lca_problem.hpp"

namespace tolvenra::test {
namespace {

TEST(SortByKey, TellsAnyNumberOfColumnsApart) {
  const struct {
    const char* why;
    int32 columns, codes;
  } cases[] = {{"one key holds all", 8, 3},
               {"999 dichotomous items with missing", 999, 3},
               {"999 categories", 40, 1000},
               {"nothing but one code", 5, 1}};
  std::mt19937_64 engine(77);
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    array<int32, 2> y;
    array<int32, 1> range, index;
    array<double, 1> keys;
    error_type err;
    const int32 n = 600;
    y.allocate({n, t.columns});
    range.allocate({t.columns}, t.codes);
    for (int32 i = 1; i <= n; ++i) {
      // Copies, and copies that differ in one column, are what a lossy key would merge.
      const auto from = i > 1 ? static_cast<int32>(engine() % static_cast<unsigned>(i - 1)) + 1 : 0;
      for (int32 j = 1; j <= t.columns; ++j)
        y(i, j) = from > 0 && i % 3 != 0
                      ? y(from, j)
                      : static_cast<int32>(engine() % static_cast<unsigned>(t.codes));
      if (i % 3 == 1)
        y(i, static_cast<int32>(engine() % static_cast<unsigned>(t.columns)) + 1) = t.codes - 1;
    }
    const auto code = [&](int32 i, int32 j) { return y(i, j); };
    ASSERT_EQ(estimation::sort_by_key(n, code, range, index, keys, err), 0);
    const auto compare = [&](int32 a, int32 b) {  // the last column decides first
      for (int32 j = t.columns; j >= 1; --j)
        if (y(a, j) != y(b, j)) return y(a, j) < y(b, j) ? -1 : 1;
      return 0;
    };
    std::vector<int32> expected(static_cast<std::size_t>(n));
    std::iota(expected.begin(), expected.end(), 1);
    std::stable_sort(expected.begin(), expected.end(),
                     [&](int32 a, int32 b) { return compare(a, b) < 0; });
    EXPECT_EQ(index.flat, expected);
    for (int32 i = 2; i <= n; ++i)
      EXPECT_EQ(keys(i) == keys(i - 1), compare(index(i), index(i - 1)) == 0);
  }
}

TEST(Result, SaysWhatIsNotThere) {
  using namespace estimation;
  mlresult_type result;
  array<double, 1> values;
  array<int32, 2> patterns;
  error_type err;
  double number = 0.0;
  const std::vector<std::string> not_filled{
      "The property could not be set because", "results of maximum likelihood estimation",
      "have not yet been obtained.", "OCCURRED IN: get_cat_g2 in MOD estimation"};
  EXPECT_EQ(get_cat_g2(result, number, err), -1);
  EXPECT_EQ(lines_of(err), not_filled);
  result.filled = true;
  err_reset(err);
  EXPECT_EQ(get_cat_g2(result, number, err), -1);  // statistics come after the fit
  EXPECT_EQ(lines_of(err), not_filled);
  const struct {
    std::string name;
    int32 status;
  } cases[] = {{"observed", (err_reset(err), get_observed(result, values, err))},
               {"expected", get_expected(result, values, err)},
               {"response_pattern_mat", get_response_pattern_mat(result, patterns, err)}};
  std::vector<std::string> lines;
  for (const auto& t : cases) {
    EXPECT_EQ(t.status, -1);
    lines.push_back("The " + t.name + " array has not yet been allocated.");
    lines.push_back("OCCURRED IN: get_" + t.name + " in MOD estimation");
  }
  EXPECT_EQ(lines_of(err), lines);
}

TEST(Workspace, KnowsItsIterationsOnlyAfterARun) {
  mlworkspace work;
  error_type err;
  int32 iterations = 0;
  EXPECT_EQ(estimation::get_iter(work, iterations, err), -1);
  work.initialised = true;
  EXPECT_EQ(estimation::get_iter(work, iterations, err), -1);
  EXPECT_EQ(lines_of(err),
            (std::vector<std::string>{
                "The property could not be read because", "the workspace has not been initialized.",
                "OCCURRED IN: get_iter in MOD estimation", "Unexpected error.",
                "OCCURRED IN: get_iter in MOD estimation"}));
}

TEST(Saturated, EveryFailedAllocationBecomesAReport) {
  if (!heap_is_watched) GTEST_SKIP() << "the sanitizer owns operator new";
  const lca_problem fit = simulate(60, {2, 2, 3}, 1, 22, 0.2, 2);
  bool ended = false;
  for (long n = 0; !ended && n < 100000; ++n) {
    lca_problem tried = fit;
    tried.G2 = 77.0;
    const api::lca_call call = tried.prepare();
    fail_after(n);
    const int status = api::guarded_run_lca(call);
    fail_after(-1);
    ended = status == 0;
    if (!ended) {
      EXPECT_EQ(tried.G2, 77.0) << "after " << n << " allocations";
    }
  }
  EXPECT_TRUE(ended);
}

TEST(Saturated, MissingnessMayDependOnTheCovariates) {
  lca_problem fit = simulate(800, {2, 2, 3, 2}, 2, 23);
  fit.ncov = 1;
  for (int k = 1; k <= fit.nkase; ++k) {
    fit.cov.push_back(k % 4 - 1.5);
    if (k % 4 == 3 && k % 3 != 0) fit.set_response(k, 2, 0);  // the class averages differ by group
    if (k % 40 < 2) fit.set_response(k, 4, 0);
  }
  fit.nstarts = 3;
  fit.run();
  verify_fit(fit);  // expected counts and X2 from the cases
  EXPECT_GT(fit.cat_df, 0);
}

}  // namespace
}  // namespace tolvenra::test
