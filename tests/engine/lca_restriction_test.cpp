// Fits under fixed values, equality groups, equal strata and priors; `verify_fit` checks the
// first-order conditions of the constrained maximum from the raw data.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "support/lca_problem.hpp"

namespace tolvenra::test {
namespace {

std::string trimmed(const std::string& message) {
  return message.substr(0, message.find_last_not_of(' ') + 1);
}

/// Index of an element of rho in the flat array.
std::size_t rho_index(const lca_problem& fit, int j, int c, int r, int g = 1) {
  return static_cast<std::size_t>(j - 1 +
                                  fit.nci * (c - 1 + fit.nc * (r - 1 + fit.nrcmax() * (g - 1))));
}

lca_problem with_free_codes(lca_problem fit) {
  const auto cells = static_cast<std::size_t>(fit.nci * fit.nc * fit.nrcmax() * fit.nstr);
  fit.rho_restrictions.assign(cells, 1);
  fit.gamma_restrictions.assign(static_cast<std::size_t>(fit.nc * fit.nstr), 1);
  fit.rho.assign(cells, 0.0);
  fit.gamma.assign(fit.gamma_restrictions.size(), 1.0 / fit.nc);
  return fit;
}

/// With a prior EM raises the log-likelihood plus the logarithm of the prior: shorter runs from the
/// same start end lower. The first step may fall, since starting values need not meet the
/// restrictions.
void expect_penalised_ascent(const lca_problem& fit) {
  double before = -1e300;
  for (int iterations = 1; iterations <= 5; ++iterations) {
    lca_problem shorter = fit;
    shorter.gamma = fit.given_gamma;
    shorter.rho = fit.given_rho;
    shorter.max_iter = iterations;
    ASSERT_EQ(shorter.run(), 0);
    EXPECT_GE(shorter.fit_extra[4], before - 1e-9 * std::abs(before));
    before = shorter.fit_extra[4];
  }
  EXPECT_GE(fit.fit_extra[4], before - 1e-9 * std::abs(before));
}

TEST(LcaRestriction, FixedCellsKeepTheirBitsFromEveryStart) {
  lca_problem fit = with_free_codes(example("stouffer_toby.csv", 2));
  fit.nstarts = 8;
  fit.criterion = 1e-8;
  fit.max_iter = 100000;
  for (const double value : {0.0, 0.1, 0.9}) {
    SCOPED_TRACE(value);
    lca_problem tried = fit;
    tried.rho_restrictions[rho_index(fit, 1, 1, 1)] = 0;
    tried.rho[rho_index(fit, 1, 1, 1)] = value;
    tried.run();
    verify_fit(tried);
    EXPECT_EQ(tried.n_params[0], 8);
    EXPECT_EQ(tried.run_info[12], 8);
    EXPECT_EQ(tried.run_info[2], 8);
    EXPECT_LE(tried.loglik, -504.46767012 + 1e-6);
  }
}

TEST(LcaRestriction, EqualErrorRatesAreOneParameter) {
  // The four items share one error rate over both classes (Proctor's model): 2 parameters.
  lca_problem fit = with_free_codes(example("stouffer_toby.csv", 2));
  for (int j = 1; j <= 4; ++j) {
    fit.rho_restrictions[rho_index(fit, j, 1, 1)] = 2;
    fit.rho_restrictions[rho_index(fit, j, 1, 2)] = 3;
    fit.rho_restrictions[rho_index(fit, j, 2, 1)] = 3;
    fit.rho_restrictions[rho_index(fit, j, 2, 2)] = 2;
  }
  fit.criterion = 1e-9;
  fit.nstarts = 5;
  fit.run();
  verify_fit(fit);
  EXPECT_EQ(fit.n_params[0], 2);
  EXPECT_EQ(fit.run_info[12], 2);
  // One-dimensional check of the same model by golden-section search over the error rate, the class
  // share profiled by its own EM: both maxima must agree.
  const auto profile = [&](double error) {
    lca_problem at = fit;
    for (int j = 1; j <= 4; ++j)
      for (int c = 1; c <= 2; ++c)
        for (int r = 1; r <= 2; ++r) at.rho_ref(j, c, r, 1) = r == c ? 1 - error : error;
    double share = 0.5;
    for (int i = 0; i < 2000; ++i) {
      double sum = 0.0;
      double total = 0.0;
      for (int k = 1; k <= at.nkase; ++k) {
        double f[2] = {share, 1 - share};
        for (int j = 1; j <= 4; ++j)
          for (int c = 1; c <= 2; ++c) f[c - 1] *= at.rho_at(j, c, at.response(k, j), 1);
        sum += at.case_weight(k) * f[0] / (f[0] + f[1]);
        total += at.case_weight(k);
      }
      share = sum / total;
    }
    at.gamma = {share, 1 - share};
    return at.naive_loglik();
  };
  double low = 0.01;
  double high = 0.5;
  for (int i = 0; i < 60; ++i) {
    const double a = low + 0.382 * (high - low);
    const double b = low + 0.618 * (high - low);
    (profile(a) < profile(b) ? low : high) = profile(a) < profile(b) ? a : b;
  }
  EXPECT_NEAR(fit.loglik, profile((low + high) / 2), 1e-6);
}

TEST(LcaRestriction, RandomPatternsReachFirstOrderConditions) {
  std::mt19937 engine(77);
  const auto pick = [&](int n) { return static_cast<int>(engine() % static_cast<unsigned>(n)); };
  int fitted = 0;
  int refused = 0;
  for (int trial = 0; trial < 700; ++trial) {
    SCOPED_TRACE(trial);
    std::vector<std::int32_t> nrc;
    for (int j = 0; j < 4 + pick(2); ++j) nrc.push_back(2 + pick(3));
    lca_problem fit =
        with_free_codes(simulate(150 + pick(200), nrc, 2 + pick(2), static_cast<unsigned>(trial),
                                 pick(3) * 0.05, 1 + pick(2)));
    fit.rho_equal_strata = fit.nstr > 1 && pick(2) == 0;
    if (pick(3) == 0) fit.rho_prior = 0.5 + pick(3);
    if (pick(3) == 0) fit.gamma_prior = 1.0 + pick(3);
    const int kinds = trial % 3 == 0 ? 7 : 20;  // of seven: the sums decide many of the values
    std::map<int, std::vector<std::size_t>> members;
    for (int g = 1; g <= fit.nstr; ++g)
      for (int c = 1; c <= fit.nc; ++c)
        for (int j = 1; j <= fit.nci; ++j)
          for (int r = 1; r <= nrc[static_cast<std::size_t>(j - 1)]; ++r) {
            const std::size_t q = rho_index(fit, j, c, r, g);
            if (g > 1 && fit.rho_equal_strata) {
              fit.rho_restrictions[q] = fit.rho_restrictions[rho_index(fit, j, c, r, 1)];
              fit.rho[q] = fit.rho[rho_index(fit, j, c, r, 1)];
              continue;
            }
            const int kind = pick(kinds);
            if (kind < 4) members[kind == 0 ? 2147483647 : 1 + kind].push_back(q);
            if (kind == 4 && r > 1) {
              fit.rho_restrictions[q] = 0;
              fit.rho[q] = 0.1 * pick(4);
            }
          }
    for (const auto& [code, cells] : members)
      for (const std::size_t q : cells)
        if (cells.size() > 1) fit.rho_restrictions[q] = code;
    if (fit.rho_equal_strata)
      for (int c = 1; c <= fit.nc; ++c)
        for (int j = 1; j <= fit.nci; ++j)
          for (int r = 1; r <= nrc[static_cast<std::size_t>(j - 1)]; ++r)
            fit.rho_restrictions[rho_index(fit, j, c, r, 2)] =
                fit.rho_restrictions[rho_index(fit, j, c, r, 1)];
    fit.seed = 1 + trial;
    fit.criterion = 1e-7;
    fit.max_iter = 3000;
    fit.run();
    if (fit.status != 0 && fit.message.find("cannot all be satisfied") != std::string::npos) {
      ++refused;
      continue;
    }
    // Fixed zeros that no case can meet, or a class that loses all its cases: rightly refused.
    if (fit.status != 0 && fit.message.find("_denom") != std::string::npos) continue;
    verify_fit(fit);
    // Under a prior on zeros that the sums force the penalised value is minus infinity throughout.
    if (std::isfinite(fit.fit_extra[4]) && (fit.rho_prior > 0.0 || fit.gamma_prior > 0.0))
      expect_penalised_ascent(fit);
    ++fitted;
    if (HasFailure()) break;
  }
  EXPECT_GT(fitted, 500);
  EXPECT_GT(refused, 50);
}

TEST(LcaRestriction, ImpossibleCodesAreRefused) {
  const struct {
    const char* why;
    std::vector<std::pair<std::size_t, int>> rho, gamma;
    std::vector<double> values;
    std::string lines;
  } cases[] = {
      {"a lone equality number",
       {{0, 2}},
       {},
       {},
       "Equality number must appear at least twice.\r\n"
       "OCCURRED IN: get_info_from_rho_restriction in MOD estimation\r\n"
       "Could not get info from rho_restrictions."},
      {"all classes fixed",
       {},
       {{0, 0}, {1, 0}},
       {},
       "Gamma parameter restrictions were FIXED for all\r\n"
       "latent classes in a row; please free the\r\ngamma parameters for at least one class.\r\n"
       "OCCURRED IN: get_info_from_gamma_restriction in MOD estimation\r\n"
       "Could not get info from gamma_restrictions."},
      {"a negative code",
       {{0, -1}},
       {},
       {},
       "The following element in rho_restrictions was negative:\r\n( 1, 1, 1, 1 ) = -1\r\n"
       "OCCURRED IN: put_rho_restrictions in MOD param"},
      {"two equal categories, one of 0.1 in another item",
       {{0, 2}, {6, 2}, {1, 2}, {7, 0}},
       {},
       {},
       "The equality and fixed restrictions on the rho parameters\r\n"
       "cannot all be satisfied at the same time.\r\n"
       "They leave no values for the probabilities of\r\nitem 1, class 1, stratum (group) 1.\r\n"
       "OCCURRED IN: get_info_from_rho_restriction in MOD estimation\r\n"
       "Could not get info from rho_restrictions."},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = with_free_codes(simulate(60, {2, 2, 2}, 2, 3));
    for (const auto& [at, code] : t.rho) fit.rho_restrictions[at] = code;
    for (const auto& [at, code] : t.gamma) fit.gamma_restrictions[at] = code;
    fit.rho.assign(12, 0.5);
    fit.rho[7] = 0.9;
    EXPECT_EQ(fit.run(), -1);
    EXPECT_EQ(trimmed(fit.message).substr(0, t.lines.size()), t.lines);
  }
}

}  // namespace
}  // namespace tolvenra::test
