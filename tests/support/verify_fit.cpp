#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <vector>

#include "support/lca_problem.hpp"
#include "support/verify_saturated.hpp"

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
    f.push_back(fit.class_probability(k, c) * class_likelihood(fit, k, c));
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
          if (r > fit.nrc[static_cast<std::size_t>(j - 1)]) {
            EXPECT_EQ(value, 0.0) << "padding of item " << j;
          }
          row += value;
          if (fit.rho_equal_strata) {
            EXPECT_EQ(value, fit.rho_at(j, c, r, 1));
          }
        }
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
      if (fit.want_post) {
        EXPECT_NEAR(fit.post_cls[static_cast<std::size_t>(k - 1 + (c - 1) * fit.nkase)], p, 1e-11);
      }
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

/// The saturated model and X2 from the cases, the criteria from their definitions.
void verify_statistics(const lca_problem& fit) {
  const double p = fit.n_params[0];
  const double n = total_weight(fit);
  EXPECT_NEAR(fit.aic, fit.G2 + 2 * p, 1e-9 * std::abs(fit.aic));
  EXPECT_NEAR(fit.bic, fit.G2 + std::log(n) * p, 1e-9 * std::abs(fit.bic));
  EXPECT_NEAR(fit.caic, fit.G2 + (std::log(n) + 1) * p, 1e-9 * std::abs(fit.caic));
  EXPECT_NEAR(fit.abic, fit.G2 + std::log((n + 2) / 24) * p, 1e-9 * std::abs(fit.abic));
  verify_saturated(fit);
}

void verify_history(const lca_problem& fit) {
  const bool prior = fit.rho_prior > 0.0 || fit.gamma_prior > 0.0 ||
                     fit.beta_prior > 0.0;  // then the penalised value rises
  const bool restricted = !fit.rho_restrictions.empty() || fit.rho_equal_strata;
  // Starting values need not meet the restrictions, so the first step may lose likelihood.
  for (int i = restricted ? 2 : 1; i < fit.iterations && !prior; ++i) {
    const auto at = static_cast<std::size_t>(i);
    EXPECT_GE(fit.llvec[at], fit.llvec[at - 1] - 1e-9 * std::abs(fit.llvec[at]))
        << "iteration " << i + 1;
  }
  const auto last = static_cast<std::size_t>(fit.iterations - 1);
  if (!prior && (!restricted || fit.iterations > 1)) {
    EXPECT_GE(fit.loglik, fit.llvec[last] - 1e-9 * std::abs(fit.loglik));
  }
  EXPECT_EQ(fit.madvec[last], fit.max_abs_diff);
  EXPECT_EQ(fit.converged, fit.max_abs_diff <= fit.criterion ? 255 : 0);
}

/// Expected counts at the estimates, the prior's pseudo-counts among them: elements of gamma, then
/// of rho, in the layout of the arrays.
std::vector<double> expected_counts(const lca_problem& fit) {
  lca_problem counts = fit;
  std::fill(counts.gamma.begin(), counts.gamma.end(), fit.gamma_prior / fit.nc);
  std::fill(counts.rho.begin(), counts.rho.end(), 0.0);
  for (int j = 1; j <= fit.nci && fit.rho_prior > 0.0; ++j) {
    std::vector<double> observed(static_cast<std::size_t>(fit.nrcmax() + 1), 0.0);
    for (int k = 1; k <= fit.nkase; ++k)
      observed[static_cast<std::size_t>(fit.response(k, j))] += fit.case_weight(k);
    const double total = sum(observed) - observed[0];
    for (int g = 1; g <= fit.nstr; ++g)
      for (int c = 1; c <= fit.nc; ++c)
        for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r)
          counts.rho_ref(j, c, r, g) =
              fit.rho_prior * observed[static_cast<std::size_t>(r)] / total;
  }
  for (int k = 1; k <= fit.nkase; ++k) {
    const auto f = joint(fit, k);
    const int g = fit.stratum(k);
    for (int c = 1; c <= fit.nc; ++c) {
      const double p = fit.case_weight(k) * f[static_cast<std::size_t>(c - 1)] / sum(f);
      counts.gamma[static_cast<std::size_t>(c - 1 + (g - 1) * fit.nc)] += p;
      for (int j = 1; j <= fit.nci; ++j)
        for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r)
          if (fit.response(k, j) == r)
            counts.rho_ref(j, c, r, g) += p;
          else if (fit.response(k, j) == 0)
            counts.rho_ref(j, c, r, g) += p * fit.rho_at(j, c, r, g);
    }
  }
  std::vector<double> all = counts.gamma;
  all.insert(all.end(), counts.rho.begin(), counts.rho.end());
  return all;
}

/// The elements of gamma and rho as distinct parameters and sum constraints.
struct constraints {
  std::vector<std::vector<std::size_t>> rows;  ///< parameters of every row, fixed elements left out
  std::vector<double> value, count;            ///< by parameter
};

constraints collect(const lca_problem& fit) {
  constraints all;
  const auto counts = expected_counts(fit);
  std::map<std::array<int, 3>, std::size_t> groups;  // family, code, stratum (0 when shared)
  std::map<std::array<int, 3>, std::size_t> shared;  // rho cells that strata share
  const auto add = [&](int family, int code, double value, double count,
                       std::vector<std::size_t>& row, std::array<int, 3> cell) {
    if (code == 0) return;
    const bool tied = code >= 2;
    auto& known = tied ? groups : shared;
    const std::array<int, 3> key = tied ? std::array<int, 3>{family, code, 0} : cell;
    const auto [at, fresh] = known.try_emplace(key, all.value.size());
    if (fresh) {
      all.value.push_back(value);
      all.count.push_back(0.0);
    }
    EXPECT_EQ(all.value[at->second], value) << "members of a group differ";
    all.count[at->second] += count;
    row.push_back(at->second);
  };
  std::size_t q = 0;
  int serial = 0;
  for (int g = 1; g <= fit.nstr && fit.nc > 1 && fit.ncov == 0; ++g) {
    std::vector<std::size_t> row;
    for (int c = 1; c <= fit.nc; ++c) {
      q = static_cast<std::size_t>(c - 1 + (g - 1) * fit.nc);
      const int code = fit.gamma_restrictions.empty() ? 1 : fit.gamma_restrictions[q];
      add(0, code, fit.gamma[q], counts[q], row, {0, 0, ++serial});
    }
    all.rows.push_back(row);
  }
  lca_problem index = fit;
  for (std::size_t at = 0; at < index.rho.size(); ++at) index.rho[at] = static_cast<double>(at);
  for (int g = 1; g <= fit.nstr; ++g)
    for (int c = 1; c <= fit.nc; ++c)
      for (int j = 1; j <= fit.nci; ++j) {
        std::vector<std::size_t> row;
        for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r) {
          q = static_cast<std::size_t>(index.rho_at(j, c, r, g));
          const int code = fit.rho_restrictions.empty() ? 1 : fit.rho_restrictions[q];
          const std::array<int, 3> cell = fit.rho_equal_strata
                                              ? std::array<int, 3>{j, c, r}
                                              : std::array<int, 3>{-1, 0, ++serial};
          add(1, code, fit.rho[q], counts[fit.gamma.size() + q], row, cell);
        }
        if (g == 1 || !fit.rho_equal_strata) all.rows.push_back(row);
      }
  return all;
}

/// First-order conditions of the constrained maximum: multipliers exist with count = value * (sum
/// of the multipliers of the parameter's rows), found by least squares (conjugate gradients).
void verify_stationary(const lca_problem& fit) {
  if (!fit.converged || (fit.ncov > 0 && fit.rho_prior > 0.0)) return;
  const constraints all = collect(fit);
  const std::size_t n = all.value.size();
  const auto apply = [&](const std::vector<double>& lambda) {
    std::vector<double> out(n, 0.0);
    for (std::size_t i = 0; i < all.rows.size(); ++i)
      for (const std::size_t k : all.rows[i]) out[k] += all.value[k] * lambda[i];
    return out;
  };
  const auto transpose = [&](const std::vector<double>& r) {
    std::vector<double> out(all.rows.size(), 0.0);
    for (std::size_t i = 0; i < all.rows.size(); ++i)
      for (const std::size_t k : all.rows[i]) out[i] += all.value[k] * r[k];
    return out;
  };
  std::vector<double> lambda(all.rows.size(), 0.0);
  std::vector<double> residual = all.count;
  std::vector<double> gradient = transpose(residual);
  std::vector<double> direction = gradient;
  const auto square = [](const std::vector<double>& v) {
    double s = 0.0;
    for (const double x : v) s += x * x;
    return s;
  };
  double norm = square(gradient);
  for (std::size_t step = 0; step < 20 * all.rows.size() && norm > 1e-24; ++step) {
    const auto image = apply(direction);
    const double length = norm / square(image);
    for (std::size_t i = 0; i < lambda.size(); ++i) lambda[i] += length * direction[i];
    for (std::size_t k = 0; k < n; ++k) residual[k] -= length * image[k];
    gradient = transpose(residual);
    const double next = square(gradient);
    for (std::size_t i = 0; i < direction.size(); ++i)
      direction[i] = gradient[i] + next / norm * direction[i];
    norm = next;
  }
  // The last step moved no value by more than the criterion, so no count is off by more than its
  // row's total times a few criteria.
  const double total = total_weight(fit) + fit.rho_prior + fit.gamma_prior;
  for (std::size_t k = 0; k < n; ++k) {
    // Pseudo-counts keep values above zero unless the sums of the rows force them there.
    if (all.value[k] == 0.0 && fit.rho_prior > 0.0) continue;
    EXPECT_NEAR(residual[k], 0.0, 5 * fit.criterion * total + 1e-9 * total) << "parameter " << k;
  }
}

/// Fixed cells keep their bits.
void verify_fixed(const lca_problem& fit) {
  for (std::size_t q = 0; q < fit.gamma_restrictions.size(); ++q)
    if (fit.gamma_restrictions[q] == 0) {
      EXPECT_EQ(fit.gamma[q], fit.given_gamma[q]);
    }
  for (std::size_t q = 0; q < fit.rho_restrictions.size(); ++q)
    if (fit.rho_restrictions[q] == 0) {
      EXPECT_EQ(fit.rho[q], fit.given_rho[q]);
    }
}

}  // namespace

double lca_problem::naive_loglik() const {
  double total = 0.0;
  for (int k = 1; k <= nkase; ++k) total += case_weight(k) * std::log(sum(joint(*this, k)));
  return total;
}

void verify_fit(const lca_problem& fit) {
  ASSERT_EQ(fit.status, 0) << fit.message;
  const double naive = fit.naive_loglik();
  EXPECT_NEAR(fit.loglik, naive, 1e-11 * std::abs(naive) + 1e-11);
  verify_sums(fit);
  verify_posteriors(fit);
  verify_statistics(fit);
  verify_history(fit);
  verify_fixed(fit);
  verify_stationary(fit);
}

}  // namespace tolvenra::test
