#include "fit_sentences.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>

#include "report_parts.hpp"

namespace tolvenra::cli {
namespace {

constexpr double level = 0.05;

std::string count(double value) {
  return std::isfinite(value) ? fmt::format("{:.6g}", value) : "countless";
}

/// Cases and cells, as in "118 cases in 128 cells, 0.92 a cell".
std::string cells_text(const expected_cells& cells, bool complete_cases) {
  return fmt::format("{} {}cases in {} cells, {:.2g} a cell", count(cells.cases),
                     complete_cases ? "complete " : "", count(cells.cells), cells.mean());
}

std::string sparse_text(const expected_cells& cells, bool complete_cases, bool residuals) {
  std::string text = cells_text(cells, complete_cases);
  if (cells.mean() >= 5.0)
    text += ", but more than a fifth of the cells in tables with fewer than 5";
  return text +
         "; chi-square describes it from about 5 a cell on (Koehler & Larntz 1980). Compare "
         "models by the criteria instead" +
         (residuals ? ", and see the bivariate residuals (--residuals)." : ".");
}

/// What keeps G² and X² from being tested whatever the table.
std::string obstacle(p_value_use use) {
  switch (use) {
    case p_value_use::no_freedom:
      return "The model has as many parameters as the table has cells or more: no degrees of "
             "freedom are left to test it.";
    case p_value_use::covariates:
      return "The model predicts the responses given the covariates and the table does not know "
             "them: there is nothing that G² and X² could compare. Compare models by the criteria.";
    case p_value_use::restrictions:
      return "The degrees of freedom count parameters that the restrictions determine: the p-value "
             "would belong to another number.";
    case p_value_use::weights:
      return "With sampling weights it is not distributed as chi-square.";
    case p_value_use::clusters:
      return "When cases of a cluster depend on each other it is not distributed as chi-square.";
    case p_value_use::overflow:
      return "The cells are too many to be numbered.";
    default:
      return {};
  }
}

std::string G2_text(const fit_tests& tests, std::string_view latents, bool residuals) {
  std::string text =
      "G² compares the model with the table of all response patterns, each with a probability of "
      "its own. ";
  if (tests.G2.use == p_value_use::sparse)
    return text + "The table is sparse: " +
           sparse_text(tests.complete, tests.missing_responses, residuals);
  if (tests.G2.use != p_value_use::meaningful) return text + obstacle(tests.G2.use);
  text += *tests.G2.p < level
              ? fmt::format(
                    "The responses contradict the model (5 % level): the {} do not explain "
                    "all that the items have in common.",
                    latents)
              : "Nothing in it speaks against the model (5 % level).";
  if (tests.complete.below_5 > 0.2 * tests.complete.cells)
    text += fmt::format(
        " {} of {} cells expect fewer than 5 cases; G² then rejects good models somewhat too "
        "often, and X² is the safer one (Koehler & Larntz 1980).",
        count(tests.complete.below_5), count(tests.complete.cells));
  return text;
}

std::string X2_text(const fit_tests& tests) {
  std::string text = "X² compares the same counts by (observed − expected)² / expected. ";
  if (tests.X2.use == p_value_use::sparse)
    return text + fmt::format(
                      "The table is sparse: {}, the smallest expects {:.2g}; chi-square describes "
                      "X² when cases² / cells is at least 10 and every cell expects 0.25 cases "
                      "(Koehler & Larntz 1980).",
                      cells_text(tests.shown, false), tests.shown.smallest);
  if (tests.X2.use != p_value_use::meaningful) return text + obstacle(tests.X2.use);
  if (tests.missing_responses)
    text += fmt::format(
        "With missing responses it tests the model and \"missing completely at random\" together, "
        "on {} degrees of freedom. ",
        count(*tests.X2.df));
  return text + (*tests.X2.p < level ? "They differ by more than chance (5 % level)."
                                     : "They differ by no more than chance (5 % level).");
}

std::string missing_text(const fit_tests& tests) {
  std::string text =
      "The missing-data test asks whether responses are missing completely at random, that is, "
      "whether those who left out some items answered the others like everybody else. ";
  switch (tests.missing.use) {
    case p_value_use::meaningful:
      return text + (*tests.missing.p < level
                         ? "They did not (5 % level). The estimates stay right when what is "
                           "missing depends on the given responses alone."
                         : "Nothing speaks against it (5 % level).");
    case p_value_use::sparse:
      return text + "The tables of those who answered the same items are sparse: " +
             cells_text(tests.shown, false) +
             "; chi-square describes the statistic when at least four fifths of the cells are in "
             "tables with 5 cases a cell (Koehler & Larntz 1980, Cochran 1954).";
    case p_value_use::no_freedom:
      return text + "Here no two groups of cases can be compared.";
    default:
      return text + obstacle(tests.missing.use);
  }
}

/// A bound in three digits, rounded up so that it remains one.
std::string bound_text(double bound) {
  if (!(bound > 0.0)) return "0";
  const double unit = std::pow(10.0, std::floor(std::log10(bound)) - 2.0);
  return fmt::format("{:.3g}", std::ceil(bound / unit) * unit);
}

/// Names the statistics that there are: with covariates the missing-data statistic alone.
std::string unfinished_text(const fit_tests& tests) {
  const std::string groups =
      tests.unfinished == 1 ? "" : fmt::format(" in {} groups", tests.unfinished);
  const bool known = std::isfinite(tests.bound);
  const std::string twice = known ? " by twice that" : "";
  std::string how_far = known ? "at most " + bound_text(tests.bound) : "an unknown amount";
  const char* mark = ": ";
  const auto add = [&](std::string_view statistic) {
    how_far += fmt::format("{}{}{}", mark, statistic, twice);
    mark = ", ";
  };
  if (tests.G2.statistic) add("G² may be too small");
  if (tests.missing.statistic) add("the missing-data statistic may be too large");
  return fmt::format(
      "The table of all response patterns could not be fitted to the end{} ({} passes). Its "
      "log-likelihood may lie below its maximum by {}.",
      groups, tests.passes, how_far);
}

}  // namespace

std::string p_reason(p_value_use use) {
  switch (use) {
    case p_value_use::meaningful:
      return {};
    case p_value_use::no_statistic:
      return "no statistic";
    case p_value_use::no_freedom:
      return "no degrees of freedom";
    case p_value_use::covariates:
      return "covariates";
    case p_value_use::restrictions:
      return "dependent parameters";
    case p_value_use::weights:
      return "sampling weights";
    case p_value_use::clusters:
      return "clusters";
    case p_value_use::sparse:
      return "sparse table";
    case p_value_use::overflow:
      return "too many cells";
  }
  return {};
}

std::string p_remark(const fit_test& test) {
  if (test.use == p_value_use::meaningful) return p_text(*test.p);
  return "not meaningful (" + p_reason(test.use) + ")";
}

std::string fit_test_section(const fit_tests& tests, std::string_view latents, bool residuals) {
  std::string text = "Tests\n";
  if (tests.G2.use == p_value_use::no_statistic)
    return text + paragraph(
                      "The table of all response patterns is too large to be fitted to incomplete "
                      "responses: there is no G², no X² and no missing-data test. Log-likelihood "
                      "and criteria remain.");
  text += paragraph(tests.G2.use == p_value_use::covariates ? obstacle(tests.G2.use)
                                                            : G2_text(tests, latents, residuals));
  if (tests.X2.statistic) text += paragraph(X2_text(tests));
  if (tests.missing.statistic) text += paragraph(missing_text(tests));
  if (tests.unfinished > 0) text += paragraph(unfinished_text(tests));
  return text;
}

}  // namespace tolvenra::cli
