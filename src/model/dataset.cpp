#include "model/dataset.hpp"

#include "model/dataset_checks.hpp"

namespace tolvenra::dataset {
namespace {

constexpr int32 most_items = 999, most_categories = 999, most_times = 99, most_strata = 999;
constexpr int32 most_covariates = 99;

/// The arrays that go with the cases.
template <class Visit>
int32 visit_case_arrays(dataset_type& dataset, Visit&& visit) {
  return visit("strata", dataset.strata) + visit("freq", dataset.freq) +
         visit("weight", dataset.weight) + visit("clusters", dataset.clusters) +
         visit("clustercounts_kases", dataset.clustercounts_kases) +
         visit("clustercounts_subjects", dataset.clustercounts_subjects);
}

template <class Visit>
int32 visit_item_arrays(dataset_type& dataset, Visit&& visit) {
  return visit("nrc", dataset.nrc) + visit("nrs", dataset.nrs) +
         visit("citem_names", dataset.citem_names) + visit("sitem_names", dataset.sitem_names) +
         visit("citem_levels", dataset.citem_levels) + visit("sitem_levels", dataset.sitem_levels) +
         visit("cov_names", dataset.cov_names) + visit("strata_levels", dataset.strata_levels);
}

/// A visitor that releases arrays under "routine: dataset%array".
auto releaser(std::string_view name, error_type& err) {
  return [name, &err](std::string_view field, auto& a) {
    return fields::release(a, std::string(name) + ": dataset%" + std::string(field), err);
  };
}

int32 refuse_release(const routine& here, error_type& err) {
  return fail(err, here, {text("Could not deallocate part of dataset_type.")});
}

/// One of the two kinds of items: where its properties live and their names.
struct item_kind {
  array<int32, 1> dataset_type::*categories;
  int32 dataset_type::*count;
  int32 dataset_type::*largest;
  array<name8, 1> dataset_type::*names;
  array<name8, 2> dataset_type::*levels;
  std::string_view categories_label, names_label, levels_label;
};

int32 check_categories(const array<int32, 1>& categories, const routine& here, error_type& err) {
  if (categories.n[0] > most_items)
    return fail(err, here,
                {text("The number of items specified was ", categories.n[0], " The maximum is ",
                      most_items)});
  const auto range = fields::range_of(categories.flat);
  if (range.largest > most_categories || range.smallest < 0)  // worded alike for both bounds
    return fail(err, here,
                {text("The minimum response value specified was ",
                      range.largest > most_categories ? range.largest : range.smallest,
                      " The range is 0 to ", most_categories)});
  return 0;
}

int32 put_categories(const array<int32, 1>& from, const item_kind& kind, dataset_type& dataset,
                     const routine& here, error_type& err) {
  if (check_categories(from, here, err) != 0) return -1;
  array<int32, 1> categories;
  array<name8, 1> names;
  array<name8, 2> levels;
  const int32 largest = fields::range_of(from.flat).largest;
  if (fields::store(from, categories, kind.categories_label, here, err) != 0 ||
      fields::allocate(names, {from.n[0]}, kind.names_label, here, err) != 0 ||
      fields::allocate(levels, {from.n[0], largest}, kind.levels_label, here, err) != 0)
    return -1;
  if (partially_nullify_dataset(dataset, err) != 0)
    return fail(err, here, {text("Unable to nullify the dataset.")});
  for (int32 j = 1; j <= names.n[0]; ++j) {
    names(j) = fields::numbered("ITEM_", j, 3);
    for (int32 r = 1; r <= largest; ++r) levels(j, r) = fields::numbered("RCAT_", r, 3);
  }
  dataset.*kind.count = categories.n[0];
  dataset.*kind.largest = largest;
  dataset.*kind.categories = std::move(categories);
  dataset.*kind.names = std::move(names);
  dataset.*kind.levels = std::move(levels);
  dataset.not_ready = false;
  return 0;
}

/// Strata beyond a smaller count no longer exist; their cases' numbers have to be given again.
void forget_strata_beyond(int32 nstr, dataset_type& dataset) {
  if (fields::range_of(dataset.strata.flat).largest > nstr)
    std::fill(dataset.strata.flat.begin(), dataset.strata.flat.end(), 1);
}

int32 put_covariate_count(int32 n, int32 dataset_type::*count, std::string_view said,
                          dataset_type& dataset, const routine& here, error_type& err) {
  if (n < 0 || n > most_covariates)
    return fail(err, here,
                {text(said, n), text("is greater than the maximum allowable, ", most_covariates)});
  dataset.*count = n;
  dataset.cov.reset();
  dataset.rows.reset();
  return 0;
}

}  // namespace

int32 partially_nullify_dataset(dataset_type& dataset, error_type& err) {
  constexpr routine here{"partially_nullify_dataset", "dataset"};
  if (visit_case_arrays(dataset, releaser(here.name, err)) != 0) return refuse_release(here, err);
  dataset.y.reset();
  dataset.cov.reset();
  dataset.rows.reset();
  dataset.nkase = dataset.nstr = 0;
  dataset.ncov = dataset.ncov_delta = dataset.ncov_tau = 0;
  dataset.freq_set = dataset.weight_set = dataset.y_set = dataset.cluster_set = false;
  return 0;
}

int32 nullify_dataset(dataset_type& dataset, error_type& err) {
  constexpr routine here{"nullify_dataset", "dataset"};
  const auto release = releaser(here.name, err);
  if (visit_item_arrays(dataset, release) + visit_case_arrays(dataset, release) != 0)
    return refuse_release(here, err);
  dataset = dataset_type{};
  return 0;
}

int32 put_nrc(const array<int32, 1>& nrc, dataset_type& dataset, error_type& err) {
  constexpr item_kind kind{&dataset_type::nrc,
                           &dataset_type::nci,
                           &dataset_type::nrcmax,
                           &dataset_type::citem_names,
                           &dataset_type::citem_levels,
                           "put_nrc: dataset%nrc",
                           "put_nrc: dataset%citem_names",
                           "put_nrc: dataset%citem_levels"};
  return put_categories(nrc, kind, dataset, {"put_nrc", "dataset"}, err);
}

int32 put_nrs(const array<int32, 1>& nrs, dataset_type& dataset, error_type& err) {
  constexpr item_kind kind{&dataset_type::nrs,
                           &dataset_type::ni,
                           &dataset_type::nrsmax,
                           &dataset_type::sitem_names,
                           &dataset_type::sitem_levels,
                           "put_nrs: dataset%nrs",
                           "put_nrs: dataset%sitem_names",
                           "put_nrs: dataset%sitem_levels"};
  return put_categories(nrs, kind, dataset, {"put_nrs", "dataset"}, err);
}

int32 put_nt(int32 nt, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_nt", "dataset"};
  if (nt < 1 || nt > most_times)
    return fail(err, here,
                {text("The number of times specified was ", nt, " The allowable range is 1 to ",
                      most_times)});
  if (nt == dataset.nt) return 0;
  if (partially_nullify_dataset(dataset, err) != 0)
    return fail(err, here, {text("Unable to nullify the dataset.")});
  dataset.nt = nt;
  dataset.nstr = 1;
  return 0;
}

int32 put_nstr(int32 nstr, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_nstr", "dataset"};
  if (nstr < 1 || nstr > most_strata)
    return fail(err, here,
                {text("The value of nstr specified,", nstr, ", was out of range."),
                 text("The allowable range is 1 to ", most_strata)});
  // put_nt sets the count without labels, so the labels are looked at too.
  if (nstr == dataset.nstr && dataset.strata_levels.n[0] == nstr) return 0;
  array<name8, 1> levels;
  if (fields::allocate(levels, {nstr}, "put_nstr: dataset%strata_levels", here, err) != 0)
    return -1;
  for (int32 s = 1; s <= nstr; ++s) levels(s) = fields::numbered("STRA_", s, 3);
  dataset.strata_levels = std::move(levels);
  // From 900 on the number plus 100 has four digits and no room.
  dataset.strata_name = fields::numbered("", nstr >= 900 ? nstr : nstr % 100, 2, "_LEVEL");
  dataset.nstr = nstr;
  forget_strata_beyond(nstr, dataset);
  dataset.rows.reset();
  return 0;
}

int32 put_ncov(int32 ncov, dataset_type& dataset, error_type& err) {
  return put_covariate_count(ncov, &dataset_type::ncov, "The value of ncov,", dataset,
                             {"put_ncov", "dataset"}, err);
}
int32 put_ncov_delta(int32 ncov_delta, dataset_type& dataset, error_type& err) {
  return put_covariate_count(ncov_delta, &dataset_type::ncov_delta, "The value of ncov_delta,",
                             dataset, {"put_ncov_delta", "dataset"}, err);
}
int32 put_ncov_tau(int32 ncov_tau, dataset_type& dataset, error_type& err) {
  return put_covariate_count(ncov_tau, &dataset_type::ncov_tau, "The value of ncov_tau,", dataset,
                             {"put_ncov_tau", "dataset"}, err);
}

int32 get_nrc(const dataset_type& dataset, array<int32, 1>& nrc, error_type& err) {
  return get_array(dataset.nrc, nrc, {"get_nrc", "dataset"}, err);
}
int32 get_nrs(const dataset_type& dataset, array<int32, 1>& nrs, error_type& err) {
  return get_array(dataset.nrs, nrs, {"get_nrs", "dataset"}, err);
}

}  // namespace tolvenra::dataset
