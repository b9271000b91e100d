// Starts whose covariates separate latent categories, wholly or nearly so, against a naive
// maximiser. The full study is bench/studies/separation_study.cpp.
#include "support/separation.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace tolvenra::test {
namespace {

/// 7 binary items, 4 classes, 2 covariates that all but decide about the class.
lca_problem four_steep_classes(unsigned seed) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  lca_problem p;
  p.nkase = 150;
  p.nci = 7;
  p.nrc.assign(7, 2);
  p.nc = 4;
  p.ncov = 2;
  p.y.resize(150 * 7);
  p.cov.resize(150 * 2);
  for (int k = 1; k <= 150; ++k) {
    const double x = 2 * uniform() - 1;
    const double z = 2 * uniform() - 1;
    p.cov[static_cast<std::size_t>(k - 1)] = x;
    p.cov[static_cast<std::size_t>(k + 149)] = z;
    const double noise = 0.2 * (uniform() - 0.5);
    const int c = (x + noise > 0 ? 2 : 0) + (z - noise > 0 ? 1 : 0);
    for (int j = 1; j <= 7; ++j) {
      const bool mostly_yes = ((c >> (j % 2)) & 1) != 0;
      p.set_response(k, j, uniform() < (mostly_yes ? 0.8 : 0.25) ? 1 : 2);
    }
  }
  return p;
}

void expect_good(const separation_outcome& o) {
  EXPECT_FALSE(o.refused) << o.failure;
  EXPECT_EQ(o.lost, 0);
  EXPECT_EQ(o.fall, 0.0);
  EXPECT_TRUE(o.converged);
  EXPECT_LE(o.disagreement, 1e-6);
  EXPECT_LE(o.left, 1e-4);  // a maximum, though from the same start there may be another one
}

TEST(Separation, StartsAreKeptAndReachTheNaiveMaximum) {
  int runaway = 0, highest = 0;
  const auto add = [&](auto problem) {
    problem.nstarts = 2;
    problem.want_post = false;
    const separation_outcome o = compare_with_naive(problem, 8, 1);
    SCOPED_TRACE(testing::Message() << "seed " << problem.seed << ", " << o.what);
    expect_good(o);
    runaway += o.runaways > 0 ? 1 : 0;
    highest += o.below <= 1e-4 ? 1 : 0;
  };
  for (unsigned seed = 1001; seed <= 1005; ++seed) add(separated_design_of_classes(seed));
  for (unsigned seed = 1001; seed <= 1004; ++seed) add(separated_design_of_statuses(seed));
  EXPECT_GE(runaway, 4);
  EXPECT_GE(highest, 7);
}

TEST(Separation, StartsThatHeadForSeparatedClassesAreKept) {
  lca_problem p = four_steep_classes(3);
  p.nstarts = 20;
  const separation_outcome o = compare_with_naive(p, 8, 1);
  expect_good(o);
  EXPECT_GT(o.runaways, 0);
}

TEST(Separation, SurveyWithACovariateLosesNoStart) {
  const lca_problem table = example("gss82.csv", 3);
  lca_problem p = table;
  p.nci = 3;
  p.ncov = 1;
  p.y.clear();
  p.nrc.clear();
  for (const int column : {1, 2, 4}) {  // understanding, the third one, explains membership
    for (int k = 1; k <= p.nkase; ++k) p.y.push_back(table.response(k, column));
    p.nrc.push_back(table.nrc[static_cast<std::size_t>(column - 1)]);
  }
  for (int k = 1; k <= p.nkase; ++k) p.cov.push_back(table.response(k, 3));
  p.nstarts = 20;
  ASSERT_EQ(p.run(), 0) << p.message;
  EXPECT_EQ(std::count(p.start_status.begin(), p.start_status.end(), 0), 20) << p.message;
  EXPECT_EQ(p.converged, 255);
  EXPECT_NEAR(p.loglik, -2179.47, 0.005);
}

}  // namespace
}  // namespace tolvenra::test
