#include "standard_error_json.hpp"

#include <cmath>

#include "json_parts.hpp"

namespace tolvenra::cli {
namespace {

using kind = uncertainty::kind;

/// Nested vectors as nested arrays; an empty one is null.
template <class T, class Map>
json nested(const std::vector<T>& table, Map&& map) {
  json list = nullptr;
  for (const T& element : table) {
    if constexpr (requires { map(element); })
      list.push_back(map(element));
    else
      list.push_back(nested(element, map));
  }
  return list;
}

json error_or_null(const uncertainty& one) {
  return one.is == kind::boundary || one.is == kind::runaway ? json(nullptr) : json(one.se);
}

template <class Map>
auto interval_by(Map&& map) {
  return [map](const uncertainty& one) {
    return one.is == kind::known ? json{map(one.low), map(one.high)} : json(nullptr);
  };
}

}  // namespace

json clusters_json(const lca_answer& answer) {
  if (!answer.clusters) return nullptr;
  return {{"number", answer.clusters->number},
          {"smallest", answer.clusters->smallest},
          {"largest", answer.clusters->largest},
          {"design_effect", or_null(answer.clusters->deff)}};
}

json standard_errors_json(const lca_answer& answer) {
  if (!answer.errors) return nullptr;
  const standard_errors& errors = *answer.errors;
  const auto interval = interval_by([](double x) { return x; });
  const auto odds = interval_by([](double x) { return std::exp(x); });
  const auto number = [](double x) { return std::isfinite(x) ? json(x) : json(nullptr); };
  return {{"given", errors.given},
          {"reason", name_or_null(errors.reason)},
          {"held_at_boundary", errors.given ? json(errors.held) : json(nullptr)},
          {"gamma", nested(errors.gamma, error_or_null)},
          {"gamma_model_based", nested(errors.gamma_model, number)},
          {"gamma_interval", nested(errors.gamma, interval)},
          {"rho", nested(errors.rho, error_or_null)},
          {"rho_interval", nested(errors.rho, interval)},
          {"beta", nested(errors.beta, error_or_null)},
          {"beta_interval", nested(errors.beta, interval)},
          {"odds_ratio_interval", nested(errors.beta, odds)}};
}

}  // namespace tolvenra::cli
