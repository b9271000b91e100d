#include "estimation/linked_rows.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "core/types.hpp"

namespace tolvenra::estimation {
namespace {

constexpr std::size_t none = condensed_tableau::none;

/// Weight of terms without counts.
constexpr double negligible = 1e-12;

/// Terms without counts up to here are set to zero.
constexpr double vanishing = 1e-8;

/// A term outside the basis takes the place of one that moves this much less easily.
constexpr double much = 1e3;

}  // namespace

linked_rows::linked_rows(linked_sums sums, std::span<const double> values,
                         std::span<const double> rests)
    : sums_(std::move(sums)), table_(sums_), x_(values.begin(), values.end()) {
  x_.insert(x_.end(), rests.begin(), rests.end());
  for (std::size_t k = 0; k < x_.size(); ++k)
    if (k < values.size() || sums_.open[k - values.size()])
      terms_.push_back(k);
    else
      x_[k] = 0.0;
  result_ = x_;
  weight_.assign(x_.size(), 0.0);
  d_ = step_ = weight_;
  right_.resize(table_.columns());
  small_.resize(table_.rows());
  table_.solve_for([](std::size_t) { return true; });
  list_entries();
  meet_sums(x_);
}

void linked_rows::list_entries() {
  by_row_.assign(table_.rows(), {});
  by_column_.assign(table_.columns(), {});
  for (std::size_t i = 0; i < table_.rows(); ++i)
    for (std::size_t j = 0; j < table_.columns(); ++j)
      if (const double t = table_.at(i, j); t != 0.0 && table_.basic(i) != none) {
        by_row_[i].push_back({j, t});
        by_column_[j].push_back({i, t});
      }
}

/// \param least  weight of terms with fewer counts
void linked_rows::weigh(std::span<const double> counts, double least) {
  double total = 0.0;
  for (const std::size_t k : terms_) total += counts[k];
  const bool silent = !(total >= smallest_normal);  // counts that say nothing: equal weights
  for (const std::size_t k : terms_) weight_[k] = silent ? 1.0 : std::max(counts[k] / total, least);
}

/// Brings terms into the basis that move more easily than what is there.
void linked_rows::choose_basis() {
  bool moved = false;
  for (std::size_t i = 0, exchanges = 0; i < table_.rows() && exchanges < 2 * table_.rows(); ++i) {
    const std::size_t basic = table_.basic(i);
    if (basic == none) continue;
    std::size_t best = none;
    double ease = much / d_[basic];
    for (std::size_t j = 0; j < table_.columns(); ++j) {
      if (table_.at(i, j) == 0.0 || table_.outside(j) == none) continue;
      const double his = table_.at(i, j) * table_.at(i, j) / d_[table_.outside(j)];
      if (!(his > ease)) continue;
      best = j;
      ease = his;
    }
    if (best == none) continue;
    table_.pivot(i, best);
    moved = true;
    ++exchanges;
    i = none;  // from the first row again
  }
  if (moved) list_entries();
}

/// The Newton step. \return the largest relative change of a term
double linked_rows::direction() {
  for (const std::size_t k : terms_) d_[k] = weight_[k] / (x_[k] * x_[k]);
  choose_basis();
  for (std::size_t j = 0; j < table_.columns(); ++j) {
    right_[j] = 0.0;
    if (table_.outside(j) == none) continue;
    right_[j] = weight_[table_.outside(j)] / x_[table_.outside(j)];
    for (const entry& e : by_column_[j])
      right_[j] -= e.factor * weight_[table_.basic(e.number)] / x_[table_.basic(e.number)];
  }
  if (table_.columns() <= table_.rows())
    solve_outside();
  else
    solve_rows();
  for (std::size_t j = 0; j < table_.columns(); ++j)
    if (table_.outside(j) != none) step_[table_.outside(j)] = right_[j];
  for (std::size_t i = 0; i < table_.rows(); ++i) {
    if (table_.basic(i) == none) continue;
    double& step = step_[table_.basic(i)] = 0.0;
    for (const entry& e : by_row_[i]) step -= e.factor * right_[e.number];
  }
  double change = 0.0;
  for (const std::size_t k : terms_) {
    const double relative = std::abs(step_[k]) / x_[k];
    if (!(relative <= change)) change = relative;
  }
  return change;
}

/// Replaces `right_` by the solution of (D_N + T' D_B T) d = `right_`.
void linked_rows::solve_outside() {
  factor_.clear(right_.size());
  for (std::size_t j = 0; j < right_.size(); ++j)
    factor_.at(j, j) = table_.outside(j) == none ? 1.0 : d_[table_.outside(j)];
  for (std::size_t i = 0; i < table_.rows(); ++i)
    for (std::size_t a = 0; a < by_row_[i].size(); ++a)
      for (std::size_t b = 0; b <= a; ++b)  // columns ascend
        factor_.at(by_row_[i][a].number, by_row_[i][b].number) +=
            by_row_[i][a].factor * by_row_[i][b].factor * d_[table_.basic(i)];
  factor_.factor();
  factor_.solve(right_);
}

/// The same through the rows: (1/D_N - 1/D_N T' (1/D_B + T 1/D_N T')^-1 T 1/D_N) `right_`.
void linked_rows::solve_rows() {
  const auto ease = [&](std::size_t j) {
    return table_.outside(j) == none ? 0.0 : 1.0 / d_[table_.outside(j)];
  };
  factor_.clear(table_.rows());
  for (std::size_t i = 0; i < table_.rows(); ++i) {
    factor_.at(i, i) = table_.basic(i) == none ? 1.0 : 1.0 / d_[table_.basic(i)];
    small_[i] = 0.0;
  }
  for (std::size_t j = 0; j < right_.size(); ++j) {
    right_[j] *= ease(j);
    for (std::size_t a = 0; a < by_column_[j].size(); ++a) {
      const entry& row = by_column_[j][a];
      small_[row.number] += row.factor * right_[j];
      for (std::size_t b = 0; b <= a; ++b)
        factor_.at(row.number, by_column_[j][b].number) +=
            row.factor * by_column_[j][b].factor * ease(j);
    }
  }
  factor_.factor();
  factor_.solve(small_);
  for (std::size_t j = 0; j < right_.size(); ++j)
    for (const entry& e : by_column_[j]) right_[j] -= ease(j) * e.factor * small_[e.number];
}

/// The full step, or most of the way to the nearest zero.
double linked_rows::longest_step() const {
  double fall = 0.0;  // steepest, relative to the term
  for (const std::size_t k : terms_) fall = std::max(fall, -step_[k] / x_[k]);
  return fall < 0.95 ? 1.0 : 0.95 / fall;
}

/// What the step adds to the maximised sum, less 1e-4 of what its slope promises.
double linked_rows::gain(double length) const {
  double sum = 0.0;
  for (const std::size_t k : terms_) {
    const double relative = step_[k] / x_[k];
    sum += weight_[k] * (std::log1p(length * relative) - 1e-4 * length * relative * relative);
  }
  return sum;
}

/// Sets the basic terms to what the others leave.
void linked_rows::meet_sums(std::vector<double>& x) const {
  for (std::size_t i = 0; i < table_.rows(); ++i) {
    if (table_.basic(i) == none) continue;
    double left = table_.constant(i);
    for (const entry& e : by_row_[i]) left -= e.factor * x[table_.outside(e.number)];
    x[table_.basic(i)] = left;
  }
}

bool linked_rows::maximise(std::span<const double> counts) {
  meet_sums(result_ = x_);  // rounding of many updates would add up
  for (const std::size_t k : terms_)
    if (std::abs(result_[k] - x_[k]) <= 1e-3 * x_[k]) x_[k] = result_[k];
  double least = negligible;
  weigh(counts, least);
  double before = 1.0;
  for (int step = 0; step < 300; ++step) {
    const double change = direction();
    if (!std::isfinite(change)) return false;
    // Quadratic convergence: what is left after this step is the square of the change.
    const bool last =
        least <= negligible && (change <= 1e-8 || (change <= 1e-4 && !(change < before / 2)));
    before = change;
    double length = longest_step();
    while (!last && length > 1e-12 && !(gain(length) >= 0.0)) length /= 2.0;
    if (!(length > 1e-12)) break;  // rounding hides the rest of the ascent
    for (const std::size_t k : terms_) x_[k] += length * step_[k];
    if (last) break;
    // Many terms on their way to zero stop each other short unless they go there together.
    const double next = length < 0.1   ? std::min(100.0 * least, 1e-2)
                        : length > 0.5 ? std::max(0.1 * least, negligible)
                                       : least;
    if (next != least) weigh(counts, least = next);
  }
  drop_empty_terms(counts);
  if (lacking() <= 1e-13) return true;
  solve_afresh();
  drop_empty_terms(counts);
  return lacking() <= 1e-9;
}

/// Solves the given sums for the terms of the basis again: exchanges add up rounding.
void linked_rows::solve_afresh() {
  std::vector<bool> basic(x_.size(), false);
  for (std::size_t i = 0; i < table_.rows(); ++i)
    if (table_.basic(i) != none) basic[table_.basic(i)] = true;
  table_ = condensed_tableau(sums_);
  table_.solve_for([&](std::size_t variable) { return basic[variable]; });
  list_entries();
}

/// Sets terms outside the basis to zero that have no counts, unless the others cannot fill in.
void linked_rows::drop_empty_terms(std::span<const double> counts) {
  result_ = x_;
  for (std::size_t j = 0; j < table_.columns(); ++j) {
    const std::size_t k = table_.outside(j);
    if (k != none && counts[k] == 0.0 && result_[k] <= vanishing) result_[k] = 0.0;
  }
  meet_sums(result_);
  for (const std::size_t k : terms_) {
    if (counts[k] == 0.0 && std::abs(result_[k]) <= 1e-14) result_[k] = 0.0;
    if (result_[k] >= 0.0) continue;
    result_ = x_;
    meet_sums(result_);
    return;
  }
}

/// The largest difference of a sum.
double linked_rows::lacking() const {
  double largest = 0.0;
  std::vector<double> left = sums_.totals;
  for (std::size_t k = 0; k < sums_.columns.size(); ++k)
    for (const auto& l : sums_.columns[k]) left[l.row] -= l.members * value(k);
  for (std::size_t r = 0; r < left.size(); ++r) {
    const double lack = std::abs(left[r] - rest(r));
    if (!(lack <= largest)) largest = lack;
  }
  return largest;
}

}  // namespace tolvenra::estimation
