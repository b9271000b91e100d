#include "fit_json.hpp"

#include <nlohmann/json.hpp>

#include "fit_sentences.hpp"

namespace tolvenra::cli {
namespace {

using json = nlohmann::ordered_json;

json or_null(const std::optional<double>& value) { return value ? json(*value) : json(nullptr); }

/// A number of degrees of freedom is whole.
json whole_or_null(const std::optional<double>& value) {
  return value ? json(static_cast<std::int64_t>(*value)) : json(nullptr);
}

json reason_or_null(const fit_test& test) {
  return test.use == p_value_use::meaningful ? json(nullptr) : json(p_reason(test.use));
}

json missing_json(const fit_tests& tests) {
  const fit_test& test = tests.missing;
  if (!test.statistic) return nullptr;
  return {{"G2", *test.statistic},
          {"df", whole_or_null(test.df)},
          {"p", or_null(test.p)},
          {"p_meaningful", test.use == p_value_use::meaningful},
          {"p_reason", reason_or_null(test)},
          {"cells", tests.shown.cells},
          {"cases", tests.shown.cases},
          {"cells_in_thin_tables", tests.shown.in_thin_tables}};
}

json saturated_json(const fit_tests& tests) {
  if (tests.G2.use == p_value_use::no_statistic) return nullptr;
  return {{"loglik", tests.saturated_loglik},
          {"passes", tests.passes},
          {"unfinished_groups", tests.unfinished},
          {"bound", tests.bound}};
}

json table_json(const std::vector<double>& cells, std::size_t columns) {
  json rows = json::array();
  for (auto at = cells.begin(); at != cells.end(); at += static_cast<std::ptrdiff_t>(columns))
    rows.push_back(std::vector<double>(at, at + static_cast<std::ptrdiff_t>(columns)));
  return rows;
}

}  // namespace

json fit_tests_json(const fit_tests& tests) {
  return {{"G2_p_meaningful", tests.G2.use == p_value_use::meaningful},
          {"G2_p_reason", reason_or_null(tests.G2)},
          {"X2_df", whole_or_null(tests.X2.df)},
          {"X2_p", or_null(tests.X2.p)},
          {"X2_p_meaningful", tests.X2.use == p_value_use::meaningful},
          {"X2_p_reason", reason_or_null(tests.X2)},
          {"sparse", !cells_suit_G2(tests.complete)},
          {"cells", tests.complete.cells},
          {"mean_expected", tests.complete.mean()},
          {"cells_below_5", tests.complete.below_5},
          {"smallest_expected", tests.shown.smallest},
          {"saturated", saturated_json(tests)},
          {"missing_test", missing_json(tests)}};
}

json residuals_json(const lca_data& data, const std::vector<pair_residual>& residuals) {
  json list = json::array();
  for (const pair_residual& pair : residuals) {
    const std::size_t columns = data.items[pair.second].labels.size();
    list.push_back({{"items", {data.items[pair.first].name, data.items[pair.second].name}},
                    {"n", pair.cases},
                    {"X2", pair.X2},
                    {"df", static_cast<std::int64_t>(pair.df)},
                    {"X2_per_df", pair.df > 0.0 ? json(pair.X2 / pair.df) : json(nullptr)},
                    {"observed", table_json(pair.observed, columns)},
                    {"expected", table_json(pair.expected, columns)}});
  }
  return list;
}

}  // namespace tolvenra::cli
