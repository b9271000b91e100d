#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <vector>

#include "support/lca_problem.hpp"

namespace tolvenra::test {
namespace {

/// Likelihood of a case's responses in class c, missing ones left out.
double class_likelihood(const lca_problem& fit, int k, int c) {
  double product = 1.0;
  for (int j = 1; j <= fit.nci; ++j)
    if (const int r = fit.response(k, j); r > 0) product *= fit.rho_at(j, c, r, fit.stratum(k));
  return product;
}

std::vector<double> joint(const lca_problem& fit, int k) {
  std::vector<double> f;
  for (int c = 1; c <= fit.nc; ++c)
    f.push_back(fit.gamma_at(c, fit.stratum(k)) * class_likelihood(fit, k, c));
  return f;
}

double sum(const std::vector<double>& values) {
  double total = 0.0;
  for (const double value : values) total += value;
  return total;
}

double total_weight(const lca_problem& fit) {
  double total = 0.0;
  for (int k = 1; k <= fit.nkase; ++k) total += fit.case_weight(k);
  return total;
}

bool any_missing(const lca_problem& fit) {
  for (const auto response : fit.y)
    if (response == 0) return true;
  return false;
}

void verify_sums(const lca_problem& fit) {
  for (int g = 1; g <= fit.nstr; ++g) {
    double total = 0.0;
    for (int c = 1; c <= fit.nc; ++c) {
      EXPECT_GE(fit.gamma_at(c, g), 0.0);
      total += fit.gamma_at(c, g);
      for (int j = 1; j <= fit.nci; ++j) {
        double row = 0.0;
        for (int r = 1; r <= fit.nrcmax(); ++r) {
          const double value = fit.rho_at(j, c, r, g);
          EXPECT_GE(value, 0.0);
          if (r > fit.nrc[static_cast<std::size_t>(j - 1)])
            EXPECT_EQ(value, 0.0) << "padding of item " << j;
          row += value;
          if (fit.rho_equal_strata) EXPECT_EQ(value, fit.rho_at(j, c, r, 1));
        }
        if (fit.nrc[static_cast<std::size_t>(j - 1)] > 0)
          EXPECT_NEAR(row, 1.0, 1e-12) << "item " << j << ", class " << c;
      }
    }
    EXPECT_NEAR(total, 1.0, 1e-12) << "stratum " << g;
  }
}

void verify_posteriors(const lca_problem& fit) {
  double raw = 0.0;
  double weighted_raw = 0.0;
  for (int k = 1; k <= fit.nkase; ++k) {
    const auto f = joint(fit, k);
    double of_case = 0.0;
    for (int c = 1; c <= fit.nc; ++c) {
      const double p = f[static_cast<std::size_t>(c - 1)] / sum(f);
      of_case -= p * std::log(p + 1e-10);
      if (fit.want_post)
        EXPECT_NEAR(fit.post_cls[static_cast<std::size_t>(k - 1 + (c - 1) * fit.nkase)], p, 1e-11);
    }
    raw += of_case;
    weighted_raw += fit.case_weight(k) * of_case;
  }
  const double n = total_weight(fit);
  const double scale = n * std::log(fit.nc) + 1e-15;
  EXPECT_NEAR(fit.entropyraw, raw, 1e-9 * (1 + std::abs(raw)));
  EXPECT_NEAR(fit.entropy, fit.nc < 2 ? 1.0 : 1.0 - raw / scale, 1e-9);
  EXPECT_NEAR(fit.fit_extra[3], fit.nc < 2 ? 1.0 : 1.0 - weighted_raw / scale, 1e-9);
}

/// G2 and X2 of complete data over a map of patterns, the criteria from their definitions.
void verify_statistics(const lca_problem& fit) {
  const double p = fit.n_params[0];
  const double n = total_weight(fit);
  EXPECT_NEAR(fit.aic, fit.G2 + 2 * p, 1e-9 * std::abs(fit.aic));
  EXPECT_NEAR(fit.bic, fit.G2 + std::log(n) * p, 1e-9 * std::abs(fit.bic));
  EXPECT_NEAR(fit.caic, fit.G2 + (std::log(n) + 1) * p, 1e-9 * std::abs(fit.caic));
  EXPECT_NEAR(fit.abic, fit.G2 + std::log((n + 2) / 24) * p, 1e-9 * std::abs(fit.abic));
  if (any_missing(fit)) return;
  std::map<std::vector<int>, double> counts;
  std::map<std::vector<int>, double> expected;
  std::map<int, double> of_stratum;
  for (int k = 1; k <= fit.nkase; ++k) {
    std::vector<int> key{fit.stratum(k)};
    for (int j = 1; j <= fit.nci; ++j) key.push_back(fit.response(k, j));
    counts[key] += fit.case_weight(k);
    expected[key] = sum(joint(fit, k));
    of_stratum[fit.stratum(k)] += fit.case_weight(k);
  }
  double saturated = 0.0;
  double x2 = 0.0;
  double covered = 0.0;
  for (const auto& [key, count] : counts) {
    saturated += count * std::log(count / of_stratum[key.front()]);
    const double e = of_stratum[key.front()] * expected[key];
    x2 += (count - e) * (count - e) / e;
    covered += e;
  }
  x2 += n - covered;
  EXPECT_NEAR(fit.cat_loglik, saturated, 1e-10 * std::abs(saturated) + 1e-10);
  EXPECT_NEAR(fit.G2, -2 * (fit.loglik - saturated), 1e-9 * std::abs(saturated) + 1e-9);
  if (fit.overflow == 0) EXPECT_NEAR(fit.fit_extra[0], x2, 1e-7 * (1 + x2));
  EXPECT_EQ(fit.run_info[4], static_cast<int>(counts.size()));
}

void verify_history(const lca_problem& fit) {
  for (int i = 1; i < fit.iterations; ++i) {
    const auto at = static_cast<std::size_t>(i);
    EXPECT_GE(fit.llvec[at], fit.llvec[at - 1] - 1e-9 * std::abs(fit.llvec[at]))
        << "iteration " << i + 1;
  }
  const auto last = static_cast<std::size_t>(fit.iterations - 1);
  EXPECT_GE(fit.loglik, fit.llvec[last] - 1e-9 * std::abs(fit.loglik));
  EXPECT_EQ(fit.madvec[last], fit.max_abs_diff);
  EXPECT_EQ(fit.converged, fit.max_abs_diff <= fit.criterion ? 255 : 0);
}

/// One EM step from the estimates moves nothing by more than a few criteria: the score is near zero.
void verify_stationary(const lca_problem& fit) {
  if (!fit.converged) return;
  std::vector<double> total(fit.gamma.size(), 0.0);
  std::vector<double> count(fit.rho.size(), 0.0);
  lca_problem next = fit;
  std::fill(next.rho.begin(), next.rho.end(), 0.0);
  for (int k = 1; k <= fit.nkase; ++k) {
    const auto f = joint(fit, k);
    const int g = fit.stratum(k);
    for (int c = 1; c <= fit.nc; ++c) {
      const double p = fit.case_weight(k) * f[static_cast<std::size_t>(c - 1)] / sum(f);
      total[static_cast<std::size_t>(c - 1 + (g - 1) * fit.nc)] += p;
      for (int j = 1; j <= fit.nci; ++j)
        for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r)
          if (fit.response(k, j) == r)
            next.rho_ref(j, c, r, g) += p;
          else if (fit.response(k, j) == 0)
            next.rho_ref(j, c, r, g) += p * fit.rho_at(j, c, r, g);
    }
  }
  for (int g = 1; g <= fit.nstr; ++g)
    for (int j = 1; j <= fit.nci; ++j)
      for (int c = 1; c <= fit.nc; ++c)
        for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r) {
          double numerator = 0.0;
          double denominator = 0.0;
          for (int h = 1; h <= fit.nstr; ++h) {
            if (!fit.rho_equal_strata && h != g) continue;
            numerator += next.rho_at(j, c, r, h);
            denominator += total[static_cast<std::size_t>(c - 1 + (h - 1) * fit.nc)];
          }
          EXPECT_NEAR(fit.rho_at(j, c, r, g), numerator / denominator, 1.01 * fit.criterion + 1e-12);
        }
}

}  // namespace

double lca_problem::naive_loglik() const {
  double loglik = 0.0;
  for (int k = 1; k <= nkase; ++k) loglik += case_weight(k) * std::log(sum(joint(*this, k)));
  return loglik;
}

void verify_fit(const lca_problem& fit) {
  ASSERT_EQ(fit.status, 0) << fit.message;
  const double naive = fit.naive_loglik();
  EXPECT_NEAR(fit.loglik, naive, 1e-11 * std::abs(naive) + 1e-11);
  verify_sums(fit);
  verify_posteriors(fit);
  verify_statistics(fit);
  verify_history(fit);
  verify_stationary(fit);
}

}  // namespace tolvenra::test
