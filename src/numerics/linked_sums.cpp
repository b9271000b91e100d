#include "numerics/linked_sums.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "numerics/condensed_tableau.hpp"

namespace tolvenra {
namespace {

constexpr std::size_t none = condensed_tableau::none;

/// A lack that the rounding of a few sums cannot explain.
constexpr double contradiction = 1e-11;

/// The vertices of the solutions.
class simplex {
 public:
  explicit simplex(const linked_sums& sums) : table_(sums), gain_(sums.columns.size()) {}

  enum class extent { maximum, first_gain };

  /// Raises the sum of the wanted variables, less the lacks, as far as it goes or a step at most.
  void raise(const std::vector<bool>& wanted, extent how_far) {
    const auto weight = [&](std::size_t variable) {
      return variable == none ? -1.0 : wanted[variable] ? 1.0 : 0.0;
    };
    bool cautious = false;  // Bland's rule, after a step that gained nothing
    for (;;) {
      for (std::size_t j = 0; j < gain_.size(); ++j)
        gain_[j] = table_.outside(j) == none ? 0.0 : weight(table_.outside(j));
      for (std::size_t i = 0; i < table_.rows(); ++i) {
        const double w = weight(table_.basic(i));
        if (w == 0.0) continue;
        for (std::size_t j = 0; j < gain_.size(); ++j) gain_[j] -= w * table_.at(i, j);
      }
      const std::size_t j = entering(cautious);
      if (j == none) return;
      const std::size_t i = leaving(j);
      if (i == none) return;  // rows bound all terms: rounding alone leads here
      cautious = table_.constant(i) == 0.0;
      table_.pivot(i, j);
      for (std::size_t r = 0; r < table_.rows(); ++r)
        if (std::abs(table_.constant(r)) <= sum_rounding) table_.constant(r) = 0.0;
      if (!cautious && how_far == extent::first_gain) return;
    }
  }

  /// The row that lacks most, if any lacks more than rounding.
  [[nodiscard]] std::optional<std::size_t> unmet() const {
    std::optional<std::size_t> worst;
    for (std::size_t i = 0; i < table_.rows(); ++i)
      if (table_.basic(i) == none && !(table_.constant(i) <= contradiction) &&
          (!worst || table_.constant(i) > table_.constant(*worst)))
        worst = i;
    return worst;
  }

  /// Takes the lacks, all zero by now, and the variables forced to zero out of the basis.
  void settle_zeros(const std::vector<bool>& zero) {
    for (std::size_t i = 0; i < table_.rows(); ++i)
      if (table_.basic(i) == none || zero[table_.basic(i)]) table_.constant(i) = 0.0;
    table_.solve_for([&](std::size_t variable) { return !zero[variable]; });
  }

  /// Adds the present vertex; marks what is above zero in it. \return whether that marked any
  bool add_vertex(std::vector<double>& sum, std::vector<bool>& zero) const {
    bool fresh = false;
    for (std::size_t i = 0; i < table_.rows(); ++i) {
      const std::size_t variable = table_.basic(i);
      if (variable == none || !(table_.constant(i) > 0.0)) continue;
      sum[variable] += table_.constant(i);
      fresh = fresh || zero[variable];
      zero[variable] = false;
    }
    return fresh;
  }

  /// Calls body(variable, value) for those of the basis that nothing outside can change.
  template <class Body>
  void for_each_constant(const std::vector<bool>& zero, Body&& body) const {
    for (std::size_t i = 0; i < table_.rows(); ++i) {
      bool constant = table_.basic(i) != none && !zero[table_.basic(i)];
      for (std::size_t j = 0; constant && j < gain_.size(); ++j)
        constant = table_.outside(j) == none || zero[table_.outside(j)] || table_.at(i, j) == 0.0;
      if (constant) body(table_.basic(i), table_.constant(i));
    }
  }

 private:
  [[nodiscard]] std::size_t entering(bool cautious) const {
    std::size_t best = none;
    for (std::size_t j = 0; j < gain_.size(); ++j) {
      if (table_.outside(j) == none || !(gain_[j] > 1e-9)) continue;
      if (best == none ||
          (cautious ? table_.outside(j) < table_.outside(best) : gain_[j] > gain_[best]))
        best = j;
    }
    return best;
  }

  [[nodiscard]] std::size_t leaving(std::size_t j) const {
    std::size_t best = none;
    for (std::size_t i = 0; i < table_.rows(); ++i) {
      if (!(table_.at(i, j) > 0.0)) continue;
      const double lead = best == none ? -1.0
                                       : table_.constant(i) * table_.at(best, j) -
                                             table_.constant(best) * table_.at(i, j);
      // Of equal ones a lack goes first: `none` + 1 wraps to 0.
      if (lead < 0.0 || (lead == 0.0 && table_.basic(i) + 1 < table_.basic(best) + 1)) best = i;
    }
    return best;
  }

  condensed_tableau table_;
  std::vector<double> gain_;
};

/// Where every row has a rest, small values always leave some of it.
void share_out(const linked_sums& sums, sum_solution& solution) {
  std::vector<double> terms(sums.totals.size(), 1.0);
  for (const auto& column : sums.columns)
    for (const auto& l : column) terms[l.row] += l.members;
  solution.rests = sums.totals;
  for (const auto& column : sums.columns) {
    double value = std::numeric_limits<double>::infinity();
    for (const auto& l : column) value = std::min(value, sums.totals[l.row] / terms[l.row]);
    solution.values.push_back(value);
    for (const auto& l : column) solution.rests[l.row] -= l.members * value;
  }
}

}  // namespace

sum_solution solve_sums(const linked_sums& sums) {
  const std::size_t columns = sums.columns.size();
  const std::size_t rows = sums.totals.size();
  sum_solution solution;
  solution.value_known.assign(columns, false);
  solution.rest_known.assign(rows, false);
  bool easy = true;
  for (std::size_t r = 0; r < rows; ++r)
    easy = easy && sums.open[r] && sums.totals[r] > sum_rounding;
  if (easy) {
    share_out(sums, solution);
    return solution;
  }
  simplex vertices(sums);
  vertices.raise(std::vector<bool>(columns + rows, false), simplex::extent::maximum);
  solution.unmet = vertices.unmet();
  if (solution.unmet) return solution;
  vertices.settle_zeros(std::vector<bool>(columns + rows, false));

  std::vector<bool> zero(columns + rows, true);  // until a vertex shows otherwise
  for (std::size_t r = 0; r < rows; ++r) zero[columns + r] = sums.open[r];
  std::vector<double> mean(columns + rows, 0.0);
  bool fresh = vertices.add_vertex(mean, zero);
  double count = 1.0;
  for (; fresh && std::find(zero.begin(), zero.end(), true) != zero.end(); ++count) {
    vertices.raise(zero, simplex::extent::first_gain);
    fresh = vertices.add_vertex(mean, zero);
  }
  for (double& x : mean) x /= count;
  vertices.settle_zeros(zero);
  const auto know = [&](std::size_t variable, double value) {
    mean[variable] = value;
    if (variable < columns)
      solution.value_known[variable] = true;
    else
      solution.rest_known[variable - columns] = true;
  };
  for (std::size_t k = 0; k < mean.size(); ++k)
    if (zero[k]) know(k, 0.0);
  vertices.for_each_constant(zero, know);
  const auto split = mean.begin() + static_cast<std::ptrdiff_t>(columns);
  solution.values.assign(mean.begin(), split);
  solution.rests.assign(split, mean.end());
  return solution;
}

}  // namespace tolvenra
