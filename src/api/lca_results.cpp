#include <cmath>
#include <limits>

#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"
#include "core/parallel.hpp"

namespace tolvenra::api {
namespace {

/// What has to be built before it can be copied out; nothing reaches the host until all of it
/// exists.
struct built_results {
  array<double, 2> gamma, post_cls;
  array<double, 4> rho;
  array<double, 3> beta;
  array<int32, 2> patterns;
  dataset::cluster_summary clusters;
  int32 free_parameters = 0;
};

int32 build(lca_run& run, built_results& built) {
  const lca_call& call = run.call;
  const fitted_start& best = *run.best;
  built.free_parameters = best.work.rho.solver.free_parameters() +
                          (best.work.beta.active ? best.work.beta.n_estimated
                                                 : best.work.gamma.solver.free_parameters());
  if (param::get_gamma(best.param, built.gamma, run.err) != 0 ||
      param::get_rho(best.param, built.rho, run.err) != 0 ||
      param::get_beta(best.param, built.beta, run.err) != 0)
    return -1;
  if (call.want_post && call.post_cls &&
      estimation::get_post_cls(best.result, built.post_cls, run.err) != 0)
    return -1;
  if (call.response_patterns &&
      estimation::get_response_pattern_mat(best.result, built.patterns, run.err) != 0)
    return -1;
  if (call.clusters && dataset::get_cluster_information(run.dataset, built.clusters, run.err) != 0)
    return -1;
  return 0;
}

/// Tables by pattern fill the first rows of arrays with one row per case.
template <class T>
void copy_out_rows(const T* from, std::size_t rows, std::size_t columns, T* to,
                   std::size_t leading) {
  for (std::size_t j = 0; j < columns; ++j) std::copy_n(from + j * rows, rows, to + j * leading);
}

void copy_out_patterns(const lca_run& run, const built_results& built) {
  const lca_call& call = run.call;
  const mlresult_type& result = run.best->result;
  const std::size_t npatt = result.pattern_row.size();
  const auto nkase = static_cast<std::size_t>(call.nkase);
  if (call.response_patterns)
    copy_out_rows(built.patterns.data(), npatt, static_cast<std::size_t>(built.patterns.n[1]),
                  call.response_patterns, nkase);
  if (call.pattern_counts) {
    copy_out_rows(result.observed.data(), npatt, 1, call.pattern_counts, nkase);
    copy_out_rows(result.expected.data(), npatt, 1, call.pattern_counts + nkase, nkase);
  }
}

void copy_out_clusters(const lca_call& call, const dataset::cluster_summary& clusters) {
  if (!call.clusters) return;
  set_cell(call.n_clusters, clusters.count);
  set_cell(call.cluster_min, clusters.smallest);
  set_cell(call.cluster_max, clusters.largest);
}

void copy_out_fit(const lca_run& run) {
  const lca_call& call = run.call;
  const mlresult_type& result = run.best->result;
  set_logical(call.converged, result.converged);
  set_cell(call.max_abs_diff, result.max_abs_diff);
  set_cell(call.mean_abs_diff, result.mean_abs_diff);
  set_cell(call.loglik, result.loglik);
  set_cell(call.overflow_count, result.overflow_count);
  set_cell(call.apparent_df, result.apparent_df);
  set_cell(call.G2, result.G2);
  set_cell(call.aic, result.aic);
  set_cell(call.bic, result.bic);
  set_cell(call.caic, result.caic);
  set_cell(call.abic, result.abic);
  set_cell(call.entropyraw, result.entropyraw);
  set_cell(call.entropy, result.entropy);
  set_cell(call.cat_loglik, result.cat_loglik);
  set_cell(call.cat_g2, result.cat_g2);
  set_cell(call.cat_df, result.cat_df);
  set_cell(call.deff, std::numeric_limits<double>::quiet_NaN());
  copy_out(run.fit_extra, call.fit_extra);
  copy_out(result.llvec, call.llvec);
  copy_out(result.madvec, call.madvec);
  const std::array<int32, 9> counts{result.n_params_estimated, result.n_params_gamma,
                                    result.n_params_rho, result.n_params_beta};
  copy_out(counts, call.n_params);
}

void copy_out_tests(const lca_run& run) {
  const lca_call& call = run.call;
  if (run.test_stat.empty()) return;
  if (call.want_tests) copy_out(run.test_stat, call.test_stat);
  copy_out(run.test_p, call.test_p);
  copy_out(run.test_status, call.test_status);
}

/// Starts whose log-likelihood is the best one up to the noise of convergence.
int32 starts_at_best(const lca_run& run) {
  const double best = run.best->result.loglik;
  const double tolerance = 0.001 + 1e-9 * std::abs(best);
  return static_cast<int32>(
      std::count_if(run.starts.begin(), run.starts.end(), [&](const start_outcome& start) {
        return start.status == 0 && start.loglik >= best - tolerance;
      }));
}

void copy_out_run_info(const lca_run& run, int32 free_parameters) {
  int32* info = run.call.run_info;
  if (!info) return;
  const mlresult_type& result = run.best->result;
  info[0] = 1;
  info[1] = run.best->number;
  info[2] = static_cast<int32>(std::count_if(run.starts.begin(), run.starts.end(),
                                             [](const auto& start) { return start.status == 0; }));
  info[3] = starts_at_best(run);
  info[4] = static_cast<int32>(result.pattern_row.size());
  info[5] = result.rows->any_missing ? 1 : 0;
  info[6] = result.cat_passes;
  info[10] = parallel::thread_count(run.call.max_threads);
  info[12] = free_parameters;
  info[13] = run.plain ? run.plain->iterations : 0;
  info[14] = result.cat_unfinished;
}

}  // namespace

void copy_out_starts(const lca_run& run) {
  const lca_call& call = run.call;
  for (std::size_t i = 0; i < run.starts.size(); ++i) {
    const start_outcome& start = run.starts[i];
    if (!start.finished) continue;
    if (call.start_seeds) call.start_seeds[i] = start.seed;
    if (call.start_loglik) call.start_loglik[i] = start.loglik;
    if (call.start_iter) call.start_iter[i] = start.iterations;
    if (call.start_converged) call.start_converged[i] = start.converged ? 255 : 0;
    if (call.start_status) call.start_status[i] = start.status;
  }
  if (call.run_info && run.progress.cancelled()) call.run_info[11] = 1;
}

int32 copy_out_lca(lca_run& run) {
  built_results built;
  if (build(run, built) != 0) return -1;
  const lca_call& call = run.call;
  copy_out(built.gamma, call.gamma);
  copy_out(built.rho, call.rho);
  if (call.ncov > 0) copy_out(built.beta, call.beta);
  if (built.post_cls.allocated) copy_out(built.post_cls, call.post_cls);
  copy_out_patterns(run, built);
  copy_out_clusters(call, built.clusters);
  copy_out_fit(run);
  copy_out_tests(run);
  copy_out_run_info(run, built.free_parameters);
  if (!run.drawn_class.empty()) copy_out(run.drawn_class, call.drawn_class);
  set_cell(call.iterations, run.best->result.iter);
  return 0;
}

}  // namespace tolvenra::api
