#include "json_output.hpp"

#include <cmath>

#include "fit_json.hpp"
#include "json_parts.hpp"
#include "standard_error_json.hpp"

namespace tolvenra::cli {
namespace {

json settings_json(const lca_data& data, const lca_options& options) {
  const lca_model& model = data.model;
  const bool regression = !data.covariates.empty();
  json names = json::array();
  for (const categories& item : data.items) names.push_back(item.name);
  return {{"items", std::move(names)},
          {"classes", options.classes},
          {"freq", name_or_null(options.freq)},
          {"weight", name_or_null(options.weight)},
          {"group", name_or_null(options.group)},
          {"cluster", name_or_null(options.cluster)},
          {"se", data.errors_wanted},
          {"na", options.na},
          {"starts", starts_of(data.model, options)},
          {"seed", options.seed},
          {"criterion", options.criterion},
          {"max_iter", options.max_iter},
          {"invariant", options.invariant},
          {"reference", regression && !model.binary ? json(model.reference + 1) : json(nullptr)},
          {"binary", model.binary ? json(model.compared + 1) : json(nullptr)},
          {"prior_rho", options.prior_rho},
          {"prior_gamma", options.prior_gamma},
          {"prior_beta", options.prior_beta},
          {"equal", model.equal},
          {"fix", by_name(model.fix)},
          {"start", by_name(model.start)}};
}

/// A table [group][class][coefficient]; null without covariates and in classes without
/// coefficients.
template <class Map>
json coefficients_json(const lca_answer& answer, Map&& map) {
  if (answer.beta.empty()) return nullptr;
  json groups = json::array();
  for (const auto& of_group : answer.beta) {
    json& classes = groups.emplace_back(json::array());
    for (const auto& of_class : of_group) classes.push_back(row_or_null(of_class, map));
  }
  return groups;
}

/// The same shape, true where a coefficient has no finite estimate.
json runaway_json(const lca_answer& answer) {
  return answer.runaway.empty() ? json(nullptr) : json(answer.runaway);
}

/// Odds ratios; null where there is none.
json odds_json(const lca_answer& answer) {
  json odds = coefficients_json(answer, [](double b) { return std::exp(b); });
  for (std::size_t g = 0; g < answer.runaway.size(); ++g)
    for (std::size_t c = 0; c < answer.runaway[g].size(); ++c)
      for (std::size_t v = 0; v < answer.runaway[g][c].size(); ++v)
        if (answer.runaway[g][c][v]) odds[g][c][v] = nullptr;
  return odds;
}

json items_json(const lca_data& data) {
  json items = json::array();
  for (std::size_t j = 0; j < data.items.size(); ++j)
    items.push_back({{"name", data.items[j].name},
                     {"categories", data.items[j].labels},
                     {"missing", data.missing[j]}});
  return items;
}

}  // namespace

std::string lca_json(const lca_data& data, const lca_options& options, const lca_answer& answer) {
  const json document = {
      {"model", "lca"},
      {"engine", engine_json()},
      {"data", options.file},
      {"settings", settings_json(data, options)},
      {"n", data.cases},
      {"n_weighted", data.weighted_cases},
      {"rows", data.rows},
      {"group_n", data.group_cases},
      {"items", items_json(data)},
      {"groups", data.group ? data.group->labels : std::vector<std::string>{"all"}},
      {"classes", answer.class_labels},
      {"converged", answer.converged},
      {"iterations", answer.iterations},
      {"fit", fit_json(answer.figures, answer.of_fit)},
      {"class_shares", answer.shares},
      {"gamma", answer.gamma},
      {"rho", answer.rho},
      {"best_start_hits", answer.best_start_hits},
      {"starts", starts_json(answer.starts)},
      {"warnings", answer.warnings},
      {"covariates", covariates_json(data)},
      {"beta", coefficients_json(answer, [](double b) { return b; })},
      {"odds_ratios", odds_json(answer)},
      {"runaway", answer.any_runaway},
      {"beta_runaway", runaway_json(answer)},
      {"covariate_tests", data.covariates.empty() ? json(nullptr) : tests_json(answer.tests)},
      {"bivariate_residuals", residuals_json(data, answer.residuals)},
      {"clusters", clusters_json(answer)},
      {"standard_errors", standard_errors_json(answer)}};
  return json_text(document);
}

}  // namespace tolvenra::cli
