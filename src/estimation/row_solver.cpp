#include "estimation/row_solver.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace tolvenra::estimation {
namespace {

/// Counts below this part of a component's total say nothing about how a row is split.
constexpr double negligible = 1e-9;

/// Smallest set of rows that groups tie together.
class disjoint_sets {
 public:
  explicit disjoint_sets(std::size_t n) : parent_(n) {
    std::iota(parent_.begin(), parent_.end(), std::size_t{0});
  }
  std::size_t find(std::size_t i) {
    while (parent_[i] != i) i = parent_[i] = parent_[parent_[i]];
    return i;
  }
  void join(std::size_t a, std::size_t b) { parent_[find(b)] = find(a); }

 private:
  std::vector<std::size_t> parent_;
};

/// Solves H d = b for a positive semidefinite H (n x n, column-major, destroyed): scaled to unit
/// diagonal, factored with the largest pivot first, directions below 1e-13 left alone.
void solve_semidefinite(std::vector<double>& h, std::vector<double>& d) {
  const std::size_t n = d.size();
  std::vector<double> scale(n);
  for (std::size_t i = 0; i < n; ++i)
    scale[i] = h[i * n + i] > 0.0 ? 1.0 / std::sqrt(h[i * n + i]) : 0.0;
  for (std::size_t j = 0; j < n; ++j)
    for (std::size_t i = 0; i < n; ++i) h[j * n + i] *= scale[i] * scale[j];
  for (std::size_t i = 0; i < n; ++i) d[i] *= scale[i];

  std::vector<std::size_t> order;  // pivots taken
  std::vector<bool> taken(n, false);
  for (std::size_t step = 0; step < n; ++step) {
    std::size_t p = n;
    for (std::size_t i = 0; i < n; ++i)
      if (!taken[i] && (p == n || h[i * n + i] > h[p * n + p])) p = i;
    if (!(h[p * n + p] > 1e-13)) break;
    taken[p] = true;
    order.push_back(p);
    const double pivot = h[p * n + p];
    for (std::size_t j = 0; j < n; ++j) {
      if (taken[j]) continue;
      const double factor = h[p * n + j] / pivot;
      if (factor == 0.0) continue;
      for (std::size_t i = 0; i < n; ++i)
        if (!taken[i]) h[j * n + i] -= factor * h[p * n + i];
      d[j] -= factor * d[p];
    }
  }
  for (std::size_t i = 0; i < n; ++i)
    if (!taken[i]) d[i] = 0.0;
  for (std::size_t k = order.size(); k-- > 0;) {  // back substitution over the later pivots
    const std::size_t p = order[k];
    double sum = d[p];
    for (std::size_t later = k + 1; later < order.size(); ++later)
      sum -= h[p * n + order[later]] * d[order[later]];
    d[p] = sum / h[p * n + p];
  }
  for (std::size_t i = 0; i < n; ++i) d[i] *= scale[i];
}

/// Rank of a matrix of small whole numbers, given by its rows.
int32 rank(std::vector<std::vector<double>> a) {
  std::size_t done = 0;
  for (std::size_t column = 0; !a.empty() && column < a.front().size() && done < a.size();
       ++column) {
    std::size_t pivot = done;
    for (std::size_t i = done; i < a.size(); ++i)
      if (std::abs(a[i][column]) > std::abs(a[pivot][column])) pivot = i;
    if (std::abs(a[pivot][column]) < 1e-9) continue;
    std::swap(a[pivot], a[done]);
    for (std::size_t i = done + 1; i < a.size(); ++i) {
      const double factor = a[i][column] / a[done][column];
      for (std::size_t q = column; q < a[i].size(); ++q) a[i][q] -= factor * a[done][q];
    }
    ++done;
  }
  return static_cast<int32>(done);
}

}  // namespace

row_solver::row_solver(std::span<const int32> codes, std::span<const double> values,
                       const row_layout& layout, int32 nrows) {
  decode(codes, values, layout, nrows);
  split_into_components();
}

void row_solver::decode(std::span<const int32> codes, std::span<const double> values,
                        const row_layout& layout, int32 nrows) {
  struct member {
    int32 code;
    std::size_t row, element;
  };
  std::vector<member> members;
  rows_.resize(static_cast<std::size_t>(nrows));
  for (std::size_t m = 0; m < rows_.size(); ++m) {
    double fixed = 0.0;
    for (int32 r = 0; r < layout.length[m]; ++r) {
      const auto at =
          static_cast<std::size_t>(layout.base(static_cast<int64>(m)) + r * layout.step);
      if (codes[at] == 0) fixed += values[at];
      if (codes[at] == 1) rows_[m].free.push_back(at);
      if (codes[at] >= 2) {
        rows_[m].members.push_back(at);
        members.push_back({codes[at], m, at});
      }
    }
    // Starting values may sum to 1 + 1e-6; an item without categories has nothing to distribute.
    rows_[m].left = layout.length[m] > 0 ? std::max(0.0, 1.0 - fixed) : 0.0;
  }
  std::stable_sort(members.begin(), members.end(),
                   [](const member& a, const member& b) { return a.code < b.code; });
  for (std::size_t k = 0; k < members.size(); ++k) {
    if (k == 0 || members[k].code != members[k - 1].code) groups_.emplace_back();
    group& g = groups_.back();
    g.elements.push_back(members[k].element);
    if (g.links.empty() || g.links.back().row != members[k].row)
      g.links.push_back({members[k].row, 0.0});
    g.links.back().members += 1.0;
    g.dead = g.dead || rows_[members[k].row].left == 0.0;
  }
}

void row_solver::split_into_components() {
  disjoint_sets sets(rows_.size());
  for (const group& g : groups_)
    if (!g.dead)
      for (const link& l : g.links) sets.join(g.links.front().row, l.row);
  constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
  std::vector<std::size_t> component_of(rows_.size(), none);
  for (std::size_t m = 0; m < rows_.size(); ++m) {
    if (rows_[m].left == 0.0 || (rows_[m].free.empty() && rows_[m].members.empty())) continue;
    std::size_t& c = component_of[sets.find(m)];
    if (c == none) {
      c = components_.size();
      components_.emplace_back();
    }
    rows_[m].local = components_[c].rows.size();
    components_[c].rows.push_back(m);
  }
  for (std::size_t k = 0; k < groups_.size(); ++k)
    if (!groups_[k].dead)
      components_[component_of[sets.find(groups_[k].links.front().row)]].groups.push_back(k);
  for (component& c : components_) c.kind = path_of(c);
}

/// The pooled form is exact when all rows have the same mass left, hold the same number of members
/// of every group, and either all or none of them hold free elements.
row_solver::path row_solver::path_of(const component& c) const {
  if (c.groups.empty()) return path::apart;
  const row& first = rows_[c.rows.front()];
  for (const std::size_t m : c.rows)
    if (rows_[m].left != first.left || rows_[m].free.empty() != first.free.empty())
      return path::newton;
  for (const std::size_t k : c.groups) {
    const group& g = groups_[k];
    if (g.links.size() != c.rows.size()) return path::newton;
    for (const link& l : g.links)
      if (l.members != g.links.front().members) return path::newton;
  }
  return path::pooled;
}

/// \return false when a denominator is below the smallest normal number
bool row_solver::sum_counts(std::span<const double> counts, std::span<double> denominator) {
  for (std::size_t m = 0; m < rows_.size(); ++m) {
    row& r = rows_[m];
    r.free_count = 0.0;
    for (const std::size_t at : r.free) r.free_count += counts[at];
    r.count = r.free_count;
    for (const std::size_t at : r.members) r.count += counts[at];
    if (!denominator.empty()) denominator[m] = r.count;
  }
  for (group& g : groups_) {
    g.count = 0.0;
    for (const std::size_t at : g.elements) g.count += counts[at];
  }
  for (const component& c : components_) {
    for (const std::size_t m : c.rows) {
      const row& r = rows_[m];  // a single free category is decided by the sum alone
      const bool decided = r.members.empty() && r.free.size() == 1;
      if (!r.free.empty() && !decided && !(r.count >= smallest_normal)) return false;
    }
    for (const std::size_t k : c.groups) {
      double pooled = 0.0;
      for (const link& l : groups_[k].links) pooled += rows_[l.row].count;
      if (!(pooled >= smallest_normal)) return false;
    }
  }
  return true;
}

/// Gives rows whose free elements have next to no counts a negligible one, so that the free part
/// still shares what the groups leave. \return the component's total count before
double row_solver::lift_empty_rows(const component& c) {
  double total = 0.0;
  for (const std::size_t m : c.rows) total += rows_[m].count;
  for (const std::size_t m : c.rows) {
    row& r = rows_[m];
    if (r.free.empty() || r.free_count >= negligible * total) continue;
    r.count += negligible * total - r.free_count;
    r.free_count = negligible * total;
  }
  return total;
}

void row_solver::solve_pooled(const component& c) {
  lift_empty_rows(c);
  double total = 0.0;
  for (const std::size_t m : c.rows) total += rows_[m].count;
  const double left = rows_[c.rows.front()].left;
  for (const std::size_t k : c.groups)
    groups_[k].value = left * groups_[k].count / (groups_[k].links.front().members * total);
}

/// The dual function, its gradient (what each row's sum lacks) and whether lambda lies in its
/// domain.
struct row_solver::dual_point {
  bool inside = true;
  double value = 0.0;
  double residual = 0.0;  ///< largest absolute gradient element
  std::vector<double> gradient;
  std::vector<double> group_sums;  ///< a_g
};

row_solver::dual_point row_solver::evaluate(const component& c,
                                            std::span<const double> lambda) const {
  dual_point at;
  at.gradient.resize(c.rows.size());
  for (std::size_t i = 0; i < c.rows.size(); ++i) {
    const row& r = rows_[c.rows[i]];
    at.value += r.left * lambda[i];
    at.gradient[i] = r.left;
    if (r.free.empty()) continue;
    at.inside = at.inside && lambda[i] > 0.0;
    at.value -= r.free_count * std::log(lambda[i]);
    at.gradient[i] -= r.free_count / lambda[i];
  }
  for (const std::size_t k : c.groups) {
    const group& g = groups_[k];
    double a = 0.0;
    for (const link& l : g.links) a += l.members * lambda[rows_[l.row].local];
    at.group_sums.push_back(a);
    if (g.count == 0.0) continue;
    at.inside = at.inside && a > 0.0;
    at.value -= g.count * std::log(a);
    for (const link& l : g.links) at.gradient[rows_[l.row].local] -= l.members * g.count / a;
  }
  for (const double slack : at.gradient)
    if (std::abs(slack) > at.residual || std::isnan(slack)) at.residual = std::abs(slack);
  at.inside = at.inside && std::isfinite(at.value);
  return at;
}

/// Damped Newton on the dual from the multipliers at hand. \return false when a sum stays unmet
bool row_solver::minimise_dual(component& c) {
  const std::size_t n = c.rows.size();
  std::vector<double>& lambda = c.multipliers;
  dual_point at = evaluate(c, lambda);
  for (int step = 0; step < 200 && !(at.residual <= 1e-13); ++step) {
    std::vector<double> hessian(n * n, 0.0);
    std::vector<double> direction(n);
    for (std::size_t i = 0; i < n; ++i) {
      direction[i] = -at.gradient[i];
      if (!rows_[c.rows[i]].free.empty())
        hessian[i * n + i] += rows_[c.rows[i]].free_count / (lambda[i] * lambda[i]);
    }
    for (std::size_t q = 0; q < c.groups.size(); ++q) {
      const group& g = groups_[c.groups[q]];
      const double curvature = g.count / (at.group_sums[q] * at.group_sums[q]);
      for (const link& a : g.links)
        for (const link& b : g.links)
          hessian[rows_[a.row].local * n + rows_[b.row].local] += curvature * a.members * b.members;
    }
    solve_semidefinite(hessian, direction);
    const double slope =
        std::inner_product(direction.begin(), direction.end(), at.gradient.begin(), 0.0);
    const bool damped = std::abs(slope) > 1e-9 * std::max(1.0, std::abs(at.value));
    std::vector<double> next(n);
    dual_point there;
    bool moved = false;
    for (double length = 1.0; length > 1e-18 && !moved; length /= 2.0) {
      for (std::size_t i = 0; i < n; ++i) next[i] = lambda[i] + length * direction[i];
      there = evaluate(c, next);
      moved = there.inside && (!damped || there.value <= at.value + 1e-4 * length * slope);
    }
    if (!moved || (at.residual < 1e-9 && !(there.residual < at.residual / 2))) break;
    lambda.swap(next);
    at = std::move(there);
  }
  for (std::size_t q = 0; q < c.groups.size(); ++q)
    groups_[c.groups[q]].value =
        groups_[c.groups[q]].count == 0.0 ? 0.0 : groups_[c.groups[q]].count / at.group_sums[q];
  return at.residual <= 1e-6;
}

bool row_solver::solve_newton(component& c) {
  const double total = lift_empty_rows(c);
  double largest = 0.0;
  for (const std::size_t m : c.rows) largest = std::max(largest, rows_[m].count);
  std::vector<std::size_t> empty;  // groups without counts
  for (const std::size_t k : c.groups) {
    if (groups_[k].count == 0.0) empty.push_back(k);
    groups_[k].count = std::max(groups_[k].count, negligible * total);
  }
  const auto restart = [&] {
    c.multipliers.clear();
    for (const std::size_t m : c.rows)
      c.multipliers.push_back((rows_[m].count > 0.0 ? rows_[m].count : largest) / rows_[m].left);
  };
  if (c.multipliers.size() != c.rows.size() || !evaluate(c, c.multipliers).inside) restart();
  if (!minimise_dual(c)) {
    restart();
    if (!minimise_dual(c)) return false;
  }
  bool any_zero = false;
  for (const std::size_t k : empty)
    if (groups_[k].value <= 1e-8) {
      groups_[k].count = 0.0;
      any_zero = true;
    }
  if (!any_zero) return true;
  const std::vector<double> lifted = c.multipliers;
  if (minimise_dual(c)) return true;
  c.multipliers = lifted;  // the sums need these groups after all
  for (const std::size_t k : empty)
    groups_[k].count = std::max(groups_[k].count, negligible * total);
  return minimise_dual(c);
}

/// Writes the groups' values and scales the free part of every row to what is left.
void row_solver::write(const component& c, std::span<const double> counts,
                       std::span<double> values) const {
  for (const std::size_t k : c.groups)
    for (const std::size_t at : groups_[k].elements) values[at] = groups_[k].value;
  for (const std::size_t m : c.rows) {
    const row& r = rows_[m];
    double left = r.left;
    for (const std::size_t at : r.members) left -= values[at];
    left = std::max(left, 0.0);
    double total = 0.0;
    for (const std::size_t at : r.free) total += counts[at];
    const bool lifted = c.kind != path::apart && total < r.free_count;
    const bool informative = r.free.size() > 1 && total > 0.0 && !lifted;
    for (const std::size_t at : r.free)
      values[at] =
          informative ? left * counts[at] / total : left / static_cast<double>(r.free.size());
  }
}

row_solver::outcome row_solver::solve(std::span<const double> counts, std::span<double> values,
                                      std::span<double> denominator) {
  if (!sum_counts(counts, denominator)) return outcome::zero_denominator;
  for (const group& g : groups_)
    if (g.dead)
      for (const std::size_t at : g.elements) values[at] = 0.0;
  for (const row& r : rows_)
    if (r.left == 0.0)
      for (const std::size_t at : r.free) values[at] = 0.0;
  for (component& c : components_) {
    if (c.kind == path::pooled) solve_pooled(c);
    if (c.kind == path::newton && !solve_newton(c)) return outcome::inconsistent;
    write(c, counts, values);
  }
  return outcome::solved;
}

bool row_solver::consistent(std::span<const double> values) const {
  row_solver trial = *this;
  std::vector<double> tried(values.begin(), values.end());
  const std::vector<double> ones(values.size(), 1.0);
  if (trial.solve(ones, tried, {}) != outcome::solved) return false;
  for (const row& r : rows_) {
    if (r.left == 0.0 && r.members.empty()) continue;  // nothing is left, and nothing is tied to it
    double sum = 0.0;
    double smallest = r.free.empty() && r.members.empty() ? r.left : 1.0;
    for (const auto* elements : {&r.free, &r.members})
      for (const std::size_t at : *elements) {
        sum += tried[at];
        smallest = std::min(smallest, tried[at]);
      }
    // Equal counts keep every element well away from zero unless the sums force it there.
    if (!(std::abs(sum - r.left) <= 1e-11) || !(smallest > 1e-7)) return false;
  }
  return true;
}

int32 row_solver::free_parameters() const {
  int32 count = 0;
  for (const component& c : components_) {
    count += static_cast<int32>(c.groups.size());
    std::vector<std::vector<double>> tied;  // rows without a free element of their own
    for (const std::size_t m : c.rows) {
      count += std::max(static_cast<int32>(rows_[m].free.size()) - 1, 0);
      if (rows_[m].free.empty()) tied.emplace_back(c.groups.size(), 0.0);
    }
    std::vector<std::size_t> place(c.rows.size(), 0);  // in `tied`, by number within the component
    for (std::size_t i = 0, next = 0; i < c.rows.size(); ++i)
      if (rows_[c.rows[i]].free.empty()) place[i] = next++;
    for (std::size_t q = 0; q < c.groups.size(); ++q)
      for (const link& l : groups_[c.groups[q]].links)
        if (rows_[l.row].free.empty()) tied[place[rows_[l.row].local]][q] = l.members;
    count -= rank(std::move(tied));
  }
  return count;
}

}  // namespace tolvenra::estimation
