/// \file augmentation_labels.hpp  Labels of classes and statuses across imputations, module
/// `estimation`.
///
/// The likelihood of a mixture does not change when its classes exchange their numbers, and a chain
/// may do so. The draws of an imputation are given the labels of the starting parameters by the
/// assignment that agrees best with the posterior probabilities at these. Labels that restrictions
/// or priors tell apart are left alone.
/// Source: Stephens (2000), JRSS B 62, 795-809; Kuhn (1955), Naval Research Logistics Quarterly 2,
/// 83-97.
#pragma once

#include "core/array.hpp"
#include "core/types.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// What each drawn label stands for.
struct label_map {
  array<int32, 2> cls;  ///< (nc, nstr) label of a drawn class
  array<int32, 4> sta;  ///< (ns, nt, nc, nstr) label of a drawn status; the class is a label
};

/// Which labels may be exchanged, and whether in each stratum, time or class on its own.
struct label_freedom {
  bool classes = false, statuses = false;
  bool classes_by_stratum = false;
  bool statuses_by_time = false, statuses_by_class = false, statuses_by_stratum = false;
};

/// \throws std::bad_alloc
label_freedom freedom_of_labels(const mlworkspace& work);

/// Every label stands for itself. \throws std::bad_alloc
label_map own_labels(const mlworkspace& work);

/// Agreement of drawn labels with the posterior probabilities at the starting parameters, summed
/// over subjects.
struct label_agreement {
  array<double, 3> cls;  ///< (drawn class, class, nstr)
  array<double, 5> sta;  ///< (drawn status, status, nt, nc as labelled, nstr)
};

/// The best assignment of classes, and of statuses when these may be exchanged.
/// \throws std::bad_alloc
void match_classes(const label_freedom& free, const array<double, 3>& agreement, label_map& map);
void match_statuses(const label_freedom& free, const array<double, 5>& agreement, label_map& map);

// Parameters or counts under the labels of `map`. \throws std::bad_alloc
array<double, 2> relabelled_gamma(const label_map& map, const array<double, 2>& from);
array<double, 4> relabelled_rho(const label_map& map, const array<double, 4>& from);
array<double, 3> relabelled_delta(const label_map& map, const array<double, 3>& from);
array<double, 5> relabelled_tau(const label_map& map, const array<double, 5>& from);
array<double, 6> relabelled_big_rho(const label_map& map, const array<double, 6>& from);

}  // namespace tolvenra::estimation
