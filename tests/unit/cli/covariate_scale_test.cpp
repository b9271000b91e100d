// Covariates in any units give one answer, and reports on regressions are told in the user's words.
#include "covariate_scale.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "lca_answer.hpp"
#include "lca_run.hpp"
#include "plain_report.hpp"

namespace tolvenra::cli {
namespace {

/// Two classes of five items whose shares depend on x; the column holds origin + unit * x.
std::string survey(double origin, double unit) {
  std::mt19937_64 engine(3);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  std::string text = "A,B,C,D,E,x\n";
  for (int k = 0; k < 400; ++k) {
    const double x = std::floor(20.0 * uniform()) / 4.0 - 2.0;
    const bool high = uniform() < 1.0 / (1.0 + std::exp(-0.8 * x));
    for (int j = 0; j < 5; ++j) text += uniform() < (high ? 0.85 : 0.2) ? "1," : "2,";
    char number[40];
    std::snprintf(number, sizeof number, "%.17g\n", origin + unit * x);
    text += number;
  }
  return text;
}

struct fitted {
  lca_fit fit;
  lca_answer answer;
};

fitted fit_with(double origin, double unit) {
  lca_options options;
  options.items = {"A-E"};
  options.covariates = {"x"};
  options.classes = 2;
  options.starts = 5;
  const lca_data data = prepare_lca(parse_table(survey(origin, unit), "survey"), options);
  fitted made{run_lca(data, options, nullptr), {}};
  made.answer = make_lca_answer(data, options, made.fit);
  return made;
}

TEST(CovariateScale, AnswersDoNotDependOnUnits) {
  const fitted plain = fit_with(0.0, 1.0);
  const fitted far = fit_with(2.02e7, 3e3);
  EXPECT_TRUE(far.answer.converged);
  EXPECT_LT(far.answer.iterations, 2 * plain.answer.iterations);
  EXPECT_NEAR(far.answer.figures.loglik, plain.answer.figures.loglik, 1e-6);
  for (const auto& [origin, unit] : {std::pair{-4e5, 2.0}, {0.0, 1e-6}, {1e9, 1e6}}) {
    SCOPED_TRACE(origin);
    const fitted other = fit_with(origin, unit);
    // One fit in scaled units: what differs is the rounding of x, 1e-10 of its spread at most.
    const double slope = far.answer.beta[0][1][1] * 3e3;
    EXPECT_NEAR(other.answer.beta[0][1][1] * unit, slope, 1e-8 * std::abs(slope));
    EXPECT_NEAR(slope, plain.answer.beta[0][1][1], 1e-4);  // the criterion is 1e-6
    const uncertainty& known = other.answer.errors->beta[0][1][1];
    EXPECT_NEAR(known.se * unit, far.answer.errors->beta[0][1][1].se * 3e3, 1e-8);
    EXPECT_NEAR(known.se * unit, plain.answer.errors->beta[0][1][1].se, 1e-4);
    const double at_zero = other.answer.beta[0][1][0] + origin * other.answer.beta[0][1][1];
    EXPECT_NEAR(at_zero, plain.answer.beta[0][1][0], 1e-4);
  }
}

TEST(CovariateScale, CovariancesAreCarriedBackByTheSameMap) {
  const std::vector<column_scale> scales{{2e7, 3e3}, {0.0, 1.0}, {-5.0, 1e-4}};
  const std::size_t p = 4, order = 8;
  const double a[4][4] = {
      {1, -2e7 / 3e3, 0, 5 / 1e-4}, {0, 1 / 3e3, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1 / 1e-4}};
  std::vector<double> v(order * order);
  for (std::size_t i = 0; i < order; ++i)
    for (std::size_t j = 0; j < order; ++j)
      v[i + order * j] = i == j ? 2.0 : 1.0 / (1.0 + static_cast<double>(i + j));
  std::vector<double> carried = v;
  covariance_to_user(scales, order, carried);
  for (std::size_t i = 0; i < order; ++i)
    for (std::size_t j = 0; j < order; ++j) {
      double sum = 0.0;
      double size = 0.0;  // of what is added up
      for (std::size_t k = 0; k < p; ++k)
        for (std::size_t l = 0; l < p; ++l) {
          const double part =
              a[i % p][k] * v[i / p * p + k + order * (j / p * p + l)] * a[j % p][l];
          sum += part;
          size += std::abs(part);
        }
      EXPECT_NEAR(carried[i + order * j], sum, 1e-9 * size);
    }
  std::vector<double> b{0.5, 1e-3, -2.0, 7.0};
  const std::vector<double> given = b;
  to_engine(scales, b.data());
  to_user(scales, b.data());
  for (std::size_t q = 0; q < p; ++q) EXPECT_NEAR(b[q], given[q], 1e-9 * std::abs(given[q]));
}

TEST(CovariateScale, OrdinaryColumnsKeepTheirDigits) {
  case_data data;
  data.covariates = {{"age", {20, 30, 80}},
                     {"dummy", {0, 1, 0}},
                     {"constant", {7, 7, 7}},
                     {"year", {1990, 1991, 1992}},
                     {"income", {1e4, 3e4, 9e4}}};
  const auto scales = covariate_scales(data);
  const bool changed[] = {false, false, false, true, true};
  for (std::size_t v = 0; v < scales.size(); ++v)
    EXPECT_EQ(scales[v].mean != 0.0 || scales[v].spread != 1.0, changed[v]) << v;
  EXPECT_EQ(scaled_matrix(data, scales)[2], 80.0);
}

TEST(PlainReport, SaysWhatWhereAndWhatHelpsThatHasNotBeenTried) {
  const report_terms classes{"--prior-beta", false, "age and sex", {}, {"north", "south"}, {}};
  report_terms statuses{"--prior-strength", true, "female", "friends", {}, {"y1", "y2", "y3"}};
  const char* of_class =
      "Logit model did not converge after 5\r\n attempts.\r\nCould not fit logit "
      "model. We suggest\r\nusing the BETA PRIOR statement.\r\nGroup: 2\r\n";
  const char* of_move =
      "Could not fit logit model.  The problem occurred in:\r\nGroup: 1; class: 1; "
      "transition: 2; row: 3\r\nOCCURRED IN: mstep_tau_beta in MOD estimation";
  const char* of_start = "Could not fit logit model. The problem occured in\r\nGroup: 1; class: 1";
  const char* of_stabilising =
      "rtmp_denom\r\nOCCURRED IN: mstep_rho in MOD estimation\r\nNOTE: the "
      "above error occurred during the initial\r\n      model run to obtain "
      "stablizing priors.";
  EXPECT_EQ(plain_report(of_class, classes),
            "The regression of class membership on age and sex in group \"south\" could not be "
            "fitted. A prior keeps its coefficients finite: --prior-beta 1.");
  EXPECT_EQ(plain_report(of_move, statuses),
            "The regression of the move from status 3 at time y2 on friends could not be fitted. "
            "Leave a covariate out, or ask for fewer classes or statuses.");
  EXPECT_EQ(
      plain_report(of_start, statuses).find("The regression of the status at time y1 on female"),
      0U);
  EXPECT_EQ(plain_report(of_stabilising, statuses),
            "The prior of the coefficients (--prior-strength) comes from the model without "
            "covariates, which could not be fitted:\nrtmp_denom\r\nOCCURRED IN: mstep_rho in MOD "
            "estimation");
  EXPECT_EQ(plain_report("post_denom", classes), "post_denom");
}

}  // namespace
}  // namespace tolvenra::cli
