#include "api/run_lca.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"
#include "core/dynamic_allocation.hpp"
#include "numerics/random_generator.hpp"

namespace tolvenra::api {
namespace {

using namespace dynamic_allocation;

/// One seed per start; without multiple starts every slot takes SEED itself.
int32 seed_starts(lca_run& run) {
  const lca_call& call = run.call;
  run.starts.resize(static_cast<std::size_t>(std::max(call.nstarts, 1)));
  if (call.nstarts > 1) {
    if (draw_start_seeds(call.seed, run.starts, run.err) != 0)
      return refuse(run, {text("Error initializing random number generator.")});
    return 0;
  }
  for (start_outcome& start : run.starts) start.seed = call.seed;
  if (call.seed < 1 && !call.start_given)
    return refuse(run, {text("If neither a starting value dataset nor a positive integer seed "),
                        text("is specified, then the NSTARTS option must be used.")});
  return 0;
}

estimation::em_controls controls_of(const lca_call& call) {
  return {call.criterion, call.max_iter, call.max_threads, {}};
}

prior_strengths strengths_of(const lca_call& call) {
  return {call.beta_prior_strength, call.rho_prior_strength, call.gamma_prior_strength};
}

/// Fits the model without covariates where a prior is asked for: its estimates become the priors of
/// the covariate model.
int32 stabilise(lca_run& run) {
  const lca_call& call = run.call;
  if (call.ncov == 0 || !strengths_of(call).any()) return 0;
  stabilising_model& plain = run.plain.emplace();
  run.progress.begin_stage(run_stage::stabilising, 1);
  if (drop_covariates(run.dataset, run.param, plain, run.err) != 0) return -1;
  const array<double, 4>* fixed = run.given_rho.allocated ? &run.given_rho : nullptr;
  if (!call.start_given &&
      draw_measurement(run.starts.front().seed, {fixed, nullptr}, plain.param, run.err) != 0)
    return -1;
  run_progress::fit_view view{&run.progress, 1, true};
  estimation::em_controls controls = controls_of(call);
  controls.watch = view.watch();
  mlresult_type result;
  mlworkspace work;
  if (estimation::run_em_modelfit(plain.dataset, run.model, plain.param, result, work, run.err,
                                  controls) != 0) {
    if (run.progress.cancelled()) return refuse_cancelled(run);
    explain_impossible(run);
    return -1;
  }
  plain.iterations = result.iter;
  if (!result.converged)
    return refuse(run, {text("No-covariates model for stabilization did not converge"),
                        text("after ", result.iter, " iterations.")});
  return put_stabilising_priors(plain.param, own_labels(run.param), strengths_of(call), run.param,
                                run.err);
}

int32 search_starts(lca_run& run) {
  const lca_call& call = run.call;
  start_search search;
  search.dataset = &run.dataset;
  search.model = &run.model;
  search.base = &run.param;
  search.random = !call.start_given;
  search.fixed.rho = run.given_rho.allocated ? &run.given_rho : nullptr;
  search.controls = controls_of(call);
  search.progress = &run.progress;
  const prior_strengths strengths = strengths_of(call);
  if (run.plain && run.starts.size() > 1 && !classes_are_labelled(run.param, search.fixed.rho)) {
    search.plain = &*run.plain;
    search.strengths = strengths;
  }
  if (fit_starts(search, run) == 0) return 0;
  if (!run.progress.cancelled()) explain_impossible(run);
  return -1;
}

int32 compute_statistics(lca_run& run) {
  mlresult_type& result = run.best->result;
  compute_fit_stats(wanted_fit_stats(run.call, run.call.caic || run.call.abic), run);
  const bool cells_fit = result.overflow_count == 0;
  double& g2_tail = run.fit_extra[1];
  double& cat_tail = run.fit_extra[5];
  double& x2_tail = run.fit_extra[6];
  run.fit_extra[0] = result.X2;
  run.fit_extra[2] = result.weighted_entropyraw;
  run.fit_extra[3] = result.weighted_entropy;
  run.fit_extra[4] = result.loglik + estimation::log_prior(run.best->work);
  run.fit_extra[7] = result.cat_shortfall;
  g2_tail = cat_tail = x2_tail = std::numeric_limits<double>::quiet_NaN();
  if (!cells_fit) return 0;  // no test on an overflow
  if (upper_tail(result.G2, result.apparent_df, g2_tail, run.err) != 0 ||
      upper_tail(result.cat_g2, result.cat_df, cat_tail, run.err) != 0 ||
      upper_tail(result.X2, 1.0 * result.apparent_df + result.cat_df, x2_tail, run.err) != 0)
    return -1;
  return 0;
}

bool draws_wanted(const lca_call& call) { return call.want_draws && call.drawn_class; }

/// The draws come last; a seed that they cannot use is told before the fit.
int32 check_draw_seed(lca_run& run) {
  const lca_call& call = run.call;
  if (!draws_wanted(call) || (call.seed2 >= 1 && call.seed2 <= random_generator::m2)) return 0;
  return refuse(run, {text("The seed of the class draws (seed2) specified was ", call.seed2),
                      text("The allowable range is 1 to ", random_generator::m2)});
}

int32 draw_each(lca_run& run) {
  const lca_call& call = run.call;
  const mlresult_type& result = run.best->result;
  array<double, 1> prob;
  ran_state_type state;
  if (dbl1_alloc(prob, call.nc, run.err, {}, "runlca: prob") != 0 ||
      random_generator::ran_setall(state, call.seed2, call.seed2, run.err) != 0)
    return -1;
  std::int32_t* drawn = call.drawn_class;
  for (const int32 row : result.rows->row_of_case) {
    std::copy_n(result.post_cls.begin() + std::ptrdiff_t{row - 1} * call.nc, call.nc,
                prob.flat.begin());
    if (random_generator::ran_genmuln(state, prob, call.nc, *drawn++, run.err) != 0) return -1;
  }
  return 0;
}

/// One random class per case from its posterior, in case order; -1 everywhere when one fails.
void draw_classes(lca_run& run) {
  const lca_call& call = run.call;
  if (!draws_wanted(call)) return;
  if (!run.progress.cancelled() && run_apart(run, [&] { return draw_each(run); })) return;
  std::fill_n(call.drawn_class, call.nkase, -1);
}

/// The tests follow the fit; once the host cancels they are left out.
int32 tests(lca_run& run) {
  const lca_call& call = run.call;
  if (!run.progress.cancelled() && test_covariates(run) == 0) return 0;
  if (!run.progress.cancelled()) return -1;
  leave_out_tests(call.test_stat ? static_cast<std::size_t>(std::max(call.ncov, 0)) : 0, run);
  return 0;
}

int32 run_stages(lca_run& run) {
  if (check_lca_boundary(run) != 0 || seed_starts(run) != 0 || load_data(run) != 0 ||
      load_model(run) != 0 || check_draw_seed(run) != 0 || stabilise(run) != 0 ||
      search_starts(run) != 0 || compute_statistics(run) != 0 || tests(run) != 0 ||
      copy_out_lca(run) != 0)
    return -1;
  draw_classes(run);
  standard_errors(run);
  return 0;
}

}  // namespace

int32 run_lca(const lca_call& call, const std::function<void(const fitted_start&)>& completed) {
  lca_run run(call);
  enter_lca(run);
  const int32 status = run_stages(run);
  copy_out_starts(run, {call.start_seeds, call.start_loglik, call.start_iter, call.start_converged,
                        call.start_status, call.run_info});
  if (status != 0) run.message.write(run.err);
  if (status == 0 && completed) completed(*run.best);
  return status;
}

}  // namespace tolvenra::api
