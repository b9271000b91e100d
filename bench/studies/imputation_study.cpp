// Do the 90 % intervals of data augmentation cover? 300 data sets of 500 cases, two classes and six
// dichotomous items, seeds 1 to 300 for the data and the chains, 20 imputations of the default
// burn-in and spacing. Ends with status 1 when a kind of parameter is covered outside 87 % to 93 %
// on average, or a single one outside 84 % to 96 %. Then 200 data sets of latent statuses, seeds 1
// to 200: transitions and responses are held to the averages, the single start share to the wider
// bounds.
#include <algorithm>
#include <cstdio>

#include "support/da_problem.hpp"

int main() {
  using tolvenra::test::coverage_study;
  coverage_study study;
  for (unsigned seed = 1; seed <= 300; ++seed) study.add(seed, {});
  const auto share = [&](int covered) { return 100.0 * covered / study.sets; };
  bool good = true;
  const auto kind = [&](const char* name, bool logit, int gamma, const auto& rho) {
    double least = 100.0;
    double most = 0.0;
    for (const auto& of_class : rho)
      for (const int covered : of_class) {
        least = std::min(least, share(covered));
        most = std::max(most, share(covered));
      }
    const double mean = 100.0 * study.mean_rho(logit);
    std::printf("%-12s gamma %.1f %%  rho %.1f %% on average, %.1f %% to %.1f %%\n", name,
                share(gamma), mean, least, most);
    for (const double average : {share(gamma), mean})
      good = good && average >= 87.0 && average <= 93.0;
    good = good && least >= 84.0 && most <= 96.0;
  };
  std::printf("%d data sets\n", study.sets);
  kind("probability", false, study.gamma_covered, study.rho_covered);
  kind("logit", true, study.logit_gamma_covered, study.logit_rho_covered);
  tolvenra::test::status_coverage_study statuses;
  for (unsigned seed = 1; seed <= 200; ++seed) statuses.add(seed, {});
  std::printf("%d data sets of latent statuses\n", statuses.sets);
  for (const bool logit : {false, true}) {
    const double means[] = {100.0 * statuses.mean(logit, 0, 1), 100.0 * statuses.mean(logit, 1, 5),
                            100.0 * statuses.mean(logit, 5, 13)};
    std::printf("%-12s delta %.1f %%  tau %.1f %%  rho %.1f %%\n", logit ? "logit" : "probability",
                means[0], means[1], means[2]);
    good = good && means[0] >= 84.0 && means[0] <= 96.0;
    for (const int family : {1, 2}) good = good && means[family] >= 87.0 && means[family] <= 93.0;
  }
  return good ? 0 : 1;
}
