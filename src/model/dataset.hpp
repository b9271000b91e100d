/// \file dataset.hpp  The observed data of one run, module `dataset`.
///
/// Two kinds of items: categorical items (nci, categories nrc) are measured once; status items (ni,
/// categories nrs) at each of nt times. Every put_ routine checks its argument against what is
/// stored already and leaves the record alone when it fails; put_nrc, put_nrs and put_nt drop the
/// cases first. Each routine returns 0, or -1 with its report; a get_ routine allocates its result.
///
/// Usual order: put_nrc and/or put_nrs, put_nt, put_y; then put_nstr before put_strata, put_freq
/// before put_weight, the covariate counts before put_cov; names; cluster information.
#pragma once

#include <memory>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "core/types.hpp"

namespace tolvenra {

struct distinct_rows;  // of the estimation layer

/// The large matrices are immutable and shared by copies of the record.
struct dataset_type {
  bool not_ready = true;  ///< until put_nrc or put_nrs has succeeded
  int32 nkase = 0;        ///< number of cases, rows of y
  int32 nci = 0, ni = 0, nt = 0;
  int32 nrcmax = 0, nrsmax = 0;                  ///< largest nrc, nrs; 0 without items
  int32 ncov = 0, ncov_delta = 0, ncov_tau = 0;  ///< covariates; ncov_tau for each transition
  int32 nstr = 0;                                ///< strata; 1 after put_nt
  bool freq_set = false, weight_set = false, y_set = false, cluster_set = false;
  array<int32, 1> nrc, nrs;                  ///< (nci), (ni) response categories, 0..999
  std::shared_ptr<const array<int32, 2>> y;  ///< (nkase, nci + ni*nt), 0 missing; items, then times
  array<int32, 1> strata;                    ///< (nkase) 1..nstr
  array<int32, 1> clustercounts_kases;       ///< (clusters) cases, ascending by identifier
  array<double, 1> clustercounts_subjects;   ///< (clusters) sum of the frequencies
  array<double, 1> freq, weight;             ///< (nkase) positive, finite
  std::shared_ptr<const array<double, 2>> cov;  ///< (nkase, ncov + ncov_delta + ncov_tau*(nt-1))
  array<int32, 1> clusters;                     ///< (nkase) identifiers as given, positive
  array<name8, 1> citem_names, sitem_names;     ///< (nci), (ni)
  array<name8, 2> citem_levels, sitem_levels;   ///< (nci, nrcmax), (ni, nrsmax)
  array<name8, 1> cov_names;                    ///< (covariate columns)
  array<name8, 1> strata_levels;                ///< (nstr)
  name8 strata_name{' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};

  /// The cases collapsed, made on first use by the estimation layer; dropped when data change.
  mutable std::shared_ptr<const distinct_rows> rows;
};

namespace dataset {

int32 nullify_dataset(dataset_type& dataset, error_type& err);
/// Drops the cases and what was given with them; keeps nrc, nrs, nt and the names.
int32 partially_nullify_dataset(dataset_type& dataset, error_type& err);

int32 put_nrc(const array<int32, 1>& nrc, dataset_type& dataset, error_type& err);
int32 put_nrs(const array<int32, 1>& nrs, dataset_type& dataset, error_type& err);
int32 put_nt(int32 nt, dataset_type& dataset, error_type& err);
/// A matrix that is moved in is not copied; one that is refused stays with the caller.
int32 put_y(array<int32, 2>&& y, dataset_type& dataset, error_type& err);
int32 put_y(const array<int32, 2>& y, dataset_type& dataset, error_type& err);
int32 put_nstr(int32 nstr, dataset_type& dataset, error_type& err);
int32 put_strata(const array<int32, 1>& strata, dataset_type& dataset, error_type& err);
int32 put_freq(const array<double, 1>& freq, dataset_type& dataset, error_type& err);
int32 put_weight(const array<double, 1>& weight, dataset_type& dataset, error_type& err);
int32 put_ncov(int32 ncov, dataset_type& dataset, error_type& err);
int32 put_ncov_delta(int32 ncov_delta, dataset_type& dataset, error_type& err);
int32 put_ncov_tau(int32 ncov_tau, dataset_type& dataset, error_type& err);
int32 put_cov(array<double, 2>&& cov, dataset_type& dataset, error_type& err);
int32 put_cov(const array<double, 2>& cov, dataset_type& dataset, error_type& err);

int32 get_nrc(const dataset_type& dataset, array<int32, 1>& nrc, error_type& err);
int32 get_nrs(const dataset_type& dataset, array<int32, 1>& nrs, error_type& err);
int32 get_y(const dataset_type& dataset, array<int32, 2>& y, error_type& err);
int32 get_strata(const dataset_type& dataset, array<int32, 1>& strata, error_type& err);
int32 get_freq(const dataset_type& dataset, array<double, 1>& freq, error_type& err);
int32 get_weight(const dataset_type& dataset, array<double, 1>& weight, error_type& err);
/// Frequency times weight of every case; what was not given counts as 1.
int32 get_combined_weight(const dataset_type& dataset, array<double, 1>& combined_weight,
                          error_type& err);
int32 get_cov(const dataset_type& dataset, array<double, 2>& cov, error_type& err);

/// The stored matrices themselves, shared; null when absent.
inline std::shared_ptr<const array<int32, 2>> share_y(const dataset_type& dataset) {
  return dataset.y;
}
inline std::shared_ptr<const array<double, 2>> share_cov(const dataset_type& dataset) {
  return dataset.cov;
}

// Display names, 8 characters each; defaults are written when the counts are set.
int32 put_citem_names(const array<name8, 1>& names, dataset_type& dataset, error_type& err);
int32 put_sitem_names(const array<name8, 1>& names, dataset_type& dataset, error_type& err);
int32 put_cov_names(const array<name8, 1>& names, dataset_type& dataset, error_type& err);
int32 put_strata_levels(const array<name8, 1>& levels, dataset_type& dataset, error_type& err);
int32 put_citem_levels(const array<name8, 2>& levels, dataset_type& dataset, error_type& err);
int32 put_sitem_levels(const array<name8, 2>& levels, dataset_type& dataset, error_type& err);
int32 put_strata_name(const name8& name, dataset_type& dataset, error_type& err);
int32 get_citem_names(const dataset_type& dataset, array<name8, 1>& names, error_type& err);
int32 get_sitem_names(const dataset_type& dataset, array<name8, 1>& names, error_type& err);
int32 get_cov_names(const dataset_type& dataset, array<name8, 1>& names, error_type& err);
int32 get_strata_levels(const dataset_type& dataset, array<name8, 1>& levels, error_type& err);
int32 get_citem_levels(const dataset_type& dataset, array<name8, 2>& levels, error_type& err);
int32 get_sitem_levels(const dataset_type& dataset, array<name8, 2>& levels, error_type& err);

/// Distinct clusters with the extremes of their numbers of subjects.
struct cluster_summary {
  int32 count = 0;
  double smallest = 0.0, largest = 0.0;
};

/// One positive identifier per case; counts cases and (frequency-weighted) subjects per cluster.
int32 put_cluster_information(const array<int32, 1>& clusters, dataset_type& dataset,
                              error_type& err);
/// \param clusters, kases  copies of the identifiers and of the cases per cluster where wanted
int32 get_cluster_information(const dataset_type& dataset, cluster_summary& summary,
                              error_type& err, array<int32, 1>* clusters = nullptr,
                              array<int32, 1>* kases = nullptr);

}  // namespace dataset
}  // namespace tolvenra
