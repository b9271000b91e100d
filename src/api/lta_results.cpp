#include <algorithm>

#include "api/host_arrays.hpp"
#include "api/lta_run.hpp"
#include "estimation/row_recursion.hpp"

namespace tolvenra::api {
namespace {

/// What has to be built before it can be copied out; nothing reaches the host until all of it
/// exists.
struct built_results {
  array<double, 3> delta;
  array<double, 5> tau;
  array<double, 6> big_rho;
  array<double, 4> delta_beta, post_cls_sta;
  array<double, 6> tau_beta;
  array<double, 5> post_cls_adj_sta;
  array<int32, 2> patterns;
  int32 free_parameters = 0;
};

int32 build_posteriors(lta_run& run, built_results& built) {
  const lta_call& call = run.call;
  if (!call.want_post || (!call.post_cls_sta && !call.post_cls_adj_sta)) return 0;
  mlresult_type& result = run.best->result;
  if (make_work_array("runlta: post_cls_sta_a", run, [&] {
        estimation::status_posteriors(run.best->work, result.post_cls_sta, result.post_cls_adj_sta);
      }) != 0)
    return -1;
  if (call.post_cls_sta && estimation::get_post_cls_sta(result, built.post_cls_sta, run.err) != 0)
    return -1;
  return call.post_cls_adj_sta
             ? estimation::get_post_cls_adj_sta(result, built.post_cls_adj_sta, run.err)
             : 0;
}

int32 build(lta_run& run, built_results& built) {
  const lta_call& call = run.call;
  const fitted_start& best = *run.best;
  built.free_parameters = free_parameters(best.work);
  if (param::get_delta(best.param, built.delta, run.err) != 0 ||
      param::get_tau(best.param, built.tau, run.err) != 0 ||
      param::get_big_rho(best.param, built.big_rho, run.err) != 0 ||
      param::get_delta_beta(best.param, built.delta_beta, run.err) != 0 ||
      param::get_tau_beta(best.param, built.tau_beta, run.err) != 0)
    return -1;
  if (call.response_patterns && !best.result.pattern_row.empty() &&
      estimation::get_response_pattern_mat(best.result, built.patterns, run.err) != 0)
    return -1;
  return build_posteriors(run, built);
}

void copy_out_fit(const lta_run& run) {
  const lta_call& call = run.call;
  const mlresult_type& result = run.best->result;
  copy_out_common(result, call);
  copy_out(run.fit_extra, call.fit_extra);
}

void copy_out_tests(const lta_run& run) {
  const lta_call& call = run.call;
  if (run.test_stat.empty()) return;
  copy_out(run.test_stat, call.test_stat);
  copy_out(run.test_p, call.test_p);
  copy_out(run.test_status, call.test_status);
}

}  // namespace

int32 copy_out_lta(lta_run& run) {
  built_results built;
  if (build(run, built) != 0) return -1;
  const lta_call& call = run.call;
  copy_out(built.delta, call.delta);
  copy_out(built.tau, call.tau);
  copy_out(built.big_rho, call.big_rho);
  if (call.ncov_delta > 0) copy_out(built.delta_beta, call.delta_beta);
  if (call.ncov_tau > 0) copy_out(built.tau_beta, call.tau_beta);
  if (built.post_cls_sta.allocated) copy_out(built.post_cls_sta, call.post_cls_sta);
  if (built.post_cls_adj_sta.allocated) copy_out(built.post_cls_adj_sta, call.post_cls_adj_sta);
  copy_out_patterns(run.best->result, built.patterns, call.nkase, call.response_patterns,
                    call.pattern_counts);
  copy_out_fit(run);
  copy_out_tests(run);
  copy_out_run_info(run, built.free_parameters, call.max_threads, call.run_info);
  set_cell(call.iterations, run.best->result.iter);
  return 0;
}

}  // namespace tolvenra::api
