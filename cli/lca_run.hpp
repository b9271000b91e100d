/// \file lca_run.hpp  The call of the engine: marshalling in and out, nothing else.
#pragma once

#include <vector>

#include "fit_record.hpp"
#include "lca_data.hpp"

namespace tolvenra::cli {

/// The result cells of the call, classes as the engine numbers them.
struct lca_fit : fit_record {
  std::vector<double> gamma;     ///< (nc, ngroup)
  std::vector<double> rho;       ///< (nitem, nc, nrcmax, ngroup)
  std::vector<double> beta;      ///< (ncov + 1, nc, ngroup); empty without covariates
  std::vector<double> post_cls;  ///< (nrow, nc); empty when not wanted
  /// Standard errors; empty when not wanted. cov_b is square of order run_info(9); where beta_runs
  /// has coefficients, it is that of the differences which these leave alone.
  std::vector<double> std_gamma, std_gamma_model, std_rho, cov_b;
  runaway_directions beta_runs;  ///< of beta
  double deff = 0.0;  ///< design effect; with the next ones it has a meaning for clusters
  std::int32_t n_clusters = 0;
  double cluster_min = 0.0, cluster_max = 0.0;  ///< cases

  [[nodiscard]] bool has_errors() const { return run_info[7] == 1; }
};

/// The engine's reference class (from 0). While classes are listed by size, the fit knows no
/// reference of the user's: the answer expresses the coefficients against it afterwards, and the
/// fit is the same whichever it is. Of two classes, one against the rest is one against the other.
std::size_t engine_reference(const lca_model& model);

lca_fit run_lca(const lca_data& data, const lca_options& options, tolvenra_progress* progress);

}  // namespace tolvenra::cli
