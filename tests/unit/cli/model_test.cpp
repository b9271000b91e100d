#include <gtest/gtest.h>

#include "messages.hpp"
#include "model_file.hpp"
#include "parameter_names.hpp"

namespace tolvenra::cli {
namespace {

/// Items P (2 categories) and Q (3), groups x and y, a covariate, two classes.
struct small_model {
  data_table table =
      parse_table("P,Q,g,age\n1,a,x,1\n2,b,x,2\n1,c,x,3\n2,a,y,4\n1,b,y,7\n", "d.csv");

  [[nodiscard]] lca_data read(const std::string& more, const std::string& in_model = "") const {
    const std::string text =
        "[data]\ngroup = \"g\"\n[model]\nitems = [\"P\", \"Q\"]\nclasses = 2\n" + in_model + more;
    return prepare_lca(table, parse_model(text, "m.toml"));
  }
  [[nodiscard]] parameter_space space(const lca_data& data) const {
    lca_options options;
    options.classes = 2;
    return lca_parameters(data, options);
  }
  [[nodiscard]] std::string refusal(const std::string& more,
                                    const std::string& in_model = "") const {
    return message_of([&] { (void)read(more, in_model); });
  }
};

TEST(ParameterName, ReadsBlanksAndQuotes) {
  const small_model made;
  const lca_data data = made.read("");
  const parameter_space space = made.space(data);
  const parameter_name name = space.parse({" rho [ a b ,'it''s, [x]', class 1 ] ", "w"});
  EXPECT_EQ(space.families()[name.family].name, "rho");
  ASSERT_EQ(name.indices.size(), 3U);
  EXPECT_EQ(name.indices[0].text, "a b");
  EXPECT_EQ(name.indices[1].text, "it's, [x]");
  EXPECT_TRUE(name.indices[1].quoted);
  EXPECT_EQ(name.indices[2].text, "class 1");
}

TEST(ParameterName, RefusesOtherForms) {
  const small_model made;
  const lca_data data = made.read("");
  const parameter_space space = made.space(data);
  for (const char* text : {"", "rho", "rho[", "rho[]", "rho[a", "rho[a,]", "rho[a]b", "tau[a]",
                           "rho[a,,b]", "rho['a'b]", "[a]", "rho[ ]"}) {
    const std::string message = message_of([&] { (void)space.parse({text, "m.toml, line 3"}); });
    EXPECT_TRUE(message.starts_with("m.toml, line 3: \"")) << text << ": " << message;
  }
  EXPECT_NE(message_of([&] {
              (void)space.parse({"rho['a]", "w"});
            }).find("never closed"),
            std::string::npos);
}

TEST(ParameterSpace, EachRunsOnAndStarTakesAllTogether) {
  const small_model made;
  const lca_data data = made.read("");
  const parameter_space space = made.space(data);
  // Column-major (item, class, category, group): offset j + 2 (c + 2 (k + 3 g)).
  const auto find = [&](const char* text, bool apart) {
    return space.find({text, "w"}, apart).lists;
  };
  using list = std::vector<std::size_t>;
  EXPECT_EQ(find("rho[Q, b, class 2, y]", true),
            (std::map<list, list>{{{}, {1 + 2 * (1 + 2 * 4)}}}));
  EXPECT_EQ(find("rho[Q, each, 1, group x]", true),
            (std::map<list, list>{{{0}, {1}}, {{1}, {5}}, {{2}, {9}}}));
  EXPECT_EQ(find("rho[P, *, 2, x]", true), (std::map<list, list>{{{}, {2, 6}}}));
  EXPECT_EQ(find("rho[P, 1, 1]", true), (std::map<list, list>{{{0}, {0}}, {{1}, {12}}}));
  EXPECT_EQ(find("rho[P, 1, 1]", false), (std::map<list, list>{{{}, {0, 12}}}));
  EXPECT_EQ(find("gamma[each, *]", true), (std::map<list, list>{{{0}, {0, 2}}, {{1}, {1, 3}}}));
}

TEST(LcaModel, NumbersTheSetsAndJoinsThoseThatOverlap) {
  const lca_model model =
      small_model()
          .read(
              "[restrictions]\nequal = [[\"rho[P, 1, 1, x]\", "
              "\"rho[P, 1, 2, x]\"], [\"rho[Q, a, 1, y]\", \"rho[P, 1, 2, x]\"], "
              "[\"rho[P, 2, 1, y]\", \"rho[P, 2, 2, y]\"]]\n")
          .model;
  std::vector<std::int32_t> expected(24, 1);
  expected[0] = expected[2] = expected[12 + 1] = 2;
  expected[12 + 4] = expected[12 + 6] = 3;
  EXPECT_EQ(model.rho_code, expected);
  EXPECT_TRUE(model.gamma_code.empty()) << "nothing was said of gamma";
  EXPECT_EQ(model.equal[0],
            (std::vector<std::string>{"rho[P, 1, class 1, x]", "rho[P, 1, class 2, x]",
                                      "rho[Q, a, class 1, y]"}));
  EXPECT_TRUE(model.tells_classes_apart());
}

TEST(LcaModel, RowsWithNothingLeftKeepTheirLargestCellFree) {
  const small_model made;
  const std::string fix = "[restrictions.fix]\n";
  const lca_model whole = made.read(fix + "\"rho[Q, each, 2, x]\" = [0.25, 0.5, 0.25]\n").model;
  EXPECT_EQ((std::vector<int>{whole.rho_code[3], whole.rho_code[7], whole.rho_code[11]}),
            (std::vector<int>{0, 1, 0}));
  EXPECT_EQ(whole.rho[11], 0.25);
  // A fixed 1 fixes the others at 0.
  const lca_model certain = made.read(fix + "\"rho[Q, b, 2, x]\" = 1\n").model;
  EXPECT_EQ((std::vector<int>{certain.rho_code[3], certain.rho_code[7], certain.rho_code[11]}),
            (std::vector<int>{0, 1, 0}));
  EXPECT_EQ(certain.fix.size(), 3U);
  // What is invariant is said once and holds in every group.
  const lca_model shared =
      made.read(fix + "\"rho[P, 2, 1]\" = 0.125\n", "invariant = true\n").model;
  EXPECT_EQ(shared.rho_code[4], 0);
  EXPECT_EQ(shared.rho_code[12 + 4], 0);
  EXPECT_EQ(shared.rho[12 + 4], 0.125);
  EXPECT_EQ(shared.fix.front().first, "rho[P, 2, class 1]");
}

TEST(LcaModel, StartsFillRowsAndTakeFixedValues) {
  const lca_model model =
      small_model()
          .read(
              "[restrictions.fix]\n\"rho[Q, c, 1]\" = 0.5\n[start]\n\"rho[P, 1, *]\" = 0.75\n"
              "\"rho[Q, a, 1]\" = 0.125\n\"rho[Q, *, 2]\" = 0.33333333\n\"gamma[1, y]\" = 0.25\n")
          .model;
  EXPECT_EQ(model.rho[4], 0.25) << "the rest of a row";
  EXPECT_EQ(model.rho[5], 0.375);
  EXPECT_EQ(model.rho[9], 0.5) << "fixed";
  EXPECT_EQ(model.gamma, (std::vector{0.5, 0.5, 0.25, 0.75}));
  EXPECT_EQ(model.start.size(), 4U + 20U);
}

TEST(LcaModel, RefusesContradictions) {
  const small_model made;
  const std::string fix = "[restrictions.fix]\n", start = "[start]\n", equal = "[restrictions]\n",
                    line = "m.toml, line 7: ";
  const struct {
    std::string text, message;
  } cases[] = {
      {fix + "\"rho[P, 1, 1]\" = 0.5\n\"rho[P, 1, 1, x]\" = 0.25\n",
       "m.toml, line 8: restrictions.fix: \"rho[P, 1, 1, x]\" is fixed at 0.25, but at 0.5 by"},
      {fix + "\"rho[Q, a, 1]\" = 0.6\n\"rho[Q, b, 1]\" = 0.6\n", "sum to 1.2, more than 1."},
      {fix + "\"rho[P, *, 1]\" = 0.25\n", "sum to 0.5, not to 1, and leave nothing to estimate."},
      {fix + "\"rho[Q, each, 1]\" = [0.5, 0.5]\n",
       line + "restrictions.fix: \"rho[Q, each, 1]\" has 2 values; it should have one, or 3"},
      {fix + "\"rho[P, 3, 1]\" = 0\n", "there is no category \"3\". The categories of item \"P\""},
      {fix + "\"rho[P, 1, 3]\" = 0\n", "there is no class \"3\"; the classes are numbered from 1"},
      {fix + "\"rho[P, 1, 1, z]\" = 0\n", "there is no group \"z\". The groups are x, y."},
      {fix + "\"rho[P, 1]\" = 0\n", "\"rho[P, 1]\" has 2 indices; it should read rho["},
      {equal + "equal = [\"rho[P, 1, 1, x]\"]\n", "stands for one parameter only"},
      {equal + "equal = [\"rho[P, each, 1]\", \"rho[Q, each, 1]\"]\n", "do not match"},
      {equal + "equal = [\"rho[P, 1, 1]\", \"gamma[1]\"]\n", "are of different kinds"},
      {equal + "equal = [\"rho[P, 1, *]\"]\nfix = {\"rho[P, 1, 2]\" = 0.5}\n",
       "is fixed, but equal to others by"},
      {start + "\"rho[P, 1, *]\" = 0.5\n", "there is no starting value for rho[Q, a, class 1, x]"},
      {start + "\"rho[P, *, *]\" = 0.4\n\"rho[Q, a, *]\" = 0.1\n", "sum to 0.8; they should sum"},
      {start + "\"beta[age, 2]\" = 0.4\n", "without covariates there are no coefficients"}};
  for (const auto& t : cases) {
    const std::string message = made.refusal(t.text);
    EXPECT_NE(message.find(t.message), std::string::npos) << t.text << message;
  }
  const std::string covariates = "covariates = \"age\"\n";
  EXPECT_NE(made.refusal(start + "\"beta[age, 1]\" = 0.4\n", covariates).find("reference class"),
            std::string::npos);
  EXPECT_NE(made.refusal(fix + "\"gamma[1]\" = 0.4\n", covariates).find("cannot be restricted"),
            std::string::npos);
  EXPECT_NE(made.refusal(fix + "\"beta[age, 2]\" = 0\n", covariates).find("cannot be restricted"),
            std::string::npos);
  EXPECT_NE(made.refusal(fix + "\"rho[P, 1, 1, x]\" = 0\n", "invariant = true\n").find("share rho"),
            std::string::npos);
}

TEST(ModelFile, DataLieBesideIt) {
  const auto file_of = [](const char* file, const char* model) {
    return parse_model(std::string("[data]\nfile = \"") + file + "\"\n", model).file;
  };
  EXPECT_EQ(file_of("d.csv", "m.toml"), "d.csv");
  EXPECT_EQ(file_of("d.csv", "study/m.toml"), "study/d.csv");
  EXPECT_EQ(file_of("/data/d.csv", "study/m.toml"), "/data/d.csv");
  EXPECT_EQ(file_of("-", "study/m.toml"), "-");
}

TEST(ModelFile, NumbersInListsStandForTheirTexts) {
  const lca_options options = parse_model(
      "[data]\nna = [-9, 99.5, \"?\"]\n[model]\nclasses = [\"a\", \"b\"]\nreference = \"b\"\n",
      "m");
  EXPECT_EQ(options.na, (std::vector<std::string>{"-9", "99.5", "?"}));
  EXPECT_EQ(options.classes, 2);
  EXPECT_EQ(options.asked_by("reference"), "m, line 5: model.reference");
  EXPECT_EQ(options.asked_by("prior_rho"), "--prior-rho");
}

TEST(ModelFile, RefusesCategoriesListedTwice) {
  const auto read = [](const char* list) {
    return message_of([&] { parse_model(std::string("[categories]\nA = ") + list, "m"); });
  };
  EXPECT_EQ(read("[1, 2, \"1.0\"]"),
            "m, line 2: categories.\"A\": the category \"1\" is listed twice.");
  EXPECT_EQ(read("[\"1\", \"1.0\", \"x\"]"), "") << "texts, since one of them is no number";
  EXPECT_NE(read("[]"), "");
  EXPECT_NE(read("[[1]]"), "");
}

TEST(ModelText, SurvivesEveryCharacter) {
  const std::string name = "q\"\\\t\x01\x7f é";
  const data_table table = parse_table("\"q\"\"\\\t\x01\x7f é\",B\n1,'\n2,]\n", "d.csv");
  lca_options options;
  options.file = "d\\\".csv";
  options.items = {name, "B"};
  options.classes = 1;
  options.fix = {{{"rho[B, ']', 1]", "w"}, {0.1 + 0.2}}};
  const lca_data data = prepare_lca(table, options);
  const lca_options again = parse_model(model_text(data, options), "m");
  EXPECT_EQ(again.file, options.file);
  EXPECT_EQ(again.items, options.items);
  ASSERT_EQ(again.fix.size(), 1U);
  EXPECT_EQ(again.fix[0].values[0], 0.1 + 0.2);
  EXPECT_EQ(prepare_lca(table, again).model.rho_code, data.model.rho_code);
  options.file = "\xff";
  EXPECT_NE(message_of([&] { model_text(data, options); }), "");
}

}  // namespace
}  // namespace tolvenra::cli
