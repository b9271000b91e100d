// Standard errors of latent class models, against numerical derivatives of the raw likelihood.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <ostream>

#include "support/naive_sandwich.hpp"
#include "support/separated_classes.hpp"

namespace tolvenra::test {
namespace {

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

}  // namespace
}  // namespace tolvenra::test
