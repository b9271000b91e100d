#include "membership_report.hpp"

#include <fmt/format.h>

#include "report_parts.hpp"
#include "standard_error_report.hpp"

namespace tolvenra::cli {
namespace {

/// Under weights and clusters the statistics are not what the heading of plain ones says.
std::string correction(const lca_data& data) {
  const bool weights = !data.weight.empty(), clusters = !data.cluster.empty();
  if (!weights && !clusters) return "";
  return fmt::format(",\ncorrected for {} (Rao & Scott 1984)", weights && clusters
                                                                   ? "sampling weights and clusters"
                                                               : weights ? "sampling weights"
                                                                         : "clusters");
}

std::string coefficient_table(const lca_data& data, const lca_answer& answer, std::size_t group) {
  const standard_errors* errors = answer.errors && answer.errors->given ? &*answer.errors : nullptr;
  table_rows rows{{"Class", "Covariate", "Coefficient", "Odds ratio"}};
  if (errors) rows = {{"Class", "Covariate", "Coefficient", "SE", "95 %", "Odds ratio", "95 %"}};
  for (std::size_t c = 0; c < answer.beta[group].size(); ++c) {
    const std::vector<double>& b = answer.beta[group][c];
    if (b.empty() || (!data.model.binary && c == data.model.reference)) continue;
    for (std::size_t v = 0; v < b.size(); ++v) {
      auto& row = rows.emplace_back();
      row = {v == 0 ? answer.class_labels[c] : "",
             v == 0 ? "(intercept)" : data.covariates[v - 1].name};
      if (answer.runaway[group][c][v]) {
        row.emplace_back(no_finite_estimate);
        continue;
      }
      row.push_back(fixed(b[v]));
      const uncertainty* known = errors ? &errors->beta[group][c][v] : nullptr;
      const bool interval = known && known->is == uncertainty::kind::known;
      if (known) row.push_back(interval ? fixed(known->se) : "");
      if (known) row.push_back(interval_text(*known));
      if (v > 0) row.push_back(odds_text(b[v]));
      if (v > 0 && interval)
        row.push_back(fmt::format("{}, {}", odds_text(known->low), odds_text(known->high)));
    }
  }
  return aligned(rows, 2);
}

}  // namespace

std::string membership_sections(const lca_data& data, const lca_options& options,
                                const lca_answer& answer) {
  const bool has_prior = options.prior_beta > 0.0;
  if (answer.beta.empty()) return "";
  std::string text = test_table(answer.tests, correction(data));
  const std::string against = data.model.binary ? "all other classes"
                                                : (data.model.class_names.empty() ? "class " : "") +
                                                      answer.class_labels[data.model.reference];
  for (std::size_t g = 0; g < answer.beta.size(); ++g) {
    text += "\nClass membership: log-odds against " + against;
    if (data.group) text += fmt::format(" in group {}", data.group->labels[g]);
    text += '\n' + coefficient_table(data, answer, g);
  }
  if (answer.any_runaway)
    text += runaway_paragraph("a class is empty, or certain,", has_prior ? "" : "--prior-beta");
  return text;
}

}  // namespace tolvenra::cli
