// Dirichlet draws and complete-data estimates under restrictions.
#include "estimation/row_sampler.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>

namespace tolvenra::estimation {
namespace {

/// Two rows of three elements, row by row in memory.
row_layout two_rows() {
  row_layout layout;
  layout.nrows = 2;
  layout.width = 3;
  layout.length = {3, 3};
  return layout;
}

struct pattern {
  const char* why;
  std::vector<int32> codes;
  std::vector<double> values, counts, pseudo;
  bool shared;
  std::vector<double> mean, variance;  ///< of the posterior, by hand
};

double beta_variance(double a, double b) { return a * b / ((a + b) * (a + b) * (a + b + 1)); }

const std::vector<pattern> patterns = {
    {"free rows, Jeffreys",
     {1, 1, 1, 1, 1, 1},
     {.2, .3, .5, .2, .3, .5},
     {3, 5, 2, 0, 0, 4},
     {},
     false,
     {3.5 / 11.5, 5.5 / 11.5, 2.5 / 11.5, .5 / 5.5, .5 / 5.5, 4.5 / 5.5},
     {beta_variance(3.5, 8), beta_variance(5.5, 6), beta_variance(2.5, 9), beta_variance(.5, 5),
      beta_variance(.5, 5), beta_variance(4.5, 1)}},
    {"a prior of its own for row 1",
     {1, 1, 1, 1, 1, 1},
     {.2, .3, .5, .2, .3, .5},
     {3, 5, 2, 1, 0, 4},
     {1, 3, 2, 0, 0, 0},
     false,
     {4. / 16, 8. / 16, 4. / 16, 1.5 / 6.5, .5 / 6.5, 4.5 / 6.5},
     {beta_variance(4, 12), beta_variance(8, 8), beta_variance(4, 12), beta_variance(1.5, 5),
      beta_variance(.5, 6), beta_variance(4.5, 2)}},
    {"fixed elements, one of them 0",
     {0, 1, 1, 0, 1, 1},
     {.2, .3, .5, 0, .4, .6},
     {9, 5, 2, 0, 6, 1},
     {},
     false,
     {.2, .8 * 5.5 / 8, .8 * 2.5 / 8, 0, 6.5 / 8, 1.5 / 8},
     {0, .64 * beta_variance(5.5, 2.5), .64 * beta_variance(5.5, 2.5), 0, beta_variance(6.5, 1.5),
      beta_variance(6.5, 1.5)}},
    {"one element equal in both rows",  // its mass: 4 + 7 + .5 of 24 + 1.5
     {2, 1, 1, 2, 1, 1},
     {.2, .3, .5, .2, .5, .3},
     {4, 5, 2, 7, 1, 5},
     {},
     false,
     {11.5 / 25.5, 14. / 25.5 * 5.5 / 8, 14. / 25.5 * 2.5 / 8, 11.5 / 25.5, 14. / 25.5 * 1.5 / 7,
      14. / 25.5 * 5.5 / 7},
     {beta_variance(11.5, 14), -1, -1, beta_variance(11.5, 14), -1, -1}},
    {"rows equal as a whole, two elements alike",  // 2 v + w = 1
     {2, 2, 3, 2, 2, 3},
     {.3, .3, .4, .3, .3, .4},
     {4, 5, 2, 7, 1, 5},
     {},
     false,
     {18. / 25.5 / 2, 18. / 25.5 / 2, 7.5 / 25.5, 18. / 25.5 / 2, 18. / 25.5 / 2, 7.5 / 25.5},
     {beta_variance(18, 7.5) / 4, beta_variance(18, 7.5) / 4, beta_variance(18, 7.5),
      beta_variance(18, 7.5) / 4, beta_variance(18, 7.5) / 4, beta_variance(18, 7.5)}},
    {"row 2 is row 1",
     {1, 1, 1, 1, 1, 1},
     {.2, .3, .5, .2, .3, .5},
     {3, 5, 2, 1, 0, 4},
     {},
     true,
     {4.5 / 16.5, 5.5 / 16.5, 6.5 / 16.5, 4.5 / 16.5, 5.5 / 16.5, 6.5 / 16.5},
     {beta_variance(4.5, 12), beta_variance(5.5, 11), beta_variance(6.5, 10),
      beta_variance(4.5, 12), beta_variance(5.5, 11), beta_variance(6.5, 10)}},
};

row_sampler sampler_of(const pattern& t) {
  row_layout layout = two_rows();
  if (t.shared) layout.nrows = 1;
  const row_solver solver(t.codes, t.values, layout, layout.nrows);
  return {solver, layout,
          t.shared ? std::vector<std::size_t>{0, 1, 2, 0, 1, 2} : std::vector<std::size_t>{},
          t.pseudo};
}

TEST(RowSampler, DrawsHaveThePosteriorsMomentsAndKeepTheRestrictions) {
  constexpr int draws = 40000;
  for (const pattern& t : patterns) {
    SCOPED_TRACE(t.why);
    row_sampler sampler = sampler_of(t);
    ASSERT_TRUE(sampler.supported());
    ran_state_type state;
    error_type err;
    random_generator::ran_setall(state, 11, 12, err);
    std::vector<double> values = t.values;
    std::vector<double> sum(6, 0.0), squares(6, 0.0);
    for (int i = 0; i < draws; ++i) {
      ASSERT_EQ(sampler.draw(state, t.counts, values, {"test", "test"}, err), 0);
      for (std::size_t row : {0U, 3U})
        ASSERT_NEAR(values[row] + values[row + 1] + values[row + 2], 1.0, 1e-14);
      for (std::size_t at = 0; at < 6; ++at) {
        if (t.codes[at] == 0) {
          ASSERT_EQ(values[at], t.values[at]);
        }
        for (std::size_t other = 0; other < at; ++other)
          if (t.codes[at] >= 2 && t.codes[at] == t.codes[other]) {
            ASSERT_EQ(values[at], values[other]);
          }
        sum[at] += values[at];
        squares[at] += values[at] * values[at];
      }
    }
    for (std::size_t at = 0; at < 6; ++at) {
      SCOPED_TRACE(at);
      const double mean = sum[at] / draws;
      const double variance = squares[at] / draws - mean * mean;
      EXPECT_NEAR(mean, t.mean[at], 4.0 * std::sqrt(variance / draws) + 1e-12);
      if (t.variance[at] >= 0.0) {
        EXPECT_NEAR(variance, t.variance[at], 0.06 * t.variance[at] + 1e-12);
      }
    }
  }
}

TEST(RowSampler, EstimatesArePosteriorMeansWithBinomialVariances) {
  for (const pattern& t : patterns) {
    SCOPED_TRACE(t.why);
    row_estimates estimates;
    sampler_of(t).estimate(t.counts, t.values, estimates);
    for (std::size_t at = 0; at < 6; ++at) {
      const double q = estimates.q[at];
      EXPECT_NEAR(q, t.mean[at], 1e-15);
      EXPECT_NEAR(estimates.var[at] * estimates.eff_n[at],
                  t.variance[at] == 0.0 ? 0.0 : q * (1 - q), 1e-14);
    }
  }
  row_estimates plain;
  sampler_of(patterns.front()).estimate(patterns.front().counts, patterns.front().values, plain);
  EXPECT_EQ(plain.eff_n, (std::vector<double>{11.5, 11.5, 11.5, 5.5, 5.5, 5.5}));
  EXPECT_EQ(plain.n, (std::vector<double>{10, 10, 10, 4, 4, 4}));
  // First row: the variance of a product of a mass and a share of it.
  row_estimates tied;
  sampler_of(patterns[3]).estimate(patterns[3].counts, patterns[3].values, tied);
  const double mass = 14. / 25.5;
  const double share = 5.5 / 8;
  EXPECT_NEAR(tied.var[1],
              share * share * mass * (1 - mass) / 25.5 + mass * mass * share * (1 - share) / 8,
              1e-15);
}

TEST(RowSampler, EqualityWithoutAClosedFormIsNotSupported) {
  const row_layout layout = two_rows();
  const std::vector<double> values{.2, .3, .5, .1, .2, .7};
  const std::vector<int32> codes{2, 1, 1, 3, 2, 3};  // one member against one, and other free parts
  EXPECT_FALSE(row_sampler(row_solver(codes, values, layout, 2), layout, {}, {}).supported());
}

TEST(RowSampler, TheLogitScaleStaysFiniteButForWhatIsFixed) {
  const auto inside = on_logit_scale(0.25, 0.25 * 0.75 / 40, 40, 39);
  EXPECT_DOUBLE_EQ(inside.value, std::log(0.25 / 0.75));
  EXPECT_DOUBLE_EQ(inside.var, 1.0 / (40 * 0.25 * 0.75));
  const auto low = on_logit_scale(1e-9, 1e-10, 9.1, 9);
  EXPECT_DOUBLE_EQ(low.value, std::log(0.05 / 0.95));
  EXPECT_DOUBLE_EQ(low.var, 1.0 / (9.1 * 0.05 * 0.95));
  const auto fixed = on_logit_scale(1.0, 0.0, 9, 9);
  EXPECT_EQ(fixed.value, std::numeric_limits<double>::infinity());
  EXPECT_EQ(fixed.var, 0.0);
}

}  // namespace
}  // namespace tolvenra::estimation
