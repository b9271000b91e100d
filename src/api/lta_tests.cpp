// Likelihood-ratio tests of the covariates of initial statuses and transitions.
#include <limits>

#include "api/host_arrays.hpp"
#include "api/lta_run.hpp"
#include "estimation/msteps_status_covariates.hpp"

namespace tolvenra::api {
namespace {

constexpr int32 not_converged = 2;

/// A covariate of the initial status, or one of the transitions, which leaves all of them at once.
struct covariate {
  bool of_transitions;
  int32 number;  ///< 1-based within its family
};

covariate covariate_at(const lta_call& call, int32 i) {
  return i <= call.ncov_delta ? covariate{false, i} : covariate{true, i - call.ncov_delta};
}

/// Whether a column of the data (1-based) holds the covariate.
bool belongs(const lta_call& call, int32 column, const covariate& left_out) {
  if (column <= call.ncov_delta) return !left_out.of_transitions && column == left_out.number;
  return left_out.of_transitions &&
         (column - call.ncov_delta - 1) % call.ncov_tau + 1 == left_out.number;
}

int32 drop_columns(lta_run& run, const covariate& left_out, dataset_type& reduced,
                   error_type& err) {
  const lta_call& call = run.call;
  const array<double, 2>& cov = *run.dataset.cov;
  array<double, 2> rest;
  const int32 dropped = left_out.of_transitions ? call.nt - 1 : 1;
  rest.allocate({cov.n[0], cov.n[1] - dropped});
  int32 to = 0;
  for (int32 j = 1; j <= cov.n[1]; ++j)
    if (!belongs(call, j, left_out)) std::copy_n(cov.column(j), cov.n[0], rest.column(++to));
  reduced = run.dataset;
  if (dataset::put_ncov_delta(call.ncov_delta - (left_out.of_transitions ? 0 : 1), reduced, err) !=
          0 ||
      dataset::put_ncov_tau(call.ncov_tau - (left_out.of_transitions ? 1 : 0), reduced, err) != 0)
    return -1;
  return rest.n[1] > 0 ? dataset::put_cov(rest, reduced, err) : 0;
}

/// An array without element `left_out` (1-based) of its first dimension.
template <std::size_t R>
array<double, R> without(const array<double, R>& from, int32 left_out) {
  array<double, R> rest;
  std::array<int32, R> extents = from.n;
  --extents[0];
  rest.allocate(extents);
  std::size_t to = 0;
  for (std::size_t q = 0; q < from.size(); ++q)
    if (static_cast<int32>(q % static_cast<std::size_t>(from.n[0])) + 1 != left_out)
      rest.flat[to++] = from.flat[q];
  return rest;
}

int32 put_options(const param_type& full, param_type& reduced, error_type& err) {
  using namespace param;
  if (put_big_rho_equal_across_strata(full.big_rho_equal_across_strata, reduced, err) != 0 ||
      put_big_rho_equal_across_time(full.big_rho_equal_across_time, reduced, err) != 0 ||
      put_delta_restrictions(full.delta_restrictions, reduced, err) != 0 ||
      put_tau_restrictions(full.tau_restrictions, reduced, err) != 0 ||
      put_big_rho_restrictions(full.big_rho_restrictions, reduced, err) != 0 ||
      put_delta(full.delta, reduced, err) != 0 || put_tau(full.tau, reduced, err) != 0 ||
      put_big_rho(full.big_rho, reduced, err) != 0 ||
      put_baseline_delta(full.baseline_delta, reduced, err) != 0)
    return -1;
  if (full.nt > 1 && put_baseline_tau(full.baseline_tau, reduced, err) != 0) return -1;
  if (full.delta_binary_regression && put_binary_delta(full.binary_delta, reduced, err) != 0)
    return -1;
  return full.tau_binary_regression ? put_binary_tau(full.binary_tau, reduced, err) : 0;
}

/// The priors of the regressions; a family without any covariate left has them on its
/// probabilities.
int32 put_priors(const param_type& full, param_type& reduced, error_type& err) {
  using namespace param;
  if (full.delta_beta_stabilizing_prior_set && reduced.ncov_delta > 0) {
    if (put_delta_beta_stabilizing_prior(full.delta_beta_stabilizing_prior,
                                         full.delta_beta_stabilizing_prior_ess, reduced, err) != 0)
      return -1;
  } else if (full.delta_beta_stabilizing_prior_set) {
    array<double, 2> ess;
    ess.allocate({full.nc, full.nstr}, full.delta_beta_stabilizing_prior_ess);
    array<double, 3> prior = full.delta_beta_stabilizing_prior;
    raise_rows(delta_rows(full), full.delta_restrictions.flat, prior.flat);
    if (put_delta_prior(prior, reduced, err) != 0 || put_delta_prior_ess(ess, reduced, err) != 0)
      return -1;
  }
  if (!full.tau_beta_stabilizing_prior_set) return 0;
  if (reduced.ncov_tau > 0)
    return put_tau_beta_stabilizing_prior(full.tau_beta_stabilizing_prior,
                                          full.tau_beta_stabilizing_prior_ess, reduced, err);
  array<double, 4> ess;
  ess.allocate({full.ns, full.nt - 1, full.nc, full.nstr}, full.tau_beta_stabilizing_prior_ess);
  array<double, 5> prior = full.tau_beta_stabilizing_prior;
  raise_rows(tau_rows(full), full.tau_restrictions.flat, prior.flat);
  if (put_tau_prior(prior, reduced, err) != 0) return -1;
  return put_tau_prior_ess(ess, reduced, err);
}

int32 leave_out(lta_run& run, const covariate& left_out, dataset_type& dataset, param_type& reduced,
                error_type& err) {
  const param_type& full = run.best->param;
  array<int32, 1> dims;
  if (drop_columns(run, left_out, dataset, err) != 0 || param::get_dims(full, dims, err) != 0)
    return -1;
  dims(5) = dataset.ncov_delta;
  dims(6) = dataset.ncov_tau;
  if (param::put_dims(dims, reduced, err) != 0 || put_options(full, reduced, err) != 0 ||
      put_priors(full, reduced, err) != 0)
    return -1;
  array<double, 4> delta_beta = full.delta_beta;
  array<double, 6> tau_beta = full.tau_beta;
  const int32 of_start = left_out.of_transitions ? 0 : left_out.number;
  const int32 of_moves = left_out.of_transitions ? left_out.number : 0;
  if (run.best->result.n_runaway > 0) {  // some lead nowhere: regressions of the posteriors do not
    if (estimation::regress_statuses_without(run.best->work, of_start, of_moves, delta_beta,
                                             tau_beta, err) != 0)
      return -1;
  } else if (left_out.of_transitions) {
    tau_beta = without(tau_beta, left_out.number + 1);
  } else {
    delta_beta = without(delta_beta, left_out.number + 1);
  }
  if (param::put_delta_beta(delta_beta, reduced, err) != 0) return -1;
  return param::put_tau_beta(tau_beta, reduced, err);
}

/// Twice the loss of log-likelihood without a covariate; its status.
int32 test_one(lta_run& run, int32 i, double& statistic) {
  error_type report;
  dataset_type dataset;
  param_type reduced;
  mlresult_type result;
  mlworkspace work;
  run_progress::fit_view view{&run.progress, i, true};
  const estimation::em_controls controls{run.call.criterion, run.call.max_iter,
                                         run.call.max_threads, view.watch()};
  statistic = std::numeric_limits<double>::quiet_NaN();
  if (leave_out(run, covariate_at(run.call, i), dataset, reduced, report) != 0 ||
      estimation::run_em_modelfit(dataset, run.model, reduced, result, work, report, controls) != 0)
    return regression_failed(report) ? -1 : 1;
  statistic = 2.0 * (run.best->result.loglik - result.loglik);
  return result.converged ? 0 : not_converged;
}

/// Coefficients of one covariate: one per fitted category but the reference, structural zeros left
/// out; of a binary regression one.
double degrees_of_freedom(const lta_run& run, const covariate& tested) {
  const param_type& set = run.best->param;
  const bool moves = tested.of_transitions;
  const row_layout rows = moves ? param::tau_rows(set) : param::delta_rows(set);
  const auto& codes = moves ? set.tau_restrictions.flat : set.delta_restrictions.flat;
  const bool binary = moves ? set.tau_binary_regression : set.delta_binary_regression;
  double df = 0.0;
  for (int32 m = 0; m < rows.nrows; ++m) {
    int32 categories = 0;
    for (int32 r = 0; r < rows.length[static_cast<std::size_t>(m)]; ++r)
      categories += codes[static_cast<std::size_t>(rows.base(m) + r * rows.step)] != 0 ? 1 : 0;
    df += binary ? 1.0 : std::max(categories - 1, 0);
  }
  return df;
}

}  // namespace

int32 test_covariates(lta_run& run) {
  const lta_call& call = run.call;
  const int32 count = std::max(call.ncov_delta, 0) + std::max(call.ncov_tau, 0);
  if (!call.test_stat || count < 1) return 0;
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  run.test_stat.assign(static_cast<std::size_t>(count), nan);  // what has no effect has no test
  run.test_p.assign(run.test_stat.size(), nan);
  run.test_status.assign(run.test_stat.size(), -1);
  run.progress.begin_stage(run_stage::covariate_tests, count);
  const int32 tested = call.ns < 2 ? 0 : (call.nt > 1 ? count : std::max(call.ncov_delta, 0));
  for (int32 i = 1; i <= tested; ++i) {
    const auto at = static_cast<std::size_t>(i - 1);
    run.test_status[at] = test_one(run, i, run.test_stat[at]);
    if (run.progress.cancelled()) return refuse_cancelled(run);
    if (fill_test_tail(run, at, degrees_of_freedom(run, covariate_at(call, i))) != 0) return -1;
  }
  return 0;
}

}  // namespace tolvenra::api
