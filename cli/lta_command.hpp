/// \file lta_command.hpp  `tolvenra lta` from options to exit code.
#pragma once

#include "analysis_command.hpp"
#include "lta_options.hpp"

namespace tolvenra::cli {

/// Prints the report and writes the files that are asked for. Throws input_error, output_error and
/// std::bad_alloc.
exit_code run_lta_command(const lta_options& options);

}  // namespace tolvenra::cli
