#include "support/se_coverage.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <random>

namespace tolvenra::test {
namespace {

constexpr int cases = 1000, items = 6, classes = 3, cluster_size = 10;
constexpr double z_95 = 1.959963984540054;
constexpr std::array<int, items> categories{2, 2, 2, 2, 3, 3};
constexpr std::array<double, classes> true_share{0.5, 0.3, 0.2};
constexpr double true_rho[classes][items][3]{{{0.90, 0.10},
                                              {0.85, 0.15},
                                              {0.90, 0.10},
                                              {0.85, 0.15},
                                              {0.80, 0.10, 0.10},
                                              {0.70, 0.20, 0.10}},
                                             {{0.85, 0.15},
                                              {0.90, 0.10},
                                              {0.10, 0.90},
                                              {0.15, 0.85},
                                              {0.10, 0.80, 0.10},
                                              {0.15, 0.15, 0.70}},
                                             {{0.10, 0.90},
                                              {0.15, 0.85},
                                              {0.15, 0.85},
                                              {0.10, 0.90},
                                              {0.10, 0.10, 0.80},
                                              {0.10, 0.75, 0.15}}};
/// Intercept, continuous, dichotomous; against class 1.
constexpr int coefficients = 3;
constexpr double true_beta[classes][coefficients]{{0, 0, 0}, {-0.3, 0.6, -0.4}, {-1.0, -0.5, 0.7}};

class simulator {
 public:
  explicit simulator(unsigned seed) : engine_(seed) {}

  lca_problem draw(coverage_design design) {
    lca_problem problem;
    problem.nkase = cases;
    problem.nci = items;
    problem.nc = classes;
    problem.nrc.assign(categories.begin(), categories.end());
    problem.y.resize(std::size_t{cases} * items);
    if (design == coverage_design::covariates) add_covariates(problem);
    for (int k = 1; k <= cases; ++k) {
      const bool clustered = design == coverage_design::clusters;
      if (clustered) problem.clusters.push_back((k - 1) / cluster_size + 1);
      if (k % cluster_size == 1) urns_ = {};
      const int c = draw_class(problem, k, clustered);
      for (int j = 0; j < items; ++j)
        problem.set_response(k, j + 1,
                             1 + draw_from(true_rho[c][j], categories[j],
                                           clustered ? &urns_.response[c][j] : nullptr));
    }
    return problem;
  }

 private:
  /// What the cases of a cluster have drawn so far.
  using urn = std::vector<int>;
  struct cluster_urns {
    urn membership;
    std::array<std::array<urn, items>, classes> response;
  };

  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }

  void add_covariates(lca_problem& problem) {
    problem.ncov = coefficients - 1;
    for (int k = 0; k < cases; ++k) problem.cov.push_back(std::sqrt(3.0) * (2.0 * uniform() - 1.0));
    for (int k = 0; k < cases; ++k) problem.cov.push_back(uniform() < 0.5 ? 0.0 : 1.0);
  }

  int draw_class(const lca_problem& problem, int k, bool clustered) {
    if (problem.ncov == 0)
      return draw_from(true_share.data(), classes, clustered ? &urns_.membership : nullptr);
    std::array<double, classes> odds{};
    for (int c = 0; c < classes; ++c) {
      double eta = 0.0;
      for (int v = 0; v < coefficients; ++v) eta += true_beta[c][v] * problem.cov_at(k, v);
      odds[static_cast<std::size_t>(c)] = std::exp(eta);
    }
    const double total = std::accumulate(odds.begin(), odds.end(), 0.0);
    for (double& of_class : odds) of_class /= total;
    return draw_from(odds.data(), classes, nullptr);
  }

  /// With an urn a Polya scheme: draws keep their probabilities and any two of a cluster have the
  /// intra-cluster correlation.
  int draw_from(const double* probability, int n, urn* earlier) {
    if (earlier != nullptr) {
      constexpr double fresh = (1.0 - intra_cluster_correlation) / intra_cluster_correlation;
      const auto drawn = static_cast<double>(earlier->size());
      const double ball = uniform() * (fresh + drawn);
      earlier->push_back(ball < drawn ? (*earlier)[static_cast<std::size_t>(ball)]
                                      : draw_from(probability, n, nullptr));
      return earlier->back();
    }
    double u = uniform();
    int k = 0;
    while (k < n - 1 && u >= probability[k]) u -= probability[k++];
    return k;
  }

  std::mt19937_64 engine_;
  cluster_urns urns_;
};

/// order[c] is the fitted class (from 1) that comes nearest to the true class c.
std::array<int, classes> matched(const lca_problem& fit) {
  std::array<int, classes> order{1, 2, 3}, best = order;
  double least = INFINITY;
  do {
    double distance = 0.0;
    for (int c = 0; c < classes; ++c)
      for (int j = 0; j < items; ++j)
        for (int r = 0; r < categories[j]; ++r)
          distance += std::pow(fit.rho_at(j + 1, order[c], r + 1, 1) - true_rho[c][j][r], 2);
    if (distance < least) best = order;
    least = std::min(least, distance);
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

double logit(double p) { return std::log(p / (1.0 - p)); }

/// Tells the kinds of one fit, parameter by parameter, what their intervals cover.
class comparison {
 public:
  comparison(const lca_problem& fit, se_coverage& to) : fit_(fit), order_(matched(fit)), to_(to) {}

  void compare() {
    for (int c = 0; c < classes && fit_.ncov == 0; ++c)
      add_probability(to_.gamma, "gamma[" + std::to_string(c + 1) + "]",
                      fit_.gamma_at(order_[c], 1),
                      fit_.std_gamma[static_cast<std::size_t>(order_[c] - 1)], true_share[c]);
    for (int c = 0; c < classes; ++c)
      for (int j = 0; j < items; ++j)
        for (int r = 0; r < (categories[j] == 2 ? 1 : categories[j]); ++r)  // the other one mirrors
          compare_rho(c, j, r);
    for (int c = 1; c < classes && fit_.ncov > 0; ++c)
      for (int v = 0; v < coefficients; ++v) compare_beta(c, v);
  }

 private:
  void compare_rho(int c, int j, int r) {
    const int fitted = order_[c];
    const auto at = static_cast<std::size_t>(j + items * (fitted - 1 + classes * r));
    add_probability(to_.rho,
                    "rho[" + std::to_string(j + 1) + ", " + std::to_string(r + 1) + ", " +
                        std::to_string(c + 1) + "]",
                    fit_.rho_at(j + 1, fitted, r + 1, 1), fit_.std_rho[at], true_rho[c][j][r]);
  }

  /// Differences between two fitted classes, whichever the engine's reference is.
  void compare_beta(int c, int v) {
    const int one = order_[c], other = order_[0];
    const auto covariance = [&](int a, int b) {
      if (a == 1 || b == 1) return 0.0;  // the reference
      const int n = fit_.run_info[8];
      return fit_.cov_b[static_cast<std::size_t>((a - 2) * coefficients + v +
                                                 n * ((b - 2) * coefficients + v))];
    };
    const double variance =
        covariance(one, one) + covariance(other, other) - 2.0 * covariance(one, other);
    add(to_.beta, "beta[" + std::to_string(v) + ", " + std::to_string(c + 1) + "]",
        fit_.beta_at(v, one, 1) - fit_.beta_at(v, other, 1), std::sqrt(variance), true_beta[c][v]);
  }

  void add_probability(covered_kind& kind, const std::string& name, double p, double error,
                       double truth) {
    add(kind, name, logit(p), error / (p * (1.0 - p)), logit(truth));
  }

  void add(covered_kind& kind, const std::string& name, double estimate, double error,
           double truth) {
    auto at = static_cast<std::size_t>(std::find(kind.names.begin(), kind.names.end(), name) -
                                       kind.names.begin());
    if (at == kind.names.size()) {
      kind.names.push_back(name);
      kind.covered.push_back(0);
    }
    if (!(error > 0.0)) ++to_.at_boundary;
    if (std::abs(estimate - truth) <= z_95 * error) ++kind.covered[at];
  }

  const lca_problem& fit_;
  std::array<int, classes> order_;
  se_coverage& to_;
};

}  // namespace

double covered_kind::least(int sets) const {
  return static_cast<double>(*std::min_element(covered.begin(), covered.end())) / sets;
}

double covered_kind::most(int sets) const {
  return static_cast<double>(*std::max_element(covered.begin(), covered.end())) / sets;
}

double covered_kind::mean(int sets) const {
  return std::accumulate(covered.begin(), covered.end(), 0.0) /
         (static_cast<double>(covered.size()) * sets);
}

void se_coverage::add(coverage_design design, unsigned seed, bool respect_clusters) {
  lca_problem problem = simulator(seed).draw(design);
  if (!respect_clusters) problem.clusters.clear();
  problem.nstarts = 5;
  problem.seed = static_cast<int>(seed);
  problem.se_option = 1;
  ++sets;
  if (problem.run() != 0 || problem.converged == 0 || problem.run_info[7] != 1) {
    ++failed;
    return;
  }
  comparison(problem, *this).compare();
}

}  // namespace tolvenra::test
