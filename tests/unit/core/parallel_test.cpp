#include "core/parallel.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <vector>

namespace tolvenra::parallel {
namespace {

std::vector<double> sums_of(int32 n, std::size_t width, int32 threads) {
  std::vector<double> out(width, -1.0);
  std::vector<double> scratch(width * static_cast<std::size_t>(blocks_for(n, width)), 1e300);
  sum_over_rows(n, threads, out, scratch, [&](int32 first, int32 last, std::span<double> part) {
    for (int32 row = first; row <= last; ++row)
      for (std::size_t q = 0; q < width; ++q)
        part[q] += std::sin(row * 1.0) * std::pow(10.0, row % 17 - 8) + static_cast<double>(q);
  });
  return out;
}

TEST(SumOverRows, HasTheSameBitsAtEveryThreadCount) {
  for (const int32 n : {0, 1, 2, 255, 256, 511, 512, 1000, 16384, 100003}) {
    const auto one = sums_of(n, 3, 1);
    for (const int32 threads : {2, 3, 4, 64}) EXPECT_EQ(sums_of(n, 3, threads), one) << n;
    // the values behind q = 0 differ by n, so that every row counts exactly once
    EXPECT_NEAR(one[2] - one[0], 2.0 * n, 1e-4 * n);
  }
}

TEST(RowBlocks, CoverEveryRowOnceAndDependOnTheSizeAlone) {
  for (const int32 n : {0, 1, 255, 257, 1000, 16639, 2147483647}) {
    const int32 blocks = blocks_for(n, 10);
    EXPECT_EQ(blocks, n < 512 ? 1 : n >= 16384 ? 64 : n / 256);
    int64 next = 1;
    for (int32 b = 0; b < blocks; ++b) {
      const auto rows = rows_of_block(n, b, blocks);
      EXPECT_EQ(rows.first, next);
      EXPECT_GE(int64{rows.last} + 1, rows.first);
      next = int64{rows.last} + 1;
    }
    EXPECT_EQ(next, int64{n} + 1);
  }
  EXPECT_EQ(blocks_for(1000000, std::size_t{1} << 20), 2);  // the sums of all blocks fit 16 MB
  EXPECT_EQ(blocks_for(1000000, std::size_t{1} << 30), 1);
}

TEST(ThreadCount, IsTheSmallerOfTheRuntimesAndTheLimit) {
  const int32 most = max_threads();
  for (const int32 none : {0, -1, most, most + 1}) EXPECT_EQ(thread_count(none), most);
  EXPECT_EQ(thread_count(1), 1);
  for (const int32 team : {-1, 0, 1, 3, 2}) EXPECT_EQ(startable_team(team), std::max(team, 1));
}

TEST(FpEnvironment, IsPlainInsideAndTheHostsOwnAfterwards) {
  ASSERT_EQ(std::fesetround(FE_UPWARD), 0);
  std::vector<int> modes(64, -1);
  {
    const fp_environment_guard plain;
    EXPECT_EQ(std::fegetround(), FE_TONEAREST);
    for_blocks(64, 4, [&](int32 b) { modes[static_cast<std::size_t>(b)] = std::fegetround(); });
  }
  EXPECT_EQ(std::fegetround(), FE_UPWARD);
  std::fesetround(FE_TONEAREST);
  EXPECT_EQ(modes, std::vector<int>(64, FE_TONEAREST));
}

TEST(ForTasks, RunsEachTaskOnce) {
  std::vector<int32> runs(1000, 0);
  for_tasks(1000, 4, [&](int32 i, int32 worker) {
    EXPECT_LT(worker, 4);
    ++runs[static_cast<std::size_t>(i)];
  });
  EXPECT_EQ(runs, std::vector<int32>(1000, 1));
  for (int trial = 0; trial < 200; ++trial) {  // however late it comes
    int32 first = -1;
    for_tasks(8, 3, [&](int32 i, int32 worker) {
      if (i == 0) first = worker;
    });
    EXPECT_EQ(first, 0);
  }
  for_tasks(0, 4, [&](int32, int32) { FAIL(); });
  for_blocks(0, 4, [&](int32) { FAIL(); });
}

}  // namespace
}  // namespace tolvenra::parallel
