/// \file lca_command.hpp  `tolvenra lca` from options to exit code.
#pragma once

#include "lca_options.hpp"

namespace tolvenra::cli {

enum exit_code : int {
  exit_good = 0,
  exit_analysis_failed = 1,
  exit_bad_input = 2,
  exit_not_converged = 3,
  exit_cancelled = 130
};

/// Prints the report and writes the files that are asked for. Throws input_error, output_error and
/// std::bad_alloc.
exit_code run_lca_command(const lca_options& options);

}  // namespace tolvenra::cli
