/// \file impute_command.hpp  `tolvenra impute` from options to exit code.
#pragma once

#include <CLI/App.hpp>

#include "analysis_command.hpp"
#include "imputation.hpp"

namespace tolvenra::cli {

/// What is imputed: statuses where the command line or its model file asks for them, else classes.
struct impute_options {
  bool statuses = false;
  lca_options lca;
  lta_options lta;
  imputation_options wanted;
};

/// Does the command line ask for latent statuses, by --statuses or in its model file?
bool asks_for_statuses(int argc, const char* const* argv);

/// Adds the subcommand, with the options of the analysis that `options.statuses` says; parsing
/// fills the options, which must outlive the parser.
CLI::App* add_impute_command(CLI::App& app, impute_options& options);

/// Reads the model file that the options name. \return false when they name none
bool read_impute_model(impute_options& options);

/// Fits the model, imputes from its estimates, prints the combined estimates and writes the files
/// that are asked for. Throws input_error, output_error and std::bad_alloc.
exit_code run_impute_command(const CLI::App& impute, impute_options& options);

}  // namespace tolvenra::cli
