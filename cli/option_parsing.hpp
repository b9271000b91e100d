/// \file option_parsing.hpp  The options that subcommands share, as the command line gives them.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "analysis_options.hpp"

namespace tolvenra::cli {

CLI::Option* add_whole_number(CLI::App& command, const std::string& name, std::int32_t& value,
                              std::int32_t most, const std::string& help);

/// A list may be given in pieces, but each option takes one text: the data file may follow it.
void add_list(CLI::App& command, const std::string& name, std::vector<std::string>& list,
              const std::string& help, const std::string& text);

/// An option that takes one text.
void add_text(CLI::App& command, const std::string& name, std::string& value,
              const std::string& help, const std::string& text);

/// The strength of a prior: a number of at least 0.
void add_prior(CLI::App& command, const std::string& name, double& strength,
               const std::string& help);

/// FILE and --model.
void add_input(CLI::App& command, analysis_options& options);

/// --freq and --weight.
void add_counts(CLI::App& command, analysis_options& options);

/// --na.
void add_missing(CLI::App& command, analysis_options& options);

/// --starts, --seed, --criterion, --max-iter and --threads.
void add_estimation(CLI::App& command, analysis_options& options);

/// --json, --posteriors and --patterns. \param posteriors  help of the second
void add_outputs(CLI::App& command, analysis_options& options, const std::string& posteriors);

/// --print-model.
void add_print_model(CLI::App& command, analysis_options& options);

/// The key of a parsed option, `prior_rho` for `--prior-rho`; empty for one that was not given.
std::string key_of(const CLI::Option& option);

/// Throws input_error when the data file or the items are missing.
void check_input(const analysis_options& options);

}  // namespace tolvenra::cli
