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
};

lca_fit run_lca(const lca_data& data, const lca_options& options, tolvenra_progress* progress);

}  // namespace tolvenra::cli
