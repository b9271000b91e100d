/// \file regression.hpp  Logistic regressions of latent categories, module `estimation`: the
/// machinery that the M-steps with covariates share.
///
/// The outcomes are posterior probabilities summed over the cases of a covariate pattern, so a fit
/// runs over distinct covariate rows. Two forms:
/// - baseline-category: log(P_k / P_b) = x'beta_k for every category k but the baseline b;
/// - binary: logit P_k = x'b for one category k; the others share 1 - P_k in constant proportions
/// q. Inside, the covariates are centred and scaled; coefficients come and go in the user's units.
///
/// Where covariates tell categories apart without error no maximiser exists: the likelihood rises
/// for ever along some direction of the coefficients. A step that raises it is all that EM needs,
/// so such a regression is climbed under guard (guarded_climb.hpp) and its flat directions are held
/// (flat_directions.hpp).
/// Sources: Dayton & Macready (1988), JASA 83, 173-178; Bandeen-Roche et al. (1997), JASA 92,
/// 1375-1386; Albert & Anderson (1984), Biometrika 71, 1-10 (separation); Dempster, Laird & Rubin
/// (1977), JRSS B 39, 1-38, section 2 (generalised EM).
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "numerics/logit_model.hpp"

namespace tolvenra::estimation {

/// Categories that a fit estimates, 1-based, with the reference's place among them. In the binary
/// form the compared category and 0, which stands for all others.
struct fitted_categories {
  std::vector<int32> of;
  int32 baseline = 1;

  [[nodiscard]] int32 count() const { return static_cast<int32>(of.size()); }
};

/// When the guarded climb gives up.
struct climb_limits {
  int32 rounds = 100;  ///< steps
  int32 raises = 30;   ///< of the damping within one of them
};

/// One regression over the covariate patterns of a stratum.
struct regression {
  array<double, 2> x;  ///< (n, p) z with x_j = mean_j + scale_j z_j, the intercept 1 in column 1
  std::vector<double> mean, scale;  ///< (p) of the columns; 0 and 1 for the intercept
  std::vector<double> reach;        ///< (p) largest absolute value of a column of z
  array<double, 2> moments;         ///< (p, p) mean of zz' over the cases
  bool aliased = false;             ///< a column repeats others: the fit has no unique solution
  array<double, 2> y;               ///< (n, r) outcome totals of the patterns
  array<double, 1> weight;          ///< (n) case weight of every pattern
  double total_weight = 0.0;        ///< its sum
  int32 baseline = 1;               ///< reference category
  int32 binary = 0;                 ///< compared category of the binary form, 0 for the other
  std::vector<bool> absent;         ///< (r) structural zeros: the category takes no part
  std::vector<double> prior;        ///< (r) stabilising prior; empty: none
  double prior_ess = 0.0;           ///< its worth in cases, spread over the patterns by weight
  climb_limits limits;

  // work arrays, reused
  fitted_categories fitted;
  array<double, 2> outcome;  ///< (n, fitted categories)
  array<double, 2> coefficients, trial;
  array<int32, 1> mask;  ///< (n) 1 where a pattern takes part
  logit_mt_workspace_type logit;
  std::vector<double> sums, scratch;
};

/// What a fitted row of categories (a class of a stratum, for transitions at a time and origin too)
/// keeps from one M-step to the next.
struct fitted_row {
  std::vector<double> shares;  ///< (r) of the binary form: proportions q of the other categories
  bool climbs = false;         ///< the last fit needed the guarded climb and is not regular since
  /// Bound from below on the information of any direction, per 1 + |objective| of the last fit; 0
  /// where nothing is known, negative before the first fit.
  double margin = -1.0;
  /// Where coefficients have no finite estimate, for each flat direction: (p, r) changes of the
  /// user's coefficients, each relative to its column. Filled after the last M-step.
  std::vector<array<double, 2>> runaway;
  /// The flat directions in the scaled coding, (p * (fitted categories - 1), directions).
  array<double, 2> flat;
};

/// Sizes the record for n patterns, p columns and r categories. \throws std::bad_alloc
void size_regression(int32 n, int32 p, int32 r, regression& fit);

/// Centres and scales the columns of x, which hold covariates in the user's units, by the weights.
/// Once, after x and weight are filled.
void scale_design(regression& fit);

/// Coefficients of the scaled columns from those of the user's, and back; (p) each.
void to_scaled(const regression& fit, const double* beta, double* scaled);
void to_user(const regression& fit, const double* scaled, double* beta);

/// The prior in force for a row of categories: each element that is no structural zero is at least
/// 0.01 / their number, because a prior that copies an estimate of exactly 0 keeps nothing finite;
/// absent ones 0; the sum 1. A prior without smaller elements is returned as it is.
std::vector<double> compute_stabilizing_prior(std::vector<double> prior,
                                              const std::vector<bool>& absent);

/// Loads the categories, and the outcome totals with the prior's share of every pattern's weight.
/// \return whether any pattern takes part
bool load_outcome(regression& fit);
/// Loads coefficients of the fitted categories in the scaled coding from (p, r) user coefficients.
void load_coefficients(regression& fit, const double* beta);

/// Fits the outcomes from the coefficients at hand.
/// \param[in,out] beta    (p, r), column-major, reference column 0 (binary form: only the compared
///                        column is used); unchanged where no pattern has an outcome
/// \param[in,out] row     of this regression's earlier fits
/// \param here, where     the M-step, and its place for the report ("Group: 1; class: 2")
/// \return 0, or -1 with a report after five attempts
int32 fit_regression(regression& fit, double* beta, fitted_row& row, int32 threads,
                     const routine& here, const std::string& where, error_type& err);

/// Fits the outcomes on all columns but one, from zero; the regression itself stays as it is.
/// \param left_out  covariate, 1-based behind the intercept; 0 for none
/// \param[out] beta  (columns left, r)
int32 fit_without(const regression& fit, int32 left_out, double* beta, int32 threads,
                  const routine& here, const std::string& where, error_type& err);

/// Probabilities of the categories at every pattern.
/// \param shares   of the binary form
/// \param[out] p   (n, r), category c of pattern u at p[u * step + c]
/// \param name     of the probability in reports: "exp for gamma", "denom for gamma"
/// \param limit    largest predictor that is let pass: given coefficients must leave exp finite,
/// those
///                 of a fit may be as large as they came to be, for the largest is taken out first
int32 predict(const regression& fit, const double* beta, const std::vector<double>& shares,
              double* p, int32 step, std::string_view name, const routine& here, error_type& err,
              double limit = largest_exponent);
inline constexpr double any_predictor = std::numeric_limits<double>::max();

/// Parameters of one fitted row of coefficients.
int32 regression_parameters(const regression& fit);

}  // namespace tolvenra::estimation
