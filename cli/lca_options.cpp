#include "lca_options.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

CLI::Option* add_whole_number(CLI::App& lca, const std::string& name, std::int32_t& value,
                              std::int32_t most, const std::string& help) {
  return lca.add_option(name, value, help)
      ->check(CLI::Range(std::int32_t{1}, most))
      ->option_text("N");
}

/// A list may be given in pieces, but each option takes one text: the data file may follow it.
void add_list(CLI::App& lca, const std::string& name, std::vector<std::string>& list,
              const std::string& help, const std::string& text) {
  lca.add_option(name, list, help)
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text(text);
}

void add_columns(CLI::App& lca, lca_options& options) {
  add_list(lca, "--items", options.items,
           "Items: column names and ranges by position, as in A,B,q1-q12 (required)", "LIST");
  lca.add_option("--freq", options.freq, "Column that says how many cases each row stands for")
      ->option_text("COL");
  lca.add_option("--weight", options.weight, "Column of sampling weights")->option_text("COL");
  lca.add_option("--group", options.group,
                 "Column of groups; every group gets its own class shares and probabilities")
      ->option_text("COL");
  lca.add_flag("--invariant,!--no-invariant", options.invariant,
               "The same item-response probabilities in every group");
  add_list(lca, "--covariates", options.covariates,
           "Numeric columns on which class membership depends, as in age,x1-x3", "LIST");
  add_list(lca, "--na", options.na, "One more text for a missing response (empty, NA and . are)",
           "TEXT");
}

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

void add_regression(CLI::App& lca, lca_options& options) {
  lca.add_option("--reference", options.reference,
                 "Class that the coefficients compare the others with [1]")
      ->option_text("CLASS");
  lca.add_option("--binary", options.binary,
                 "Regress membership in this class against all others together")
      ->option_text("CLASS");
  const auto add_prior = [&](const char* name, double& strength, const char* help) {
    lca.add_option(name, strength, help)
        ->check(number_from(0.0, false, "a number of at least 0"))
        ->option_text("STRENGTH");
  };
  add_prior("--prior-rho", options.prior_rho,
            "Prior of the response probabilities, in cases per item and class [0]");
  add_prior("--prior-gamma", options.prior_gamma,
            "Prior of the class shares, in cases per group [0]");
  add_prior("--prior-beta", options.prior_beta,
            "Prior of the coefficients, in cases per group [0]");
}

void add_estimation(CLI::App& lca, lca_options& options) {
  add_whole_number(lca, "--classes", options.classes, most_classes,
                   "Number of latent classes (required)");
  add_whole_number(lca, "--starts", options.starts, most_starts, "Random starts [20]");
  add_whole_number(lca, "--seed", options.seed, largest_seed, "Seed of the random starts [1]");
  lca.add_option("--criterion", options.criterion,
                 "Largest change of an estimate at which a start has converged [1e-6]")
      ->check(number_from(0.0, true, "a number above 0"))
      ->option_text("X");
  add_whole_number(lca, "--max-iter", options.max_iter, most_iterations,
                   "Most iterations of a start [10000]");
  add_whole_number(lca, "--threads", options.threads, most_threads,
                   "Most threads [all]; the answer does not depend on it");
}

}  // namespace

CLI::App* add_lca_command(CLI::App& app, lca_options& options) {
  CLI::App* lca = app.add_subcommand("lca", "Latent class analysis");
  lca->add_option("FILE", options.file,
                  "Data with a header line, comma or tab separated; - for standard input")
      ->option_text(" ");
  lca->add_option("--model", options.model,
                  "Read everything from this model file; options of the command line come first")
      ->option_text("FILE");
  add_columns(*lca, options);
  add_regression(*lca, options);
  add_estimation(*lca, options);
  lca->add_option("--json", options.json, "Write everything at full precision to this file")
      ->option_text("OUT");
  lca->add_option("--posteriors", options.posteriors,
                  "Write the data with each row's class probabilities to this CSV file")
      ->option_text("OUT");
  lca->add_option("--patterns", options.patterns,
                  "Write the response patterns with observed and expected counts to this CSV file")
      ->option_text("OUT");
  lca->add_flag("--residuals", options.residuals,
                "Print observed and expected two-way tables of all pairs of items");
  lca->add_flag("--print-model", options.print_model,
                "Print the model file of this analysis instead of making it");
  return lca;
}

std::string lca_options::asked_by(std::string_view key) const {
  if (const auto at = where.find(key); at != where.end()) return at->second;
  std::string option = "--" + std::string(key);
  std::replace(option.begin(), option.end(), '_', '-');
  return option;
}

void forget_overridden(const CLI::App& lca, lca_options& options) {
  for (const CLI::Option* option : lca.get_options()) {
    if (option->count() == 0 || option->get_lnames().empty()) continue;
    std::string key = option->get_lnames().front();
    std::replace(key.begin(), key.end(), '-', '_');
    options.where.erase(key);
    if (key == "classes") options.class_names.clear();
  }
}

void check_options(const lca_options& options) {
  if (options.file.empty()) throw input_error("FILE is required: the data to analyse.");
  if (options.items.empty()) throw input_error("--items is required: the columns to analyse.");
  if (options.classes == 0) throw input_error("--classes is required: how many there are.");
  const auto needs = [&](bool wanted, std::string_view key, bool there, const char* what) {
    if (wanted && !there) throw input_error::of("{} needs {}.", options.asked_by(key), what);
  };
  const bool regression = !options.covariates.empty();
  needs(options.invariant, "invariant", !options.group.empty(), "groups (--group)");
  needs(!options.reference.empty(), "reference", regression, "covariates (--covariates)");
  needs(!options.binary.empty(), "binary", regression, "covariates (--covariates)");
  needs(options.prior_beta > 0.0, "prior_beta", regression, "covariates (--covariates)");
  if (regression && options.classes < 2)
    throw input_error::of("{} needs at least two classes.", options.asked_by("covariates"));
  if (regression && options.prior_gamma > 0.0)
    throw input_error::of(
        "{}: with covariates the class shares follow from the coefficients; --prior-beta is the "
        "prior for these.",
        options.asked_by("prior_gamma"));
  if (!options.reference.empty() && !options.binary.empty())
    throw input_error::of(
        "{}: the class of --binary is compared with all others together; leave out {}.",
        options.asked_by("binary"), options.asked_by("reference"));
}

}  // namespace tolvenra::cli
