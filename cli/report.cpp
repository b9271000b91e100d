#include "report.hpp"

#include <fmt/ranges.h>

#include "fit_sentences.hpp"
#include "membership_report.hpp"

namespace tolvenra::cli {
namespace {

std::string sample_section(const lca_data& data, const lca_options& options) {
  table_rows rows = sample_rows(data, options, {"Rows", data.rows});
  if (options.invariant) rows.push_back({"", "the same response probabilities in every group"});
  if (!data.covariates.empty()) {
    std::vector<std::string> names;
    for (const covariate& column : data.covariates) names.push_back(column.name);
    rows.push_back({"Covariates", fmt::format("{}", fmt::join(names, ", "))});
  }
  return "Sample\n" + aligned(rows, 2);
}

std::vector<const categories*> items_of(const lca_data& data) {
  std::vector<const categories*> items;
  for (const categories& item : data.items) items.push_back(&item);
  return items;
}

std::string item_section(const lca_data& data) {
  std::vector<std::vector<std::string>> missing;
  for (const double count : data.missing) missing.push_back({fmt::format("{}", count)});
  return item_table({"Missing"}, missing, items_of(data));
}

std::string share_table(const lca_data& data, const lca_answer& answer, std::size_t first,
                        std::size_t end) {
  table_rows rows{
      with_latent_names({data.group ? "Group" : ""}, data.model.class_names, "Class", first, end)};
  const auto add = [&](const std::string& name, const std::vector<double>& shares) {
    rows.push_back({name});
    for (std::size_t c = first; c < end; ++c) rows.back().push_back(fixed(shares[c]));
  };
  for (std::size_t g = 0; data.group && g < data.groups(); ++g)
    add(data.group->labels[g], answer.gamma[g]);
  add(data.group ? "all groups" : "Share", answer.shares);
  return aligned(rows, 1);
}

}  // namespace

std::string lca_report(const lca_data& data, const lca_options& options, const lca_answer& answer) {
  const std::size_t classes = answer.shares.size();
  std::string text =
      fmt::format("Latent class analysis: {}, {}\n\n", counted(classes, "class", "classes"),
                  counted(data.items.size(), "item", "items"));
  text += sample_section(data, options) + '\n' + item_section(data) + '\n' +
          fit_section(answer, !data.covariates.empty()) + '\n' +
          fit_test_section(answer.of_fit, "classes", true) + '\n' +
          search_section(options, data.model.start_given, answer) + '\n';
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
              return response_table(items_of(data), data.model.class_names, "Class", first, end,
                                    [&](auto j, auto k, auto c) { return answer.rho[g][j][c][k]; });
            });
  }
  if (options.residuals) text += '\n' + residual_section(data, answer.residuals);
  return text;
}

}  // namespace tolvenra::cli
