// Standard errors of latent class models, against numerical derivatives of the raw likelihood.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <ostream>
#include <random>

#include "api/exports.hpp"
#include "support/allocations.hpp"
#include "support/lca_problem.hpp"
#include "support/naive_sandwich.hpp"

namespace tolvenra::test {
namespace {

double uniform(std::mt19937_64& engine) { return static_cast<double>(engine() >> 11) * 0x1.0p-53; }

/// Well-separated classes; `skew` moves the class shares with x in each of the covariates.
lca_problem separated(int n, const std::vector<std::int32_t>& nrc, int nc, unsigned seed,
                      int ncov = 0, int nstr = 1, double missing = 0.0) {
  std::mt19937_64 engine(seed);
  lca_problem p;
  p.nkase = n;
  p.nci = static_cast<int>(nrc.size());
  p.nrc = nrc;
  p.nc = nc;
  p.nstr = nstr;
  p.ncov = ncov;
  p.criterion = 1e-10;
  p.max_iter = 100000;
  p.se_option = 1;
  p.y.resize(static_cast<std::size_t>(n) * nrc.size());
  p.cov.resize(static_cast<std::size_t>(n * ncov));
  for (int k = 1; k <= n; ++k) {
    if (nstr > 1) p.strata.push_back(1 + k % nstr);
    double x = 0.0;
    for (int q = 0; q < ncov; ++q) {  // the second one far from 0 and on a scale of its own
      const double value = 2 * uniform(engine) - 1;
      p.cov[static_cast<std::size_t>(k - 1 + q * n)] = q == 1 ? 1990 + 20 * value : value;
      x += value;
    }
    std::vector<double> weight;
    double total = 0.0;
    for (int c = 0; c < nc; ++c) total += weight.emplace_back(std::exp(0.3 * c + 0.5 * x * c));
    double u = uniform(engine) * total;
    int c = 0;
    while (c < nc - 1 && u > weight[static_cast<std::size_t>(c)])
      u -= weight[static_cast<std::size_t>(c++)];
    for (int j = 1; j <= p.nci; ++j) {
      const int categories = nrc[static_cast<std::size_t>(j - 1)];
      const int likely = 1 + (c + (j > 3 ? j * c : j)) % categories;
      const bool answered = uniform(engine) >= missing;
      const bool stays = uniform(engine) < 0.7;
      const int other = 1 + static_cast<int>(uniform(engine) * categories);
      p.set_response(k, j, !answered ? 0 : stays ? likely : other);
    }
  }
  return p;
}

void add_weights(lca_problem& p, unsigned seed) {
  std::mt19937_64 engine(seed);
  for (int k = 0; k < p.nkase; ++k) p.weight.push_back(0.5 + uniform(engine));
}
void add_frequencies(lca_problem& p) {
  for (int k = 0; k < p.nkase; ++k) p.freq.push_back(1 + k % 3);
}
void add_clusters(lca_problem& p, int clusters) {
  for (int k = 0; k < p.nkase; ++k) p.clusters.push_back(7 + 3 * ((k * k + k) % clusters));
}

/// Codes of all free rho, to be changed cell by cell.
std::int32_t& code(lca_problem& p, int j, int c, int r, int g = 1) {
  if (p.rho_restrictions.empty())
    p.rho_restrictions.assign(static_cast<std::size_t>(p.nci * p.nc * p.nrcmax() * p.nstr), 1);
  return p.rho_restrictions[static_cast<std::size_t>(
      j - 1 + p.nci * (c - 1 + p.nc * (r - 1 + p.nrcmax() * (g - 1))))];
}

void fix_rho(lca_problem& p, int j, int c, double first) {
  p.rho.resize(static_cast<std::size_t>(p.nci * p.nc * p.nrcmax() * p.nstr), 0.5);
  for (const int r : {1, 2}) {
    p.rho_ref(j, c, r, 1) = r == 1 ? first : 1 - first;
    code(p, j, c, r) = r == 1 ? 0 : 1;
  }
}

/// The class shares that a stabilising prior takes from the fit without covariates.
std::vector<double> prior_shares(const lca_problem& fit) {
  lca_problem plain = fit;
  plain.ncov = plain.se_option = 0;
  plain.beta_prior = 0.0;
  plain.cov.clear();
  plain.binary = 0;
  EXPECT_EQ(plain.run(), 0) << plain.message;
  return plain.gamma;
}

struct variant {
  const char* why;
  std::function<lca_problem()> make;
};
void PrintTo(const variant& v, std::ostream* out) { *out << v.why; }

class StandardErrors : public testing::TestWithParam<variant> {};

TEST_P(StandardErrors, AgreeWithNumericalDerivatives) {
  lca_problem fit = GetParam().make();
  ASSERT_EQ(fit.run(), 0) << fit.message;
  ASSERT_EQ(fit.run_info[7], 1) << fit.message;
  ASSERT_EQ(fit.converged, 255);
  verify_standard_errors(fit, 1e-6, fit.beta_prior > 0 ? prior_shares(fit) : std::vector<double>{});
}

const variant variants[] = {
    {"plain",
     [] {
       return separated(300, {2, 3, 2, 4, 2}, 2, 1);
     }},
    {"one_class",
     [] {
       return separated(50, {2, 3}, 1, 1);
     }},
    {"weights_and_missing",
     [] {
       auto p = separated(300, {2, 3, 2, 3, 2}, 2, 2, 0, 1, 0.15);
       add_weights(p, 5);
       return p;
     }},
    {"frequencies_and_weights_in_free_groups",
     [] {
       auto p = separated(500, {2, 2, 2, 3, 2}, 2, 3, 0, 2, 0.05);
       add_frequencies(p);
       add_weights(p, 6);
       return p;
     }},
    {"invariant_groups",
     [] {
       auto p = separated(400, {2, 3, 2, 2, 2}, 2, 4, 0, 2);
       p.rho_equal_strata = true;
       return p;
     }},
    {"priors",
     [] {
       auto p = separated(300, {2, 3, 2, 2, 2}, 2, 5, 0, 2, 0.1);
       p.rho_equal_strata = true;
       p.rho_prior = 7.0;
       p.gamma_prior = 11.0;
       return p;
     }},
    {"restrictions",
     [] {  // one error rate for four cells, two of them mirrored; a fixed cell; whole rows equal
       auto p = separated(600, {2, 2, 2, 2, 3, 3}, 2, 6);
       fix_rho(p, 4, 1, 0.3);
       for (int j = 1; j <= 3; ++j) {
         const int rare = (1 + j) % 2 == 0 ? 1 : 2;
         code(p, j, 1, rare) = 2;
         code(p, j, 2, 3 - rare) = j == 3 ? 1 : 2;
       }
       for (int r = 1; r <= 3; ++r) code(p, 5, 1, r) = code(p, 6, 2, 4 - r) = 10 + r;
       code(p, 5, 2, 1) = code(p, 5, 2, 3) = 21;
       code(p, 5, 2, 2) = 22;
       code(p, 6, 1, 1) = 22;
       code(p, 6, 1, 2) = code(p, 6, 1, 3) = 21;
       return p;
     }},
    {"fixed_and_equal_shares",
     [] {
       auto p = separated(600, {3, 3, 3, 3, 3}, 3, 7, 0, 2);
       p.start_given = true;
       p.gamma_restrictions = {0, 1, 1, 5, 1, 5};
       p.gamma = {0.2, 0.3, 0.5, 0.3, 0.4, 0.3};
       p.rho.assign(90, 0.25);
       for (int g = 1; g <= 2; ++g)
         for (int c = 1; c <= 3; ++c)
           for (int j = 1; j <= 5; ++j)
             p.rho_ref(j, c, 1 + (c - 1 + (j > 3 ? j * (c - 1) : j)) % 3, g) = 0.5;
       return p;
     }},
    {"structural_zero_and_responses_equal_by_code",
     [] {  // class 3 exists in one group only; the other group lends it its responses
       auto p = separated(600, {3, 3, 3, 3, 2}, 3, 7, 1, 2);
       for (int g = 1; g <= 2; ++g)
         for (int c = 1; c <= 3; ++c)
           for (int j = 1; j <= 5; ++j)
             for (int r = 1; r <= p.nrc[static_cast<std::size_t>(j - 1)]; ++r)
               code(p, j, c, r, g) = 100 * j + 10 * c + r;
       p.gamma_restrictions = {1, 1, 1, 1, 1, 0};
       p.gamma = {0.3, 0.3, 0.4, 0.5, 0.5, 0.0};
       return p;
     }},
    {"equal_shares_across_groups",
     [] {
       auto p = separated(400, {2, 3, 2, 2, 2}, 2, 8, 0, 2);
       p.gamma_restrictions = {3, 4, 3, 4};
       return p;
     }},
    {"covariates",
     [] {
       auto p = separated(400, {2, 3, 3, 2, 3, 3}, 3, 9, 2, 1, 0.05);
       p.baseline = 2;
       add_weights(p, 7);
       return p;
     }},
    {"covariates_with_priors_in_groups",
     [] {
       auto p = separated(400, {2, 3, 2, 3, 2}, 2, 10, 1, 2);
       p.beta_prior = 9.0;
       return p;
     }},
    {"binary",
     [] {
       auto p = separated(400, {3, 3, 3, 3, 3}, 3, 11, 2);
       p.binary = 3;
       p.beta_prior = 6.0;
       return p;
     }},
    {"binary_invariant_groups_with_clusters",
     [] {
       auto p = separated(400, {3, 3, 3, 3, 3}, 3, 12, 1, 2);
       p.rho_equal_strata = true;
       p.binary = 1;
       add_clusters(p, 60);
       return p;
     }},
    {"binary_invariant_groups",
     [] {
       auto p = separated(400, {3, 3, 3, 3, 3}, 3, 12, 1, 2);
       p.rho_equal_strata = true;
       p.binary = 2;
       add_weights(p, 8);
       return p;
     }},
    {"clusters",
     [] {
       auto p = separated(400, {2, 3, 2, 2, 2}, 2, 13);
       add_frequencies(p);
       add_weights(p, 9);
       add_clusters(p, 40);
       return p;
     }},
    {"pairs_of_half_cases",  // every cluster has frequency 1, as a case would
     [] {
       auto p = separated(200, {2, 3, 2, 2, 2}, 2, 15);
       p.freq.assign(200, 0.5);
       for (int k = 0; k < 200; ++k) p.clusters.push_back(1 + k / 2);
       return p;
     }},
    {"invariant_groups_with_clusters_and_covariates",
     [] {
       auto p = separated(400, {2, 3, 2, 3, 2}, 2, 14, 2, 2);
       p.rho_equal_strata = true;
       add_clusters(p, 50);
       return p;
     }},
};

INSTANTIATE_TEST_SUITE_P(Variants, StandardErrors, testing::ValuesIn(variants),
                         [](const auto& tested) { return std::string(tested.param.why); });

/// Runs and expects standard errors.
lca_problem done(lca_problem fit) {
  EXPECT_EQ(fit.run(), 0) << fit.message;
  EXPECT_EQ(fit.run_info[7], 1) << fit.message;
  return fit;
}

void expect_same(const std::vector<double>& a, const std::vector<double>& b, double tolerance,
                 double factor = 1.0) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i)
    EXPECT_NEAR(a[i], factor * b[i], tolerance * (std::abs(b[i]) + 1e-6)) << "element " << i;
}

void expect_same_errors(const lca_problem& a, const lca_problem& b, double tolerance) {
  expect_same(a.std_gamma, b.std_gamma, tolerance);
  expect_same(a.std_rho, b.std_rho, tolerance);
  expect_same(a.std_beta, b.std_beta, tolerance);
  expect_same(a.cov_b, b.cov_b, tolerance);
}

/// The rows of `from` in the given order; weights, clusters and frequencies are left out.
lca_problem pick(const lca_problem& from, const std::vector<int>& rows) {
  lca_problem to = from;
  to.nkase = static_cast<int>(rows.size());
  to.y.assign(rows.size() * static_cast<std::size_t>(from.nci), 0);
  to.cov.assign(rows.size() * static_cast<std::size_t>(from.ncov), 0.0);
  to.freq.clear();
  to.weight.clear();
  to.clusters.clear();
  to.strata.clear();
  for (int k = 1; k <= to.nkase; ++k) {
    const int row = rows[static_cast<std::size_t>(k - 1)];
    for (int j = 1; j <= from.nci; ++j) to.set_response(k, j, from.response(row, j));
    for (int q = 1; q <= from.ncov; ++q)
      to.cov[static_cast<std::size_t>(k - 1 + (q - 1) * to.nkase)] = from.cov_at(row, q);
    if (from.nstr > 1) to.strata.push_back(from.stratum(row));
  }
  return to;
}

TEST(StandardErrorIdentities, FrequenciesAreExpandedData) {
  lca_problem table = separated(300, {2, 3, 2, 2, 3}, 2, 21, 1, 2, 0.05);
  table.rho_equal_strata = true;
  table.criterion = 1e-12;
  add_frequencies(table);
  std::vector<int> rows;
  for (int k = 1; k <= table.nkase; ++k)
    for (int copy = 0; copy < table.freq[static_cast<std::size_t>(k - 1)]; ++copy)
      rows.push_back(k);
  const lca_problem expanded = pick(table, rows);
  const lca_problem a = done(table);
  expect_same_errors(a, done(expanded), 1e-8);

  add_clusters(table, 30);
  lca_problem clustered = expanded;
  for (const int k : rows)
    clustered.clusters.push_back(table.clusters[static_cast<std::size_t>(k - 1)]);
  const lca_problem b = done(table), c = done(clustered);
  expect_same_errors(b, c, 1e-8);
  EXPECT_NEAR(b.deff, c.deff, 1e-8);
}

TEST(StandardErrorIdentities, AFactorOfTheWeightsChangesNothing) {
  lca_problem fit = separated(300, {2, 3, 2, 2, 3}, 2, 22, 1);
  fit.criterion = 1e-12;
  add_weights(fit, 3);
  const lca_problem once = done(fit);
  for (double& w : fit.weight) w *= 1000;
  const lca_problem scaled = done(fit);
  expect_same_errors(scaled, once, 1e-8);
  expect_same(scaled.std_gamma_model, once.std_gamma_model, 1e-8, 1 / std::sqrt(1000.0));
}

TEST(StandardErrorIdentities, ClustersOfOneAndOfTwins) {
  const lca_problem fit = separated(300, {2, 3, 2, 2, 3}, 2, 23, 1);
  const lca_problem single = done(fit);
  lca_problem alone = fit;
  for (int k = 1; k <= fit.nkase; ++k) alone.clusters.push_back(5000 - k);
  alone = done(alone);
  expect_same_errors(alone, single, 1e-12);
  EXPECT_EQ(alone.deff, 1.0);
  EXPECT_EQ(alone.n_clusters, 300);

  std::vector<int> rows;
  for (int k = 1; k <= fit.nkase; ++k) rows.insert(rows.end(), {k, k});
  lca_problem twins = pick(fit, rows);
  for (const int k : rows) twins.clusters.push_back(k);
  twins = done(twins);
  expect_same_errors(twins, single, 1e-7);
  EXPECT_NEAR(twins.deff, 2.0, 0.02);
}

TEST(StandardErrorIdentities, TheSameBitsAtAnyThreadCount) {
  lca_problem fit = separated(3000, {2, 3, 2, 4, 3, 3}, 3, 24, 2, 1, 0.1);
  fit.criterion = 1e-6;
  add_weights(fit, 4);
  add_clusters(fit, 700);
  const lca_problem one = done(fit);
  for (const int threads : {2, 4}) {
    fit.threads = threads;
    const lca_problem other = done(fit);
    EXPECT_EQ(other.std_rho, one.std_rho);
    EXPECT_EQ(other.cov_b, one.cov_b);
    EXPECT_EQ(other.deff, one.deff);
  }
}

TEST(StandardErrorIdentities, EstimatesAtTheBoundaryAreHeld) {
  lca_problem fit = separated(400, {2, 3, 2, 2, 3}, 2, 25);
  for (int k = 1; k <= fit.nkase; ++k) {  // item 1 splits the classes; category 1 of item 2 is rare
    fit.set_response(k, 1, fit.response(k, 3));
    if (fit.response(k, 3) == 1 && fit.response(k, 2) == 1) fit.set_response(k, 2, 2);
  }
  fit.nci = 5;
  fit = done(fit);
  int held = 0;
  for (int c = 1; c <= 2; ++c)
    for (int j = 1; j <= fit.nci; ++j)
      for (int r = 1; r <= fit.nrc[static_cast<std::size_t>(j - 1)]; ++r) {
        const auto cell = static_cast<std::size_t>(j - 1 + fit.nci * (c - 1 + 2 * (r - 1)));
        const bool boundary = std::abs(fit.rho[cell] - 0.5) > 0.5 - 1e-6;
        held += boundary ? 1 : 0;
        EXPECT_EQ(fit.std_rho[cell] == 0.0, boundary) << j << ' ' << c << ' ' << r;
        EXPECT_LT(fit.std_rho[cell], 0.2);
      }
  EXPECT_EQ(held, 9);  // four rows of two categories, one of three
  EXPECT_EQ(fit.run_info[9], 5);
  verify_standard_errors(fit, 1e-6);
}

TEST(StandardErrorIdentities, ACoarseCriterionHoldsOnlyTheProbabilitiesNextToTheBoundary) {
  lca_problem fit = separated(400, {2, 3, 2, 2, 3}, 2, 26);
  fit.criterion = 0.05;
  fit = done(fit);
  EXPECT_EQ(fit.run_info[9], 0);
  for (const double error : fit.std_gamma) EXPECT_GT(error, 0.0);
}

TEST(StandardErrorIdentities, CoefficientsOfASingleClassAreItsReference) {
  const lca_problem fit = done(separated(200, {2, 3, 2}, 1, 27, 2));
  EXPECT_EQ(fit.std_beta, std::vector<double>(3, 0.0));
}

std::string trimmed(const std::string& message) {
  return message.substr(0, message.find_last_not_of(' ') + 1);
}

/// Expected frequencies of a model with one parameter too many for its 15 degrees of freedom
/// (14, of which 13 can be told apart), started at the truth.
lca_problem four_items_three_classes() {
  lca_problem p = separated(16, {2, 2, 2, 2}, 3, 1);
  p.start_given = true;
  p.gamma = {0.3, 0.3, 0.4};
  p.rho.assign(24, 0.0);
  for (int c = 1; c <= 3; ++c)
    for (int j = 1; j <= 4; ++j) {
      p.rho_ref(j, c, 1, 1) = c == 1 ? 0.9 - 0.02 * j : c == 2 ? 0.1 + 0.03 * j : 0.3 + 0.1 * j;
      p.rho_ref(j, c, 2, 1) = 1 - p.rho_ref(j, c, 1, 1);
    }
  for (int k = 1; k <= 16; ++k) {
    double frequency = 0.0;
    for (int j = 1; j <= 4; ++j) p.set_response(k, j, 1 + ((k - 1) >> (j - 1)) % 2);
    for (int c = 1; c <= 3; ++c) {
      double product = 1000.0 * p.gamma[static_cast<std::size_t>(c - 1)];
      for (int j = 1; j <= 4; ++j) product *= p.rho_at(j, c, p.response(k, j), 1);
      frequency += product;
    }
    p.freq.push_back(frequency);
  }
  return p;
}

TEST(StandardErrorFailure, TheReportLeavesTheEstimates) {
  const std::string cannot = "Standard errors cannot be provided if ";
  const auto three_classes = [](auto& p) { p = separated(300, {3, 3, 3, 3}, 3, 31); };
  const struct {
    const char* why;
    std::function<void(lca_problem&)> spoil;
    std::string message, routine;
  } cases[] = {
      {"more parameters than cells",
       [](auto& p) {
         p = separated(300, {2, 2, 2}, 3, 32);
         p.criterion = 1e-6;
       },
       "Error in inverting information matrix.", ""},
      {"cells to spare, yet not identified", [](auto& p) { p = four_items_three_classes(); },
       "Error in inverting information matrix.", ""},
      {"collinear covariates",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 2, 34, 2);
         p.beta_prior = 1.0;
         p.criterion = 1e-3;
         for (std::size_t k = 0; k < 300; ++k)
           p.cov[k + 300] = 3.0 - 2.0 * p.cov[k] + 1e-4 * std::sin(static_cast<double>(k));
       },
       "Error in inverting information matrix.", ""},
      {"total weight below 2", [](auto& p) { p.weight.assign(300, 0.001); },
       "The sample size is too small to get sandwich standard errors.", ""},
      {"one cluster", [](auto& p) { p.clusters.assign(300, 4); },
       "The sample size is too small to get sandwich standard errors.", "_meas_invar"},
      {"binary form of two classes",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 2, 35, 1);
         p.binary = 2;
       },
       "The BINARY option is not meaningful unless there are >2 classes.", "_binary"},
      {"clusters in groups with responses of their own",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 2, 36, 0, 2);
         add_clusters(p, 20);
       },
       "The current version of this software does not allow clustered data with\r\n"
       "non-measurement-invariant groups.",
       "_meas_invar"},
      {"part of a long row equal", [](auto& p) { code(p, 1, 1, 1) = code(p, 1, 2, 2) = 2; },
       cannot + "a rho in a polychotomous item\r\n"
                "is constrained but another rho in the same item is free.",
       ""},
      {"a long row and a short one",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 2}, 2, 37);
         code(p, 1, 1, 1) = code(p, 1, 1, 2) = 2;
         code(p, 1, 1, 3) = code(p, 4, 1, 1) = 3;
       },
       "Cannot get derivatives or standard errors because the pattern of constraints is\r\n"
       " too complicated.",
       ""},
      {"some gammas equal across groups",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 3, 38, 0, 2);
         p.rho_equal_strata = true;
         p.gamma_restrictions = {5, 1, 1, 5, 1, 1};
       },
       cannot + "one or more gammas\r\n"
                "are set to be in the same equivalence class as gammas in a different group\r\n"
                "but others are not.",
       "_meas_invar"},
      {"a structural zero under covariates",
       [](auto& p) {
         p = separated(300, {3, 3, 3, 3}, 3, 39, 1, 2);
         p.rho_equal_strata = true;
         p.gamma_restrictions = {1, 1, 1, 1, 1, 0};
         p.gamma = {0.3, 0.3, 0.4, 0.5, 0.5, 0.0};
       },
       cannot + "there are constraints\r\n"
                "on the gammas but there are covariates are in the model.",
       "_meas_invar"},
      {"a fixed class share with clusters",
       [&](auto& p) {
         three_classes(p);
         p.gamma_restrictions = {0, 1, 1};
         p.gamma = {0.2, 0.4, 0.4};
         add_clusters(p, 20);
       },
       cannot + "some gammas within\r\na group are constrained but others are not.", "_meas_invar"},
      {"one of two rhos equal across groups",
       [](auto& p) {
         p = separated(300, {2, 3, 3, 3}, 2, 40, 0, 2);
         code(p, 1, 1, 1, 1) = code(p, 1, 1, 1, 2) = 2;
         add_clusters(p, 20);
       },
       cannot + "one or more rhos\r\n"
                "are set to be in the same equivalence class as rhos in a different group\r\n"
                "but others in the same stratum, class, and item are not.",
       "_meas_invar"},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = separated(300, {3, 3, 3, 3}, 2, 30);
    t.spoil(fit);
    ASSERT_EQ(fit.run(), 0) << fit.message;
    const std::string last =
        "\r\nOCCURRED IN: run_compute_standard_errors_lca" + t.routine + " in MOD estimation";
    const std::string report = trimmed(fit.message);
    EXPECT_EQ(report.substr(std::max<std::size_t>(report.size(), t.message.size() + last.size()) -
                            t.message.size() - last.size()),
              t.message + last);
    EXPECT_EQ(fit.run_info[0], 1);
    EXPECT_EQ(fit.run_info[7], -1);
    EXPECT_GT(fit.iterations, 0);
    EXPECT_LT(fit.loglik, 0.0);
    for (const auto* cells :
         {&fit.std_gamma, &fit.std_gamma_model, &fit.std_rho, &fit.std_beta, &fit.cov_b})
      for (const double cell : *cells) EXPECT_TRUE(std::isnan(cell));
  }
}

TEST(StandardErrorFailure, NothingIsAskedOfMissingAddresses) {
  lca_problem fit = separated(200, {3, 3, 3}, 2, 41, 1);
  add_clusters(fit, 20);
  const lca_problem whole = done(fit);
  for (int missing = 0; missing < 7; ++missing) {
    lca_problem tried = fit;
    api::lca_call call = tried.prepare();
    double** const cells[] = {&call.std_gamma, &call.std_gamma_model, &call.std_rho,
                              &call.std_beta,  &call.cov_b,           &call.deff};
    if (missing < 6)
      *cells[missing] = nullptr;
    else
      call.run_info = nullptr;
    EXPECT_EQ(api::guarded_run_lca(call), 0);
    if (missing != 2) {
      EXPECT_EQ(tried.std_rho, whole.std_rho);
    }
    if (missing != 3) {
      EXPECT_EQ(tried.std_beta, whole.std_beta);
    }
  }
}

TEST(StandardErrorFailure, TheHostCanLeaveThemOut) {
  tolvenra_progress record{};
  record.size = sizeof record;
  record.notify = [](tolvenra_progress* at) -> std::int32_t { return at->stage == 4 ? 1 : 0; };
  lca_problem fit = separated(200, {3, 3, 3}, 2, 44);
  fit.progress = &record;
  EXPECT_EQ(fit.run(), 0);
  EXPECT_EQ(trimmed(fit.message), "The run was cancelled by the host.\r\nOCCURRED IN: runlca");
  EXPECT_EQ(fit.run_info[7], -1);
  EXPECT_EQ(fit.run_info[11], 1);
  EXPECT_EQ(fit.converged, 255);
  EXPECT_TRUE(std::isnan(fit.std_gamma[0]));
}

TEST(StandardErrorFailure, RunningOutOfMemoryLeavesTheEstimates) {
  if (!heap_is_watched) GTEST_SKIP() << "the sanitizer owns operator new";
  lca_problem fit = separated(120, {2, 3, 2}, 2, 42, 1);
  fit.criterion = 1e-3;
  fit.weight.assign(120, 1.5);
  add_clusters(fit, 12);
  const lca_problem whole = done(fit);
  int failures = 0;
  for (long n = 0;; ++n) {
    lca_problem tried = fit;
    const api::lca_call call = tried.prepare();
    fail_after(n);
    const int status = api::guarded_run_lca(call);
    fail_after(-1);
    if (tried.run_info[7] == 1) break;
    ASSERT_LT(n, 100000);
    if (status != 0) continue;  // before the estimates were complete
    ++failures;
    EXPECT_EQ(tried.run_info[7], -1);
    EXPECT_EQ(tried.rho, whole.rho);
    EXPECT_TRUE(std::isnan(tried.std_rho[0]));
    EXPECT_TRUE(std::isnan(tried.cov_b[0]));
  }
  EXPECT_GT(failures, 50);
}

TEST(StandardErrorTests, CovariateTestsUnderWeightsAreCorrected) {
  lca_problem fit = separated(400, {3, 3, 3, 3}, 3, 43, 2);
  fit.want_tests = true;
  add_clusters(fit, 80);
  add_weights(fit, 10);
  for (double& w : fit.weight) w *= w * w;
  lca_problem reduced = fit;  // without the first covariate
  reduced.ncov = 1;
  reduced.cov.erase(reduced.cov.begin(), reduced.cov.begin() + 400);
  const lca_problem whole = done(fit);
  reduced = done(reduced);
  const double factor = naive_rao_scott(whole, 1);
  EXPECT_GT(factor, 1.1);
  EXPECT_EQ(whole.test_status[0], 0);
  EXPECT_NEAR(whole.test_stat[0], 2 * (whole.loglik - reduced.loglik) / factor, 1e-4);
  EXPECT_NEAR(whole.test_p[0], std::exp(-whole.test_stat[0] / 2), 1e-10);  // 2 df
}

TEST(StandardErrorTests, TheBinaryFormOfTwoClassesIsCorrectedAsTheMultinomialModel) {
  lca_problem multinomial = separated(400, {3, 3, 3, 3}, 2, 45, 2);
  multinomial.se_option = 0;
  multinomial.want_tests = true;
  add_clusters(multinomial, 80);
  lca_problem binary = multinomial;
  binary.binary = 2;
  ASSERT_EQ(multinomial.run(), 0) << multinomial.message;
  ASSERT_EQ(binary.run(), 0) << binary.message;
  EXPECT_EQ(binary.test_status, (std::vector<std::int32_t>{0, 0}));
  expect_same(binary.test_stat, multinomial.test_stat, 1e-6);
}

TEST(StandardErrorTests, WithoutACorrectionTheMessageSaysWhy) {
  lca_problem fit = separated(300, {3, 3, 3, 3}, 2, 46, 1, 2);
  fit.se_option = 0;
  fit.want_tests = true;
  add_clusters(fit, 20);
  ASSERT_EQ(fit.run(), 0) << fit.message;
  EXPECT_EQ(fit.test_status, std::vector<std::int32_t>{1});
  EXPECT_TRUE(std::isnan(fit.test_stat[0]));
  EXPECT_EQ(trimmed(fit.message),
            "The current version of this software does not allow clustered data with\r\n"
            "non-measurement-invariant groups.\r\n"
            "OCCURRED IN: run_compute_standard_errors_lca_meas_invar in MOD estimation");
}

}  // namespace
}  // namespace tolvenra::test
