/// \file impute_command.hpp  `tolvenra impute` from options to exit code.
#pragma once

#include "analysis_command.hpp"
#include "imputation.hpp"

namespace tolvenra::cli {

/// Adds the subcommand; parsing fills the options, which must outlive the parser.
CLI::App* add_impute_command(CLI::App& app, lca_options& options, imputation_options& wanted);

/// Fits the model, imputes from its estimates, prints the combined estimates and writes the files
/// that are asked for. Throws input_error, output_error and std::bad_alloc.
exit_code run_impute_command(const lca_options& options, const imputation_options& wanted);

}  // namespace tolvenra::cli
