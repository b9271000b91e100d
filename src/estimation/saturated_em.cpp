#include "estimation/saturated_em.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "estimation/saturated_steps.hpp"

namespace tolvenra::estimation {
namespace {

using values = std::vector<double>;

/// Squared extrapolation of every block from three successive points.
class extrapolation {
 public:
  explicit extrapolation(const block_numbers& blocks)
      : blocks_(blocks), limit_(blocks.count, std::numeric_limits<double>::infinity()) {}

  /// \return false when there is nothing to gain in any block
  bool propose(const values& first, const values& second, const values& third, values& trial) {
    choose_lengths(first, second, third);
    if (std::ranges::all_of(length_, [](double length) { return length <= 1.0; })) return false;
    for (std::size_t k = 0; k < trial.size(); ++k) {
      const double length = length_[blocks_.of_class[k]];
      const double r = second[k] - first[k];
      const double v = third[k] - second[k] - r;
      trial[k] = length > 1.0 ? std::max(first[k] + length * (2.0 * r + length * v), 0.1 * third[k])
                              : third[k];
    }
    return true;
  }

  /// Keeps in `answer` what followed from the trial where the trial was better than the second
  /// point, and goes back to the third elsewhere.
  void judge(const values& before, const values& after, const values& third, values& answer) {
    for (std::size_t b = 0; b < length_.size(); ++b) {
      if (length_[b] <= 1.0) continue;
      if (after[b] > before[b]) {
        if (length_[b] >= limit_[b]) limit_[b] *= 4.0;
      } else {
        limit_[b] = std::max(length_[b] / 16.0, 2.0);
        length_[b] = refused;
      }
    }
    for (std::size_t k = 0; k < answer.size(); ++k)
      if (length_[blocks_.of_class[k]] == refused) answer[k] = third[k];
  }

 private:
  static constexpr double refused = -1.0;

  void choose_lengths(const values& first, const values& second, const values& third) {
    length_.assign(blocks_.count, 0.0);
    bend_.assign(blocks_.count, 0.0);
    for (std::size_t k = 0; k < first.size(); ++k) {
      const double r = second[k] - first[k];
      const double v = third[k] - second[k] - r;
      length_[blocks_.of_class[k]] += r * r;
      bend_[blocks_.of_class[k]] += v * v;
    }
    for (std::size_t b = 0; b < blocks_.count; ++b)
      length_[b] = bend_[b] > 0.0 ? std::min(std::sqrt(length_[b] / bend_[b]), limit_[b]) : 0.0;
  }

  const block_numbers& blocks_;
  values limit_, length_, bend_;
};

/// The passes with their count and their end.
class pass_loop {
 public:
  pass_loop(const cell_classes& classes, const values& count, const cell_fit_controls& controls)
      : em_(classes, count, controls.threads),
        controls_(controls),
        cells_(std::accumulate(classes.cells.begin(), classes.cells.end(), 0.0)) {}

  cell_fit run(const values& start) {
    values point = start;
    values next(point.size());
    bool over = step(point, next);  // from cells that do not sum to 1
    point.swap(next);
    if (controls_.plain) {
      for (; !over; point.swap(next)) over = step(point, next);
    } else if (!over) {
      accelerated(point);
    }
    return result(std::move(point));
  }

 private:
  /// What the log-likelihood may lack at the end: after a second's work less is asked for.
  [[nodiscard]] double negligible() const {
    constexpr int64 second = int64{1} << 28;
    return std::max(em_.visits() < second ? 1e-8 : 1e-5, 1e-13 * em_.total());
  }

  /// One pass, and the climb from where it ends. \return whether the passes are over
  bool step(const values& from, values& to) {
    double change = em_.pass(from, to);
    if (!std::isfinite(em_.sum_of_loglik()) && !safe_.empty()) {
      // Shares of the cases beyond the precision of the sums: the climb lost a pattern.
      change = em_.pass(safe_, to);
    }
    ++passes_;
    // The bound is one for cells that sum to 1; the first do not.
    shortfall_ = passes_ > 1 ? em_.shortfall() : std::numeric_limits<double>::infinity();
    converged_ =
        change / cells_ <= controls_.criterion && (controls_.plain || shortfall_ <= negligible());
    cancelled_ = controls_.cancelled && controls_.cancelled();
    if (converged_ || cancelled_ || passes_ >= controls_.max_passes ||
        em_.visits() >= controls_.max_visits)
      return true;
    if (controls_.plain) return false;
    safe_ = to;
    em_.climb(to);
    return false;
  }

  void accelerated(values& point) {
    extrapolation extrapolate(em_.blocks());
    values second(point.size()), third(point.size()), trial(point.size()), before;
    for (bool over = false; !over;) {
      if ((over = step(point, second))) {
        point.swap(second);
        return;
      }
      over = step(second, third);
      before = em_.loglik();
      if (over || !extrapolate.propose(point, second, third, trial)) {
        point.swap(third);
        continue;
      }
      em_.share_out(trial);
      over = step(trial, point);
      extrapolate.judge(before, em_.loglik(), third, point);
    }
  }

  cell_fit result(values&& mass) {
    em_.estep(mass);
    cell_fit fit;
    fit.mass = std::move(mass);
    fit.probability = em_.probability();
    fit.loglik = em_.sum_of_loglik();
    fit.shortfall = std::min(em_.shortfall(), shortfall_);  // a pass never loses
    fit.passes = passes_;
    fit.visits = em_.visits();
    fit.converged = converged_;
    fit.cancelled = cancelled_;
    return fit;
  }

  cell_em em_;
  cell_fit_controls controls_;
  double cells_;
  values safe_;  ///< where the last climb began
  double shortfall_ = 0.0;
  int32 passes_ = 0;
  bool converged_ = false, cancelled_ = false;
};

}  // namespace

cell_fit fit_cells(const cell_classes& classes, const std::vector<double>& count,
                   const cell_fit_controls& controls) {
  if (classes.size() == 0) {  // nobody responded
    cell_fit nothing;
    nothing.converged = true;
    return nothing;
  }
  return pass_loop(classes, count, controls).run(classes.cells);
}

}  // namespace tolvenra::estimation
