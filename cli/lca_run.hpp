/// \file lca_run.hpp  The call of the engine: marshalling in and out, nothing else.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "lca_data.hpp"
#include "tolvenra/tolvenra.h"

namespace tolvenra::cli {

struct lca_start {
  std::int32_t seed = 0, iterations = -1, status = 1;  ///< status 0: fitted
  double loglik = TOLVENRA_FAILED_START;
  bool converged = false;
};

/// The result cells of the call. Arrays are column-major, classes as the engine numbers them.
struct lca_fit {
  bool completed = false;  ///< otherwise only message and run_info have a meaning
  std::string message;     ///< the engine's report, without padding
  bool converged = false;
  std::int32_t iterations = -1, overflow_count = 0, apparent_df = 0;
  double loglik = 0.0, G2 = 0.0;
  double cat_loglik = 0.0, cat_g2 = 0.0;  ///< saturated model; test of its missing responses
  std::int32_t cat_df = 0;
  std::array<std::int32_t, TOLVENRA_RUN_INFO_SIZE> run_info{};
  std::array<std::int32_t, TOLVENRA_N_PARAMS_SIZE> n_params{};
  std::array<double, TOLVENRA_FIT_EXTRA_SIZE> fit_extra{};
  std::vector<double> gamma;     ///< (nc, ngroup)
  std::vector<double> rho;       ///< (nitem, nc, nrcmax, ngroup)
  std::vector<double> beta;      ///< (ncov + 1, nc, ngroup); empty without covariates
  std::vector<double> post_cls;  ///< (nrow, nc); empty when not wanted
  std::vector<std::int32_t> response_patterns;  ///< (nrow, 1 + nitem): group and responses
  std::vector<double> pattern_counts;           ///< (nrow, 2): observed and expected
  std::vector<double> test_stat, test_p;        ///< one per covariate; empty when not made
  std::vector<std::int32_t>
      test_status;  ///< 0 good, 5 statistic <= 0, 2 not converged, else failed
  std::vector<lca_start> starts;
};

/// The version of the interface that the command is written for.
inline constexpr std::array<std::int32_t, 3> interface_version{4, 3, 2};

/// Does the library that was loaded offer this interface?
bool engine_matches();

/// Can the effect of each covariate be tested? Not with sampling weights, as yet.
bool covariates_are_tested(const lca_data& data);

/// Starts that are made: one when the model says where to start.
std::int32_t starts_of(const lca_data& data, const lca_options& options);

lca_fit run_lca(const lca_data& data, const lca_options& options, tolvenra_progress* progress);

}  // namespace tolvenra::cli
