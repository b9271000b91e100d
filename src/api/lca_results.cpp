#include <limits>

#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"

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
  built.free_parameters = free_parameters(best.work);
  if (param::get_gamma(best.param, built.gamma, run.err) != 0 ||
      param::get_rho(best.param, built.rho, run.err) != 0 ||
      param::get_beta(best.param, built.beta, run.err) != 0)
    return -1;
  if (call.want_post && call.post_cls &&
      estimation::get_post_cls(best.result, built.post_cls, run.err) != 0)
    return -1;
  if (call.response_patterns && !best.result.pattern_row.empty() &&
      estimation::get_response_pattern_mat(best.result, built.patterns, run.err) != 0)
    return -1;
  if (call.clusters && dataset::get_cluster_information(run.dataset, built.clusters, run.err) != 0)
    return -1;
  return 0;
}

void copy_out_clusters(const lca_call& call, const dataset::cluster_summary& clusters) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  const bool given = call.clusters != nullptr;
  set_cell(call.n_clusters, given ? clusters.count : -1);
  set_cell(call.cluster_min, given ? clusters.smallest : nan);
  set_cell(call.cluster_max, given ? clusters.largest : nan);
}

void copy_out_fit(const lca_run& run) {
  const lca_call& call = run.call;
  const mlresult_type& result = run.best->result;
  copy_out_common(result, call);
  set_cell(call.caic, result.caic);
  set_cell(call.abic, result.abic);
  set_cell(call.entropyraw, result.entropyraw);
  set_cell(call.entropy, result.entropy);
  set_cell(call.deff, std::numeric_limits<double>::quiet_NaN());
  copy_out(run.fit_extra, call.fit_extra);
}

void copy_out_tests(const lca_run& run) {
  const lca_call& call = run.call;
  if (run.test_stat.empty()) return;
  if (call.want_tests) copy_out(run.test_stat, call.test_stat);
  copy_out(run.test_p, call.test_p);
  copy_out(run.test_status, call.test_status);
}

}  // namespace

int32 copy_out_lca(lca_run& run) {
  built_results built;
  if (build(run, built) != 0) return -1;
  const lca_call& call = run.call;
  copy_out(built.gamma, call.gamma);
  copy_out(built.rho, call.rho);
  if (call.ncov > 0) copy_out(built.beta, call.beta);
  if (built.post_cls.allocated) copy_out(built.post_cls, call.post_cls);
  copy_out_patterns(run.best->result, built.patterns, call.nkase, call.response_patterns,
                    call.pattern_counts);
  copy_out_clusters(call, built.clusters);
  copy_out_fit(run);
  copy_out_tests(run);
  copy_out_run_info(run, built.free_parameters, call.max_threads, call.run_info);
  set_cell(call.iterations, run.best->result.iter);
  return 0;
}

}  // namespace tolvenra::api
