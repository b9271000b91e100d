#include "estimation/saturated_em.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <span>

namespace tolvenra::estimation {
namespace {

using values = std::vector<double>;

/// Classes and patterns that are linked by shared cells, numbered from 0.
struct block_numbers {
  std::vector<std::size_t> of_pattern, of_class;
  std::size_t count = 0;
};

std::span<const int32> patterns_of(const cell_classes& classes, std::size_t k) {
  const auto first = static_cast<std::size_t>(classes.start[k]);
  return {classes.pattern.data() + first, static_cast<std::size_t>(classes.start[k + 1]) - first};
}

block_numbers find_blocks(const cell_classes& classes, std::size_t npatt) {
  std::vector<std::size_t> parent(npatt);
  std::iota(parent.begin(), parent.end(), std::size_t{0});
  const auto root = [&](std::size_t p) {
    while (parent[p] != p) p = parent[p] = parent[parent[p]];
    return p;
  };
  for (std::size_t k = 0; k < classes.size(); ++k) {
    const auto list = patterns_of(classes, k);
    for (const int32 p : list)
      parent[root(static_cast<std::size_t>(p))] = root(static_cast<std::size_t>(list[0]));
  }
  block_numbers blocks;
  blocks.of_pattern.resize(npatt);
  constexpr auto none = std::numeric_limits<std::size_t>::max();
  std::vector<std::size_t> number(npatt, none);
  for (std::size_t p = 0; p < npatt; ++p) {
    std::size_t& of_root = number[root(p)];
    if (of_root == none) of_root = blocks.count++;
    blocks.of_pattern[p] = of_root;
  }
  for (std::size_t k = 0; k < classes.size(); ++k)
    blocks.of_class.push_back(
        blocks.of_pattern[static_cast<std::size_t>(patterns_of(classes, k)[0])]);
  return blocks;
}

/// State and steps of one fit.
class cell_em {
 public:
  cell_em(const cell_classes& classes, const values& count)
      : classes_(classes),
        count_(count),
        blocks_(find_blocks(classes, count.size())),
        total_(std::accumulate(count.begin(), count.end(), 0.0)),
        probability_(count.size()),
        weight_(count.size()),
        cases_(blocks_.count, 0.0),
        loglik_(blocks_.count),
        steepest_(blocks_.count),
        sum_(blocks_.count) {
    for (std::size_t p = 0; p < count.size(); ++p) cases_[blocks_.of_pattern[p]] += count[p];
  }

  [[nodiscard]] const block_numbers& blocks() const { return blocks_; }
  [[nodiscard]] double total() const { return total_; }
  /// What the last E-step found: probabilities of the patterns, log-likelihood of each block,
  /// bound.
  [[nodiscard]] const values& probability() const { return probability_; }
  [[nodiscard]] const values& loglik() const { return loglik_; }
  [[nodiscard]] double shortfall() const {
    double sum = 0.0;
    for (std::size_t b = 0; b < cases_.size(); ++b)
      sum += cases_[b] * std::max(steepest_[b] / total_ - 1.0, 0.0);
    return sum;
  }

  /// One pass: `to` is the M-step's answer to `from`. \return sum of the absolute changes
  double pass(const values& from, values& to) {
    estep(from);
    double change = 0.0;
    for (std::size_t k = 0; k < from.size(); ++k) {
      const double mass = from[k] * (derivative(k) / total_);
      to[k] = mass < smallest_mass ? 0.0 : mass;
      change += std::abs(to[k] - from[k]);
    }
    return change;
  }

  /// Probabilities of the patterns and everything that follows from them.
  void estep(const values& mass) {
    add_up(mass);
    std::fill(loglik_.begin(), loglik_.end(), 0.0);
    for (std::size_t p = 0; p < count_.size(); ++p) {
      loglik_[blocks_.of_pattern[p]] += count_[p] * std::log(probability_[p]);
      weight_[p] = count_[p] / probability_[p];
    }
    std::fill(steepest_.begin(), steepest_.end(), 0.0);
    for (std::size_t k = 0; k < mass.size(); ++k) {
      double& steepest = steepest_[blocks_.of_class[k]];
      steepest = std::max(steepest, derivative(k));
    }
  }

  /// A Newton step of every class in turn on the log-likelihood less N times the probabilities,
  /// whose maximum is that of the log-likelihood alone; then the blocks get their shares back.
  void sweep(values& mass) {
    add_up(mass);
    for (std::size_t k = 0; k < mass.size(); ++k) {
      const double step = newton_step(k, mass[k]);
      if (step == 0.0) continue;
      mass[k] = std::max(mass[k] + step, 0.0);
      for (const int32 p : patterns_of(classes_, k))
        probability_[static_cast<std::size_t>(p)] += step;
    }
    share_out(mass);
  }

  /// Scales every block to its share of the cases.
  void share_out(values& mass) {
    std::fill(sum_.begin(), sum_.end(), 0.0);
    for (std::size_t k = 0; k < mass.size(); ++k) sum_[blocks_.of_class[k]] += mass[k];
    for (std::size_t b = 0; b < sum_.size(); ++b) sum_[b] = cases_[b] / total_ / sum_[b];
    for (std::size_t k = 0; k < mass.size(); ++k) mass[k] *= sum_[blocks_.of_class[k]];
  }

 private:
  /// Far below any influence on a sum; keeps vanishing cells out of the denormal numbers.
  static constexpr double smallest_mass = 1e-200;

  void add_up(const values& mass) {
    std::fill(probability_.begin(), probability_.end(), 0.0);
    for (std::size_t k = 0; k < mass.size(); ++k)
      for (const int32 p : patterns_of(classes_, k))
        probability_[static_cast<std::size_t>(p)] += mass[k];
  }

  [[nodiscard]] double derivative(std::size_t k) const {
    double sum = 0.0;
    for (const int32 p : patterns_of(classes_, k)) sum += weight_[static_cast<std::size_t>(p)];
    return sum;
  }

  /// Upwards Newton's step never passes the maximum; downwards it may, and is halved until it
  /// gains. No pattern falls below its share of the cases: at the maximum along a class none of its
  /// patterns is below, and a class may hold all that a rare pattern has.
  [[nodiscard]] double newton_step(std::size_t k, double mass) const {
    const auto list = patterns_of(classes_, k);
    double slope = -total_;
    double curvature = 0.0;
    double lowest = -mass;
    for (const int32 p : list) {
      const double probability = probability_[static_cast<std::size_t>(p)];
      const double count = count_[static_cast<std::size_t>(p)];
      const double weight = count / probability;
      slope += weight;
      curvature += weight / probability;
      lowest = std::max(lowest, count / total_ - probability);
    }
    double step =
        slope < 0.0 ? std::max(slope / curvature, std::min(lowest, 0.0)) : slope / curvature;
    for (int32 halvings = 0; step < 0.0; ++halvings, step /= 2.0) {
      if (halvings == 20) return 0.0;
      double gain = -total_ * step;
      for (const int32 p : list)
        gain += count_[static_cast<std::size_t>(p)] *
                std::log1p(step / probability_[static_cast<std::size_t>(p)]);
      if (gain >= 0.0) break;
    }
    return step;
  }

  const cell_classes& classes_;
  const values& count_;
  block_numbers blocks_;
  double total_;
  values probability_, weight_;
  values cases_, loglik_, steepest_, sum_;  // by block
};

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
      : em_(classes, count),
        controls_(controls),
        cells_(std::accumulate(classes.cells.begin(), classes.cells.end(), 0.0)),
        negligible_(std::max(1e-8, 1e-13 * em_.total())) {}

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
  static constexpr int32 sweeps = 4;  ///< before each pass but the first

  /// \return whether the passes are over
  bool step(values& from, values& to) {
    for (int32 i = 0; i < sweeps && passes_ > 0 && !controls_.plain; ++i) em_.sweep(from);
    const double change = em_.pass(from, to);
    ++passes_;
    converged_ = change / cells_ <= controls_.criterion &&
                 (controls_.plain || em_.shortfall() <= negligible_);
    return converged_ || passes_ >= controls_.max_passes;
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
    fit.loglik = std::accumulate(em_.loglik().begin(), em_.loglik().end(), 0.0);
    fit.shortfall = em_.shortfall();
    fit.passes = passes_;
    fit.converged = converged_;
    return fit;
  }

  cell_em em_;
  cell_fit_controls controls_;
  double cells_, negligible_;
  int32 passes_ = 0;
  bool converged_ = false;
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
