#include "estimation/saturated_steps.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <ranges>

#include "core/parallel.hpp"

namespace tolvenra::estimation {
namespace {

/// Far below any influence on a sum; keeps vanishing cells out of the denormal numbers.
constexpr double smallest_mass = 1e-200;

constexpr int32 least_sweeps = 4;
constexpr int32 most_sweeps = 64;

std::size_t at(int32 p) { return static_cast<std::size_t>(p); }

}  // namespace

block_numbers find_blocks(const cell_classes& classes, std::size_t npatt) {
  std::vector<std::size_t> parent(npatt);
  std::iota(parent.begin(), parent.end(), std::size_t{0});
  const auto root = [&](std::size_t p) {
    while (parent[p] != p) p = parent[p] = parent[parent[p]];
    return p;
  };
  const auto first_of = [&](std::size_t k) {
    return at(classes.pattern[static_cast<std::size_t>(classes.start[k])]);
  };
  for (std::size_t k = 0; k < classes.size(); ++k)
    for (auto i = static_cast<std::size_t>(classes.start[k]);
         i < static_cast<std::size_t>(classes.start[k + 1]); ++i)
      parent[root(at(classes.pattern[i]))] = root(first_of(k));
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
    blocks.of_class.push_back(blocks.of_pattern[first_of(k)]);
  return blocks;
}

cell_em::cell_em(const cell_classes& classes, const values& count, int32 threads)
    : classes_(classes),
      count_(count),
      blocks_(find_blocks(classes, count.size())),
      total_(std::accumulate(count.begin(), count.end(), 0.0)),
      threads_(threads),
      probability_(count.size()),
      weight_(count.size()),
      derivative_(classes.size()),
      cases_(blocks_.count, 0.0),
      loglik_(blocks_.count),
      steepest_(blocks_.count),
      sum_(blocks_.count) {
  for (std::size_t p = 0; p < count.size(); ++p) cases_[blocks_.of_pattern[p]] += count[p];
  active_.reserve(classes.size());
}

double cell_em::sum_of_loglik() const {
  return std::accumulate(loglik_.begin(), loglik_.end(), 0.0);
}

double cell_em::shortfall() const {
  double sum = 0.0;
  for (std::size_t b = 0; b < cases_.size(); ++b)
    sum += cases_[b] * std::max(steepest_[b] / total_ - 1.0, 0.0);
  return sum;
}

std::span<const int32> cell_em::patterns_of(std::size_t k) const {
  const auto first = static_cast<std::size_t>(classes_.start[k]);
  return {classes_.pattern.data() + first, static_cast<std::size_t>(classes_.start[k + 1]) - first};
}

template <class List>
void cell_em::add_up(const values& mass, const List& classes) {
  std::fill(probability_.begin(), probability_.end(), 0.0);
  for (const std::size_t k : classes) {
    if (mass[k] == 0.0) continue;
    for (const int32 p : patterns_of(k)) probability_[at(p)] += mass[k];
  }
}

void cell_em::estep(const values& mass) {
  add_up(mass, std::views::iota(std::size_t{0}, mass.size()));
  std::fill(loglik_.begin(), loglik_.end(), 0.0);
  for (std::size_t p = 0; p < count_.size(); ++p) {
    loglik_[blocks_.of_pattern[p]] += count_[p] * std::log(probability_[p]);
    weight_[p] = count_[p] / probability_[p];
  }
  const auto n = static_cast<int32>(mass.size());
  const int32 parts = parallel::blocks_for(n, 1);
  parallel::for_blocks(parts, threads_, [&](int32 b) {
    const auto range = parallel::rows_of_block(n, b, parts);
    for (auto k = at(range.first - 1); k < at(range.last); ++k) {
      double sum = 0.0;
      for (const int32 p : patterns_of(k)) sum += weight_[at(p)];
      derivative_[k] = sum;
    }
  });
  std::fill(steepest_.begin(), steepest_.end(), 0.0);
  for (std::size_t k = 0; k < mass.size(); ++k) {
    double& steepest = steepest_[blocks_.of_class[k]];
    steepest = std::max(steepest, derivative_[k]);
  }
  visits_ += 2 * static_cast<int64>(classes_.pattern.size());
}

double cell_em::pass(const values& from, values& to) {
  estep(from);
  double change = 0.0;
  for (std::size_t k = 0; k < from.size(); ++k) {
    const double mass = from[k] * (derivative_[k] / total_);
    to[k] = mass < smallest_mass ? 0.0 : mass;
    change += std::abs(to[k] - from[k]);
  }
  return change;
}

void cell_em::share_out(values& mass) {
  std::fill(sum_.begin(), sum_.end(), 0.0);
  for (std::size_t k = 0; k < mass.size(); ++k) sum_[blocks_.of_class[k]] += mass[k];
  for (std::size_t b = 0; b < sum_.size(); ++b) sum_[b] = cases_[b] / total_ / sum_[b];
  for (std::size_t k = 0; k < mass.size(); ++k) mass[k] *= sum_[blocks_.of_class[k]];
}

void cell_em::climb(values& mass) {
  active_.clear();
  for (std::size_t k = 0; k < mass.size(); ++k)
    if (mass[k] > 0.0 || derivative_[k] > total_) active_.push_back(k);
  const int64 enough = visits_ + 2 * static_cast<int64>(classes_.pattern.size());
  for (int32 i = 0; i < most_sweeps && (i < least_sweeps || visits_ < enough); ++i) {
    sweep(mass);
    std::erase_if(active_, [&](std::size_t k) { return mass[k] == 0.0; });
  }
  share_out(mass);
}

void cell_em::sweep(values& mass) {
  add_up(mass, active_);
  for (const std::size_t k : active_) {
    const double step = newton_step(k, mass[k]);
    visits_ += 3 * static_cast<int64>(patterns_of(k).size());
    if (step == 0.0) continue;
    mass[k] = std::max(mass[k] + step, 0.0);
    for (const int32 p : patterns_of(k)) probability_[at(p)] += step;
  }
}

/// Upwards Newton's step never passes the maximum. Downwards it does: the slope is convex, so half
/// the sum of the slopes at both ends bounds the mean slope between them, and the step is halved
/// until that says that it gains. No pattern falls below its share of the cases: at the maximum
/// along a class none of its patterns is below, and a class may hold all that a rare pattern has.
double cell_em::newton_step(std::size_t k, double mass) const {
  const auto list = patterns_of(k);
  double slope = -total_;
  double curvature = 0.0;
  double lowest = -mass;
  for (const int32 p : list) {
    const double inverse = 1.0 / probability_[at(p)];
    const double weight = count_[at(p)] * inverse;
    slope += weight;
    curvature += weight * inverse;
    lowest = std::max(lowest, count_[at(p)] / total_ - probability_[at(p)]);
  }
  if (!(slope < 0.0)) return slope / curvature;
  double step = std::max(slope / curvature, std::min(lowest, 0.0));
  for (int32 halvings = 0; step < 0.0; ++halvings, step /= 2.0) {
    if (halvings == 20) return 0.0;
    double after = -total_;
    for (const int32 p : list) after += count_[at(p)] / (probability_[at(p)] + step);
    if (slope + after <= 0.0) break;
  }
  return step;
}

}  // namespace tolvenra::estimation
