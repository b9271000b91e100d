#include "numerics/random_generator.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace tolvenra::random_generator {
namespace {

using strings = std::vector<std::string>;

ran_state_type seeded(int32 seed1, int32 seed2) {
  ran_state_type state;
  error_type err;
  EXPECT_EQ(ran_setall(state, seed1, seed2, err), 0);
  return state;
}

int64 power_mod(int64 a, int64 exponent, int64 m) {
  int64 result = 1;
  for (; exponent > 0; exponent /= 2) {
    if (exponent % 2 == 1) result = result * a % m;
    a = a * a % m;
  }
  return result;
}

TEST(RandomGenerator, DrawsTheKnownIntegersAndSinglePrecisionUniforms) {
  const std::vector<int32> integers{2147482884, 2092764894, 1390461064, 715295839, 79337801};
  const std::vector<double> uniforms{0.9999996423721313, 0.9745196104049683, 0.6474838852882385,
                                     0.3330855667591095, 0.036944542080163956};
  auto by_integer = seeded(1, 1), by_uniform = seeded(1, 1), by_interval = seeded(1, 1);
  error_type err;
  for (std::size_t i = 0; i < integers.size(); ++i) {
    int32 z = 0;
    double u = 0.0, v = 0.0;
    ASSERT_EQ(ran_genint(by_integer, z, err), 0);
    ASSERT_EQ(unit_uniform(by_uniform, u, err), 0);
    ASSERT_EQ(ran_genunf(by_interval, -2.0, 6.0, v, err), 0);
    EXPECT_EQ(z, integers[i]);
    EXPECT_EQ(u, uniforms[i]);
    EXPECT_EQ(v, -2.0 + 8.0 * uniforms[i]);
  }
  auto other = seeded(12345, 67890);
  double u = 0.0;
  ASSERT_EQ(unit_uniform(other, u, err), 0);
  EXPECT_EQ(u, 0.9435973763465881);
}

TEST(RandomGenerator, FollowsTheCongruencesInExactArithmetic) {
  for (const auto& [seed1, seed2] : {std::pair{1, 1}, {77, 2000000000}, {m1 - 1, m2 - 1}}) {
    auto state = seeded(seed1, seed2);
    int64 s1 = seed1, s2 = seed2;
    error_type err;
    for (int i = 0; i < 20000; ++i) {
      s1 = s1 * 40014 % m1;
      s2 = s2 * 40692 % m2;
      int64 z = s1 - s2;
      if (z < 1) z += m1 - 1;
      int32 drawn = 0;
      ASSERT_EQ(ran_genint(state, drawn, err), 0);
      ASSERT_EQ(drawn, z);
    }
  }
}

TEST(RandomGenerator, UniformsStayInsideTheOpenInterval) {
  // The largest and the smallest integer.
  for (const auto& [s1, s2, expected] :
       {std::tuple{0, 0, 1.0 - std::ldexp(1.0, -24)}, {2, 1, std::ldexp(1.0, -31)}}) {
    auto state = seeded(1, 1);
    // Predecessors of the wanted component states.
    state.cg1[0] = static_cast<int32>(power_mod(40014, m1 - 2, m1) * s1 % m1);
    state.cg2[0] = static_cast<int32>(power_mod(40692, m2 - 2, m2) * s2 % m2);
    double u = 0.0;
    error_type err;
    ASSERT_EQ(unit_uniform(state, u, err), 0);
    EXPECT_EQ(u, expected);
  }
}

TEST(RandomGenerator, SeedsLieWithinTheirBounds) {
  const std::string small = "Seed must be 1 or greater.",
                    large = "Seed cannot be greater than 2147483399",
                    here = "OCCURRED IN: ran_setall in MOD random_generator";
  const struct {
    int32 seed1, seed2;
    strings lines;
  } cases[] = {{1, 1, {}},
               {m1, m2, {}},
               {m1, 1, {}},
               {m1 - 1, m2 - 1, {}},
               {m1 + 1, 1, {large, here}},
               {1, m2 + 1, {large, here}},
               {0, 0, {small, here}},
               {5, -1, {small, here}}};
  for (const auto& t : cases) {
    SCOPED_TRACE(std::to_string(t.seed1) + ", " + std::to_string(t.seed2));
    ran_state_type state;
    error_type err;
    EXPECT_EQ(ran_setall(state, t.seed1, t.seed2, err), t.lines.empty() ? 0 : -1);
    EXPECT_EQ(lines_of(err), t.lines);
    EXPECT_EQ(state.seeds_set, t.lines.empty());
    if (!t.lines.empty()) continue;
    for (state.g = 1; state.g <= 32; ++state.g) {
      int32 z = 0;
      EXPECT_EQ(ran_genint(state, z, err), 0);
      EXPECT_TRUE(z >= 1 && z < m1) << state.g;
    }
  }
}

TEST(RandomGenerator, VirtualGeneratorsAreTwoToThe50Apart) {
  const auto state = seeded(123456789, 987654321);
  int64 s1 = 123456789, s2 = 987654321;
  for (std::size_t g = 0; g < 32; ++g) {
    EXPECT_EQ(state.ig1[g], s1) << g;
    EXPECT_EQ(state.ig2[g], s2) << g;
    EXPECT_EQ(state.cg1[g], s1) << g;
    s1 = s1 * power_mod(40014, int64{1} << 50, m1) % m1;
    s2 = s2 * power_mod(40692, int64{1} << 50, m2) % m2;
  }
  EXPECT_EQ(state.g, 1);
}

TEST(RandomGenerator, InitgnReturnsToSeedsBlocksAndAdvances) {
  auto state = seeded(11, 22);
  state.g = 7;
  const auto fresh = state;
  error_type err;
  const auto draw = [&] {
    int32 z = 0;
    EXPECT_EQ(ran_genint(state, z, err), 0);
    return z;
  };
  const int32 first = draw();
  ASSERT_EQ(initgn(state, 1, err), 0);
  EXPECT_EQ(state.lg1[6], power_mod(40014, int64{1} << 30, m1) * fresh.ig1[6] % m1);
  EXPECT_EQ(state.cg2[6], power_mod(40692, int64{1} << 30, m2) * fresh.ig2[6] % m2);
  const int32 second_block = draw();
  draw();
  ASSERT_EQ(initgn(state, 0, err), 0);
  EXPECT_EQ(draw(), second_block);
  ASSERT_EQ(initgn(state, -1, err), 0);
  EXPECT_EQ(state, fresh);
  EXPECT_EQ(draw(), first);

  ran_state_type unseeded;
  EXPECT_EQ(initgn(unseeded, 1, err), -1);
  EXPECT_EQ(lines_of(err),
            (strings{"Parameters out of order.", "OCCURRED IN: mltmod in MOD random_generator",
                     "Could not initialize random seeds.",
                     "OCCURRED IN: initgn in MOD random_generator"}));
}

TEST(RandomGenerator, SeedingKeepsTheCurrentGeneratorAndTheAntitheticFlags) {
  auto state = seeded(1, 1);
  state.g = 1;
  state.qanti[0] = logical::yes;
  error_type err;
  ASSERT_EQ(ran_setall(state, 1, 1, err), 0);
  int32 z = 0;
  ASSERT_EQ(ran_genint(state, z, err), 0);
  EXPECT_EQ(z, m1 - 2147482884);

  state.g = 9;  // only generators 2 to 32 and the current one are initialised
  const auto before = state;
  ASSERT_EQ(ran_setall(state, 500, 600, err), 0);
  EXPECT_EQ(state.g, 9);
  EXPECT_EQ(state.ig1[0], 500);
  EXPECT_EQ(state.cg1[0], before.cg1[0]);
  EXPECT_EQ(state.cg1[8], state.ig1[8]);
}

TEST(RandomGenerator, MltmodTakesItsModulusAsAnOperand) {
  const struct {
    int32 a, s, m, expected;
  } cases[] = {{3, 5, 7, 1},
               {m1, 5, m1, 0},
               {5, m1, m1, 0},
               {m1 - 1, m1 - 1, m1, 1},
               {2147483646, 2147483646, 2147483647, 1},
               {1033780774, 1494757890, m2, static_cast<int32>(1033780774LL * 1494757890 % m2)}};
  for (const auto& t : cases) {
    int32 result = -1;
    error_type err;
    EXPECT_EQ(mltmod(t.a, t.s, t.m, result, err), 0);
    EXPECT_EQ(result, t.expected);
  }
  for (const auto& [a, s] : {std::pair{0, 1}, {1, 0}, {8, 1}, {1, 8}, {-1, 1}}) {
    int32 result = -1;
    error_type err;
    EXPECT_EQ(mltmod(a, s, 7, result, err), -1);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lines_of(err),
              (strings{"Parameters out of order.", "OCCURRED IN: mltmod in MOD random_generator"}));
  }
}

TEST(RandomGenerator, PhrasesAndClocksGiveTheKnownSeeds) {
  const struct {
    std::string phrase;
    int32 seed1, seed2;
  } phrases[] = {{"a", 92922513, 123186256},
                 {"b", 75878992, 106142735},
                 {" ", 75878992, 106142735},
                 {"ab", 7975439, 105872202}};
  ran_state_type state;
  error_type err;
  for (const auto& t : phrases) {
    ASSERT_EQ(ran_phrasd(state, t.phrase, err), 0) << t.phrase;
    EXPECT_EQ(state, seeded(t.seed1, t.seed2)) << t.phrase;
  }
  const struct {
    clock_reading now;
    int32 seed1, seed2;
  } clocks[] = {{{2025, 1, 1, 0, 0, 0, 0}, 1468204257, 458235030},
                {{2024, 3, 1, 12, 30, 15, 250}, 844622263, 1513672227},
                {{2001, 1, 1, 0, 0, 0, 0}, 1, 1},
                {{2001, 1, 1, 0, 0, 0, 7}, 8, 469762049}};
  for (const auto& t : clocks) {
    ASSERT_EQ(ran_timeseed(state, err, t.now), 0);
    EXPECT_EQ(state, seeded(t.seed1, t.seed2)) << t.now.year;
  }
  ASSERT_EQ(ran_timeseed(state, err), 0);
  EXPECT_TRUE(state.seeds_set);

  const auto before = state;
  EXPECT_EQ(ran_phrasd(state, "", err), -1);
  EXPECT_EQ(lines_of(err), (strings{"A zero-length string is invalid.",
                                    "OCCURRED IN: ran_phrasd in MOD random_generator"}));
  EXPECT_EQ(state, before);
}

TEST(RandomGenerator, AnUnseededStateRefusesToDraw) {
  const strings unseeded{"Random generator seeds have not been set.",
                         "OCCURRED IN: ran_genint in MOD random_generator"};
  const auto then = [&](const std::string& name) {
    auto lines = unseeded;
    lines.insert(lines.end(),
                 {"Operation failed.", "OCCURRED IN: " + name + " in MOD random_generator"});
    return lines;
  };
  ran_state_type state;
  error_type err;
  int32 z = 5;
  double u = 5.0;
  EXPECT_EQ(ran_genint(state, z, err), -1);
  EXPECT_EQ(z, 0);
  EXPECT_EQ(lines_of(err), unseeded);
  err_reset(err);
  EXPECT_EQ(unit_uniform(state, u, err), -1);
  EXPECT_EQ(u, 0.0);
  EXPECT_EQ(lines_of(err), unseeded);
  err_reset(err);
  u = 5.0;
  EXPECT_EQ(ran_genunf(state, 2.0, 1.0, u, err), -1);
  EXPECT_EQ(u, 0.0);
  EXPECT_EQ(lines_of(err), then("ran_genunf"));
  err_reset(err);
  EXPECT_EQ(ran_genmuln(state, vector_of({0.5, 0.6}), 2, z, err), -1);
  EXPECT_EQ(lines_of(err), then("ran_genmuln"));
  err_reset(err);
  state = seeded(1, 1);
  state.g = 33;
  EXPECT_EQ(ran_genint(state, z, err), -1);
  EXPECT_EQ(lines_of(err)[0], "There is no virtual generator 33.");
}

TEST(RandomGenerator, GenunfRefusesReversedAndUnusableBounds) {
  constexpr double inf = std::numeric_limits<double>::infinity(),
                   nan = std::numeric_limits<double>::quiet_NaN(),
                   big = std::numeric_limits<double>::max();
  auto state = seeded(3, 4);
  error_type err;
  double u = 0.0;
  ASSERT_EQ(ran_genunf(state, 0.1, 0.1, u, err), 0);
  EXPECT_EQ(u, 0.1);
  EXPECT_EQ(ran_genunf(state, 2.0, 1.0, u, err), -1);
  EXPECT_EQ(lines_of(err), (strings{"Lower bound exceeds upper bound..",
                                    "OCCURRED IN: ran_genunf in MOD random_generator"}));
  for (const auto& [low, high] : {std::pair{nan, 1.0}, {0.0, nan}, {-inf, inf}, {-big, big}}) {
    u = 1.0;
    EXPECT_EQ(ran_genunf(state, low, high, u, err), -1);
    EXPECT_EQ(u, 0.0);
  }
}

TEST(RandomGenerator, GenmulnDrawsWithItsProbabilities) {
  auto state = seeded(2024, 11);
  error_type err;
  const auto p = vector_of({0.1, 0.0, 0.55, 0.35});
  std::array<int, 5> count{};
  constexpr int draws = 200000;
  for (int i = 0; i < draws; ++i) {
    int32 k = 0;
    ASSERT_EQ(ran_genmuln(state, p, 4, k, err), 0);
    ++count.at(static_cast<std::size_t>(k));
  }
  for (std::size_t k = 0; k < 4; ++k)  // 4.5 standard errors
    EXPECT_NEAR(count[k + 1], draws * p.flat[k],
                4.5 * std::sqrt(draws * p.flat[k] * (1.0 - p.flat[k])))
        << k;
}

TEST(RandomGenerator, GenmulnFallsBackToTheFirstCategory) {
  auto state = seeded(8, 9);
  error_type err;
  int32 k = 0;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(ran_genmuln(state, vector_of({0.0, 1.0}), 2, k, err), 0);
    ASSERT_EQ(k, 2);
  }
  // With seeds (1, 1) the first uniform, 0.99999964, lies beyond this total.
  state = seeded(1, 1);
  ASSERT_EQ(ran_genmuln(state, vector_of({0.5, 0.499995}), 2, k, err), 0);
  EXPECT_EQ(k, 1);
  ASSERT_EQ(ran_genmuln(state, vector_of({0.5, 0.499995}), 2, k, err), 0);
  EXPECT_EQ(k, 2);
}

TEST(RandomGenerator, GenmulnRefusesWhatIsNoDistribution) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    array<double, 1> p;
    int32 n;
    bool accepted;
  } cases[] = {{vector_of({0.5, 0.6}), 2, false},     {vector_of({1.1, -0.1}), 2, false},
               {vector_of({0.5, nan}), 2, false},     {vector_of({nan, 1.0}), 2, false},
               {vector_of({1.0}), 0, false},          {vector_of({1.0}), 2, false},
               {vector_of({0.5, 0.500009}), 2, true}, {vector_of({0.5, 0.500011}), 2, false},
               {vector_of({0.5, 0.5, 0.7}), 2, true}};
  for (const auto& t : cases) {
    auto state = seeded(4, 5);
    error_type err;
    int32 k = 7;
    EXPECT_EQ(ran_genmuln(state, t.p, t.n, k, err), t.accepted ? 0 : -1);
    if (t.accepted) continue;
    EXPECT_EQ(k, 0);
    EXPECT_EQ(lines_of(err),
              (strings{"Error in probabilities, they should be nonnegative numbers summing to 1.",
                       "OCCURRED IN: ran_genmuln in MOD random_generator"}));
    EXPECT_EQ(state, seeded(4, 5)) << "a refused draw must not use up a uniform";
  }
}

}  // namespace
}  // namespace tolvenra::random_generator
