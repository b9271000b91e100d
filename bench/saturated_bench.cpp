// The saturated model of incomplete responses: one-class runs through the driver, whose time is
// almost all that of the saturated model. Counters: distinct patterns, passes, strata that ended at
// the limit of passes, and the bound on what the log-likelihood lacks.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
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
  std::array<std::int32_t, 16> info{};
  std::array<double, 8> extra{};
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

BENCHMARK(two_times)->Unit(benchmark::kMillisecond);
BENCHMARK(fifteen_items)->Arg(500)->Arg(1000)->Arg(5000)->Unit(benchmark::kMillisecond);
BENCHMARK(thirty_binary)->Arg(2000)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(ten_ternary_quarter_missing)->Unit(benchmark::kMillisecond);
BENCHMARK(hundred_binary_half_missing)->Unit(benchmark::kMillisecond);

}  // namespace
