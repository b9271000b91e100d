/// \file semidefinite.hpp  Linear systems with a positive semidefinite matrix.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace tolvenra {

/// Cholesky factor of a positive semidefinite matrix, scaled to unit diagonal, the largest pivot
/// first; directions whose pivot is below 1e-13 are left alone. Keeps its memory between uses.
/// Source: Higham (1990), in Reliable Numerical Computation, 161-185.
class semidefinite_factor {
 public:
  /// Sets the matrix to n x n zeros. \throws std::bad_alloc
  void clear(std::size_t n);
  /// Element of the lower triangle, i >= j.
  double& at(std::size_t i, std::size_t j) { return a_[i * n_ + j]; }
  /// Replaces the matrix by its factor.
  void factor();
  /// Replaces b by a solution.
  void solve(std::span<double> b);

 private:
  void bring_to_front(std::size_t k, std::size_t p);

  std::size_t n_ = 0, rank_ = 0;
  std::vector<double> a_, scale_, work_;
  std::vector<std::size_t> order_;
};

}  // namespace tolvenra
