#include "estimation/em.hpp"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "core/dynamic_allocation.hpp"
#include "core/parallel.hpp"
#include "estimation/estep.hpp"
#include "estimation/fit_stats.hpp"
#include "estimation/flat_directions.hpp"
#include "estimation/msteps.hpp"
#include "estimation/msteps_covariates.hpp"
#include "estimation/msteps_status_covariates.hpp"
#include "estimation/row_recursion.hpp"

namespace tolvenra::estimation {
namespace {

constexpr routine here{"run_em_modelfit", "estimation"};

/// Absolute changes of the parameters in one iteration.
struct change {
  double largest = 0.0, sum = 0.0;
  int64 elements = 0;

  template <std::size_t R>
  void add(const prob_block<R>& block) {
    compare(block.now.flat, block.old.flat);
    for (const int32 length : block.rows.length) elements += length;  // without the padding
  }
  template <std::size_t R>
  void add(const logit_block<R>& block) {
    compare(block.now.flat, block.old.flat);
    elements += static_cast<int64>(block.now.size());
  }

 private:
  void compare(const std::vector<double>& now, const std::vector<double>& old) {
    for (std::size_t q = 0; q < now.size(); ++q) {
      const double difference = std::abs(now[q] - old[q]);
      if (difference > largest || std::isnan(difference)) largest = difference;  // a NaN stays
      sum += difference;
    }
  }
};

int32 set_controls(const em_controls& controls, mlworkspace& work, error_type& err) {
  em_state& em = work.em;
  em = em_state{};
  em.threads = parallel::thread_count(controls.max_threads.value_or(0));
  if (controls.max_iter) {
    if (*controls.max_iter < 1)
      return fail(err, here, {text("Maximum number of iterations must be positive.")});
    em.max_iter = *controls.max_iter;
  }
  if (controls.criterion) {
    if (!(*controls.criterion > 0.0))
      return fail(err, here, {text("Convergence criterion must be positive.")});
    em.criterion = *controls.criterion;
  }
  return 0;
}

/// A regression step; a failed one suggests the prior that was not in use.
int32 run_regression(int32 (*step)(mlworkspace&, error_type&), bool use_prior,
                     std::string_view failed, mlworkspace& work, error_type& err) {
  if (step(work, err) == 0) return 0;
  const text_lines where = text(failed, work.em.iter);
  if (use_prior) return fail(err, here, {where});
  return fail(err, here,
              {where, text("Could not fit logit model. We suggest"),
               text("using the BETA PRIOR statement.")});
}

/// Which families of parameters the iterations estimate.
struct estimated {
  bool rho, big_rho, gamma, beta, delta, delta_beta, tau, tau_beta;

  explicit estimated(const mlworkspace& work) {
    const bool moves = work.data.ni > 0 && work.latent.ns >= 2;
    rho = work.data.nci > 0;
    big_rho = work.data.ni > 0;
    beta = work.beta.active;
    gamma = work.data.nci > 0 && work.latent.nc >= 2 && !beta;
    delta_beta = work.delta_beta.active;
    delta = moves && !delta_beta;
    tau_beta = work.tau_beta.active;
    tau = moves && work.data.nt >= 2 && !tau_beta;
  }
};

/// The M-steps of one iteration, each only where its parameter exists.
int32 run_msteps(mlworkspace& work, error_type& err) {
  const estimated now(work);
  const auto failed = [&](std::string_view step) {
    return fail(err, here, {text(step, work.em.iter)});
  };
  if (now.rho && mstep_rho(work, err) != 0) return failed("M-step for RHO failed at iteration ");
  if (now.big_rho && mstep_big_rho(work, err) != 0)
    return failed("M-step for BIG RHO failed at iteration ");
  if (now.gamma && mstep_gamma(work, err) != 0)
    return failed("M-step for gamma failed at iteration ");
  if (now.beta && run_regression(mstep_beta, work.beta.use_prior,
                                 "M-step for BETA failed at iteration ", work, err) != 0)
    return -1;
  if (now.delta && mstep_delta(work, err) != 0)
    return failed("M-step for delta failed at iteration ");
  if (now.delta_beta &&
      run_regression(mstep_delta_beta, work.delta_beta.use_prior,
                     "M-step for DELTA BETA failed at iteration ", work, err) != 0)
    return -1;
  if (now.tau && mstep_tau(work, err) != 0) return failed("M-step for TAU failed at iteration ");
  if (now.tau_beta && run_regression(mstep_tau_beta, work.tau_beta.use_prior,
                                     "M-step for TAU BETA failed at iteration ", work, err) != 0)
    return -1;
  return 0;
}

void note_change(mlworkspace& work) {
  const estimated now(work);
  change moved;
  const auto add = [&](bool compared, const auto& block) {
    if (compared) moved.add(block);
  };
  add(now.rho, work.rho);
  add(now.gamma, work.gamma);
  add(now.beta, work.beta);
  add(now.delta, work.delta);
  add(now.delta_beta, work.delta_beta);
  add(now.tau, work.tau);
  add(now.tau_beta, work.tau_beta);
  add(now.big_rho, work.big_rho);
  work.em.max_abs_diff = moved.largest;
  work.em.mean_abs_diff =
      moved.elements > 0 ? moved.sum / static_cast<double>(moved.elements) : 0.0;
}

/// The current estimates become the old ones.
void keep_estimates(mlworkspace& work) {
  const auto keep = [](auto&... blocks) { ((blocks.old.flat = blocks.now.flat), ...); };
  keep(work.rho, work.gamma, work.beta);
  if (work.data.ni > 0) keep(work.delta, work.tau, work.big_rho, work.delta_beta, work.tau_beta);
}

int32 run_estep(mlworkspace& work, error_type& err) {
  if (estep(work, err) == 0) return 0;
  return fail(err, here, {text("E-step for LTA failed at iteration ", work.em.iter)});
}

/// The histories grow with the iterations: the limit may be far beyond what a run needs.
int32 note_history(em_state& em, error_type& err) {
  using allocation::allocate_under;
  if (allocate_under("run_em_modelfit: work%llvec", here, err,
                     [&] { em.llvec.push_back(em.loglik); }) != 0)
    return -1;
  return allocate_under("run_em_modelfit: work%madvec", here, err,
                        [&] { em.madvec.push_back(em.max_abs_diff); });
}

int32 iterate(mlworkspace& work, const em_watch& watch, error_type& err) {
  em_state& em = work.em;
  while (!em.converged && em.iter < em.max_iter) {
    ++em.iter;
    keep_estimates(work);
    int32 status = 0;
    if (allocation::allocate_under(
            "run_em_modelfit: work", here, err,
            [&] { status = run_estep(work, err) != 0 ? -1 : run_msteps(work, err); }) != 0 ||
        status != 0)
      return -1;
    note_change(work);
    if (note_history(em, err) != 0) return -1;
    em.converged = em.criterion >= em.max_abs_diff;
    if (watch.cancelled && watch.cancelled(watch.context, em))
      return fail(err, here, {text("The run was cancelled by the host.")});
  }
  return 0;
}

void fill_result(mlworkspace& work, mlresult_type& result) {
  const em_state& em = work.em;
  result.iter = em.iter;
  result.max_abs_diff = em.max_abs_diff;
  result.mean_abs_diff = em.mean_abs_diff;
  result.converged = em.converged;
  result.loglik = em.loglik;
  result.llvec = em.llvec;
  result.madvec = em.madvec;
  result.nc = work.latent.nc;
  result.ns = work.latent.ns;
  result.nt = work.data.nt;
  result.rows = work.rows;
  if (work.data.ni > 0)
    result.post_cls = work.post.cls;  // posteriors of statuses are computed from them
  else
    result.post_cls = std::move(work.post.cls);
  result.n_params_gamma = work.gamma.n_estimated;
  result.n_params_rho = work.rho.n_estimated;
  result.n_params_beta = work.beta.n_estimated;
  result.n_params_delta = work.delta.n_estimated;
  result.n_params_tau = work.tau.n_estimated;
  result.n_params_big_rho = work.big_rho.n_estimated;
  result.n_params_delta_beta = work.delta_beta.n_estimated;
  result.n_params_tau_beta = work.tau_beta.n_estimated;
  result.n_params_estimated = result.n_params_gamma + result.n_params_rho + result.n_params_beta +
                              result.n_params_delta + result.n_params_tau +
                              result.n_params_big_rho + result.n_params_delta_beta +
                              result.n_params_tau_beta;
  for (const auto* rows : {&work.beta.rows, &work.delta_beta.rows, &work.tau_beta.rows})
    for (const fitted_row& row : *rows) result.n_runaway += count_runaways(row);
  set_apparent_df(work, result);
  result.filled = true;
}

/// Fixed elements add a constant, which is left out: a structural zero would add minus infinity. So
/// would what the sums of the others force to zero; a prior keeps everything else above it.
template <std::size_t R>
double log_prior_of(const prob_block<R>& block) {
  double sum = 0.0;
  for (std::size_t q = 0; q < block.pseudo.size(); ++q)
    if (block.pseudo[q] > 0.0 && block.code.flat[q] != 0 && block.now.flat[q] > 0.0)
      sum += block.pseudo[q] * std::log(block.now.flat[q]);
  return sum;
}

/// Pseudo-cases of the stabilising prior, spread over the covariate patterns by their weight.
double log_prior_of(const logit_block<3>& beta, const class_counts& classes) {
  double sum = 0.0;
  const double* p = classes.prior.data();
  for (const estimation::regression& fit : beta.fits) {
    double total = 0.0;
    double of_fit = 0.0;
    for (int32 u = 1; u <= fit.x.n[0]; ++u, p += classes.width) {
      total += fit.weight(u);
      for (std::size_t c = 0; c < fit.prior.size(); ++c)
        if (fit.prior[c] > 0.0) of_fit += fit.weight(u) * fit.prior[c] * std::log(p[c]);
    }
    sum += fit.prior_ess / total * of_fit;
  }
  return sum;
}

}  // namespace

int32 load_workspace(const dataset_type& dataset, const model_type& model, const param_type& param,
                     mlworkspace& work, const routine& caller, error_type& err) {
  if (put_dataset(dataset, work, err) != 0)
    return fail(err, caller, {text("Failed to load dataset into workspace.")});
  if (put_model(model, work, err) != 0)
    return fail(err, caller, {text("Failed to load model into workspace.")});
  if (put_param(param, work, err) != 0)
    return fail(err, caller, {text("Failed to load parameters into workspace.")});
  return 0;
}

double log_prior(const mlworkspace& work) {
  double sum = log_prior_of(work.rho);
  sum += work.beta.active ? log_prior_of(work.beta, work.classes) : log_prior_of(work.gamma);
  if (work.data.ni == 0) return sum;
  sum += log_prior_of(work.big_rho) + status_log_prior(work);
  if (!work.delta_beta.active) sum += log_prior_of(work.delta);
  if (!work.tau_beta.active) sum += log_prior_of(work.tau);
  return sum;
}

int32 retrieve_parameters_from_workspace(param_type& param, const mlworkspace& work,
                                         error_type& err) {
  const bool classes = param::put_gamma(work.gamma.now, param, err) == 0 &&
                       param::put_rho(work.rho.now, param, err) == 0 &&
                       param::put_beta(work.beta.now, param, err) == 0;
  if (classes && work.data.ni == 0) return 0;
  if (classes && param::put_delta(work.delta.now, param, err) == 0 &&
      param::put_tau(work.tau.now, param, err) == 0 &&
      param::put_big_rho(work.big_rho.now, param, err) == 0 &&
      param::put_delta_beta(work.delta_beta.now, param, err) == 0 &&
      param::put_tau_beta(work.tau_beta.now, param, err) == 0)
    return 0;
  return fail(err, {"retrieve_parameters_from_workspace", "estimation"},
              {text("Unable to transfer new parameter estimates"),
               text("from the workspace to the param type.")});
}

int32 run_em_modelfit(const dataset_type& dataset, const model_type& model, param_type& param,
                      mlresult_type& result, mlworkspace& work, error_type& err,
                      const em_controls& controls) {
  if (nullify_mlresult(result, err) != 0)
    return fail(err, here, {text("Unable to nullify the ml results.")});
  if (load_workspace(dataset, model, param, work, here, err) != 0) return -1;
  if (set_controls(controls, work, err) != 0) return -1;
  work.post.keep = work.beta.active;  // the regressions read the posteriors of every iteration
  if (iterate(work, controls.watch, err) != 0) return -1;
  work.post.keep = true;
  if (run_estep(work, err) != 0) return -1;
  average_status_probabilities(work);
  if (allocation::allocate_under("run_em_modelfit: work", here, err, [&] {
        find_class_runaways(work);
        find_status_runaways(work);
      }) != 0)
    return -1;
  if (retrieve_parameters_from_workspace(param, work, err) != 0)
    return fail(err, here, {text("Failed to retrieve parameters from workspace.")});
  if (controls.status_posteriors && work.data.ni > 0 &&
      allocation::allocate_under("run_em_modelfit: mlresult%post_cls_sta", here, err, [&] {
        status_posteriors(work, result.post_cls_sta, result.post_cls_adj_sta);
      }) != 0)
    return -1;
  return allocation::allocate_under("run_em_modelfit: mlresult%llvec", here, err,
                                    [&] { fill_result(work, result); });
}

}  // namespace tolvenra::estimation
