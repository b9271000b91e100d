// All standard errors of a fitted model, without the fit.
#include <benchmark/benchmark.h>

#include "estimation/em.hpp"
#include "estimation/standard_errors.hpp"
#include "lca_data.hpp"
#include "numerics/random_generator.hpp"

namespace {

using namespace tolvenra;

struct fitted_model {
  param_type param;
  mlresult_type result;
  mlworkspace work;
};

/// Fitted to convergence from random starting values.
void fit(int cases, int items, int categories, int classes, int clusters, int threads,
         fitted_model& to, benchmark::State& state) {
  error_type err;
  dataset_type data;
  model_type model;
  array<int32, 1> nrc;
  array<int32, 2> y;
  array<int32, 1> dims;
  nrc.allocate({items}, categories);
  y.allocate({cases, items});
  const auto drawn = bench::draw_responses(cases, items, categories, classes, 20260101);
  std::copy(drawn.begin(), drawn.end(), y.flat.begin());
  dims.allocate({9 + items}, categories);
  const std::array<int32, 9> sizes{items, 0, 1, 0, 0, 0, 1, classes, 1};
  std::copy(sizes.begin(), sizes.end(), dims.flat.begin());
  bool good =
      dataset::put_nt(1, data, err) == 0 && dataset::put_nrc(nrc, data, err) == 0 &&
      dataset::put_nstr(1, data, err) == 0 && dataset::put_y(std::move(y), data, err) == 0 &&
      model::put_nc(classes, model, err) == 0 && param::put_dims(dims, to.param, err) == 0 &&
      param::run_random_rho_startvals(to.param, err, 17, 17) == 0;
  if (good && clusters > 0) {
    array<int32, 1> of_case;
    of_case.allocate({cases});
    for (int32 k = 1; k <= cases; ++k) of_case(k) = 1 + k % clusters;
    good = dataset::put_cluster_information(of_case, data, err) == 0;
  }
  good = good && estimation::run_em_modelfit(data, model, to.param, to.result, to.work, err,
                                             {1e-6, 5000, threads, {}}) == 0;
  if (!good) state.SkipWithError("the model could not be fitted");
}

/// Arguments: cases, items, categories, classes, clusters (0: none), threads.
void standard_errors(benchmark::State& state) {
  const auto arg = [&](int i) { return static_cast<int>(state.range(i)); };
  fitted_model model;
  fit(arg(0), arg(1), arg(2), arg(3), arg(4), arg(5), model, state);
  for (auto _ : state) {
    error_type err;
    if (estimation::driver_of(model.work)(model.work, model.result, err) != 0) {
      state.SkipWithError("no standard errors");
      break;
    }
  }
}
BENCHMARK(standard_errors)
    ->ArgNames({"cases", "items", "categories", "classes", "clusters", "threads"})
    ->Args({100000, 12, 2, 5, 0, 1})
    ->Args({100000, 12, 2, 5, 0, 2})
    ->Args({100000, 12, 2, 5, 10000, 1})
    ->Args({100000, 20, 4, 6, 0, 1})
    ->Args({100000, 20, 4, 6, 0, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
