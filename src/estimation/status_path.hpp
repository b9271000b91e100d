/// \file status_path.hpp  Draws of status sequences, module `estimation`.
///
/// A sequence is drawn as a whole from its posterior distribution given the class and the
/// responses: forward filtering, backward sampling. Drawing each time from its own posterior would
/// lose the dependence between times, and with it the transitions. Source: Chib (1996), Journal of
/// Econometrics 75, 79-97; Scott (2002), JASA 97, 337-351.
#pragma once

#include <span>
#include <vector>

#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "numerics/random_generator.hpp"

namespace tolvenra::estimation {

class status_path_sampler {
 public:
  /// \throws std::bad_alloc
  status_path_sampler(int32 ns, int32 nt);

  /// Probability of the responses at time t (1-based) given each status, for the caller to fill.
  [[nodiscard]] std::span<double> emission(int32 t) {
    return std::span(emission_).subspan(static_cast<std::size_t>((t - 1) * ns_),
                                        static_cast<std::size_t>(ns_));
  }

  /// Draws nt uniforms; number t decides the status at time t.
  /// \param delta  (ns) initial probabilities
  /// \param tau    (ns, ns, nt-1) transition probabilities, origin first, column-major
  /// \return 0 with the path, or -1 with the report of the generator
  int32 draw(ran_state_type& random, const double* delta, const double* tau, error_type& err);

  /// Statuses of the path drawn last, 1-based, times in order.
  [[nodiscard]] std::span<const int32> path() const { return path_; }

 private:
  void filter(const double* delta, const double* tau);

  int32 ns_, nt_;
  std::vector<double> emission_;  ///< status by status, time after time
  std::vector<double> filtered_;  ///< P(status at t | responses up to t)
  std::vector<double> weights_;   ///< of the statuses at one time
  std::vector<double> uniforms_;
  std::vector<int32> path_;
};

/// The first of n categories whose accumulated weight reaches u times the total; p[(r - 1) * step]
/// is the weight of category r. \return 1..n
int32 category_at(double u, double total, const double* p, int32 n, int64 step);

}  // namespace tolvenra::estimation
