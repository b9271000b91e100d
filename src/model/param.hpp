/// \file param.hpp  The parameter set of a model, module `param`: dimensions, parameter arrays,
/// restrictions and options, priors.
///
/// put_dims comes first and gives every array its shape and starting content. A put_ routine stores
/// nothing before all its checks have passed; a get_ routine allocates its result; the routines of
/// a slice (names ending in 2) work on a matrix cut out of the full array. Cells of categories
/// beyond an item's own count are not checked and are stored as 0. Each routine returns 0, or -1
/// with its report.
#pragma once

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "model/prob_rows.hpp"

namespace tolvenra {

struct param_type {
  bool dims_set = false;
  int32 nci = 0, ni = 0, nt = 0, ncov = 0, ncov_delta = 0, ncov_tau = 0, nstr = 0, nc = 0, ns = 0;
  int32 nrcmax = 0, nrsmax = 0;  ///< largest nrc, nrs; 0 without items
  array<int32, 1> nrc, nrs;      ///< (nci), (ni) response categories

  array<double, 2> gamma;       ///< (nc, nstr) class prevalences
  array<double, 4> rho;         ///< (nci, nc, nrcmax, nstr) responses to categorical items
  array<double, 3> beta;        ///< (ncov+1, nc, nstr) logit of class membership
  array<double, 3> delta;       ///< (ns, nc, nstr) initial statuses
  array<double, 5> tau;         ///< (ns, ns, nt-1, nc, nstr) transitions, rows of origin
  array<double, 6> big_rho;     ///< (ni, ns, nrsmax, nt, nc, nstr) responses to status items
  array<double, 4> delta_beta;  ///< (ncov_delta+1, ns, nc, nstr) logit of the initial status
  array<double, 6> tau_beta;    ///< (ncov_tau+1, ns, ns, nt-1, nc, nstr) logit of transitions

  // Codes: 0 fixed at the starting value, 1 free, k >= 2 equality group k.
  array<int32, 2> gamma_restrictions;
  array<int32, 4> rho_restrictions;
  array<int32, 3> delta_restrictions;
  array<int32, 5> tau_restrictions;
  array<int32, 6> big_rho_restrictions;
  bool rho_equal_across_strata = false;
  bool big_rho_equal_across_strata = false, big_rho_equal_across_time = false;
  bool big_rho_equal_across_class = false;

  int32 baseline_gamma = 1, baseline_delta = 1;  ///< reference class, reference status
  array<int32, 2> baseline_tau;  ///< (ns, nt-1) reference destination by origin, transition
  int32 binary_gamma = 0, binary_delta = 0;  ///< compared class, status; 0: none chosen
  array<int32, 2> binary_tau;  ///< (ns, nt-1) compared destination; absent: none chosen
  bool gamma_binary_regression = false, delta_binary_regression = false;
  bool tau_binary_regression = false;

  // A prior in the parameter's shape and its worth in pseudo-observations, one value per row.
  bool gamma_prior_set = false, rho_prior_set = false, delta_prior_set = false;
  bool tau_prior_set = false, big_rho_prior_set = false;
  array<double, 2> gamma_prior;
  array<double, 1> gamma_prior_ess;  ///< (nstr)
  array<double, 4> rho_prior;
  array<double, 3> rho_prior_ess;  ///< (nci, nc, nstr)
  array<double, 3> delta_prior;
  array<double, 2> delta_prior_ess;  ///< (nc, nstr)
  array<double, 5> tau_prior;
  array<double, 4> tau_prior_ess;  ///< (ns, nt-1, nc, nstr)
  array<double, 6> big_rho_prior;
  array<double, 5> big_rho_prior_ess;  ///< (ni, ns, nt, nc, nstr)

  // Priors that stabilise a regression, in the shape of the probabilities it models; ess 0: off.
  bool beta_stabilizing_prior_set = false, delta_beta_stabilizing_prior_set = false;
  bool tau_beta_stabilizing_prior_set = false;
  array<double, 2> beta_stabilizing_prior;
  array<double, 3> delta_beta_stabilizing_prior;
  array<double, 5> tau_beta_stabilizing_prior;
  double beta_stabilizing_prior_ess = 0.0, delta_beta_stabilizing_prior_ess = 0.0;
  double tau_beta_stabilizing_prior_ess = 0.0;

  bool operator==(const param_type&) const = default;
};

namespace param {

int32 nullify_param(param_type& param, error_type& err);

/// Dimensions as one vector: nci, ni, nt, ncov, ncov_delta, ncov_tau, nstr, nc, ns, nrc(1..nci),
/// nrs(1..ni). Discards the set's content; then gamma, delta and tau are uniform, rho and big_rho
/// random by the clock, coefficients 0, restrictions and baselines 1.
int32 put_dims(const array<int32, 1>& dims, param_type& param, error_type& err);
int32 get_dims(const param_type& param, array<int32, 1>& dims, error_type& err);

int32 put_gamma(const array<double, 2>& gamma, param_type& param, error_type& err);
int32 put_rho(const array<double, 4>& rho, param_type& param, error_type& err);
int32 put_beta(const array<double, 3>& beta, param_type& param, error_type& err);
int32 put_delta(const array<double, 3>& delta, param_type& param, error_type& err);
int32 put_tau(const array<double, 5>& tau, param_type& param, error_type& err);
int32 put_big_rho(const array<double, 6>& big_rho, param_type& param, error_type& err);
int32 put_delta_beta(const array<double, 4>& delta_beta, param_type& param, error_type& err);
int32 put_tau_beta(const array<double, 6>& tau_beta, param_type& param, error_type& err);
int32 get_gamma(const param_type& param, array<double, 2>& gamma, error_type& err);
int32 get_rho(const param_type& param, array<double, 4>& rho, error_type& err);
int32 get_beta(const param_type& param, array<double, 3>& beta, error_type& err);
int32 get_delta(const param_type& param, array<double, 3>& delta, error_type& err);
int32 get_tau(const param_type& param, array<double, 5>& tau, error_type& err);
int32 get_big_rho(const param_type& param, array<double, 6>& big_rho, error_type& err);
int32 get_delta_beta(const param_type& param, array<double, 4>& delta_beta, error_type& err);
int32 get_tau_beta(const param_type& param, array<double, 6>& tau_beta, error_type& err);

// Slices: rho2 (nc, nrcmax), beta2 (ncov+1, nc), delta2 (ns, nc), tau2 (ns, ns),
// big_rho2 (ns, nrsmax), delta_beta2 (ncov_delta+1, ns), tau_beta2 (ncov_tau+1, ns) of the
// origin `status`, its columns the destinations.
int32 put_rho2(const array<double, 2>& rho2, int32 stratum, int32 citem, param_type& param,
               error_type& err);
int32 put_beta2(const array<double, 2>& beta2, int32 stratum, param_type& param, error_type& err);
int32 put_delta2(const array<double, 2>& delta2, int32 stratum, param_type& param, error_type& err);
int32 put_tau2(const array<double, 2>& tau2, int32 stratum, int32 clss, int32 transition,
               param_type& param, error_type& err);
int32 put_big_rho2(const array<double, 2>& big_rho2, int32 stratum, int32 clss, int32 time,
                   int32 sitem, param_type& param, error_type& err);
int32 put_delta_beta2(const array<double, 2>& delta_beta2, int32 stratum, int32 clss,
                      param_type& param, error_type& err);
int32 put_tau_beta2(const array<double, 2>& tau_beta2, int32 stratum, int32 clss, int32 transition,
                    int32 status, param_type& param, error_type& err);
int32 get_rho2(const param_type& param, int32 stratum, int32 citem, array<double, 2>& rho2,
               error_type& err);
int32 get_beta2(const param_type& param, int32 stratum, array<double, 2>& beta2, error_type& err);
int32 get_delta2(const param_type& param, int32 stratum, array<double, 2>& delta2, error_type& err);
int32 get_tau2(const param_type& param, int32 stratum, int32 clss, int32 transition,
               array<double, 2>& tau2, error_type& err);
int32 get_big_rho2(const param_type& param, int32 stratum, int32 clss, int32 time, int32 sitem,
                   array<double, 2>& big_rho2, error_type& err);
int32 get_delta_beta2(const param_type& param, int32 stratum, int32 clss,
                      array<double, 2>& delta_beta2, error_type& err);
int32 get_tau_beta2(const param_type& param, int32 stratum, int32 clss, int32 transition,
                    int32 status, array<double, 2>& tau_beta2, error_type& err);

/// Random probability vectors in stratum 1, copied to the other strata. The same non-negative seeds
/// repeat them; a negative seed stands for the clock.
int32 run_random_rho_startvals(param_type& param, error_type& err, int32 seed1, int32 seed2);
/// The same for the status items; copied over classes and times too where the options ask for it.
int32 run_random_big_rho_startvals(param_type& param, error_type& err, int32 seed1, int32 seed2);

// Restriction codes, in the shape of the parameter.
int32 put_gamma_restrictions(const array<int32, 2>& codes, param_type& param, error_type& err);
int32 put_rho_restrictions(const array<int32, 4>& codes, param_type& param, error_type& err);
int32 put_delta_restrictions(const array<int32, 3>& codes, param_type& param, error_type& err);
int32 put_tau_restrictions(const array<int32, 5>& codes, param_type& param, error_type& err);
int32 put_big_rho_restrictions(const array<int32, 6>& codes, param_type& param, error_type& err);
int32 put_rho_restrictions2(const array<int32, 2>& codes, int32 stratum, int32 citem,
                            param_type& param, error_type& err);
int32 put_big_rho_restrictions2(const array<int32, 2>& codes, int32 stratum, int32 clss, int32 time,
                                int32 sitem, param_type& param, error_type& err);
int32 get_gamma_restrictions(const param_type& param, array<int32, 2>& codes, error_type& err);
int32 get_rho_restrictions(const param_type& param, array<int32, 4>& codes, error_type& err);
int32 get_delta_restrictions(const param_type& param, array<int32, 3>& codes, error_type& err);
int32 get_tau_restrictions(const param_type& param, array<int32, 5>& codes, error_type& err);
int32 get_big_rho_restrictions(const param_type& param, array<int32, 6>& codes, error_type& err);
int32 get_rho_restrictions2(const param_type& param, int32 stratum, int32 citem,
                            array<int32, 2>& codes, error_type& err);
int32 get_big_rho_restrictions2(const param_type& param, int32 stratum, int32 clss, int32 time,
                                int32 sitem, array<int32, 2>& codes, error_type& err);

// Options. A new baseline makes a regression multinomial again; the baseline already stored leaves
// a binary one binary. Of put_baseline_tau and put_binary_tau the last successful call decides.
int32 put_rho_equal_across_strata(bool equal, param_type& param, error_type& err);
int32 put_big_rho_equal_across_strata(bool equal, param_type& param, error_type& err);
int32 put_big_rho_equal_across_time(bool equal, param_type& param, error_type& err);
int32 put_big_rho_equal_across_class(bool equal, param_type& param, error_type& err);
int32 put_baseline_gamma(int32 baseline_gamma, param_type& param, error_type& err);
int32 put_baseline_delta(int32 baseline_delta, param_type& param, error_type& err);
int32 put_baseline_tau(const array<int32, 2>& baseline_tau, param_type& param, error_type& err);
int32 put_binary_gamma(int32 binary_gamma, param_type& param, error_type& err);
int32 put_binary_delta(int32 binary_delta, param_type& param, error_type& err);
int32 put_binary_tau(const array<int32, 2>& binary_tau, param_type& param, error_type& err);
int32 get_baseline_tau(const param_type& param, array<int32, 2>& baseline_tau, error_type& err);
int32 get_binary_tau(const param_type& param, array<int32, 2>& binary_tau, error_type& err);
inline bool get_rho_equal_across_strata(const param_type& p) { return p.rho_equal_across_strata; }
inline bool get_big_rho_equal_across_strata(const param_type& p) {
  return p.big_rho_equal_across_strata;
}
inline bool get_big_rho_equal_across_time(const param_type& p) {
  return p.big_rho_equal_across_time;
}
inline bool get_big_rho_equal_across_class(const param_type& p) {
  return p.big_rho_equal_across_class;
}
inline int32 get_baseline_gamma(const param_type& p) { return p.baseline_gamma; }
inline int32 get_baseline_delta(const param_type& p) { return p.baseline_delta; }
inline int32 get_binary_gamma(const param_type& p) { return p.binary_gamma; }
inline int32 get_binary_delta(const param_type& p) { return p.binary_delta; }

// Priors, checked like their parameter and in its words; each brings an ess of 1 per row.
int32 put_gamma_prior(const array<double, 2>& prior, param_type& param, error_type& err);
int32 put_rho_prior(const array<double, 4>& prior, param_type& param, error_type& err);
int32 put_delta_prior(const array<double, 3>& prior, param_type& param, error_type& err);
int32 put_tau_prior(const array<double, 5>& prior, param_type& param, error_type& err);
int32 put_big_rho_prior(const array<double, 6>& prior, param_type& param, error_type& err);
int32 get_gamma_prior(const param_type& param, array<double, 2>& prior, error_type& err);
int32 get_rho_prior(const param_type& param, array<double, 4>& prior, error_type& err);
int32 get_delta_prior(const param_type& param, array<double, 3>& prior, error_type& err);
int32 get_tau_prior(const param_type& param, array<double, 5>& prior, error_type& err);
int32 get_big_rho_prior(const param_type& param, array<double, 6>& prior, error_type& err);

// Effective sample sizes, after their prior; 0 switches a row's prior off.
int32 put_gamma_prior_ess(const array<double, 1>& ess, param_type& param, error_type& err);
int32 put_rho_prior_ess(const array<double, 3>& ess, param_type& param, error_type& err);
int32 put_delta_prior_ess(const array<double, 2>& ess, param_type& param, error_type& err);
int32 put_tau_prior_ess(const array<double, 4>& ess, param_type& param, error_type& err);
int32 put_big_rho_prior_ess(const array<double, 5>& ess, param_type& param, error_type& err);
int32 get_gamma_prior_ess(const param_type& param, array<double, 1>& ess, error_type& err);
int32 get_rho_prior_ess(const param_type& param, array<double, 3>& ess, error_type& err);
int32 get_delta_prior_ess(const param_type& param, array<double, 2>& ess, error_type& err);
int32 get_tau_prior_ess(const param_type& param, array<double, 4>& ess, error_type& err);
int32 get_big_rho_prior_ess(const param_type& param, array<double, 5>& ess, error_type& err);

int32 put_beta_stabilizing_prior(const array<double, 2>& prior, double ess, param_type& param,
                                 error_type& err);
int32 put_delta_beta_stabilizing_prior(const array<double, 3>& prior, double ess, param_type& param,
                                       error_type& err);
int32 put_tau_beta_stabilizing_prior(const array<double, 5>& prior, double ess, param_type& param,
                                     error_type& err);
int32 get_beta_stabilizing_prior(const param_type& param, array<double, 2>& prior, error_type& err);
int32 get_delta_beta_stabilizing_prior(const param_type& param, array<double, 3>& prior,
                                       error_type& err);
int32 get_tau_beta_stabilizing_prior(const param_type& param, array<double, 5>& prior,
                                     error_type& err);
int32 get_beta_stabilizing_prior_ess(const param_type& param, double& ess, error_type& err);
int32 get_delta_beta_stabilizing_prior_ess(const param_type& param, double& ess, error_type& err);
int32 get_tau_beta_stabilizing_prior_ess(const param_type& param, double& ess, error_type& err);

}  // namespace param
}  // namespace tolvenra
