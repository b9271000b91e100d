#include "lca_options.hpp"

#include <CLI/CLI.hpp>

#include "input_error.hpp"
#include "option_parsing.hpp"

namespace tolvenra::cli {
namespace {

void add_columns(CLI::App& lca, lca_options& options) {
  add_list(lca, "--items", options.items,
           "Items: column names and ranges by position, as in A,B,q1-q12 (required)", "LIST");
  add_counts(lca, options);
  add_text(lca, "--group", options.group,
           "Column of groups; every group gets its own class shares and probabilities", "COL");
  lca.add_flag("--invariant,!--no-invariant", options.invariant,
               "The same item-response probabilities in every group");
  add_list(lca, "--covariates", options.covariates,
           "Numeric columns on which class membership depends, as in age,x1-x3", "LIST");
  add_missing(lca, options);
}

void add_regression(CLI::App& lca, lca_options& options) {
  add_text(lca, "--reference", options.reference,
           "Class that the coefficients compare the others with [1]", "CLASS");
  add_text(lca, "--binary", options.binary,
           "Regress membership in this class against all others together", "CLASS");
  add_prior(lca, "--prior-rho", options.prior_rho,
            "Prior of the response probabilities, in cases per item and class [0]");
  add_prior(lca, "--prior-gamma", options.prior_gamma,
            "Prior of the class shares, in cases per group [0]");
  add_prior(lca, "--prior-beta", options.prior_beta,
            "Prior of the coefficients, in cases per group [0]");
}

}  // namespace

void add_lca_analysis(CLI::App& command, lca_options& options) {
  add_input(command, options);
  add_columns(command, options);
  add_regression(command, options);
  add_whole_number(command, "--classes", options.classes, most_classes,
                   "Number of latent classes (required)");
  add_estimation(command, options);
}

CLI::App* add_lca_command(CLI::App& app, lca_options& options) {
  CLI::App* lca = app.add_subcommand("lca", "Latent class analysis");
  add_lca_analysis(*lca, options);
  add_text(*lca, "--cluster", options.cluster,
           "Column of clusters (schools, households) whose cases may depend on each other", "COL");
  lca->add_flag_function(
      "--se,!--no-se", [&options](std::int64_t given) { options.se = given > 0; },
      "Standard errors and 95 % intervals [up to 1500 parameters]; --no-se leaves them out");
  add_outputs(*lca, options, "Write the data with each row's class probabilities to this CSV file");
  lca->add_flag("--residuals", options.residuals,
                "Print observed and expected two-way tables of all pairs of items");
  add_print_model(*lca, options);
  return lca;
}

void forget_overridden(const CLI::App& lca, lca_options& options) {
  for (const CLI::Option* option : lca.get_options()) {
    const std::string key = key_of(*option);
    options.where.erase(key);
    if (key == "classes") options.class_names.clear();
  }
}

void check_options(const lca_options& options) {
  check_input(options);
  if (options.classes == 0) throw input_error("--classes is required: how many there are.");
  const bool regression = !options.covariates.empty();
  options.needs(options.invariant, "invariant", !options.group.empty(), "groups (--group)");
  for (const auto& [key, wanted] : {std::pair{"reference", !options.reference.empty()},
                                    {"binary", !options.binary.empty()},
                                    {"prior_beta", options.prior_beta > 0.0}})
    options.needs(wanted, key, regression, "covariates (--covariates)");
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
