#include "estimation/guarded_climb.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "estimation/flat_directions.hpp"

namespace tolvenra::estimation {
namespace {

constexpr double relative_tolerance = 1e-5F;  ///< as the fitter has it

/// The slopes of the objective along the directions of one round, and what steps along them do.
class round_of_steps {
 public:
  round_of_steps(regression_surface& surface, const array<double, 2>& basis,
                 const array<double, 2>& beta)
      : surface_(surface), directions_(find_directions(surface, basis, held_below)) {
    for (int32 i = 1; i <= directions_.count(); ++i)
      slope_.push_back(surface.slope(directions_.v.column(i)));
    for (std::size_t i = 0; i < slope_.size(); ++i) {
      returns_.push_back(returns(i, beta));
      vain_.push_back(!(most_to_gain(surface, directions_, i, slope_[i]) >= negligible()));
      if (returns_.back()) vain_.back() = false;
    }
  }

  /// The step at a damping: its sum, what it gains to second order, whether it is flat anywhere.
  /// Directions that are flat have a damping of their own.
  void form(double damping, double flat_damping) {
    step.assign(static_cast<std::size_t>(surface_.order()), 0.0);
    gain = 0.0;
    moves_flat = false;
    for (std::size_t i = 0; i < slope_.size(); ++i) {
      if (slope_[i] == 0.0 || (directions_.flat[i] && vain_[i])) continue;
      const double information = directions_.information[i];
      const double length =
          slope_[i] / (information + (directions_.flat[i] ? flat_damping : damping));
      const double gained = length * (slope_[i] - 0.5 * information * length);
      if (directions_.flat[i] && !returns_[i] && !(gained >= negligible())) continue;
      moves_flat = moves_flat || directions_.flat[i];
      gain += gained;
      add(i, length, step);
    }
  }

  /// Whether the undamped step along the directions that are not flat would move nothing.
  [[nodiscard]] bool settled(const array<double, 2>& beta) const {
    std::vector<double> rest(step.size(), 0.0);
    for (std::size_t i = 0; i < slope_.size(); ++i)
      if (slope_[i] != 0.0 && !directions_.flat[i])
        add(i, slope_[i] / directions_.information[i], rest);
    double most = 0.0;
    for (const double b : beta.flat) most = std::max(most, std::abs(b));
    bool relative = true;
    bool absolute = true;
    for (int32 q = 0; q < surface_.order(); ++q) {
      const double moved = std::abs(rest[static_cast<std::size_t>(q)]);
      const double b = std::abs(beta(surface_.column(q), surface_.category(q)));
      relative = relative && (moved == 0.0 || moved < relative_tolerance * b);
      absolute = absolute && moved <= 1e-8 * (1.0 + most);
    }
    return relative || absolute;
  }

  /// A step that changes no predictor by more than this rises for certain: the third derivative of
  /// the objective is bounded by the second, and only rounding could hide it.
  [[nodiscard]] bool is_short() const { return surface_.reach_bound(step.data()) <= 0.1; }
  [[nodiscard]] double weakest() const { return directions_.weakest; }

  std::vector<double> step;
  double gain = 0.0;
  bool moves_flat = false;

 private:
  /// Information so small that no way leads back: rounding would be taken for one.
  [[nodiscard]] double forgotten() const { return 1e-15 * (1.0 + std::abs(surface_.value)); }
  [[nodiscard]] double negligible() const { return 1e-12 * (1.0 + std::abs(surface_.value)); }

  /// Whether a flat direction leads back to more information by a step worth taking: EM brings a
  /// class back a little at a time.
  [[nodiscard]] bool returns(std::size_t i, const array<double, 2>& beta) {
    const double* v = directions_.v.column(static_cast<int32>(i) + 1);
    const double reach = surface_.reach_bound(v);
    const double moved = std::abs(slope_[i]) * reach;
    return directions_.flat[i] && directions_.information[i] > forgotten() * reach * reach &&
           moved > relative_tolerance * directions_.information[i] &&
           slope_[i] * surface_.third_moment(beta, v) > 0.0;
  }

  void add(std::size_t i, double length, std::vector<double>& sum) const {
    const double* v = directions_.v.column(static_cast<int32>(i) + 1);
    for (std::size_t q = 0; q < sum.size(); ++q) sum[q] += length * v[q];
  }

  regression_surface& surface_;
  direction_set directions_;
  std::vector<double> slope_;
  std::vector<bool> returns_;
  std::vector<bool> vain_;  ///< no step along the direction gains anything
};

}  // namespace

climb_outcome climb(regression_surface& surface, const array<double, 2>& basis,
                    const climb_limits& limits, array<double, 2>& beta) {
  climb_outcome outcome;
  const double unit = surface.total();  // information at equal probabilities
  double damping = 1e-8;
  double flat_damping = 1e-8;
  for (int32 round = 0; round < limits.rounds; ++round) {
    surface.expand(beta);
    if (!std::isfinite(surface.value)) return {false, false, 0.0};
    round_of_steps steps(surface, basis, beta);
    outcome.margin = steps.weakest() / (1.0 + std::abs(surface.value));
    bool skipped = false;  // a step along flat directions, which is tried again
    const auto try_step = [&](double flat) {
      steps.form(damping * unit, flat * unit);
      array<double, 2> trial = beta;
      surface.add(steps.step.data(), trial);
      const bool rises = steps.is_short() || surface.objective(trial) > surface.value;
      if (rises) beta = std::move(trial);
      return rises;
    };
    bool risen = false;
    for (int32 raise = 0; raise < limits.raises && !risen; ++raise) {
      risen = try_step(flat_damping);
      if (risen || !steps.moves_flat) {
        damping *= risen ? 0.1 : 10.0;
        flat_damping *= risen ? 0.1 : 1.0;
        continue;
      }
      // Rounding of what has all but vanished must not hold up the others.
      flat_damping *= 10.0;
      risen = try_step(std::numeric_limits<double>::infinity());
      damping *= risen ? 0.1 : 10.0;
      skipped = risen;
    }
    // At the maximum rounding hides any further ascent, and nowhere else.
    const bool at_top =
        !risen && steps.gain <= 1e-10 * (1.0 + std::abs(surface.value)) + surface.rounding(beta);
    if (at_top || (risen && !skipped && !steps.moves_flat && steps.settled(beta))) {
      outcome.converged = true;
      return outcome;
    }
    if (!risen) return outcome;
  }
  return outcome;
}

}  // namespace tolvenra::estimation
