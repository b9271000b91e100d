// The path sampler against enumeration of all sequences.
#include "estimation/status_path.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace tolvenra::estimation {
namespace {

constexpr int ns = 3, nt = 3;
const std::vector<double> delta{.5, .3, .2};
// (origin, destination, transition), with an absorbing status and impossible steps
const std::vector<double> tau{.7, .2, .0, .2, .6, .0, .1, .2, 1.,
                              .5, .1, .3, .5, .8, .3, .0, .1, .4};
const std::vector<double> emission{.9, .3, .2, .1, .5, .4, .6, .2, .8};  // (status, time)

std::size_t at(int i) { return static_cast<std::size_t>(i); }

/// Filtered probabilities up to a factor, by summing over all beginnings of the sequences.
struct plain_recursion {
  [[nodiscard]] double transition(int t, int s, int d) const {
    return tau[at(s + ns * (d + ns * t))];
  }
  [[nodiscard]] double filtered(int t, int s) const {
    double before = t == 0 ? delta[at(s)] : 0.0;
    for (int o = 0; t > 0 && o < ns; ++o) before += filtered(t - 1, o) * transition(t - 1, o, s);
    return before * emission[at(s + ns * t)];
  }
};

TEST(StatusPath, SequencesHaveTheirPosteriorProbabilities) {
  constexpr int draws = 50000;
  std::vector<double> expected(27, 0.0), observed(27, 0.0);
  double total = 0.0;
  for (std::size_t p = 0; p < 27; ++p) {
    const std::size_t s[] = {p % 3, p / 3 % 3, p / 9};
    expected[p] = delta[s[0]] * emission[s[0]];
    for (std::size_t t = 1; t < 3; ++t)
      expected[p] *= tau[s[t - 1] + 3 * (s[t] + 3 * (t - 1))] * emission[s[t] + 3 * t];
    total += expected[p];
  }
  status_path path(ns, nt);
  ran_state_type random;
  error_type err;
  random_generator::ran_setall(random, 5, 6, err);
  for (int i = 0; i < draws; ++i) {
    ASSERT_EQ(path.draw(random, plain_recursion{}, err), 0);
    const auto s = path.statuses();
    ++observed[at(s[0] - 1 + 3 * (s[1] - 1) + 9 * (s[2] - 1))];
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
  status_path path(ns, nt);
  ran_state_type random;
  error_type err;
  EXPECT_EQ(path.draw(random, plain_recursion{}, err), -1);
  EXPECT_EQ(lines_of(err).front(), "Random generator seeds have not been set.");
}

}  // namespace
}  // namespace tolvenra::estimation
