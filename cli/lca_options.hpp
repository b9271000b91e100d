/// \file lca_options.hpp  What the user asks of `tolvenra lca`.
#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace tolvenra::cli {

struct lca_options {
  std::string file;
  std::vector<std::string> items;
  std::int32_t classes = 0;
  std::string freq, weight, group;  ///< column names; empty when not given
  std::int32_t starts = 20;
  std::int32_t seed = 1;
  double criterion = 1e-6;
  std::int32_t max_iter = 10000;
  std::int32_t threads = 0;  ///< 0: as many as there are
  std::vector<std::string> na;
  std::string json, posteriors;  ///< files to write; empty when not wanted
};

/// Adds the subcommand; parsing fills `options`, which must outlive the parser.
CLI::App* add_lca_command(CLI::App& app, lca_options& options);

}  // namespace tolvenra::cli
