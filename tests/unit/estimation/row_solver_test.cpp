// The update under fixed values and equality groups; restriction_study.hpp judges random patterns.
#include "estimation/row_solver.hpp"

#include <gtest/gtest.h>

#include "support/restriction_study.hpp"

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
      {"fixed values above 1 by more than their sums may be", 1, 3, {0, 0, 1}, {.8, .3, 0.}, false},
      {"fixed values that miss 1 by less", 1, 3, {0, 0, 1}, {.5, .5000005, 0.}, true},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    pattern p = make(t.nrows, t.width);
    const row_solver solver(t.codes, t.values, p.rows, t.nrows);
    EXPECT_EQ(!solver.unmet_row(), t.possible);
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

TEST(RowSolver, KeepsWhatTheSumsDecideWhateverTheCounts) {
  const struct {
    const char* why;
    int32 nrows, width;
    std::vector<int32> codes;  // cells by category, then by row
    std::vector<double> values, counts, expected;
  } cases[] = {
      {"another row pins a group without counts",
       2,
       3,
       {2, 2, 0, 1, 0, 1},
       {0., 0., .2, 0., .064, 0.},
       {0., 0., 5., 7., 2., 4.},
       {.736, .736, .2, .264 * 7 / 11, .064, .264 * 4 / 11}},
      {"two rows decide two groups",
       2,
       3,
       {2, 2, 2, 3, 3, 0},
       {0., 0., 0., 0., 0., .3},
       {1., 9., 0., 0., 3., 2.},
       {.3, .3, .3, .4, .4, .3}},
      {"rounding leaves nothing for the rest",
       1,
       4,
       {0, 0, 0, 1},
       {.7, .2, .1, .0},
       {1., 1., 1., 3.},
       {.7, .2, .1, 0.}},
      {"nor for a group",
       2,
       4,
       {0, 2, 0, 1, 0, 1, 2, 1},
       {.7, 0., .2, 0., .1, 0., 0., 0.},
       {1., 1., 1., 3., 1., 2., 1., 5.},
       {.7, 0., .2, .3, .1, .2, 0., .5}},
      {"bounds that meet",
       3,
       3,
       {2, 3, 2, 1, 1, 3, 0, 0, 0},
       {0., 0., 0., 0., 0., 0., .5, .5, 0.},
       {1., 2., 3., 4., 5., 6., 0., 0., 0.},
       {.5, .5, .5, 0., 0., .5, .5, .5, 0.}},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    const pattern p = make(t.nrows, t.width);
    row_solver solver(t.codes, t.values, p.rows, t.nrows);
    ASSERT_FALSE(solver.unmet_row());
    std::vector<double> values = t.values;
    ASSERT_EQ(solver.solve(t.counts, values, {}), row_solver::outcome::solved);
    for (std::size_t q = 0; q < t.expected.size(); ++q)
      EXPECT_NEAR(values[q], t.expected[q], 1e-15) << q;
  }
}

TEST(RowSolver, MeetsAFractionalProgramAndADualBoundOnRandomPatterns) {
  const test::restriction_study study = test::study_restrictions(3000, 20261121);
  EXPECT_EQ(study.first_fault, "");
  EXPECT_EQ(study.refused_wrongly + study.accepted_wrongly, 0);
  EXPECT_EQ(study.outcome_wrong + study.broken + study.miscounted, 0);
  EXPECT_GT(study.updates, 3000);
  EXPECT_GT(study.with_zeros, 200);
  EXPECT_GT(study.with_pinned, 500);
}

}  // namespace
}  // namespace tolvenra::estimation
