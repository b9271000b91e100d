// The path sampler against enumeration of all sequences.
#include "estimation/status_path.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace tolvenra::estimation {
namespace {

TEST(StatusPath, SequencesHaveTheirPosteriorProbabilities) {
  constexpr int ns = 3, nt = 3, draws = 50000;
  const std::vector<double> delta{.5, .3, .2};
  // (origin, destination, transition), with an absorbing status and impossible steps
  const std::vector<double> tau{.7, .2, .0, .2, .6, .0, .1, .2, 1.,
                                .5, .1, .3, .5, .8, .3, .0, .1, .4};
  const std::vector<double> emission{.9, .3, .2, .1, .5, .4, .6, .2, .8};
  status_path_sampler sampler(ns, nt);
  for (int t = 1; t <= nt; ++t)
    std::copy_n(emission.begin() + (t - 1) * ns, ns, sampler.emission(t).begin());
  std::vector<double> expected(27, 0.0), observed(27, 0.0);
  double total = 0.0;
  for (std::size_t p = 0; p < 27; ++p) {
    const std::size_t s[] = {p % 3, p / 3 % 3, p / 9};
    expected[p] = delta[s[0]] * emission[s[0]];
    for (std::size_t t = 1; t < 3; ++t)
      expected[p] *= tau[s[t - 1] + 3 * (s[t] + 3 * (t - 1))] * emission[s[t] + 3 * t];
    total += expected[p];
  }
  ran_state_type random;
  error_type err;
  random_generator::ran_setall(random, 5, 6, err);
  for (int i = 0; i < draws; ++i) {
    ASSERT_EQ(sampler.draw(random, delta.data(), tau.data(), err), 0);
    const auto path = sampler.path();
    ++observed[static_cast<std::size_t>(path[0] - 1 + 3 * (path[1] - 1) + 9 * (path[2] - 1))];
  }
  double x2 = 0.0;
  int cells = 0;
  for (std::size_t p = 0; p < 27; ++p) {
    const double mean = draws * expected[p] / total;
    if (mean == 0.0) {
      EXPECT_EQ(observed[p], 0.0) << p;
      continue;
    }
    ++cells;
    x2 += (observed[p] - mean) * (observed[p] - mean) / mean;
  }
  ASSERT_EQ(cells, 19);
  EXPECT_LT(x2, 42.31);  // 0.1 % point of chi-square with 18 degrees of freedom
}

TEST(StatusPath, AStreamWithoutSeedsIsReported) {
  status_path_sampler sampler(2, 2);
  const double delta[] = {.5, .5}, tau[] = {.5, .5, .5, .5};
  ran_state_type random;
  error_type err;
  EXPECT_EQ(sampler.draw(random, delta, tau, err), -1);
  EXPECT_EQ(lines_of(err).front(), "Random generator seeds have not been set.");
}

}  // namespace
}  // namespace tolvenra::estimation
