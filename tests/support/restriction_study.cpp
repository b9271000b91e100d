#include "support/restriction_study.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

#include "estimation/row_solver.hpp"

namespace tolvenra::test {
namespace {

using estimation::row_solver;

constexpr int unit = 20;  // fixed values are whole twentieths

class fraction {
 public:
  fraction(std::int64_t n = 0, std::int64_t d = 1) : n_(n), d_(d) {
    const std::int64_t g = std::gcd(n_, d_) * (d_ < 0 ? -1 : 1);
    n_ /= g;
    d_ /= g;
  }
  friend fraction operator*(const fraction& a, const fraction& b) {
    const fraction c(a.n_, b.d_), d(b.n_, a.d_);  // cancelled first
    return {times(c.n_, d.n_), times(c.d_, d.d_)};
  }
  friend fraction operator/(const fraction& a, const fraction& b) {
    return a * fraction(b.d_, b.n_);
  }
  friend fraction operator-(const fraction& a, const fraction& b) {
    std::int64_t sum = 0;
    if (__builtin_sub_overflow(times(a.n_, b.d_), times(b.n_, a.d_), &sum))
      throw std::overflow_error("fraction");
    return {sum, times(a.d_, b.d_)};
  }
  friend bool operator<(const fraction& a, const fraction& b) { return (a - b).n_ < 0; }
  [[nodiscard]] int sign() const { return n_ > 0 ? 1 : n_ < 0 ? -1 : 0; }
  [[nodiscard]] long double real() const {
    return static_cast<long double>(n_) / static_cast<long double>(d_);
  }

 private:
  static std::int64_t times(std::int64_t a, std::int64_t b) {
    std::int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product)) throw std::overflow_error("fraction");
    return product;
  }
  std::int64_t n_, d_;
};

/// Non-negative terms under sums: tableau simplex in fractions with Bland's rule.
class exact_program {
 public:
  std::vector<std::vector<fraction>> t;  ///< rows: terms, artificial variables, right-hand side
  std::vector<std::size_t> basis;
  std::size_t terms;

  exact_program(const std::vector<std::vector<int>>& a, const std::vector<int>& twentieths)
      : terms(a.front().size()) {
    for (std::size_t i = 0; i < a.size(); ++i) {
      std::vector<fraction>& row = t.emplace_back(terms + a.size() + 1);
      for (std::size_t j = 0; j < terms; ++j) row[j] = a[i][j];
      row[terms + i] = 1;
      row.back() = fraction(twentieths[i], unit);
      basis.push_back(terms + i);
    }
  }

  /// \return whether the sums can be met; then without artificial variables and surplus rows
  bool feasible() {
    std::vector<int> cost(t.front().size() - 1, 0);
    std::fill(cost.begin() + static_cast<std::ptrdiff_t>(terms), cost.end(), -1);
    maximise(cost);
    for (std::size_t i = 0; i < t.size(); ++i)
      if (basis[i] >= terms && t[i].back().sign() != 0) return false;
    leave_basis([&](std::size_t term) { return term >= terms; });
    for (auto& row : t) row.erase(row.begin() + static_cast<std::ptrdiff_t>(terms), row.end() - 1);
    return true;
  }

  /// Terms that are zero in every solution. `inner`, a solution in which the others are not.
  std::vector<bool> forced_zeros(std::vector<long double>& inner) {
    std::vector<bool> zero(terms, true);
    inner.assign(terms, 0.0L);
    long double vertices = 0.0L;
    for (std::size_t k = 0; k < terms; ++k) {
      if (!zero[k]) continue;
      std::vector<int> cost(terms, 0);
      cost[k] = 1;
      maximise(cost);
      vertices += 1.0L;
      for (std::size_t i = 0; i < t.size(); ++i) {
        inner[basis[i]] += t[i].back().real();
        if (t[i].back().sign() > 0) zero[basis[i]] = false;
      }
    }
    for (auto& x : inner) x /= vertices;
    leave_basis([&](std::size_t term) { return zero[term]; });
    return zero;
  }

 private:
  /// Pivots at zero the unwanted out of the basis; drops rows that hold nothing else.
  template <class Unwanted>
  void leave_basis(Unwanted&& unwanted) {
    for (std::size_t i = t.size(); i-- > 0;) {
      if (!unwanted(basis[i])) continue;
      std::size_t j = 0;
      while (j < terms && (unwanted(j) || t[i][j].sign() == 0)) ++j;
      if (j < terms) {
        pivot(i, j);
      } else {
        t.erase(t.begin() + static_cast<std::ptrdiff_t>(i));
        basis.erase(basis.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
  }

  void maximise(const std::vector<int>& cost) {
    for (;;) {
      std::size_t enter = cost.size();
      for (std::size_t j = 0; j < cost.size() && enter == cost.size(); ++j) {
        fraction gain = cost[j];
        for (std::size_t i = 0; i < t.size(); ++i)
          if (cost[basis[i]] != 0) gain = gain - fraction(cost[basis[i]]) * t[i][j];
        if (gain.sign() > 0) enter = j;
      }
      if (enter == cost.size()) return;
      std::size_t leave = t.size();
      for (std::size_t i = 0; i < t.size(); ++i) {
        if (t[i][enter].sign() <= 0) continue;
        if (leave == t.size()) {
          leave = i;
          continue;
        }
        const fraction lead = t[i].back() / t[i][enter] - t[leave].back() / t[leave][enter];
        if (lead.sign() < 0 || (lead.sign() == 0 && basis[i] < basis[leave])) leave = i;
      }
      if (leave == t.size()) throw std::logic_error("unbounded sums");
      pivot(leave, enter);
    }
  }

  void pivot(std::size_t p, std::size_t q) {
    const fraction by = t[p][q];
    for (fraction& x : t[p]) x = x / by;
    for (std::size_t i = 0; i < t.size(); ++i) {
      const fraction factor = t[i][q];
      if (i == p || factor.sign() == 0) continue;
      for (std::size_t j = 0; j < t[i].size(); ++j)
        if (t[p][j].sign() != 0) t[i][j] = t[i][j] - factor * t[p][j];
    }
    basis[p] = q;
  }
};

struct pattern {
  row_layout rows;
  std::vector<int32> codes;
  std::vector<double> values;
  std::vector<int> twentieths;      ///< of fixed elements
  std::vector<std::size_t> term;    ///< of every element that is not fixed
  std::vector<std::vector<int>> a;  ///< rows by terms
  std::vector<int> left;            ///< in twentieths
  [[nodiscard]] std::size_t at(int m, int r) const {
    return static_cast<std::size_t>(m * rows.width + r);
  }
};

constexpr auto no_term = std::numeric_limits<std::size_t>::max();

/// Half of the patterns are drawn around values of the groups that the fixed elements complete.
pattern draw_pattern(std::mt19937& engine) {
  const auto pick = [&](int n) { return static_cast<int>(engine() % static_cast<unsigned>(n)); };
  pattern p;
  p.rows.nrows = 1 + pick(6);
  p.rows.width = 2 + pick(4);
  const auto cells = static_cast<std::size_t>(p.rows.nrows * p.rows.width);
  p.codes.assign(cells, 1);
  p.values.assign(cells, 0.0);
  p.twentieths.assign(cells, 0);
  p.term.assign(cells, no_term);
  const int kinds = 1 + pick(5);
  const int grouped = 2 + 4 * pick(3);  // of ten elements
  const bool completed = pick(2) == 0;
  std::vector<int> hidden;
  for (int k = 0; k < kinds; ++k) hidden.push_back(pick(9));
  for (int m = 0; m < p.rows.nrows; ++m) {
    const int length = 2 + pick(p.rows.width - 1);
    p.rows.length.push_back(length);
    int left = unit;
    int members = 0;
    bool free = false;
    const auto fix = [&](int r, int value) {
      p.codes[p.at(m, r)] = 0;
      p.twentieths[p.at(m, r)] = value;
      p.values[p.at(m, r)] = static_cast<double>(value) / unit;
      left -= value;
    };
    for (int r = 0; r < length; ++r) {
      if (r > 0 && pick(6) == 0 && left > 0) {
        fix(r, pick(10) == 0 ? left : pick(left + 1) / 2);
      } else if (pick(10) < grouped) {
        const int k = pick(kinds);
        p.codes[p.at(m, r)] = 2 + k;
        members += hidden[static_cast<std::size_t>(k)];
      } else {
        free = true;
      }
    }
    const auto last = p.at(m, length - 1);
    if (completed && p.codes[last] == 0) left += p.twentieths[last];
    if (completed && (p.codes[last] == 0 || (p.codes[last] == 1 && pick(2) == 0)) &&
        members <= left && !(p.codes[last] == 1 && length == 2 && members == 0))
      fix(length - 1, free && pick(3) > 0 ? (left - members) / 2 : left - members);
    else if (completed && p.codes[last] == 0)
      left -= p.twentieths[last];
    p.left.push_back(left);
  }
  std::map<int32, std::size_t> group;
  std::size_t terms = 0;
  for (int m = 0; m < p.rows.nrows; ++m)
    for (int r = 0; r < p.rows.length[static_cast<std::size_t>(m)]; ++r) {
      const std::size_t q = p.at(m, r);
      if (p.codes[q] == 1) p.term[q] = terms++;
      if (p.codes[q] < 2) continue;
      const auto [found, fresh] = group.try_emplace(p.codes[q], terms);
      p.term[q] = found->second;
      if (fresh) ++terms;
    }
  p.a.assign(p.left.size(), std::vector<int>(terms, 0));
  for (int m = 0; m < p.rows.nrows; ++m)
    for (int r = 0; r < p.rows.length[static_cast<std::size_t>(m)]; ++r)
      if (p.term[p.at(m, r)] != no_term) ++p.a[static_cast<std::size_t>(m)][p.term[p.at(m, r)]];
  return p;
}

/// What the program knows of a feasible pattern.
struct truth {
  std::vector<bool> zero;
  std::vector<long double> inner;
  std::vector<std::vector<long double>> rows;  ///< independent sums of the terms that are not zero
  std::vector<long double> sums;
  std::vector<std::pair<std::size_t, long double>> known;  ///< determined terms above zero
};

truth learn(exact_program& program) {
  truth what;
  what.zero = program.forced_zeros(what.inner);
  for (std::size_t i = 0; i < program.t.size(); ++i) {
    std::vector<long double>& row = what.rows.emplace_back();
    int others = 0;
    for (std::size_t k = 0; k < program.terms; ++k) {
      row.push_back(what.zero[k] ? 0.0L : program.t[i][k].real());
      others += row.back() != 0.0L ? 1 : 0;
    }
    what.sums.push_back(program.t[i].back().real());
    if (others == 1) what.known.emplace_back(program.basis[i], what.sums.back());
  }
  return what;
}

/// Solves m x = b by elimination.
std::vector<long double> solve(std::vector<std::vector<long double>> m,
                               std::vector<long double> b) {
  const std::size_t n = b.size();
  for (std::size_t i = 0; i < n; ++i) {
    std::size_t p = i;
    for (std::size_t j = i + 1; j < n; ++j)
      if (std::abs(m[j][i]) > std::abs(m[p][i])) p = j;
    std::swap(m[i], m[p]);
    std::swap(b[i], b[p]);
    for (std::size_t j = i + 1; j < n; ++j) {
      const long double f = m[j][i] / m[i][i];
      for (std::size_t q = i; q < n; ++q) m[j][q] -= f * m[i][q];
      b[j] -= f * b[i];
    }
  }
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = i + 1; j < n; ++j) b[i] -= m[i][j] * b[j];
    b[i] /= m[i][i];
  }
  return b;
}

/// Multipliers of the maximum of sum w log x under the sums: primal-dual path to targets that fall
/// to w. Source: Nocedal & Wright (2006), Numerical Optimization, ch. 14.
std::vector<long double> multipliers(const truth& what, const std::vector<long double>& w) {
  const std::size_t n = w.size();
  const std::size_t m = what.sums.size();
  std::vector<long double> x = what.inner, z(n, 1.0L), lambda(m, 0.0L), reach(n), dx(n), dz(n);
  constexpr long double lowest = 1e-16L;
  long double floor = 1.0L;
  for (int step = 0; step < 400; ++step) {
    floor = std::max(floor * 0.3L, lowest);
    std::vector<std::vector<long double>> system(m, std::vector<long double>(m, 0.0L));
    std::vector<long double> right(m);
    for (std::size_t k = 0; k < n; ++k) {
      reach[k] = 0.0L;
      for (std::size_t i = 0; i < m; ++i) reach[k] += what.rows[i][k] * lambda[i];
    }
    for (std::size_t i = 0; i < m; ++i) {
      right[i] = -what.sums[i];
      for (std::size_t k = 0; k < n; ++k) {
        if (what.zero[k]) continue;
        const long double target = std::max(w[k], floor);
        right[i] += what.rows[i][k] * (x[k] + (target - x[k] * reach[k]) / z[k]);
        for (std::size_t j = 0; j < m; ++j)
          system[i][j] += what.rows[i][k] * what.rows[j][k] * x[k] / z[k];
      }
    }
    const auto d = solve(std::move(system), std::move(right));
    if (std::any_of(d.begin(), d.end(), [](long double u) { return !std::isfinite(u); })) break;
    long double length = 1.0L;
    for (std::size_t k = 0; k < n; ++k) {
      if (what.zero[k]) continue;
      dz[k] = reach[k] - z[k];
      for (std::size_t i = 0; i < m; ++i) dz[k] += what.rows[i][k] * d[i];
      dx[k] = (std::max(w[k], floor) - x[k] * z[k] - x[k] * dz[k]) / z[k];
      if (dx[k] < 0) length = std::min(length, -0.9L * x[k] / dx[k]);
      if (dz[k] < 0) length = std::min(length, -0.9L * z[k] / dz[k]);
    }
    long double change = 0.0L;
    for (std::size_t k = 0; k < n; ++k) {
      if (what.zero[k]) continue;
      x[k] += length * dx[k];
      z[k] += length * dz[k];
      change = std::max(change, std::abs(dx[k]) / x[k]);
    }
    for (std::size_t i = 0; i < m; ++i) lambda[i] += length * d[i];
    if (floor <= lowest && change < 1e-14L) break;
  }
  return lambda;
}

class judge {
 public:
  explicit judge(unsigned seed) : engine_(seed) {}

  void run(int patterns) {
    for (out.patterns = 0; out.patterns < patterns; ++out.patterns) try_pattern();
  }

  restriction_study out;

 private:
  void fault(int& count, const std::string& what) {
    if (out.first_fault.empty())
      out.first_fault = what + ", pattern " + std::to_string(out.patterns) + describe();
    ++count;
  }

  [[nodiscard]] std::string describe() const {
    std::string text;
    for (int m = 0; m < p_.rows.nrows; ++m) {
      text += "; ";
      for (int r = 0; r < p_.rows.length[static_cast<std::size_t>(m)]; ++r)
        text +=
            std::to_string(p_.codes[p_.at(m, r)]) +
            (p_.codes[p_.at(m, r)] == 0 ? "=" + std::to_string(p_.twentieths[p_.at(m, r)]) + "/20 "
                                        : " ");
    }
    return text;
  }

  void try_pattern() {
    p_ = draw_pattern(engine_);
    exact_program program(p_.a, p_.left);
    const bool possible = program.feasible();
    row_solver solver(p_.codes, p_.values, p_.rows, p_.rows.nrows);
    if (possible && solver.unmet_row()) fault(out.refused_wrongly, "refused");
    if (!possible && !solver.unmet_row()) fault(out.accepted_wrongly, "accepted");
    if (!possible || solver.unmet_row()) return;
    ++out.possible;
    const truth what = learn(program);
    out.with_zeros += std::find(what.zero.begin(), what.zero.end(), true) != what.zero.end();
    out.with_pinned += what.known.empty() ? 0 : 1;
    const auto zeros = std::count(what.zero.begin(), what.zero.end(), true);
    const auto movable = static_cast<std::ptrdiff_t>(program.terms - program.t.size()) - zeros;
    if (solver.free_parameters() != movable) fault(out.miscounted, "free parameters");
    for (int round = 0; round < 3; ++round) update(solver, what);
  }

  /// Whether rows or groups that need counts have none.
  [[nodiscard]] bool counts_missing(const truth& what, const std::vector<double>& counts) const {
    std::vector<double> total(p_.left.size(), 0.0);
    std::vector<double> of_term(what.zero.size(), 0.0);
    for (std::size_t m = 0; m < total.size(); ++m)
      for (int r = 0; r < p_.rows.length[m]; ++r)
        if (const auto q = p_.at(static_cast<int>(m), r); p_.codes[q] != 0) total[m] += counts[q];
    bool missing = false;
    for (std::size_t m = 0; m < total.size(); ++m) {
      int open = 0;
      bool any_free = false;
      for (int r = 0; r < p_.rows.length[m]; ++r) {
        const auto q = p_.at(static_cast<int>(m), r);
        if (p_.codes[q] == 0) continue;
        ++open;
        any_free = any_free || (p_.codes[q] == 1 && !what.zero[p_.term[q]]);
        if (p_.codes[q] >= 2) of_term[p_.term[q]] += total[m];
      }
      missing = missing || (any_free && open > 1 && total[m] == 0.0);
    }
    for (std::size_t q = 0; q < p_.codes.size(); ++q)
      if (p_.codes[q] >= 2 && p_.term[q] != no_term)
        missing = missing || (!what.zero[p_.term[q]] && of_term[p_.term[q]] == 0.0);
    return missing;
  }

  void update(row_solver& solver, const truth& what) {
    std::vector<double> counts(p_.codes.size());
    for (double& n : counts)
      n = engine_() % 2 == 0 ? 0.0 : 1.0 + static_cast<double>(engine_() % 1000);
    std::vector<double> values = p_.values;
    const bool missing = counts_missing(what, counts);
    const auto outcome = solver.solve(counts, values, {});
    if ((outcome == row_solver::outcome::zero_denominator) != missing ||
        outcome == row_solver::outcome::inconsistent)
      fault(out.outcome_wrong, missing ? "counts missing" : "not solved");
    if (outcome != row_solver::outcome::solved) return;
    ++out.updates;
    const std::size_t terms = what.zero.size();
    std::vector<double> x(terms, -1.0);
    std::vector<long double> w(terms, 0.0L);
    bool broken = false;
    for (int m = 0; m < p_.rows.nrows; ++m) {
      double sum = 0.0;
      for (int r = 0; r < p_.rows.length[static_cast<std::size_t>(m)]; ++r) {
        const std::size_t q = p_.at(m, r);
        sum += values[q];
        if (p_.codes[q] == 0) {
          broken = broken || values[q] != p_.values[q];
          continue;
        }
        const std::size_t k = p_.term[q];
        broken = broken || !(values[q] >= 0.0) || (x[k] >= 0.0 && x[k] != values[q]) ||
                 (what.zero[k] && values[q] != 0.0);
        x[k] = values[q];
        if (!what.zero[k]) w[k] += static_cast<long double>(counts[q]);
      }
      raise(out.worst_sum, std::abs(sum - 1.0), 1e-12, "row sum");
    }
    if (broken) fault(out.broken, "values");
    for (const auto& [k, value] : what.known)
      raise(out.worst_known, std::abs(x[k] - static_cast<double>(value)), 1e-12, "known value");
    certify(what, x, std::move(w));
  }

  /// Any multipliers bound the maximum from above.
  void certify(const truth& what, const std::vector<double>& x, std::vector<long double> w) {
    const long double total = std::accumulate(w.begin(), w.end(), 0.0L);
    if (total == 0.0L) return;
    for (auto& weight : w) weight /= total;
    const auto lambda = multipliers(what, w);
    long double gap = -1.0L;
    for (std::size_t i = 0; i < lambda.size(); ++i) gap += what.sums[i] * lambda[i];
    double off = 0.0;
    for (std::size_t k = 0; k < w.size(); ++k) {
      if (what.zero[k]) continue;
      long double price = 0.0L;
      for (std::size_t i = 0; i < lambda.size(); ++i) price += what.rows[i][k] * lambda[i];
      const auto value = static_cast<long double>(x[k]);
      if (w[k] > 0.0L) gap += w[k] * (std::log(w[k] / price) - std::log(value));
      if (w[k] == 0.0L) gap += std::max(0.0L, -price);  // no value exceeds 1
      off = std::max(off, static_cast<double>(std::abs(value * price - w[k])));
    }
    raise(out.worst_gap, static_cast<double>(gap), 1e-9, "not the maximum");
    raise(out.worst_stationarity, off, 1e-6, "not stationary");
  }

  void raise(double& worst, double value, double tolerance, const char* what) {
    if (!(value <= worst)) worst = value;
    if (!(value <= tolerance) && out.first_fault.empty())
      out.first_fault = std::string(what) + " " + std::to_string(value) + ", pattern " +
                        std::to_string(out.patterns) + describe();
  }

  std::mt19937 engine_;
  pattern p_;
};

}  // namespace

bool restriction_study::good() const { return first_fault.empty(); }

restriction_study study_restrictions(int patterns, unsigned seed) {
  judge all(seed);
  all.run(patterns);
  return all.out;
}

}  // namespace tolvenra::test
