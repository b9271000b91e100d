#include "membership_report.hpp"

#include <fmt/format.h>

#include <cmath>

#include "report.hpp"

namespace tolvenra::cli {
namespace {

std::string test_section(const lca_data& data, const lca_answer& answer) {
  if (!covariates_are_tested(data))
    return "\nTests of covariates with sampling weights are not available yet.\n";
  std::vector<std::vector<std::string>> rows{{"Covariate", "Chi-square", "df", "p"}};
  for (const covariate_test& test : answer.tests) {
    const std::string p = test.p ? p_text(*test.p) : "";
    rows.push_back({test.name, test.statistic ? fixed(*test.statistic) : "not fitted",
                    fmt::format("{}", test.df), p.starts_with("p = ") ? p.substr(4) : p});
    if (p.starts_with("p < ")) rows.back().back() = p.substr(2);
  }
  return "\nLikelihood-ratio tests of the covariates\n" + aligned(rows, 1);
}

/// Large and small odds need more than four decimals.
std::string odds(double coefficient) {
  const double value = std::exp(coefficient);
  return value >= 1e-3 && value < 1e6 ? fixed(value) : fmt::format("{:.4g}", value);
}

std::string coefficient_table(const lca_data& data, const lca_answer& answer, std::size_t group) {
  std::vector<std::vector<std::string>> rows{{"Class", "Covariate", "Coefficient", "Odds ratio"}};
  for (std::size_t c = 0; c < answer.beta[group].size(); ++c) {
    const std::vector<double>& b = answer.beta[group][c];
    if (b.empty() || (!data.model.binary && c == data.model.reference)) continue;
    for (std::size_t v = 0; v < b.size(); ++v)
      rows.push_back({v == 0 ? answer.class_labels[c] : "",
                      v == 0 ? "(intercept)" : data.covariates[v - 1].name, fixed(b[v]),
                      v == 0 ? "" : odds(b[v])});
  }
  return aligned(rows, 2);
}

}  // namespace

std::string membership_sections(const lca_data& data, const lca_answer& answer) {
  if (answer.beta.empty()) return "";
  std::string text = test_section(data, answer);
  const std::string against = data.model.binary ? "all other classes"
                                                : (data.model.class_names.empty() ? "class " : "") +
                                                      answer.class_labels[data.model.reference];
  for (std::size_t g = 0; g < answer.beta.size(); ++g) {
    text += "\nClass membership: log-odds against " + against;
    if (data.group) text += fmt::format(" in group {}", data.group->labels[g]);
    text += '\n' + coefficient_table(data, answer, g);
  }
  return text;
}

}  // namespace tolvenra::cli
