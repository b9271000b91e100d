#include "api/driver.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "api/host_arrays.hpp"
#include "core/parallel.hpp"
#include "numerics/cdf.hpp"

namespace tolvenra::api {
namespace {

constexpr int32 not_positive = 5;

/// Adds the report of a start to the run's own.
void add_lines(const error_type& from, error_type& to) {
  to.occurred = true;
  for (const std::string& line : lines_of(from)) err_add_line(to.lines, line);
}

int32 refuse_all_failed(driver_run& run) {
  const auto last = std::find_if(run.starts.rbegin(), run.starts.rend(),
                                 [](const start_outcome& start) { return start.report.occurred; });
  if (last != run.starts.rend()) add_lines(last->report, run.err);
  return refuse(run,
                {text("The model could not be fitted from any"), text("set of starting values.")});
}

/// Fitted starts whose log-likelihood is the best one up to the noise of convergence.
int32 starts_at_best(const driver_run& run) {
  const double best = run.best->result.loglik;
  const double tolerance = 0.001 + 1e-9 * std::abs(best);
  return static_cast<int32>(
      std::count_if(run.starts.begin(), run.starts.end(), [&](const start_outcome& start) {
        return start.status == 0 && !start.copied && start.loglik >= best - tolerance;
      }));
}

/// Tables by pattern fill the first rows of arrays with one row per case.
template <class T>
void copy_out_rows(const T* from, std::size_t rows, std::size_t columns, T* to,
                   std::size_t leading) {
  for (std::size_t j = 0; j < columns; ++j) std::copy_n(from + j * rows, rows, to + j * leading);
}

}  // namespace

bool beyond_memory(std::initializer_list<int32> extents, int64 bytes) {
  int64 most = std::numeric_limits<int64>::max() / bytes;
  for (const int32 n : extents) most /= std::max(n, 1);
  return most < 1;
}

int32 refuse_empty_strata(driver_run& run, bool strata_given) {
  const int32 nstr = run.dataset.nstr;
  if (!strata_given && nstr > 1)
    return refuse(run, {text("The number of strata specified was ", nstr),
                        text("but no strata array was given.")});
  array<int32, 1> cases;
  cases.allocate({nstr});
  for (const int32 g : run.dataset.strata.flat) ++cases(g);
  for (int32 g = 1; g <= nstr; ++g)
    if (cases(g) == 0)
      return refuse(run, {text("There are no cases in stratum (group) ", g, "."),
                          text("Every stratum must have at least one case.")});
  return 0;
}

int32 refuse_empty_items(driver_run& run, const array<int32, 1>& categories) {
  for (int32 j = 1; j <= categories.n[0]; ++j)
    if (categories(j) == 0)
      return refuse(run, {text("Item ", j, " has 0 response categories."),
                          text("Every item must have at least one.")});
  return 0;
}

int32 refuse_cancelled(driver_run& run) {
  err_reset(run.err);
  return refuse(run, {text("The run was cancelled by the host.")});
}

void note(driver_run& run, const error_type& report) {
  add_lines(report, run.notes);
  run.message.write(run.notes);
}

void compute_fit_stats(estimation::fit_stats_controls controls, driver_run& run) {
  run.progress.begin_stage(run_stage::fit_statistics, static_cast<int32>(run.starts.size()));
  run_progress::fit_view view{&run.progress, run.best->number, true};
  controls.watch = view.watch();
  error_type report;
  if (estimation::run_compute_fit_stats(run.best->work, run.best->result, report, controls) != 0)
    note(run, report);
}

void leave_out_tests(std::size_t tests, driver_run& run) {
  refuse_cancelled(run);
  note(run, run.err);
  err_reset(run.err);
  run.test_stat.assign(tests, std::numeric_limits<double>::quiet_NaN());
  run.test_p = run.test_stat;
  run.test_status.assign(tests, -1);
}

int32 fit_starts(const start_search& search, driver_run& run) {
  run.best = run_starts(search, run.starts, run.err);
  if (run.progress.cancelled()) return refuse_cancelled(run);
  if (!run.best) return err_occurred(run.err) ? -1 : refuse_all_failed(run);
  for (const start_outcome& start : run.starts)
    if (start.status != 0) run.message.write(start.report);
  return 0;
}

int32 upper_tail(double statistic, double df, double& q, error_type& err) {
  q = std::numeric_limits<double>::quiet_NaN();
  if (!(df > 0.0) || std::isnan(statistic)) return 0;
  q = 1.0;
  double p = 0.0;
  return statistic > 0.0 ? cdf::cdf_chi(1, p, q, statistic, df, err) : 0;
}

int32 fill_test_tail(driver_run& run, std::size_t i, double df) {
  run.test_p[i] = 1.0;
  if (run.test_stat[i] > 0.0) return upper_tail(run.test_stat[i], df, run.test_p[i], run.err);
  if (run.test_stat[i] <= 0.0) run.test_status[i] = not_positive;
  return 0;
}

int32 free_parameters(const mlworkspace& work) {
  const auto of = [](const auto& block, const auto& regressed) {
    return regressed.active ? regressed.n_estimated : block.solver.free_parameters();
  };
  int32 count = work.rho.solver.free_parameters() + of(work.gamma, work.beta);
  if (work.data.ni > 0)
    count += work.big_rho.solver.free_parameters() + of(work.delta, work.delta_beta) +
             of(work.tau, work.tau_beta);
  return count;
}

void copy_out_starts(const driver_run& run, const start_arrays& to) {
  for (std::size_t i = 0; i < run.starts.size(); ++i) {
    const start_outcome& start = run.starts[i];
    if (!start.finished) continue;
    if (to.seeds) to.seeds[i] = start.seed;
    if (to.loglik) to.loglik[i] = start.loglik;
    if (to.iter) to.iter[i] = start.iterations;
    if (to.converged) to.converged[i] = start.converged ? 255 : 0;
    if (to.status) to.status[i] = start.status;
  }
  if (to.run_info && run.progress.cancelled()) to.run_info[11] = 1;
}

void copy_out_patterns(const mlresult_type& result, const array<int32, 2>& patterns, int32 nkase,
                       std::int32_t* response_patterns, double* pattern_counts) {
  const std::size_t npatt = result.pattern_row.size();
  const auto leading = static_cast<std::size_t>(nkase);
  if (response_patterns)
    copy_out_rows(patterns.data(), npatt, static_cast<std::size_t>(patterns.n[1]),
                  response_patterns, leading);
  if (pattern_counts) {
    copy_out_rows(result.observed.data(), npatt, 1, pattern_counts, leading);
    copy_out_rows(result.expected.data(), npatt, 1, pattern_counts + leading, leading);
  }
}

void copy_out_run_info(const driver_run& run, int32 free_parameters, int32 max_threads,
                       std::int32_t* info) {
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
  info[10] = parallel::thread_count(max_threads);
  info[12] = free_parameters;
  info[13] = run.plain ? run.plain->iterations : 0;
  info[14] = result.cat_unfinished;
  info[15] = result.n_runaway;
}

std::array<int32, 9> parameter_counts(const mlresult_type& result) {
  return {result.n_params_estimated, result.n_params_gamma,      result.n_params_rho,
          result.n_params_beta,      result.n_params_delta,      result.n_params_tau,
          result.n_params_big_rho,   result.n_params_delta_beta, result.n_params_tau_beta};
}

}  // namespace tolvenra::api
