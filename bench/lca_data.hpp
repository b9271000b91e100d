/// \file lca_data.hpp  Seeded data of latent class models for the benchmarks.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace tolvenra::bench {

/// Responses (column-major) of `n` cases to `items` items of `categories` categories, drawn from a
/// model whose classes differ clearly.
inline std::vector<std::int32_t> draw_responses(int n, int items, int categories, int classes,
                                                unsigned seed) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  const auto at = [&](int j, int c, int r) {
    return (static_cast<std::size_t>(j) * static_cast<std::size_t>(classes) +
            static_cast<std::size_t>(c)) *
               static_cast<std::size_t>(categories) +
           static_cast<std::size_t>(r);
  };
  std::vector<double> rho(at(items, 0, 0));
  for (int j = 0; j < items; ++j)
    for (int c = 0; c < classes; ++c) {
      double sum = 0.0;
      for (int r = 0; r < categories; ++r) sum += rho[at(j, c, r)] = 0.05 + uniform() * uniform();
      for (int r = 0; r < categories; ++r) rho[at(j, c, r)] /= sum;
    }
  std::vector<std::int32_t> y(static_cast<std::size_t>(n) * static_cast<std::size_t>(items));
  for (int k = 0; k < n; ++k) {
    const int c = std::min(static_cast<int>(uniform() * classes), classes - 1);
    for (int j = 0; j < items; ++j) {
      double u = uniform();
      int r = 0;
      while (r < categories - 1 && u > rho[at(j, c, r)]) u -= rho[at(j, c, r++)];
      y[static_cast<std::size_t>(k) + static_cast<std::size_t>(j) * static_cast<std::size_t>(n)] =
          r + 1;
    }
  }
  return y;
}

}  // namespace tolvenra::bench
