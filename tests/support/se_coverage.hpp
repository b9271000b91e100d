/// \file se_coverage.hpp  How often do intervals of 1.96 standard errors on either side cover the
/// true values? Simulated data of 1,000 cases, three well-separated classes and six items (four of
/// two categories, two of three).
#pragma once

#include <string>
#include <vector>

#include "support/lca_problem.hpp"

namespace tolvenra::test {

enum class coverage_design {
  independent,  ///< cases drawn one by one
  covariates,   ///< membership depends on a continuous and a dichotomous covariate
  clusters      ///< 100 clusters of 10; membership and responses correlate within them
};

/// Correlation of class indicators, and of the responses of one class to one item, in a cluster.
inline constexpr double intra_cluster_correlation = 0.2;

/// The parameters of one kind: how many of the data sets' intervals held the true value.
struct covered_kind {
  std::vector<std::string> names;
  std::vector<int> covered;

  [[nodiscard]] double least(int sets) const;
  [[nodiscard]] double most(int sets) const;
  [[nodiscard]] double mean(int sets) const;
};

struct se_coverage {
  covered_kind gamma, rho, beta;  ///< shares and response probabilities on the logit scale
  int sets = 0;
  int failed = 0;       ///< data sets without a converged fit or without standard errors
  int at_boundary = 0;  ///< parameters without an interval; they count as not covered

  /// Simulates a data set, fits it from five random starts and compares with the truth, classes
  /// matched by their response probabilities.
  /// \param respect_clusters  hands the clusters to the engine
  void add(coverage_design design, unsigned seed, bool respect_clusters);
};

}  // namespace tolvenra::test
