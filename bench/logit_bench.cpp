// Newton iterations of the multinomial regression, beside a plain textbook loop.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "numerics/logit_model.hpp"
#include "numerics/random_generator.hpp"

namespace {

using namespace tolvenra;

struct problem {
  array<double, 2> x, y;
  array<int32, 1> grpvar;
};

/// n rows, p columns with an intercept, r categories with fractional outcomes.
problem make_problem(int32 n, int32 p, int32 r) {
  problem made;
  made.x.allocate({n, p}, 1.0);
  made.y.allocate({n, r});
  made.grpvar.allocate({n}, 1);
  ran_state_type state;
  error_type err;
  random_generator::ran_setall(state, 1234, 5678, err);
  for (int32 i = 1; i <= n; ++i) {
    for (int32 j = 2; j <= p; ++j)
      random_generator::ran_genunf(state, -1.0, 1.0, made.x(i, j), err);
    double sum = 0.0;
    for (int32 k = 1; k <= r; ++k) {
      double u = 0.0;
      random_generator::ran_genunf(state, 0.01, 1.0, u, err);
      sum += made.y(i, k) = u * std::exp(0.3 * k * made.x(i, p));
    }
    for (int32 k = 1; k <= r; ++k) made.y(i, k) /= sum;
  }
  return made;
}

/// One fit of two iterations per round; the time per iteration is reported.
void newton_iteration(benchmark::State& state) {
  const auto n = static_cast<int32>(state.range(0)), p = static_cast<int32>(state.range(1)),
             r = static_cast<int32>(state.range(2));
  const problem data = make_problem(n, p, r);
  logit_mt_workspace_type work;
  work.threads = static_cast<int32>(state.range(3));
  const int32 slots = logit_model::slots_for(n, p, r);
  error_type err;
  for (auto _ : state) {
    array<double, 2> beta;
    beta.allocate({p, r});
    int32 iterations = 0;
    bool converged = false;
    double loglik = 0.0;
    if (logit_model::run_logit_model_threads(data.x, data.y, nullptr, r, iterations, converged,
                                             loglik, beta, data.grpvar, 1, slots, 2, work,
                                             err) != 0)
      state.SkipWithError("the fit failed");
    benchmark::DoNotOptimize(loglik);
  }
  state.counters["s/iteration"] = benchmark::Counter(
      2.0, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(newton_iteration)
    ->ArgNames({"rows", "columns", "categories", "threads"})
    ->Args({100000, 6, 4, 1})
    ->Args({100000, 6, 4, 2})
    ->Args({100000, 2, 2, 1})
    ->Args({20000, 20, 6, 1})
    ->Args({500, 3, 3, 1})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

/// The score and the information as they stand in a textbook, row by row over full matrices.
void textbook_iteration(benchmark::State& state) {
  const auto n = static_cast<int32>(state.range(0)), p = static_cast<int32>(state.range(1)),
             r = static_cast<int32>(state.range(2));
  const problem data = make_problem(n, p, r);
  const auto order = static_cast<std::size_t>(p * (r - 1));
  std::vector<double> score(order), hessian(order * order), beta(order),
      pi(static_cast<std::size_t>(r));
  const auto at = [p](int32 k, int32 j) { return static_cast<std::size_t>((k - 1) * p + j - 1); };
  for (auto _ : state) {
    std::fill(score.begin(), score.end(), 0.0);
    std::fill(hessian.begin(), hessian.end(), 0.0);
    for (int32 i = 1; i <= n; ++i) {
      double sum = 1.0;
      for (int32 k = 1; k < r; ++k) {
        double eta = 0.0;
        for (int32 j = 1; j <= p; ++j) eta += data.x(i, j) * beta[at(k, j)];
        sum += pi[static_cast<std::size_t>(k)] = std::exp(eta);
      }
      for (int32 k = 1; k < r; ++k) pi[static_cast<std::size_t>(k)] /= sum;
      for (int32 k = 1; k < r; ++k) {
        const double pk = pi[static_cast<std::size_t>(k)];
        for (int32 j = 1; j <= p; ++j) {
          score[at(k, j)] += data.x(i, j) * (data.y(i, k) - pk);
          for (int32 l = 1; l < r; ++l)
            for (int32 h = 1; h <= p; ++h)
              hessian[at(k, j) * order + at(l, h)] +=
                  data.x(i, j) * data.x(i, h) * pk *
                  ((k == l ? 1.0 : 0.0) - pi[static_cast<std::size_t>(l)]);
        }
      }
    }
    benchmark::DoNotOptimize(score.data());
    benchmark::DoNotOptimize(hessian.data());
  }
}
BENCHMARK(textbook_iteration)
    ->ArgNames({"rows", "columns", "categories"})
    ->Args({100000, 6, 4})
    ->Args({20000, 20, 6})
    ->Unit(benchmark::kMillisecond);

}  // namespace
