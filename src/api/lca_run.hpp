/// \file lca_run.hpp  What the latent class driver owns for the length of one call.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "api/generated/call_records.hpp"
#include "api/host_message.hpp"
#include "api/progress.hpp"
#include "api/stabilising.hpp"
#include "api/starts.hpp"
#include "core/array.hpp"
#include "core/dynamic_allocation.hpp"
#include "core/error_handler.hpp"

namespace tolvenra::api {

/// Reports of the driver carry its name alone.
inline constexpr routine runlca_routine{"runlca", ""};

struct lca_run {
  explicit lca_run(const lca_call& from)
      : call(from), message(from.message, from.msg_len), progress(from.progress) {}

  const lca_call& call;
  host_message message;
  run_progress progress;
  error_type err;
  dataset_type dataset;
  model_type model;
  param_type param;
  array<double, 4> given_rho;              ///< the host's rho where it is read
  std::optional<stabilising_model> plain;  ///< with covariates
  std::vector<start_outcome> starts;
  std::unique_ptr<fitted_start> best;
  std::array<double, 8> fit_extra{};
  std::vector<double> test_stat, test_p;
  std::vector<int32> test_status;
  std::vector<int32> drawn_class;
};

/// Reports in the driver's own name. \return -1
inline int32 refuse(lca_run& run, std::initializer_list<text_lines> lines) {
  return fail(run.err, runlca_routine, lines);
}

/// A work array of the run: `fill` allocates it, and running out of memory names it ("runlca:
/// cov2").
template <class Fill>
int32 make_work_array(std::string_view label, error_type& err, Fill&& fill) {
  return allocation::allocate_under(label, runlca_routine, err, fill);
}

/// Required addresses, sizes that make copying unsafe, and options that are not built yet.
int32 check_lca_boundary(lca_run& run);
/// Cells and record that a run sets before anything can fail.
void enter_lca(const lca_run& run);
/// Data set, and the model with its options, restrictions, starting values and priors.
int32 load_data(lca_run& run);
int32 load_model(lca_run& run);
/// Likelihood-ratio test of each covariate, or the tails of statistics that the host supplies.
int32 test_covariates(lca_run& run);
/// Upper tail of a chi-square statistic: 1 unless it is positive, NaN where df is not.
int32 upper_tail(double statistic, double df, double& q, error_type& err);
/// Per-start arrays; also for a run that was cancelled or failed after its starts.
void copy_out_starts(const lca_run& run);
/// Everything else, of a run that succeeded.
int32 copy_out_lca(lca_run& run);

}  // namespace tolvenra::api
