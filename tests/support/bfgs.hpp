/// \file bfgs.hpp  Unconstrained maximisation for the tests' naive oracles.
#pragma once

#include <functional>
#include <vector>

namespace tolvenra::test {

/// Value at the first argument; the gradient, of the same length, goes into the second.
using objective = std::function<double(const std::vector<double>&, std::vector<double>&)>;

/// BFGS ascent (Nocedal & Wright, Numerical Optimization, section 6.1) with step halving, and
/// doubling while the slope has hardly fallen: where there is no maximum the way is long.
/// \return the value reached; `at` is where
double ascend(const objective& f, std::vector<double>& at, int iterations);

}  // namespace tolvenra::test
