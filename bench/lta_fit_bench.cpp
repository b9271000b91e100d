// Latent transition fits through the driver: seconds per EM iteration.
//
// Each figure is a run of 60 iterations less one of 10, divided by 50. `fit_lta` are the two sizes
// of docs/benchmarks.md; `by_times` and `by_statuses` show how the time grows.
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "api/exports.hpp"
#include "api/generated/call_records.hpp"

namespace {

struct transition_problem {
  int n, items, times, statuses;
  std::vector<std::int32_t> nrs, y;

  /// Movers and stayers with strong binary items.
  transition_problem(int cases, int nitems, int ntimes, int nstatuses)
      : n(cases), items(nitems), times(ntimes), statuses(nstatuses) {
    nrs.assign(static_cast<std::size_t>(items), 2);
    y.resize(static_cast<std::size_t>(n) * nrs.size() * static_cast<std::size_t>(times));
    std::mt19937_64 engine(20261121);
    const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
    const auto status = [&] { return static_cast<int>(uniform() * statuses); };
    for (int k = 0; k < n; ++k) {
      int s = status();
      for (int t = 0; t < times; ++t) {
        if (uniform() < 0.3) s = status();
        for (int i = 0; i < items; ++i) {
          const bool typical = uniform() < 0.8;
          const int answer = ((s >> (i % 3)) & 1) ^ (typical ? 0 : 1);
          y[static_cast<std::size_t>(k) +
            static_cast<std::size_t>(n) * static_cast<std::size_t>(i + items * t)] = answer + 1;
        }
      }
    }
  }

  [[nodiscard]] double seconds(int iterations, int threads) const {
    std::string message(400, ' ');
    tolvenra::api::lta_call call{};
    call.ni = items;
    call.nrs = nrs.data();
    call.nrsmax = 2;
    call.nt = times;
    call.nkase = n;
    call.nstr = 1;
    call.y = y.data();
    call.ns = statuses;
    call.big_rho_equal_time = 1;
    call.random_starts = 1;
    call.seed = 17;
    call.criterion = 1e-300;
    call.max_iter = iterations;
    call.max_threads = threads;
    call.msg_len = static_cast<std::int32_t>(message.size());
    call.message = message.data();
    const auto begin = std::chrono::steady_clock::now();
    if (tolvenra::api::guarded_run_lta(call) != 0) throw std::runtime_error(message);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }
};

void measure(benchmark::State& state, const transition_problem& p, int threads) {
  for (auto _ : state)
    state.SetIterationTime((p.seconds(60, threads) - p.seconds(10, threads)) / 50);
}

/// Arguments: cases, times, statuses, threads; six binary items.
void fit_lta(benchmark::State& state) {
  const transition_problem p(static_cast<int>(state.range(0)), 6, static_cast<int>(state.range(1)),
                             static_cast<int>(state.range(2)));
  measure(state, p, static_cast<int>(state.range(3)));
}
BENCHMARK(fit_lta)
    ->ArgNames({"cases", "times", "statuses", "threads"})
    ->Args({5000, 5, 4, 1})
    ->Args({5000, 5, 4, 2})
    ->Args({10000, 10, 5, 1})
    ->Args({10000, 10, 5, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(5);

void by_times(benchmark::State& state) {
  measure(state, {5000, 6, static_cast<int>(state.range(0)), 4}, 1);
}
BENCHMARK(by_times)
    ->RangeMultiplier(2)
    ->Range(2, 64)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

void by_statuses(benchmark::State& state) {
  measure(state, {5000, 6, 5, static_cast<int>(state.range(0))}, 1);
}
BENCHMARK(by_statuses)
    ->RangeMultiplier(2)
    ->Range(2, 64)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

}  // namespace
