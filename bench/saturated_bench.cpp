// Fit statistics on one thread. The saturated model of incomplete responses: one-class runs through
// the driver, whose time is almost all that of the saturated model. Counters: distinct patterns,
// passes, strata that ended at the limit of passes, and the bound on what the log-likelihood lacks.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "api/exports.hpp"
#include "api/generated/call_records.hpp"

namespace {

using namespace tolvenra;

struct incomplete_data {
  int n = 0;
  std::vector<std::int32_t> nrc, y;
};

/// Four classes; each response is missing with the given probability.
/// \param drop_out  probability that the second half of the items is missing, too, as when people
/// are
///                  not seen at a second time
incomplete_data draw(int n, std::vector<std::int32_t> nrc, double missing, double drop_out = 0.0) {
  std::mt19937_64 engine(20260102);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  std::vector<std::vector<double>> p[4];
  for (auto& of_class : p)
    for (const int levels : nrc) {
      of_class.emplace_back();
      double sum = 0.0;
      for (int r = 0; r < levels; ++r) {
        of_class.back().push_back(0.05 + uniform() * uniform() * uniform());
        sum += of_class.back().back();
      }
      for (double& value : of_class.back()) value /= sum;
    }
  incomplete_data data{n, std::move(nrc), {}};
  data.y.resize(static_cast<std::size_t>(n) * data.nrc.size());
  for (std::size_t k = 0; k < static_cast<std::size_t>(n); ++k) {
    const auto& of_class = p[static_cast<std::size_t>(uniform() * 4)];
    const bool gone = uniform() < drop_out;
    for (std::size_t j = 0; j < data.nrc.size(); ++j) {
      double u = uniform();
      std::size_t r = 0;
      while (r + 1 < of_class[j].size() && u > of_class[j][r]) u -= of_class[j][r++];
      const bool lost = uniform() < missing || (gone && 2 * j >= data.nrc.size());
      data.y[k + j * static_cast<std::size_t>(n)] = lost ? 0 : static_cast<std::int32_t>(r) + 1;
    }
  }
  return data;
}

void run(benchmark::State& state, const incomplete_data& data) {
  std::array<std::int32_t, 24> info{};
  std::array<double, 12> extra{};
  std::vector<std::int32_t> patterns(data.y.size() + static_cast<std::size_t>(data.n));
  std::int32_t overflow = 0;
  std::string message(400, ' ');
  api::lca_call call{};
  call.nci = static_cast<std::int32_t>(data.nrc.size());
  call.nrc = data.nrc.data();
  call.nrcmax = *std::max_element(data.nrc.begin(), data.nrc.end());
  call.nkase = data.n;
  call.nstr = 1;
  call.y = data.y.data();
  call.nc = 1;
  call.nstarts = 1;
  call.seed = 17;
  call.criterion = 1e-6;
  call.max_iter = 5000;
  call.max_threads = 1;
  call.run_info = info.data();
  call.response_patterns = patterns.data();
  call.fit_extra = extra.data();
  call.overflow_count = &overflow;
  call.msg_len = static_cast<std::int32_t>(message.size());
  call.message = message.data();
  for (auto _ : state)
    if (api::guarded_run_lca(call) != 0) throw std::runtime_error(message);
  state.counters["patterns"] = info[4];
  const auto rows = static_cast<std::size_t>(data.n);
  state.counters["incomplete"] = static_cast<double>(
      std::count_if(patterns.begin(), patterns.begin() + info[4], [&](const std::int32_t& first) {
        const auto row = static_cast<std::size_t>(&first - patterns.data());
        for (std::size_t j = 1; j <= data.nrc.size(); ++j)
          if (patterns[row + j * rows] == 0) return true;
        return false;
      }));
  state.counters["passes"] = info[6];
  state.counters["at_limit"] = info[14];
  state.counters["lacks"] = extra[7];
  state.counters["overflow"] = overflow;
}

void two_times(benchmark::State& state) {
  run(state, draw(2061, std::vector<std::int32_t>(16, 2), 0.0049, 0.1));
}
void fifteen_items(benchmark::State& state) {
  run(state,
      draw(static_cast<int>(state.range(0)), {2, 2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 4, 4, 4}, 0.12));
}
void thirty_binary(benchmark::State& state) {
  run(state, draw(static_cast<int>(state.range(0)), std::vector<std::int32_t>(30, 2), 0.05));
}
void ten_ternary_quarter_missing(benchmark::State& state) {
  run(state, draw(5000, std::vector<std::int32_t>(10, 3), 0.25));
}
void hundred_binary_half_missing(benchmark::State& state) {
  run(state, draw(1000, std::vector<std::int32_t>(100, 2), 0.5));
}

void eighteen_binary_half_missing(benchmark::State& state) {
  run(state, draw(1000, std::vector<std::int32_t>(18, 2), 0.5));
}
void twenty_binary_third_missing(benchmark::State& state) {
  run(state, draw(10000, std::vector<std::int32_t>(20, 2), 0.3));
}

/// Expected counts of a transition model whose start and moves have a covariate with a value of its
/// own for every case: the time of a run less that of the same run without them.
void expected_under_covariates(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const int nt = static_cast<int>(state.range(1));
  const int ns = static_cast<int>(state.range(2));
  const incomplete_data data =
      draw(n, std::vector<std::int32_t>(static_cast<std::size_t>(4 * nt), 2), 0.0);
  const std::vector<std::int32_t> nrs(4, 2);
  std::vector<double> cov(static_cast<std::size_t>(n) * static_cast<std::size_t>(nt));
  for (std::size_t i = 0; i < cov.size(); ++i)
    cov[i] = std::fmod(0.6180339887 * static_cast<double>(i), 1.0);
  std::vector<double> counts(static_cast<std::size_t>(2 * n));
  std::string message(400, ' ');
  api::lta_call call{};
  call.ni = 4;
  call.nrs = nrs.data();
  call.nrsmax = 2;
  call.nt = nt;
  call.nkase = n;
  call.nstr = 1;
  call.y = data.y.data();
  call.ns = ns;
  call.ncov_delta = call.ncov_tau = 1;
  call.cov = cov.data();
  call.prior_strength = 1.0;
  call.big_rho_equal_time = 1;
  call.random_starts = 1;
  call.seed = 17;
  call.criterion = 0.1;
  call.max_iter = 5000;
  call.max_threads = 1;
  call.msg_len = static_cast<std::int32_t>(message.size());
  call.message = message.data();
  const auto seconds = [&](double* pattern_counts) {
    call.pattern_counts = pattern_counts;
    const auto begin = std::chrono::steady_clock::now();
    if (api::guarded_run_lta(call) != 0) throw std::runtime_error(message);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  };
  for (auto _ : state)
    state.SetIterationTime(std::max(seconds(counts.data()) - seconds(nullptr), 0.0));
  state.counters["left_out"] = std::isnan(counts[static_cast<std::size_t>(n)]) ? 1 : 0;
}

BENCHMARK(two_times)->Unit(benchmark::kMillisecond);
BENCHMARK(fifteen_items)->Arg(500)->Arg(1000)->Arg(5000)->Unit(benchmark::kMillisecond);
BENCHMARK(thirty_binary)->Arg(2000)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(ten_ternary_quarter_missing)->Unit(benchmark::kMillisecond);
BENCHMARK(hundred_binary_half_missing)->Unit(benchmark::kMillisecond);
BENCHMARK(eighteen_binary_half_missing)->Unit(benchmark::kMillisecond);
BENCHMARK(twenty_binary_third_missing)->Unit(benchmark::kMillisecond);
/// Arguments: cases, times, statuses.
BENCHMARK(expected_under_covariates)
    ->Args({4000, 3, 3})
    ->Args({16000, 3, 3})
    ->Args({4000, 8, 4})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
