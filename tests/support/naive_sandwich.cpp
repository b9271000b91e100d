#include "support/naive_sandwich.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>

namespace tolvenra::test {
namespace {

using real = long double;
using vec = std::vector<real>;
using mat = std::vector<vec>;

mat zeros(std::size_t rows, std::size_t columns) { return mat(rows, vec(columns, 0.0L)); }

mat product(const mat& a, const mat& b) {
  mat c = zeros(a.size(), b.empty() ? 0 : b[0].size());
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t k = 0; k < b.size(); ++k)
      for (std::size_t j = 0; j < b[k].size(); ++j) c[i][j] += a[i][k] * b[k][j];
  return c;
}

mat transposed(const mat& a) {
  mat t = zeros(a.empty() ? 0 : a[0].size(), a.size());
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < a[i].size(); ++j) t[j][i] = a[i][j];
  return t;
}

/// Gauss-Jordan with row exchanges. \return the columns that hold a pivot
std::vector<std::size_t> reduce(mat& a, std::size_t columns) {
  std::vector<std::size_t> pivots;
  for (std::size_t j = 0; j < columns && pivots.size() < a.size(); ++j) {
    const std::size_t at = pivots.size();
    std::size_t best = at;
    for (std::size_t i = at; i < a.size(); ++i)
      if (std::abs(a[i][j]) > std::abs(a[best][j])) best = i;
    if (std::abs(a[best][j]) < 1e-9L) continue;
    std::swap(a[at], a[best]);
    const real pivot = a[at][j];
    for (real& value : a[at]) value /= pivot;
    for (std::size_t i = 0; i < a.size(); ++i) {
      const real factor = a[i][j];
      for (std::size_t k = 0; k < a[i].size() && i != at; ++k) a[i][k] -= factor * a[at][k];
    }
    pivots.push_back(j);
  }
  return pivots;
}

mat inverse(const mat& a) {
  mat both = a;
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < a.size(); ++j) both[i].push_back(i == j ? 1.0L : 0.0L);
  EXPECT_EQ(reduce(both, a.size()).size(), a.size()) << "singular";
  mat result = zeros(a.size(), a.size());
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < a.size(); ++j) result[i][j] = both[i][a.size() + j];
  return result;
}

/// The likelihood in terms of one long vector: membership (gamma; or coefficients; or those of the
/// compared class, then shares of the others), then rho.
class naive_model {
 public:
  naive_model(const lca_problem& fit, std::vector<double> prior_shares)
      : fit_(fit), prior_shares_(std::move(prior_shares)) {
    if (regressed())
      for (const double b : fit.beta) at_.push_back(b);
    beta_ = 0;
    gamma_ = at_.size();
    for (int g = 1; g <= fit.nstr; ++g)
      for (int c = 1; c <= fit.nc; ++c)
        at_.push_back(fit.binary == 0   ? fit.gamma_at(c, g)
                      : c == fit.binary ? 0.0
                                        : fit.gamma_at(c, g) / (1.0 - fit.gamma_at(fit.binary, g)));
    rho_ = at_.size();
    for (const double p : fit.rho) at_.push_back(p);
    edge_ = std::max(1e-6, 10 * fit.criterion);
    constrain();
  }

  [[nodiscard]] std::size_t free() const { return basis_.empty() ? 0 : basis_[0].size(); }

  [[nodiscard]] vec moved(const vec& t) const {
    vec x = at_;
    for (std::size_t i = 0; i < x.size(); ++i)
      for (std::size_t k = 0; k < t.size(); ++k)
        if (basis_[i][k] != 0.0L) x[i] += basis_[i][k] * t[k];
    return x;
  }

  [[nodiscard]] real class_probability(const vec& x, int k, int c) const {
    const int g = fit_.stratum(k);
    if (!regressed()) return gamma(x, c, g);
    real total = 0.0L;
    real own = 0.0L;
    for (int other = 1; other <= fit_.nc; ++other) {
      if (fit_.binary > 0 && other != fit_.binary) continue;
      real eta = 0.0L;
      for (int j = 0; j <= fit_.ncov; ++j) eta += fit_.cov_at(k, j) * beta(x, j, other, g);
      // A structural zero takes no part.
      const real e = fit_.gamma_at(other, g) == 0.0 ? 0.0L : std::exp(eta);
      total += e;
      if (other == c) own = e;
    }
    if (fit_.binary == 0) return own / total;
    return c == fit_.binary ? total / (1.0L + total) : gamma(x, c, g) / (1.0L + total);
  }

  [[nodiscard]] real case_loglik(const vec& x, int k) const {
    real likelihood = 0.0L;
    for (int c = 1; c <= fit_.nc; ++c) {
      real product = class_probability(x, k, c);
      for (int j = 1; j <= fit_.nci; ++j)
        if (const int r = fit_.response(k, j); r > 0) product *= rho(x, j, c, r, fit_.stratum(k));
      likelihood += product;
    }
    return std::log(likelihood);
  }

  /// Log-likelihood and log prior.
  [[nodiscard]] real penalised(const vec& x) const {
    real sum = 0.0L;
    for (int k = 1; k <= fit_.nkase; ++k) sum += fit_.case_weight(k) * case_loglik(x, k);
    return sum + log_prior(x);
  }

  /// Average prevalence of every class in every stratum.
  [[nodiscard]] vec prevalences(const vec& x) const {
    vec sum(static_cast<std::size_t>(fit_.nc * fit_.nstr), 0.0L);
    vec total(static_cast<std::size_t>(fit_.nstr), 0.0L);
    for (int k = 1; k <= fit_.nkase; ++k) {
      const auto g = static_cast<std::size_t>(fit_.stratum(k) - 1);
      total[g] += fit_.case_weight(k);
      for (int c = 1; c <= fit_.nc; ++c)
        sum[static_cast<std::size_t>(c - 1) + g * static_cast<std::size_t>(fit_.nc)] +=
            fit_.case_weight(k) * class_probability(x, k, c);
    }
    for (std::size_t i = 0; i < sum.size(); ++i)
      sum[i] /= total[i / static_cast<std::size_t>(fit_.nc)];
    return sum;
  }

  /// The membership coefficients in the order of cov_b.
  [[nodiscard]] vec coefficients(const vec& x) const {
    vec b;
    for (int g = 1; g <= fit_.nstr; ++g)
      for (int c = 1; c <= fit_.nc; ++c) {
        if (!regressed() && c > 1) b.push_back(std::log(gamma(x, c, g) / gamma(x, 1, g)));
        if (!regressed() || (fit_.binary > 0 ? c != fit_.binary : c == fit_.baseline)) continue;
        for (int j = 0; j <= fit_.ncov; ++j) b.push_back(beta(x, j, c, g));
      }
    return b;
  }

  [[nodiscard]] vec responses(const vec& x) const {
    return {x.begin() + static_cast<std::ptrdiff_t>(rho_), x.end()};
  }

 private:
  [[nodiscard]] bool regressed() const { return fit_.ncov > 0; }
  [[nodiscard]] std::size_t beta_at(int j, int c, int g) const {
    return beta_ + static_cast<std::size_t>(j + (fit_.ncov + 1) * (c - 1 + fit_.nc * (g - 1)));
  }
  [[nodiscard]] std::size_t gamma_at(int c, int g) const {
    return gamma_ + static_cast<std::size_t>(c - 1 + fit_.nc * (g - 1));
  }
  [[nodiscard]] std::size_t rho_at(int j, int c, int r, int g) const {
    return rho_ + static_cast<std::size_t>(
                      j - 1 + fit_.nci * (c - 1 + fit_.nc * (r - 1 + fit_.nrcmax() * (g - 1))));
  }
  [[nodiscard]] real beta(const vec& x, int j, int c, int g) const { return x[beta_at(j, c, g)]; }
  [[nodiscard]] real gamma(const vec& x, int c, int g) const { return x[gamma_at(c, g)]; }
  [[nodiscard]] real rho(const vec& x, int j, int c, int r, int g) const {
    return x[rho_at(j, c, r, g)];
  }

  [[nodiscard]] real log_prior(const vec& x) const {
    real sum = 0.0L;
    for (int j = 1; j <= fit_.nci && fit_.rho_prior > 0.0; ++j) {
      std::map<int, double> observed;
      double total = 0.0;
      for (int k = 1; k <= fit_.nkase; ++k)
        if (const int r = fit_.response(k, j); r > 0) {
          observed[r] += fit_.case_weight(k);
          total += fit_.case_weight(k);
        }
      for (int g = 1; g <= fit_.nstr; ++g)
        for (int c = 1; c <= fit_.nc; ++c)
          for (const auto& [r, count] : observed)
            sum += fit_.rho_prior * count / total * std::log(rho(x, j, c, r, g));
    }
    for (int g = 1; g <= fit_.nstr; ++g) {
      for (int c = 1; c <= fit_.nc && fit_.gamma_prior > 0.0; ++c)
        sum += fit_.gamma_prior / fit_.nc * std::log(gamma(x, c, g));
      if (prior_shares_.empty()) continue;
      real total = 0.0L;
      real of_stratum = 0.0L;
      for (int k = 1; k <= fit_.nkase; ++k) {
        if (fit_.stratum(k) != g) continue;
        total += fit_.case_weight(k);
        for (int c = 1; c <= fit_.nc; ++c)
          of_stratum += fit_.case_weight(k) *
                        prior_shares_[static_cast<std::size_t>(c - 1 + fit_.nc * (g - 1))] *
                        std::log(class_probability(x, k, c));
      }
      sum += fit_.beta_prior / total * of_stratum;
    }
    return sum;
  }

  void tie(std::vector<std::pair<std::size_t, real>> terms) {
    constraints_.emplace_back(at_.size(), 0.0L);
    for (const auto& [i, factor] : terms) constraints_.back()[i] += factor;
  }
  void hold(std::size_t i) { tie({{i, 1.0L}}); }
  [[nodiscard]] bool at_boundary(double p) const { return !(p > edge_ && p < 1 - edge_); }

  /// Holds what code 0 or the boundary fixes and ties equal codes.
  void restrict_cell(std::size_t i, int code, double value, std::map<int, std::size_t>& groups) {
    if (code == 0 || at_boundary(value)) hold(i);
    if (code < 2) return;
    const auto first = groups.emplace(code, i).first->second;
    if (first != i) tie({{i, 1.0L}, {first, -1.0L}});
  }

  void constrain_membership() {
    std::map<int, std::size_t> groups;
    for (int g = 1; g <= fit_.nstr; ++g) {
      std::vector<std::pair<std::size_t, real>> row;
      for (int c = 1; c <= fit_.nc; ++c) {
        const auto cell = static_cast<std::size_t>(c - 1 + fit_.nc * (g - 1));
        const bool held = at_boundary(fit_.gamma_at(c, g));
        const int code = fit_.gamma_restrictions.empty() ? 1 : fit_.gamma_restrictions[cell];
        const bool reference = fit_.binary > 0 ? c != fit_.binary : c == fit_.baseline;
        for (int j = 0; j <= fit_.ncov && regressed(); ++j)
          if (reference || held || code == 0) hold(beta_at(j, c, g));
        if (regressed() && (fit_.binary == 0 || c == fit_.binary)) {
          hold(gamma_at(c, g));
          continue;
        }
        restrict_cell(gamma_at(c, g), code, fit_.gamma_at(c, g), groups);
        row.emplace_back(gamma_at(c, g), 1.0L);
      }
      if (!row.empty()) tie(row);
    }
  }

  void constrain() {
    constrain_membership();
    std::map<int, std::size_t> groups;
    for (int g = 1; g <= fit_.nstr; ++g)
      for (int c = 1; c <= fit_.nc; ++c)
        for (int j = 1; j <= fit_.nci; ++j) {
          std::vector<std::pair<std::size_t, real>> row;
          for (int r = 1; r <= fit_.nrcmax(); ++r) {
            const std::size_t i = rho_at(j, c, r, g);
            const int code = fit_.rho_restrictions.empty() ? 1 : fit_.rho_restrictions[i - rho_];
            if (r > fit_.nrc[static_cast<std::size_t>(j - 1)])
              hold(i);
            else
              restrict_cell(i, code, fit_.rho[i - rho_], groups);
            row.emplace_back(i, 1.0L);
            if (g > 1 && fit_.rho_equal_strata) tie({{i, 1.0L}, {rho_at(j, c, r, 1), -1.0L}});
          }
          tie(row);
        }
    const auto pivots = reduce(constraints_, at_.size());
    std::vector<std::size_t> row_of(at_.size(), at_.size());
    for (std::size_t i = 0; i < pivots.size(); ++i) row_of[pivots[i]] = i;
    std::vector<std::size_t> free;
    for (std::size_t i = 0; i < at_.size(); ++i)
      if (row_of[i] == at_.size()) free.push_back(i);
    basis_ = zeros(at_.size(), free.size());
    for (std::size_t k = 0; k < free.size(); ++k) {
      basis_[free[k]][k] = 1.0L;
      for (std::size_t i = 0; i < pivots.size(); ++i)
        basis_[pivots[i]][k] = -constraints_[i][free[k]];
    }
    centre_slopes(free);
  }

  /// Directions that move a slope move the intercept so that the mean stays: covariates far from 0
  /// would leave no step that suits all.
  void centre_slopes(const std::vector<std::size_t>& free) {
    const auto columns = static_cast<std::size_t>(fit_.ncov + 1);
    for (std::size_t k = 0; k < free.size(); ++k) {
      const auto j = static_cast<int>(free[k] % columns);
      if (free[k] >= gamma_ || j == 0) continue;
      real mean = 0.0L;
      real largest = 0.0L;
      for (int i = 1; i <= fit_.nkase; ++i) mean += fit_.cov_at(i, j) / fit_.nkase;
      for (int i = 1; i <= fit_.nkase; ++i)
        largest = std::max(largest, std::abs(fit_.cov_at(i, j) - mean));
      basis_[free[k]][k] = 1 / largest;
      basis_[free[k] - static_cast<std::size_t>(j)][k] = -mean / largest;
    }
  }

  const lca_problem& fit_;
  std::vector<double> prior_shares_;
  std::size_t beta_ = 0, gamma_ = 0, rho_ = 0;
  double edge_ = 0.0;
  vec at_;
  mat constraints_, basis_;
};

/// Mixed central differences, extrapolated from steps h and h / 2.
real curvature(const std::function<real(real, real)>& f, real h) {
  const auto mixed = [&](real s) {
    return (f(s, s) - f(s, -s) - f(-s, s) + f(-s, -s)) / (4 * s * s);
  };
  return (4 * mixed(h / 2) - mixed(h)) / 3;
}

constexpr real step = 1e-4L;

mat jacobian(const naive_model& model, const std::function<vec(const vec&)>& functions) {
  vec t(model.free(), 0.0L);
  mat columns;
  for (std::size_t k = 0; k < t.size(); ++k) {
    const auto at = [&](real s) {
      t[k] = s;
      const vec values = functions(model.moved(t));
      t[k] = 0.0L;
      return values;
    };
    const vec p = at(step), m = at(-step), ph = at(step / 2), mh = at(-step / 2);
    columns.emplace_back();
    for (std::size_t i = 0; i < p.size(); ++i)
      columns.back().push_back((8 * (ph[i] - mh[i]) - (p[i] - m[i])) / (6 * step));
  }
  return transposed(columns);
}

mat information(const naive_model& model) {
  const std::size_t n = model.free();
  mat h = zeros(n, n);
  vec t(n, 0.0L);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j <= i; ++j)
      h[i][j] = h[j][i] = -curvature(
          [&](real a, real b) {
            t[i] += a;
            t[j] += b;
            const real value = model.penalised(model.moved(t));
            t[i] = t[j] = 0.0L;
            return value;
          },
          step);
  return h;
}

/// Scores of the cases, then their centred outer products with the small-sample factor.
mat middle(const lca_problem& fit, const naive_model& model, bool clustered) {
  const mat scores = jacobian(model, [&](const vec& x) {
    vec values;
    for (int k = 1; k <= fit.nkase; ++k) values.push_back(model.case_loglik(x, k));
    return values;
  });
  const std::size_t n = model.free();
  std::map<int, vec> units;  // scores by cluster
  mat b = zeros(n, n);
  vec mean(n, 0.0L);
  real count = 0.0L;
  for (int k = 1; k <= fit.nkase; ++k) {
    const auto at = static_cast<std::size_t>(k - 1);
    const real f = fit.freq.empty() ? 1.0 : fit.freq[at];
    const real w = fit.weight.empty() ? 1.0 : fit.weight[at];
    count += f;
    vec& unit = units.emplace(clustered ? fit.clusters[at] : 0, vec(n, 0.0L)).first->second;
    for (std::size_t i = 0; i < n; ++i) {
      mean[i] += f * w * scores[at][i];
      unit[i] += f * w * scores[at][i];
      for (std::size_t j = 0; j < n && !clustered; ++j)
        b[i][j] += f * w * w * scores[at][i] * scores[at][j];
    }
  }
  if (clustered) {
    count = static_cast<real>(units.size());
    for (const auto& [id, unit] : units)
      for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) b[i][j] += unit[i] * unit[j];
  }
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j)
      b[i][j] = (b[i][j] - mean[i] * mean[j] / count) * count / (count - 1);
  return b;
}

void expect_errors(const char* what, const std::vector<double>& errors, const mat& j,
                   const mat& covariance, double tolerance) {
  ASSERT_EQ(errors.size(), j.size()) << what;
  for (std::size_t i = 0; i < j.size(); ++i) {
    real variance = 0.0L;
    for (std::size_t a = 0; a < covariance.size(); ++a)
      for (std::size_t b = 0; b < covariance.size(); ++b)
        variance += j[i][a] * covariance[a][b] * j[i][b];
    const auto expected = static_cast<double>(std::sqrt(std::max(variance, 0.0L)));
    EXPECT_NEAR(errors[i], expected, tolerance * expected + 1e-12) << what << ", element " << i;
  }
}

real trace(const mat& a) {
  real sum = 0.0L;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i][i];
  return sum;
}

}  // namespace

void verify_standard_errors(const lca_problem& fit, double tolerance,
                            const std::vector<double>& beta_prior_shares) {
  const naive_model model(fit, beta_prior_shares);
  const mat inverted = inverse(information(model));
  const mat b = middle(fit, model, !fit.clusters.empty());
  const mat v = product(inverted, product(b, inverted));
  const mat of_gamma = jacobian(model, [&](const vec& x) { return model.prevalences(x); });
  expect_errors("gamma", fit.std_gamma, of_gamma, v, tolerance);
  expect_errors("gamma, model", fit.std_gamma_model, of_gamma, inverted, tolerance);
  expect_errors("rho", fit.std_rho,
                jacobian(model, [&](const vec& x) { return model.responses(x); }), v, tolerance);
  const mat of_b = jacobian(model, [&](const vec& x) { return model.coefficients(x); });
  const mat cov_b = product(of_b, product(v, transposed(of_b)));
  const std::size_t q = of_b.size();
  ASSERT_EQ(fit.cov_b.size(), q * q);
  EXPECT_EQ(fit.run_info[8], static_cast<int>(q));
  for (std::size_t i = 0; i < q; ++i)
    for (std::size_t j = 0; j < q; ++j)
      EXPECT_NEAR(fit.cov_b[i + j * q], static_cast<double>(cov_b[i][j]),
                  tolerance * static_cast<double>(std::sqrt(cov_b[i][i] * cov_b[j][j])))
          << "coefficients " << i << ", " << j;
  if (fit.clusters.empty()) {
    EXPECT_TRUE(std::isnan(fit.deff));
    return;
  }
  const real unclustered = trace(product(inverted, middle(fit, model, false)));
  EXPECT_NEAR(fit.deff, static_cast<double>(trace(product(inverted, b)) / unclustered),
              tolerance * fit.deff);
}

double naive_rao_scott(const lca_problem& fit, int covariate) {
  const naive_model model(fit, {});
  const mat inverted = inverse(information(model));
  const mat v = product(inverted, product(middle(fit, model, !fit.clusters.empty()), inverted));
  const mat all = jacobian(model, [&](const vec& x) { return model.coefficients(x); });
  mat tested;
  const auto columns = static_cast<std::size_t>(fit.ncov + 1);
  for (auto i = static_cast<std::size_t>(covariate); i < all.size(); i += columns)
    tested.push_back(all[i]);
  const auto of_tested = [&](const mat& a) {
    return product(tested, product(a, transposed(tested)));
  };
  return static_cast<double>(trace(product(inverse(of_tested(inverted)), of_tested(v))) /
                             static_cast<real>(tested.size()));
}

}  // namespace tolvenra::test
