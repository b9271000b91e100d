/// \file regression.hpp  Logistic regressions of latent categories, module `estimation`: the
/// machinery that the M-steps with covariates share.
///
/// The outcomes are posterior probabilities summed over the cases of a covariate pattern, so a fit
/// runs over distinct covariate rows. Two forms:
/// - baseline-category: log(P_k / P_b) = x'beta_k for every category k but the baseline b;
/// - binary: logit P_k = x'b for one category k; the others share 1 - P_k in constant proportions
/// q. Source: Dayton & Macready (1988), JASA 83, 173-178; Bandeen-Roche et al. (1997), JASA 92,
/// 1375-1386.
#pragma once

#include <string>
#include <vector>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "numerics/logit_model.hpp"

namespace tolvenra::estimation {

/// One regression over the covariate patterns of a stratum.
struct regression {
  array<double, 2> x;         ///< (n, p) covariates, the intercept in column 1
  array<double, 2> y;         ///< (n, r) outcome totals of the patterns
  array<double, 1> weight;    ///< (n) case weight of every pattern
  int32 baseline = 1;         ///< reference category
  int32 binary = 0;           ///< compared category of the binary form, 0 for the other
  std::vector<bool> absent;   ///< (r) structural zeros: the category takes no part
  std::vector<double> prior;  ///< (r) stabilising prior; empty: none
  double prior_ess = 0.0;     ///< its worth in cases, spread over the patterns by weight

  // work arrays, reused
  array<double, 2> outcome;  ///< (n, fitted categories)
  array<double, 2> coefficients, trial;
  array<int32, 1> mask;  ///< (n) 1 where a pattern takes part
  logit_mt_workspace_type logit;
};

/// Sizes the record for n patterns, p columns and r categories. \throws std::bad_alloc
void size_regression(int32 n, int32 p, int32 r, regression& fit);

/// Fits the outcomes from the coefficients at hand.
/// \param[in,out] beta    (p, r), column-major, reference column 0 (binary form: only the compared
///                        column is used)
/// \param[out] shares     (r) of the binary form: proportions q of the other categories
/// \param here, where     the M-step, and its place for the report ("Group: 1; class: 2")
/// \return 0, or -1 with a report after five attempts
int32 fit_regression(regression& fit, double* beta, std::vector<double>& shares, int32 threads,
                     const routine& here, const std::string& where, error_type& err);

/// Probabilities of the categories at every pattern.
/// \param shares   of the binary form
/// \param[out] p   (n, r), category c of pattern u at p[u * step + c]
/// \param name     of the probability in reports: "exp for gamma", "denom for gamma"
int32 predict(const regression& fit, const double* beta, const std::vector<double>& shares,
              double* p, int32 step, std::string_view name, const routine& here, error_type& err);

/// Parameters of one fitted row of coefficients.
int32 regression_parameters(const regression& fit);

}  // namespace tolvenra::estimation
