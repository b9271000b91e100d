/// \file row_scores.hpp  The score of one distinct row, module `estimation`.
///
/// With posterior p_c, class probability gamma_c and design x of the row the score of the complete
/// data given class c is
///   coefficients of class k    x (1[c = k] - gamma_k)
///   share logit of class l     1[c in F] (1[c = l] - pi_l), F the classes that the shares pi
///                              divide
///   response r of item j       1[y_j = r] - rho_jcr where j was answered, else 0, of class c only
/// and the row's score is its mean under the posterior.
#pragma once

#include <vector>

#include "core/types.hpp"
#include "estimation/free_parameters.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// The designs with centred and scaled covariates: rounding and the test for singularity then do
/// not depend on their units. With x_j = mean_j + scale_j z_j the coefficients of z are
/// scale_j beta_j and, for the intercept, beta_0 + sum_j mean_j beta_j.
struct scaled_design {
  int32 columns = 0;
  std::vector<double> z;            ///< by covariate pattern, `columns` apart, the first of them 1
  std::vector<double> mean, scale;  ///< by stratum, `columns` apart; 0 and 1 for the intercept
};

/// As the regressions have them, row by row. \throws std::bad_alloc
scaled_design scale_covariates(const mlworkspace& work, int32 columns);

/// Shares of the classes among those that the share logits of a stratum divide; 0 elsewhere.
struct class_shares {
  std::vector<double> pi;  ///< (nc)
  double total = 0.0;      ///< what gamma leaves to them without covariates, else 1
};
class_shares shares_of(const mlworkspace& work, int32 g);

/// What the rows of one stratum have in common; rows are evaluated into vectors of the caller.
class row_scores {
 public:
  /// \throws std::bad_alloc
  row_scores(const mlworkspace& work, const free_parameters& map, const scaled_design& design,
             int32 g);

  /// Posterior of row `row` (1-based).
  void posterior(int32 row, double* p) const;
  /// Complete-data score given class c (1-based): membership block, then responses of the class.
  void given_class(int32 row, int32 c, double* z) const;
  /// Score of the row in its stratum's logits. \param z  work, one vector of `given_class`
  void total(int32 row, const double* p, double* z, double* score) const;
  [[nodiscard]] std::size_t class_length() const { return membership_ + responses_; }

 private:
  const mlworkspace& work_;
  const free_parameters& map_;
  const scaled_design& design_;
  int32 g_, copy_;
  std::size_t membership_, responses_;
  class_shares shares_;
  std::vector<double> likely_;  ///< rho of the categories but the reference, class by class
};

}  // namespace tolvenra::estimation
