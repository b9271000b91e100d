#include <algorithm>
#include <cmath>
#include <limits>

#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"
#include "estimation/msteps_covariates.hpp"
#include "estimation/standard_errors.hpp"

namespace tolvenra::api {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr int32 not_converged = 2;

/// The data and estimates of a fit with one covariate left out.
struct reduced_model {
  dataset_type dataset;
  param_type param;
};

array<double, 2> without_column(const array<double, 2>& cov, int32 left_out) {
  array<double, 2> rest;
  rest.allocate({cov.n[0], cov.n[1] - 1});
  for (int32 j = 1, to = 1; j <= cov.n[1]; ++j) {
    if (j == left_out) continue;
    std::copy_n(cov.column(j), cov.n[0], rest.column(to++));
  }
  return rest;
}

array<double, 3> without_row(const array<double, 3>& beta, int32 left_out) {
  array<double, 3> rest;
  rest.allocate({beta.n[0] - 1, beta.n[1], beta.n[2]});
  for (int32 g = 1; g <= beta.n[2]; ++g)
    for (int32 c = 1; c <= beta.n[1]; ++c)
      for (int32 j = 1, to = 1; j <= beta.n[0]; ++j)
        if (j != left_out) rest(to++, c, g) = beta(j, c, g);
  return rest;
}

int32 put_options(const param_type& full, param_type& reduced, error_type& err) {
  using namespace param;
  if (put_rho_equal_across_strata(full.rho_equal_across_strata, reduced, err) != 0 ||
      put_gamma_restrictions(full.gamma_restrictions, reduced, err) != 0 ||
      put_rho_restrictions(full.rho_restrictions, reduced, err) != 0 ||
      put_gamma(full.gamma, reduced, err) != 0 || put_rho(full.rho, reduced, err) != 0 ||
      put_baseline_gamma(full.baseline_gamma, reduced, err) != 0)
    return -1;
  if (full.gamma_binary_regression && put_binary_gamma(full.binary_gamma, reduced, err) != 0)
    return -1;
  if (full.rho_prior_set && (put_rho_prior(full.rho_prior, reduced, err) != 0 ||
                             put_rho_prior_ess(full.rho_prior_ess, reduced, err) != 0))
    return -1;
  return 0;
}

/// The prior of the regression; without any covariate left it is one of the class shares.
int32 put_class_prior(const param_type& full, param_type& reduced, error_type& err) {
  if (!full.beta_stabilizing_prior_set) return 0;
  if (reduced.ncov > 0)
    return param::put_beta_stabilizing_prior(full.beta_stabilizing_prior,
                                             full.beta_stabilizing_prior_ess, reduced, err);
  array<double, 1> ess;
  ess.allocate({full.nstr}, full.beta_stabilizing_prior_ess);
  array<double, 2> prior = full.beta_stabilizing_prior;
  raise_rows(param::gamma_rows(full), full.gamma_restrictions.flat, prior.flat);
  if (param::put_gamma_prior(prior, reduced, err) != 0) return -1;
  return param::put_gamma_prior_ess(ess, reduced, err);
}

/// Where the coefficients of the smaller model start: at those of the full one, or, when some of
/// these have no finite estimate, at regressions of its posteriors.
int32 put_start(const fitted_start& full, int32 covariate, param_type& reduced, error_type& err) {
  array<double, 3> beta;
  if (full.result.n_runaway == 0)
    beta = without_row(full.param.beta, covariate + 1);
  else if (estimation::regress_classes_without(full.work, covariate, beta, err) != 0)
    return -1;
  return param::put_beta(beta, reduced, err);
}

int32 leave_out(const dataset_type& dataset, const fitted_start& best, int32 covariate,
                reduced_model& reduced, error_type& err) {
  const param_type& full = best.param;
  reduced.dataset = dataset;
  const array<double, 2> cov = without_column(*dataset.cov, covariate);
  if (dataset::put_ncov(full.ncov - 1, reduced.dataset, err) != 0 ||
      (full.ncov > 1 && dataset::put_cov(cov, reduced.dataset, err) != 0))
    return -1;
  array<int32, 1> dims;
  if (param::get_dims(full, dims, err) != 0) return -1;
  dims(4) = full.ncov - 1;
  if (param::put_dims(dims, reduced.param, err) != 0 ||
      put_options(full, reduced.param, err) != 0 || put_class_prior(full, reduced.param, err) != 0)
    return -1;
  return put_start(best, covariate, reduced.param, err);
}

/// Twice the loss of log-likelihood without covariate i; its status.
int32 test_one(lca_run& run, int32 covariate, double& statistic) {
  error_type report;
  reduced_model reduced;
  mlresult_type result;
  mlworkspace work;
  run_progress::fit_view view{&run.progress, covariate, true};
  estimation::em_controls controls{run.call.criterion, run.call.max_iter, run.call.max_threads,
                                   view.watch()};
  statistic = nan;
  if (leave_out(run.dataset, *run.best, covariate, reduced, report) != 0 ||
      estimation::run_em_modelfit(reduced.dataset, run.model, reduced.param, result, work, report,
                                  controls) != 0)
    return regression_failed(report) ? -1 : 1;
  statistic = 2.0 * (run.best->result.loglik - result.loglik);
  return result.converged ? 0 : not_converged;
}

/// Coefficients of one covariate: in every stratum one per class that is estimated but the
/// reference; of the binary form that of the compared class.
double degrees_of_freedom(const mlworkspace& work) {
  double df = 0.0;
  for (const estimation::regression& fit : work.beta.fits) {
    if (fit.binary > 0)
      df += fit.absent[static_cast<std::size_t>(fit.binary - 1)] ? 0.0 : 1.0;
    else
      df += static_cast<double>(std::count(fit.absent.begin(), fit.absent.end(), false)) - 1.0;
  }
  return df;
}

/// Under sampling weights or clusters a likelihood-ratio statistic is not chi-square; divided by
/// its Rao-Scott factor it has the right mean. \return the factors of all covariates, 1 for plain
/// data, NaN where the standard errors do not exist; the message text says why
std::vector<double> correction_factors(lca_run& run) {
  std::vector<double> factors(run.test_stat.size(), 1.0);
  if (!run.call.weight_given && !run.call.clusters) return factors;
  const mlworkspace& work = run.best->work;
  mlresult_type result;  // the run's own keeps what the host asked for
  result.filled = true;
  result.apparent_df = run.best->result.apparent_df;
  error_type report;
  const bool found = estimation::driver_for_tests(work)(work, result, report) == 0;
  if (!found) note(run, report);
  for (std::size_t i = 0; i < factors.size(); ++i)
    factors[i] =
        found ? estimation::rao_scott_factor(work, result, static_cast<int32>(i) + 1) : nan;
  return factors;
}

/// A single class depends on no covariate: none can be left out of its model.
void note_untestable(lca_run& run, std::size_t count) {
  run.test_stat.assign(count, nan);
  run.test_p.assign(count, nan);
  run.test_status.assign(count, -1);
}

}  // namespace

int32 test_covariates(lca_run& run) {
  const lca_call& call = run.call;
  if (!call.test_stat || call.ncov < 1) return 0;
  const auto count = static_cast<std::size_t>(call.ncov);
  if (call.nc < 2) {
    note_untestable(run, count);
    return 0;
  }
  run.test_stat.assign(call.test_stat, call.test_stat + count);
  run.test_p.assign(count, 1.0);
  run.test_status.assign(count, 0);
  std::vector<double> factors(count, 1.0);
  const double df = degrees_of_freedom(run.best->work);
  if (call.want_tests) {
    run.progress.begin_stage(run_stage::covariate_tests, call.ncov);
    factors = correction_factors(run);
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (call.want_tests)
      run.test_status[i] = test_one(run, static_cast<int32>(i) + 1, run.test_stat[i]);
    run.test_stat[i] /= factors[i];
    if (std::isnan(factors[i]) && run.test_status[i] == 0) run.test_status[i] = 1;
    if (run.progress.cancelled()) return refuse_cancelled(run);
    if (fill_test_tail(run, i, df) != 0) return -1;
    if (!(df > 0.0)) run.test_p[i] = 1.0;  // without a coefficient there is nothing to reject
    if (call.want_tests || !std::isnan(run.test_stat[i])) continue;
    run.test_p[i] = nan;  // the host gave no statistic
    run.test_status[i] = 1;
  }
  return 0;
}

}  // namespace tolvenra::api
