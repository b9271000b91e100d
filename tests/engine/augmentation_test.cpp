// Data augmentation of latent class models: whole runs.
#include "estimation/augmentation.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "api/augmentation.hpp"
#include "numerics/random_generator.hpp"
#include "support/allocations.hpp"
#include "support/da_problem.hpp"

namespace tolvenra::test {
namespace {

lca_problem fitted(lca_problem problem) {
  problem.nstarts = 5;
  EXPECT_EQ(problem.run(), 0) << problem.message;
  return problem;
}

/// Posterior probability of every assignment of the cases to two classes (bit k: case k + 1 is in
/// class 2), the parameters integrated out. A missing response drops out.
std::vector<double> exact_posterior(const lca_problem& data, const std::vector<double>& gamma_prior,
                                    double rho_prior) {
  std::vector<double> p(std::size_t{1} << data.nkase);
  double total = 0.0;
  for (std::size_t z = 0; z < p.size(); ++z) {
    std::vector<double> sizes(2, 0.0);
    for (int k = 0; k < data.nkase; ++k) ++sizes[z >> k & 1U];
    double log_p = log_dirichlet_multinomial(sizes, gamma_prior);
    for (unsigned c = 0; c < 2; ++c)
      for (int j = 1; j <= data.nci; ++j) {
        std::vector<double> counts(
            static_cast<std::size_t>(data.nrc[static_cast<std::size_t>(j - 1)]));
        for (int k = 1; k <= data.nkase; ++k)
          if ((z >> (k - 1) & 1U) == c && data.response(k, j) > 0)
            ++counts[static_cast<std::size_t>(data.response(k, j) - 1)];
        log_p += log_dirichlet_multinomial(counts, std::vector<double>(counts.size(), rho_prior));
      }
    total += p[z] = std::exp(log_p);
  }
  for (double& value : p) value /= total;
  return p;
}

TEST(Augmentation, ImputationsHaveTheExactPosteriorDistribution) {
  lca_problem data;
  data.nkase = 5;
  data.nci = 3;
  data.nc = 2;
  data.nrc = {2, 3, 2};
  data.y = {1, 1, 2, 0, 2, 3, 3, 1, 1, 2, 1, 2, 2, 0, 1};
  data.gamma = {0.5, 0.5};
  data.rho.assign(18, 0.0);
  for (int c = 1; c <= 2; ++c)
    for (int j = 1; j <= 3; ++j)
      for (int r = 1; r <= data.nrc[static_cast<std::size_t>(j - 1)]; ++r)
        data.rho_ref(j, c, r, 1) = 1.0 / data.nrc[static_cast<std::size_t>(j - 1)];
  for (const bool informative : {false, true}) {
    SCOPED_TRACE(informative);
    da_problem da(data);
    if (informative) {
      array<double, 2> prior;
      prior.allocate({2, 1});
      prior.flat = {0.75, 0.25};
      ASSERT_EQ(param::put_gamma_prior(prior, da.param, da.err), 0);
      ASSERT_EQ(param::put_gamma_prior_ess(vector_of<double>({4.0}), da.param, da.err), 0);
    }
    da.options.imputations = 20000;
    da.options.spacing = 12;
    ASSERT_EQ(da.run(), 0);
    const auto expected =
        exact_posterior(data, informative ? std::vector{3.0, 1.0} : std::vector{0.5, 0.5}, 0.5);
    std::vector<double> observed(expected.size(), 0.0);
    for (int i = 1; i <= da.options.imputations; ++i) {
      std::size_t z = 0;
      for (int k = 1; k <= data.nkase; ++k)
        z |= static_cast<std::size_t>(da.result.imputed_cls_save(k, i) - 1) << (k - 1);
      ++observed[z];
    }
    EXPECT_GT(tail_of_fit(observed, expected), 0.001);
  }
}

TEST(Augmentation, TheSameSeedGivesTheSameBitsAtAnyThreadCount) {
  const lca_problem fit = fitted(simulate(9000, std::vector<std::int32_t>(12, 3), 5, 7, 0.05));
  const auto impute = [&](int threads, int seed) {
    da_problem da(fit);
    da.options = {.seed = seed,
                  .imputations = 3,
                  .burn_in = 2,
                  .spacing = 2,
                  .max_threads = threads,
                  .watch = {}};
    EXPECT_EQ(da.run(), 0);
    return std::pair(std::move(da.result), std::move(da.param));
  };
  const auto [one, one_param] = impute(1, 4);
  const auto [two, two_param] = impute(2, 4);
  const auto [other, other_param] = impute(1, 5);
  EXPECT_EQ(one.rho.imp, two.rho.imp);
  EXPECT_EQ(one.logit_gamma.hi_ci, two.logit_gamma.hi_ci);
  EXPECT_EQ(one.imputed_cls_save, two.imputed_cls_save);
  EXPECT_EQ(one.ciy_imp_save, two.ciy_imp_save);
  EXPECT_EQ(one_param, two_param);
  EXPECT_NE(one.rho.imp, other.rho.imp);
}

TEST(Augmentation, FrequenciesStandForSubjectsAndWeightsForTheirInformation) {
  lca_problem table = fitted(example("carcinoma.csv", 2));
  lca_problem cases = table;
  cases.freq.clear();
  cases.y.clear();
  cases.nkase = 0;
  for (const double f : table.freq) cases.nkase += static_cast<int>(f);
  for (int j = 1; j <= table.nci; ++j)
    for (int k = 1; k <= table.nkase; ++k)
      cases.y.insert(cases.y.end(),
                     static_cast<std::size_t>(table.freq[static_cast<std::size_t>(k - 1)]),
                     table.response(k, j));
  const auto impute = [](const lca_problem& fit) {
    da_problem da(fit);
    da.options.imputations = 4;
    EXPECT_EQ(da.run(), 0);
    return std::move(da.result);
  };
  const daresult by_table = impute(table);
  const daresult by_case = impute(cases);
  EXPECT_EQ(by_table.imputed_cls_save, by_case.imputed_cls_save);
  EXPECT_EQ(by_table.rho.imp, by_case.rho.imp);
  std::vector<int32> kase;
  for (int k = 1; k <= table.nkase; ++k)
    kase.insert(kase.end(), static_cast<std::size_t>(table.freq[static_cast<std::size_t>(k - 1)]),
                k);
  EXPECT_EQ(by_table.kase_of_subject.flat, kase);

  lca_problem weighted = cases;
  for (int k = 1; k <= cases.nkase; ++k) weighted.weight.push_back(1 + k % 2);
  lca_problem scaled = weighted;
  for (double& w : scaled.weight) w *= 8.0;
  const daresult light = impute(weighted);
  const daresult heavy = impute(scaled);
  EXPECT_EQ(light.gamma.imp, heavy.gamma.imp);
  double sum = 0.0, squares = 0.0;
  for (const double w : weighted.weight) {
    sum += w;
    squares += w * w;
  }
  EXPECT_NEAR(light.gamma.eff_n(1, 1), sum * sum / squares + 1.0, 1e-9);  // two classes of 1/2
}

TEST(Augmentation, MissingResponsesAreFilledInAndObservedOnesKept) {
  const lca_problem fit = fitted(simulate(400, {2, 3, 4, 2}, 2, 21, 0.15));
  da_problem da(fit);
  da.options.imputations = 40;
  ASSERT_EQ(da.run(), 0);
  std::map<int, double> filled, predicted;  // item 2: share of each category among the filled
  double total = 0.0;
  for (int i = 1; i <= 40; ++i)
    for (int k = 1; k <= fit.nkase; ++k)
      for (int j = 1; j <= fit.nci; ++j) {
        const int drawn = da.result.ciy_imp_save(k, j, i);
        ASSERT_TRUE(drawn >= 1 && drawn <= fit.nrc[static_cast<std::size_t>(j - 1)]);
        if (fit.response(k, j) > 0) {
          ASSERT_EQ(drawn, fit.response(k, j));
          continue;
        }
        if (j != 2) continue;
        ++filled[drawn];
        ++total;
        for (int c = 1; c <= 2; ++c)
          for (int r = 1; r <= 3; ++r)
            predicted[r] += fit.post_cls[static_cast<std::size_t>(k - 1 + (c - 1) * fit.nkase)] *
                            fit.rho_at(2, c, r, 1);
      }
  for (int r = 1; r <= 3; ++r) EXPECT_NEAR(filled[r] / total, predicted[r] / total, 0.06);
}

/// Two classes of the same size that weak items hardly tell apart, the parameters at the truth.
lca_problem weak_problem(double difference) {
  lca_problem problem;
  problem.nkase = 150;
  problem.nci = 4;
  problem.nc = 2;
  problem.nrc = {2, 2, 2, 2};
  problem.y.assign(600, 0);
  problem.gamma = {0.5, 0.5};
  problem.rho.assign(16, 0.0);
  const auto yes = [&](int c) { return 0.5 + (c == 1 ? difference : -difference) / 2; };
  for (int j = 1; j <= 4; ++j)
    for (int c = 1; c <= 2; ++c) {
      problem.rho_ref(j, c, 1, 1) = yes(c);
      problem.rho_ref(j, c, 2, 1) = 1.0 - yes(c);
    }
  ran_state_type state;
  error_type err;
  random_generator::ran_setall(state, 31, 32, err);
  for (int k = 1; k <= problem.nkase; ++k)
    for (int j = 1; j <= 4; ++j) {
      double u = 0.0;
      random_generator::unit_uniform(state, u, err);
      problem.set_response(k, j, u < yes(1 + k % 2) ? 1 : 2);
    }
  return problem;
}

TEST(Augmentation, LabelsStayThoseOfTheStartingParameters) {
  const lca_problem problem = weak_problem(0.3);
  da_problem da(problem);
  da.options.imputations = 200;
  ASSERT_EQ(da.run(), 0);
  array<int32, 3> labels;
  ASSERT_EQ(estimation::get_class_label_tracking(da.result, labels, da.err), 0);
  std::vector<double> first;  // probability of class 1 at the starting parameters
  for (int k = 1; k <= problem.nkase; ++k) {
    double p[] = {0.5, 0.5};
    for (int j = 1; j <= 4; ++j)
      for (int c = 1; c <= 2; ++c) p[c - 1] *= problem.rho_at(j, c, problem.response(k, j), 1);
    first.push_back(p[0] / (p[0] + p[1]));
  }
  const auto agreement = [&](const array<int32, 2>& drawn, int i) {
    double sum = 0.0;
    for (int k = 1; k <= problem.nkase; ++k) {
      const double p = first[static_cast<std::size_t>(k - 1)];
      sum += drawn(k, i) == 1 ? p : 1.0 - p;
    }
    return sum / problem.nkase;
  };
  int exchanged = 0;
  for (int i = 1; i <= 200; ++i) {
    const bool moved = labels(1, 1, i) == 2;
    exchanged += moved ? 1 : 0;
    EXPECT_GE(agreement(da.result.class_label_tracking_kase, i), 0.5);
    EXPECT_EQ(agreement(da.result.imputed_cls_save, i) < 0.5, moved);
  }
  // The chain does exchange them, and mixed up the two classes would agree in their estimates.
  EXPECT_GT(exchanged, 20);
  EXPECT_LT(exchanged, 180);
  double difference = 0.0;
  for (int j = 1; j <= 4; ++j)
    difference += (da.result.rho.qbar(j, 1, 1, 1) - da.result.rho.qbar(j, 2, 1, 1)) / 4;
  EXPECT_GT(difference, 0.15);
}

TEST(Augmentation, RestrictionsHoldAndTellLabelsApart) {
  lca_problem problem = simulate(300, {2, 2, 2, 2}, 2, 41);
  problem.rho.assign(16, 0.5);
  problem.gamma = {0.5, 0.5};
  problem.rho_restrictions.assign(16, 1);
  const auto at = [](int j, int c, int r) {
    return static_cast<std::size_t>(j - 1 + 4 * (c - 1 + 2 * (r - 1)));
  };
  problem.rho[at(1, 1, 1)] = 0.9;  // fixed
  problem.rho[at(1, 1, 2)] = 0.1;
  problem.rho_restrictions[at(1, 1, 1)] = 0;
  problem.rho[at(4, 1, 1)] = 1.0;
  problem.rho[at(4, 1, 2)] = 0.0;
  problem.rho_restrictions[at(4, 1, 1)] = 0;
  for (int r = 1; r <= 2; ++r)  // items 2 and 3 alike in class 2
    for (int j = 2; j <= 3; ++j) problem.rho_restrictions[at(j, 2, r)] = 1 + r;
  const lca_problem fit = fitted(problem);
  da_problem da(fit);
  da.options.imputations = 10;
  ASSERT_EQ(da.run(), 0);
  for (int i = 1; i <= 10; ++i) {
    EXPECT_EQ(da.result.rho.imp(1, 1, 1, 1, i), 0.9);
    EXPECT_EQ(da.result.rho.imp(2, 2, 1, 1, i), da.result.rho.imp(3, 2, 1, 1, i));
    EXPECT_EQ(da.result.class_label_tracking(1, 1, i), 1);
  }
  for (const int item : {1, 4})  // what is fixed, or left by it, has a value and nothing else
    for (const int category : {1, 2})
      for (const daparam<4>* scale : {&da.result.rho, &da.result.logit_rho}) {
        EXPECT_EQ(scale->qbar(item, 1, category, 1), scale->imp(item, 1, category, 1, 1));
        for (const array<double, 4>* none :
             {&scale->std_err, &scale->df, &scale->lo_ci, &scale->hi_ci})
          EXPECT_TRUE(std::isnan((*none)(item, 1, category, 1))) << item << category;
      }
  EXPECT_EQ(da.result.logit_rho.qbar(4, 1, 1, 1), INFINITY);
  EXPECT_GT(da.result.logit_rho.std_err(4, 2, 1, 1), 0.0);
  EXPECT_EQ(da.param.rho(1, 1, 1, 1), 0.9);
  EXPECT_NEAR(da.param.rho(2, 2, 1, 1), da.param.rho(3, 2, 1, 1), 1e-15);
}

TEST(Augmentation, RefusesWhatItCannotDoAndLeavesTheParametersAlone) {
  const lca_problem fit = fitted(simulate(100, {2, 2, 2}, 2, 51));
  const struct {
    const char* why;
    void (*change)(da_problem&);
    std::vector<std::string> lines;
  } cases[] = {
      {"no imputation",
       [](da_problem& da) { da.options.imputations = 0; },
       {"The number of imputations must be positive."}},
      {"spacing",
       [](da_problem& da) { da.options.spacing = 0; },
       {"The number of cycles between imputations must be positive."}},
      {"fractional frequencies",
       [](da_problem& da) {
         array<double, 1> freq;
         freq.allocate({100}, 1.5);
         ASSERT_EQ(dataset::put_freq(freq, da.dataset, da.err), 0);
       },
       {"Frequencies that are not whole numbers are not supported", "by data augmentation."}},
      {"a seed out of range",
       [](da_problem& da) { da.options.seed = 0; },
       {"Seed must be 1 or greater.", "OCCURRED IN: ran_setall in MOD random_generator",
        "Error initializing random number generator."}},
      {"equality without a closed form",
       [](da_problem& da) {
         array<int32, 4> codes = da.param.rho_restrictions;
         codes(1, 1, 1, 1) = codes(2, 1, 2, 1) = codes(3, 2, 1, 1) = 2;
         codes(1, 2, 1, 1) = codes(2, 2, 1, 1) = codes(2, 1, 1, 1) = 3;
         ASSERT_EQ(param::put_rho_restrictions(codes, da.param, da.err), 0);
       },
       {"This pattern of equality restrictions is not supported", "by data augmentation."}},
      {"no cases",
       [](da_problem& da) { da.dataset = {}; },
       {"Could not transfer work%y.", "OCCURRED IN: put_dataset in MOD estimation",
        "Failed to load dataset into workspace."}},
      {"strata never counted",
       [](da_problem& da) { da.dataset.nstr = 0; },
       {"The number of strata of the dataset has not been specified.",
        "Use put_nstr before put_dataset.", "OCCURRED IN: put_dataset in MOD estimation",
        "Failed to load dataset into workspace."}},
      {"no class",
       [](da_problem& da) { da.model.nc = 0; },
       {"The dataset has class items, but the number of latent",
        "classes of the model is 0. There must be at least 1.",
        "OCCURRED IN: put_model in MOD estimation", "Failed to load model into workspace."}},
      {"an impossible case",
       [](da_problem& da) {
         for (int32 c = 1; c <= 2; ++c) {
           da.param.rho(1, c, 1, 1) = 0.0;
           da.param.rho(1, c, 2, 1) = 1.0;
         }
       },
       {"Attempted division by zero", "post_denom", "OCCURRED IN: estep in MOD estimation",
        "E-step for LTA failed at iteration 1"}},
      {"cancelled",
       [](da_problem& da) {
         da.options.watch.cancelled = [](void*, const em_state& state) { return state.iter == 7; };
       },
       {"The run was cancelled by the host."}},
      {"another number of classes",
       [](da_problem& da) { da.model.nc = 3; },
       {"Unable to load parameter set into workspace;",
        "the number of classes does not match that of the ", "model previously supplied.",
        "OCCURRED IN: put_param in MOD estimation", "Failed to load parameters into workspace."}},
  };
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    da_problem da(fit);
    t.change(da);
    const param_type before = da.param;
    EXPECT_EQ(da.run(), -1);
    std::vector<std::string> lines = t.lines;
    for (std::string& line : lines) line = line.substr(0, line.find_last_not_of(' ') + 1);
    lines.push_back("OCCURRED IN: run_da_procedure in MOD estimation");
    std::vector<std::string> found = lines_of(da.err);
    EXPECT_EQ(found, lines);
    EXPECT_EQ(da.param, before);
    EXPECT_FALSE(da.result.obtained || da.result.gamma.imp.allocated);
  }
}

TEST(Augmentation, LackOfMemoryEndsTheCallWhereverItComes) {
  if (!heap_is_watched) GTEST_SKIP();
  lta_problem shape = simulate_lta(20, {2, 3}, 2, 2, 61, 0.0, 0.2);
  shape.set_uniform_start();
  ASSERT_EQ(shape.run(), 0) << shape.message;
  shape.random = false;
  int failures = 0;
  for (long n = 0;; ++n) {
    lta_problem tried = shape;
    const api::lta_call call = tried.prepare();
    api::imputation_answer answer;
    fail_after(n);
    const int status = api::impute_lta(call, {2, 1, 1, 1}, answer);
    fail_after(-1);
    if (status == 0) {
      EXPECT_EQ(answer.status.size(), 2U * 2U * 20U);
      EXPECT_EQ(answer.responses.size(), 2U * 4U * 20U);
      break;
    }
    ++failures;
    ASSERT_TRUE(answer.row_of_subject.empty()) << "after " << n << " allocations";
    ASSERT_LT(n, 100000);
  }
  EXPECT_GT(failures, 300);
}

TEST(Augmentation, IntervalsCoverTheTruth) {
  coverage_study study;
  da_options options;
  options.burn_in = 50;
  options.spacing = 10;
  for (unsigned seed = 1001; seed <= 1060; ++seed) study.add(seed, options);
  // 60 sets: the standard error of a mean over the twelve probabilities is about 1.5 %.
  EXPECT_GT(study.mean_rho(false), 0.855);
  EXPECT_LT(study.mean_rho(false), 0.945);
  EXPECT_GT(study.mean_rho(true), 0.855);
  EXPECT_LT(study.mean_rho(true), 0.945);
}

}  // namespace
}  // namespace tolvenra::test
