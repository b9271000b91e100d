/// \file lta_options.hpp  What the user asks of `tolvenra lta`.
#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "analysis_options.hpp"

namespace tolvenra::cli {

inline constexpr std::size_t most_times = 99;

struct lta_options : analysis_options {
  std::int32_t statuses = 0;
  std::vector<std::string> status_names;  ///< empty, or one per status
  std::string id, time;                   ///< columns of long data; empty for wide data
  std::string pattern;                    ///< names of wide columns, with {item} and {time}
  std::vector<std::string> times;
  std::vector<std::string> invariant;  ///< of "time" and "group"
  std::vector<std::string> covariates_start, covariates_transition;
  double prior_strength = 0.0;
  std::string cluster;  ///< refused
  bool se = false;      ///< refused

  [[nodiscard]] bool is_long() const { return !id.empty() || !time.empty(); }
  /// Are the response probabilities the same at all times ("time"), in all groups ("group")?
  [[nodiscard]] bool equal_over(std::string_view what) const;
};

/// Adds the options that say what is analysed, but none for its output.
void add_lta_analysis(CLI::App& command, lta_options& options);

/// Adds the subcommand; parsing fills `options`, which must outlive the parser, and leaves alone
/// what the command line does not name.
CLI::App* add_lta_command(CLI::App& app, lta_options& options);

/// Forgets the places of options that the command line has overridden.
void forget_overridden(const CLI::App& lta, lta_options& options);

/// Throws input_error when something is not given that has to be, options contradict each other or
/// ask for what is not available.
void check_options(const lta_options& options);

/// The elements of lists in which commas separate.
std::vector<std::string> listed(const std::vector<std::string>& lists);

}  // namespace tolvenra::cli
