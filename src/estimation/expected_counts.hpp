/// \file expected_counts.hpp  Expected counts of response patterns under the latent class model.
#pragma once

#include <vector>

#include "estimation/mlworkspace.hpp"
#include "estimation/stage_watch.hpp"

namespace tolvenra::estimation {

/// Expected counts, missingness pattern by missingness pattern, with one bound on the work of all.
class expected_counter {
 public:
  expected_counter(const mlworkspace& work, bool wanted, stage_watch& watch)
      : work_(work), wanted_(wanted), watch_(watch) {}

  /// Expected count of every response pattern of one missingness pattern: the number of cases that
  /// show the missingness pattern times the model's probability of the responses. Under regressions
  /// on covariates the probability is averaged over these cases, so that missingness may depend on
  /// the covariates. The work is linear in the cases wherever the model allows it: covariates of
  /// classes and initial statuses are averaged first, those of transitions while the status
  /// sequences are few.
  /// \param rows   for each response pattern a distinct row that shows it; all of one stratum
  /// \param total  cases with the missingness pattern
  /// \return NaN where not wanted, after the host cancelled, and where it would take too long
  std::vector<double> operator()(const std::vector<int32>& rows, double total);

 private:
  struct pattern_share {
    int32 pattern;  ///< of covariates, 0-based
    double share;   ///< of the cases
  };

  [[nodiscard]] std::vector<pattern_share> shares(const std::vector<int32>& rows,
                                                  double total) const;
  [[nodiscard]] const double* prevalence(int32 stratum, int32 pattern) const;
  [[nodiscard]] bool afford(double products);
  template <class Likelihood>
  bool fill(const std::vector<int32>& rows, double products, std::size_t paths,
            std::vector<double>& expected, Likelihood&& of_row);

  bool average_classes(const std::vector<int32>& rows, const std::vector<pattern_share>& mix,
                       std::vector<double>& expected);
  bool average_initial(const std::vector<int32>& rows, const std::vector<pattern_share>& mix,
                       std::vector<double>& expected);
  bool average_moves(const std::vector<int32>& rows, const std::vector<pattern_share>& mix,
                     std::vector<double>& expected);
  bool average_paths(const std::vector<int32>& rows, const std::vector<pattern_share>& mix,
                     std::vector<double>& expected);
  bool add_pairs(const std::vector<int32>& rows, const std::vector<pattern_share>& mix,
                 std::vector<double>& expected);
  [[nodiscard]] double class_items(int32 row, int32 stratum, int32 c) const;

  static constexpr double most_paths = 1 << 20;  ///< of a vector that is kept for every thread

  const mlworkspace& work_;
  bool wanted_;
  stage_watch& watch_;
  double products_left_ = 2e9;  ///< some seconds on one thread
};

}  // namespace tolvenra::estimation
