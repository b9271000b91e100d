#include "standard_error_report.hpp"

#include <fmt/format.h>

namespace tolvenra::cli {

std::string with_error(double estimate, const uncertainty& known) {
  const std::string text = fixed(estimate);
  switch (known.is) {
    case uncertainty::kind::known:
      return fmt::format("{} ({})", text, fixed(known.se));
    case uncertainty::kind::boundary:
      return text + " boundary";
    case uncertainty::kind::fixed:
    case uncertainty::kind::runaway:
      break;
  }
  return fmt::format("{:<{}}", text, width_with_error);
}

std::string interval_text(const uncertainty& known) {
  if (known.is == uncertainty::kind::boundary) return "at the boundary";
  if (known.is == uncertainty::kind::fixed) return "fixed";
  return fmt::format("{}, {}", fixed(known.low), fixed(known.high));
}

std::string standard_error_section(const lca_data& data, const lca_options& options,
                                   const lca_answer& answer) {
  if (!answer.errors && options.se) return "";
  if (!answer.errors)
    return fmt::format(
        "Standard errors are left out: {} parameters take long. --se computes them.\n\n",
        data.parameters);
  const standard_errors& errors = *answer.errors;
  if (!errors.given)
    return "Standard errors\n" +
           paragraph(fmt::format("Standard errors cannot be given: {}. The estimates are not "
                                 "affected.",
                                 errors.reason)) +
           '\n';
  std::string text =
      "In brackets behind the estimates. They are robust (sandwich): they do not rely on the model "
      "being exactly right.";
  if (answer.clusters)
    text += fmt::format(
        " They allow for dependence between the cases of a cluster: the design effect, {}, is the "
        "average factor by which clusters raise the variances.",
        fixed(answer.clusters->deff.value_or(0.0)));
  if (errors.held > 0)
    text += fmt::format(
        " {} at the boundary and {} no standard error; the others take {} for known.",
        errors.held == 1 ? "One parameter lies" : fmt::format("{} parameters lie", errors.held),
        errors.held == 1 ? "has" : "have", errors.held == 1 ? "it" : "them");
  text += " The 95 % intervals of probabilities are formed on the logit scale.";
  std::string section = "Standard errors\n" + paragraph(text);
  if (errors.largest_of_probabilities() > 0.5)
    section += paragraph(
        "Some standard errors of probabilities exceed 0.5: the data say next to nothing about "
        "these parameters, and the model may not be identified.");
  if (!answer.converged)
    section += paragraph(
        "The estimates have not converged: their standard errors and intervals mean little.");
  return section + '\n';
}

table_rows cluster_rows(const lca_options& options, const lca_answer& answer) {
  if (!answer.clusters) return {};
  const cluster_sizes& sizes = *answer.clusters;
  const std::string range = sizes.smallest == sizes.largest
                                ? fmt::format("{} cases each", sizes.smallest)
                                : fmt::format("{} to {} cases", sizes.smallest, sizes.largest);
  return {{"Clusters", fmt::format("{} in {}, {}", sizes.number, options.cluster, range)}};
}

}  // namespace tolvenra::cli
