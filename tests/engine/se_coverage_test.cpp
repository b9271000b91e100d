// Intervals of simulated data cover the truth as often as they should; the study with 500 data sets
// of each design is in bench/studies.
#include "support/se_coverage.hpp"

#include <gtest/gtest.h>

namespace tolvenra::test {
namespace {

constexpr int sets = 60;  // a mean over 30 response probabilities then has an error of about 0.7 %

se_coverage study(coverage_design design, bool respect_clusters) {
  se_coverage of_design;
  for (unsigned seed = 501; seed < 501 + sets; ++seed)
    of_design.add(design, seed, respect_clusters);
  EXPECT_EQ(of_design.failed, 0);
  return of_design;
}

TEST(StandardErrorCoverage, IntervalsCoverAndThoseThatIgnoreClustersDoNot) {
  const se_coverage covariates = study(coverage_design::covariates, false);
  EXPECT_NEAR(covariates.rho.mean(sets), 0.95, 0.03);
  EXPECT_NEAR(covariates.beta.mean(sets), 0.95, 0.05);
  const se_coverage respected = study(coverage_design::clusters, true);
  EXPECT_NEAR(respected.rho.mean(sets), 0.95, 0.03);
  EXPECT_GE(respected.gamma.mean(sets), 0.88);
  const se_coverage ignored = study(coverage_design::clusters, false);
  EXPECT_LE(ignored.rho.mean(sets), 0.92);
  EXPECT_LE(ignored.gamma.mean(sets), 0.88);
}

}  // namespace
}  // namespace tolvenra::test
