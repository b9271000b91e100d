/// \file augmentation_steps.hpp  One cycle of data augmentation: the work record, the I-step, the
/// P-steps and the estimates of an imputation, module `estimation`.
#pragma once

#include <memory>
#include <vector>

#include "estimation/augmentation.hpp"
#include "estimation/augmentation_labels.hpp"
#include "estimation/mlworkspace.hpp"
#include "estimation/row_recursion.hpp"
#include "estimation/row_sampler.hpp"
#include "estimation/status_path.hpp"
#include "numerics/random_generator.hpp"

namespace tolvenra {

/// A family of probability vectors in the chain.
template <std::size_t R>
struct da_family {
  estimation::row_sampler sampler;
  array<double, R> count;        ///< imputed counts, weighted, labels as drawn
  std::vector<double> eff_n, n;  ///< behind the estimates, imputation after imputation
};

/// The current imputations and what the cycles need. Subjects as in `daresult`.
struct dawork {
  array<int32, 1> imputed_cls;  ///< (subjects)
  array<int32, 2> imputed_sta;  ///< (subjects, nt)
  array<int32, 2> ciy_imp;      ///< (subjects, nci); absent without missing responses
  array<int32, 3> siy_imp;      ///< (subjects, ni, nt); likewise
  array<int32, 2> imputed_cls_save;
  array<int32, 3> imputed_sta_save;
  array<int32, 3> ciy_imp_save;
  array<int32, 4> siy_imp_save;

  std::vector<int32> kase;     ///< case of each subject, 1-based
  std::vector<int32> stratum;  ///< of each subject
  std::vector<double> weight;  ///< of each subject, scaled; empty: all 1
  ran_state_type random;
  da_family<2> gamma;
  da_family<4> rho;
  da_family<3> delta;
  da_family<5> tau;
  da_family<6> big_rho;
  std::unique_ptr<estimation::row_recursion> recursion;  ///< of one row; null without status items
  estimation::status_path path;
  estimation::label_freedom freedom;
  estimation::label_map labels;  ///< of the imputation saved last
  std::vector<double> ml_cls;  ///< class probabilities at the starting parameters, by distinct row
  std::vector<double> ml_cls_sta;  ///< and those of classes and statuses, (nc, nt, ns) by row
  estimation::label_agreement agreement;
  estimation::row_estimates estimates;
};

namespace estimation {

int32 nullify_daworkspace(dawork& work, error_type& err);

/// Draws classes, statuses and missing responses of all subjects, in their order, and counts them:
/// per subject the class, its statuses, then its items. Reads the posteriors of an E-step.
/// \param imputation  that the cycle leads to, for the report
int32 istep(const mlworkspace& work, dawork& da, int32 imputation, error_type& err);

// Draw the parameters of a family given the imputed counts.
int32 pstep_rho(mlworkspace& work, dawork& da, error_type& err);
int32 pstep_big_rho(mlworkspace& work, dawork& da, error_type& err);
int32 pstep_gamma(mlworkspace& work, dawork& da, error_type& err);
int32 pstep_delta(mlworkspace& work, dawork& da, error_type& err);
int32 pstep_tau(mlworkspace& work, dawork& da, error_type& err);

/// Finds the labels of the current imputation and stores them with the draws.
int32 track_labels(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                   error_type& err);

// Store estimates and within-imputation variances of the current imputation; rho and big_rho
// together.
int32 per_imputation_gamma(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                           error_type& err);
int32 per_imputation_rho(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                         error_type& err);
int32 per_imputation_delta(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                           error_type& err);
int32 per_imputation_tau(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                         error_type& err);

}  // namespace estimation
}  // namespace tolvenra
