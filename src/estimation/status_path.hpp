/// \file status_path.hpp  Draws from discrete distributions and of status sequences, module
/// `estimation`.
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

/// The first of n categories whose accumulated weight reaches u times the total; p[(r - 1) * step]
/// is the weight of category r. \return 1..n
inline int32 category_at(double u, double total, const double* p, int32 n, int64 step) {
  double accumulated = 0.0;
  int32 last = 1;  // with a weight: rounding may leave u times the total out of reach
  for (int32 r = 1; r <= n; ++r) {
    const double weight = p[(r - 1) * step];
    if (!(weight > 0.0)) continue;
    last = r;
    accumulated += weight;
    if (u * total <= accumulated) return r;
  }
  return last;
}

class status_path {
 public:
  status_path() = default;
  /// \throws std::bad_alloc
  status_path(int32 ns, int32 nt)
      : weights_(static_cast<std::size_t>(ns)),
        uniforms_(static_cast<std::size_t>(nt)),
        path_(static_cast<std::size_t>(nt), 1) {}

  /// Draws nt uniforms in the order of the times; number t decides the status at time t.
  /// \param recursion  after its forward pass: filtered(t, s) is the probability of status s at
  ///                   time t given the responses up to t, transition(t, s, d) that of d at t + 1
  ///                   given s at t; all from 0
  /// \return 0 with the path, or -1 with the report of the generator
  template <class Recursion>
  int32 draw(ran_state_type& random, const Recursion& recursion, error_type& err) {
    for (double& u : uniforms_)
      if (random_generator::unit_uniform(random, u, err) != 0) return -1;
    const auto ns = static_cast<int32>(weights_.size());
    for (std::size_t t = path_.size(); t-- > 0;) {
      const auto time = static_cast<int32>(t);
      double total = 0.0;
      for (int32 s = 0; s < ns; ++s) {
        double weight = recursion.filtered(time, s);
        if (t + 1 < path_.size()) weight *= recursion.transition(time, s, path_[t + 1] - 1);
        weights_[static_cast<std::size_t>(s)] = weight;
        total += weight;
      }
      path_[t] = category_at(uniforms_[t], total, weights_.data(), ns, 1);
    }
    return 0;
  }

  /// Statuses of the path drawn last, from 1, times in order.
  [[nodiscard]] std::span<const int32> statuses() const { return path_; }

 private:
  std::vector<double> weights_;  ///< of the statuses at one time
  std::vector<double> uniforms_;
  std::vector<int32> path_;
};

}  // namespace tolvenra::estimation
