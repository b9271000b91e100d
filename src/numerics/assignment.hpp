/// \file assignment.hpp  The assignment problem, for matching the labels of latent classes.
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"

namespace tolvenra::assignment {

/// The permutation of least total cost.
/// \param cost  (n, n): cost of giving column c to row r
/// \return column of every row, 1-based; O(n^3)
/// Source: Kuhn (1955), Naval Research Logistics Quarterly 2, 83-97; the form with shortest
/// augmenting paths of Jonker & Volgenant (1987), Computing 38, 325-340.
std::vector<int32> least_cost(const array<double, 2>& cost);

}  // namespace tolvenra::assignment
