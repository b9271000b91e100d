/// \file driver.hpp  What the drivers of both analyses own for the length of one call, and the
/// steps that they share.
#pragma once

#include <array>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "api/host_arrays.hpp"
#include "api/host_message.hpp"
#include "api/progress.hpp"
#include "api/stabilising.hpp"
#include "api/starts.hpp"
#include "core/array.hpp"
#include "core/dynamic_allocation.hpp"
#include "core/error_handler.hpp"
#include "estimation/fit_stats.hpp"
#include "tolvenra/tolvenra.h"

namespace tolvenra::api {

struct driver_run {
  driver_run(const routine& own, tolvenra_progress* record, char* text, std::int32_t length)
      : here(own), message(text, length), progress(record) {}

  routine here;  ///< reports of the driver carry its name alone
  host_message message;
  run_progress progress;
  error_type err;
  error_type notes;  ///< what went wrong without ending the run
  dataset_type dataset;
  model_type model;
  param_type param;
  std::optional<stabilising_model> plain;  ///< with covariates
  std::vector<start_outcome> starts;
  std::unique_ptr<fitted_start> best;
  std::array<double, TOLVENRA_FIT_EXTRA_SIZE> fit_extra{};
  std::vector<double> test_stat, test_p;
  std::vector<int32> test_status;
};

/// Reports in the driver's own name. \return -1
inline int32 refuse(driver_run& run, std::initializer_list<text_lines> lines) {
  return fail(run.err, run.here, lines);
}

/// Writes a report that does not end the run into the message text, below the notes before it.
void note(driver_run& run, const error_type& report);

/// A stage behind the estimates, which have been handed back and stay, as the status of the run
/// does: what fails is told in the message text. \return whether the stage succeeded
template <class Stage>
bool run_apart(driver_run& run, Stage&& stage) {
  try {
    try {
      if (stage() == 0) return true;
      note(run, run.err);
      err_reset(run.err);
    } catch (const std::exception&) {
      error_type err;
      fail(err, run.here, error_code::allocation);
      note(run, err);
    }
  } catch (...) {  // not even room for the report
  }
  return false;
}

/// A work array of the run: `fill` allocates it, and running out of memory names it ("runlca:
/// cov2").
template <class Fill>
int32 make_work_array(std::string_view label, driver_run& run, Fill&& fill) {
  return allocation::allocate_under(label, run.here, run.err, fill);
}

/// Whether the product of the extents passes 2^63 - 1 elements of `bytes` bytes.
bool beyond_memory(std::initializer_list<int32> extents, int64 bytes);

/// Every stratum needs cases; without a strata array all cases are in stratum 1.
int32 refuse_empty_strata(driver_run& run, bool strata_given);

/// Every item needs at least one response category.
int32 refuse_empty_items(driver_run& run, const array<int32, 1>& categories);

/// The host cancelled: nothing else is reported. \return -1
int32 refuse_cancelled(driver_run& run);

/// Fit statistics of the chosen start, as far as the host wants them and lets them be computed;
/// what they lack is told in the message text.
void compute_fit_stats(estimation::fit_stats_controls controls, driver_run& run);

/// The host cancelled after the fit: its text joins the message, and the covariate tests, if there
/// are any, have no result.
void leave_out_tests(std::size_t tests, driver_run& run);

/// Fits the starts and keeps the best; a failed start leaves its report in the message text.
/// \return 0, or -1 when none could be fitted or the host cancelled
int32 fit_starts(const start_search& search, driver_run& run);

/// Upper tail of a chi-square statistic: 1 unless it is positive, NaN where df is not.
int32 upper_tail(double statistic, double df, double& q, error_type& err);

/// Tail and final status of entry i of the covariate tests.
int32 fill_test_tail(driver_run& run, std::size_t i, double df);

/// Exact number of free parameters of a fit.
int32 free_parameters(const mlworkspace& work);

/// The host's per-start arrays; null where not wanted.
struct start_arrays {
  std::int32_t* seeds;
  double* loglik;
  std::int32_t* iter;
  std::uint8_t* converged;
  std::int32_t* status;
  std::int32_t* run_info;
};
/// Finished starts; also of a run that was cancelled or failed after its starts.
void copy_out_starts(const driver_run& run, const start_arrays& to);

/// Response patterns and counts, into arrays with one row per case.
void copy_out_patterns(const mlresult_type& result, const array<int32, 2>& patterns, int32 nkase,
                       std::int32_t* response_patterns, double* pattern_counts);

/// Parameters by kind: total, gamma, rho, beta, delta, tau, big_rho, delta_beta, tau_beta.
std::array<int32, 9> parameter_counts(const mlresult_type& result);

/// Figures of the fit that both calls hand back in cells of the same names.
template <class Call>
void copy_out_common(const mlresult_type& result, const Call& call) {
  set_logical(call.converged, result.converged);
  set_cell(call.max_abs_diff, result.max_abs_diff);
  set_cell(call.mean_abs_diff, result.mean_abs_diff);
  set_cell(call.loglik, result.loglik);
  set_cell(call.overflow_count, result.overflow_count);
  set_cell(call.apparent_df, result.apparent_df);
  set_cell(call.G2, result.G2);
  set_cell(call.aic, result.aic);
  set_cell(call.bic, result.bic);
  set_cell(call.cat_loglik, result.cat_loglik);
  set_cell(call.cat_g2, result.cat_g2);
  set_cell(call.cat_df, result.cat_df);
  copy_out(result.llvec, call.llvec);
  copy_out(result.madvec, call.madvec);
  copy_out(parameter_counts(result), call.n_params);
}

/// What of the fit statistics the addresses of a call ask for; more than both calls have is `more`.
template <class Call>
estimation::fit_stats_controls wanted_fit_stats(const Call& call, bool more) {
  estimation::fit_stats_controls wanted;
  wanted.saturated = more || call.cat_loglik || call.cat_g2 || call.cat_df || call.G2 || call.aic ||
                     call.bic || call.overflow_count || call.fit_extra;
  wanted.expected = call.pattern_counts || call.fit_extra;
  return wanted;
}

/// Cells of the run information of a completed run.
void copy_out_run_info(const driver_run& run, int32 free_parameters, int32 max_threads,
                       std::int32_t* info);

}  // namespace tolvenra::api
