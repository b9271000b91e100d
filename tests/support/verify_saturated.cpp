// The saturated model, X2 and the test of "missing completely at random", recomputed from the
// cases.
#include "support/verify_saturated.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace tolvenra::test {
namespace {

using pattern = std::vector<int>;

/// Cases of one stratum that miss the same items.
struct missingness_group {
  double total = 0.0;
  std::vector<double> prevalence;  // sums over the cases
  std::map<pattern, double> counts;
};

/// By stratum and by which items are missing.
using groups = std::map<std::pair<int, pattern>, missingness_group>;

groups collect(const lca_problem& fit) {
  groups all;
  for (int k = 1; k <= fit.nkase; ++k) {
    pattern responses;
    pattern observed;
    for (int j = 1; j <= fit.nci; ++j) {
      responses.push_back(fit.response(k, j));
      observed.push_back(fit.response(k, j) > 0 ? 1 : 0);
    }
    missingness_group& group = all[{fit.stratum(k), observed}];
    group.prevalence.resize(static_cast<std::size_t>(fit.nc), 0.0);
    group.total += fit.case_weight(k);
    group.counts[responses] += fit.case_weight(k);
    for (int c = 1; c <= fit.nc; ++c)
      group.prevalence[static_cast<std::size_t>(c - 1)] +=
          fit.case_weight(k) * fit.class_probability(k, c);
  }
  return all;
}

double expected_count(const lca_problem& fit, int stratum, const missingness_group& group,
                      const pattern& responses) {
  double sum = 0.0;
  for (int c = 1; c <= fit.nc; ++c) {
    double product = group.prevalence[static_cast<std::size_t>(c - 1)];
    for (int j = 1; j <= fit.nci; ++j)
      if (const int r = responses[static_cast<std::size_t>(j - 1)]; r > 0)
        product *= fit.rho_at(j, c, r, stratum);
    sum += product;
  }
  return sum;
}

/// X2 and the table of patterns that the host received.
void verify_patterns(const lca_problem& fit, const groups& all) {
  double x2 = 0.0;
  std::map<std::pair<int, pattern>, std::pair<double, double>> table;  // stratum, last item first
  for (const auto& [key, group] : all) {
    x2 += group.total;
    for (const auto& [responses, observed] : group.counts) {
      const double expected = expected_count(fit, key.first, group, responses);
      x2 += (observed - expected) * (observed - expected) / expected - expected;
      table[{key.first, {responses.rbegin(), responses.rend()}}] = {observed, expected};
    }
  }
  if (fit.overflow == 0) {
    EXPECT_NEAR(fit.fit_extra[0], x2, 1e-7 * (1 + x2));
  }
  ASSERT_EQ(fit.run_info[4], static_cast<int>(table.size()));
  const auto n = static_cast<std::size_t>(fit.nkase);
  std::size_t row = 0;
  for (const auto& [key, counts] : table) {
    ASSERT_EQ(fit.patterns[row], key.first) << "pattern " << row + 1;
    for (std::size_t j = 1; j <= key.second.size(); ++j)
      ASSERT_EQ(fit.patterns[row + n * j], key.second[key.second.size() - j])
          << "pattern " << row + 1 << ", item " << j;
    EXPECT_NEAR(fit.pattern_counts[row], counts.first, 1e-10 * counts.first);
    EXPECT_NEAR(fit.pattern_counts[row + n], counts.second, 1e-9 * (1 + counts.second));
    ++row;
  }
}

/// Number of cells of a set of items.
double table_size(const lca_problem& fit, const pattern& items) {
  double cells = 1.0;
  for (std::size_t j = 0; j < items.size(); ++j)
    if (items[j] == 1) cells *= fit.nrc[j];
  return cells;
}

/// Free cells of all missingness patterns, less the parameters of their common table: every set of
/// items that is observed together somewhere adds the product of (levels - 1).
void verify_df(const lca_problem& fit, const groups& all) {
  if (fit.nci > 10 || fit.overflow > 0) return;
  double df = 0.0;
  for (const auto& [key, group] : all) df += table_size(fit, key.second) - 1.0;
  for (int g = 1; g <= fit.nstr; ++g)
    for (unsigned set = 1; set < (1U << fit.nci); ++set) {
      double parameters = 1.0;
      for (int j = 0; j < fit.nci; ++j)
        if ((set >> j & 1U) != 0) parameters *= fit.nrc[static_cast<std::size_t>(j)] - 1;
      const bool together = std::any_of(all.begin(), all.end(), [&](const auto& entry) {
        if (entry.first.first != g) return false;
        for (int j = 0; j < fit.nci; ++j)
          if ((set >> j & 1U) != 0 && entry.first.second[static_cast<std::size_t>(j)] == 0)
            return false;
        return true;
      });
      if (together) df -= parameters;
    }
  EXPECT_EQ(static_cast<double>(fit.cat_df), df);
}

}  // namespace

loglik_range saturated_maximum(const std::vector<int>& levels,
                               const std::map<std::vector<int>, double>& counts, int passes) {
  std::size_t cells = 1;
  for (const int l : levels) cells *= static_cast<std::size_t>(l);
  std::vector<std::vector<std::size_t>> agreeing;
  std::vector<double> n;
  for (const auto& [responses, count] : counts) {
    if (std::all_of(responses.begin(), responses.end(), [](int r) { return r == 0; })) continue;
    agreeing.emplace_back();
    n.push_back(count);
    for (std::size_t cell = 0; cell < cells; ++cell) {
      std::size_t rest = cell;
      bool agrees = true;
      for (std::size_t j = 0; j < levels.size(); ++j) {
        const auto level = static_cast<int>(rest % static_cast<std::size_t>(levels[j])) + 1;
        agrees = agrees && (responses[j] == 0 || responses[j] == level);
        rest /= static_cast<std::size_t>(levels[j]);
      }
      if (agrees) agreeing.back().push_back(cell);
    }
  }
  const double total = std::accumulate(n.begin(), n.end(), 0.0);
  std::vector<double> theta(cells, 1.0 / static_cast<double>(cells));
  loglik_range range;
  for (int pass = 0; pass < passes && total > 0.0; ++pass) {
    std::vector<double> factor(cells, 0.0);
    range.low = 0.0;
    for (std::size_t p = 0; p < n.size(); ++p) {
      double probability = 0.0;
      for (const std::size_t cell : agreeing[p]) probability += theta[cell];
      range.low += n[p] * std::log(probability);
      for (const std::size_t cell : agreeing[p]) factor[cell] += n[p] / probability;
    }
    // By concavity no other point is more than the steepest slope above this one.
    range.high = range.low + *std::max_element(factor.begin(), factor.end()) - total;
    for (std::size_t cell = 0; cell < cells; ++cell) theta[cell] *= factor[cell] / total;
  }
  range.theta = theta;
  return range;
}

void verify_saturated(const lca_problem& fit) {
  const groups all = collect(fit);
  verify_patterns(fit, all);
  verify_df(fit, all);
  EXPECT_NEAR(fit.G2, -2 * (fit.loglik - fit.cat_loglik), 1e-9 * std::abs(fit.loglik) + 1e-9);
  double separate = 0.0;
  std::map<int, std::map<pattern, double>> of_stratum;
  bool complete = true;
  for (const auto& [key, group] : all) {
    complete = complete && std::count(key.second.begin(), key.second.end(), 0) == 0;
    for (const auto& [responses, count] : group.counts) {
      separate += count * std::log(count / group.total);
      of_stratum[key.first][responses] = count;
    }
  }
  const double rounding = 1e-11 * std::abs(separate) + 1e-9;
  if (complete) {
    EXPECT_NEAR(fit.cat_loglik, separate, rounding);
    EXPECT_EQ(fit.cat_g2, 0.0);
    return;
  }
  if (fit.cat_loglik == 0.0 && fit.overflow > 0) return;
  EXPECT_NEAR(fit.cat_g2, 2 * (separate - fit.cat_loglik), 2 * rounding);
  const bool all_missing = all.size() == static_cast<std::size_t>(fit.nstr) && separate == 0.0;
  EXPECT_EQ(fit.run_info[6] > 0, !all_missing);
  EXPECT_GE(fit.fit_extra[7], 0.0);
  const double cells = table_size(fit, pattern(static_cast<std::size_t>(fit.nci), 1));
  if (cells * fit.run_info[4] > 400000.0) return;
  loglik_range sum;
  for (const auto& [stratum, counts] : of_stratum) {
    const loglik_range of_one = saturated_maximum(fit.nrc, counts, 100);
    sum.low += of_one.low;
    sum.high += of_one.high;
  }
  EXPECT_LE(fit.cat_loglik, sum.high + rounding);
  EXPECT_GE(fit.cat_loglik, sum.low - rounding - (fit.run_info[14] > 0 ? fit.fit_extra[7] : 1e-8));
}

}  // namespace tolvenra::test
