/// \file row_recursion.hpp  The forward-backward recursion of a single row, module `estimation`.
///
/// The E-step sums over all rows at once; what is wanted row by row (posteriors of statuses and
/// transitions, expected counts of patterns, sampled status sequences) comes from here. Reads the
/// tables that the E-step filled last.
#pragma once

#include <span>
#include <vector>

#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

class row_recursion {
 public:
  /// \param paths  size of what `add_paths` and `sum_over_paths` will be given
  explicit row_recursion(const mlworkspace& work, std::size_t paths = 0);

  /// Unit whose probabilities a row has (0-based): its stratum, or its covariate pattern when
  /// initial statuses or transitions have covariates.
  [[nodiscard]] int32 unit_of(int32 row) const;

  /// Forward pass of a distinct row (1-based) given class c (1-based).
  /// \param unit  see unit_of
  /// \return the likelihood of the row's waves; below the smallest normal number nothing else holds
  double filter(int32 row, int32 c, int32 unit);
  /// The same from a mixture of units that differ in their initial statuses alone.
  /// \param initial  (ns) weights of the initial statuses, of any sum
  double filter_from(const double* initial, int32 row, int32 c);
  /// Probability of status s at time t (0-based) given the responses up to t.
  [[nodiscard]] double filtered(int32 t, int32 s) const { return forward_[cell(t, s)]; }
  /// Transition probability of the filtered row from s to d after time k (all 0-based).
  [[nodiscard]] double transition(int32 k, int32 s, int32 d) const;

  /// Backward pass after `filter`.
  void smooth();
  /// Probability of status s at time t given all responses.
  [[nodiscard]] double status(int32 t, int32 s) const {
    return forward_[cell(t, s)] * backward_[cell(t, s)];
  }
  /// Probability of s at time k and d at the next.
  [[nodiscard]] double move(int32 k, int32 s, int32 d) const {
    return forward_[cell(k, s)] * transition(k, s, d) * emission_[cell(k + 1, d)] *
           scale_[static_cast<std::size_t>(k + 1)] * backward_[cell(k + 1, d)];
  }

  /// Adds to `paths` (ns^nt, the last time fastest) `factor` times the probability of every status
  /// sequence of a unit given class c. \param stratum  of the unit, 1-based
  void add_paths(int32 stratum, int32 c, int32 unit, double factor, std::span<double> paths);
  /// Likelihood of a row's waves given class c when the status sequences have these weights.
  double sum_over_paths(int32 row, int32 c, std::span<const double> paths);

 private:
  /// Unit of the initial probabilities; that of the transitions is kept.
  int32 choose_units(int32 stratum, int32 c, int32 unit);
  [[nodiscard]] std::size_t cell(int32 t, int32 s) const {
    return static_cast<std::size_t>(t) * static_cast<std::size_t>(ns_) +
           static_cast<std::size_t>(s);
  }
  void evaluate_waves(int32 row, int32 c);
  double filter_from(const double* initial, int32 row);

  const mlworkspace& work_;
  int32 ns_, nt_;
  int32 class_ = 0, tau_unit_ = 0;
  std::vector<double> emission_, forward_, backward_, scale_, paths_;
};

/// Stratum of a distinct row, both 1-based.
int32 stratum_of(const distinct_rows& rows, int32 row);

/// Posteriors of all distinct rows at the estimates of the last E-step, which must have kept the
/// class posteriors.
/// \param[out] sta  nrow records of (nc, nt, ns)
/// \param[out] adj  nrow records of (nc, ns, ns, nt-1)
void status_posteriors(const mlworkspace& work, std::vector<double>& sta, std::vector<double>& adj);

/// Entropy of the status posteriors summed over the times, each row counted by its weight.
double status_entropy(const mlworkspace& work);

}  // namespace tolvenra::estimation
