/// \file lca_run.hpp  What the latent class driver owns for the length of one call.
#pragma once

#include <vector>

#include "api/driver.hpp"
#include "api/generated/call_records.hpp"

namespace tolvenra::api {

struct lca_run : driver_run {
  explicit lca_run(const lca_call& from)
      : driver_run({"runlca", ""}, from.progress, from.message, from.msg_len), call(from) {}

  const lca_call& call;
  array<double, 4> given_rho;  ///< the host's rho where it is read
};

/// Required addresses and sizes that make copying unsafe.
int32 check_lca_boundary(lca_run& run);
/// Cells and record that a run sets before anything can fail.
void enter_lca(const lca_run& run);
/// Data set, and the model with its options, restrictions, starting values and priors.
int32 load_data(lca_run& run);
int32 load_model(lca_run& run);
/// Adds to the report of a failed run which class the zeros leave without cases, or which case they
/// make impossible, if any.
void explain_impossible(lca_run& run);
/// Likelihood-ratio test of each covariate, or the tails of statistics that the host supplies.
int32 test_covariates(lca_run& run);
/// All results but the per-start arrays, of a run that succeeded.
int32 copy_out_lca(lca_run& run);
/// Standard errors, after the estimates have been copied out: a failure leaves these and the
/// status of the run, NaN in the cells of the standard errors, and its report in the message text.
void standard_errors(lca_run& run);

}  // namespace tolvenra::api
