#include "json_output.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "fit_json.hpp"

namespace tolvenra::cli {
namespace {

using json = nlohmann::ordered_json;

template <class T>
json or_null(const std::optional<T>& value) {
  return value ? json(*value) : json(nullptr);
}

json name_or_null(const std::string& name) { return name.empty() ? json(nullptr) : json(name); }

json by_name(const std::vector<std::pair<std::string, double>>& values) {
  json object = json::object();
  for (const auto& [name, value] : values) object[name] = value;
  return object;
}

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
          {"na", options.na},
          {"starts", starts_of(data, options)},
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

json covariates_json(const lca_data& data) {
  json list = json::array();
  for (const covariate& column : data.covariates) {
    const auto [low, high] = std::minmax_element(column.value.begin(), column.value.end());
    double sum = 0.0;
    for (std::size_t i = 0; i < data.rows; ++i) sum += data.freq_of(i) * column.value[i];
    list.push_back(
        {{"name", column.name}, {"mean", sum / data.cases}, {"min", *low}, {"max", *high}});
  }
  return list;
}

/// A table [group][class][coefficient]; null without covariates and in classes without
/// coefficients.
template <class Map>
json coefficients_json(const lca_answer& answer, Map&& map) {
  if (answer.beta.empty()) return nullptr;
  json groups = json::array();
  for (const auto& of_group : answer.beta) {
    json& classes = groups.emplace_back(json::array());
    for (const auto& of_class : of_group) {
      json& row = classes.emplace_back(nullptr);
      for (const double b : of_class) row.push_back(map(b));
    }
  }
  return groups;
}

json tests_json(const lca_data& data, const lca_answer& answer) {
  if (!covariates_are_tested(data)) return nullptr;
  json tests = json::array();
  for (const covariate_test& test : answer.tests)
    tests.push_back({{"covariate", test.name},
                     {"statistic", or_null(test.statistic)},
                     {"df", test.df},
                     {"p", or_null(test.p)},
                     {"converged", test.converged}});
  return tests;
}

json items_json(const lca_data& data) {
  json items = json::array();
  for (std::size_t j = 0; j < data.items.size(); ++j)
    items.push_back({{"name", data.items[j].name},
                     {"categories", data.items[j].labels},
                     {"missing", data.missing[j]}});
  return items;
}

json fit_json(const lca_fit_figures& fit, const fit_tests& tests) {
  json result = {{"loglik", fit.loglik},
                 {"n_params", fit.n_params},
                 {"df", or_null(fit.df)},
                 {"G2", or_null(fit.G2)},
                 {"G2_p", or_null(fit.G2_p)},
                 {"X2", or_null(fit.X2)},
                 {"aic", fit.aic},
                 {"bic", fit.bic},
                 {"caic", fit.caic},
                 {"abic", fit.abic},
                 {"entropy", fit.entropy},
                 {"penalised_loglik", or_null(fit.penalised_loglik)}};
  result.update(fit_tests_json(tests));
  return result;
}

json starts_json(const std::vector<lca_start>& starts) {
  json list = json::array();
  for (const lca_start& start : starts) {
    const bool fitted = start.status == 0;
    list.push_back({{"seed", start.seed},
                    {"loglik", fitted ? json(start.loglik) : json(nullptr)},
                    {"iterations", fitted ? json(start.iterations) : json(nullptr)},
                    {"converged", start.converged},
                    {"status", start.status}});
  }
  return list;
}

}  // namespace

std::string lca_json(const lca_data& data, const lca_options& options, const lca_answer& answer) {
  const json document = {
      {"model", "lca"},
      {"engine",
       {{"version", TOLVENRA_VERSION},
        {"interface", fmt::format("{}", fmt::join(interface_version, "."))}}},
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
      {"odds_ratios", coefficients_json(answer, [](double b) { return std::exp(b); })},
      {"covariate_tests", tests_json(data, answer)},
      {"bivariate_residuals", residuals_json(data, answer.residuals)}};
  // Command-line texts need not be UTF-8; what is not, is replaced.
  return document.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
}

}  // namespace tolvenra::cli
