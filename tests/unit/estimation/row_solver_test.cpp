// The update under fixed values and equality groups against an independent constrained optimiser.
#include "estimation/row_solver.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

namespace tolvenra::estimation {
namespace {

struct pattern {
  row_layout rows;  // nrows rows of `width` cells, row by row (step 1 means cells apart by nrows)
  std::vector<int32> codes;
  std::vector<double> values, counts;

  [[nodiscard]] std::size_t at(int32 m, int32 r) const {
    return static_cast<std::size_t>(rows.base(m) + r * rows.step);
  }
};

pattern make(int32 nrows, int32 width) {
  pattern p;
  p.rows.nrows = nrows;
  p.rows.width = width;
  p.rows.step = nrows;
  p.rows.length.assign(static_cast<std::size_t>(nrows), width);
  const auto cells = static_cast<std::size_t>(nrows * width);
  p.codes.assign(cells, 1);
  p.values.assign(cells, 1.0 / width);
  p.counts.assign(cells, 1.0);
  return p;
}

/// Sum of n log p over the elements that are not fixed.
double objective(const pattern& p, const std::vector<double>& values) {
  double sum = 0.0;
  for (int32 m = 0; m < p.rows.nrows; ++m)
    for (int32 r = 0; r < p.rows.length[static_cast<std::size_t>(m)]; ++r) {
      const std::size_t q = p.at(m, r);
      if (p.codes[q] != 0 && p.counts[q] > 0.0) sum += p.counts[q] * std::log(values[q]);
    }
  return sum;
}

/// The same maximum by another road: a primal Newton method over the distinct parameters x > 0
/// under A x = s from an infeasible start; parameters without counts weigh 1e-9. Source: Boyd &
/// Vandenberghe (2004), Convex Optimization, section 10.3.
double maximise_primal(const pattern& p) {
  std::map<int32, std::size_t> group;
  std::vector<std::vector<double>> a(static_cast<std::size_t>(p.rows.nrows));
  std::vector<double> n;
  std::vector<double> s(a.size(), 1.0);
  std::vector<std::pair<std::size_t, std::size_t>> members;  // row, parameter
  for (int32 m = 0; m < p.rows.nrows; ++m)
    for (int32 r = 0; r < p.rows.length[static_cast<std::size_t>(m)]; ++r) {
      const std::size_t q = p.at(m, r);
      if (p.codes[q] == 0) {
        s[static_cast<std::size_t>(m)] -= p.values[q];
        continue;
      }
      std::size_t k = n.size();
      if (p.codes[q] >= 2) {
        const auto [found, fresh] = group.try_emplace(p.codes[q], k);
        k = found->second;
        if (fresh) n.push_back(0.0);
      } else {
        n.push_back(0.0);
      }
      n[k] += p.counts[q];
      members.emplace_back(static_cast<std::size_t>(m), k);
    }
  const std::size_t np = n.size();
  const std::size_t nr = a.size();
  for (auto& row : a) row.assign(np, 0.0);
  for (const auto& [m, k] : members) a[m][k] += 1.0;
  std::vector<double> w = n;
  for (double& weight : w) weight = std::max(weight, 1e-9);
  std::vector<double> x(np, 0.3);
  std::vector<double> lambda(nr, 0.0);
  for (int step = 0; step < 500; ++step) {
    std::vector<std::vector<double>> kkt(nr, std::vector<double>(nr + 1, 0.0));
    for (std::size_t i = 0; i < nr; ++i) {
      kkt[i][nr] = -s[i];
      for (std::size_t k = 0; k < np; ++k) {
        const double h = x[k] * x[k] / w[k];
        kkt[i][nr] += a[i][k] * (x[k] + h * (w[k] / x[k]));
        for (std::size_t j = 0; j < nr; ++j) kkt[i][j] += a[i][k] * h * a[j][k];
      }
      kkt[i][i] += 1e-13;
    }
    for (std::size_t i = 0; i < nr; ++i) {
      std::size_t pivot = i;
      for (std::size_t j = i; j < nr; ++j)
        if (std::abs(kkt[j][i]) > std::abs(kkt[pivot][i])) pivot = j;
      std::swap(kkt[i], kkt[pivot]);
      for (std::size_t j = i + 1; j < nr; ++j) {
        const double f = kkt[j][i] / kkt[i][i];
        for (std::size_t q = i; q <= nr; ++q) kkt[j][q] -= f * kkt[i][q];
      }
    }
    for (std::size_t i = nr; i-- > 0;) {
      lambda[i] = kkt[i][nr];
      for (std::size_t j = i + 1; j < nr; ++j) lambda[i] -= kkt[i][j] * lambda[j];
      lambda[i] /= kkt[i][i];
    }
    double length = 1.0;
    std::vector<double> d(np);
    for (std::size_t k = 0; k < np; ++k) {
      double price = 0.0;
      for (std::size_t i = 0; i < nr; ++i) price += a[i][k] * lambda[i];
      d[k] = x[k] * x[k] / w[k] * (w[k] / x[k] - price);
      if (d[k] < 0.0) length = std::min(length, -0.9 * x[k] / d[k]);
    }
    for (std::size_t k = 0; k < np; ++k) x[k] += length * d[k];
  }
  double best = 0.0;
  for (std::size_t k = 0; k < np; ++k)
    if (n[k] > 0.0) best += n[k] * std::log(x[k]);
  return best;
}

void expect_sums(const pattern& p, const std::vector<double>& values) {
  for (int32 m = 0; m < p.rows.nrows; ++m) {
    double sum = 0.0;
    for (int32 r = 0; r < p.rows.length[static_cast<std::size_t>(m)]; ++r)
      sum += values[p.at(m, r)];
    EXPECT_NEAR(sum, 1.0, 1e-12) << "row " << m;
  }
}

TEST(RowSolver, SolvesRowsWithoutGroupsInClosedForm) {
  pattern p = make(1, 4);
  p.codes = {0, 1, 1, 1};
  p.values = {0.4, 0.1, 0.2, 0.3};
  p.counts = {9.0, 1.0, 2.0, 0.0};
  std::vector<double> denominator(1);
  row_solver solver(p.codes, p.values, p.rows, 1);
  ASSERT_EQ(solver.solve(p.counts, p.values, denominator), row_solver::outcome::solved);
  EXPECT_EQ(denominator[0], 3.0);
  EXPECT_EQ(p.values[0], 0.4);
  EXPECT_NEAR(p.values[1], 0.2, 1e-15);
  EXPECT_NEAR(p.values[2], 0.4, 1e-15);
  EXPECT_EQ(p.values[3], 0.0);
}

TEST(RowSolver, OneFreeElementTakesExactlyWhatIsLeft) {
  pattern p = make(1, 3);
  p.codes = {0, 1, 0};
  p.values = {0.1, 0.7, 0.2};
  p.counts = {1.0, 0.0, 1.0};  // nobody chose it
  row_solver solver(p.codes, p.values, p.rows, 1);
  ASSERT_EQ(solver.solve(p.counts, p.values, {}), row_solver::outcome::solved);
  EXPECT_EQ(p.values[1], 1.0 - (0.1 + 0.2));
}

TEST(RowSolver, RefusesRowsAndGroupsWithoutCounts) {
  pattern p = make(2, 2);
  p.counts = {1.0, 0.0, 1.0, 0.0};
  row_solver rows(p.codes, p.values, p.rows, 2);
  EXPECT_EQ(rows.solve(p.counts, p.values, {}), row_solver::outcome::zero_denominator);
  p.codes = {2, 2, 3, 3};
  p.counts.assign(4, 0.0);
  row_solver groups(p.codes, p.values, p.rows, 2);
  EXPECT_EQ(groups.solve(p.counts, p.values, {}), row_solver::outcome::zero_denominator);
}

TEST(RowSolver, TellsImpossiblePatterns) {
  const struct {
    const char* why;
    int32 nrows, width;
    std::vector<int32> codes;
    std::vector<double> values;
    bool possible;
  } cases[] = {
      // cells by category, then by row
      {"all of two against all of three",
       2,
       3,
       {2, 2, 2, 2, 0, 2},
       {.5, .3, .5, .3, 0., .3},
       false},
      {"shared element, other fixed sums", 2, 2, {0, 0, 2, 2}, {.4, .3, .6, .7}, false},
      {"shared element and free rest", 2, 3, {0, 0, 2, 2, 1, 1}, {.4, .3, .3, .3, .3, .4}, true},
      {"mirrored binary rows", 2, 2, {2, 3, 3, 2}, {.4, .6, .6, .4}, true},
      {"a row without mass takes its group down", 2, 2, {0, 2, 2, 2}, {1., .5, 0., .5}, false},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    pattern p = make(t.nrows, t.width);
    const row_solver solver(t.codes, t.values, p.rows, t.nrows);
    EXPECT_EQ(solver.consistent(t.values), t.possible);
  }
}

TEST(RowSolver, CountsWhatCanMove) {
  const struct {
    const char* why;
    int32 nrows, width;
    std::vector<int32> codes;  // cells by category, then by row
    int32 free;
  } cases[] = {{"two free rows of three", 2, 3, {1, 1, 1, 1, 1, 1}, 4},
               {"rows equal as a whole", 2, 3, {2, 2, 3, 3, 4, 4}, 2},
               {"a ring of three binary rows fixes all", 3, 2, {2, 3, 4, 3, 4, 2}, 0},
               {"one shared value, free rest", 2, 3, {2, 2, 1, 1, 1, 1}, 3},
               {"a value used twice in a binary row", 1, 2, {2, 2}, 0},
               {"fixed cells", 2, 2, {0, 1, 1, 1}, 1}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    const pattern p = make(t.nrows, t.width);
    EXPECT_EQ(row_solver(t.codes, p.values, p.rows, t.nrows).free_parameters(), t.free);
  }
}

TEST(RowSolver, ReachesTheConstrainedMaximumOnRandomPatterns) {
  std::mt19937 engine(20261121);
  const auto pick = [&](int n) { return static_cast<int32>(engine() % static_cast<unsigned>(n)); };
  int solved = 0;
  int linked = 0;
  for (int trial = 0; trial < 3000; ++trial) {
    SCOPED_TRACE(trial);
    pattern p = make(1 + pick(5), 2 + pick(4));
    for (auto& length : p.rows.length) length = 2 + pick(p.rows.width - 1);
    const int32 kinds = 2 + pick(4);
    std::map<int32, int> uses;
    for (int32 m = 0; m < p.rows.nrows; ++m) {
      double left = 1.0;
      for (int32 r = 0; r < p.rows.length[static_cast<std::size_t>(m)]; ++r) {
        const std::size_t q = p.at(m, r);
        p.codes[q] = pick(3) == 0 ? 1 + pick(kinds) : 1;
        if (pick(8) == 0 && r > 0) {  // not the whole row
          p.codes[q] = 0;
          p.values[q] = left * 0.1 * pick(4);
          left -= p.values[q];
        }
        p.counts[q] = pick(6) == 0 ? 0.0 : 0.1 + pick(1000) / 37.0;
        ++uses[p.codes[q]];
      }
    }
    row_solver solver(p.codes, p.values, p.rows, p.rows.nrows);
    if (!solver.consistent(p.values)) continue;
    std::vector<double> values = p.values;
    const auto outcome = solver.solve(p.counts, values, {});
    if (outcome == row_solver::outcome::zero_denominator) continue;
    ASSERT_EQ(outcome, row_solver::outcome::solved);
    ++solved;
    expect_sums(p, values);
    std::map<int32, double> shared;
    for (int32 m = 0; m < p.rows.nrows; ++m)
      for (int32 r = 0; r < p.rows.length[static_cast<std::size_t>(m)]; ++r) {
        const std::size_t q = p.at(m, r);
        EXPECT_GE(values[q], 0.0);
        if (p.codes[q] == 0) {
          EXPECT_EQ(values[q], p.values[q]);
        }
        if (p.codes[q] < 2) continue;
        linked += uses[p.codes[q]] > 1 ? 1 : 0;
        EXPECT_EQ(shared.try_emplace(p.codes[q], values[q]).first->second, values[q]);
      }
    // Elements without counts may keep a mass of 1e-9 of the row, hence the tolerance.
    EXPECT_NEAR(objective(p, values), maximise_primal(p),
                1e-6 * (1 + std::abs(objective(p, values))));
  }
  EXPECT_GT(solved, 1500);
  EXPECT_GT(linked, 1000);
}

}  // namespace
}  // namespace tolvenra::estimation
