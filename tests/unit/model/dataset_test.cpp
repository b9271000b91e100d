#include "model/dataset.hpp"

#include "estimation/distinct_rows.hpp"
#include "records.hpp"

namespace tolvenra::dataset {
namespace {

using namespace tests;

const strings not_ready{"The property could not be set because",
                        "NRC or NRS have not yet been specified."};

strings in(const char* routine, strings lines) {
  lines.push_back(std::string("OCCURRED IN: ") + routine + " in MOD dataset");
  return lines;
}

void check(int32 status, const error_type& err) {
  EXPECT_EQ(status, 0);
  EXPECT_EQ(lines_of(err), strings{});
}

/// Two categorical items (2 and 3 categories), one status item (4) at two times.
dataset_type items_only() {
  dataset_type d;
  error_type err;
  check(put_nrc(vector_of({2, 3}), d, err), err);
  check(put_nrs(vector_of({4}), d, err), err);
  check(put_nt(2, d, err), err);
  return d;
}

array<int32, 2> three_cases() {
  return array_of<int32, 2>({3, 4}, {1, 2, 0, 3, 0, 1, 4, 4, 4, 0, 1, 2});
}

dataset_type with_cases() {
  dataset_type d = items_only();
  error_type err;
  check(put_y(three_cases(), d, err), err);
  return d;
}

TEST(DatasetItems, SetCountsAndDefaultNames) {
  const dataset_type d = items_only();
  EXPECT_FALSE(d.not_ready);
  EXPECT_EQ(d.nci, 2);
  EXPECT_EQ(d.nrcmax, 3);
  EXPECT_EQ(d.ni, 1);
  EXPECT_EQ(d.nrsmax, 4);
  EXPECT_EQ(d.nstr, 1);
  EXPECT_EQ(shown(d.citem_names(2)), "ITEM_002");
  EXPECT_EQ(d.citem_levels.n, (std::array<int32, 2>{2, 3}));
  EXPECT_EQ(shown(d.citem_levels(1, 3)), "RCAT_003") << "row is the item, column the category";
  EXPECT_EQ(shown(d.sitem_names(1)), "ITEM_001");
  EXPECT_EQ(shown(d.sitem_levels(1, 4)), "RCAT_004");
}

TEST(DatasetItems, AcceptTheLimitsAndRefuseBeyondThem) {
  dataset_type d;
  error_type err;
  check(put_nrc(filled<int32, 1>({999}, 1), d, err), err);
  check(put_nrs(vector_of({0, 999}), d, err), err);
  EXPECT_EQ(d.nrsmax, 999);
  const std::string minimum = "The minimum response value specified was ";
  expect_refusals<dataset_type>(
      with_cases(),
      {{"items", [](auto& data, auto& e) { return put_nrc(filled<int32, 1>({1000}, 1), data, e); },
        in("put_nrc", {"The number of items specified was 1000 The maximum is 999"})},
       {"categories",
        [](auto& data, auto& e) {
          return put_nrc(vector_of({-1, 1000}), data, e);
        },
        in("put_nrc", {minimum + "1000 The range is 0 to 999"})},
       {"negative",
        [](auto& data, auto& e) {
          return put_nrs(vector_of({2, -1}), data, e);
        },
        in("put_nrs", {minimum + "-1 The range is 0 to 999"})},
       {"times", [](auto& data, auto& e) { return put_nt(0, data, e); },
        in("put_nt", {"The number of times specified was 0 The allowable range is 1 to 99"})},
       {"times", [](auto& data, auto& e) { return put_nt(100, data, e); },
        in("put_nt", {"The number of times specified was 100 The allowable range is 1 to 99"})}});
}

TEST(DatasetItems, DropTheCasesWhenTheyChange) {
  const auto calls = std::vector<std::function<int32(dataset_type&, error_type&)>>{
      [](auto& data, auto& e) {
        return put_nrc(vector_of({2, 2}), data, e);
      },
      [](auto& data, auto& e) { return put_nrs(vector_of({4}), data, e); },
      [](auto& data, auto& e) { return put_nt(3, data, e); }};
  for (const auto& call : calls) {
    dataset_type d = with_cases();
    error_type err;
    check(put_freq(vector_of({1.0, 2.0, 3.0}), d, err), err);
    check(put_weight(vector_of({1.0, 2.0, 3.0}), d, err), err);
    check(put_ncov(1, d, err), err);
    check(call(d, err), err);
    EXPECT_FALSE(d.y_set || d.freq_set || d.weight_set);
    EXPECT_FALSE(d.y || d.strata.allocated || d.freq.allocated || d.weight.allocated);
    EXPECT_EQ(d.nkase + d.ncov, 0);
    EXPECT_EQ(d.nrs.size() + d.sitem_names.size(), 2U);
  }
  dataset_type d = with_cases();
  error_type err;
  check(put_nt(2, d, err), err);
  EXPECT_TRUE(d.y_set) << "the stored number of times again keeps the cases";
  check(put_nrc(vector_of({2, 2}), d, err), err);
  EXPECT_EQ(d.nstr, 0) << "only another number of times sets one stratum";
  check(nullify_dataset(d, err), err);
  EXPECT_TRUE(same(d, dataset_type{}));
}

TEST(DatasetItems, ReportStorageThatCannotBeReleased) {
  dataset_type d = with_cases();
  d.strata.n[0] = 7;  // storage and extents disagree
  error_type err;
  EXPECT_EQ(put_nt(3, d, err), -1);
  EXPECT_EQ(lines_of(err),
            (strings{"Unable to deallocate memory for object",
                     "partially_nullify_dataset: dataset%strata",
                     "OCCURRED IN: int1_dealloc in MOD dynamic_pointer_allocation",
                     "Could not deallocate part of dataset_type.",
                     "OCCURRED IN: partially_nullify_dataset in MOD dataset",
                     "Unable to nullify the dataset.", "OCCURRED IN: put_nt in MOD dataset"}));
}

TEST(DatasetNames, FollowTheNumberOfStrata) {
  const struct {
    int32 nstr;
    const char* name;
  } cases[] = {{1, "01_LEVEL"},   {5, "05_LEVEL"},   {100, "00_LEVEL"}, {123, "23_LEVEL"},
               {899, "99_LEVEL"}, {900, "**_LEVEL"}, {999, "**_LEVEL"}};
  for (const auto& t : cases) {
    dataset_type d = items_only();
    error_type err;
    check(put_nstr(t.nstr, d, err), err);
    EXPECT_EQ(shown(d.strata_name), t.name);
    EXPECT_EQ(d.strata_levels.n[0], t.nstr);
    EXPECT_EQ(shown(d.strata_levels(1)), "STRA_001");
  }
  dataset_type d = items_only();
  error_type err;
  check(put_nstr(2, d, err), err);
  check(put_strata_levels(vector_of({name("men"), name("women")}), d, err), err);
  check(put_strata_name(name("SEX"), d, err), err);
  check(put_nstr(2, d, err), err);
  EXPECT_EQ(shown(d.strata_levels(2)), "women   ");
  EXPECT_EQ(shown(d.strata_name), "SEX     ");
  check(put_nstr(3, d, err), err);
  EXPECT_EQ(shown(d.strata_name), "03_LEVEL");
}

TEST(DatasetNames, AreReplacedAndReadBack) {
  dataset_type d = items_only();
  error_type err;
  const auto items = vector_of({name("first"), name("second")});
  auto levels = filled<name8, 2>({2, 3}, name("yes"));
  levels(2, 3) = name("never");
  check(put_citem_names(items, d, err), err);
  check(put_sitem_names(vector_of({name("mood")}), d, err), err);
  check(put_citem_levels(levels, d, err), err);
  check(put_sitem_levels(filled<name8, 2>({1, 4}, name("s")), d, err), err);
  array<name8, 1> names;
  array<name8, 2> got;
  check(get_citem_names(d, names, err), err);
  EXPECT_EQ(names, items);
  check(get_sitem_names(d, names, err), err);
  EXPECT_EQ(shown(names(1)), "mood    ");
  check(get_citem_levels(d, got, err), err);
  EXPECT_EQ(got, levels);
  check(get_sitem_levels(d, got, err), err);
  EXPECT_EQ(shown(got(1, 4)), "s       ");
}

TEST(DatasetNames, RefuseOtherSizes) {
  const auto one = vector_of({name("a")});
  const auto three = filled<name8, 1>({3}, name("a"));
  const auto levels = [](int32 n, int32 m) { return filled<name8, 2>({n, m}, name("a")); };
  const auto wrong = [](const char* routine, const char* argument) {
    return in(routine, {argument, "does not conform to the current data."});
  };
  array<name8, 1> out;
  expect_refusals<dataset_type>(
      with_cases(),
      {{"citem", [&](auto& data, auto& e) { return put_citem_names(three, data, e); },
        wrong("put_citem_names", "Dimension of the argument citem_names")},
       {"sitem", [&](auto& data, auto& e) { return put_sitem_names(three, data, e); },
        wrong("put_sitem_names", "Dimension of the argument sitem_names")},
       {"cov", [&](auto& data, auto& e) { return put_cov_names(one, data, e); },
        wrong("put_cov_names", "Dimension of the argument cov_names")},
       {"strata", [&](auto& data, auto& e) { return put_strata_levels(three, data, e); },
        wrong("put_strata_levels", "Dimension of the argument strata_levels")},
       {"both", [&](auto& data, auto& e) { return put_citem_levels(levels(3, 4), data, e); },
        wrong("put_citem_levels", "Dimension 1 of the argument citem_levels")},
       {"categories", [&](auto& data, auto& e) { return put_citem_levels(levels(2, 4), data, e); },
        wrong("put_citem_levels", "Dimension 2 of the argument citem_levels")},
       {"items", [&](auto& data, auto& e) { return put_sitem_levels(levels(2, 4), data, e); },
        wrong("put_sitem_levels", "Dimension 1 of the argument sitem_levels")},
       {"categories", [&](auto& data, auto& e) { return put_sitem_levels(levels(1, 3), data, e); },
        wrong("put_sitem_levels", "Dimension 2 of the argument sitem_levels")},
       {"absent", [&](auto& data, auto& e) { return get_cov_names(data, out, e); },
        in("get_cov_names", {"The cov_names array has not yet been specified."})}});
  expect_refusals<dataset_type>(
      {}, {{"names", [&](auto& data, auto& e) { return put_citem_names(one, data, e); },
            in("put_citem_names", not_ready)},
           {"levels", [&](auto& data, auto& e) { return put_sitem_levels(levels(1, 1), data, e); },
            in("put_sitem_levels", not_ready)},
           {"strata", [](auto& data, auto& e) { return put_strata_name(name("x"), data, e); },
            in("put_strata_name", not_ready)}});
}

TEST(DatasetCounts, OfStrataAndCovariatesHaveLimits) {
  expect_refusals<dataset_type>(
      with_cases(),
      {{"nstr", [](auto& data, auto& e) { return put_nstr(0, data, e); },
        in("put_nstr", {"The value of nstr specified, 0, was out of range.",
                        "The allowable range is 1 to 999"})},
       {"nstr", [](auto& data, auto& e) { return put_nstr(1000, data, e); },
        in("put_nstr", {"The value of nstr specified, 1000, was out of range.",
                        "The allowable range is 1 to 999"})},
       {"ncov", [](auto& data, auto& e) { return put_ncov(100, data, e); },
        in("put_ncov", {"The value of ncov, 100", "is greater than the maximum allowable, 99"})},
       {"ncov_delta", [](auto& data, auto& e) { return put_ncov_delta(-1, data, e); },
        in("put_ncov_delta",
           {"The value of ncov_delta, -1", "is greater than the maximum allowable, 99"})},
       {"ncov_tau", [](auto& data, auto& e) { return put_ncov_tau(100, data, e); },
        in("put_ncov_tau",
           {"The value of ncov_tau, 100", "is greater than the maximum allowable, 99"})}});
}

TEST(DatasetClusters, AreCountedByAscendingIdentifier) {
  dataset_type d = with_cases();
  error_type err;
  const auto identifiers = vector_of({70, 5, 70});
  cluster_summary summary;
  check(put_cluster_information(identifiers, d, err), err);
  EXPECT_EQ(d.clustercounts_kases, vector_of({1, 2}));
  EXPECT_EQ(d.clustercounts_subjects, vector_of({1.0, 2.0}));

  check(put_freq(vector_of({1.0, 2.0, 3.5}), d, err), err);
  EXPECT_EQ(d.clustercounts_subjects, vector_of({2.0, 4.5}));
  check(put_freq(vector_of({10.0, 4.5, 3.0}), d, err), err);
  check(put_cluster_information(identifiers, d, err), err);
  array<int32, 1> clusters, kases;
  check(get_cluster_information(d, summary, err, &clusters, &kases), err);
  EXPECT_EQ(summary.count, 2);
  EXPECT_EQ(summary.smallest, 4.5);
  EXPECT_EQ(summary.largest, 13.0);
  EXPECT_EQ(clusters, identifiers);
  EXPECT_EQ(kases, vector_of({1, 2}));
}

TEST(DatasetClusters, AreRefusedWhenTheyCannotBe) {
  cluster_summary summary;
  const auto put = [](std::initializer_list<int32> ids) {
    return
        [v = vector_of(ids)](auto& data, auto& e) { return put_cluster_information(v, data, e); };
  };
  const auto get = [&](auto& data, auto& e) { return get_cluster_information(data, summary, e); };
  expect_refusals<dataset_type>(
      with_cases(),
      {{"size", put({1, 2}),
        in("put_cluster_information",
           {"The clusters array has 2 rows, and must have 3 to be consistent with y."})},
       {"zero", put({1, 0, 2}),
        in("put_cluster_information", {"The minimum value in the clusters array is 0",
                                       " It should be a positive whole number."})},
       {"none", get,
        in("get_cluster_information", {"There is no cluster information for this dataset."})}});
  expect_refusals<dataset_type>({}, {{"fresh", put({1}), in("put_cluster_information", not_ready)},
                                     {"fresh", get, in("get_cluster_information", not_ready)}});
}

TEST(Dataset, DropsItsDistinctRowsWhenDataChange) {
  const auto calls = std::vector<std::function<int32(dataset_type&, error_type&)>>{
      [](auto& data, auto& e) { return put_y(three_cases(), data, e); },
      [](auto& data, auto& e) { return put_nstr(2, data, e); },
      [](auto& data, auto& e) {
        return put_strata(vector_of({1, 1, 1}), data, e);
      },
      [](auto& data, auto& e) {
        return put_freq(vector_of({1.0, 1.0, 1.0}), data, e);
      },
      [](auto& data, auto& e) {
        return put_weight(vector_of({1.0, 1.0, 1.0}), data, e);
      },
      [](auto& data, auto& e) { return put_ncov(0, data, e); },
      [](auto& data, auto& e) {
        return put_cov(filled<double, 2>({3, 0}, 0.0), data, e);
      },
      [](auto& data, auto& e) {
        return put_cluster_information(vector_of({1, 2, 3}), data, e);
      },
      [](auto& data, auto& e) { return put_nt(5, data, e); },
      [](auto& data, auto& e) { return put_nrc(vector_of({2}), data, e); }};
  for (std::size_t i = 0; i < calls.size(); ++i) {
    SCOPED_TRACE(i);
    dataset_type d = with_cases();
    error_type err;
    d.rows = std::make_shared<distinct_rows>();
    const dataset_type copy = d;
    check(calls[i](d, err), err);
    EXPECT_EQ(d.rows, nullptr);
    EXPECT_NE(copy.rows, nullptr) << "a copy keeps its own";
  }
}

}  // namespace
}  // namespace tolvenra::dataset
