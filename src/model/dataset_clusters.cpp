// Clusters of cases, for the variance estimates of clustered data.
#include "model/dataset_checks.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::dataset {

int32 put_cluster_information(const array<int32, 1>& clusters, dataset_type& dataset,
                              error_type& err) {
  constexpr routine here{"put_cluster_information", "dataset"};
  if (require_items(dataset, here, err) != 0) return -1;
  if (clusters.n[0] != dataset.nkase)
    return fail(err, here,
                {text("The clusters array has ", clusters.n[0], " rows, and must have ",
                      dataset.nkase, " to be consistent with y.")});
  const int32 smallest = fields::range_of(clusters.flat).smallest;
  if (smallest < 1)
    return fail(err, here,
                {text("The minimum value in the clusters array is ", smallest,
                      " It should be a positive whole number.")});

  array<int32, 1> clusters_local, unique, kept, kases;
  array<double, 1> subjects;
  if (fields::allocate(clusters_local, clusters.n, "put_cluster_information: clusters_local", here,
                       err) != 0)
    return -1;
  if (matrix_methods::recode_integers(clusters, clusters_local, unique, err) != 0)
    return fail(err, here, {text("put_cluster_information: unique")});  // no memory for the list
  if (fields::store(clusters, kept, "put_cluster_information: dataset%clusters", here, err) != 0 ||
      fields::allocate(kases, unique.n, "put_cluster_information: dataset%clustercounts_kases",
                       here, err) != 0 ||
      fields::allocate(subjects, unique.n,
                       "put_cluster_information: dataset%clustercounts_subjects", here, err) != 0)
    return -1;
  const bool weighted = dataset.freq_set && dataset.freq.n[0] == dataset.nkase;
  for (int32 k = 1; k <= dataset.nkase; ++k) {
    const int32 g = clusters_local(k);
    ++kases(g);
    subjects(g) += weighted ? dataset.freq(k) : 1.0;
  }
  dataset.clusters = std::move(kept);
  dataset.clustercounts_kases = std::move(kases);
  dataset.clustercounts_subjects = std::move(subjects);
  dataset.cluster_set = true;
  dataset.rows.reset();
  return 0;
}

int32 get_cluster_information(const dataset_type& dataset, cluster_summary& summary,
                              error_type& err, array<int32, 1>* clusters, array<int32, 1>* kases) {
  constexpr routine here{"get_cluster_information", "dataset"};
  if (require_items(dataset, here, err) != 0) return -1;
  if (!dataset.cluster_set)
    return fail(err, here, {text("There is no cluster information for this dataset.")});
  if ((clusters && fields::store(dataset.clusters, *clusters, "get_cluster_information: clusters",
                                 here, err) != 0) ||
      (kases && fields::store(dataset.clustercounts_kases, *kases,
                              "get_cluster_information: clustercounts_kases", here, err) != 0))
    return -1;
  const auto& subjects = dataset.clustercounts_subjects.flat;
  const auto [smallest, largest] = std::minmax_element(subjects.begin(), subjects.end());
  summary = {static_cast<int32>(subjects.size()), *smallest, *largest};
  return 0;
}

}  // namespace tolvenra::dataset
