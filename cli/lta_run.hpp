/// \file lta_run.hpp  The call of the engine: marshalling in and out, nothing else.
#pragma once

#include <vector>

#include "fit_record.hpp"
#include "lta_data.hpp"

namespace tolvenra::cli {

/// The result cells of the call, arrays as in lta_model.
struct lta_fit : fit_record {
  std::vector<double> delta, tau, rho;
  std::vector<double> delta_beta, tau_beta;  ///< empty without covariates
  runaway_directions start_runs, move_runs;  ///< of them
  std::vector<double> post;                  ///< (person, time, status)
};

lta_fit run_lta(const lta_data& data, const lta_options& options, tolvenra_progress* progress);

}  // namespace tolvenra::cli
