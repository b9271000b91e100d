// Latent class fits with covariates and under restrictions.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

#include "lca_run.hpp"

namespace {

using tolvenra::bench::problem;

/// 20 starts, 3 classes, 8 items, 2,000 cases, two continuous covariates.
void fit_covariates(benchmark::State& state) {
  problem p(2000, 8, 2, 3);
  p.covariates = 2;
  std::mt19937_64 engine(5);
  for (int i = 0; i < 2 * p.n; ++i)
    p.cov.push_back(static_cast<double>(engine() >> 11) * 0x1.0p-53 - 0.5);
  int iterations = 0;
  for (auto _ : state) iterations = p.run(20, 1e-6, 10000, static_cast<int>(state.range(0)));
  state.counters["iterations"] = iterations;
}
BENCHMARK(fit_covariates)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// 300 iterations of one start; with restrictions the first two items have equal probabilities in
/// all classes and the last item mirrors the one before it, which takes Newton steps in every
/// M-step.
void fit_restricted(benchmark::State& state) {
  problem p(2000, 10, 3, 4);
  const auto at = [&](int j, int c, int r) {
    return static_cast<std::size_t>(j + p.items * (c + p.classes * r));
  };
  if (state.range(0) == 1) {
    p.rho_restrictions.assign(at(p.items - 1, p.classes - 1, p.categories - 1) + 1, 1);
    for (int c = 0; c < p.classes; ++c) {
      for (int r = 0; r < p.categories; ++r)
        for (int j = 0; j < 2; ++j) p.rho_restrictions[at(j, c, r)] = 2 + r + 10 * c;
      for (const std::size_t cell : {at(8, c, 0), at(8, c, 1), at(9, c, 2)})
        p.rho_restrictions[cell] = 100 + c;
    }
  }
  for (auto _ : state) p.run(1, 1e-300, 300, 1);
}
BENCHMARK(fit_restricted)
    ->ArgName("restricted")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// 60 items of 3 categories, 8 classes, 30 iterations of one start; with restrictions the first
/// category has one probability in all 480 rows, and a fixed value in one of them leaves no closed
/// form.
void fit_one_group(benchmark::State& state) {
  problem p(1000, 60, 3, 8);
  const auto cells = static_cast<std::size_t>(p.items * p.classes);  // of one category
  if (state.range(0) == 1) {
    p.rho_restrictions.assign(3 * cells, 1);
    std::fill_n(p.rho_restrictions.begin(), cells, 2);
    p.rho_restrictions[cells] = 0;
    p.fixed_rho.assign(cells + 1, 0.2);
  }
  for (auto _ : state) p.run(1, 1e-300, 30, 1);
}
BENCHMARK(fit_one_group)
    ->ArgName("restricted")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
