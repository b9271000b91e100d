#include <toml++/toml.h>

#include <CLI/CLI.hpp>
#include <string_view>

#include "impute_command.hpp"
#include "lta_model_file.hpp"
#include "model_file.hpp"
#include "option_parsing.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::int32_t most_imputations = 10'000;
constexpr std::int32_t most_cycles = 100'000;

/// A file that cannot be read is left to the reader that says why.
bool model_of_statuses(const std::string& path) {
  try {
    return toml::parse_file(path)["model"]["statuses"].is_value() ||
           toml::parse_file(path)["model"]["statuses"].is_array();
  } catch (const toml::parse_error&) {
    return false;
  }
}

}  // namespace

bool asks_for_statuses(int argc, const char* const* argv) {
  if (argc < 2 || std::string_view(argv[1]) != "impute") return false;
  for (int k = 2; k < argc; ++k) {
    const std::string_view argument = argv[k];
    if (argument == "--statuses" || argument.starts_with("--statuses=")) return true;
    constexpr std::string_view model = "--model=";
    if (argument.starts_with(model) &&
        model_of_statuses(std::string(argument.substr(model.size()))))
      return true;
    if (argument == "--model" && k + 1 < argc && model_of_statuses(argv[k + 1])) return true;
  }
  return false;
}

CLI::App* add_impute_command(CLI::App& app, impute_options& options) {
  imputation_options& wanted = options.wanted;
  CLI::App* impute =
      app.add_subcommand("impute",
                         "Multiple imputation of latent classes or statuses and of missing "
                         "responses");
  if (options.statuses) {
    add_lta_analysis(*impute, options.lta);
  } else {
    add_lca_analysis(*impute, options.lca);
    impute->footer("With --statuses N the options are those of a latent transition analysis.");
  }
  add_whole_number(*impute, "--imputations", wanted.imputations, most_imputations,
                   "Number of imputations [20]");
  impute->add_option("--burn-in", wanted.burn_in, "Cycles before the first imputation [200]")
      ->check(CLI::Range(std::int32_t{0}, most_cycles))
      ->option_text("N");
  add_whole_number(*impute, "--spacing", wanted.spacing, most_cycles,
                   "Cycles from one imputation to the next [50]");
  impute->add_flag("--logit-intervals", wanted.logit_intervals,
                   "Print intervals formed on the logit scale, which stay between 0 and 1");
  add_text(*impute, "--imputed", wanted.imputed, "Write the imputed data sets to this CSV file",
           "OUT");
  add_text(*impute, "--json", options.statuses ? options.lta.json : options.lca.json,
           "Write everything at full precision to this file", "OUT");
  return impute;
}

bool read_impute_model(impute_options& options) {
  if (!options.lca.model.empty()) {
    options.lca = read_model_file(options.lca.model);
    return true;
  }
  if (options.lta.model.empty()) return false;
  options.lta = read_lta_model_file(options.lta.model);
  return true;
}

}  // namespace tolvenra::cli
