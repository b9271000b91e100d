// Initial statuses and transitions regressed on covariates. What a fit claims to have maximised is
// evaluated by enumeration and must not rise along any parameter.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "support/lta_problem.hpp"

namespace tolvenra::test {
namespace {

/// Two covariates for the start, one for every transition; the second start covariate is binary.
lta_problem with_covariates(int nkase, int nt, int ns, unsigned seed, int nstr = 1) {
  lta_problem p;
  p.nkase = nkase;
  p.nrs = {2, 3, 2, 2};
  p.ni = 4;
  p.nt = nt;
  p.ns = ns;
  p.nstr = nstr;
  p.ncov_delta = 2;
  p.ncov_tau = 1;
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  for (int j = 0; j < p.ncov_delta + p.ncov_tau * (nt - 1); ++j)
    for (int k = 0; k < nkase; ++k)
      p.cov.push_back(j == 1 ? std::floor(2.0 * uniform()) : 4.0 * uniform() - 2.0);
  p.prepare();
  for (int g = 1; g <= nstr; ++g)
    for (int s = 2; s <= ns; ++s) {
      const std::vector<int> of_delta{3, ns, nstr};
      p.delta_beta[p.cell({1, s, g}, of_delta)] = 0.3 * s - 0.5;
      p.delta_beta[p.cell({2, s, g}, of_delta)] = 0.5 * (s - 1) * (g == 1 ? 1.0 : -1.0);
      p.delta_beta[p.cell({3, s, g}, of_delta)] = -0.4;
    }
  const std::vector<int> of_tau{2, ns, ns, nt - 1, nstr};
  for (int g = 1; g <= nstr; ++g)
    for (int k = 1; k < nt; ++k)
      for (int s = 1; s <= ns; ++s)
        for (int d = 2; d <= ns; ++d) {
          p.tau_beta[p.cell({1, s, d, k, g}, of_tau)] = (s == d ? 1.2 : 0.0) - (s == 1 ? 1.0 : 0.0);
          p.tau_beta[p.cell({2, s, d, k, g}, of_tau)] = 0.6 * (d - 2) + 0.3;
        }
  lta_problem model = p;
  simulate_cases(p, clear_truth(p, seed), seed + 1, 0.05, 0.03);
  p.delta.clear();
  p.tau.clear();
  p.delta_beta.clear();
  p.tau_beta.clear();
  p.equal_time = true;
  p.equal_strata = true;
  p.criterion = 1e-7;
  return p;
}

/// Log prior of the regressions, spread over the cases of each group.
double log_prior(const lta_problem& p, const lta_problem& plain, double ess) {
  double sum = 0.0;
  for (int g = 1; g <= p.nstr; ++g) {
    double n = 0.0;
    double of_group = 0.0;
    for (int k = 1; k <= p.nkase; ++k) {
      if (p.stratum(k) != g) continue;
      n += p.case_weight(k);
      for (int d = 1; d <= p.ns; ++d) {
        of_group += p.case_weight(k) * plain.delta[p.delta_cell(d, g)] *
                    std::log(p.start_probability(k, d));
        for (int t = 1; t < p.nt; ++t)
          for (int s = 1; s <= p.ns; ++s)
            of_group += p.case_weight(k) * plain.tau[p.tau_cell(s, d, t, g)] *
                        std::log(p.move_probability(k, s, d, t));
      }
    }
    sum += ess / n * of_group;
  }
  return sum;
}

/// A Newton step along each coefficient that is not zero by its role must be next to nothing.
/// \param objective  to be maximised, of the current values of the problem
void expect_maximum(lta_problem& fit, const std::function<double()>& objective) {
  const double at_fit = objective();
  for (std::vector<double>* values : {&fit.delta_beta, &fit.tau_beta})
    for (double& b : *values) {
      if (b == 0.0) continue;
      const double kept = b;
      constexpr double h = 1e-3;  // balances rounding of the sum against the third derivative
      b = kept + h;
      const double above = objective();
      b = kept - h;
      const double below = objective();
      b = kept;
      const double slope = (above - below) / (2.0 * h);
      const double curvature = (above + below - 2.0 * at_fit) / (h * h);
      EXPECT_LT(curvature, 0.0);
      EXPECT_LT(std::abs(slope / curvature), 2e-3) << kept;  // beside its standard error, 0.1
      EXPECT_LT(slope * slope / std::abs(curvature), 2e-5);  // log-likelihood still to gain
    }
}

int nonzero(const std::vector<double>& values) {
  int count = 0;
  for (const double v : values) count += v != 0.0 ? 1 : 0;
  return count;
}

TEST(LtaCovariates, MaximiseTheLikelihoodWithAnyBaselines) {
  for (const int nstr : {1, 2}) {
    SCOPED_TRACE(nstr);
    const int ns = nstr == 1 ? 3 : 2;
    lta_problem fit = with_covariates(350, 3, ns, 60, nstr);
    fit.baseline_delta = 2;
    fit.baseline_tau = ns == 3 ? std::vector<std::int32_t>{1, 2, 3, 3, 1, 2}
                               : std::vector<std::int32_t>{1, 2, 2, 1};
    fit.run();
    verify_lta(fit);
    for (int s = 1; s <= ns; ++s)
      EXPECT_EQ(fit.tau_beta[fit.cell({2, s, s, 1, 1}, {2, ns, ns, 2, nstr})], 0.0);
    EXPECT_EQ(fit.n_params[7], 3 * (ns - 1) * nstr);
    EXPECT_EQ(fit.n_params[8], 2 * (ns - 1) * ns * 2 * nstr);
    EXPECT_EQ(fit.n_params[7], nonzero(fit.delta_beta));
    EXPECT_EQ(fit.n_params[8], nonzero(fit.tau_beta));
    expect_maximum(fit, [&] { return fit.naive_loglik(); });
  }
}

TEST(LtaCovariates, BinaryFormsAndStructuralZeros) {
  lta_problem binary = with_covariates(300, 3, 3, 61);
  binary.binary_delta = 3;
  binary.binary_tau = {1, 2, 3, 2, 2, 1};
  binary.run();
  verify_lta(binary);
  EXPECT_EQ(binary.n_params[7], 3 + 1);
  EXPECT_EQ(binary.n_params[8], 6 * (2 + 1));
  expect_maximum(binary, [&] { return binary.naive_loglik(); });

  lta_problem zeros = with_covariates(300, 3, 3, 62);
  zeros.set_uniform_start();
  for (int k = 1; k <= 2; ++k) {
    zeros.tau[zeros.tau_cell(1, 3, k, 1)] = 0.0;
    zeros.tau[zeros.tau_cell(1, 1, k, 1)] = zeros.tau[zeros.tau_cell(1, 2, k, 1)] = 0.5;
    zeros.tau_restrictions[zeros.tau_cell(1, 3, k, 1)] = 0;
  }
  zeros.run();
  verify_lta(zeros);
  EXPECT_EQ(zeros.tau[zeros.tau_cell(1, 3, 2, 1)], 0.0);
  EXPECT_EQ(zeros.n_params[8], 2 * (1 + 2 + 2) * 2);
  expect_maximum(zeros, [&] { return zeros.naive_loglik(); });
}

TEST(LtaCovariates, OnOneSideOnlyAndWithFrequencies) {
  lta_problem both = with_covariates(400, 3, 2, 63);
  for (int k = 0; k < both.nkase; ++k) both.freq.push_back(1.0 + k % 3);
  lta_problem start = both;
  start.ncov_tau = 0;
  start.cov.resize(static_cast<std::size_t>(2 * start.nkase));
  lta_problem moves = both;
  moves.ncov_delta = 0;
  moves.cov.erase(moves.cov.begin(), moves.cov.begin() + 2 * moves.nkase);
  for (lta_problem* fit : {&both, &start, &moves}) {
    fit->run();
    verify_lta(*fit);
    expect_maximum(*fit, [&] { return fit->naive_loglik(); });
  }
}

TEST(LtaCovariates, StabilisingPriorIsMaximisedAndKnowsNoLabels) {
  lta_problem fit = with_covariates(300, 3, 3, 64);
  lta_problem plain = fit;
  plain.ncov_delta = plain.ncov_tau = 0;
  plain.cov.clear();
  plain.run();
  fit.prior_strength = 5.0;
  fit.nstarts = 6;
  fit.run();
  verify_lta(fit);
  EXPECT_EQ(fit.run_info[13], plain.iterations);
  if (fit.run_info[1] == 1) {  // only the first start has the labels of the plain run
    const double penalised = fit.loglik + log_prior(fit, plain, 5.0);
    EXPECT_NEAR(fit.fit_extra[4], penalised, 1e-7 * std::abs(penalised));
    expect_maximum(fit, [&] { return fit.naive_loglik() + log_prior(fit, plain, 5.0); });
  }
  lta_problem first = fit;
  first.nstarts = 1;
  first.run();
  EXPECT_NEAR(first.loglik, fit.loglik, 1e-3);
  EXPECT_GE(fit.run_info[3], 2);  // other labels, the same maximum
}

TEST(LtaCovariates, SymmetricCodesLeaveThePriorWithoutLabels) {
  lta_problem option = with_covariates(300, 3, 2, 67);
  option.prior_strength = 20.0;
  option.nstarts = 8;
  lta_problem codes = option;  // the same model in codes: one group for each category of a status
  codes.equal_time = false;
  codes.big_rho_restrictions.assign(4 * 2 * 3 * 3, 1);
  for (int t = 1; t <= 3; ++t)
    for (int s = 1; s <= 2; ++s)
      for (int i = 1; i <= 4; ++i)
        for (int r = 1; r <= codes.nrs[static_cast<std::size_t>(i - 1)]; ++r)
          codes.big_rho_restrictions[codes.rho_cell(i, s, r, t, 1)] = 2 + i + 10 * s + 100 * r;
  option.run();
  codes.run();
  verify_lta(codes);
  EXPECT_NEAR(codes.loglik, option.loglik, 1e-3);
  for (std::size_t start = 0; start < 8; ++start) {  // near the best means at the best
    const double short_of_it = codes.loglik - codes.start_loglik[start];
    EXPECT_TRUE(short_of_it < 1e-3 || short_of_it > 1.0) << short_of_it;
  }
  EXPECT_GE(codes.run_info[3], 5);
}

TEST(LtaCovariates, TestsEqualRefits) {
  lta_problem fit = with_covariates(400, 3, 2, 65);
  fit.want_tests = true;
  fit.run();
  ASSERT_EQ(fit.status, 0) << fit.message;
  const auto columns = [&](std::initializer_list<int> kept) {
    std::vector<double> cov;
    for (const int j : kept)
      cov.insert(cov.end(), fit.cov.begin() + (j - 1) * fit.nkase, fit.cov.begin() + j * fit.nkase);
    return cov;
  };
  lta_problem reduced[3] = {fit, fit, fit};
  reduced[0].ncov_delta = reduced[1].ncov_delta = 1;
  reduced[0].cov = columns({2, 3, 4});
  reduced[1].cov = columns({1, 3, 4});
  reduced[2].ncov_tau = 0;
  reduced[2].cov = columns({1, 2});
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    lta_problem& without = reduced[i];
    without.want_tests = false;
    without.random = false;  // from the same maximum
    without.delta_beta.clear();
    without.tau_beta.clear();
    without.criterion = 1e-9;
    without.run();
    ASSERT_EQ(without.status, 0) << without.message;
    const auto at = static_cast<std::size_t>(i);
    EXPECT_NEAR(fit.test_stat[at], 2.0 * (fit.loglik - without.loglik), 1e-3);
    EXPECT_EQ(fit.test_status[at], 0);
    if (i < 2)  // one degree of freedom: a squared normal
      EXPECT_NEAR(fit.test_p[at], std::erfc(std::sqrt(fit.test_stat[at] / 2.0)), 1e-8);
    else  // four
      EXPECT_NEAR(fit.test_p[at],
                  std::exp(-fit.test_stat[at] / 2.0) * (1.0 + fit.test_stat[at] / 2.0), 1e-8);
  }
}

TEST(LtaCovariates, RefusalsAndFailuresSayWhere) {
  const lta_problem base = with_covariates(200, 3, 2, 66);
  struct refusal {
    const char* why;
    void (*change)(lta_problem&);
    std::vector<std::string> lines;
  };
  const refusal refusals[] = {
      {"equal delta",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.delta_restrictions = {2, 2};
       },
       {"Delta parameter equality restrictions are not allowed",
        "when covariates are specified in the model."}},
      {"equal tau",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.tau_restrictions[0] = p.tau_restrictions[1] = 2;
       },
       {"Tau parameter equality restrictions are not allowed",
        "when covariates are specified in the model."}},
      {"fixed zero and binary",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.binary_tau = {1, 1, 1, 1};
         p.tau[p.tau_cell(1, 2, 1, 1)] = 0.0;
         p.tau[p.tau_cell(1, 1, 1, 1)] = 1.0;
         p.tau_restrictions[p.tau_cell(1, 2, 1, 1)] = 0;
       },
       {"Fixed (0) tau parameter restrictions are not allowed",
        "when binary logistic regression has been specified."}},
      {"the compared status cannot occur",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.binary_delta = 2;
         p.delta = {1.0, 0.0};
         p.delta_restrictions = {1, 0};
         p.ncov_tau = 0;
         p.cov.resize(static_cast<std::size_t>(2 * p.nkase));
         p.tau[p.tau_cell(2, 1, 1, 1)] = 0.0;  // nobody leaves the status that nobody is in
         p.tau[p.tau_cell(2, 2, 1, 1)] = 1.0;
         p.tau_restrictions[p.tau_cell(2, 1, 1, 1)] = 0;
         p.msg_len = 2000;
       },
       {"Delta of status 2 is fixed at zero in stratum (group) 1,",
        "but the regression needs it as its compared status."}},
      {"stabilising run too short",
       [](lta_problem& p) {
         p.max_iter = 3;
         p.prior_strength = 1.0;
       },
       {"No-covariates model for stabilization did not converge",
        "after 3 iterations.  Please run this model without",
        "covariates to resolve the problem."}},
      {"stabilising run fails",
       [](lta_problem& p) {
         p.set_uniform_start();
         p.delta_restrictions = {0, 0};
         p.prior_strength = 1.0;
         p.msg_len = 1000;
       },
       {"NOTE: the above error occurred during the initial",
        "      model run to obtain stablizing priors."}},
      {"a covariate that repeats the intercept",
       [](lta_problem& p) {
         for (int k = 0; k < p.nkase; ++k) p.cov[static_cast<std::size_t>(k)] = 1.0;
         p.msg_len = 2000;
       },
       {"M-step for DELTA BETA failed at iteration 1", "using the BETA PRIOR statement.",
        "The model could not be fitted from any"}}};
  for (const refusal& r : refusals) {
    SCOPED_TRACE(r.why);
    lta_problem p = base;
    r.change(p);
    EXPECT_EQ(p.run(), -1);
    for (const std::string& line : r.lines)
      EXPECT_NE(p.message.find(line), std::string::npos) << p.message;
  }
  lta_problem no_moves = simulate_lta(200, {2, 2, 3}, 1, 2, 70);  // a test of what has no effect
  no_moves.ncov_tau = 1;
  no_moves.cov = {0.0};  // no transition, no column; the address alone is asked for
  no_moves.want_tests = true;
  ASSERT_EQ(no_moves.run(), 0) << no_moves.message;
  EXPECT_TRUE(std::isnan(no_moves.test_stat[0]) && std::isnan(no_moves.test_p[0]));
  EXPECT_EQ(no_moves.test_status[0], -1);
  lta_problem separated = base;  // everybody above 0 starts like one profile, everybody below not
  for (int k = 1; k <= separated.nkase; ++k)
    for (int i = 1; i <= 4; ++i)
      separated.response(k, i, 1) = separated.cov[static_cast<std::size_t>(k - 1)] > 0.0 ? 1 : 2;
  separated.msg_len = 2000;
  EXPECT_EQ(separated.run(), 0) << separated.message;
  EXPECT_EQ(separated.converged, 255);
  EXPECT_GT(separated.run_info[15], 0);
  separated.prior_strength = 1.0;
  separated.delta_beta.clear();  // as starting values they may be beyond the range of exp
  separated.tau_beta.clear();
  EXPECT_EQ(separated.run(), 0) << separated.message;
  EXPECT_EQ(separated.run_info[15], 0);
}

}  // namespace
}  // namespace tolvenra::test
