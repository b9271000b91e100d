// Whole latent class fits through the driver, sizes S, M and L.
//
// L reports seconds per iteration (a run of 60 iterations less one of 10, divided by 50) and the
// memory a run adds, as a multiple of the host's response matrix.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>

#include "lca_run.hpp"

namespace {

using tolvenra::bench::problem;

void fit_s(benchmark::State& state) {
  const problem p(1000, 10, 2, 4);
  int iterations = 0;
  for (auto _ : state) iterations = p.run(20, 1e-6, 10000, static_cast<int>(state.range(0)));
  state.counters["iterations"] = iterations;
}
BENCHMARK(fit_s)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void fit_m(benchmark::State& state) {
  const problem p(100000, 12, 2, 5);
  for (auto _ : state) p.run(1, 1e-300, 200, static_cast<int>(state.range(0)));
}
BENCHMARK(fit_m)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

double seconds(const problem& p, int iterations, int threads) {
  const auto begin = std::chrono::steady_clock::now();
  p.run(1, 1e-300, iterations, threads);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double peak_bytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

void fit_l(benchmark::State& state) {
  const problem p(1000000, 20, 4, 6);
  const double matrix = static_cast<double>(p.y.size()) * sizeof(std::int32_t);
  const double before = peak_bytes();
  const int threads = static_cast<int>(state.range(0));
  for (auto _ : state) {
    const double shorter = seconds(p, 10, threads);
    const double longer = seconds(p, 60, threads);
    state.SetIterationTime((longer - shorter) / 50);
    state.counters["whole_60_s"] = longer;
  }
  state.counters["added_memory_ratio"] = (peak_bytes() - before) / matrix;
}
BENCHMARK(fit_l)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(2);

}  // namespace
