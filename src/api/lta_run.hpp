/// \file lta_run.hpp  What the latent transition driver owns for the length of one call.
#pragma once

#include "api/driver.hpp"
#include "api/generated/call_records.hpp"

namespace tolvenra::api {

struct lta_run : driver_run {
  explicit lta_run(const lta_call& from)
      : driver_run({"runlta", ""}, from.progress, from.message, from.msg_len), call(from) {}

  const lta_call& call;
  array<double, 6> given_big_rho;  ///< the host's big_rho where it is read
};

/// Required addresses and sizes that make copying unsafe.
int32 check_lta_boundary(lta_run& run);
/// Cells and record that a run sets before anything can fail.
void enter_lta(const lta_run& run);
/// Data set, and the model with its options, starting values and restrictions.
int32 load_data(lta_run& run);
int32 load_model(lta_run& run);
/// Adds to the report of a failed run which status the fixed zeros put out of reach, if any.
void explain_unreachable(lta_run& run);
/// Likelihood-ratio test of each covariate, where the host gave an address for the statistics.
int32 test_covariates(lta_run& run);
/// All results but the per-start arrays, of a run that succeeded.
int32 copy_out_lta(lta_run& run);

}  // namespace tolvenra::api
