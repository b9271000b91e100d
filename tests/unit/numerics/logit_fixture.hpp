/// \file logit_fixture.hpp  Regressions that the tests of the logit model fit.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "numerics/logit_model.hpp"
#include "numerics/random_generator.hpp"

namespace tolvenra::logit_model::tests {

using strings = std::vector<std::string>;
inline constexpr double nan = std::numeric_limits<double>::quiet_NaN();
inline constexpr double inf = std::numeric_limits<double>::infinity();
inline const std::string here = "OCCURRED IN: run_logit_model_threads in MOD logit_model";

/// One regression: its data, and what a fit returned.
struct fit {
  array<double, 2> x, y, beta;
  array<double, 1> weight;
  bool weighted = false;
  array<int32, 1> grpvar;
  int32 group = 1, baseline = 1, slots = 1;
  std::optional<int32> max_iterations;
  logit_mt_workspace_type work;

  int32 status = 0, iterations = 0;
  bool converged = false;
  double loglik = 0.0;
  strings lines;

  void run() {
    error_type err;
    status =
        run_logit_model_threads(x, y, weighted ? &weight : nullptr, baseline, iterations, converged,
                                loglik, beta, grpvar, group, slots, max_iterations, work, err);
    lines = lines_of(err);
  }
};

/// Fractional outcomes that depend on the predictors; weights 0.2 to 3, three groups.
inline fit random_problem(int32 n, int32 p, int32 r, int32 baseline, int32 seed) {
  fit f;
  ran_state_type state;
  error_type err;
  random_generator::ran_setall(state, seed, 99, err);
  const auto uniform = [&](double low, double high) {
    double u = 0.0;
    random_generator::ran_genunf(state, low, high, u, err);
    return u;
  };
  f.x.allocate({n, p}, 1.0);
  f.y.allocate({n, r});
  f.beta.allocate({p, r});
  f.weight.allocate({n});
  f.grpvar.allocate({n});
  f.baseline = baseline;
  f.slots = slots_for(n, p, r);
  for (int32 i = 1; i <= n; ++i) {
    for (int32 j = 2; j <= p; ++j) f.x(i, j) = uniform(-1.0, 1.5);
    for (int32 k = 1; k <= r; ++k)
      f.y(i, k) = uniform(0.0, 1.0) * std::exp(0.4 * (k - 2) * f.x(i, p) - 0.3 * f.x(i, 1 + k % p));
    f.weight(i) = uniform(0.2, 3.0);
    f.grpvar(i) = 1 + i * 7 % 3;
  }
  return f;
}

}  // namespace tolvenra::logit_model::tests
