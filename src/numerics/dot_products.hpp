/// \file dot_products.hpp  Several dot products in one pass, in pairs of doubles.
///
/// A compiler that keeps the order of additions cannot vectorise a sum; here the order is four
/// interleaved partial sums per product, the same on every machine. Vector types are those that GCC
/// and Clang offer on every target, of the size that every x86-64 has.
#pragma once

#include <cstddef>
#include <cstring>

namespace tolvenra::dot_products {

/// Elements taken per step.
inline constexpr std::size_t lanes = 4;

using double_pair __attribute__((vector_size(16))) = double;

inline double_pair load(const double* from) {
  double_pair value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

/// sums(c * step) += w' x_c for C columns x_c = x + c * stride of `length` elements.
template <std::size_t C>
void add(const double* w, const double* x, std::size_t stride, std::size_t length, double* sums,
         std::size_t step = 1) {
  double_pair low[C] = {}, high[C] = {};
  std::size_t i = 0;
  for (; i + lanes <= length; i += lanes) {
    const double_pair w_low = load(w + i), w_high = load(w + i + 2);
    for (std::size_t c = 0; c < C; ++c) {
      low[c] += w_low * load(x + c * stride + i);
      high[c] += w_high * load(x + c * stride + i + 2);
    }
  }
  for (std::size_t c = 0; c < C; ++c) {
    double rest = 0.0;
    for (std::size_t k = i; k < length; ++k) rest += w[k] * x[c * stride + k];
    sums[c * step] += ((low[c][0] + low[c][1]) + (high[c][0] + high[c][1])) + rest;
  }
}

/// The same for any number of columns, four at a time.
inline void add_all(const double* w, const double* x, std::size_t stride, std::size_t length,
                    std::size_t count, double* sums, std::size_t step = 1) {
  for (; count >= 4; count -= 4, x += 4 * stride, sums += 4 * step)
    add<4>(w, x, stride, length, sums, step);
  if (count == 3) add<3>(w, x, stride, length, sums, step);
  if (count == 2) add<2>(w, x, stride, length, sums, step);
  if (count == 1) add<1>(w, x, stride, length, sums, step);
}

}  // namespace tolvenra::dot_products
