// Responses, strata, frequencies, weights and covariates: what is given case by case.
#include <algorithm>
#include <cmath>
#include <map>

#include "model/dataset_checks.hpp"

namespace tolvenra::dataset {
namespace {

std::span<const int32> column_of(const array<int32, 2>& y, int32 j) {
  const auto n = static_cast<std::size_t>(y.n[0]);
  return {y.data() + static_cast<std::size_t>(j - 1) * n, n};
}

// Plain reductions without early exit, which the compiler turns into vector code.
bool any_negative(std::span<const int32> values) {
  int32 signs = 0;
  for (const int32 v : values) signs |= v;
  return signs < 0;
}
/// Read as unsigned, so that a negative value is beyond every number of categories.
bool beyond(int32 v, int32 most) {
  return static_cast<std::uint32_t>(v) > static_cast<std::uint32_t>(most);
}
bool any_beyond(std::span<const int32> values, int32 most) {
  std::uint32_t found = 0;
  for (const int32 v : values) found |= std::uint32_t{beyond(v, most)};
  return found != 0;
}

/// A response that its item cannot have; row 0 for none.
struct misfit {
  int32 row = 0, column = 0, value = 0;
};

/// The first misfit, row by row, in columns first..last.
template <class Categories>
misfit first_misfit(const array<int32, 2>& y, int32 first, int32 last, Categories&& categories) {
  misfit found;
  for (int32 j = first; j <= last; ++j) {
    const auto values = column_of(y, j);
    const int32 most = categories(j);
    if (!any_beyond(values, most)) continue;
    const auto at =
        std::find_if(values.begin(), values.end(), [most](int32 v) { return beyond(v, most); });
    const auto row = static_cast<int32>(at - values.begin()) + 1;
    if (found.row == 0 || row < found.row) found = {row, j, *at};
  }
  return found;
}

int32 refuse_misfit(const misfit& found, std::string_view inconsistent, const routine& here,
                    error_type& err) {
  if (found.value <
      0)  // cannot happen behind the check of the whole matrix; a second line of defence
    return fail(err, here,
                {text("Row ", found.row, " of the response (y) array "),
                 text(" contains a negative value.")});
  return fail(err, here,
              {text("Row ", found.row, ", column ", found.column, " of the response (y) array"),
               text(inconsistent, found.value)});
}

int32 check_y(const array<int32, 2>& y, const dataset_type& dataset, const routine& here,
              error_type& err) {
  if (require_items(dataset, here, err) != 0) return -1;
  const int32 columns = dataset.nci + dataset.ni * dataset.nt;
  if (y.n[1] != columns)
    return fail(err, here,
                {text("The y array has ", y.n[1], " columns, and must have ", columns,
                      " to be consistent with NCI = ", dataset.nci, ", NI = ", dataset.ni,
                      ", and NT = ", dataset.nt)});
  if (any_negative(y.flat))
    return fail(err, here, {text("One or more values in the y array"), text("was negative.")});
  const misfit of_class = first_misfit(y, 1, dataset.nci, [&](int32 j) { return dataset.nrc(j); });
  if (of_class.row > 0)
    return refuse_misfit(of_class, " is inconsistent with nrc; the value was ", here, err);
  const misfit of_status = first_misfit(y, dataset.nci + 1, columns, [&](int32 j) {
    return dataset.nrs((j - dataset.nci - 1) % dataset.ni + 1);
  });
  if (of_status.row > 0)
    return refuse_misfit(of_status, " is inconsistent with nrs; the value was ", here, err);
  return 0;
}

/// Moves a matrix behind a shared pointer; lack of memory leaves it where it is.
template <class T>
int32 share(array<T, 2>& from, std::shared_ptr<const array<T, 2>>& to, std::string_view label,
            const routine& here, error_type& err) {
  try {
    auto holder = std::make_shared<array<T, 2>>();
    *holder = std::move(from);
    to = std::move(holder);
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation, {text(label)});
  }
  return 0;
}

/// What was given case by case no longer fits another number of cases.
void drop_case_values(dataset_type& dataset) {
  for (auto* values : {&dataset.freq, &dataset.weight, &dataset.clustercounts_subjects})
    values->release();
  dataset.clusters.release();
  dataset.clustercounts_kases.release();
  dataset.cov.reset();
  dataset.freq_set = dataset.weight_set = dataset.cluster_set = false;
}

int32 keep_y(array<int32, 2>& y, dataset_type& dataset, const routine& here, error_type& err) {
  array<int32, 1> strata;
  const int32 nkase = y.n[0];
  if (fields::allocate(strata, {nkase}, "put_y: dataset%strata", here, err) != 0 ||
      share(y, dataset.y, "put_y: dataset%y", here, err) != 0)
    return -1;
  std::fill(strata.flat.begin(), strata.flat.end(), 1);
  dataset.strata = std::move(strata);
  if (nkase != dataset.nkase) drop_case_values(dataset);
  dataset.nkase = nkase;
  dataset.y_set = true;
  dataset.rows.reset();
  return 0;
}

/// The checks that frequencies and weights have in common.
int32 check_case_values(const array<double, 1>& values, std::string_view has,
                        const dataset_type& dataset, const routine& here, error_type& err) {
  if (require_items(dataset, here, err) != 0 || require_y(dataset, here, err) != 0) return -1;
  if (values.n[0] != dataset.nkase)
    return fail(err, here,
                {text(has, values.n[0], " elements."),
                 text("This must match y which has ", dataset.nkase, " cases.")});
  return 0;
}

bool positive_and_finite(double value) { return value > 0.0 && std::isfinite(value); }

int32 check_cov(const array<double, 2>& cov, const dataset_type& dataset, const routine& here,
                error_type& err) {
  if (require_items(dataset, here, err) != 0 || require_y(dataset, here, err) != 0) return -1;
  const int32 columns = covariate_columns(dataset);
  if (cov.n[1] != columns)
    return fail(err, here,
                {text("The cov array has ", cov.n[1], " columns."),
                 text("This must equal ncov + ncov_delta + ncov_tau*(nt-1) = ", columns)});
  if (cov.n[0] != dataset.nkase)
    return fail(err, here,
                {text("The cov array has ", cov.n[0], " cases."),
                 text("This must match y which has ", dataset.nkase, " cases.")});
  if (!std::all_of(cov.flat.begin(), cov.flat.end(), [](double v) { return std::isfinite(v); }))
    return fail(err, here,
                {text("One or more values in the cov array"), text("was not a finite number.")});
  return 0;
}

void write_cov_names(const dataset_type& dataset, array<name8, 1>& names) {
  int32 column = 0;
  const auto write = [&](std::string_view prefix, int32 count) {
    for (int32 k = 1; k <= count; ++k) names(++column) = fields::numbered(prefix, k, 2);
  };
  write("COV_", dataset.ncov);
  write("COV1_", dataset.ncov_delta);
  for (int32 t = 1; t < dataset.nt; ++t) write("COV2_", dataset.ncov_tau);
}

int32 keep_cov(array<double, 2>& cov, dataset_type& dataset, const routine& here, error_type& err) {
  array<name8, 1> names;
  if (fields::allocate(names, {cov.n[1]}, "put_cov: dataset%cov_names", here, err) != 0 ||
      share(cov, dataset.cov, "put_cov: dataset%cov", here, err) != 0)
    return -1;
  write_cov_names(dataset, names);
  dataset.cov_names = std::move(names);
  dataset.rows.reset();
  return 0;
}

/// Sums of the frequencies by cluster, in ascending order of the identifiers.
int32 count_cluster_subjects(const array<double, 1>& freq, const array<int32, 1>& clusters,
                             array<double, 1>& subjects, const routine& here, error_type& err) {
  return allocation::allocate_under("put_freq: dataset%clustercounts_subjects", here, err, [&] {
    std::map<int32, double> sums;
    for (int32 k = 1; k <= freq.n[0]; ++k) sums[clusters(k)] += freq(k);
    subjects.allocate({static_cast<int32>(sums.size())});
    std::transform(sums.begin(), sums.end(), subjects.flat.begin(),
                   [](const auto& cluster) { return cluster.second; });
  });
}

}  // namespace

int32 put_y(array<int32, 2>&& y, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_y", "dataset"};
  if (check_y(y, dataset, here, err) != 0) return -1;
  return keep_y(y, dataset, here, err);
}

int32 put_y(const array<int32, 2>& y, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_y", "dataset"};
  array<int32, 2> copy;
  if (check_y(y, dataset, here, err) != 0 ||
      fields::store(y, copy, "put_y: dataset%y", here, err) != 0)
    return -1;
  return keep_y(copy, dataset, here, err);
}

int32 put_strata(const array<int32, 1>& strata, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_strata", "dataset"};
  if (require_items(dataset, here, err) != 0) return -1;
  if (strata.n[0] != dataset.nkase)
    return fail(err, here,
                {text("The strata array has ", strata.n[0], " rows, and must have ", dataset.nkase,
                      " to be consistent with y.")});
  const auto range = fields::range_of(strata.flat);
  if (strata.n[0] > 0 && (range.smallest < 1 || range.largest > dataset.nstr))
    return fail(err, here,
                {text("The range of values in the strata array is ", range.smallest, " through ",
                      range.largest),
                 text("The acceptable range is 1 through ", dataset.nstr,
                      ", the specified value of nstr.")});
  if (fields::store(strata, dataset.strata, "put_strata: dataset%strata", here, err) != 0)
    return -1;
  dataset.rows.reset();
  return 0;
}

int32 put_freq(const array<double, 1>& freq, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_freq", "dataset"};
  if (check_case_values(freq, "The freq array has ", dataset, here, err) != 0) return -1;
  const auto bad = std::find_if_not(freq.flat.begin(), freq.flat.end(), positive_and_finite);
  if (bad != freq.flat.end())
    return fail(err, here,
                {text("Element ", bad - freq.flat.begin() + 1),
                 text("of the freq array is zero or negative. ")});
  if (dataset.weight_set)
    return fail(err, here,
                {text("The frequency property cannot be set after the weight property is set.")});
  array<double, 1> subjects;
  if ((dataset.cluster_set &&
       count_cluster_subjects(freq, dataset.clusters, subjects, here, err) != 0) ||
      fields::store(freq, dataset.freq, "put_freq: dataset%freq", here, err) != 0)
    return -1;
  if (dataset.cluster_set) dataset.clustercounts_subjects = std::move(subjects);
  dataset.freq_set = true;
  dataset.rows.reset();
  return 0;
}

int32 put_weight(const array<double, 1>& weight, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_weight", "dataset"};
  if (check_case_values(weight, "The weight array has ", dataset, here, err) != 0) return -1;
  if (!std::all_of(weight.flat.begin(), weight.flat.end(), positive_and_finite))
    return fail(err, here, {text("At least one of the weights is zero or negative. ")});
  if (fields::store(weight, dataset.weight, "put_weight: dataset%weight", here, err) != 0)
    return -1;
  dataset.weight_set = true;
  dataset.rows.reset();
  return 0;
}

int32 put_cov(array<double, 2>&& cov, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_cov", "dataset"};
  if (check_cov(cov, dataset, here, err) != 0) return -1;
  return keep_cov(cov, dataset, here, err);
}

int32 put_cov(const array<double, 2>& cov, dataset_type& dataset, error_type& err) {
  constexpr routine here{"put_cov", "dataset"};
  array<double, 2> copy;
  if (check_cov(cov, dataset, here, err) != 0 ||
      fields::store(cov, copy, "put_cov: dataset%cov", here, err) != 0)
    return -1;
  return keep_cov(copy, dataset, here, err);
}

int32 get_y(const dataset_type& dataset, array<int32, 2>& y, error_type& err) {
  const array<int32, 2> absent;
  return get_array(dataset.y ? *dataset.y : absent, y, {"get_y", "dataset"}, err);
}
int32 get_cov(const dataset_type& dataset, array<double, 2>& cov, error_type& err) {
  const array<double, 2> absent;
  return get_array(dataset.cov ? *dataset.cov : absent, cov, {"get_cov", "dataset"}, err);
}
int32 get_strata(const dataset_type& dataset, array<int32, 1>& strata, error_type& err) {
  return get_array(dataset.strata, strata, {"get_strata", "dataset"}, err);
}
int32 get_freq(const dataset_type& dataset, array<double, 1>& freq, error_type& err) {
  return get_array(dataset.freq, freq, {"get_freq", "dataset"}, err);
}
int32 get_weight(const dataset_type& dataset, array<double, 1>& weight, error_type& err) {
  return get_array(dataset.weight, weight, {"get_weight", "dataset"}, err);
}

int32 get_combined_weight(const dataset_type& dataset, array<double, 1>& combined_weight,
                          error_type& err) {
  constexpr routine here{"get_combined_weight", "dataset"};
  if (!dataset.y_set) return fail(err, here, {text("The y array has not yet been specified.")});
  if (fields::allocate(combined_weight, {dataset.nkase}, "get_weight: combined_weight", here,
                       err) != 0)
    return -1;
  for (int32 k = 1; k <= dataset.nkase; ++k)
    combined_weight(k) =
        (dataset.freq_set ? dataset.freq(k) : 1.0) * (dataset.weight_set ? dataset.weight(k) : 1.0);
  return 0;
}

}  // namespace tolvenra::dataset
