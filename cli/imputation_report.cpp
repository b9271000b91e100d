#include "imputation_report.hpp"

#include <fmt/format.h>

#include <cctype>
#include <cmath>

#include "report_parts.hpp"

namespace tolvenra::cli {
namespace {

/// Beyond this many degrees of freedom the t distribution is the normal one in all printed digits.
constexpr double printed_df = 1e6;

std::string capitalised(std::string word) {
  word.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(word.front())));
  return word;
}

double probability_of(double logit) { return 1.0 / (1.0 + std::exp(-logit)); }

/// What there is not becomes null: all but the estimate of a fixed value, the logit of 0 or 1.
json scale_json(const combined_estimates& scale, std::size_t at) {
  return {{"estimate", scale.estimate[at]},
          {"std_err", scale.std_err[at]},
          {"df", scale.df[at]},
          {"lower", scale.lower[at]},
          {"upper", scale.upper[at]},
          {"missing_information", scale.missing_information[at]}};
}

}  // namespace

std::string imputation_section(const analysis_options& options, const imputation_options& wanted) {
  return fmt::format(
      "{} after {} of burn-in, {} apart (seed {}).\n"
      "Standard errors, 90 % intervals and fractions of missing information by Rubin's rules.\n{}",
      counted(static_cast<std::size_t>(wanted.imputations), "imputation", "imputations"),
      counted(static_cast<std::size_t>(wanted.burn_in), "cycle", "cycles"),
      counted(static_cast<std::size_t>(wanted.spacing), "cycle", "cycles"), options.seed,
      wanted.logit_intervals ? "The intervals were formed on the logit scale.\n" : "");
}

std::string combined_section(const parameter_table& table, bool logit_intervals) {
  table_rows rows(1);
  for (const auto& [name, value] : table.parameters.front().index)
    rows.front().push_back(capitalised(name));
  const std::size_t labels = rows.front().size();
  for (const char* heading : {"Estimate", "Std. error", "df", "Lower", "Upper", "Missing"})
    rows.front().emplace_back(heading);
  const printed_parameter* before = nullptr;
  for (const printed_parameter& parameter : table.parameters) {
    auto& row = rows.emplace_back();
    bool same = before != nullptr;  // as far as the labels of the line before
    for (std::size_t k = 0; k < labels; ++k) {
      const std::string& label = parameter.index[k].second;
      same = same && k + 1 < labels && before->index[k].second == label;
      row.push_back(same ? "" : label);
    }
    before = &parameter;
    const combined_estimates& p = parameter.of->probability;
    const std::size_t at = parameter.at;
    row.push_back(fixed(p.estimate[at]));
    if (std::isnan(p.std_err[at])) {
      row.emplace_back("fixed");
      continue;
    }
    row.push_back(fixed(p.std_err[at]));
    row.push_back(p.df[at] < printed_df ? fmt::format("{:.0f}", p.df[at]) : "∞");
    const combined_estimates& logit = parameter.of->logit;
    row.push_back(fixed(logit_intervals ? probability_of(logit.lower[at]) : p.lower[at]));
    row.push_back(fixed(logit_intervals ? probability_of(logit.upper[at]) : p.upper[at]));
    row.push_back(fixed(p.missing_information[at]));
  }
  return table.heading + '\n' + aligned(rows, labels);
}

json imputation_json(const analysis_options& options, const imputation_options& wanted) {
  return {{"imputations", wanted.imputations},
          {"burn_in", wanted.burn_in},
          {"spacing", wanted.spacing},
          {"seed", options.seed},
          {"level", 0.9}};
}

json combined_json(const std::vector<parameter_table>& tables) {
  json parameters = json::array();
  for (const parameter_table& table : tables)
    for (const printed_parameter& parameter : table.parameters) {
      json& one = parameters.emplace_back(json{{"parameter", table.family}});
      for (const auto& [name, value] : table.common) one[name] = value;
      for (const auto& [name, value] : parameter.index) one[name] = value;
      one.update(scale_json(parameter.of->probability, parameter.at));
      one["logit"] = scale_json(parameter.of->logit, parameter.at);
    }
  return parameters;
}

}  // namespace tolvenra::cli
