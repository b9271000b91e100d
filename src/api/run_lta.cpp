#include "api/run_lta.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "api/lta_run.hpp"
#include "api/status_stabilising.hpp"
#include "estimation/row_recursion.hpp"

namespace tolvenra::api {
namespace {

/// The first start has SEED, the others seeds drawn from it; no clock.
int32 seed_starts(lta_run& run) {
  const lta_call& call = run.call;
  run.starts.resize(static_cast<std::size_t>(std::max(call.nstarts ? *call.nstarts : 1, 1)));
  for (start_outcome& start : run.starts) start.seed = call.seed;
  if (!call.random_starts) return 0;
  if (call.seed < 1)
    return refuse(run, {text("The SEED provided for Tolvenra must be a positive integer.")});
  return draw_start_seeds(call.seed, std::span(run.starts).subspan(1), run.err);
}

estimation::em_controls controls_of(const lta_call& call) {
  return {call.criterion, call.max_iter, call.max_threads, {}};
}

fixed_measurement fixed_values(const lta_run& run) {
  return {nullptr, run.given_big_rho.allocated ? &run.given_big_rho : nullptr};
}

int32 refuse_stabilising_fit(lta_run& run) {
  explain_unreachable(run);
  return refuse(run, {text("NOTE: the above error occurred during the initial"),
                      text("      model run to obtain stablizing priors.")});
}

/// Fits the model without covariates where a prior is asked for: its estimates become the priors of
/// the covariate model.
int32 stabilise(lta_run& run) {
  const lta_call& call = run.call;
  if ((call.ncov_delta == 0 && call.ncov_tau == 0) || !(call.prior_strength > 0.0)) return 0;
  stabilising_model& plain = run.plain.emplace();
  run.progress.begin_stage(run_stage::stabilising, 1);
  if (drop_status_covariates(run.dataset, run.param, plain, run.err) != 0) return -1;
  if (call.random_starts &&
      draw_measurement(run.starts.front().seed, fixed_values(run), plain.param, run.err) != 0)
    return -1;
  run_progress::fit_view view{&run.progress, 1, true};
  estimation::em_controls controls = controls_of(call);
  controls.watch = view.watch();
  mlresult_type result;
  mlworkspace work;
  if (estimation::run_em_modelfit(plain.dataset, run.model, plain.param, result, work, run.err,
                                  controls) != 0)
    return run.progress.cancelled() ? refuse_cancelled(run) : refuse_stabilising_fit(run);
  plain.iterations = result.iter;
  if (!result.converged)
    return refuse(run, {text("No-covariates model for stabilization did not converge"),
                        text("after ", result.iter, " iterations.  Please run this model without"),
                        text("covariates to resolve the problem.")});
  return put_status_priors(plain.param, own_status_labels(run.param), call.prior_strength,
                           run.param, run.err);
}

int32 search_starts(lta_run& run) {
  const lta_call& call = run.call;
  start_search search;
  search.dataset = &run.dataset;
  search.model = &run.model;
  search.base = &run.param;
  search.random = call.random_starts != 0;
  search.fixed = fixed_values(run);
  search.controls = controls_of(call);
  search.progress = &run.progress;
  search.strengths.status = call.prior_strength;
  if (run.plain && run.starts.size() > 1 && search.random &&
      !statuses_are_labelled(run.param, search.fixed.big_rho))
    search.plain = &*run.plain;
  if (fit_starts(search, run) == 0) return 0;
  // A stabilising run that ended well had cases in every row, so the reason is another one; and so
  // it is where a regression failed.
  const bool regressed = std::any_of(run.starts.begin(), run.starts.end(),
                                     [](const start_outcome& start) { return start.status == -1; });
  if (!run.progress.cancelled() && !run.plain && !regressed) explain_unreachable(run);
  return -1;
}

/// Relative entropy of the status posteriors over all times.
double relative_status_entropy(const mlworkspace& work, double raw) {
  if (work.latent.ns < 2) return 1.0;
  return 1.0 - raw / (work.data.total_weight * work.data.nt * std::log(work.latent.ns));
}

int32 compute_statistics(lta_run& run) {
  mlresult_type& result = run.best->result;
  const mlworkspace& work = run.best->work;
  compute_fit_stats(wanted_fit_stats(run.call, false), run);
  double& g2_tail = run.fit_extra[1];
  double& cat_tail = run.fit_extra[5];
  run.fit_extra[0] = result.X2;
  run.fit_extra[2] = result.caic;
  run.fit_extra[3] = result.abic;
  run.fit_extra[4] = result.loglik + estimation::log_prior(work);
  run.fit_extra[6] = estimation::status_entropy(work);
  run.fit_extra[7] = relative_status_entropy(work, run.fit_extra[6]);
  run.fit_extra[8] = result.cat_shortfall;
  g2_tail = cat_tail = std::numeric_limits<double>::quiet_NaN();
  if (result.overflow_count > 0) return 0;  // no test on an overflow
  if (upper_tail(result.G2, result.apparent_df, g2_tail, run.err) != 0) return -1;
  return upper_tail(result.cat_g2, result.cat_df, cat_tail, run.err);
}

/// Covariate tests; once the host cancels they are left out.
int32 tests(lta_run& run) {
  const lta_call& call = run.call;
  if (!run.progress.cancelled() && test_covariates(run) == 0) return 0;
  if (!run.progress.cancelled()) return -1;
  const int32 count = std::max(call.ncov_delta, 0) + std::max(call.ncov_tau, 0);
  leave_out_tests(call.test_stat ? static_cast<std::size_t>(count) : 0, run);
  return 0;
}

int32 run_stages(lta_run& run) {
  if (check_lta_boundary(run) != 0 || seed_starts(run) != 0 || load_data(run) != 0 ||
      load_model(run) != 0 || stabilise(run) != 0 || search_starts(run) != 0 ||
      compute_statistics(run) != 0 || tests(run) != 0)
    return -1;
  return copy_out_lta(run);
}

}  // namespace

int32 run_lta(const lta_call& call, const std::function<void(const fitted_start&)>& completed) {
  lta_run run(call);
  enter_lta(run);
  const int32 status = run_stages(run);
  copy_out_starts(run, {call.start_seeds, call.start_loglik, call.start_iter, call.start_converged,
                        call.start_status, call.run_info});
  if (status != 0) run.message.write(run.err);
  if (status == 0 && completed) completed(*run.best);
  return status;
}

}  // namespace tolvenra::api
