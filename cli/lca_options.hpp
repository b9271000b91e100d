/// \file lca_options.hpp  What the user asks of `tolvenra lca`.
#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "analysis_options.hpp"

namespace tolvenra::cli {

struct lca_options : analysis_options {
  std::int32_t classes = 0;
  std::vector<std::string> class_names;  ///< empty, or one per class
  bool invariant = false;                ///< the same response probabilities in every group
  std::vector<std::string> covariates;
  std::string cluster;     ///< column of clusters; empty when not given
  std::optional<bool> se;  ///< standard errors; empty: unless they take long
  double prior_rho = 0.0, prior_gamma = 0.0, prior_beta = 0.0;
  bool residuals = false;  ///< print the bivariate residuals
};

/// Adds the options that say what is analysed, but none for its output.
void add_lca_analysis(CLI::App& command, lca_options& options);

/// Adds the subcommand; parsing fills `options`, which must outlive the parser, and leaves alone
/// what the command line does not name.
CLI::App* add_lca_command(CLI::App& app, lca_options& options);

/// Forgets the places of options that the command line has overridden.
void forget_overridden(const CLI::App& lca, lca_options& options);

/// Throws input_error when the data file, the items or the number of classes are not given, or
/// options contradict each other.
void check_options(const lca_options& options);

}  // namespace tolvenra::cli
