#include "estimation/augmentation.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/dynamic_allocation.hpp"
#include "core/parallel.hpp"
#include "estimation/augmentation_records.hpp"
#include "estimation/augmentation_steps.hpp"
#include "estimation/estep.hpp"
#include "model/record_fields.hpp"

namespace tolvenra::estimation {
namespace {

constexpr routine here{"run_da_procedure", "estimation"};

/// What one call owns.
struct chain {
  mlworkspace work;
  dawork da;
  const da_options& options;
};

int32 check_options(const da_options& options, error_type& err) {
  if (options.imputations < 1)
    return fail(err, here, {text("The number of imputations must be positive.")});
  if (options.burn_in < 0)
    return fail(err, here, {text("The number of burn-in cycles must not be negative.")});
  if (options.spacing < 1)
    return fail(err, here, {text("The number of cycles between imputations must be positive.")});
  const int64 cycles = int64{options.burn_in} + int64{options.imputations - 1} * options.spacing;
  if (cycles >= std::numeric_limits<int32>::max())
    return fail(err, here, {text("The number of cycles asked for is too large.")});
  return 0;
}

int32 check_data(const dataset_type& dataset, error_type& err) {
  if (dataset.ncov + dataset.ncov_delta + dataset.ncov_tau > 0)
    return fail(err, here,
                {text("Models with covariates are not supported"), text("by data augmentation.")});
  double subjects = 0.0;
  for (const double f : dataset.freq.flat) {
    if (!(f == std::floor(f)))
      return fail(err, here,
                  {text("Frequencies that are not whole numbers are not supported"),
                   text("by data augmentation.")});
    subjects += f;
  }
  if (!(subjects < std::numeric_limits<int32>::max()))
    return fail(err, here, {text("The sum of the frequencies is too large.")});
  return 0;
}

/// One entry per subject: a case of frequency f is f subjects. Sampling weights are scaled to sum
/// to the number of equally weighted subjects that would be as informative.
void list_subjects(const dataset_type& dataset, dawork& da) {
  double sum = 0.0;
  double squares = 0.0;
  for (int32 k = 1; k <= dataset.nkase; ++k) {
    const double f = dataset.freq_set ? dataset.freq(k) : 1.0;
    const double w = dataset.weight_set ? dataset.weight(k) : 1.0;
    sum += f * w;
    squares += f * w * w;
    const auto subjects = static_cast<std::size_t>(f);
    da.kase.insert(da.kase.end(), subjects, k);
    da.stratum.insert(da.stratum.end(), subjects, dataset.strata(k));
    if (dataset.weight_set) da.weight.insert(da.weight.end(), subjects, w);
  }
  for (double& w : da.weight) w *= sum / squares;
}

/// \param rows    the rows that are sampled
/// \param shared  the element of `rows` that each element equals; empty: its own
template <std::size_t R>
void prepare_family(const prob_block<R>& block, const row_layout& rows,
                    std::vector<std::size_t> shared, da_family<R>& family) {
  const std::span<const double> pseudo =
      block.use_prior ? std::span<const double>(block.pseudo) : std::span<const double>();
  family.sampler = row_sampler(block.solver, rows, std::move(shared), pseudo);
  family.count.allocate(block.now.n);
}

/// rho, whose strata repeat the first one when they are held equal.
void prepare_rho(const mlworkspace& work, da_family<4>& family) {
  const prob_block<4>& rho = work.rho;
  row_layout rows = rho.rows;
  std::vector<std::size_t> shared;
  if (rho.shared_rows < rows.nrows) {
    rows.nrows = rho.shared_rows;
    const auto stratum = static_cast<std::size_t>(rho.now.stride[3]);
    for (std::size_t at = 0; at < rho.now.size(); ++at) shared.push_back(at % stratum);
  }
  prepare_family(rho, rows, std::move(shared), family);
}

void prepare_statuses(chain& run) {
  const mlworkspace& work = run.work;
  if (work.data.ni == 0) return;
  prepare_family(work.delta, work.delta.rows, {}, run.da.delta);
  prepare_family(work.tau, work.tau.rows, {}, run.da.tau);
  const bool pooled = work.big_rho_pool.active();
  prepare_family(work.big_rho, pooled ? work.big_rho_pool.rows : work.big_rho.rows,
                 work.big_rho_pool.offset, run.da.big_rho);
  run.da.recursion = std::make_unique<row_recursion>(work);
  run.da.path = status_path(work.latent.ns, work.data.nt);
}

int32 prepare(chain& run, error_type& err) {
  dawork& da = run.da;
  if (allocation::allocate_under("run_da_procedure: dawork%prior", here, err, [&] {
        list_subjects(run.work.given.dataset, da);
        prepare_family(run.work.gamma, run.work.gamma.rows, {}, da.gamma);
        prepare_rho(run.work, da.rho);
        prepare_statuses(run);
        da.freedom = freedom_of_labels(run.work);
      }) != 0)
    return -1;
  if (!da.gamma.sampler.supported() || !da.rho.sampler.supported() ||
      !da.delta.sampler.supported() || !da.tau.sampler.supported() ||
      !da.big_rho.sampler.supported())
    return fail(err, here,
                {text("This pattern of equality restrictions is not supported"),
                 text("by data augmentation.")});
  return 0;
}

int32 seed_stream(chain& run, error_type& err) {
  using namespace random_generator;
  const auto& seed = run.options.seed;
  if ((seed ? ran_setall(run.da.random, *seed, *seed, err) : ran_timeseed(run.da.random, err)) == 0)
    return 0;
  return fail(err, here, {text("Error initializing random number generator.")});
}

int32 allocate_summaries(const chain& run, daresult& result, error_type& err) {
  const param_type& param = run.work.given.param;
  const int32 m = run.options.imputations;
  const auto pair = [&](const auto& shape, auto& natural, auto& logit, const da_wording& words) {
    if (allocate_daparam(shape.n, m, natural, err) != 0)
      return fail(err, here, {text(words.natural.allocate)});
    if (allocate_daparam(shape.n, m, logit, err) != 0)
      return fail(err, here, {text(words.logit.allocate)});
    return 0;
  };
  if (pair(param.gamma, result.gamma, result.logit_gamma, da_gamma_words) != 0 ||
      pair(param.rho, result.rho, result.logit_rho, da_rho_words) != 0 ||
      pair(param.delta, result.delta, result.logit_delta, da_delta_words) != 0 ||
      pair(param.tau, result.tau, result.logit_tau, da_tau_words) != 0)
    return -1;
  return pair(param.big_rho, result.big_rho, result.logit_big_rho, da_big_rho_words);
}

int32 allocate_arrays(chain& run, daresult& result, error_type& err) {
  const case_data& data = run.work.data;
  const int32 m = run.options.imputations;
  const int32 nc = run.work.latent.nc;
  const auto n = static_cast<int32>(run.da.kase.size());
  dawork& da = run.da;
  const auto make = [&]<class T, std::size_t R>(array<T, R>& a, std::array<int32, R> extents,
                                                std::string_view label) {
    return fields::allocate(a, extents, label, here, err);
  };
  if (make(result.class_label_tracking, {nc, data.nstr, m},
           "run_da_procedure: daresult%class_label_tracking") != 0 ||
      make(result.status_label_tracking, {run.work.latent.ns, data.nt, nc, data.nstr, m},
           "run_da_procedure: daresult%status_label_tracking") != 0 ||
      make(result.class_label_tracking_kase, {n, m},
           "run_da_procedure: daresult%class_label_tracking_kase") != 0 ||
      make(result.kase_of_subject, {n}, "run_da_procedure: daresult%kase_of_subject") != 0 ||
      make(da.imputed_cls, {n}, "run_da_procedure: dawork%imputed_cls") != 0 ||
      make(da.imputed_cls_save, {n, m}, "run_da_procedure: dawork%imputed_cls_save") != 0)
    return -1;
  if (data.missing && data.nci > 0 &&
      (make(da.ciy_imp, {n, data.nci}, "run_da_procedure: dawork%ciy_imp") != 0 ||
       make(da.ciy_imp_save, {n, data.nci, m}, "run_da_procedure: dawork%ciy_imp_save") != 0))
    return -1;
  std::copy(da.kase.begin(), da.kase.end(), result.kase_of_subject.flat.begin());
  if (data.ni == 0) return 0;
  if (make(result.status_label_tracking_kase, {n, data.nt, m},
           "run_da_procedure: daresult%status_label_tracking_kase") != 0 ||
      make(da.imputed_sta, {n, data.nt}, "run_da_procedure: dawork%imputed_sta") != 0 ||
      make(da.imputed_sta_save, {n, data.nt, m}, "run_da_procedure: dawork%imputed_sta_save") != 0)
    return -1;
  if (data.missing &&
      (make(da.siy_imp, {n, data.ni, data.nt}, "run_da_procedure: dawork%siy_imp") != 0 ||
       make(da.siy_imp_save, {n, data.ni, data.nt, m}, "run_da_procedure: dawork%siy_imp_save") !=
           0))
    return -1;
  return 0;
}

/// The observed responses, which no cycle changes.
void copy_responses(chain& run) {
  const array<int32, 2>& y = *run.work.given.dataset.y;
  const auto nci = static_cast<std::size_t>(run.work.data.nci);
  const std::size_t n = run.da.kase.size();
  const auto copy = [&](std::vector<int32>& to, std::size_t first_column) {
    for (std::size_t at = 0; at < to.size(); ++at)
      to[at] = y(run.da.kase[at % n], static_cast<int32>(first_column + at / n) + 1);
  };
  copy(run.da.ciy_imp.flat, 0);
  copy(run.da.siy_imp.flat, nci);  // its items, then times, are the columns of y
}

int32 run_psteps(chain& run, error_type& err) {
  mlworkspace& work = run.work;
  if (work.data.nci > 0 && pstep_rho(work, run.da, err) != 0)
    return fail(err, here, {text("Error in P step for rho")});
  const bool statuses = work.data.ni > 0;
  if (statuses && pstep_big_rho(work, run.da, err) != 0)
    return fail(err, here, {text("Error in P step for big rho")});
  if (pstep_gamma(work, run.da, err) != 0)
    return fail(err, here, {text("Error in P step for gamma")});
  if (statuses && pstep_delta(work, run.da, err) != 0)
    return fail(err, here, {text("Error in P step for delta")});
  if (statuses && pstep_tau(work, run.da, err) != 0)
    return fail(err, here, {text("Error in P step for tau")});
  return 0;
}

int32 save_imputation(chain& run, int32 imputation, daresult& result, error_type& err) {
  if (track_labels(run.work, run.da, imputation, result, err) != 0) return pass_on(err, here);
  if (per_imputation_gamma(run.work, run.da, imputation, result, err) != 0)
    return fail(err, here, {text("Error computing per-imputation gamma estimates")});
  if (per_imputation_rho(run.work, run.da, imputation, result, err) != 0)
    return fail(err, here, {text("Error computing per-imputation rho estimates")});
  if (run.work.data.ni == 0) return 0;
  if (per_imputation_delta(run.work, run.da, imputation, result, err) != 0)
    return fail(err, here, {text("Error computing per-imputation delta estimates")});
  if (per_imputation_tau(run.work, run.da, imputation, result, err) != 0)
    return fail(err, here, {text("Error computing per-imputation tau estimates")});
  return 0;
}

int32 run_estep(mlworkspace& work, error_type& err) {
  if (estep(work, err) == 0) return 0;
  return fail(err, here, {text("E-step for LTA failed at iteration ", work.em.iter)});
}

/// Posterior probabilities at the starting parameters, which give the labels.
int32 keep_start(chain& run, error_type& err) {
  return allocation::allocate_under("run_da_procedure: dawork%ml_cls", here, err, [&] {
    run.da.ml_cls = run.work.post.cls;
    std::vector<double> transitions;
    if (run.work.data.ni > 0) status_posteriors(run.work, run.da.ml_cls_sta, transitions);
  });
}

/// All cycles: the first imputation is that of the cycle after the burn-in.
int32 run_cycles(chain& run, daresult& result, error_type& err) {
  const da_options& options = run.options;
  mlworkspace& work = run.work;
  int32 imputation = 1;
  int32 due = options.burn_in + 1;
  work.em.max_iter = due + (options.imputations - 1) * options.spacing;
  while (imputation <= options.imputations) {
    ++work.em.iter;
    if (run_estep(work, err) != 0) return -1;
    if (work.em.iter == 1 && keep_start(run, err) != 0) return -1;
    if (istep(work, run.da, imputation, err) != 0)
      return fail(err, here, {text("Error in I step"), text("for imputation ", imputation)});
    if (run_psteps(run, err) != 0) return -1;
    if (work.em.iter == due) {
      if (save_imputation(run, imputation, result, err) != 0) return -1;
      if (imputation++ < options.imputations) due += options.spacing;
    }
    if (options.watch.cancelled && options.watch.cancelled(options.watch.context, work.em))
      return fail(err, here, {text("The run was cancelled by the host.")});
  }
  return 0;
}

/// Mean effective size and the estimates on the logit scale.
template <std::size_t R>
void form_logit(const da_family<R>& family, daparam<R>& natural, daparam<R>& logit) {
  const std::size_t size = natural.eff_n.size();
  const int32 m = natural.imp.n[R];
  for (std::size_t at = 0; at < natural.imp.flat.size(); ++at) {
    const logit_estimate l = on_logit_scale(natural.imp.flat[at], natural.var_imp.flat[at],
                                            family.eff_n[at], family.n[at]);
    logit.imp.flat[at] = l.value;
    logit.var_imp.flat[at] = l.var;
    natural.eff_n.flat[at % size] += family.eff_n[at] / m;
  }
  logit.eff_n.flat = natural.eff_n.flat;
}

int32 combine(chain& run, daresult& result, error_type& err) {
  form_logit(run.da.gamma, result.gamma, result.logit_gamma);
  form_logit(run.da.rho, result.rho, result.logit_rho);
  if (run.work.data.ni > 0) {
    form_logit(run.da.delta, result.delta, result.logit_delta);
    form_logit(run.da.tau, result.tau, result.logit_tau);
    form_logit(run.da.big_rho, result.big_rho, result.logit_big_rho);
  }
  return for_each_parameter(result, [&](auto& natural, auto& logit, const da_wording& words) {
    if (compute_da_results(natural, err) != 0)
      return fail(err, here, {text(words.natural.combine)});
    if (compute_da_results(logit, err) != 0) return fail(err, here, {text(words.logit.combine)});
    return 0;
  });
}

/// The chain's last parameters, under the labels of the starting ones, and what they say of the
/// cases.
int32 hand_back(chain& run, param_type& param, daresult& result, mlresult_type& ml,
                error_type& err) {
  mlworkspace& work = run.work;
  if (allocation::allocate_under("run_da_procedure: work%new_gamma", here, err,
                                 [&] {
                                   work.gamma.now = relabelled_gamma(run.da.labels, work.gamma.now);
                                   work.rho.now = relabelled_rho(run.da.labels, work.rho.now);
                                   if (work.data.ni == 0) return;
                                   work.delta.now = relabelled_delta(run.da.labels, work.delta.now);
                                   work.tau.now = relabelled_tau(run.da.labels, work.tau.now);
                                   work.big_rho.now =
                                       relabelled_big_rho(run.da.labels, work.big_rho.now);
                                 }) != 0 ||
      run_estep(work, err) != 0)
    return -1;
  if (retrieve_parameters_from_workspace(param, work, err) != 0)
    return fail(err, here, {text("Failed to retrieve parameters from workspace.")});
  if (nullify_mlresult(ml, err) != 0)
    return fail(err, here, {text("Unable to nullify the ml results.")});
  ml.iter = work.em.iter;
  ml.loglik = work.em.loglik;
  ml.nc = work.latent.nc;
  ml.ns = work.latent.ns;
  ml.nt = work.data.nt;
  ml.rows = work.rows;
  if (work.data.ni > 0 &&
      allocation::allocate_under("run_da_procedure: mlresult%post_cls_sta", here, err, [&] {
        status_posteriors(work, ml.post_cls_sta, ml.post_cls_adj_sta);
      }) != 0)
    return -1;
  ml.post_cls = std::move(work.post.cls);
  ml.filled = true;
  result.imputed_cls_save = std::exchange(run.da.imputed_cls_save, {});
  result.ciy_imp_save = std::exchange(run.da.ciy_imp_save, {});
  result.imputed_sta_save = std::exchange(run.da.imputed_sta_save, {});
  result.siy_imp_save = std::exchange(run.da.siy_imp_save, {});
  result.imputations = run.options.imputations;
  result.obtained = true;
  return 0;
}

int32 run_chain(chain& run, const dataset_type& dataset, const model_type& model, param_type& param,
                daresult& result, mlresult_type& ml, error_type& err) {
  if (nullify_daresult(result, err) != 0) return pass_on(err, here);
  if (load_workspace(dataset, model, param, run.work, here, err) != 0) return -1;
  if (check_options(run.options, err) != 0 || check_data(dataset, err) != 0 ||
      prepare(run, err) != 0)
    return -1;
  if (seed_stream(run, err) != 0 || allocate_summaries(run, result, err) != 0 ||
      allocate_arrays(run, result, err) != 0)
    return -1;
  copy_responses(run);
  run.work.em.threads = parallel::thread_count(run.options.max_threads.value_or(0));
  run.work.post.keep = true;
  if (run_cycles(run, result, err) != 0 || combine(run, result, err) != 0) return -1;
  return hand_back(run, param, result, ml, err);
}

}  // namespace

int32 run_da_procedure(const dataset_type& dataset, const model_type& model, param_type& param,
                       const da_options& options, daresult& result, mlresult_type& ml,
                       error_type& err) {
  chain run{{}, {}, options};
  int32 status = -1;
  if (allocation::allocate_under("run_da_procedure: dawork", here, err, [&] {
        status = run_chain(run, dataset, model, param, result, ml, err);
      }) != 0)
    status = -1;
  if (status != 0 && nullify_daresult(result, err) != 0) pass_on(err, here);
  if (nullify_daworkspace(run.da, err) != 0) return pass_on(err, here);
  return status;
}

}  // namespace tolvenra::estimation
