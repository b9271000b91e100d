#include "option_parsing.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

/// A text that is a number of at least `least`, or above it.
CLI::Validator number_from(double least, bool above, const std::string& what) {
  return {[=](const std::string& text) -> std::string {
            double value = 0.0;
            const bool number = CLI::detail::lexical_cast(text, value) && std::isfinite(value);
            if (number && (above ? value > least : value >= least)) return {};
            return "\"" + text + "\" is not " + what;
          },
          ""};
}

}  // namespace

CLI::Option* add_whole_number(CLI::App& command, const std::string& name, std::int32_t& value,
                              std::int32_t most, const std::string& help) {
  return command.add_option(name, value, help)
      ->check(CLI::Range(std::int32_t{1}, most))
      ->option_text("N");
}

void add_list(CLI::App& command, const std::string& name, std::vector<std::string>& list,
              const std::string& help, const std::string& text) {
  command.add_option(name, list, help)
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text(text);
}

void add_text(CLI::App& command, const std::string& name, std::string& value,
              const std::string& help, const std::string& text) {
  command.add_option(name, value, help)->option_text(text);
}

void add_prior(CLI::App& command, const std::string& name, double& strength,
               const std::string& help) {
  command.add_option(name, strength, help)
      ->check(number_from(0.0, false, "a number of at least 0"))
      ->option_text("STRENGTH");
}

void add_input(CLI::App& command, analysis_options& options) {
  add_text(command, "FILE", options.file,
           "Data with a header line, comma or tab separated; - for standard input", " ");
  add_text(command, "--model", options.model,
           "Read everything from this model file; options of the command line come first", "FILE");
}

void add_counts(CLI::App& command, analysis_options& options) {
  add_text(command, "--freq", options.freq, "Column that says how many cases each row stands for",
           "COL");
  add_text(command, "--weight", options.weight, "Column of sampling weights", "COL");
}

void add_missing(CLI::App& command, analysis_options& options) {
  add_list(command, "--na", options.na,
           "One more text for a missing response (empty, NA and . are)", "TEXT");
}

void add_estimation(CLI::App& command, analysis_options& options) {
  add_whole_number(command, "--starts", options.starts, most_starts, "Random starts [20]");
  add_whole_number(command, "--seed", options.seed, largest_seed, "Seed of the random starts [1]");
  command
      .add_option("--criterion", options.criterion,
                  "Largest change of an estimate at which a start has converged [1e-6]")
      ->check(number_from(0.0, true, "a number above 0"))
      ->option_text("X");
  add_whole_number(command, "--max-iter", options.max_iter, most_iterations,
                   "Most iterations of a start [10000]");
  add_whole_number(command, "--threads", options.threads, most_threads,
                   "Most threads [all]; the answer does not depend on it");
}

void add_outputs(CLI::App& command, analysis_options& options, const std::string& posteriors) {
  add_text(command, "--json", options.json, "Write everything at full precision to this file",
           "OUT");
  add_text(command, "--posteriors", options.posteriors, posteriors, "OUT");
  add_text(command, "--patterns", options.patterns,
           "Write the response patterns with observed and expected counts to this CSV file", "OUT");
}

void add_print_model(CLI::App& command, analysis_options& options) {
  command.add_flag("--print-model", options.print_model,
                   "Print the model file of this analysis instead of making it");
}

std::string key_of(const CLI::Option& option) {
  if (option.count() == 0 || option.get_lnames().empty()) return {};
  std::string key = option.get_lnames().front();
  std::replace(key.begin(), key.end(), '-', '_');
  return key;
}

std::string analysis_options::asked_by(std::string_view key) const {
  if (const auto at = where.find(key); at != where.end()) return at->second;
  std::string option = "--" + std::string(key);
  std::replace(option.begin(), option.end(), '_', '-');
  return option;
}

void analysis_options::needs(bool wanted, std::string_view key, bool there,
                             std::string_view what) const {
  if (wanted && !there) throw input_error::of("{} needs {}.", asked_by(key), what);
}

void check_input(const analysis_options& options) {
  if (options.file.empty()) throw input_error("FILE is required: the data to analyse.");
  if (options.items.empty()) throw input_error("--items is required: the columns to analyse.");
}

}  // namespace tolvenra::cli
