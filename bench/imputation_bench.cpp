// Data augmentation: 1,000 cycles of latent class chains on one thread.
#include <benchmark/benchmark.h>

#include <stdexcept>

#include "estimation/augmentation.hpp"
#include "lca_data.hpp"

namespace {

using namespace tolvenra;

struct model_records {
  dataset_type dataset;
  model_type model;
  param_type param;
};

/// \param missing  every so many responses are missing; 0: none
model_records make_records(int32 cases, int32 items, int32 classes, int32 missing) {
  model_records made;
  error_type err;
  array<int32, 2> y;
  y.allocate({cases, items});
  const auto drawn = bench::draw_responses(cases, items, 2, classes, 20260101);
  y.flat.assign(drawn.begin(), drawn.end());
  for (std::size_t at = 0; missing > 0 && at < y.size(); at += static_cast<std::size_t>(missing))
    y.flat[at] = 0;
  array<int32, 1> nrc;
  nrc.allocate({items}, 2);
  array<int32, 1> dims = vector_of<int32>({items, 0, 1, 0, 0, 0, 1, classes, 1});
  dims.flat.insert(dims.flat.end(), nrc.flat.begin(), nrc.flat.end());
  dims.n = {9 + items};
  if (dataset::put_nt(1, made.dataset, err) != 0 || dataset::put_nrc(nrc, made.dataset, err) != 0 ||
      dataset::put_nstr(1, made.dataset, err) != 0 || dataset::put_y(y, made.dataset, err) != 0 ||
      model::put_nc(classes, made.model, err) != 0 || param::put_dims(dims, made.param, err) != 0 ||
      param::run_random_rho_startvals(made.param, err, 17, 17) != 0)
    throw std::runtime_error("the records could not be made");
  return made;
}

void impute(benchmark::State& state) {
  const model_records made = make_records(1000, 8, 3, static_cast<int32>(state.range(0)));
  for (auto _ : state) {
    param_type param = made.param;
    da_options options;
    options.seed = 1;
    options.imputations = 20;
    options.burn_in = 999 - 19 * 50;
    options.max_threads = 1;
    daresult result;
    mlresult_type ml;
    error_type err;
    if (estimation::run_da_procedure(made.dataset, made.model, param, options, result, ml, err) !=
        0)
      throw std::runtime_error(lines_of(err).front());
    benchmark::DoNotOptimize(result.rho.qbar.data());
  }
}
BENCHMARK(impute)->ArgName("every_missing")->Arg(0)->Arg(20)->Unit(benchmark::kMillisecond);

}  // namespace
