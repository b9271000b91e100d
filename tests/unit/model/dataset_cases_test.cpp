#include <limits>

#include "model/dataset.hpp"
#include "records.hpp"

namespace tolvenra::dataset {
namespace {

using namespace tests;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

const strings not_ready{"The property could not be set because",
                        "NRC or NRS have not yet been specified."};
const strings no_y{"The array may not be loaded because", "y has not yet been specified."};

strings in(const char* routine, strings lines) {
  lines.push_back(std::string("OCCURRED IN: ") + routine + " in MOD dataset");
  return lines;
}

void check(int32 status, const error_type& err) {
  EXPECT_EQ(status, 0);
  EXPECT_EQ(lines_of(err), strings{});
}

/// One categorical item (3 categories) and two status items (2 and 4) at two times: 5 columns.
dataset_type items_only() {
  dataset_type d;
  error_type err;
  check(put_nrc(vector_of({3}), d, err), err);
  check(put_nrs(vector_of({2, 4}), d, err), err);
  check(put_nt(2, d, err), err);
  return d;
}

array<int32, 2> largest_responses() {
  return array_of<int32, 2>({2, 5}, {3, 0, 2, 0, 4, 0, 2, 0, 4, 0});
}

dataset_type with_cases() {
  dataset_type d = items_only();
  error_type err;
  check(put_y(largest_responses(), d, err), err);
  return d;
}

TEST(PutY, AcceptsTheLargestCategoriesAndMissingResponses) {
  const dataset_type d = with_cases();
  EXPECT_EQ(d.nkase, 2);
  EXPECT_EQ(d.strata, vector_of({1, 1}));
  array<int32, 2> y;
  error_type err;
  check(get_y(d, y, err), err);
  EXPECT_EQ(y, largest_responses());
}

TEST(PutY, ChecksEveryCellAgainstItsOwnItem) {
  const struct {
    const char* why;
    int32 row, column, value;
    strings lines;
  } cases[] = {
      {"negative", 2, 4, -1, {"One or more values in the y array", "was negative."}},
      {"class item",
       2,
       1,
       4,
       {"Row 2, column 1 of the response (y) array", " is inconsistent with nrc; the value was 4"}},
      {"first status item, time 2",
       1,
       4,
       3,
       {"Row 1, column 4 of the response (y) array", " is inconsistent with nrs; the value was 3"}},
      {"second status item, time 1",
       2,
       3,
       5,
       {"Row 2, column 3 of the response (y) array", " is inconsistent with nrs; the value was 5"}},
  };
  std::vector<refusal<dataset_type>> refusals;
  for (const auto& t : cases) {
    auto y = largest_responses();
    y(t.row, t.column) = t.value;
    refusals.push_back(
        {t.why, [y](auto& data, auto& e) { return put_y(y, data, e); }, in("put_y", t.lines)});
  }
  auto several = filled<int32, 2>({2, 5}, 9);
  several(1, 1) = 1;
  refusals.push_back({"class items come first, then rows",
                      [several](auto& data, auto& e) { return put_y(several, data, e); },
                      in("put_y", {"Row 2, column 1 of the response (y) array",
                                   " is inconsistent with nrc; the value was 9"})});
  refusals.push_back(
      {"columns",
       [](auto& data, auto& e) {
         return put_y(filled<int32, 2>({2, 4}, 1), data, e);
       },
       in("put_y",
          {"The y array has 4 columns, and must have 5 to be consistent with NCI = 1, NI = 2",
           ", and NT = 2"})});
  expect_refusals<dataset_type>(with_cases(), refusals);
  expect_refusals<dataset_type>(
      {}, {{"fresh", [](auto& data, auto& e) { return put_y(largest_responses(), data, e); },
            in("put_y", not_ready)}});
}

TEST(PutY, ReportsTheFirstRowThenTheFirstColumn) {
  dataset_type d;
  error_type err;
  check(put_nrc(vector_of({2, 2, 0}), d, err), err);
  const auto y = array_of<int32, 2>({3, 3}, {1, 1, 7, 1, 8, 1, 0, 1, 1});
  EXPECT_EQ(put_y(y, d, err), -1);
  EXPECT_EQ(lines_of(err), in("put_y", {"Row 2, column 2 of the response (y) array",
                                        " is inconsistent with nrc; the value was 8"}));
}

TEST(PutY, MovesAMatrixInSharesItWithCopiesAndReturnsARefusedOne) {
  dataset_type d = items_only();
  error_type err;
  auto y = largest_responses();
  const int32* const storage = y.data();
  check(put_y(std::move(y), d, err), err);
  EXPECT_EQ(d.y->data(), storage);
  const dataset_type copy = d;
  EXPECT_EQ(share_y(copy)->data(), storage);
  check(put_y(filled<int32, 2>({2, 5}, 1), d, err), err);
  EXPECT_EQ((*copy.y)(1, 1), 3);

  auto refused = filled<int32, 2>({2, 5}, 9);
  EXPECT_EQ(put_y(std::move(refused), d, err), -1);
  EXPECT_EQ(refused.size(), 10U);  // NOLINT: stays with the caller by contract
}

TEST(PutY, DropsWhatNoLongerFitsAnotherNumberOfCases) {
  for (const int32 nkase : {1, 2, 3}) {
    dataset_type d = with_cases();
    error_type err;
    check(put_nstr(2, d, err), err);
    check(put_strata(vector_of({2, 1}), d, err), err);
    check(put_freq(vector_of({1.0, 2.0}), d, err), err);
    check(put_weight(vector_of({1.0, 2.0}), d, err), err);
    check(put_ncov(1, d, err), err);
    check(put_cov(filled<double, 2>({2, 1}, 0.5), d, err), err);
    check(put_cluster_information(vector_of({4, 4}), d, err), err);
    check(put_y(filled<int32, 2>({nkase, 5}, 1), d, err), err);
    const bool kept = nkase == 2;
    EXPECT_EQ(d.strata, (filled<int32, 1>({nkase}, 1)));
    EXPECT_EQ(d.freq_set && d.weight_set && d.cluster_set && d.cov, kept);
    EXPECT_EQ(d.freq.allocated && d.weight.allocated && d.clusters.allocated, kept);
  }
}

TEST(PutStrata, NeedsOneKnownStratumPerCase) {
  dataset_type d = with_cases();
  error_type err;
  check(put_nstr(2, d, err), err);
  const auto put = [](std::initializer_list<int32> strata) {
    return [v = vector_of(strata)](auto& data, auto& e) { return put_strata(v, data, e); };
  };
  const auto range = [](const char* values, const char* nstr) {
    return in("put_strata", {std::string("The range of values in the strata array is ") + values,
                             std::string("The acceptable range is 1 through ") + nstr +
                                 ", the specified value of nstr."});
  };
  expect_refusals<dataset_type>(
      d, {{"size", put({1, 2, 1}),
           in("put_strata",
              {"The strata array has 3 rows, and must have 2 to be consistent with y."})},
          {"zero", put({2, 0}), range("0 through 2", "2")},
          {"beyond", put({1, 3}), range("1 through 3", "2")}});
  check(put_strata(vector_of({2, 1}), d, err), err);
  array<int32, 1> strata;
  check(get_strata(d, strata, err), err);
  EXPECT_EQ(strata, vector_of({2, 1}));
  check(put_nstr(1, d, err), err);
  EXPECT_EQ(d.strata, vector_of({1, 1})) << "stratum 2 no longer exists";

  check(put_nrc(vector_of({3}), d, err), err);  // leaves no stratum at all
  check(put_y(largest_responses(), d, err), err);
  expect_refusals<dataset_type>(d, {{"no strata", put({1, 1}), range("1 through 1", "0")}});
}

TEST(FrequenciesAndWeights, AreCheckedInTheirOrder) {
  const auto freq = [](std::initializer_list<double> v) {
    return [v = vector_of(v)](auto& data, auto& e) { return put_freq(v, data, e); };
  };
  const auto weight = [](std::initializer_list<double> v) {
    return [v = vector_of(v)](auto& data, auto& e) { return put_weight(v, data, e); };
  };
  const auto element = [](const char* k) {
    return in("put_freq", {std::string("Element ") + k, "of the freq array is zero or negative."});
  };
  const strings weights = in("put_weight", {"At least one of the weights is zero or negative."});
  dataset_type d = with_cases();
  error_type err;
  check(put_weight(vector_of({1.0, 1.0}), d, err), err);
  expect_refusals<dataset_type>(
      d,
      {{"size before values", freq({0.0, 1.0, 1.0}),
        in("put_freq", {"The freq array has 3 elements.", "This must match y which has 2 cases."})},
       {"zero", freq({1.0, 0.0}), element("2")},
       {"negative", freq({-1.0, 0.0}), element("1")},
       {"not a number", freq({nan, 1.0}), element("1")},
       {"infinite", freq({1.0, inf}), element("2")},
       {"after the weights", freq({1.0, 1.0}),
        in("put_freq", {"The frequency property cannot be set after the weight property is set."})},
       {"size", weight({1.0}),
        in("put_weight",
           {"The weight array has 1 elements.", "This must match y which has 2 cases."})},
       {"zero", weight({1.0, 0.0}), weights},
       {"not a number", weight({nan, 1.0}), weights}});
  expect_refusals<dataset_type>(items_only(), {{"y", freq({1.0}), in("put_freq", no_y)},
                                               {"y", weight({1.0}), in("put_weight", no_y)}});
  expect_refusals<dataset_type>({}, {{"fresh", freq({1.0}), in("put_freq", not_ready)},
                                     {"fresh", weight({1.0}), in("put_weight", not_ready)}});
}

TEST(FrequenciesAndWeights, MultiplyToTheCombinedWeight) {
  dataset_type d = with_cases();
  error_type err;
  array<double, 1> combined;
  check(get_combined_weight(d, combined, err), err);
  EXPECT_EQ(combined, vector_of({1.0, 1.0}));
  check(put_freq(vector_of({3.0, 5.0}), d, err), err);
  check(get_combined_weight(d, combined, err), err);
  EXPECT_EQ(combined, vector_of({3.0, 5.0}));
  check(put_weight(vector_of({0.5, 2.0}), d, err), err);
  check(get_combined_weight(d, combined, err), err);
  EXPECT_EQ(combined, vector_of({1.5, 10.0}));
}

TEST(PutCov, NamesItsColumnsBlockByBlock) {
  dataset_type d = items_only();
  error_type err;
  check(put_nt(3, d, err), err);
  check(put_y(filled<int32, 2>({2, 7}, 1), d, err), err);
  check(put_ncov(1, d, err), err);
  check(put_ncov_delta(1, d, err), err);
  check(put_ncov_tau(2, d, err), err);
  auto cov = filled<double, 2>({2, 6}, 0.0);
  cov(2, 6) = -3.5;
  check(put_cov(cov, d, err), err);
  array<name8, 1> names;
  check(get_cov_names(d, names, err), err);
  strings got;
  for (const name8& n : names.flat) got.push_back(shown(n));
  EXPECT_EQ(got, (strings{"COV_01  ", "COV1_01 ", "COV2_01 ", "COV2_02 ", "COV2_01 ", "COV2_02 "}));
  array<double, 2> out;
  check(get_cov(d, out, err), err);
  EXPECT_EQ(out, cov);
  check(put_ncov_tau(2, d, err), err);
  EXPECT_FALSE(d.cov) << "a count has to be followed by its covariates";
}

TEST(PutCov, RefusesOtherShapesAndNumbersThatAreNotFinite) {
  dataset_type d = with_cases();
  error_type err;
  check(put_ncov(1, d, err), err);
  check(put_ncov_tau(1, d, err), err);
  const auto put = [](int32 rows, int32 columns, double value) {
    return [v = filled<double, 2>({rows, columns}, value)](auto& data, auto& e) {
      return put_cov(v, data, e);
    };
  };
  const strings not_finite =
      in("put_cov", {"One or more values in the cov array", "was not a finite number."});
  expect_refusals<dataset_type>(
      d, {{"columns first", put(3, 1, 0.0),
           in("put_cov", {"The cov array has 1 columns.",
                          "This must equal ncov + ncov_delta + ncov_tau*(nt-1) = 2"})},
          {"rows", put(3, 2, nan),
           in("put_cov", {"The cov array has 3 cases.", "This must match y which has 2 cases."})},
          {"not a number", put(2, 2, nan), not_finite},
          {"infinite", put(2, 2, -inf), not_finite}});
  expect_refusals<dataset_type>(items_only(), {{"y", put(2, 0, 0.0), in("put_cov", no_y)}});
}

TEST(DatasetGetters, FailWithoutTheirArray) {
  array<int32, 1> i1;
  array<int32, 2> i2;
  array<double, 1> d1;
  array<double, 2> d2;
  const auto absent = [](const char* routine, const char* array) {
    return in(routine, {std::string("The ") + array + " array has not yet been specified."});
  };
  expect_refusals<dataset_type>(
      {},
      {{"", [&](auto& data, auto& e) { return get_nrc(data, i1, e); }, absent("get_nrc", "nrc")},
       {"", [&](auto& data, auto& e) { return get_nrs(data, i1, e); }, absent("get_nrs", "nrs")},
       {"", [&](auto& data, auto& e) { return get_y(data, i2, e); }, absent("get_y", "y")},
       {"", [&](auto& data, auto& e) { return get_strata(data, i1, e); },
        absent("get_strata", "strata")},
       {"", [&](auto& data, auto& e) { return get_freq(data, d1, e); }, absent("get_freq", "freq")},
       {"", [&](auto& data, auto& e) { return get_weight(data, d1, e); },
        absent("get_weight", "weight")},
       {"", [&](auto& data, auto& e) { return get_cov(data, d2, e); }, absent("get_cov", "cov")},
       {"", [&](auto& data, auto& e) { return get_combined_weight(data, d1, e); },
        absent("get_combined_weight", "y")}});
}

}  // namespace
}  // namespace tolvenra::dataset
