#include "lca_options.hpp"

#include <CLI/CLI.hpp>
#include <cmath>

namespace tolvenra::cli {
namespace {

constexpr std::int32_t most_classes = 99;
constexpr std::int32_t most_starts = 1'000'000;
constexpr std::int32_t most_iterations = 1'000'000;
/// The largest value that both seeds of the generator accept.
constexpr std::int32_t largest_seed = 2'147'483'398;

CLI::Option* add_whole_number(CLI::App& lca, const std::string& name, std::int32_t& value,
                              std::int32_t most, const std::string& help) {
  return lca.add_option(name, value, help)
      ->check(CLI::Range(std::int32_t{1}, most))
      ->option_text("N");
}

void add_columns(CLI::App& lca, lca_options& options) {
  // A list may be given in pieces, but each --items takes one text: the data file may follow it.
  lca.add_option("--items", options.items,
                 "Items: column names and ranges by position, as in A,B,q1-q12 (required)")
      ->required()
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text("LIST");
  lca.add_option("--freq", options.freq, "Column that says how many cases each row stands for")
      ->option_text("COL");
  lca.add_option("--weight", options.weight, "Column of sampling weights")->option_text("COL");
  lca.add_option("--group", options.group,
                 "Column of groups; every group gets its own class shares and probabilities")
      ->option_text("COL");
  lca.add_option("--na", options.na, "One more text for a missing response (empty, NA and . are)")
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text("TEXT");
}

void add_estimation(CLI::App& lca, lca_options& options) {
  add_whole_number(lca, "--classes", options.classes, most_classes,
                   "Number of latent classes (required)")
      ->required();
  add_whole_number(lca, "--starts", options.starts, most_starts, "Random starts [20]");
  add_whole_number(lca, "--seed", options.seed, largest_seed, "Seed of the random starts [1]");
  const auto is_criterion = [](const std::string& text) -> std::string {
    double value = 0.0;
    if (CLI::detail::lexical_cast(text, value) && value > 0.0 && std::isfinite(value)) return {};
    return "\"" + text + "\" is not a number above 0";
  };
  lca.add_option("--criterion", options.criterion,
                 "Largest change of an estimate at which a start has converged [1e-6]")
      ->check(CLI::Validator(is_criterion, ""))
      ->option_text("X");
  add_whole_number(lca, "--max-iter", options.max_iter, most_iterations,
                   "Most iterations of a start [10000]");
  add_whole_number(lca, "--threads", options.threads, 4096,
                   "Most threads [all]; the answer does not depend on it");
}

}  // namespace

CLI::App* add_lca_command(CLI::App& app, lca_options& options) {
  CLI::App* lca = app.add_subcommand("lca", "Latent class analysis");
  lca->add_option("FILE", options.file,
                  "Data with a header line, comma or tab separated; - for standard input")
      ->required()
      ->option_text(" ");
  add_columns(*lca, options);
  add_estimation(*lca, options);
  lca->add_option("--json", options.json, "Write everything at full precision to this file")
      ->option_text("OUT");
  lca->add_option("--posteriors", options.posteriors,
                  "Write the data with each row's class probabilities to this CSV file")
      ->option_text("OUT");
  return lca;
}

}  // namespace tolvenra::cli
