#include "numerics/logit_model.hpp"

#include <algorithm>
#include <cmath>

#include "core/parallel.hpp"
#include "numerics/logit_model_rows.hpp"
#include "numerics/lower_triangular.hpp"

namespace tolvenra::logit_model {
namespace {

constexpr routine here{"run_logit_model_threads", "logit_model"};
constexpr double tolerance = 1e-5F;

/// Checks the weights; \param[out] equal  they are all the same and need not be used
int32 check_weight(const array<double, 1>& weight, int32 rows, bool& equal, error_type& err) {
  if (weight.n[0] != rows)
    return fail(err, here, error_code::not_conformable, {text("y and weight")});
  if (rows == 0) return 0;
  double least = weight.flat[0], most = weight.flat[0];
  bool positive = true;
  for (const double w : weight.flat) {
    positive = positive && w > 0.0;
    least = std::min(least, w);
    most = std::max(most, w);
  }
  if (!positive) return fail(err, here, {text("weight must be positive.")});
  // The smallest weight on purpose: one large weight among ordinary ones is no mistake of scale.
  if (least > 1e10) return fail(err, here, {text("One or more of the weights is too large.")});
  equal = least == most;
  return 0;
}

int32 check_beta(const array<double, 2>& beta, int32 p, int32 r, int32 baseline, error_type& err) {
  if (beta.n[0] != p || beta.n[1] != r)
    return fail(err, here,
                {text("Input array beta not of correct size;"),
                 text("starting values could not be used.")});
  for (int32 j = 1; j <= p; ++j)
    if (beta(j, baseline) != 0.0)
      return fail(err, here,
                  {text("Starting value for beta not valid;"),
                   text("column corresponding to the baseline category"),
                   text("should be entirely zero.")});
  return 0;
}

/// Sets the workspace up where its sizes are not those of the call.
int32 prepare_workspace(const array<double, 2>& x, const array<double, 2>& y, int32 baseline,
                        int32 slots, logit_mt_workspace_type& work, error_type& err) {
  const bool fits = !work.needs_setup && work.n == x.n[0] && work.p == x.n[1] && work.r == y.n[1] &&
                    work.t == slots;
  work.b = baseline;
  if (fits) return 0;
  if (slots < 1)
    return fail(err, here, {text("Number of thread slots"), text("must be positive.")});
  if (setup_logit_mt_workspace_type(x.n[0], y.n[1], x.n[1], baseline, slots, y, work, err) != 0)
    return pass_on(err, here);
  return 0;
}

int32 check_totals(const regression_rows& rows, logit_mt_workspace_type& work, error_type& err) {
  for (int32 k = 1; k <= work.r; ++k) {
    double part[4] = {};  // four sums, lest every addition wait for the one before
    for (int32 i = 1; i <= work.n; ++i)
      if (rows.grpvar(i) == rows.group) part[i % 4] += rows.y(i, k);
    const double total = work.totals(k) = (part[0] + part[1]) + (part[2] + part[3]);
    if (!(total > 0.0))
      return fail(err, here,
                  {text("Non-positive total count for one or more"), text("response categories.")});
  }
  return 0;
}

/// Copies the free columns between the (p, r) coefficients and their vector.
template <class Copy>
void for_free_columns(const logit_mt_workspace_type& work, Copy copy) {
  int32 q = 1;
  for (int32 k = 1; k <= work.r; ++k) {
    if (k == work.b) continue;
    for (int32 j = 1; j <= work.p; ++j) copy(q++, j, k);
  }
}

/// Threads worth starting: a region costs as much as some ten thousand products.
int32 team_for(const logit_mt_workspace_type& work) {
  const double order = work.score.n[0];
  const double products = work.n * (order * order + 50.0 * work.r);
  const double worthwhile = 1.0 + std::min(products / 2e4, 1000.0);
  return std::min(parallel::thread_count(work.threads), static_cast<int32>(worthwhile));
}

/// Score, information (lower triangle) and log-likelihood at work.coefficients, slots in order.
/// \return 0 or the error code of the first failing slot
int32 sum_rows(const regression_rows& rows, logit_mt_workspace_type& work, double& loglik) {
  parallel::for_blocks(work.t, team_for(work),
                       [&](int32 slot) { accumulate_rows(rows, work, slot); });
  for (const int32 code : work.slot_failure.flat)
    if (code != 0) return code;
  const auto add_slots = [](const std::vector<double>& slots, std::vector<double>& sum) {
    std::fill(sum.begin(), sum.end(), 0.0);
    for (std::size_t from = 0; from < slots.size(); from += sum.size())
      for (std::size_t q = 0; q < sum.size(); ++q) sum[q] += slots[from + q];
  };
  add_slots(work.slot_score.flat, work.score.flat);
  add_slots(work.slot_hessian.flat, work.neg_hessian.flat);
  loglik = 0.0;
  for (const double part : work.slot_loglik.flat) loglik += part;
  // Each block of two categories is symmetric; its upper half has not been summed.
  const int32 p = work.p, order = work.score.n[0];
  for (int32 column = 0; column < order; column += p)
    for (int32 row = column + p; row < order; row += p)
      for (int32 j = 2; j <= p; ++j)
        for (int32 i = 1; i < j; ++i)
          work.neg_hessian(row + i, column + j) = work.neg_hessian(row + j, column + i);
  return 0;
}

int32 fail_iteration(int32 iteration, std::string_view reason, error_type& err) {
  return fail(err, here,
              {text("Logistic regression failed at iteration ", iteration), text(reason)});
}

/// current += inverse of the information times the score.
int32 newton_step(int32 iteration, logit_mt_workspace_type& work, error_type& err) {
  if (cholesky_in_place(work.neg_hessian, err) != 0)
    return fail_iteration(iteration, "-Hessian not positive definite.", err);
  if (invert_lower(work.neg_hessian, err) != 0)
    return fail_iteration(iteration, "-Hessian apparently singular.", err);
  if (premult_lower_by_transpose(work.neg_hessian, work.inverse, err) != 0)
    return pass_on(err, here);
  const auto order = static_cast<std::size_t>(work.score.n[0]);
  std::copy(work.current.flat.begin(), work.current.flat.end(), work.previous.flat.begin());
  for (std::size_t q = 0; q < order; ++q)
    lower_triangular::subtract_multiple(work.current.data(), work.inverse.data() + q * order,
                                        -work.score.flat[q], 0, order);
  for (const double value : work.current.flat)
    if (!std::isfinite(value)) {
      std::copy(work.previous.flat.begin(), work.previous.flat.end(), work.current.flat.begin());
      return fail_iteration(iteration, "-Hessian apparently singular.", err);
    }
  return 0;
}

bool has_converged(const logit_mt_workspace_type& work) {
  for (std::size_t q = 0; q < work.current.size(); ++q) {
    const double now = work.current.flat[q], before = work.previous.flat[q];
    if (now != before && !(std::abs(now - before) < tolerance * std::abs(now))) return false;
  }
  return true;
}

int32 iterate(const regression_rows& rows, int32 most, int32& iterations, bool& converged,
              double& loglik, array<double, 2>& beta, logit_mt_workspace_type& work,
              error_type& err) {
  work.coefficients.flat.assign(beta.flat.begin(), beta.flat.end());
  for_free_columns(work, [&](int32 q, int32 j, int32 k) { work.current(q) = beta(j, k); });
  while (!converged && iterations < most) {
    ++iterations;
    const int32 code = sum_rows(rows, work, loglik);
    if (code != 0) return fail(err, here, code, {text("at iteration ", iterations)});
    if (newton_step(iterations, work, err) != 0) return -1;
    for_free_columns(work, [&](int32 q, int32 j, int32 k) {
      beta(j, k) = work.coefficients(j, k) = work.current(q);
    });
    converged = has_converged(work);
  }
  return 0;
}

}  // namespace

int32 run_logit_model_threads(const array<double, 2>& x, const array<double, 2>& y,
                              const array<double, 1>* weight, int32 baseline, int32& iterations,
                              bool& converged, double& loglik, array<double, 2>& beta,
                              const array<int32, 1>& grpvar, int32 group, int32 slots,
                              std::optional<int32> max_iterations, logit_mt_workspace_type& work,
                              error_type& err) {
  iterations = 0;
  converged = false;
  loglik = 0.0;
  const int32 r = y.n[1];
  if (x.n[0] != y.n[0]) return fail(err, here, error_code::not_conformable, {text("x and y")});
  if (grpvar.n[0] != x.n[0])
    return fail(err, here, error_code::not_conformable, {text("x and grpvar")});
  if (r < 2) return fail(err, here, {text("There must be at least two response categories.")});
  if (baseline < 1 || baseline > r)
    return fail(
        err, here,
        {text("Invalid value for baseline category;"), text("must lie between 0 and ncol(y).")});
  bool equal_weights = false;
  if (weight != nullptr && check_weight(*weight, y.n[0], equal_weights, err) != 0) return -1;
  const int32 most = max_iterations.value_or(20);
  if (most < 1)
    return fail(err, here, {text("Maximum number of iterations"), text("must be positive.")});
  if (check_beta(beta, x.n[1], r, baseline, err) != 0 ||
      prepare_workspace(x, y, baseline, slots, work, err) != 0)
    return -1;
  const regression_rows rows{x, y, equal_weights ? nullptr : weight, grpvar, group};
  if (check_totals(rows, work, err) != 0) return -1;
  return iterate(rows, most, iterations, converged, loglik, beta, work, err);
}

}  // namespace tolvenra::logit_model
