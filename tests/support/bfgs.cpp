#include "support/bfgs.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace tolvenra::test {
namespace {

using table = std::vector<double>;

double dot(const table& a, const table& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}
table moved(const table& from, double length, const table& direction) {
  table to = from;
  for (std::size_t q = 0; q < to.size(); ++q) to[q] += length * direction[q];
  return to;
}

}  // namespace

double ascend(const objective& f, table& at, int iterations) {
  const std::size_t n = at.size();
  table gradient(n), next(n), trial(n), inverse;
  double value = f(at, gradient);
  double looked = value;  // 30 iterations ago
  int since = 0;
  bool fresh = true;
  for (int iteration = 0; iteration < iterations; ++iteration) {
    if (fresh) {
      inverse.assign(n * n, 0.0);
      const double unit = 1.0 / std::max(1.0, std::sqrt(dot(gradient, gradient)));
      for (std::size_t q = 0; q < n; ++q) inverse[q * n + q] = unit;
    }
    table step(n, 0.0);
    for (std::size_t q = 0; q < n; ++q)
      for (std::size_t s = 0; s < n; ++s) step[q] += inverse[q * n + s] * gradient[s];
    const double slope = dot(step, gradient);
    double length = 1.0;
    double reached = -std::numeric_limits<double>::infinity();
    for (int halved = 0; halved < 40 && slope > 0.0; ++halved, length *= 0.5) {
      trial = moved(at, length, step);
      reached = f(trial, next);
      if (reached >= value + 1e-4 * length * slope) break;
    }
    if (!(reached > value)) {
      if (fresh) break;
      fresh = true;
      continue;
    }
    for (int doubled = 0; doubled < 30 && dot(next, step) > 0.9 * slope; ++doubled) {
      table further(n);
      const table there = moved(at, 2.0 * length, step);
      const double value_there = f(there, further);
      if (!(value_there > reached)) break;
      length *= 2.0;
      trial = there;
      next = further;
      reached = value_there;
    }
    table moves(n), turns(n), turned(n, 0.0);
    for (std::size_t q = 0; q < n; ++q) {
      moves[q] = trial[q] - at[q];
      turns[q] = gradient[q] - next[q];
    }
    const double bend = dot(moves, turns);
    fresh = false;
    if (bend > 1e-14 * std::sqrt(dot(moves, moves) * dot(turns, turns))) {
      for (std::size_t q = 0; q < n; ++q)
        for (std::size_t s = 0; s < n; ++s) turned[q] += inverse[q * n + s] * turns[s];
      const double both = (1.0 + dot(turns, turned) / bend) / bend;
      for (std::size_t q = 0; q < n; ++q)
        for (std::size_t s = 0; s < n; ++s)
          inverse[q * n + s] +=
              both * moves[q] * moves[s] - (turned[q] * moves[s] + moves[q] * turned[s]) / bend;
    }
    at = trial;
    gradient = next;
    value = reached;
    if (++since == 30) {
      if (value - looked < 1e-8) break;
      looked = value;
      since = 0;
    }
  }
  return value;
}

}  // namespace tolvenra::test
