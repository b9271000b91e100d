/// \file augmentation.hpp  Data augmentation and multiple imputation, module `estimation`.
///
/// A Markov chain over what was not observed: the I-step draws every subject's class, its sequence
/// of statuses and its missing responses given the parameters; the P-step draws the parameters from
/// their Dirichlet posteriors given these. After a burn-in every so many cycles one imputation is
/// kept, with the complete-data estimates and variances it leads to, and the imputations are
/// combined by Rubin's rules on the probability and on the logit scale.
///
/// The estimate kept is that of the completed data, (count + prior count) / (total + prior total),
/// and not the parameter that the P-step draws, which would count the posterior's spread twice.
/// Labels of classes and statuses, which a chain may exchange on its way, are those of the
/// parameters it started from.
/// Source: Tanner & Wong (1987), JASA 82, 528-540; Rubin (1987), Multiple Imputation for
/// Nonresponse in Surveys; Schafer (1997), Analysis of Incomplete Multivariate Data.
#pragma once

#include <optional>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/em.hpp"
#include "estimation/mlresult.hpp"
#include "model/dataset.hpp"
#include "model/model.hpp"
#include "model/param.hpp"

namespace tolvenra {

/// Estimates of one parameter array on one scale. The arrays have the parameter's own dimensions;
/// `imp` and `var_imp` one more over the imputations.
template <std::size_t R>
struct daparam {
  array<double, R + 1> imp;       ///< estimate of each imputation
  array<double, R> eff_n;         ///< cases and prior cases behind it, mean over the imputations
  array<double, R + 1> var_imp;   ///< within-imputation variance
  array<double, R> qbar;          ///< mean of the estimates
  array<double, R> ubar;          ///< mean of the within-imputation variances
  array<double, R> bi_var;        ///< between-imputation variance
  array<double, R> var;           ///< total variance
  array<double, R> std_err;       ///< its square root
  array<double, R> df;            ///< of the t reference distribution, at most 1e10
  array<double, R> hi_ci, lo_ci;  ///< two-sided 90 % interval
};

/// Imputations are numbered by the last index. Subjects are the cases, a case of frequency f
/// counting as f subjects one after another.
struct daresult {
  bool obtained = false;
  int32 imputations = 0;
  daparam<2> gamma, logit_gamma;
  daparam<4> rho, logit_rho;
  daparam<3> delta, logit_delta;
  daparam<5> tau, logit_tau;
  daparam<6> big_rho, logit_big_rho;
  array<int32, 3> class_label_tracking;        ///< (nc, nstr, m) label that a drawn class was given
  array<int32, 5> status_label_tracking;       ///< (ns, nt, nc, nstr, m) the same within that label
  array<int32, 2> class_label_tracking_kase;   ///< (subjects, m) drawn classes, relabelled
  array<int32, 3> status_label_tracking_kase;  ///< (subjects, nt, m)
  array<int32, 3> ciy_imp_save;      ///< (subjects, nci, m); absent without missing responses
  array<int32, 4> siy_imp_save;      ///< (subjects, ni, nt, m); likewise
  array<int32, 2> imputed_cls_save;  ///< (subjects, m) as the chain drew them
  array<int32, 3> imputed_sta_save;  ///< (subjects, nt, m)
  array<int32, 1> kase_of_subject;   ///< (subjects) 1-based
};

struct da_options {
  std::optional<int32> seed;         ///< 1..2147483399; the clock without one
  int32 imputations = 20;            ///< at least 1
  int32 burn_in = 200;               ///< cycles before the first imputation
  int32 spacing = 50;                ///< cycles from one imputation to the next
  std::optional<int32> max_threads;  ///< of the E-steps; below 1: the runtime's maximum
  estimation::em_watch watch;        ///< called once per cycle
};

namespace estimation {

/// Allocates a summary over a parameter array of the given extents. \return 0 or -1
template <std::size_t R>
int32 allocate_daparam(const std::array<int32, R>& extents, int32 imputations, daparam<R>& param,
                       error_type& err);
template <std::size_t R>
int32 nullify_daparam(daparam<R>& param, error_type& err);
int32 nullify_daresult(daresult& result, error_type& err);

/// Combines the estimates `imp` and variances `var_imp` of m imputations by Rubin's rules. With
/// m = 1 or no variance between the imputations the reference distribution is the normal one
/// (df 1e10). An element without any variance is fixed: `std_err`, `df` and the interval are NaN.
/// \return 0 or -1
template <std::size_t R>
int32 compute_da_results(daparam<R>& param, error_type& err);

/// Fraction of the information on a parameter that is missing; NaN for a fixed one (`df` NaN).
/// Source: Rubin (1987), eq. 3.1.10.
double missing_information(double ubar, double bi_var, double df, int32 imputations);

/// Runs the chain from the given parameters, which should be maximum-likelihood estimates.
///
/// Frequencies must be whole numbers: each subject is drawn on its own. Sampling weights w are
/// scaled to the sum (sum w)^2 / sum w^2 and weigh all counts. Rows without a prior of their own
/// get Jeffreys' prior. Fixed elements stay; of equality groups those with a closed form are
/// possible. Models with covariates are refused.
/// \param[in,out] param   starting values and restrictions in; the chain's last parameters out
/// \param[out]    result  imputations and their combination
/// \param[out]    ml      posterior probabilities at the last parameters, and their log-likelihood
/// \return 0, or -1 with `result` empty and `param` as it was. The same seed gives the same bits at
/// any thread count.
int32 run_da_procedure(const dataset_type& dataset, const model_type& model, param_type& param,
                       const da_options& options, daresult& result, mlresult_type& ml,
                       error_type& err);

/// A copy of one of the summaries of `result`.
template <std::size_t R>
int32 get_da_param_stats(const daresult& result, daparam<R> daresult::*which, daparam<R>& stats,
                         error_type& err);
int32 get_class_label_tracking(const daresult& result, array<int32, 3>& labels, error_type& err);
int32 get_status_label_tracking(const daresult& result, array<int32, 5>& labels, error_type& err);

}  // namespace estimation
}  // namespace tolvenra
