#include "membership_report.hpp"

#include <fmt/format.h>

#include "report_parts.hpp"

namespace tolvenra::cli {
namespace {

std::string test_section(const lca_data& data, const lca_answer& answer) {
  if (!covariates_are_tested(data))
    return "\nTests of covariates with sampling weights are not available yet.\n";
  return test_table(answer.tests);
}

std::string coefficient_table(const lca_data& data, const lca_answer& answer, std::size_t group) {
  std::vector<std::vector<std::string>> rows{{"Class", "Covariate", "Coefficient", "Odds ratio"}};
  for (std::size_t c = 0; c < answer.beta[group].size(); ++c) {
    const std::vector<double>& b = answer.beta[group][c];
    if (b.empty() || (!data.model.binary && c == data.model.reference)) continue;
    for (std::size_t v = 0; v < b.size(); ++v)
      rows.push_back({v == 0 ? answer.class_labels[c] : "",
                      v == 0 ? "(intercept)" : data.covariates[v - 1].name, fixed(b[v]),
                      v == 0 ? "" : odds_text(b[v])});
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
