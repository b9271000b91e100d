/// \file mcar_data.hpp  Simulation of the test of "missing completely at random": data in which it
/// holds.
#pragma once

#include <cmath>
#include <random>

#include "support/lca_problem.hpp"

namespace tolvenra::test {

/// What a number of data sets had to say.
struct mcar_summary {
  int sets = 0, df = 0;
  int rejected = 0;             ///< at the 5 % level
  double mean = 0.0;            ///< of the statistic
  double standard_error = 0.0;  ///< of the mean, from the chi-square distribution
};

/// 1000 cases of two classes on three dichotomous items; the first two items are each missing with
/// probability 0.2, whatever the responses. No expected count is below 5.
inline lca_problem mcar_data(unsigned seed) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  lca_problem problem;
  problem.nkase = 1000;
  problem.nci = 3;
  problem.nrc = {2, 2, 2};
  problem.y.assign(3000, 0);
  for (int k = 1; k <= problem.nkase; ++k) {
    const double yes = uniform() < 0.5 ? 0.75 : 0.3;
    for (int j = 1; j <= 3; ++j) {
      const int response = uniform() < yes ? 1 : 2;
      const bool missing = uniform() < 0.2 && j < 3;
      problem.set_response(k, j, missing ? 0 : response);
    }
  }
  return problem;
}

/// Data sets with the seeds first, first + 1, ...
inline mcar_summary study_mcar(int sets, unsigned first) {
  mcar_summary study;
  study.sets = sets;
  for (int s = 0; s < sets; ++s) {
    lca_problem fit = mcar_data(first + static_cast<unsigned>(s));
    fit.run();
    study.df = fit.cat_df;
    study.mean += fit.cat_g2 / sets;
    study.rejected += fit.fit_extra[5] < 0.05 ? 1 : 0;
  }
  study.standard_error = std::sqrt(2.0 * study.df / sets);
  return study;
}

}  // namespace tolvenra::test
