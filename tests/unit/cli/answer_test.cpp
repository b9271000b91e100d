#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>

#include "json_output.hpp"
#include "lca_answer.hpp"
#include "posteriors.hpp"
#include "progress.hpp"
#include "report.hpp"

namespace tolvenra::cli {
namespace {

/// Two groups of 3 and 1 cases, an item with two and one with three categories.
struct two_groups {
  data_table table = parse_table("P,Q,g\n1,a,x\n2,b,x\n1,c,x\n2,a,y\n", "made up");
  lca_options options;
  lca_data data;
  lca_fit fit;

  two_groups() {
    options.file = "made up";
    options.items = {"P,Q"};
    options.group = "g";
    options.classes = 2;
    data = prepare_lca(table, options);
    fit.completed = fit.converged = true;
    fit.iterations = 7;
    fit.loglik = -10.0;
    fit.G2 = 3.0;
    fit.apparent_df = 4;
    fit.n_params[0] = 5;
    fit.run_info[2] = fit.run_info[3] = options.starts;
    fit.fit_extra = {2.5, 0.25, 1.0, 0.75};
    // The engine's class 2 is larger over both groups although class 1 is larger in group y.
    fit.gamma = {0.25, 0.75, 0.75, 0.25};
    for (int k = 0; k < 2 * 2 * 3 * 2; ++k) fit.rho.push_back(0.01 * k);
    fit.post_cls = {0.1, 0.5, 0.9, 0.4, 0.9, 0.5, 0.1, 0.6};
    fit.starts.assign(20, {1, 7, 0, -10.0, true});
  }
  [[nodiscard]] lca_answer answer() const { return make_lca_answer(data, options, fit); }
};

TEST(LcaAnswer, NumbersClassesBySizeOverTheGroupsInEveryTable) {
  const two_groups made;
  const lca_answer answer = made.answer();
  EXPECT_EQ(answer.order, (std::vector<std::size_t>{1, 0}));
  EXPECT_EQ(answer.shares, (std::vector{0.625, 0.375}));
  EXPECT_EQ(answer.gamma, (std::vector<std::vector<double>>{{0.75, 0.25}, {0.25, 0.75}}));
  // Column-major (item, class, category, group): rho(2, 2, 3, 2) is element 1 + 2 * (1 + 2 * 5).
  EXPECT_DOUBLE_EQ(answer.rho[1][1][0][2], 0.23);
  EXPECT_DOUBLE_EQ(answer.rho[0][0][1][1], 0.04);
  ASSERT_EQ(answer.rho[0][0][0].size(), 2U) << "no padding for the item with fewer categories";
  ASSERT_EQ(answer.rho[0][1][0].size(), 3U);
}

TEST(LcaAnswer, CriteriaStandOnMinusTwoLogLikelihood) {
  const fit_figures figures = two_groups().answer().figures;
  EXPECT_DOUBLE_EQ(figures.aic, 20.0 + 10.0);
  EXPECT_DOUBLE_EQ(figures.bic, 20.0 + 5.0 * std::log(4.0));
  EXPECT_DOUBLE_EQ(figures.caic, 20.0 + 5.0 * (std::log(4.0) + 1.0));
  EXPECT_DOUBLE_EQ(figures.abic, 20.0 + 5.0 * std::log(0.25));
  EXPECT_EQ(figures.entropy, 0.75);
}

TEST(LcaAnswer, TellsMissingResponsesFromTablesThatAreTooLarge) {
  constexpr auto most = std::numeric_limits<std::int32_t>::max();
  const struct {
    const char* why;
    std::int32_t overflow_count, df;
    bool has_df, has_G2;
  } cases[] = {{"complete", 0, 4, true, true},
               {"missing responses", 1, 4, true, false},
               {"cells beyond 32 bits", 1, most, false, true},
               {"both", 2, most, false, false}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    two_groups made;
    made.fit.overflow_count = t.overflow_count;
    made.fit.run_info[5] = t.has_G2 ? 0 : 1;  // missing responses, and no pass over their table
    made.fit.apparent_df = t.df;
    if (t.overflow_count > 0) made.fit.fit_extra[0] = made.fit.fit_extra[1] = std::nan("");
    const lca_answer answer = made.answer();
    EXPECT_EQ(answer.figures.df.has_value(), t.has_df);
    EXPECT_EQ(answer.figures.G2.has_value(), t.has_G2);
    EXPECT_EQ(answer.figures.X2.has_value(), t.overflow_count == 0);
    const auto json = nlohmann::json::parse(lca_json(made.data, made.options, answer));
    EXPECT_EQ(json["fit"]["G2"].is_null(), !t.has_G2);
    EXPECT_EQ(json["fit"]["df"].is_null(), !t.has_df);
    const std::string report = lca_report(made.data, made.options, answer);
    EXPECT_EQ(report.find("there is no G²") != std::string::npos, !t.has_G2);
    EXPECT_EQ(report.find("> 2147483647") != std::string::npos, !t.has_df);
  }
}

TEST(LcaAnswer, FailedStartsAreCountedAndTheirFiguresAreNull) {
  two_groups made;
  made.fit.run_info[2] = 19;
  made.fit.run_info[3] = 1;
  made.fit.message = "Why it failed";
  made.fit.starts[4] = {3, -1, 1, TOLVENRA_FAILED_START, false};
  const lca_answer answer = made.answer();
  ASSERT_EQ(answer.warnings.size(), 2U);
  EXPECT_EQ(answer.warnings[0], "1 of 20 starts failed. The last report:\nWhy it failed");
  EXPECT_TRUE(answer.warnings[1].starts_with("Only one start reached"));
  const auto json = nlohmann::json::parse(lca_json(made.data, made.options, answer));
  EXPECT_TRUE(json["starts"][4]["loglik"].is_null());
  EXPECT_TRUE(json["starts"][4]["iterations"].is_null());
  EXPECT_EQ(json["starts"][5]["loglik"], -10.0);
}

/// Three classes of one group, the engine's baseline its first one.
struct three_classes {
  data_table table = parse_table("P,x\n1,0\n2,1\n3,2\n1,3\n", "made up");
  lca_options options;
  lca_fit fit;

  three_classes() {
    options.file = "made up";
    options.items = {"P"};
    options.covariates = {"x"};
    options.classes = 3;
    fit.gamma = {0.2, 0.5, 0.3};
    fit.rho.assign(9, 1.0 / 3.0);
    fit.beta = {0.0, 0.0, 1.0, -2.0, 0.25, 4.0};
    fit.test_stat = {7.5};
    fit.test_p = {0.02};
    fit.test_status = {0};
    fit.run_info[2] = fit.run_info[3] = options.starts;
  }
};

TEST(LcaAnswer, CoefficientsStandAgainstThePrintedReference) {
  three_classes made;
  using table = std::vector<std::vector<double>>;
  const struct {
    const char *reference, *binary;
    table beta;
  } cases[] = {{"", "", {{0.0, 0.0}, {-0.75, 6.0}, {-1.0, 2.0}}},
               {"2", "", {{0.75, -6.0}, {0.0, 0.0}, {-0.25, -4.0}}},
               {"3", "", {{1.0, -2.0}, {0.25, 4.0}, {0.0, 0.0}}},
               {"", "3", {{}, {}, {0.25, 4.0}}}};
  for (const auto& t : cases) {
    SCOPED_TRACE(std::string(t.reference) + "/" + t.binary);
    made.options.reference = t.reference;
    made.options.binary = t.binary;
    const lca_data data = prepare_lca(made.table, made.options);
    const lca_answer answer = make_lca_answer(data, made.options, made.fit);
    ASSERT_EQ(answer.beta.size(), 1U);
    EXPECT_EQ(answer.beta[0], t.beta);
    EXPECT_EQ(answer.shares[0], data.model.binary ? 0.2 : 0.5)
        << "a class compared keeps its number";
    EXPECT_EQ(answer.tests[0].df, data.model.binary ? 1 : 2);
    EXPECT_FALSE(answer.figures.G2);
  }
}

TEST(LcaAnswer, TestsThatFailedAreNamed) {
  three_classes made;
  const lca_data data = prepare_lca(made.table, made.options);
  made.fit.test_status = {2};
  EXPECT_NE(lca_report(data, made.options, make_lca_answer(data, made.options, made.fit))
                .find("Warning: The model without \"x\" has not converged"),
            std::string::npos);
  made.fit.test_status = {-1};
  made.fit.test_stat = {std::nan("")};
  const lca_answer failed = make_lca_answer(data, made.options, made.fit);
  EXPECT_NE(lca_report(data, made.options, failed).find("not fitted"), std::string::npos);
  const auto json = nlohmann::json::parse(lca_json(data, made.options, failed));
  EXPECT_TRUE(json["covariate_tests"][0]["statistic"].is_null());
  EXPECT_TRUE(json["covariate_tests"][0]["p"].is_null());
}

TEST(LcaJson, NumbersComeBackExactly) {
  two_groups made;
  made.fit.loglik = -504.46767013079415;
  made.fit.gamma[1] = 0.1 + 0.2;
  const auto json = nlohmann::json::parse(lca_json(made.data, made.options, made.answer()));
  EXPECT_EQ(json["fit"]["loglik"].get<double>(), made.fit.loglik);
  EXPECT_EQ(json["gamma"][0][1].get<double>(), made.fit.gamma[1]);
}

TEST(Posteriors, FollowThePrintedOrderAndTiesGoToTheLargerClass) {
  const two_groups made;
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* file = open_memstream(&text, &size);
  write_posteriors(made.table, made.fit, made.answer(), file);
  std::fclose(file);
  EXPECT_STREQ(text,
               "P,Q,g,class_1,class_2,modal_class\n"
               "1,a,x,0.9,0.1,1\n"
               "2,b,x,0.5,0.5,1\n"
               "1,c,x,0.1,0.9,2\n"
               "2,a,y,0.6,0.4,1\n");
  std::free(text);
}

TEST(Report, AlignsByCharactersAndLeavesNoBlanksAtLineEnds) {
  EXPECT_EQ(aligned({{"été", "1", "x"}, {"a", "100", ""}}, 1, ""), "été    1  x\na    100\n");
}

TEST(Report, SplitsManyClassesIntoBlocksAndShowsEveryGroup) {
  two_groups made;
  made.options.classes = 10;
  made.fit.gamma.assign(20, 0.1);
  made.fit.rho.assign(2 * 10 * 3 * 2, -1e-9);
  const std::string report = lca_report(made.data, made.options, made.answer());
  EXPECT_NE(report.find("Class 8\n"), std::string::npos);
  EXPECT_NE(report.find("  Item  Category  Class 9  Class 10\n"), std::string::npos);
  EXPECT_NE(report.find("Item-response probabilities in group y\n"), std::string::npos);
  EXPECT_NE(report.find("2 in g: x (3 cases), y (1 cases)"), std::string::npos);
  EXPECT_EQ(report.find("-0.0000"), std::string::npos);
}

TEST(Progress, LineTellsStartBestSoFarAndTimeLeft) {
  tolvenra_progress record{};
  record.start = 3;
  record.nstarts = 20;
  record.iteration = 12;
  record.loglik = -20.5;
  record.best_loglik = TOLVENRA_FAILED_START;
  EXPECT_EQ(progress_line(record, 1.0), "start 3 of 20, log-likelihood -20.5000");
  record.starts_done = 5;
  EXPECT_EQ(progress_line(record, 1.0), "start 3 of 20, about 3 s left");
  record.best_loglik = -19.25;
  EXPECT_EQ(progress_line(record, 30.0),
            "start 3 of 20, best log-likelihood -19.2500, about 1 min 30 s left");
  EXPECT_TRUE(progress_line(record, 3000.0).ends_with("about 2 h 30 min left"));
  record.nstarts = 1;
  record.max_abs_diff = 0.0015;
  EXPECT_EQ(progress_line(record, 3.0),
            "iteration 12, log-likelihood -20.5000, largest change 1.5e-03");
  record.stage = 5;
  EXPECT_EQ(progress_line(record, 3.0), "fit statistics, step 12");
}

}  // namespace
}  // namespace tolvenra::cli
