/// \file lca_data.hpp  The table and the options as one latent class analysis.
#pragma once

#include "case_data.hpp"
#include "lca_model.hpp"
#include "lca_options.hpp"
#include "plain_report.hpp"

namespace tolvenra::cli {

struct lca_data : case_data {
  lca_model model;
  bool errors_wanted = true;   ///< standard errors are asked for, or small enough to be made
  std::size_t parameters = 0;  ///< without regard to restrictions
};

/// Throws input_error for everything that leaves no analysis to be made.
lca_data prepare_lca(const data_table& table, const lca_options& options);

/// What the engine's reports speak of.
report_terms report_terms_of(const lca_data& data, const lca_options& options);

}  // namespace tolvenra::cli
