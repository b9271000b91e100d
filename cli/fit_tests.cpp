#include "fit_tests.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace tolvenra::cli {
namespace {

constexpr double ample = 5.0;       ///< cases a cell
constexpr double thin_share = 0.2;  ///< of the cells
constexpr double least_for_X2 = 0.25;
constexpr auto too_many = std::numeric_limits<std::int32_t>::max();

std::optional<double> if_finite(double value) {
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

/// One table: a group's cases that answered the same items.
struct pattern_table {
  double cells = 1.0, cases = 0.0;
  std::vector<double> expected;  ///< of the patterns that occur

  void add_to(expected_cells& sum) const {
    sum.cells += cells;
    sum.cases += cases;
    if (!(cases >= ample * cells)) sum.in_thin_tables += cells;
    double left = cases;
    for (const double count : expected) {
      left -= count;
      sum.smallest = std::min(sum.smallest, count);
      if (count < ample) sum.below_5 += 1.0;
    }
    const double unobserved = cells - static_cast<double>(expected.size());
    if (unobserved < 0.5) return;
    const double share = std::max(left, 0.0) / unobserved;
    sum.smallest = std::min(sum.smallest, share);
    if (share < ample) sum.below_5 += unobserved;
  }
};

/// \param obstacle  what applies to sparse and ample tables alike, else `meaningful`.
void set_use(fit_test& test, bool suits, p_value_use obstacle) {
  if (!test.statistic)
    test.use = p_value_use::no_statistic;
  else if (test.df && *test.df < 1.0)
    test.use = p_value_use::no_freedom;
  else if (obstacle != p_value_use::meaningful)
    test.use = obstacle;
  else if (!suits)
    test.use = p_value_use::sparse;
  else
    test.use = test.p ? p_value_use::meaningful : p_value_use::overflow;
}

std::optional<double> df_of(std::int32_t df) {
  return df == too_many ? std::nullopt : std::optional(static_cast<double>(df));
}

bool weights_differ(const case_data& data) {
  return std::any_of(data.weight.begin(), data.weight.end(),
                     [&](double weight) { return weight != 1.0; });
}

bool share_clusters(const case_data& data) {
  if (data.cluster.empty()) return false;
  const auto clusters = *std::max_element(data.cluster.begin(), data.cluster.end());
  return static_cast<std::size_t>(clusters) < data.rows ||
         data.cases > static_cast<double>(data.rows);
}

}  // namespace

bool cells_suit_G2(const expected_cells& cells) {
  return std::isfinite(cells.cells) && cells.mean() >= ample &&
         cells.in_thin_tables <= thin_share * cells.cells;
}

bool cells_suit_X2(const expected_cells& cells) {
  return cells.cells >= 3.0 && cells.cases >= 10.0 && cells.cases * cells.mean() >= 10.0 &&
         cells.smallest >= least_for_X2;
}

expected_cells count_cells(const case_data& data, const fit_record& fit, bool complete_only) {
  const std::size_t nitem = data.items.size();
  const std::vector<bool> all(nitem, true);
  // By group and the items that are answered.
  std::map<std::pair<std::int32_t, std::vector<bool>>, pattern_table> tables;
  const auto table_of = [&](std::int32_t group, const std::vector<bool>& answered) -> auto& {
    const auto [at, is_new] = tables.try_emplace({group, answered});
    for (std::size_t j = 0; is_new && j < nitem; ++j)
      if (answered[j]) at->second.cells *= static_cast<double>(data.items[j].labels.size());
    return at->second;
  };
  for (std::size_t g = 1; complete_only && g <= data.groups(); ++g)
    table_of(static_cast<std::int32_t>(g), all);
  const auto npattern = static_cast<std::size_t>(fit.run_info[4]);
  std::vector<bool> answered(nitem);
  for (std::size_t p = 0; p < npattern; ++p) {
    for (std::size_t j = 0; j < nitem; ++j)
      answered[j] = fit.response_patterns[p + data.rows * (j + 1)] != 0;
    const bool none = std::find(answered.begin(), answered.end(), true) == answered.end();
    if (none || (complete_only && answered != all)) continue;
    pattern_table& table = table_of(fit.response_patterns[p], answered);
    table.cases += fit.pattern_counts[p];
    table.expected.push_back(fit.pattern_counts[p + data.rows]);
  }
  expected_cells sum;
  for (const auto& [key, table] : tables) table.add_to(sum);
  return sum;
}

fit_tests make_fit_tests(const case_data& data, const fit_record& fit,
                         const call_measures& measures) {
  fit_tests tests;
  tests.missing_responses = fit.run_info[5] != 0;
  tests.passes = fit.run_info[6];
  tests.complete = count_cells(data, fit, true);
  tests.shown = tests.missing_responses ? count_cells(data, fit, false) : tests.complete;
  if (tests.missing_responses && tests.passes == 0) return tests;

  tests.saturated_loglik = fit.cat_loglik;
  tests.unfinished = fit.run_info[14];
  tests.bound = measures.bound;
  const auto freed = df_of(fit.cat_df);
  const p_value_use weighted = weights_differ(data)   ? p_value_use::weights
                               : share_clusters(data) ? p_value_use::clusters
                                                      : p_value_use::meaningful;
  if (tests.missing_responses) {  // covariates have no part in it: both models know responses alone
    tests.missing = {if_finite(fit.cat_g2), freed, if_finite(fit.fit_extra[5])};
    set_use(tests.missing, cells_suit_G2(tests.shown), weighted);
  }
  tests.G2.use = tests.X2.use = p_value_use::covariates;
  if (!data.covariates.empty()) return tests;

  tests.G2 = {if_finite(fit.G2), df_of(fit.apparent_df), if_finite(fit.fit_extra[1])};
  tests.X2 = {if_finite(fit.fit_extra[0]), tests.G2.df, if_finite(measures.X2_p)};
  if (tests.X2.df) tests.X2.df = freed ? std::optional(*tests.X2.df + *freed) : std::nullopt;
  const bool miscounted = fit.run_info[12] > 0 && fit.run_info[12] != fit.n_params[0];
  const p_value_use obstacle = miscounted ? p_value_use::restrictions : weighted;
  set_use(tests.G2, cells_suit_G2(tests.complete), obstacle);
  set_use(tests.X2, cells_suit_X2(tests.shown), obstacle);
  return tests;
}

}  // namespace tolvenra::cli
