// Inverses, products and singular values, the inverse beside a plain textbook one.
#include <benchmark/benchmark.h>

#include <cmath>

#include "numerics/matrix_methods.hpp"
#include "numerics/random_generator.hpp"

namespace {

using namespace tolvenra;

array<double, 2> random_matrix(int32 m, int32 n) {
  array<double, 2> a;
  a.allocate({m, n});
  ran_state_type state;
  error_type err;
  random_generator::ran_setall(state, 42, 43, err);
  for (double& v : a.flat) random_generator::ran_genunf(state, -1.0, 1.0, v, err);
  return a;
}

array<double, 2> definite_matrix(int32 n) {
  const auto x = random_matrix(2 * n, n);
  array<double, 2> a;
  a.allocate({n, n});
  error_type err;
  matrix_methods::premult_by_transpose(x, a, err);
  return a;
}

void symmetric_inverse(benchmark::State& state) {
  const auto n = static_cast<int32>(state.range(0));
  const auto y = definite_matrix(n);
  auto inverse = y;
  error_type err;
  for (auto _ : state) {
    if (matrix_methods::symmetric_real_inverse(y, inverse, err) != 0)
      state.SkipWithError("singular");
    benchmark::DoNotOptimize(inverse.data());
  }
}
BENCHMARK(symmetric_inverse)->Arg(20)->Arg(200)->Arg(500)->Unit(benchmark::kMillisecond);

/// Cholesky factor, inverse of the factor and product as three loops over elements.
void textbook_inverse(benchmark::State& state) {
  const auto n = static_cast<int32>(state.range(0));
  const auto y = definite_matrix(n);
  auto l = y, inverse = y;
  for (auto _ : state) {
    l = y;
    for (int32 j = 1; j <= n; ++j)
      for (int32 i = j; i <= n; ++i) {
        double sum = l(i, j);
        for (int32 k = 1; k < j; ++k) sum -= l(i, k) * l(j, k);
        l(i, j) = i == j ? std::sqrt(sum) : sum / l(j, j);
      }
    for (int32 j = 1; j <= n; ++j) {
      l(j, j) = 1.0 / l(j, j);
      for (int32 i = j + 1; i <= n; ++i) {
        double sum = 0.0;
        for (int32 k = j; k < i; ++k) sum -= l(i, k) * l(k, j);
        l(i, j) = sum / l(i, i);
      }
    }
    for (int32 i = 1; i <= n; ++i)
      for (int32 j = 1; j <= i; ++j) {
        double sum = 0.0;
        for (int32 k = i; k <= n; ++k) sum += l(k, i) * l(k, j);
        inverse(i, j) = inverse(j, i) = sum;
      }
    benchmark::DoNotOptimize(inverse.data());
  }
}
BENCHMARK(textbook_inverse)->Arg(20)->Arg(200)->Arg(500)->Unit(benchmark::kMillisecond);

void matrix_product(benchmark::State& state) {
  const auto n = static_cast<int32>(state.range(0));
  const auto a = random_matrix(n, n), b = definite_matrix(n);
  auto c = a;
  error_type err;
  for (auto _ : state) {
    matrix_methods::mat_mult(a, b, c, err);
    benchmark::DoNotOptimize(c.data());
  }
}
BENCHMARK(matrix_product)->Arg(200)->Arg(500)->Unit(benchmark::kMillisecond);

void singular_values(benchmark::State& state) {
  const auto n = static_cast<int32>(state.range(0));
  const auto a = random_matrix(n, n);
  auto u = a, v = a;
  array<double, 1> w;
  w.allocate({n});
  error_type err;
  for (auto _ : state) {
    if (matrix_methods::sv_decomp(a, u, w, v, err) != 0) state.SkipWithError("no convergence");
    benchmark::DoNotOptimize(w.data());
  }
}
BENCHMARK(singular_values)->Arg(50)->Arg(200)->Arg(500)->Unit(benchmark::kMillisecond);

}  // namespace
