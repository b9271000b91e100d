#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "lta_answer.hpp"
#include "lta_json.hpp"
#include "lta_model_file.hpp"
#include "lta_paths.hpp"
#include "lta_posteriors.hpp"
#include "lta_report.hpp"
#include "messages.hpp"

namespace tolvenra::cli {
namespace {

lta_options long_options() {
  lta_options options;
  options.file = "d.csv";
  options.id = "id";
  options.time = "t";
  options.items = {"A,B"};
  options.statuses = 2;
  return options;
}

TEST(LtaData, PlacesRowsByPersonAndTime) {
  const data_table table =
      parse_table("t,id,A,B,g\n10,z,2,b,f\n2,a,1,b,m\n2,z,,a,\n7,a,1,a,m\n", "d.csv");
  lta_options options = long_options();
  options.group = "g";
  options.invariant = {"time"};
  const lta_data data = prepare_lta(table, options);
  EXPECT_EQ(data.times, (std::vector<std::string>{"2", "7", "10"})) << "numbers by size";
  EXPECT_EQ(data.ids, (std::vector<std::string>{"z", "a"}));
  using codes = std::vector<std::int32_t>;
  ASSERT_EQ(data.items.size(), 6U);
  const codes expected[] = {{0, 1}, {1, 2}, {0, 1}, {0, 1}, {2, 0}, {2, 0}};
  for (std::size_t j = 0; j < 6; ++j) EXPECT_EQ(data.items[j].code, expected[j]) << j;
  EXPECT_EQ(data.group->code, (codes{1, 2})) << "what a row leaves out, another one says";
  EXPECT_EQ(data.answered, (std::vector<double>{2, 1, 1}));
}

TEST(LtaData, CovariatesOfTransitionsComeFromTheirStart) {
  const std::string rows =
      "id,t,A,B,x\n1,1,1,1,0\n1,2,1,1,1\n1,3,2,1,\n"  // the last time starts no transition
      "2,1,2,2,1\n2,2,2,2,0\n"                        // gone after time 2
      "3,1,1,2,1\n3,3,2,1,1\n"                        // never changes
      "4,1,2,1,0\n4,2,,,\n"                           // gone after time 1: the last known value
      "5,2,1,1,1\n5,3,2,2,1\n";
  lta_options options = long_options();
  options.covariates_transition = {"x"};
  const lta_data data = prepare_lta(parse_table(rows, "d.csv"), options);
  ASSERT_EQ(data.covariates.size(), 2U);
  EXPECT_EQ(data.covariates[0].value, (std::vector<double>{0, 1, 1, 0, 1}));
  EXPECT_EQ(data.covariates[1].value, (std::vector<double>{1, 0, 1, 0, 1}));
  EXPECT_EQ(data.covariates[1].name, "x (2)");
  const std::string gap = rows + "6,1,1,1,0\n6,3,1,1,1\n";
  EXPECT_NE(message_of([&] {
              (void)prepare_lta(parse_table(gap, "d.csv"), options);
            }).find("d.csv: id \"6\", time \"2\": covariate \"x\" is missing"),
            std::string::npos);
}

TEST(LtaData, ItemsOfWideDataAreNamedByTheirColumns) {
  const auto names = [](const char* header, std::vector<std::string> items,
                        const char* pattern = "") {
    lta_options options;
    options.items = std::move(items);
    options.pattern = pattern;
    options.statuses = 1;
    const lta_data data =
        prepare_lta(parse_table(std::string(header) + "\n1,2,1,2\n2,1,1,1\n", "d.csv"), options);
    std::vector<std::string> result = data.times;
    for (const categories& item : data.item_labels) result.push_back(item.name);
    return result;
  };
  using list = std::vector<std::string>;
  EXPECT_EQ(names("a_1,b_1,a_2,b_2", {"a_1,b_1;a_2-b_2"}), (list{"1", "2", "a", "b"}));
  EXPECT_EQ(names("q11,q21,q12,q22", {"pre: q11,q21", "post: q12,q22"}),
            (list{"pre", "post", "q1", "q2"}));
  EXPECT_EQ(names("t1a,t1b,t2a,t2b", {"t1a,t1b;t2a,t2b"}), (list{"1", "2", "t1a", "t1b"}))
      << "what all have in common tells nothing apart";
  EXPECT_EQ(names("t10a,t10b,t9a,t9b", {"b,a"}, "t{time}{item}"), (list{"9", "10", "b", "a"}));
}

/// One item at three times, a covariate, three statuses.
lta_model model_of(const std::string& in_model, const std::string& more) {
  const data_table table =
      parse_table("a,b,c,x\n1,2,1,0\n2,1,1,1\n1,1,2,2\n2,2,2,3\n1,2,2,4\n", "d.csv");
  const std::string head = "[model]\nitems = \"a; b; c\"\nstatuses = 3\n";
  return prepare_lta(table, parse_lta_model(head + in_model + more, "m.toml")).model;
}

TEST(LtaModel, FillsRowsAroundWhatIsFixed) {
  const lta_model model = model_of(
      "", "[restrictions.fix]\n\"tau[2, 1, *]\" = 0\n\"tau[3, each, 2]\" = [0.25, 0.25, 0.5]\n");
  const double third = 1.0 / 3.0;  // (from, to, transition)
  EXPECT_EQ(model.tau, (std::vector{third, 0.0, third, third, 0.5, third, third, 0.5, third,  //
                                    third, 0.0, 0.25, third, 0.5, 0.25, third, 0.5, 0.5}));
  EXPECT_EQ(model.tau_code, (std::vector{1, 0, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 1, 1, 0, 1, 1, 1}))
      << "a row that is fixed whole keeps its largest cell free";
  EXPECT_EQ(model.delta, std::vector<double>(3, third));
  EXPECT_TRUE(model.delta_code.empty());
  const lta_model stationary =
      model_of("invariant = \"time\"\n", "[restrictions]\nequal = [\"tau[each, each, *]\"]\n");
  EXPECT_EQ(stationary.equal.size(), 9U);
  EXPECT_EQ(stationary.equal[5],
            (std::vector<std::string>{"tau[status 2, status 3, 1]", "tau[status 2, status 3, 2]"}));
}

TEST(LtaModel, ReferencesAreOpenMoves) {
  const std::string zeros = "[restrictions.fix]\n\"tau[2, 1, *]\" = 0\n\"tau[1, 1, 2]\" = 0\n";
  const std::string moving = "covariates_transition = \"x\"\n";
  using list = std::vector<std::size_t>;
  EXPECT_EQ(model_of(moving, zeros).reference_of, (list{0, 1, 2, 1, 1, 2}))
      << "to stay, if one can";
  EXPECT_EQ(model_of(moving + "reference = 3\n", zeros).reference_of, list(6, 2));
  const struct {
    std::string in_model, more, message;
  } cases[] = {
      {moving + "reference = 1\n", zeros,
       "model.reference: nobody can move from status 2 to status 1 after time 1"},
      {moving + "binary = 1\n", zeros, "model.binary: nobody can move from status 2 to status 1"},
      {moving, "[restrictions.fix]\n\"tau[2, 1, *]\" = 0.5\n", "can only be fixed at 0."},
      {moving, "[restrictions]\nequal = [\"tau[2, *, 1]\"]\n", "can only be fixed at 0."},
      {moving, zeros + "[start]\n\"tau_beta[x, 2, 1, 1]\" = 1\n", "its probability is fixed at 0"},
      {moving, zeros + "[start]\n\"tau_beta[x, 1, 2, 2]\" = 1\n", "the reference is what"},
      {"", "[start]\n\"tau_beta[x, 1, 2, 1]\" = 1\n", "without covariates there are no coeff"},
      {"", "[start]\n\"tau[1, 2, 1]\" = 0.5\n", "a start needs every item in every status"},
      {"invariant = \"time\"\n", "[restrictions.fix]\n\"rho[a, 1, 1, 2]\" = 1\n",
       "rho is the same at all times"}};
  for (const auto& t : cases) {
    const std::string message = message_of([&] { (void)model_of(t.in_model, t.more); });
    EXPECT_NE(message.find(t.message), std::string::npos) << t.in_model << t.more << message;
  }
}

/// Made-up estimates of a model with everything: two groups, three statuses and times, items with
/// two and three categories, covariates of the start and of the transitions, missing waves.
struct made_fit {
  data_table table = parse_table(
      "id,t,A,B,g,x,y\n1,1,1,a,k,0,1\n1,2,2,b,k,0,2\n1,3,1,c,k,0,0\n2,1,2,a,l,1,0\n2,3,1,b,l,1,0\n"
      "3,1,1,,k,2,3\n3,2,,c,k,2,1\n4,1,2,c,l,3,1\n4,2,1,a,l,3,-1\n4,3,2,,l,3,2\n",
      "d.csv");
  lta_options options = long_options();
  lta_data data;
  lta_fit fit;
  unsigned state;

  double draw() {  // a congruential generator: the same numbers everywhere
    state = state * 1664525U + 1013904223U;
    return (state >> 8U) / 16777216.0;
  }

  explicit made_fit(const std::string& binary = "", unsigned seed = 20) : state(seed) {
    options.group = "g";
    options.statuses = 3;
    options.covariates_start = {"x"};
    options.covariates_transition = {"y"};
    options.binary = binary;
    data = prepare_lta(table, options);
    fit.completed = true;
    fit.run_info[2] = fit.run_info[3] = options.starts;
    fit.delta.resize(3 * 2);
    fit.tau.resize(3 * 3 * 2 * 2);
    fit.rho.resize(2 * 3 * 3 * 3 * 2);
    fit.delta_beta.resize(2 * 3 * 2);
    fit.tau_beta.resize(2 * 3 * 3 * 2 * 2);
    fit.post.resize(4 * 3 * 3);
    for (auto* list : {&fit.delta, &fit.tau, &fit.rho, &fit.post})
      for (double& value : *list) value = 0.05 + 0.3 * draw();
    for (auto* list : {&fit.delta_beta, &fit.tau_beta})
      for (double& value : *list) value = 2.0 * draw() - 1.0;
    fit.test_stat = {7.5, 3.0};
    fit.test_p = {0.02, 0.9};
    fit.test_status = {0, 0};
  }

  [[nodiscard]] double beta_sum(const std::vector<double>& beta, std::size_t at, double z) const {
    return beta[2 * at] + beta[2 * at + 1] * z;
  }

  /// Probability of status s at the start, or of a move, from its definition.
  [[nodiscard]] double share(const std::vector<double>& eta, std::size_t s,
                             std::size_t reference) const {
    double sum = 0.0;
    for (std::size_t k = 0; k < 3; ++k) sum += k == reference ? 1.0 : std::exp(eta[k]);
    return (s == reference ? 1.0 : std::exp(eta[s])) / sum;
  }

  [[nodiscard]] double likelihood(std::size_t i, const std::vector<std::size_t>& path) const {
    const std::size_t g = data.group_of(i);
    std::vector<double> eta;
    for (std::size_t s = 0; s < 3; ++s)
      eta.push_back(beta_sum(fit.delta_beta, s + 3 * g, data.covariates[0].value[i]));
    double p = share(eta, path[0], 0);
    for (std::size_t t = 0; t < 3; ++t) {
      for (std::size_t j = 0; j < 2; ++j)
        if (const auto code = data.items[2 * t + j].code[i]; code > 0)
          p *= fit.rho[j +
                       2 * (path[t] + 3 * (static_cast<std::size_t>(code - 1) + 3 * (t + 3 * g)))];
      if (t == 2) break;
      for (std::size_t s = 0; s < 3; ++s)
        eta[s] = beta_sum(fit.tau_beta, path[t] + 3 * (s + 3 * (t + 2 * g)),
                          data.covariates[1 + t].value[i]);
      p *= share(eta, path[t + 1], path[t]);
    }
    return p;
  }
};

TEST(StatusChains, TheSequenceIsTheBestOfAll) {
  for (unsigned seed = 1; seed <= 25; ++seed) {
    const made_fit made("", seed);
    const status_chains chains(made.data, made.fit);
    for (std::size_t i = 0; i < made.data.rows; ++i) {
      std::vector<std::size_t> best;
      double most = -1.0;
      for (std::size_t n = 0; n < 27; ++n) {
        const std::vector<std::size_t> path{n / 9, n / 3 % 3, n % 3};
        if (const double p = made.likelihood(i, path); p > most) {
          most = p;
          best = path;
        }
      }
      EXPECT_EQ(chains.sequence(i), best) << "seed " << seed << ", person " << i + 1;
      for (const auto& shares : chains.shares(i))
        EXPECT_NEAR(shares[0] + shares[1] + shares[2], 1.0, 1e-12);
    }
  }
}

TEST(StatusChains, OthersShareWhatABinaryRegressionLeaves) {
  const made_fit made("2");
  const status_chains chains(made.data, made.fit);
  const double x = 3.0;  // person 4, group l
  const double p = 1.0 / (1.0 + std::exp(-made.beta_sum(made.fit.delta_beta, 1 + 3, x)));
  const std::vector<double> start = chains.start(3);
  EXPECT_NEAR(start[1], p, 1e-12);
  EXPECT_NEAR(start[0] / start[2], made.fit.delta[3] / made.fit.delta[5], 1e-12);
  EXPECT_NEAR(start[0] + start[1] + start[2], 1.0, 1e-12);
}

TEST(LtaAnswer, ReadsTheEnginesArrays) {
  made_fit made;
  const lta_answer answer = make_lta_answer(made.data, made.options, made.fit);
  EXPECT_EQ(answer.tau[1][0][2][1], made.fit.tau[2 + 3 * (1 + 3 * (0 + 2 * 1))]);
  EXPECT_EQ(answer.rho[1][2][1][0][2], made.fit.rho[1 + 2 * (0 + 3 * (2 + 3 * (2 + 3 * 1)))]);
  ASSERT_EQ(answer.rho[0][0][0][0].size(), 2U) << "no padding for the item with fewer categories";
  EXPECT_EQ(answer.tau_beta[1][1][0][2][1], made.fit.tau_beta[1 + 2 * (0 + 3 * (2 + 3 * 3))]);
  EXPECT_TRUE(answer.tau_beta[0][0][1][1].empty()) << "to stay is the reference";
  EXPECT_EQ(answer.tests[0].df, 2 * 2);
  EXPECT_EQ(answer.tests[1].df, 2 * 2 * 3 * 2);
  double people = 0.0;
  for (const double cases : answer.modal_cases[1]) people += cases;
  EXPECT_EQ(people, 4.0);
  const auto json = nlohmann::json::parse(lta_json(made.data, made.options, answer));
  EXPECT_EQ(json["tau"][1][0][2][1].get<double>(), answer.tau[1][0][2][1]);
  EXPECT_TRUE(json["tau_odds_ratios"][0][0][1][1].is_null());
  const std::string report = lta_report(made.data, made.options, answer);
  for (const char* text :
       {"Transitions from time 2 to 3 in group l, averages over the cases\n",
        "Item-response probabilities at time 3 in group k\n", "Start: log-odds against status 1",
        "  Times       3: 1 (4 cases), 2 (3 cases), 3 (3 cases)\n"})
    EXPECT_NE(report.find(text), std::string::npos) << text << report;
}

TEST(LtaReport, WhatIsEqualIsPrintedOnce) {
  made_fit made;
  made.options.covariates_start = made.options.covariates_transition = {};
  made.data = prepare_lta(made.table, made.options);
  made.fit.delta_beta = made.fit.tau_beta = made.fit.test_stat = {};
  for (std::size_t at = 9; at < made.fit.tau.size(); ++at) made.fit.tau[at] = made.fit.tau[at - 9];
  const std::string report =
      lta_report(made.data, made.options, make_lta_answer(made.data, made.options, made.fit));
  EXPECT_NE(report.find("Transitions from each time to the next in every group\n"),
            std::string::npos);
  EXPECT_EQ(report.find("Transitions from time"), std::string::npos);
  EXPECT_NE(report.find("Item-response probabilities at time 2 in group l\n"), std::string::npos);
}

TEST(ChiSquareTail, AgreesWithTables) {
  EXPECT_NEAR(chi_square_tail(3.841458820694124, 1), 0.05, 1e-12);
  EXPECT_NEAR(chi_square_tail(18.307038053275146, 10), 0.05, 1e-12);
  EXPECT_NEAR(chi_square_tail(24.995790139728616, 15), 0.05, 1e-12);
  EXPECT_NEAR(chi_square_tail(1e-9, 1000), 1.0, 1e-12);
  EXPECT_TRUE(std::isnan(chi_square_tail(1.0, 0)));
}

}  // namespace
}  // namespace tolvenra::cli
