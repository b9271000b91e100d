#include "estimation/row_solver.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace tolvenra::estimation {
namespace {

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
  if (!unmet_) find_known_values();
  if (unmet_) return;
  components_ = split_into_components();
  for (component& c : components_) {
    c.kind = path_of(c);
    if (c.kind != path::newton) continue;
    std::vector<double> start, rests;
    for (const std::size_t k : c.groups) start.push_back(groups_[k].value);
    for (const std::size_t m : c.rows) rests.push_back(rows_[m].rest);
    c.values = linked_rows(sums_of(c), start, rests);
  }
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
    row& r = rows_[m];
    double fixed = 0.0;
    for (int32 i = 0; i < layout.length[m]; ++i) {
      const auto at =
          static_cast<std::size_t>(layout.base(static_cast<int64>(m)) + i * layout.step);
      if (codes[at] == 0) fixed += values[at];
      if (codes[at] == 1) r.free.push_back(at);
      if (codes[at] >= 2) members.push_back({codes[at], m, at});
      if (codes[at] >= 2) r.members.push_back(at);
    }
    r.left = layout.length[m] > 0 ? 1.0 - fixed : 0.0;  // an empty row has nothing to distribute
    if (!(r.left >= -sum_tolerance) && !unmet_) unmet_ = m;
    // Given values may miss 1 by the tolerance of their sums; rounding leaves nothing.
    if (!(r.left > sum_rounding)) r.left = 0.0;
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
  }
}

/// Rows with elements of unknown value, by the groups that tie them together.
std::vector<row_solver::component> row_solver::split_into_components() {
  disjoint_sets sets(rows_.size());
  for (const group& g : groups_)
    if (!g.known)
      for (const auto& l : g.links) sets.join(g.links.front().row, l.row);
  constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
  std::vector<std::size_t> component_of(rows_.size(), none);
  std::vector<component> components;
  for (std::size_t m = 0; m < rows_.size(); ++m) {
    if (rows_[m].free.empty() && rows_[m].members.empty()) continue;
    std::size_t& c = component_of[sets.find(m)];
    if (c == none) {
      c = components.size();
      components.emplace_back();
    }
    rows_[m].local = components[c].rows.size();
    components[c].rows.push_back(m);
  }
  for (std::size_t k = 0; k < groups_.size(); ++k)
    if (!groups_[k].known)
      components[component_of[sets.find(groups_[k].links.front().row)]].groups.push_back(k);
  return components;
}

/// The sums of a component, rows and groups by their number within it.
linked_sums row_solver::sums_of(const component& c) const {
  linked_sums sums;
  for (const std::size_t m : c.rows) {
    sums.totals.push_back(rows_[m].left);
    sums.open.push_back(!rows_[m].free.empty());
  }
  for (const std::size_t k : c.groups) {
    sums.columns.push_back(groups_[k].links);
    for (auto& l : sums.columns.back()) l.row = rows_[l.row].local;
  }
  return sums;
}

void row_solver::find_known_values() {
  for (const component& c : split_into_components()) {
    const sum_solution solution = solve_sums(sums_of(c));
    if (solution.unmet) {
      unmet_ = c.rows[*solution.unmet];
      return;
    }
    keep_known_values(c, solution);
  }
  std::vector<std::size_t> known;
  for (const known_element& e : known_) known.push_back(e.at);
  std::sort(known.begin(), known.end());
  for (row& r : rows_)
    for (auto* elements : {&r.free, &r.members}) {
      const auto end = std::stable_partition(
          elements->begin(), elements->end(),
          [&](std::size_t at) { return !std::binary_search(known.begin(), known.end(), at); });
      r.known.insert(r.known.end(), end, elements->end());
      elements->erase(end, elements->end());
    }
}

/// Takes over what the sums determine; the others get values that meet the sums.
void row_solver::keep_known_values(const component& c, const sum_solution& solution) {
  for (std::size_t q = 0; q < c.groups.size(); ++q) {
    group& g = groups_[c.groups[q]];
    g.value = solution.values[q];
    g.known = solution.value_known[q];
    if (!g.known) continue;
    for (const std::size_t at : g.elements) known_.push_back({at, g.value});
    for (const auto& l : g.links) rows_[l.row].left -= l.members * g.value;
  }
  for (std::size_t i = 0; i < c.rows.size(); ++i) {
    row& r = rows_[c.rows[i]];
    r.left = std::max(r.left, 0.0);
    r.rest = solution.rests[i];
    if (solution.rest_known[i] && solution.rests[i] == 0.0)
      for (const std::size_t at : r.free) known_.push_back({at, 0.0});
  }
}

/// The pooled form is exact when all rows have the same mass left, hold the same number of members
/// of every group, and either all or none of them hold free elements.
row_solver::path row_solver::path_of(const component& c) const {
  if (c.groups.empty()) return path::apart;
  const row& first = rows_[c.rows.front()];
  for (const std::size_t m : c.rows)
    if (!(std::abs(rows_[m].left - first.left) <= 1e-15) ||
        rows_[m].free.empty() != first.free.empty())
      return path::newton;
  for (const std::size_t k : c.groups) {
    const group& g = groups_[k];
    if (g.links.size() != c.rows.size()) return path::newton;
    for (const auto& l : g.links)
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
    for (const auto* elements : {&r.members, &r.known})
      for (const std::size_t at : *elements) r.count += counts[at];
    if (!denominator.empty()) denominator[m] = r.count;
  }
  for (group& g : groups_) {
    g.count = 0.0;
    for (const std::size_t at : g.elements) g.count += counts[at];
  }
  for (const row& r : rows_) {  // a single free category is decided by the sum alone
    const bool decided = r.members.empty() && r.known.empty() && r.free.size() == 1;
    if (!r.free.empty() && !decided && !(r.count >= smallest_normal)) return false;
  }
  for (const group& g : groups_) {
    if (g.known && g.value == 0.0) continue;
    double pooled = 0.0;
    for (const auto& l : g.links) pooled += rows_[l.row].count;
    if (!(pooled >= smallest_normal)) return false;
  }
  return true;
}

void row_solver::solve_pooled(const component& c) {
  double free = 0.0;
  double total = 0.0;
  for (const std::size_t m : c.rows) free += rows_[m].free_count;
  for (const std::size_t k : c.groups) total += groups_[k].count;
  total += free;
  const bool silent = !(total >= smallest_normal);  // only what the sums determine was counted
  if (silent) {
    total = free = rows_[c.rows.front()].free.empty() ? 0.0 : static_cast<double>(c.rows.size());
    for (const std::size_t k : c.groups)
      total += groups_[k].count = static_cast<double>(groups_[k].elements.size());
  }
  const double left = rows_[c.rows.front()].left;
  for (const std::size_t k : c.groups)
    groups_[k].value = left * groups_[k].count / (groups_[k].links.front().members * total);
  for (const std::size_t m : c.rows) rows_[m].rest = left * free / total;
}

bool row_solver::solve_newton(component& c) {
  counts_.clear();
  for (const std::size_t k : c.groups) counts_.push_back(groups_[k].count);
  for (const std::size_t m : c.rows) counts_.push_back(rows_[m].free_count);
  if (!c.values.maximise(counts_)) return false;
  for (std::size_t q = 0; q < c.groups.size(); ++q) groups_[c.groups[q]].value = c.values.value(q);
  for (std::size_t i = 0; i < c.rows.size(); ++i) rows_[c.rows[i]].rest = c.values.rest(i);
  return true;
}

/// Writes the groups' values and scales the free part of every row to exactly what they leave.
void row_solver::write(const component& c, std::span<const double> counts,
                       std::span<double> values) const {
  for (const std::size_t k : c.groups)
    for (const std::size_t at : groups_[k].elements) values[at] = groups_[k].value;
  for (const std::size_t m : c.rows) {
    const row& r = rows_[m];
    double rest = r.left;
    for (const std::size_t at : r.members) rest -= values[at];
    if (c.kind != path::apart && r.rest == 0.0) rest = 0.0;
    rest = std::max(rest, 0.0);
    double total = 0.0;
    for (const std::size_t at : r.free) total += counts[at];
    const bool informative = r.free.size() > 1 && total >= smallest_normal;
    for (const std::size_t at : r.free)
      values[at] =
          informative ? rest * counts[at] / total : rest / static_cast<double>(r.free.size());
  }
}

row_solver::outcome row_solver::solve(std::span<const double> counts, std::span<double> values,
                                      std::span<double> denominator) {
  if (!sum_counts(counts, denominator)) return outcome::zero_denominator;
  for (const known_element& e : known_) values[e.at] = e.value;
  for (component& c : components_) {
    if (c.kind == path::pooled) solve_pooled(c);
    if (c.kind == path::newton && !solve_newton(c)) return outcome::inconsistent;
    write(c, counts, values);
  }
  return outcome::solved;
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
      for (const auto& l : groups_[c.groups[q]].links)
        if (rows_[l.row].free.empty()) tied[place[rows_[l.row].local]][q] = l.members;
    count -= rank(std::move(tied));
  }
  return count;
}

}  // namespace tolvenra::estimation
