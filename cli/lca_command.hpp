/// \file lca_command.hpp  `tolvenra lca` from options to exit code.
#pragma once

#include "analysis_command.hpp"
#include "lca_options.hpp"

namespace tolvenra::cli {

/// Prints the report and writes the files that are asked for. Throws input_error, output_error and
/// std::bad_alloc.
exit_code run_lca_command(const lca_options& options);

}  // namespace tolvenra::cli
