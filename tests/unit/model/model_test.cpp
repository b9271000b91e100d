#include "model/model.hpp"

#include "records.hpp"

namespace tolvenra::model {
namespace {

using namespace tests;

TEST(Model, LabelsClassesAndStatusesWhenTheirNumberChanges) {
  model_type m;
  error_type err;
  ASSERT_EQ(put_nc(99, m, err), 0);
  ASSERT_EQ(put_ns(3, m, err), 0);
  EXPECT_FALSE(m.not_ready);
  EXPECT_EQ(m.class_names.n[0], 99);
  EXPECT_EQ(shown(m.class_names(1)), "LCLA_01 ");
  EXPECT_EQ(shown(m.class_names(99)), "LCLA_99 ");
  EXPECT_EQ(shown(m.status_names(3)), "LSTA_03 ");

  ASSERT_EQ(put_nc(2, m, err), 0);
  const auto own = vector_of({name("smokers"), name("others")});
  ASSERT_EQ(put_class_names(own, m, err), 0);
  ASSERT_EQ(put_nc(2, m, err), 0) << "the stored number again keeps the labels";
  array<name8, 1> got;
  ASSERT_EQ(get_class_names(m, got, err), 0);
  EXPECT_EQ(got, own);
  ASSERT_EQ(put_nc(3, m, err), 0);
  EXPECT_EQ(shown(m.class_names(1)), "LCLA_01 ");
}

TEST(Model, TakesZeroClassesAsASetNumberWithoutLabels) {
  model_type m;
  error_type err;
  ASSERT_EQ(put_nc(0, m, err), 0);
  EXPECT_FALSE(m.not_ready);
  ASSERT_EQ(put_nc(2, m, err), 0);
  ASSERT_EQ(put_nc(0, m, err), 0);
  EXPECT_FALSE(m.class_names.allocated);
  ASSERT_EQ(nullify_model(m, err), 0);
  EXPECT_TRUE(m == model_type{});
}

TEST(Model, RefusesWhatDoesNotFitAndStaysAsItWas) {
  const strings not_ready{"The property could not be set because",
                          "NC or NS have not yet been specified."};
  const auto with = [](strings lines, const char* routine) {
    lines.push_back(std::string("OCCURRED IN: ") + routine + " in MOD model");
    return lines;
  };
  const auto two = vector_of({name("a"), name("b")});
  expect_refusals<model_type>(
      {}, {{"names first", [&](auto& record, auto& e) { return put_class_names(two, record, e); },
            with(not_ready, "put_class_names")},
           {"names first", [&](auto& record, auto& e) { return put_status_names(two, record, e); },
            with(not_ready, "put_status_names")}});

  model_type m;
  error_type err;
  ASSERT_EQ(put_ns(3, m, err), 0);
  array<name8, 1> out;
  expect_refusals<model_type>(
      m, {{"too many",
           [](auto& record, auto& e) { return put_nc(100, record, e); },
           {"The number of latent classes specified was 100 The allowable range is 0 to 99",
            "OCCURRED IN: put_nc in MOD model"}},
          {"negative",
           [](auto& record, auto& e) { return put_ns(-1, record, e); },
           {"The number of latent statuses specified was -1 The allowable range is 0 to 99",
            "OCCURRED IN: put_ns in MOD model"}},
          {"size",
           [&](auto& record, auto& e) { return put_class_names(two, record, e); },
           {"Dimension of the argument class_names", "does not conform to the current model.",
            "OCCURRED IN: put_class_names in MOD model"}},
          {"size",
           [&](auto& record, auto& e) { return put_status_names(two, record, e); },
           {"Dimension of the argument status_names", "does not conform to the current model.",
            "OCCURRED IN: put_status_names in MOD model"}},
          {"absent",
           [&](auto& record, auto& e) { return get_class_names(record, out, e); },
           {"The class_names array has not yet been specified.",
            "OCCURRED IN: get_class_names in MOD model"}}});
}

}  // namespace
}  // namespace tolvenra::model
