/// \file logit_model.hpp  Weighted baseline-category multinomial logistic regression, module
/// `logit_model`.
///
/// log(pi_ik / pi_ib) = x_i' beta_k for k != b, fitted by Newton-Raphson to fractional outcomes:
/// the regression inside the M-steps with covariates, whose outcomes are posterior probabilities.
/// With K = p (r - 1) free coefficients, category slowest and column of x fastest, the score and
/// the information are
///   s_(k,j)        = sum_i w_i x_ij (y_ik - m_i pi_ik),                m_i = sum_k y_ik,
///   H_(k,j),(l,h)  = sum_i w_i m_i x_ij x_ih pi_ik ([k = l] - pi_il).
/// The rows are summed in as many fixed blocks as there are slots and the blocks are added in
/// order, so a fit has the same bits at every thread count.
/// Source: Agresti (2002), Categorical Data Analysis, 2nd ed., section 7.1.
#pragma once

#include <optional>

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra {

/// Work arrays of the regression, set up by the first fit and reused by fits of the same sizes.
struct logit_mt_workspace_type {
  int32 n = 0;                    ///< rows
  int32 p = 0;                    ///< columns of x
  int32 r = 0;                    ///< response categories
  int32 b = 0;                    ///< baseline category
  int32 t = 0;                    ///< slots
  bool needs_setup = true;        ///< nothing is allocated
  array<double, 2> coefficients;  ///< (p, r), column b zero
  array<double, 1> current;       ///< (K) free coefficients
  array<double, 1> previous;      ///< (K) the same before the last update
  array<double, 2> neg_hessian;   ///< (K, K), then its factor and the factor's inverse
  array<double, 1> totals;        ///< (r) outcome totals of the group
  array<double, 1> score;         ///< (K)
  array<double, 2> inverse;       ///< (K, K) inverse of the negative Hessian
  array<double, 2> slot_score;    ///< (K, t)
  array<double, 3> slot_hessian;  ///< (K, K, t) lower triangles
  array<double, 2> predictor;     ///< (n, r); a slot uses the first rows of its block
  array<double, 2> probability;   ///< (n, r), likewise
  array<double, 1> row_weight;    ///< (n), likewise: w_i m_i
  array<double, 3> tile;          ///< (rows of a tile, p, t) columns of x side by side
  array<double, 1> slot_loglik;   ///< (t)
  array<int32, 1> slot_failure;   ///< (t) 0 or an error code
  int32 threads = 0;              ///< limit set by the owner; below 1 the runtime's alone
};

namespace logit_model {

/// Slots for n rows, p columns and r categories: fixed by the sizes, whatever the threads.
int32 slots_for(int32 n, int32 p, int32 r);

/// Fits the rows whose `grpvar` equals `group`.
/// \param x           (n, p), the intercept's column included by the caller
/// \param y           (n, r) nonnegative counts or probabilities
/// \param weight      (n) positive, or null for ones; equal weights count as none
/// \param baseline    category b, 1..r
/// \param[out] iterations  Newton updates, performed or begun
/// \param[out] converged   |new - old| < 1e-5 |new| (single precision), or no move, for every
///                         coefficient. Running out of iterations is a success without it.
/// \param[out] loglik      weighted log-likelihood at the coefficients before the last update
/// \param[in,out] beta     (p, r) starting values, column b zero; estimates
/// \param slots            at least the threads of the team; `slots_for` where nothing else is
/// known \param max_iterations   20 when absent \return 0, or -1 with the report of a bad argument,
/// or of an iteration that failed; beta then
///         holds the last completed update
int32 run_logit_model_threads(const array<double, 2>& x, const array<double, 2>& y,
                              const array<double, 1>* weight, int32 baseline, int32& iterations,
                              bool& converged, double& loglik, array<double, 2>& beta,
                              const array<int32, 1>& grpvar, int32 group, int32 slots,
                              std::optional<int32> max_iterations, logit_mt_workspace_type& work,
                              error_type& err);

/// Stores the sizes and allocates the arrays. \param y  the (n, r) outcomes that will be fitted
int32 setup_logit_mt_workspace_type(int32 n, int32 r, int32 p, int32 baseline, int32 slots,
                                    const array<double, 2>& y, logit_mt_workspace_type& work,
                                    error_type& err);

/// Releases the arrays and zeroes the sizes; the thread limit stays.
int32 nullify_logit_mt_workspace_type(logit_mt_workspace_type& work, error_type& err);

/// The lower factor of a symmetric matrix, in place; the triangle above becomes zero.
int32 cholesky_in_place(array<double, 2>& a, error_type& err);
/// The inverse of a lower factor, in place; refuses a factor that is singular but for rounding.
int32 invert_lower(array<double, 2>& a, error_type& err);
/// out = L' L, of the same extents as l.
int32 premult_lower_by_transpose(const array<double, 2>& l, array<double, 2>& out, error_type& err);

/// Sweeps a symmetric matrix at pivot k, and undoes it. Sweeping every pivot gives minus the
/// inverse. A pivot that is zero or absent (k = 0) gives -1 without a report.
/// Source: Beaton (1964); Goodnight (1979), American Statistician 33, 149-158.
int32 sweep_forward(array<double, 2>& a, int32 k, error_type& err);
int32 sweep_reverse(array<double, 2>& a, int32 k, error_type& err);

}  // namespace logit_model
}  // namespace tolvenra
