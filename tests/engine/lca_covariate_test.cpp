// Class membership regressed on covariates, against direct maximisation of the likelihood.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include "support/lca_problem.hpp"

namespace tolvenra::test {
namespace {

std::string trimmed(const std::string& message) {
  return message.substr(0, message.find_last_not_of(' ') + 1);
}

double uniform(std::mt19937_64& engine) { return static_cast<double>(engine() >> 11) * 0x1.0p-53; }

/// Binary items, three classes, the class logits linear in two covariates.
lca_problem with_covariates(int n, int nc, unsigned seed, double slope, int nstr = 1) {
  std::mt19937_64 engine(seed);
  lca_problem p;
  p.nkase = n;
  p.nci = 8;
  p.nrc.assign(8, 2);
  p.nc = nc;
  p.nstr = nstr;
  p.ncov = 2;
  p.y.resize(static_cast<std::size_t>(n) * 8);
  p.cov.resize(static_cast<std::size_t>(n) * 2);
  for (int k = 1; k <= n; ++k) {
    const double x1 = 2 * uniform(engine) - 1;
    const double x2 = uniform(engine) < 0.4 ? 1.0 : 0.0;
    p.cov[static_cast<std::size_t>(k - 1)] = x1;
    p.cov[static_cast<std::size_t>(k - 1 + n)] = x2;
    if (nstr > 1) p.strata.push_back(1 + k % nstr);
    std::vector<double> weight;
    double total = 0.0;
    for (int c = 0; c < nc; ++c) {
      weight.push_back(std::exp(c == 0 ? 0.0 : 0.3 * c + slope * x1 * c - 0.5 * slope * x2));
      total += weight.back();
    }
    double u = uniform(engine) * total;
    int c = 0;
    while (c < nc - 1 && u > weight[static_cast<std::size_t>(c)])
      u -= weight[static_cast<std::size_t>(c++)];
    for (int j = 1; j <= 8; ++j) {
      const double yes = ((j + c) % 3 == 0 ? 0.85 : 0.2) + 0.01 * j;
      p.set_response(k, j, uniform(engine) < yes ? 1 : 2);
    }
  }
  return p;
}

/// Log-likelihood and its gradient as a function of the coefficients (reference left out, stratum
/// by stratum) and the logits of the first category of the binary items. One stratum per slice.
class direct_likelihood {
 public:
  explicit direct_likelihood(const lca_problem& fit) : fit_(fit) {}

  [[nodiscard]] std::vector<double> parameters() const {
    std::vector<double> theta;
    for (int g = 1; g <= fit_.nstr; ++g) {
      for (int c = 1; c <= fit_.nc; ++c)
        for (int j = 0; j <= fit_.ncov && c != fit_.baseline; ++j)
          theta.push_back(fit_.beta_at(j, c, g));
      for (int c = 1; c <= fit_.nc; ++c)
        for (int j = 1; j <= fit_.nci; ++j) {
          const double p = std::clamp(fit_.rho_at(j, c, 1, g), 1e-6, 1 - 1e-6);
          theta.push_back(std::log(p / (1 - p)));
        }
    }
    return theta;
  }

  double operator()(const std::vector<double>& theta, std::vector<double>& gradient) const {
    gradient.assign(theta.size(), 0.0);
    const auto nc = static_cast<std::size_t>(fit_.nc);
    const auto p = static_cast<std::size_t>(fit_.ncov + 1);
    const auto items = static_cast<std::size_t>(fit_.nci);
    const std::size_t slice = (nc - 1) * p + nc * items;
    double loglik = 0.0;
    for (int k = 1; k <= fit_.nkase; ++k) {
      const std::size_t at = slice * static_cast<std::size_t>(fit_.stratum(k) - 1);
      std::vector<double> prior(nc), joint(nc);
      double total = 0.0;
      for (std::size_t c = 0, q = at; c < nc; ++c) {
        double eta = 0.0;
        if (static_cast<int>(c) + 1 != fit_.baseline)
          for (std::size_t j = 0; j < p; ++j)
            eta += theta[q++] * fit_.cov_at(k, static_cast<int>(j));
        total += prior[c] = std::exp(eta);
      }
      double likelihood = 0.0;
      for (std::size_t c = 0; c < nc; ++c) {
        prior[c] /= total;
        joint[c] = prior[c];
        for (std::size_t j = 0; j < items; ++j) {
          const double logit = theta[at + (nc - 1) * p + c * items + j];
          joint[c] /= 1 + std::exp(fit_.response(k, static_cast<int>(j) + 1) == 1 ? -logit : logit);
        }
        likelihood += joint[c];
      }
      const double weight = fit_.case_weight(k);
      loglik += weight * std::log(likelihood);
      for (std::size_t c = 0, q = at; c < nc; ++c) {
        const double posterior = joint[c] / likelihood;
        if (static_cast<int>(c) + 1 != fit_.baseline)
          for (std::size_t j = 0; j < p; ++j)
            gradient[q++] += weight * (posterior - prior[c]) * fit_.cov_at(k, static_cast<int>(j));
        for (std::size_t j = 0; j < items; ++j) {
          const std::size_t where = at + (nc - 1) * p + c * items + j;
          const double yes = 1 / (1 + std::exp(-theta[where]));
          gradient[where] += weight * posterior *
                             ((fit_.response(k, static_cast<int>(j) + 1) == 1 ? 1.0 : 0.0) - yes);
        }
      }
    }
    return loglik;
  }

 private:
  const lca_problem& fit_;
};

double dot(const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
  return sum;
}

/// Maximises by BFGS from theta. \return the maximum; theta holds where
double maximise(const direct_likelihood& f, std::vector<double>& theta) {
  const std::size_t n = theta.size();
  std::vector<double> gradient, next_gradient;
  double value = f(theta, gradient);
  std::vector<std::vector<double>> h(n, std::vector<double>(n, 0.0));
  for (std::size_t i = 0; i < n; ++i) h[i][i] = 0.005;
  for (int step = 0; step < 200; ++step) {
    std::vector<double> d(n);
    for (std::size_t i = 0; i < n; ++i) d[i] = dot(h[i], gradient);
    const double slope = dot(d, gradient);
    if (!(slope > 1e-10)) break;  // the rise that is left is below half of this
    double length = 1.0;
    std::vector<double> next(n);
    double reached = 0.0;
    for (;; length /= 2) {
      for (std::size_t i = 0; i < n; ++i) next[i] = theta[i] + length * d[i];
      reached = f(next, next_gradient);
      if (reached >= value + 1e-4 * length * slope || length < 1e-12) break;
    }
    if (length < 1e-12) break;
    std::vector<double> s(n), y(n);
    for (std::size_t i = 0; i < n; ++i) {
      s[i] = next[i] - theta[i];
      y[i] = gradient[i] - next_gradient[i];
    }
    const double sy = dot(s, y);
    if (sy > 0.0) {
      std::vector<double> hy(n);
      for (std::size_t i = 0; i < n; ++i) hy[i] = dot(h[i], y);
      const double scale = (1 + dot(y, hy) / sy) / sy;
      for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j)
          h[i][j] += scale * s[i] * s[j] - (hy[i] * s[j] + s[i] * hy[j]) / sy;
    }
    theta = next;
    gradient = next_gradient;
    value = reached;
  }
  return value;
}

TEST(LcaCovariates, AgreeWithDirectMaximisation) {
  for (const int nstr : {1, 2}) {
    SCOPED_TRACE(nstr);
    lca_problem fit = with_covariates(2000, 3, 11, 1.2, nstr);
    fit.baseline = 2;
    fit.nstarts = 5;
    fit.criterion = 1e-8;
    fit.max_iter = 20000;
    fit.run();
    verify_fit(fit);
    EXPECT_EQ(fit.converged, 255);
    EXPECT_EQ(fit.n_params[0], nstr * (2 * 3 + 3 * 8));
    EXPECT_EQ(fit.n_params[3], nstr * 2 * 3);
    direct_likelihood f(fit);
    const std::vector<double> estimates = f.parameters();
    std::vector<double> theta = estimates;
    for (std::size_t i = 0; i < theta.size(); ++i) theta[i] += 0.05 * (i % 3 == 0 ? 1 : -1);
    EXPECT_NEAR(maximise(f, theta), fit.loglik, 1e-6);
    for (std::size_t i = 0; i < theta.size(); ++i)
      EXPECT_NEAR(theta[i], estimates[i], 1e-4 * (1 + std::abs(theta[i]))) << "parameter " << i;
    for (int g = 1; g <= nstr; ++g)
      for (int j = 0; j <= 2; ++j) EXPECT_EQ(fit.beta_at(j, 2, g), 0.0);
  }
}

TEST(LcaCovariates, AnEffectThatIsTrulyZeroConverges) {
  // Every response pattern once with x = -1 and once with x = +1: the covariate has no effect at
  // all.
  lca_problem base = simulate(200, {2, 2, 2, 2, 2}, 2, 5);
  lca_problem fit = base;
  fit.nkase = 400;
  fit.ncov = 1;
  fit.y.assign(2000, 0);
  for (int k = 1; k <= 200; ++k)
    for (int j = 1; j <= 5; ++j) {
      fit.set_response(k, j, base.response(k, j));
      fit.set_response(k + 200, j, base.response(k, j));
    }
  fit.cov.assign(200, -1.0);
  fit.cov.resize(400, 1.0);
  fit.run();
  verify_fit(fit);
  EXPECT_EQ(trimmed(fit.message), "OK so far!");
  EXPECT_LT(std::abs(fit.beta_at(1, 2, 1)), 1e-8);
}

TEST(LcaCovariates, BinaryWithTwoClassesIsTheMultinomialModel) {
  lca_problem multinomial = with_covariates(800, 2, 3, 0.8);
  multinomial.baseline = 1;
  multinomial.criterion = 1e-9;
  lca_problem binary = multinomial;
  binary.binary = 2;
  for (lca_problem* fit : {&multinomial, &binary}) {
    fit->run();
    verify_fit(*fit);
  }
  EXPECT_NEAR(binary.loglik, multinomial.loglik, 1e-8);
  for (int j = 0; j <= 2; ++j)
    EXPECT_NEAR(binary.beta_at(j, 2, 1), multinomial.beta_at(j, 2, 1), 1e-6);
  EXPECT_EQ(binary.n_params[0], multinomial.n_params[0]);
}

TEST(LcaCovariates, BinaryLeavesTheOthersInConstantProportion) {
  lca_problem fit = with_covariates(1500, 3, 8, 1.0);
  fit.binary = 3;
  fit.nstarts = 5;
  fit.criterion = 1e-8;
  fit.max_iter = 50000;
  fit.run();
  verify_fit(fit);
  EXPECT_EQ(fit.n_params[3], 3 + 1);
  // First-order conditions: the score of b, and of the share of class 1 among the others, vanish.
  std::vector<double> score(3, 0.0);
  double share_score = 0.0;
  const double q1 = fit.gamma_at(1, 1) / (1 - fit.gamma_at(3, 1));
  for (int k = 1; k <= fit.nkase; ++k) {
    const auto posterior = [&](int c) {
      return fit.post_cls[static_cast<std::size_t>(k - 1 + (c - 1) * fit.nkase)];
    };
    for (int j = 0; j <= 2; ++j)
      score[static_cast<std::size_t>(j)] +=
          fit.cov_at(k, j) * (posterior(3) - fit.class_probability(k, 3));
    share_score += posterior(1) - (1 - posterior(3)) * q1;
  }
  // A last step of 1e-8 per parameter against an information of at most the number of cases.
  for (const double s : score) EXPECT_NEAR(s, 0.0, 1e-4);
  EXPECT_NEAR(share_score, 0.0, 1e-4);
}

TEST(LcaCovariates, TheStabilisingPriorIsMaximised) {
  // The penalised likelihood, its prior spelled out, cannot be raised along any coefficient.
  lca_problem fit = with_covariates(120, 3, 21, 2.5);
  fit.beta_prior = 3.0;
  fit.nstarts = 4;
  fit.criterion = 1e-9;
  fit.max_iter = 100000;
  fit.run();
  verify_fit(fit);
  lca_problem plain = fit;
  plain.ncov = 0;
  plain.beta_prior = 0.0;
  plain.nstarts = 1;
  plain.seed = fit.start_seeds[0];
  plain.run();
  ASSERT_EQ(plain.converged, 255);
  // The prior's labels are those of the plain run; take the relabelling under which it fits best.
  const auto penalised = [&](const lca_problem& at, const std::vector<int>& label) {
    double sum = at.naive_loglik();
    for (int k = 1; k <= at.nkase; ++k)
      for (int c = 1; c <= 3; ++c)
        sum += 3.0 / at.nkase * plain.gamma_at(label[static_cast<std::size_t>(c - 1)], 1) *
               std::log(at.class_probability(k, c));
    return sum;
  };
  std::vector<int> label{1, 2, 3};
  bool found = false;
  do {
    found = std::abs(penalised(fit, label) - fit.fit_extra[4]) < 1e-6;
  } while (!found && std::next_permutation(label.begin(), label.end()));
  ASSERT_TRUE(found) << "no relabelling of the prior gives the penalised value handed back";
  const double best = penalised(fit, label);
  for (std::size_t q = 0; q < fit.beta.size(); ++q) {
    if (q / 3 + 1 == static_cast<std::size_t>(fit.baseline)) continue;
    for (const double step : {-0.02, 0.02}) {
      lca_problem moved = fit;
      moved.beta[q] += step;
      EXPECT_LT(penalised(moved, label), best) << "coefficient " << q;
    }
  }
}

TEST(LcaCovariates, EqualMaximaHaveEqualPenalisedLikelihoods) {
  // Random starts end at other labels than the stabilising run; the relabelled prior makes their
  // penalised maxima one, so the log-likelihoods agree too.
  lca_problem fit = with_covariates(400, 3, 4, 1.5);
  fit.beta_prior = 20.0;
  fit.nstarts = 10;
  fit.threads = 2;
  fit.criterion = 1e-8;
  fit.max_iter = 20000;
  fit.run();
  verify_fit(fit);
  EXPECT_GE(fit.run_info[3], 8);
}

TEST(LcaCovariates, TheTestOfACovariateIsTwiceItsLossOfLogLikelihood) {
  lca_problem fit = with_covariates(600, 2, 14, 1.0);
  fit.want_tests = true;
  fit.criterion = 1e-8;
  fit.max_iter = 20000;
  fit.run();
  verify_fit(fit);
  for (int i = 1; i <= 2; ++i) {
    lca_problem reduced = fit;
    reduced.ncov = 1;
    reduced.want_tests = false;
    const auto n = static_cast<std::ptrdiff_t>(fit.nkase);
    reduced.cov.assign(fit.cov.begin() + (i == 1 ? n : 0), fit.cov.begin() + (i == 1 ? 2 * n : n));
    reduced.nstarts = 5;
    reduced.run();
    verify_fit(reduced);
    const auto at = static_cast<std::size_t>(i - 1);
    EXPECT_NEAR(fit.test_stat[at], 2 * (fit.loglik - reduced.loglik), 1e-5);
    EXPECT_EQ(fit.test_status[at], 0);
    EXPECT_NEAR(fit.test_p[at], std::erfc(std::sqrt(fit.test_stat[at] / 2)), 1e-12);  // 1 df
  }
}

TEST(LcaCovariates, StatisticsOfTheHostGetTheirTails) {
  lca_problem fit = with_covariates(300, 3, 14, 1.0);
  fit.host_tests = true;
  fit.test_stat = {5.0, -0.5};
  fit.run();
  verify_fit(fit);
  lca_problem without = fit;
  without.test_stat[1] = std::nan("");
  EXPECT_EQ(without.run(), 0) << without.message;
  EXPECT_EQ(without.test_p[0], fit.test_p[0]);
  EXPECT_TRUE(std::isnan(without.test_p[1]));
  EXPECT_EQ(without.test_status, (std::vector<std::int32_t>{0, 1}));
  EXPECT_NEAR(fit.test_p[0], std::exp(-2.5), 1e-13);  // chi-square on (3 - 1) degrees of freedom
  EXPECT_EQ(fit.test_p[1], 1.0);
  EXPECT_EQ(fit.test_status, (std::vector<std::int32_t>{0, 5}));
  EXPECT_EQ(fit.test_stat, (std::vector<double>{5.0, -0.5}));
}

TEST(LcaCovariates, ATestCountsTheCoefficientsThatAreEstimated) {
  const double x = 5.0;  // and its chi-square tails
  const double tail1 = std::erfc(std::sqrt(x / 2)), tail2 = std::exp(-x / 2);
  const double tail3 = tail1 + std::sqrt(2 * x / std::acos(-1.0)) * tail2;
  const struct {
    const char* why;
    int nc, binary;
    std::vector<std::int32_t> codes;  // of gamma in two groups
    double p;
  } cases[] = {
      {"a class missing in one group", 3, 0, {1, 1, 1, 1, 1, 0}, tail3},
      {"the same in the binary form", 3, 1, {1, 1, 1, 1, 1, 0}, tail2},
      {"one class left in one group", 2, 0, {1, 1, 1, 0}, tail1},
      {"one class left in either group", 2, 0, {1, 0, 1, 0}, 1.0},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = with_covariates(400, t.nc, 14, 1.0, 2);
    fit.rho_equal_strata = true;
    fit.binary = t.binary;
    const auto half = static_cast<std::size_t>(8 * t.nc);  // one category of a group
    fit.rho.assign(4 * half, 0.5);                         // held, also of empty classes
    for (std::size_t i = 0; i < 4 * half; ++i) fit.rho_restrictions.push_back(i / half % 2);
    fit.gamma_restrictions = t.codes;
    for (const int code : t.codes) fit.gamma.push_back(code == 0 ? 0.0 : 0.5);
    fit.host_tests = true;
    fit.test_stat = {x, x};
    ASSERT_EQ(fit.run(), 0) << fit.message;
    EXPECT_NEAR(fit.test_p[0], t.p, 1e-12);
    EXPECT_EQ(fit.test_p[1], fit.test_p[0]);
  }
}

TEST(LcaCovariates, OneClassHasNothingToTest) {
  for (const bool computed : {true, false}) {
    lca_problem fit = with_covariates(100, 1, 15, 1.0);
    fit.want_tests = computed;
    fit.host_tests = !computed;
    fit.test_stat = fit.test_p = {7.0, 7.0};
    fit.run();
    verify_fit(fit);
    EXPECT_EQ(fit.test_status, (std::vector<std::int32_t>{-1, -1}));
    for (const double p : fit.test_p) EXPECT_TRUE(std::isnan(p));
    for (const double cell : fit.test_stat) EXPECT_TRUE(computed ? std::isnan(cell) : cell == 7.0);
  }
}

TEST(LcaCovariates, FailuresNameTheirCause) {
  const struct {
    const char* why;
    std::function<void(lca_problem&)> spoil;
    std::string part;
    int status;
  } cases[] = {
      {"a covariate that repeats the intercept",
       [](auto& p) { std::fill(p.cov.begin(), p.cov.begin() + p.nkase, 1.0); },
       "Could not fit logit model", -1},
      {"not a number", [](auto& p) { p.cov[3] = std::nan(""); }, "cov", 0},
      {"a start without end",
       [](auto& p) {
         p.start_given = true;
         p.gamma = {0.5, 0.5};
         p.rho.assign(32, 0.5);
         p.beta.assign(6, 0.0);
         p.beta[4] = std::numeric_limits<double>::infinity();
       },
       "One or more values in the beta array\r\nwas not a finite number.", 0},
      {"an equal gamma",
       [](auto& p) {
         p.gamma_restrictions = {2, 2};
       },
       "Gamma parameter equality restrictions are not allowed\r\n"
       "when covariates are specified in the model.",
       0},
      {"a fixed gamma",
       [](auto& p) {
         p.gamma_restrictions = {1, 0};
         p.gamma = {0.7, 0.3};
       },
       "Fixed (nonzero) gamma parameter restrictions are not allowed", 0},
      {"a reference class without cases",
       [](auto& p) {
         p.gamma_restrictions = {0, 1};
         p.gamma = {0.0, 1.0};
       },
       "Gamma of class 1 is fixed at zero in stratum (group) 1,\r\n"
       "but the regression needs it as its reference class.",
       0},
      {"no convergence without covariates",
       [](auto& p) {
         p.max_iter = 2;
         p.beta_prior = 1.0;
       },
       "No-covariates model for stabilization did not converge\r\nafter 2 iterations.", 0},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lca_problem fit = with_covariates(200, 2, 9, 0.5);
    fit.nstarts = 3;
    t.spoil(fit);
    EXPECT_EQ(fit.run(), -1);
    EXPECT_NE(fit.message.find(t.part), std::string::npos) << fit.message;
    if (t.status != 0) {
      EXPECT_EQ(fit.start_status, std::vector<std::int32_t>(3, t.status));
    }
  }
}

}  // namespace
}  // namespace tolvenra::test
