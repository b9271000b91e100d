#include "lta_json.hpp"

#include "json_parts.hpp"

namespace tolvenra::cli {
namespace {

json names_of(const lta_data& data) {
  json names = json::array();
  for (const categories& item : data.item_labels) names.push_back(item.name);
  return names;
}

json reference_json(const lta_data& data, const lta_answer& answer) {
  if (data.covariates.empty() || data.model.binary) return nullptr;
  const std::size_t ns = answer.status_labels.size();
  json of_moves = json::array();
  for (std::size_t move = 0; move + 1 < data.ntime(); ++move) {
    json& row = of_moves.emplace_back(json::array());
    for (std::size_t from = 0; from < ns; ++from)
      row.push_back(data.model.reference_of[from + ns * move] + 1);
  }
  return {{"start", data.model.reference + 1}, {"transitions", std::move(of_moves)}};
}

json settings_json(const lta_data& data, const lta_options& options, const lta_answer& answer) {
  const lta_model& model = data.model;
  return {{"items", names_of(data)},
          {"statuses", options.statuses},
          {"id", name_or_null(options.id)},
          {"time", name_or_null(options.time)},
          {"freq", name_or_null(options.freq)},
          {"weight", name_or_null(options.weight)},
          {"group", name_or_null(options.group)},
          {"na", options.na},
          {"starts", starts_of(data.model, options)},
          {"seed", options.seed},
          {"criterion", options.criterion},
          {"max_iter", options.max_iter},
          {"invariant_time", options.equal_over("time")},
          {"invariant_group", options.equal_over("group")},
          {"covariates_start", data.starting},
          {"covariates_transition", data.moving},
          {"reference", reference_json(data, answer)},
          {"binary", model.binary ? json(model.compared + 1) : json(nullptr)},
          {"prior_strength", options.prior_strength},
          {"equal", model.equal},
          {"fix", by_name(model.fix)},
          {"start", by_name(model.start)}};
}

/// Missing responses by time.
json items_json(const lta_data& data) {
  json items = json::array();
  for (std::size_t j = 0; j < data.nitem(); ++j) {
    json missing = json::array();
    for (std::size_t t = 0; t < data.ntime(); ++t)
      missing.push_back(data.missing[t * data.nitem() + j]);
    items.push_back({{"name", data.item_labels[j].name},
                     {"categories", data.item_labels[j].labels},
                     {"missing", std::move(missing)}});
  }
  return items;
}

/// Coefficients in nested lists; null for those that do not exist.
template <class Map>
json nested(const std::vector<double>& row, const Map& map) {
  return row_or_null(row, map);
}

template <class T, class Map>
json nested(const std::vector<std::vector<T>>& list, const Map& map) {
  json result = nullptr;
  for (const auto& element : list) result.push_back(nested(element, map));
  return result;
}

template <class T>
json list_or_null(const std::vector<T>& list) {
  return list.empty() ? json(nullptr) : json(list);
}

/// Null in the places of coefficients without a finite estimate.
json without(json numbers, bool runaway) { return runaway ? json(nullptr) : numbers; }

template <class T>
json without(json numbers, const std::vector<T>& runaway) {
  for (std::size_t i = 0; i < runaway.size(); ++i)
    numbers[i] = without(std::move(numbers[i]), static_cast<T>(runaway[i]));
  return numbers;
}

}  // namespace

std::string lta_json(const lta_data& data, const lta_options& options, const lta_answer& answer) {
  const auto as_is = [](double b) { return b; };
  const auto odds = [](double b) { return std::exp(b); };
  const json document = {
      {"model", "lta"},
      {"engine", engine_json()},
      {"data", options.file},
      {"settings", settings_json(data, options, answer)},
      {"n", data.cases},
      {"n_weighted", data.weighted_cases},
      {"weights_in_frequencies", !data.weight.empty()},
      {"rows", data.file_rows},
      {"people", data.rows},
      {"group_n", data.group_cases},
      {"times", data.times},
      {"answered", data.answered},
      {"items", items_json(data)},
      {"groups", data.group ? data.group->labels : std::vector<std::string>{"all"}},
      {"statuses", answer.status_labels},
      {"converged", answer.converged},
      {"iterations", answer.iterations},
      {"fit", fit_json(answer.figures, answer.of_fit)},
      {"status_shares", answer.shares},
      {"group_status_shares", answer.group_shares},
      {"most_likely", answer.modal_cases},
      {"delta", answer.delta},
      {"tau", answer.tau},
      {"rho", answer.rho},
      {"best_start_hits", answer.best_start_hits},
      {"starts", starts_json(answer.starts)},
      {"warnings", answer.warnings},
      {"covariates", covariates_json(data)},
      {"delta_beta", nested(answer.delta_beta, as_is)},
      {"delta_odds_ratios", without(nested(answer.delta_beta, odds), answer.delta_runaway)},
      {"runaway", answer.any_runaway},
      {"delta_beta_runaway", list_or_null(answer.delta_runaway)},
      {"tau_beta_runaway", list_or_null(answer.tau_runaway)},
      {"tau_beta", nested(answer.tau_beta, as_is)},
      {"tau_odds_ratios", without(nested(answer.tau_beta, odds), answer.tau_runaway)},
      {"covariate_tests", covariates_are_tested(data) ? tests_json(answer.tests) : json(nullptr)}};
  return json_text(document);
}

}  // namespace tolvenra::cli
