#include "report.hpp"

#include <fmt/ranges.h>

#include <algorithm>

#include "fit_sentences.hpp"
#include "membership_report.hpp"
#include "utf8.hpp"

namespace tolvenra::cli {
namespace {

using table_rows = std::vector<std::vector<std::string>>;

/// As many classes as fit side by side on a line of 100 characters with room for labels.
constexpr std::size_t classes_side_by_side = 8;

std::string whole_or_exact(double value) { return fmt::format("{}", value); }

std::string sample_section(const lca_data& data, const lca_options& options) {
  table_rows rows{{"Data", options.file == "-" ? "standard input" : options.file},
                  {"Rows", fmt::format("{}", data.rows)},
                  {"Cases", whole_or_exact(data.cases)}};
  if (!data.freq.empty()) rows.back()[1] += fmt::format(" (sum of {})", options.freq);
  if (!data.weight.empty())
    rows.push_back(
        {"Weighted cases",
         fmt::format("{} (weights in {})", whole_or_exact(data.weighted_cases), options.weight)});
  if (data.group) {
    std::vector<std::string> groups;
    for (std::size_t g = 0; g < data.groups(); ++g)
      groups.push_back(
          fmt::format("{} ({} cases)", data.group->labels[g], whole_or_exact(data.group_cases[g])));
    rows.push_back({"Groups", fmt::format("{} in {}: {}", data.groups(), data.group->name,
                                          fmt::join(groups, ", "))});
  }
  if (options.invariant) rows.push_back({"", "the same response probabilities in every group"});
  if (!data.covariates.empty()) {
    std::vector<std::string> names;
    for (const covariate& column : data.covariates) names.push_back(column.name);
    rows.push_back({"Covariates", fmt::format("{}", fmt::join(names, ", "))});
  }
  return "Sample\n" + aligned(rows, 2);
}

std::string item_section(const lca_data& data) {
  // Missing responses before the labels: these may be long.
  table_rows rows{{"Item", "Missing", "Categories"}};
  for (std::size_t j = 0; j < data.items.size(); ++j)
    rows.push_back({data.items[j].name, whole_or_exact(data.missing[j]),
                    fmt::format("{}", fmt::join(data.items[j].labels, ", "))});
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, width_of(row[1]));
  for (auto& row : rows) row[1].insert(0, width - width_of(row[1]), ' ');
  return "Items\n" + aligned(rows, 3);
}

/// The statistics with what is said of their p-values beside the column of figures.
std::string fit_section(const lca_answer& answer, bool covariates) {
  const lca_fit_figures& fit = answer.figures;
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

std::string search_section(const lca_data& data, const lca_options& options,
                           const lca_answer& answer) {
  std::string text = fmt::format("{} after {} iterations (criterion {}, seed {}).\n",
                                 answer.converged ? "Converged" : "Not converged",
                                 answer.iterations, options.criterion, options.seed);
  text += data.model.start_given ? "One start, from the starting values of the model.\n"
                                 : fmt::format("Best log-likelihood reached by {} of {} starts.\n",
                                               answer.best_start_hits, options.starts);
  for (const std::string& warning : answer.warnings) text += "Warning: " + warning + '\n';
  return text;
}

std::vector<std::string> with_class_names(std::vector<std::string> heading, const lca_data& data,
                                          std::size_t first, std::size_t end) {
  const std::vector<std::string>& names = data.model.class_names;
  for (std::size_t c = first; c < end; ++c)
    heading.push_back(names.empty() ? fmt::format("Class {}", c + 1) : names[c]);
  return heading;
}

std::string share_table(const lca_data& data, const lca_answer& answer, std::size_t first,
                        std::size_t end) {
  table_rows rows{with_class_names({data.group ? "Group" : ""}, data, first, end)};
  const auto add = [&](const std::string& name, const std::vector<double>& shares) {
    rows.push_back({name});
    for (std::size_t c = first; c < end; ++c) rows.back().push_back(fixed(shares[c]));
  };
  for (std::size_t g = 0; data.group && g < data.groups(); ++g)
    add(data.group->labels[g], answer.gamma[g]);
  add(data.group ? "all groups" : "Share", answer.shares);
  return aligned(rows, 1);
}

std::string response_table(const lca_data& data, const std::vector<lca_answer::item_table>& rho,
                           std::size_t first, std::size_t end) {
  table_rows rows{with_class_names({"Item", "Category"}, data, first, end)};
  for (std::size_t j = 0; j < data.items.size(); ++j)
    for (std::size_t k = 0; k < data.items[j].labels.size(); ++k) {
      rows.push_back({k == 0 ? data.items[j].name : "", data.items[j].labels[k]});
      for (std::size_t c = first; c < end; ++c) rows.back().push_back(fixed(rho[j][c][k]));
    }
  return aligned(rows, 2);
}

/// Calls `table(first, end)` for blocks of classes that fit side by side.
template <class Table>
std::string in_blocks(std::size_t classes, Table&& table) {
  std::string text;
  for (std::size_t first = 0; first < classes; first += classes_side_by_side) {
    if (first > 0) text += '\n';
    text += table(first, std::min(first + classes_side_by_side, classes));
  }
  return text;
}

}  // namespace

std::string fixed(double value) {
  std::string text = fmt::format("{:.4f}", value);
  return text.find_first_not_of("-0.") == std::string::npos ? "0.0000" : text;
}

std::string p_text(double p) { return p < 0.00005 ? "p < 0.0001" : "p = " + fixed(p); }

std::string aligned(const std::vector<std::vector<std::string>>& rows, std::size_t left,
                    std::string_view indent) {
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

std::string lca_report(const lca_data& data, const lca_options& options, const lca_answer& answer) {
  const std::size_t classes = answer.shares.size();
  std::string text =
      fmt::format("Latent class analysis: {} class{}, {} item{}\n\n", classes,
                  classes == 1 ? "" : "es", data.items.size(), data.items.size() == 1 ? "" : "s");
  text += sample_section(data, options) + '\n' + item_section(data) + '\n' +
          fit_section(answer, !data.covariates.empty()) + '\n' + fit_test_section(answer.of_fit) +
          '\n' + search_section(data, options, answer) + '\n';
  text += "Class shares\n" + in_blocks(classes, [&](std::size_t first, std::size_t end) {
            return share_table(data, answer, first, end);
          });
  text += membership_sections(data, answer);
  for (std::size_t g = 0; g < (options.invariant ? 1 : data.groups()); ++g) {
    text += "\nItem-response probabilities";
    if (options.invariant) {
      text += " in every group";
    } else if (data.group)
      text += fmt::format(" in group {}", data.group->labels[g]);
    text += '\n' + in_blocks(classes, [&](std::size_t first, std::size_t end) {
              return response_table(data, answer.rho[g], first, end);
            });
  }
  if (options.residuals) text += '\n' + residual_section(data, answer.residuals);
  return text;
}

}  // namespace tolvenra::cli
