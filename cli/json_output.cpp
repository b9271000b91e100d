#include "json_output.hpp"

#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

namespace tolvenra::cli {
namespace {

using json = nlohmann::ordered_json;

template <class T>
json or_null(const std::optional<T>& value) {
  return value ? json(*value) : json(nullptr);
}

json name_or_null(const std::string& name) { return name.empty() ? json(nullptr) : json(name); }

json settings_json(const lca_data& data, const lca_options& options) {
  json names = json::array();
  for (const categories& item : data.items) names.push_back(item.name);
  return {{"items", std::move(names)},
          {"classes", options.classes},
          {"freq", name_or_null(options.freq)},
          {"weight", name_or_null(options.weight)},
          {"group", name_or_null(options.group)},
          {"na", options.na},
          {"starts", options.starts},
          {"seed", options.seed},
          {"criterion", options.criterion},
          {"max_iter", options.max_iter}};
}

json items_json(const lca_data& data) {
  json items = json::array();
  for (std::size_t j = 0; j < data.items.size(); ++j)
    items.push_back({{"name", data.items[j].name},
                     {"categories", data.items[j].labels},
                     {"missing", data.missing[j]}});
  return items;
}

json fit_json(const lca_fit_figures& fit) {
  return {{"loglik", fit.loglik},
          {"n_params", fit.n_params},
          {"df", or_null(fit.df)},
          {"G2", or_null(fit.G2)},
          {"G2_p", or_null(fit.G2_p)},
          {"X2", or_null(fit.X2)},
          {"aic", fit.aic},
          {"bic", fit.bic},
          {"caic", fit.caic},
          {"abic", fit.abic},
          {"entropy", fit.entropy}};
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
  json classes = json::array();
  for (std::size_t c = 1; c <= answer.shares.size(); ++c) classes.push_back(fmt::format("{}", c));
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
      {"classes", std::move(classes)},
      {"converged", answer.converged},
      {"iterations", answer.iterations},
      {"fit", fit_json(answer.figures)},
      {"class_shares", answer.shares},
      {"gamma", answer.gamma},
      {"rho", answer.rho},
      {"best_start_hits", answer.best_start_hits},
      {"starts", starts_json(answer.starts)},
      {"warnings", answer.warnings}};
  // Command-line texts need not be UTF-8; what is not, is replaced.
  return document.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
}

}  // namespace tolvenra::cli
