// Data augmentation of latent transition models: whole runs.
#include <gtest/gtest.h>

#include <cmath>

#include "support/da_problem.hpp"

namespace tolvenra::test {
namespace {

/// Three cases at two times, four responses each, two of them missing; two statuses.
lta_problem tiny_problem() {
  lta_problem data;
  data.nkase = 3;
  data.ni = 2;
  data.nt = 2;
  data.ns = 2;
  data.nrs = {2, 3};
  data.y = {1, 1, 2, 3, 0, 1, 1, 2, 2, 0, 2, 1};
  data.set_uniform_start();
  data.big_rho.assign(24, 0.0);
  for (int t = 1; t <= 2; ++t)
    for (int s = 1; s <= 2; ++s)
      for (int i = 1; i <= 2; ++i)
        for (int r = 1; r <= data.nrs[static_cast<std::size_t>(i - 1)]; ++r)
          data.big_rho[data.rho_cell(i, s, r, t, 1)] =
              1.0 / data.nrs[static_cast<std::size_t>(i - 1)];
  return data;
}

/// Status of a case at a time in sequences number z, all from 0.
std::size_t status_in(std::size_t z, int k, int t) { return z >> (2 * k + t) & 1U; }

/// Log probability of the responses given the statuses, Jeffreys' prior integrated out.
double log_responses(const lta_problem& data, std::size_t z) {
  double sum = 0.0;
  for (int i = 1; i <= data.ni; ++i)
    for (std::size_t s = 0; s < 2; ++s) {
      const auto categories = static_cast<std::size_t>(data.nrs[static_cast<std::size_t>(i - 1)]);
      std::vector<double> counts(categories, 0.0);
      for (int t = 0; t < 2; ++t) {
        for (int k = 0; k < data.nkase; ++k)
          if (status_in(z, k, t) == s && data.response(k + 1, i, t + 1) > 0)
            ++counts[static_cast<std::size_t>(data.response(k + 1, i, t + 1) - 1)];
        if (t == 0 && data.equal_time) continue;
        sum += log_dirichlet_multinomial(counts, std::vector<double>(categories, 0.5));
        counts.assign(categories, 0.0);
      }
    }
  return sum;
}

/// Posterior probabilities of all sequences. \param absorbing  nobody leaves status 2
std::vector<double> exact_posterior(const lta_problem& data, bool absorbing) {
  std::vector<double> p(64, 0.0);
  double total = 0.0;
  for (std::size_t z = 0; z < p.size(); ++z) {
    std::vector<double> begin(2, 0.0);
    std::vector<std::vector<double>> moves(2, std::vector<double>(2, 0.0));
    for (int k = 0; k < data.nkase; ++k) {
      ++begin[status_in(z, k, 0)];
      ++moves[status_in(z, k, 0)][status_in(z, k, 1)];
    }
    if (absorbing && moves[1][0] > 0.0) continue;
    const std::vector<double> half(2, 0.5);
    double log_p = log_responses(data, z) + log_dirichlet_multinomial(begin, half) +
                   log_dirichlet_multinomial(moves[0], half);
    if (!absorbing) log_p += log_dirichlet_multinomial(moves[1], half);
    total += p[z] = std::exp(log_p);
  }
  for (double& value : p) value /= total;
  return p;
}

TEST(StatusAugmentation, SequencesHaveTheExactPosteriorDistribution) {
  const struct {
    const char* why;
    bool equal_time, absorbing;
  } cases[] = {{"responses by time", false, false},
               {"the same at both times", true, false},
               {"status 2 is never left", true, true}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    lta_problem data = tiny_problem();
    data.equal_time = t.equal_time;
    if (t.absorbing) {
      data.tau = {0.5, 0.0, 0.5, 1.0};
      data.tau_restrictions = {1, 0, 1, 1};
    }
    da_problem da(data);
    da.options.imputations = 20000;
    da.options.spacing = 12;
    ASSERT_EQ(da.run(), 0) << lines_of(da.err).front();
    std::vector<double> observed(64, 0.0);
    for (int i = 1; i <= da.options.imputations; ++i) {
      std::size_t z = 0;
      for (int k = 0; k < 3; ++k)
        for (int time = 0; time < 2; ++time)
          z |= static_cast<std::size_t>(da.result.imputed_sta_save(k + 1, time + 1, i) - 1)
               << (2 * k + time);
      ++observed[z];
    }
    EXPECT_GT(tail_of_fit(observed, exact_posterior(data, t.absorbing)), 0.001);
    if (!t.absorbing) continue;
    EXPECT_EQ(da.result.tau.qbar(2, 1, 1, 1, 1), 0.0);
    EXPECT_EQ(da.result.tau.qbar(2, 2, 1, 1, 1), 1.0);
    EXPECT_EQ(da.result.status_label_tracking(1, 1, 1, 1, 77), 1);  // the statuses are told apart
  }
}

TEST(StatusAugmentation, EstimatesComeNearTheFitAndKeepItsEqualities) {
  lta_problem fit = simulate_lta(1200, {2, 2, 3, 2}, 3, 2, 11, 0.05, 0.05, 2);
  fit.equal_time = fit.equal_strata = true;
  fit.nstarts = 5;
  ASSERT_EQ(fit.run(), 0) << fit.message;
  const auto impute = [&](int threads) {
    da_problem da(fit);
    da.options.imputations = 10;
    da.options.max_threads = threads;
    EXPECT_EQ(da.run(), 0);
    return std::pair(std::move(da.result), std::move(da.ml));
  };
  const auto [result, ml] = impute(1);
  const auto [again, ml_again] = impute(2);
  EXPECT_EQ(result.big_rho.imp, again.big_rho.imp);
  EXPECT_EQ(result.siy_imp_save, again.siy_imp_save);
  EXPECT_EQ(ml.post_cls_sta, ml_again.post_cls_sta);
  const auto near = [](double estimate, double std_err, double ml_estimate) {
    EXPECT_NEAR(estimate, ml_estimate, 2.0 * std_err + 0.01);  // same data, other uncertainty
  };
  for (int g = 1; g <= 2; ++g)
    for (int s = 1; s <= 2; ++s) {
      near(result.delta.qbar(s, 1, g), result.delta.std_err(s, 1, g),
           fit.delta[fit.delta_cell(s, g)]);
      for (int k = 1; k <= 2; ++k)
        for (int d = 1; d <= 2; ++d)
          near(result.tau.qbar(s, d, k, 1, g), result.tau.std_err(s, d, k, 1, g),
               fit.tau[fit.tau_cell(s, d, k, g)]);
      for (int t = 1; t <= 3; ++t)
        for (int r = 1; r <= 3; ++r) {
          near(result.big_rho.qbar(3, s, r, t, 1, g), result.big_rho.std_err(3, s, r, t, 1, g),
               fit.big_rho[fit.rho_cell(3, s, r, t, g)]);
          EXPECT_EQ(result.big_rho.qbar(3, s, r, t, 1, g), result.big_rho.qbar(3, s, r, 1, 1, 1));
          EXPECT_EQ(result.logit_big_rho.hi_ci(3, s, r, t, 1, g),
                    result.logit_big_rho.hi_ci(3, s, r, 1, 1, 1));
        }
    }
  for (int t = 1; t <= 3; ++t)
    for (int i = 1; i <= 4; ++i)
      for (int k = 1; k <= fit.nkase; ++k) {
        const int drawn = result.siy_imp_save(k, i, t, 10);
        ASSERT_TRUE(drawn >= 1 && drawn <= fit.nrs[static_cast<std::size_t>(i - 1)]);
        if (fit.response(k, i, t) > 0) {
          ASSERT_EQ(drawn, fit.response(k, i, t));
        }
      }
  double sum = 0.0;  // of the posteriors of one row
  for (std::size_t q = 0; q < 6; ++q) sum += ml.post_cls_sta[q];
  EXPECT_NEAR(sum, 3.0, 1e-12);
}

TEST(StatusAugmentation, LabelsStayThoseOfTheStartingParametersAtEveryTime) {
  // Weak items with probabilities of their own at each time: labels exchange time by time.
  lta_problem shape = simulate_lta(120, {2, 2, 2}, 2, 2, 5);
  lta_truth truth{{0.5, 0.5}, {0.7, 0.3, 0.3, 0.7}, shape.big_rho};
  truth.big_rho.assign(24, 0.0);
  for (int t = 1; t <= 2; ++t)
    for (int s = 1; s <= 2; ++s)
      for (int i = 1; i <= 3; ++i) {
        truth.big_rho[shape.rho_cell(i, s, 1, t, 1)] = s == 1 ? 0.68 : 0.32;
        truth.big_rho[shape.rho_cell(i, s, 2, t, 1)] = s == 1 ? 0.32 : 0.68;
      }
  simulate_cases(shape, truth, 6);
  shape.delta = truth.delta;
  shape.tau = truth.tau;
  shape.big_rho = truth.big_rho;
  da_problem da(shape);
  da.options.imputations = 200;
  ASSERT_EQ(da.run(), 0);
  array<int32, 5> labels;
  ASSERT_EQ(estimation::get_status_label_tracking(da.result, labels, da.err), 0);
  int exchanged = 0;
  int apart = 0;  // at one time and not at the other
  double difference = 0.0;
  for (int i = 1; i <= 200; ++i) {
    exchanged += labels(1, 1, 1, 1, i) == 2 ? 1 : 0;
    apart += labels(1, 1, 1, 1, i) != labels(1, 2, 1, 1, i) ? 1 : 0;
    for (int k = 1; k <= 120; ++k)
      for (int t = 1; t <= 2; ++t)
        ASSERT_EQ(da.result.status_label_tracking_kase(k, t, i),
                  labels(da.result.imputed_sta_save(k, t, i), t, 1, 1, i));
  }
  for (int i = 1; i <= 3; ++i)
    for (int t = 1; t <= 2; ++t)
      difference +=
          (da.result.big_rho.qbar(i, 1, 1, t, 1, 1) - da.result.big_rho.qbar(i, 2, 1, t, 1, 1)) / 6;
  EXPECT_GT(exchanged, 10);
  EXPECT_GT(apart, 0);
  EXPECT_GT(difference, 0.15);
}

}  // namespace
}  // namespace tolvenra::test
