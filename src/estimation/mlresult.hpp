/// \file mlresult.hpp  What one maximum-likelihood run produced, module `estimation`.
#pragma once

#include <memory>
#include <vector>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/distinct_rows.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra {

/// Large tables stay with the distinct rows; the getters build the arrays by case or by pattern.
struct mlresult_type {
  bool filled = false;         ///< the EM run ended with estimates
  bool has_fit_stats = false;  ///< run_compute_fit_stats has run
  int32 iter = 0;
  double max_abs_diff = 0.0, mean_abs_diff = 0.0;
  bool converged = false;
  double loglik = 0.0;  ///< natural log, weighted, no prior density
  std::vector<double> llvec, madvec;
  double cat_loglik = 0.0, cat_g2 = 0.0;
  int32 overflow_count = 0;  ///< 1 cell number beyond 32 bits, 2 saturated model not computable
  int32 cat_df = 0;
  int32 cat_passes = 0;        ///< of the saturated model, summed over strata
  int32 cat_unfinished = 0;    ///< strata whose passes ended at their limit
  double cat_shortfall = 0.0;  ///< the saturated maximum is at most this far above cat_loglik
  double X2 = 0.0;             ///< NaN when it does not exist
  double G2 = 0.0;
  double entropyraw = 0.0, entropy = 0.0;
  double weighted_entropyraw = 0.0, weighted_entropy = 0.0;  ///< each row counted by its weight
  double aic = 0.0, bic = 0.0, caic = 0.0, abic = 0.0;       ///< on the scale of G2
  double deff = 0.0;
  bool has_deff = false;
  int32 apparent_df = 0;
  int32 n_params_estimated = 0;
  int32 n_params_gamma = 0, n_params_rho = 0, n_params_beta = 0;
  int32 n_params_delta = 0, n_params_tau = 0, n_params_big_rho = 0;
  int32 n_params_delta_beta = 0, n_params_tau_beta = 0;
  int32 n_runaway = 0;  ///< coefficients without a finite estimate, counted above too
  int32 nc = 0, ns = 1, nt = 1;
  std::vector<double> post_cls;          ///< nrow x nc, row by row
  std::vector<double> post_cls_sta;      ///< nrow records of (nc, nt, ns), when asked for
  std::vector<double> post_cls_adj_sta;  ///< nrow records of (nc, ns, ns, nt-1), when asked for
  std::shared_ptr<const distinct_rows> rows;
  std::vector<double> observed, expected;  ///< by response pattern
  std::vector<int32> pattern_row;          ///< first distinct row of each pattern, 1-based
  // Standard errors (standard_errors.hpp); allocated once they have been computed.
  array<double, 2> std_gamma, std_gamma_model;  ///< (nc, nstr) robust; from the information alone
  array<double, 4> std_rho;                     ///< (nci, nc, nrcmax, nstr)
  array<double, 3> std_beta;                    ///< (ncov+1, nc, nstr), with covariates
  array<double, 2> cov_b, cov_b_model;          ///< covariance of the membership coefficients;
                                                ///< cov_b is NaN without a finite estimate
  array<double, 2> cov_b_held;  ///< cov_b where flat directions are held instead of left out
  int32 n_boundary = 0;         ///< free parameters held at a boundary estimate
};

namespace estimation {

int32 nullify_mlresult(mlresult_type& result, error_type& err);

// One getter per value; each fails on a result that no run has filled, those of fit statistics
// (from get_cat_loglik to get_abic) until they have been computed too.
int32 get_iter(const mlresult_type& result, int32& value, error_type& err);
int32 get_max_abs_diff(const mlresult_type& result, double& value, error_type& err);
int32 get_mean_abs_diff(const mlresult_type& result, double& value, error_type& err);
int32 get_converged(const mlresult_type& result, bool& value, error_type& err);
int32 get_loglik(const mlresult_type& result, double& value, error_type& err);
int32 get_cat_loglik(const mlresult_type& result, double& value, error_type& err);
int32 get_cat_g2(const mlresult_type& result, double& value, error_type& err);
int32 get_overflow(const mlresult_type& result, bool& value, error_type& err);
int32 get_cat_df(const mlresult_type& result, int32& value, error_type& err);
int32 get_X2(const mlresult_type& result, double& value, error_type& err);
int32 get_G2(const mlresult_type& result, double& value, error_type& err);
int32 get_entropyraw(const mlresult_type& result, double& value, error_type& err);
int32 get_entropy(const mlresult_type& result, double& value, error_type& err);
int32 get_aic(const mlresult_type& result, double& value, error_type& err);
int32 get_bic(const mlresult_type& result, double& value, error_type& err);
int32 get_caic(const mlresult_type& result, double& value, error_type& err);
int32 get_abic(const mlresult_type& result, double& value, error_type& err);
int32 get_deff(const mlresult_type& result, double& value, error_type& err);
int32 get_apparent_df(const mlresult_type& result, int32& value, error_type& err);
int32 n_params_estimated(const mlresult_type& result, int32& value, error_type& err);

// Arrays are allocated for the caller.
int32 get_llvec(const mlresult_type& result, array<double, 1>& values, error_type& err);
int32 get_madvec(const mlresult_type& result, array<double, 1>& values, error_type& err);
/// (nkase, nc) posterior class probabilities in case order.
int32 get_post_cls(const mlresult_type& result, array<double, 2>& values, error_type& err);
/// (nkase, nc, nt, ns) probability of class c and status s at time t, in case order.
int32 get_post_cls_sta(const mlresult_type& result, array<double, 4>& values, error_type& err);
/// (nkase, nc, ns, ns, nt-1) of class c, status s at time t and s' at t + 1.
int32 get_post_cls_adj_sta(const mlresult_type& result, array<double, 5>& values, error_type& err);
/// (patterns, 1 + columns): stratum, then the responses (0 missing), in ascending order.
int32 get_response_pattern_mat(const mlresult_type& result, array<int32, 2>& values,
                               error_type& err);
int32 get_observed(const mlresult_type& result, array<double, 1>& values, error_type& err);
int32 get_expected(const mlresult_type& result, array<double, 1>& values, error_type& err);
int32 get_cov_b(const mlresult_type& result, array<double, 2>& values, error_type& err);

/// Iteration count of a workspace.
int32 get_iter(const mlworkspace& work, int32& value, error_type& err);
/// Copies of the workspace's containers.
int32 get_dataset(const mlworkspace& work, dataset_type& dataset, error_type& err);
int32 get_model(const mlworkspace& work, model_type& model, error_type& err);
int32 get_param(const mlworkspace& work, param_type& param, error_type& err);

}  // namespace estimation
}  // namespace tolvenra
