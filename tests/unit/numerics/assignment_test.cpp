#include "numerics/assignment.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace tolvenra::assignment {
namespace {

double total(const array<double, 2>& cost, const std::vector<int32>& columns) {
  double sum = 0.0;
  for (int32 r = 1; r <= cost.n[0]; ++r) sum += cost(r, columns[static_cast<std::size_t>(r - 1)]);
  return sum;
}

TEST(Assignment, FindsTheBestOfAllPermutations) {
  std::mt19937 engine(3);
  for (int trial = 0; trial < 300; ++trial) {
    const auto n = static_cast<int32>(1 + engine() % 7);
    array<double, 2> cost;
    cost.allocate({n, n});
    for (double& value : cost.flat) value = static_cast<double>(engine() % 20) - 5.0;  // with ties
    const auto found = least_cost(cost);
    std::vector<int32> columns(static_cast<std::size_t>(n));
    std::iota(columns.begin(), columns.end(), 1);
    EXPECT_TRUE(std::is_permutation(found.begin(), found.end(), columns.begin()));
    double best = total(cost, columns);
    while (std::next_permutation(columns.begin(), columns.end()))
      best = std::min(best, total(cost, columns));
    EXPECT_EQ(total(cost, found), best);
  }
}

}  // namespace
}  // namespace tolvenra::assignment
