#include "plain_report.hpp"

#include <fmt/format.h>

#include <cstdlib>
#include <optional>

namespace tolvenra::cli {
namespace {

/// The number behind a word of the report.
std::optional<std::size_t> number_behind(const std::string& message, const std::string& word) {
  const std::size_t at = message.find(word);
  if (at == std::string::npos) return std::nullopt;
  return std::strtoull(message.c_str() + at + word.size(), nullptr, 10);
}

/// The label of a number from 1; the number itself where there is none.
std::string label(const std::vector<std::string>& labels, std::size_t number) {
  return number >= 1 && number <= labels.size() ? labels[number - 1] : fmt::format("{}", number);
}

std::string what_is_regressed(const std::string& message, const report_terms& terms) {
  std::string text = "class membership on " + terms.covariates;
  if (const auto transition = number_behind(message, "transition: "))
    text = fmt::format("the move from status {} at time {} on {}",
                       number_behind(message, "row: ").value_or(0), label(terms.times, *transition),
                       terms.moving);
  else if (!terms.times.empty())
    text = fmt::format("the status at time {} on {}", terms.times.front(), terms.covariates);
  if (!terms.groups.empty())
    text += fmt::format(" in group \"{}\"",
                        label(terms.groups, number_behind(message, "Group: ").value_or(0)));
  return text;
}

}  // namespace

std::string plain_report(const std::string& message, const report_terms& terms) {
  const auto has = [&](const char* part) { return message.find(part) != std::string::npos; };
  if (has("No-covariates model for stabilization did not converge"))
    return fmt::format(
        "The prior of the coefficients ({}) comes from the model without covariates, which has not "
        "converged after {} iterations. Raise --max-iter, or leave the prior out ({} 0).",
        terms.prior_option, number_behind(message, "after ").value_or(0), terms.prior_option);
  if (has("Could not fit logit model"))
    return fmt::format(
        "The regression of {} could not be fitted. {}", what_is_regressed(message, terms),
        terms.prior_given ? "Leave a covariate out, or ask for fewer classes or statuses."
                          : "A prior keeps its coefficients finite: " + terms.prior_option + " 1.");
  if (const std::size_t note = message.find("NOTE: the above error"); note != std::string::npos)
    return fmt::format(
        "The prior of the coefficients ({}) comes from the model without covariates, which could "
        "not be fitted:\n{}",
        terms.prior_option, message.substr(0, message.find_last_not_of(" \r\n", note - 1) + 1));
  return message;
}

}  // namespace tolvenra::cli
