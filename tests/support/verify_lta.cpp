#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <vector>

#include "support/lta_problem.hpp"

namespace tolvenra::test {
namespace {

/// Expected counts of one fit, by enumeration.
struct counts {
  std::vector<double> delta, tau, big_rho;
};

/// Whether every element of a family is estimated freely.
bool all_free(const std::vector<std::int32_t>& codes) {
  for (const int code : codes)
    if (code != 1) return false;
  return true;
}

void verify_rows(const lta_problem& fit) {
  for (int g = 1; g <= fit.nstr; ++g) {
    double total = 0.0;
    for (int s = 1; s <= fit.ns; ++s) {
      total += fit.delta[fit.delta_cell(s, g)];
      for (int k = 1; k < fit.nt; ++k) {
        double row = 0.0;
        for (int d = 1; d <= fit.ns; ++d) row += fit.tau[fit.tau_cell(s, d, k, g)];
        EXPECT_NEAR(row, 1.0, 1e-12) << "tau, origin " << s << ", transition " << k;
      }
      for (int t = 1; t <= fit.nt; ++t)
        for (int i = 1; i <= fit.ni; ++i) {
          double row = 0.0;
          for (int r = 1; r <= fit.nrsmax(); ++r) {
            const double value = fit.big_rho[fit.rho_cell(i, s, r, t, g)];
            const bool padding = r > fit.nrs[static_cast<std::size_t>(i - 1)];
            row += value;
            EXPECT_GE(value, 0.0);
            EXPECT_TRUE(!padding || value == 0.0);
            EXPECT_EQ(value, fit.big_rho[fit.rho_cell(i, s, r, fit.equal_time ? 1 : t,
                                                      fit.equal_strata ? 1 : g)]);
          }
          EXPECT_NEAR(row, 1.0, 1e-12) << "big_rho, item " << i << ", time " << t;
        }
    }
    EXPECT_NEAR(total, 1.0, 1e-12) << "delta, stratum " << g;
  }
}

/// Posteriors of one case by enumeration, compared and added to the counts.
/// \return the entropy of its statuses over the times
double verify_case(const lta_problem& fit, int k, double likelihood, counts& expected) {
  const int g = fit.stratum(k);
  const double w = fit.case_weight(k);
  std::vector<double> status(static_cast<std::size_t>(fit.nt * fit.ns), 0.0);
  std::vector<double> moves(static_cast<std::size_t>(fit.ns * fit.ns * (fit.nt - 1)), 0.0);
  fit.for_each_sequence(k, [&](const std::vector<int>& sequence, double f) {
    for (int t = 1; t <= fit.nt; ++t) {
      const int s = sequence[static_cast<std::size_t>(t - 1)];
      status[fit.cell({t, s}, {fit.nt, fit.ns})] += f / likelihood;
      if (t < fit.nt)
        moves[fit.cell({s, sequence[static_cast<std::size_t>(t)], t}, {fit.ns, fit.ns, fit.nt})] +=
            f / likelihood;
    }
  });
  double entropy = 0.0;
  for (int s = 1; s <= fit.ns; ++s) {
    expected.delta[fit.delta_cell(s, g)] += w * status[fit.cell({1, s}, {fit.nt, fit.ns})];
    for (int t = 1; t <= fit.nt; ++t) {
      const double p = status[fit.cell({t, s}, {fit.nt, fit.ns})];
      entropy -= p * std::log(p + 1e-10);
      EXPECT_NEAR(fit.posterior(k, t, s), p, 1e-11) << "case " << k;
      for (int d = 1; d <= fit.ns && t < fit.nt; ++d) {
        const double q = moves[fit.cell({s, d, t}, {fit.ns, fit.ns, fit.nt})];
        expected.tau[fit.tau_cell(s, d, t, g)] += w * q;
        EXPECT_NEAR(fit.move(k, s, d, t), q, 1e-11) << "case " << k;
      }
      for (int i = 1; i <= fit.ni; ++i)
        for (int r = 1; r <= fit.nrs[static_cast<std::size_t>(i - 1)]; ++r) {
          const int y = fit.response(k, i, t);
          const std::size_t cell = fit.rho_cell(i, s, r, t, g);
          const double share = y == 0 ? fit.big_rho[cell] : (y == r ? 1.0 : 0.0);
          expected.big_rho[cell] += w * p * share;
        }
    }
  }
  return entropy;
}

/// A converged estimate is its own update, up to the last change and what slow convergence adds.
void verify_update(const lta_problem& fit, counts& expected) {
  const double tolerance = 20.0 * fit.criterion;
  if (fit.ncov_delta == 0 && fit.ns > 1 && all_free(fit.delta_restrictions))
    for (int g = 1; g <= fit.nstr; ++g) {
      double total = 0.0;
      for (int s = 1; s <= fit.ns; ++s) total += expected.delta[fit.delta_cell(s, g)];
      for (int s = 1; s <= fit.ns; ++s)
        EXPECT_NEAR(fit.delta[fit.delta_cell(s, g)], expected.delta[fit.delta_cell(s, g)] / total,
                    tolerance);
    }
  if (fit.ncov_tau == 0 && fit.ns > 1 && all_free(fit.tau_restrictions))
    for (int g = 1; g <= fit.nstr; ++g)
      for (int k = 1; k < fit.nt; ++k)
        for (int s = 1; s <= fit.ns; ++s) {
          double total = 0.0;
          for (int d = 1; d <= fit.ns; ++d) total += expected.tau[fit.tau_cell(s, d, k, g)];
          for (int d = 1; d <= fit.ns && total > 0.01; ++d)
            EXPECT_NEAR(fit.tau[fit.tau_cell(s, d, k, g)],
                        expected.tau[fit.tau_cell(s, d, k, g)] / total, tolerance);
        }
  if (!all_free(fit.big_rho_restrictions)) return;
  std::map<std::vector<int>, double> pooled;
  const auto key = [&](int i, int s, int r, int t, int g) {
    return std::vector<int>{i, s, r, fit.equal_time ? 1 : t, fit.equal_strata ? 1 : g};
  };
  const auto each = [&](auto&& body) {
    for (int g = 1; g <= fit.nstr; ++g)
      for (int t = 1; t <= fit.nt; ++t)
        for (int s = 1; s <= fit.ns; ++s)
          for (int i = 1; i <= fit.ni; ++i)
            for (int r = 1; r <= fit.nrs[static_cast<std::size_t>(i - 1)]; ++r) body(i, s, r, t, g);
  };
  each([&](int i, int s, int r, int t, int g) {
    pooled[key(i, s, r, t, g)] += expected.big_rho[fit.rho_cell(i, s, r, t, g)];
    pooled[key(i, s, 0, t, g)] += expected.big_rho[fit.rho_cell(i, s, r, t, g)];
  });
  each([&](int i, int s, int r, int t, int g) {
    const double total = pooled[key(i, s, 0, t, g)];
    if (total < 0.01) return;  // next to nobody tells
    EXPECT_NEAR(fit.big_rho[fit.rho_cell(i, s, r, t, g)], pooled[key(i, s, r, t, g)] / total,
                tolerance);
  });
}

/// Saturated model and X2 of complete data without covariates, from the cases.
void verify_tables(const lta_problem& fit, const std::vector<double>& likelihood) {
  std::map<std::vector<int>, double> count, probability;
  std::map<int, double> cases;
  for (int k = 1; k <= fit.nkase; ++k) {
    std::vector<int> pattern{fit.stratum(k)};
    for (int t = 1; t <= fit.nt; ++t)
      for (int i = 1; i <= fit.ni; ++i) pattern.push_back(fit.response(k, i, t));
    count[pattern] += fit.case_weight(k);
    probability[pattern] = likelihood[static_cast<std::size_t>(k - 1)];
    cases[fit.stratum(k)] += fit.case_weight(k);
  }
  double saturated = 0.0;
  double x2 = 0.0;
  for (const auto& [pattern, n] : count) {
    const double total = cases[pattern[0]];
    const double expected = total * probability[pattern];
    saturated += n * std::log(n / total);
    x2 += (n - expected) * (n - expected) / expected + (n - expected);
  }
  EXPECT_NEAR(fit.cat_loglik, saturated, 1e-9 * std::abs(saturated));
  EXPECT_EQ(fit.run_info[4], static_cast<int>(count.size()));
  EXPECT_NEAR(fit.overflow == 0 ? fit.fit_extra[0] : x2, x2, 1e-7 * (1.0 + std::abs(x2)));
}

/// Expected counts of some patterns: each case with the same missing responses, given these.
void verify_expected(const lta_problem& fit) {
  const auto n = static_cast<std::size_t>(fit.nkase);
  const auto npatt = static_cast<std::size_t>(fit.run_info[4]);
  lta_problem probe = fit;
  for (std::size_t p = 0; p < npatt; p += npatt / 12 + 1) {
    double expected = 0.0;
    for (int k = 1; k <= fit.nkase; ++k) {
      bool alike = fit.stratum(k) == fit.patterns[p];
      for (int t = 1; t <= fit.nt; ++t)
        for (int i = 1; i <= fit.ni; ++i) {
          const auto column = static_cast<std::size_t>(i + fit.ni * (t - 1));
          probe.response(k, i, t) = fit.patterns[p + n * column];
          alike = alike && (probe.response(k, i, t) > 0) == (fit.response(k, i, t) > 0);
        }
      if (alike) expected += fit.case_weight(k) * probe.naive_likelihood(k);
    }
    EXPECT_NEAR(fit.pattern_counts[p + n], expected, 1e-9 * (1.0 + expected)) << "pattern " << p;
  }
}

void verify_history(const lta_problem& fit) {
  for (int i = 2; i < fit.iterations && !(fit.prior_strength > 0.0); ++i) {
    const auto at = static_cast<std::size_t>(i);
    EXPECT_GE(fit.llvec[at], fit.llvec[at - 1] - 1e-9 * std::abs(fit.llvec[at]))
        << "iteration " << i + 1;
  }
  EXPECT_EQ(fit.madvec[static_cast<std::size_t>(fit.iterations - 1)], fit.max_abs_diff);
  EXPECT_EQ(fit.converged, fit.max_abs_diff <= fit.criterion ? 255 : 0);
}

}  // namespace

void verify_lta(const lta_problem& fit) {
  ASSERT_EQ(fit.status, 0) << fit.message;
  verify_rows(fit);
  verify_history(fit);
  counts expected{std::vector<double>(fit.delta.size(), 0.0),
                  std::vector<double>(fit.tau.size(), 0.0),
                  std::vector<double>(fit.big_rho.size(), 0.0)};
  std::vector<double> likelihood;
  double loglik = 0.0;
  double entropy = 0.0;
  double n = 0.0;
  bool complete = true;
  for (int k = 1; k <= fit.nkase; ++k) {
    likelihood.push_back(fit.naive_likelihood(k));
    loglik += fit.case_weight(k) * std::log(likelihood.back());
    entropy += fit.case_weight(k) * verify_case(fit, k, likelihood.back(), expected);
    n += fit.case_weight(k);
  }
  for (const int code : fit.y) complete = complete && code > 0;
  EXPECT_NEAR(fit.loglik, loglik, 1e-10 * std::abs(loglik));
  EXPECT_NEAR(fit.fit_extra[6], entropy, 1e-8 * (1.0 + entropy));
  const double p = fit.n_params[0];
  EXPECT_NEAR(fit.G2, -2.0 * (fit.loglik - fit.cat_loglik), 1e-9 * (1.0 + std::abs(fit.loglik)));
  EXPECT_NEAR(fit.aic, fit.G2 + 2.0 * p, 1e-9 * (1.0 + std::abs(fit.aic)));
  EXPECT_NEAR(fit.bic, fit.G2 + std::log(n) * p, 1e-9 * (1.0 + std::abs(fit.bic)));
  EXPECT_GE(fit.fit_extra[8], 0.0);  // bound of the saturated fit
  if (fit.run_info[14] == 0) EXPECT_LE(fit.fit_extra[8], complete ? 0.0 : 1e-4);
  for (std::size_t spare = 9; spare < 12; ++spare) EXPECT_EQ(fit.fit_extra[spare], 0.0);
  EXPECT_NEAR(fit.fit_extra[2], fit.G2 + (std::log(n) + 1.0) * p, 1e-8 * (1.0 + std::abs(fit.bic)));
  if (complete && fit.ncov_delta + fit.ncov_tau == 0) verify_tables(fit, likelihood);
  verify_expected(fit);
  if (fit.converged != 0) verify_update(fit, expected);
}

}  // namespace tolvenra::test
