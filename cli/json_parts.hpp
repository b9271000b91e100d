/// \file json_parts.hpp  The parts of the JSON that every analysis has. What does not exist is
/// null.
#pragma once

#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fit_answer.hpp"

namespace tolvenra::cli {

using json = nlohmann::ordered_json;

template <class T>
json or_null(const std::optional<T>& value) {
  return value ? json(*value) : json(nullptr);
}

json name_or_null(const std::string& name);
json by_name(const std::vector<std::pair<std::string, double>>& values);
json engine_json();
/// Names, means and ranges.
json covariates_json(const case_data& data);
json tests_json(const std::vector<covariate_test>& tests);
json fit_json(const fit_figures& fit, const fit_tests& tests);
json starts_json(const std::vector<start_record>& starts);

/// A vector, or the odds ratios of one: null when it is empty.
template <class Map>
json row_or_null(const std::vector<double>& values, Map&& map) {
  json row = nullptr;
  for (const double value : values) row.push_back(map(value));
  return row;
}

/// The text of a document, indented by two blanks, with a line end behind it.
std::string json_text(const json& document);

}  // namespace tolvenra::cli
