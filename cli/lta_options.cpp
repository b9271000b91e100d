#include "lta_options.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "columns.hpp"
#include "input_error.hpp"
#include "option_parsing.hpp"

namespace tolvenra::cli {
namespace {

void add_columns(CLI::App& lta, lta_options& options) {
  add_list(lta, "--items", options.items,
           "Items. Wide data: the columns of each time, as in \"1: a1,b1; 2: a2,b2\", or with "
           "--pattern their names; long data: columns, as in a,b,q1-q5 (required)",
           "LIST");
  add_text(lta, "--pattern", options.pattern,
           "Wide data: how the columns are called, as in {item}_{time}", "TEXT");
  add_list(lta, "--times", options.times,
           "The times in their order, as in 1,2,3 [those that the columns or rows have]", "LIST");
  add_text(lta, "--id", options.id, "Long data: column that says who answered", "COL");
  add_text(lta, "--time", options.time, "Long data: column that says when", "COL");
  add_counts(lta, options);
  add_text(lta, "--group", options.group,
           "Column of groups; every group gets its own probabilities", "COL");
  add_list(lta, "--invariant", options.invariant,
           "The same item-response probabilities at every time (time), in every group (group), or "
           "both (time,group)",
           "LIST");
  add_list(lta, "--covariates-start", options.covariates_start,
           "Numeric columns on which the status at the first time depends", "LIST");
  add_list(lta, "--covariates-transition", options.covariates_transition,
           "Numeric columns on which the transitions depend, taken from the time at which a "
           "transition starts",
           "LIST");
  add_missing(lta, options);
}

void add_regression(CLI::App& lta, lta_options& options) {
  add_text(lta, "--reference", options.reference,
           "Status that the coefficients compare the others with [start: 1; transitions: to stay]",
           "STATUS");
  add_text(lta, "--binary", options.binary,
           "Compare being in this status, or moving to it, with all others together", "STATUS");
  add_prior(lta, "--prior-strength", options.prior_strength,
            "Prior of the coefficients, in cases per regression and group [0]");
}

void refuse_what_is_missing(const lta_options& options) {
  for (const auto& [key, wanted] :
       {std::pair{"cluster", !options.cluster.empty()}, {"se", options.se}})
    if (wanted)
      throw input_error::of("{}: Not able to get standard errors yet for LTA.",
                            options.asked_by(key));
}

void check_form_of_data(const lta_options& options) {
  options.needs(!options.id.empty(), "id", !options.time.empty(),
                "the column of times as well (--time): together they describe long data");
  options.needs(!options.time.empty(), "time", !options.id.empty(),
                "the column of people as well (--id): together they describe long data");
  if (options.is_long() && !options.pattern.empty())
    throw input_error::of("{} describes wide data, {} long data; give one of them.",
                          options.asked_by("pattern"), options.asked_by("id"));
  options.needs(!options.times.empty(), "times", options.is_long() || !options.pattern.empty(),
                "--pattern (wide data) or --id and --time (long data)");
}

void check_invariance(const lta_options& options) {
  for (const std::string& what : listed(options.invariant))
    if (what != "time" && what != "group")
      throw input_error::of("{}: \"{}\" is none of time and group.", options.asked_by("invariant"),
                            what);
  options.needs(options.equal_over("group"), "invariant", !options.group.empty(),
                "groups (--group) to be the same in them");
}

}  // namespace

bool lta_options::equal_over(std::string_view what) const {
  const std::vector<std::string> given = listed(invariant);
  return std::find(given.begin(), given.end(), what) != given.end();
}

std::vector<std::string> listed(const std::vector<std::string>& lists) {
  std::vector<std::string> elements;
  for (const std::string& list : lists)
    for (std::string& element : split(list, ','))
      if (!element.empty()) elements.push_back(std::move(element));
  return elements;
}

void add_lta_analysis(CLI::App& command, lta_options& options) {
  add_input(command, options);
  add_columns(command, options);
  add_regression(command, options);
  add_whole_number(command, "--statuses", options.statuses, most_classes,
                   "Number of latent statuses (required)");
  add_estimation(command, options);
}

CLI::App* add_lta_command(CLI::App& app, lta_options& options) {
  CLI::App* lta = app.add_subcommand("lta", "Latent transition analysis");
  add_lta_analysis(*lta, options);
  add_outputs(*lta, options,
              "Write each person's status probabilities, most likely statuses and most likely "
              "sequence to this CSV file");
  lta->add_option("--cluster", options.cluster)->group("");  // to be refused with the reason
  lta->add_flag("--se", options.se)->group("");
  add_print_model(*lta, options);
  return lta;
}

void forget_overridden(const CLI::App& lta, lta_options& options) {
  for (const CLI::Option* option : lta.get_options()) {
    const std::string key = key_of(*option);
    options.where.erase(key);
    if (key == "statuses") options.status_names.clear();
  }
}

void check_options(const lta_options& options) {
  check_input(options);
  if (options.statuses == 0) throw input_error("--statuses is required: how many there are.");
  refuse_what_is_missing(options);
  check_form_of_data(options);
  check_invariance(options);
  const bool regression =
      !options.covariates_start.empty() || !options.covariates_transition.empty();
  for (const auto& [key, wanted] : {std::pair{"reference", !options.reference.empty()},
                                    {"binary", !options.binary.empty()},
                                    {"prior_strength", options.prior_strength > 0.0}})
    options.needs(wanted, key, regression,
                  "covariates (--covariates-start, --covariates-transition)");
  if (regression && options.statuses < 2)
    throw input_error::of(
        "{} needs at least two statuses.",
        options.asked_by(options.covariates_start.empty() ? "covariates_transition"
                                                          : "covariates_start"));
  if (!options.reference.empty() && !options.binary.empty())
    throw input_error::of(
        "{}: the status of --binary is compared with all others together; leave out {}.",
        options.asked_by("binary"), options.asked_by("reference"));
}

}  // namespace tolvenra::cli
