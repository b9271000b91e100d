#include "fit_tests.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "fit_sentences.hpp"
#include "input_error.hpp"
#include "patterns.hpp"
#include "residuals.hpp"

namespace tolvenra::cli {
namespace {

struct made_pattern {
  std::int32_t group, P, Q;
  double observed, expected;
};

/// Two groups; item P with two and item Q with three categories: tables of 6, 2 (P alone) cells.
struct made_fit {
  data_table table = parse_table("P,Q,g\n1,\"a,b\",x\n2,c,x\n1,d,y\n2,NA,y\n,,y\n1,c,x\n", "made");
  lca_options options;
  lca_data data;
  lca_fit fit;

  explicit made_fit(const std::vector<made_pattern>& patterns) {
    options.items = {"P,Q"};
    options.group = "g";
    options.classes = 2;
    data = prepare_lca(table, options);
    fit.run_info[4] = static_cast<std::int32_t>(patterns.size());
    fit.response_patterns.resize(data.rows * 3);
    fit.pattern_counts.resize(data.rows * 2);
    for (std::size_t p = 0; p < patterns.size(); ++p) {
      fit.response_patterns[p] = patterns[p].group;
      fit.response_patterns[p + data.rows] = patterns[p].P;
      fit.response_patterns[p + 2 * data.rows] = patterns[p].Q;
      fit.pattern_counts[p] = patterns[p].observed;
      fit.pattern_counts[p + data.rows] = patterns[p].expected;
    }
    fit.run_info[5] = fit.run_info[6] = 1;
    fit.G2 = 3.0;
    fit.apparent_df = 4;
    fit.cat_g2 = 2.0;
    fit.cat_df = 1;
    fit.fit_extra = {2.5, 0.25, 0.0, 0.0, 0.0, 0.04, 0.5, 0.125};
  }
};

fit_tests tests_of(const made_fit& made) {
  const auto& extra = made.fit.fit_extra;
  return make_fit_tests(made.data, made.fit, {.X2_p = extra[6], .bound = extra[7]});
}

/// The section on one line.
std::string section_of(const made_fit& made) {
  std::string text = fit_test_section(tests_of(made), "classes", true);
  for (auto at = text.find("\n  "); at != std::string::npos; at = text.find("\n  "))
    text.replace(at, 3, " ");
  return text;
}

/// 60 cases with both answers in each group, 20 with P alone in group y.
made_fit ample_counts() {
  return made_fit({{1, 1, 1, 40, 30},
                   {1, 2, 2, 20, 18},
                   {2, 1, 3, 60, 36},
                   {2, 2, 0, 20, 14},
                   {2, 0, 0, 7, 7}});
}

TEST(SparseRule, StandsAtItsLimits) {
  const struct {
    const char* why;
    expected_cells cells;
    bool G2, X2;
  } cases[] = {{"5 a cell", {16, 80, 0, 0, 1.0}, true, true},
               {"a little less", {16, 79.9, 0, 16, 1.0}, false, true},
               {"a fifth in thin tables", {20, 200, 0, 4, 1.0}, true, true},
               {"more than a fifth", {20, 200, 0, 4.1, 1.0}, false, true},
               {"square over cells of 10", {1000, 100, 0, 1000, 0.25}, false, true},
               {"square over cells below 10", {1001, 100, 0, 1001, 0.25}, false, false},
               {"a cell below a quarter", {16, 160, 0, 0, 0.24}, true, false},
               {"too few cells", {2, 100, 0, 0, 40.0}, true, false},
               {"too few cases", {3, 9, 0, 3, 3.0}, false, false},
               {"no cells", {}, false, false},
               {"beyond doubles", {INFINITY, 1e9, INFINITY, INFINITY, 0.0}, false, false}};
  for (const auto& t : cases) {
    EXPECT_EQ(cells_suit_G2(t.cells), t.G2) << t.why;
    EXPECT_EQ(cells_suit_X2(t.cells), t.X2) << t.why;
  }
}

TEST(SparseRule, CountsCellsByGroupAndMissingnessPattern) {
  const made_fit made = ample_counts();
  const expected_cells complete = count_cells(made.data, made.fit, true);
  EXPECT_EQ(complete.cells, 12.0);
  EXPECT_EQ(complete.cases, 120.0);
  EXPECT_EQ(complete.in_thin_tables, 0.0);
  // Group x: 4 cells share 60 - 48 = 12; group y: 5 cells share 60 - 36 = 24.
  EXPECT_DOUBLE_EQ(complete.below_5, 9.0);
  EXPECT_DOUBLE_EQ(complete.smallest, 3.0);
  const expected_cells shown = count_cells(made.data, made.fit, false);
  EXPECT_EQ(shown.cells, 14.0) << "cases without any response make no table";
  EXPECT_EQ(shown.cases, 140.0);

  const made_fit alone({{2, 1, 0, 9, 4}, {1, 1, 1, 90, 90}});
  const expected_cells of_two = count_cells(alone.data, alone.fit, false);
  EXPECT_EQ(of_two.cells, 8.0);
  EXPECT_EQ(of_two.in_thin_tables, 2.0) << "9 cases in 2 cells";
  EXPECT_EQ(of_two.smallest, 0.0) << "five cells share nothing";
  EXPECT_EQ(count_cells(alone.data, alone.fit, true).in_thin_tables, 6.0)
      << "group y has no complete case";
}

TEST(FitTests, TellWhyAPValueHasNoMeaning) {
  using use = p_value_use;
  constexpr auto most = std::numeric_limits<std::int32_t>::max();
  const struct {
    const char* why;
    void (*change)(made_fit&);
    use G2, X2, missing;
  } cases[] = {{"all well", [](made_fit&) {}, use::meaningful, use::meaningful, use::meaningful},
               {"complete", [](made_fit& m) { m.fit.run_info[5] = m.fit.run_info[6] = 0; },
                use::meaningful, use::meaningful, use::no_statistic},
               {"no saturated model", [](made_fit& m) { m.fit.run_info[6] = 0; }, use::no_statistic,
                use::no_statistic, use::no_statistic},
               {"no df", [](made_fit& m) { m.fit.apparent_df = m.fit.cat_df = 0; }, use::no_freedom,
                use::no_freedom, use::no_freedom},
               {"covariates", [](made_fit& m) { m.data.covariates.resize(1); }, use::covariates,
                use::covariates, use::meaningful},
               {"equalities counted twice",
                [](made_fit& m) {
                  m.fit.n_params[0] = 7;
                  m.fit.run_info[12] = 6;
                },
                use::restrictions, use::restrictions, use::meaningful},
               {"weights of 1", [](made_fit& m) { m.data.weight.assign(6, 1.0); }, use::meaningful,
                use::meaningful, use::meaningful},
               {"weights", [](made_fit& m) { m.data.weight.assign(6, 1.5); }, use::weights,
                use::weights, use::weights},
               {"few complete cases",
                [](made_fit& m) {
                  m.fit.pattern_counts[0] = m.fit.pattern_counts[2] = 1.0;
                  m.fit.pattern_counts[3] = 5000.0;
                },
                use::sparse, use::sparse, use::sparse},
               {"no complete case in group y",
                [](made_fit& m) { m.fit.response_patterns[2 + 2 * m.data.rows] = 0; }, use::sparse,
                use::meaningful, use::meaningful},
               {"too many cells",
                [](made_fit& m) {
                  m.fit.apparent_df = m.fit.cat_df = most;
                  m.fit.fit_extra[0] = m.fit.fit_extra[1] = m.fit.fit_extra[5] = std::nan("");
                },
                use::overflow, use::no_statistic, use::overflow}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    made_fit made = ample_counts();
    t.change(made);
    const fit_tests tests = tests_of(made);
    EXPECT_EQ(tests.G2.use, t.G2);
    EXPECT_EQ(tests.X2.use, t.X2);
    EXPECT_EQ(tests.missing.use, t.missing);
    const std::string text = fit_test_section(tests, "classes", true);
    EXPECT_EQ(text.find("speaks against the model") != std::string::npos, t.G2 == use::meaningful);
    EXPECT_EQ(text.find("missing-data test asks") != std::string::npos,
              t.missing != use::no_statistic);
    for (std::size_t from = 0; from < text.size(); from = text.find('\n', from) + 1)
      EXPECT_LE(text.find('\n', from) - from, 100U);
  }
}

TEST(FitTests, EachStatisticHasItsOwnDegreesOfFreedomAndTail) {
  const made_fit made = ample_counts();
  const fit_tests tests = tests_of(made);
  EXPECT_EQ(tests.X2.df, 5.0);
  EXPECT_EQ(p_remark(tests.G2), "p = 0.2500");
  EXPECT_EQ(p_remark(tests.X2), "p = 0.5000");
  EXPECT_EQ(p_remark(tests.missing), "p = 0.0400");
  EXPECT_NE(section_of(made).find("They did not (5 % level)."), std::string::npos);
  EXPECT_EQ(p_remark({1.0, 1.0, 0.1, p_value_use::sparse}), "not meaningful (sparse table)");
}

TEST(FitTests, SaturatedModelThatEndedEarlyIsSaidWithItsBound) {
  made_fit made = ample_counts();
  const auto text = [&] { return section_of(made); };
  EXPECT_EQ(text().find("passes"), std::string::npos);
  made.fit.run_info[6] = 1000;
  made.fit.run_info[14] = 2;
  EXPECT_NE(text().find("in 2 groups (1000 passes)"), std::string::npos);
  EXPECT_NE(text().find("at most 0.125: G² may be too small by twice that"), std::string::npos);
  made.fit.fit_extra[7] = 0.123401;  // never printed as less than it is
  EXPECT_NE(text().find("at most 0.124:"), std::string::npos);
  made.fit.fit_extra[7] = INFINITY;
  EXPECT_NE(text().find("unknown amount"), std::string::npos);
}

TEST(BivariateResiduals, PoolTheGroupsOverCasesThatAnsweredBoth) {
  made_fit made = ample_counts();
  // Class shares (0.25, 0.75) in x and (1, 0) in y; (item, class, category, group) by column.
  made.fit.gamma = {0.25, 0.75, 1.0, 0.0};
  made.fit.rho.assign(2 * 2 * 3 * 2, 0.0);
  const auto rho = [&](std::size_t item, std::size_t cls, std::size_t category,
                       std::size_t group) -> double& {
    return made.fit.rho[item + 2 * (cls + 2 * (category + 3 * group))];
  };
  rho(0, 0, 0, 0) = rho(1, 0, 0, 0) = 1.0;  // x, class 1: always 1 and a,b
  rho(0, 1, 0, 0) = rho(0, 1, 1, 0) = 0.5;  // x, class 2: either, and always c
  rho(1, 1, 1, 0) = 1.0;
  rho(0, 0, 0, 1) = 0.8;  // y: 1 with probability 0.8, d with 0.75
  rho(0, 0, 1, 1) = 0.2;
  rho(1, 0, 1, 1) = 0.25;
  rho(1, 0, 2, 1) = 0.75;
  const auto residuals = bivariate_residuals(made.data, 2, made.fit);
  ASSERT_EQ(residuals.size(), 1U);
  const pair_residual& pair = residuals[0];
  EXPECT_EQ(pair.cases, 120.0);
  EXPECT_EQ(pair.df, 2.0);
  EXPECT_EQ(pair.observed, (std::vector{40.0, 0.0, 60.0, 0.0, 20.0, 0.0}));
  const std::vector<double> expected{15.0, 22.5 + 12.0, 36.0, 0.0, 22.5 + 3.0, 9.0};
  double X2 = 0.0;
  for (std::size_t cell = 0; cell < 6; ++cell) {
    EXPECT_NEAR(pair.expected[cell], expected[cell], 1e-12) << cell;
    if (expected[cell] > 0.0)
      X2 += std::pow(pair.observed[cell] - expected[cell], 2) / expected[cell];
  }
  EXPECT_NEAR(pair.X2, X2, 1e-10);
}

TEST(Patterns, ShowLabelsCountsAndStandardisedResiduals) {
  const made_fit made({{1, 1, 1, 40, 25}, {2, 2, 0, 12, 16}});
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* file = open_memstream(&text, &size);
  write_patterns(made.data, made.fit, file);
  std::fclose(file);
  EXPECT_STREQ(text,
               "g,P,Q,observed,expected,std_residual\n"
               "x,1,\"a,b\",40,25,3\n"
               "y,2,NA,12,16,-1\n");
  std::free(text);
}

}  // namespace
}  // namespace tolvenra::cli
