#include "report_parts.hpp"

#include <fmt/ranges.h>

#include <cmath>

#include "fit_sentences.hpp"
#include "utf8.hpp"

namespace tolvenra::cli {
namespace {

std::string whole_or_exact(double value) { return fmt::format("{}", value); }

constexpr std::size_t paragraph_width = 92;

}  // namespace

std::string fixed(double value) {
  std::string text = fmt::format("{:.4f}", value);
  return text.find_first_not_of("-0.") == std::string::npos ? "0.0000" : text;
}

std::string p_text(double p) { return p < 0.00005 ? "p < 0.0001" : "p = " + fixed(p); }

std::string odds_text(double coefficient) {
  const double value = std::exp(coefficient);
  return value >= 1e-3 && value < 1e6 ? fixed(value) : fmt::format("{:.4g}", value);
}

std::string counted(std::size_t n, std::string_view one, std::string_view several) {
  return fmt::format("{} {}", n, n == 1 ? one : several);
}

std::string paragraph(std::string_view text) {
  std::string lines;
  std::size_t used = paragraph_width;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const bool starts_line = used + 1 + width_of(word) > paragraph_width;
    if (starts_line && !lines.empty()) lines += '\n';
    lines += starts_line ? "  " : " ";
    used = (starts_line ? 2 : used + 1) + width_of(word);
    lines += word;
  }
  return lines + '\n';
}

std::string aligned(const table_rows& rows, std::size_t left, std::string_view indent) {
  std::vector<std::size_t> width;
  for (const auto& row : rows) {
    width.resize(std::max(width.size(), row.size()), 0);
    for (std::size_t k = 0; k < row.size(); ++k) width[k] = std::max(width[k], width_of(row[k]));
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line(indent);
    for (std::size_t k = 0; k < row.size(); ++k) {
      const std::string padding(width[k] - width_of(row[k]), ' ');
      if (k > 0) line += "  ";
      line += k < left ? row[k] + padding : padding + row[k];
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  }
  return text;
}

table_rows sample_rows(const case_data& data, const analysis_options& options,
                       std::pair<std::string, std::size_t> rows_are) {
  table_rows rows{{"Data", options.file == "-" ? "standard input" : options.file},
                  {std::move(rows_are.first), fmt::format("{}", rows_are.second)},
                  {"Cases", whole_or_exact(data.cases)}};
  if (!options.freq.empty()) rows.back()[1] += fmt::format(" (sum of {})", options.freq);
  if (!options.weight.empty())
    rows.push_back(
        {"Weighted cases",
         fmt::format("{} (weights in {})", whole_or_exact(data.weighted_cases), options.weight)});
  if (!data.group) return rows;
  std::vector<std::string> groups;
  for (std::size_t g = 0; g < data.groups(); ++g)
    groups.push_back(
        fmt::format("{} ({} cases)", data.group->labels[g], whole_or_exact(data.group_cases[g])));
  rows.push_back({"Groups", fmt::format("{} in {}: {}", data.groups(), data.group->name,
                                        fmt::join(groups, ", "))});
  return rows;
}

std::string item_table(const std::vector<std::string>& headings,
                       const std::vector<std::vector<std::string>>& counts,
                       const std::vector<const categories*>& items) {
  // Missing responses before the labels: these may be long.
  table_rows rows{{"Item"}};
  rows.back().insert(rows.back().end(), headings.begin(), headings.end());
  rows.back().emplace_back("Categories");
  for (std::size_t j = 0; j < items.size(); ++j) {
    rows.push_back({items[j]->name});
    rows.back().insert(rows.back().end(), counts[j].begin(), counts[j].end());
    rows.back().push_back(fmt::format("{}", fmt::join(items[j]->labels, ", ")));
  }
  for (std::size_t k = 1; k <= headings.size(); ++k) {
    std::size_t width = 0;
    for (const auto& row : rows) width = std::max(width, width_of(row[k]));
    for (auto& row : rows) row[k].insert(0, width - width_of(row[k]), ' ');
  }
  return "Items\n" + aligned(rows, headings.size() + 2);
}

std::string fit_section(const fit_answer& answer, bool covariates) {
  const fit_figures& fit = answer.figures;
  const fit_tests& tests = answer.of_fit;
  table_rows rows{{"Log-likelihood", fixed(fit.loglik)}};
  if (fit.penalised_loglik) rows.push_back({"with log prior", fixed(*fit.penalised_loglik)});
  rows.push_back({"Parameters", fmt::format("{}", fit.n_params)});
  if (fit.independent > 0 && fit.independent != fit.n_params)
    rows.push_back({"of these independent", fmt::format("{}", fit.independent)});
  if (!covariates)
    rows.push_back({"Degrees of freedom", fit.df ? fmt::format("{}", *fit.df) : "> 2147483647"});
  if (fit.G2) rows.push_back({"G²", fixed(*fit.G2), p_remark(tests.G2)});
  if (fit.X2) rows.push_back({"X²", fixed(*fit.X2), p_remark(tests.X2)});
  if (tests.missing.statistic)
    rows.push_back(
        {"Missing-data test", fixed(*tests.missing.statistic),
         fmt::format("on {} df, {}",
                     tests.missing.df ? fmt::format("{}", *tests.missing.df) : "> 2147483647",
                     p_remark(tests.missing))});
  rows.push_back({"AIC", fixed(fit.aic)});
  rows.push_back({"BIC", fixed(fit.bic)});
  rows.push_back({"CAIC", fixed(fit.caic)});
  rows.push_back({"Adjusted BIC", fixed(fit.abic)});
  rows.push_back({"Entropy", fixed(fit.entropy)});
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.size() > 2 ? width_of(row[2]) : 0);
  for (auto& row : rows)
    if (row.size() > 2) row[2].append(width - width_of(row[2]), ' ');
  return "Fit\n" + aligned(rows, 1);
}

std::string search_section(const analysis_options& options, bool start_given,
                           const fit_answer& answer) {
  std::string text = fmt::format("{} after {} iterations (criterion {}, seed {}).\n",
                                 answer.converged ? "Converged" : "Not converged",
                                 answer.iterations, options.criterion, options.seed);
  text += start_given ? "One start, from the starting values of the model.\n"
                      : fmt::format("Best log-likelihood reached by {} of {} starts.\n",
                                    answer.best_start_hits, options.starts);
  for (const std::string& warning : answer.warnings) text += "Warning: " + warning + '\n';
  return text;
}

std::string test_table(const std::vector<covariate_test>& tests, std::string_view correction) {
  table_rows rows{{"Covariate", "Chi-square", "df", "p"}};
  for (const covariate_test& test : tests) {
    const std::string p = test.p ? p_text(*test.p) : "";
    rows.push_back({test.name, test.statistic ? fixed(*test.statistic) : "not fitted",
                    fmt::format("{}", test.df), p.starts_with("p = ") ? p.substr(4) : p});
    if (p.starts_with("p < ")) rows.back().back() = p.substr(2);
  }
  return fmt::format("\nLikelihood-ratio tests of the covariates{}\n{}", correction,
                     aligned(rows, 1));
}

std::vector<std::string> with_latent_names(std::vector<std::string> heading,
                                           const std::vector<std::string>& names,
                                           std::string_view word, std::size_t first,
                                           std::size_t end) {
  for (std::size_t c = first; c < end; ++c)
    heading.push_back(names.empty() ? fmt::format("{} {}", word, c + 1) : names[c]);
  return heading;
}

std::string runaway_paragraph(const std::string& what, const std::string& prior_option) {
  std::string text = fmt::format(
      "No finite estimate: {} at some values of the covariates, and the likelihood goes on rising, "
      "by next to nothing, as the coefficient grows. The other estimates and the tests stand.",
      what);
  if (!prior_option.empty())
    text +=
        fmt::format(" {} 1, a prior worth one case, makes all coefficients finite.", prior_option);
  return paragraph(text);
}

}  // namespace tolvenra::cli
