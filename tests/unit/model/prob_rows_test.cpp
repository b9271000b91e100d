#include "model/prob_rows.hpp"

#include <numeric>
#include <set>

#include "records.hpp"

namespace tolvenra::param {
namespace {

using namespace tests;

/// Walks a layout over an array and checks that each cell's row and element are the ones that the
/// indices say: all indices but that of dimension `along` alike, elements in order.
template <std::size_t R>
void expect_rows(const row_layout& rows, const std::array<int32, R>& extents, std::size_t along,
                 const std::vector<int32>& own) {
  std::set<int64> met;
  for (int32 m = 0; m < rows.nrows; ++m) {
    auto of_row = indices_at(extents, rows.base(m));
    EXPECT_EQ(of_row[along], 1);
    EXPECT_EQ(rows.length[static_cast<std::size_t>(m)],
              own.empty() ? extents[along] : own[static_cast<std::size_t>(of_row[0] - 1)]);
    for (int32 r = 0; r < rows.width; ++r) {
      of_row[along] = r + 1;
      EXPECT_EQ(indices_at(extents, rows.base(m) + r * rows.step), of_row);
      met.insert(rows.base(m) + r * rows.step);
    }
  }
  int64 cells = 1;
  for (const int32 n : extents) cells *= n;
  EXPECT_EQ(static_cast<int64>(met.size()), cells);
}

TEST(ProbRows, RunAlongTheSummingDimensionOfEachFamily) {
  const param_type p = mixed_set();
  expect_rows(gamma_rows(p), p.gamma.n, 0, {});
  expect_rows(rho_rows(p), p.rho.n, 2, {2, 3, 4});
  expect_rows(delta_rows(p), p.delta.n, 0, {});
  expect_rows(tau_rows(p), p.tau.n, 1, {});
  expect_rows(big_rho_rows(p), p.big_rho.n, 2, {3, 2});
}

TEST(ProbRows, AreInTheOrderOfTheArrayWithoutTheSummingDimension) {
  const param_type p = mixed_set();
  const row_layout rows = tau_rows(p);
  int32 m = 0;
  for (int32 s = 1; s <= 2; ++s)
    for (int32 c = 1; c <= 2; ++c)
      for (int32 t = 1; t <= 2; ++t)
        for (int32 origin = 1; origin <= 3; ++origin)
          EXPECT_EQ(indices_at(p.tau.n, rows.base(m++)),
                    (std::array<int32, 5>{origin, 1, t, c, s}));
  EXPECT_EQ(m, rows.nrows);
}

TEST(ProbRows, AreNoneWhereADimensionIsEmpty) {
  const param_type p = sized({0, 0, 1, 0, 0, 0, 2, 0, 0});
  EXPECT_EQ(rho_rows(p).nrows + tau_rows(p).nrows + big_rho_rows(p).nrows, 0);
  EXPECT_EQ(gamma_rows(p).length, (std::vector<int32>{0, 0})) << "two columns without classes";
}

}  // namespace
}  // namespace tolvenra::param
