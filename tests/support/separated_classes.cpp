#include "support/separated_classes.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace tolvenra::test {
namespace {

double uniform(std::mt19937_64& engine) { return static_cast<double>(engine() >> 11) * 0x1.0p-53; }

}  // namespace

lca_problem separated(int n, const std::vector<std::int32_t>& nrc, int nc, unsigned seed, int ncov,
                      int nstr, double missing) {
  std::mt19937_64 engine(seed);
  lca_problem p;
  p.nkase = n;
  p.nci = static_cast<int>(nrc.size());
  p.nrc = nrc;
  p.nc = nc;
  p.nstr = nstr;
  p.ncov = ncov;
  p.criterion = 1e-10;
  p.max_iter = 100000;
  p.se_option = 1;
  p.y.resize(static_cast<std::size_t>(n) * nrc.size());
  p.cov.resize(static_cast<std::size_t>(n * ncov));
  for (int k = 1; k <= n; ++k) {
    if (nstr > 1) p.strata.push_back(1 + k % nstr);
    double x = 0.0;
    for (int q = 0; q < ncov; ++q) {  // the second one far from 0 and on a scale of its own
      const double value = 2 * uniform(engine) - 1;
      p.cov[static_cast<std::size_t>(k - 1 + q * n)] = q == 1 ? 1990 + 20 * value : value;
      x += value;
    }
    std::vector<double> weight;
    double total = 0.0;
    for (int c = 0; c < nc; ++c) total += weight.emplace_back(std::exp(0.3 * c + 0.5 * x * c));
    double u = uniform(engine) * total;
    int c = 0;
    while (c < nc - 1 && u > weight[static_cast<std::size_t>(c)])
      u -= weight[static_cast<std::size_t>(c++)];
    for (int j = 1; j <= p.nci; ++j) {
      const int categories = nrc[static_cast<std::size_t>(j - 1)];
      const int likely = 1 + (c + (j > 3 ? j * c : j)) % categories;
      const bool answered = uniform(engine) >= missing;
      const bool stays = uniform(engine) < 0.7;
      const int other = 1 + static_cast<int>(uniform(engine) * categories);
      p.set_response(k, j, !answered ? 0 : stays ? likely : other);
    }
  }
  return p;
}

void add_weights(lca_problem& p, unsigned seed) {
  std::mt19937_64 engine(seed);
  for (int k = 0; k < p.nkase; ++k) p.weight.push_back(0.5 + uniform(engine));
}
void add_frequencies(lca_problem& p) {
  for (int k = 0; k < p.nkase; ++k) p.freq.push_back(1 + k % 3);
}
void add_clusters(lca_problem& p, int clusters) {
  for (int k = 0; k < p.nkase; ++k) p.clusters.push_back(7 + 3 * ((k * k + k) % clusters));
}

std::int32_t& code(lca_problem& p, int j, int c, int r, int g) {
  if (p.rho_restrictions.empty())
    p.rho_restrictions.assign(static_cast<std::size_t>(p.nci * p.nc * p.nrcmax() * p.nstr), 1);
  return p.rho_restrictions[static_cast<std::size_t>(
      j - 1 + p.nci * (c - 1 + p.nc * (r - 1 + p.nrcmax() * (g - 1))))];
}

void fix_rho(lca_problem& p, int j, int c, double first) {
  p.rho.resize(static_cast<std::size_t>(p.nci * p.nc * p.nrcmax() * p.nstr), 0.5);
  for (const int r : {1, 2}) {
    p.rho_ref(j, c, r, 1) = r == 1 ? first : 1 - first;
    code(p, j, c, r) = r == 1 ? 0 : 1;
  }
}

lca_problem done(lca_problem fit) {
  EXPECT_EQ(fit.run(), 0) << fit.message;
  EXPECT_EQ(fit.run_info[7], 1) << fit.message;
  return fit;
}

void expect_same(const std::vector<double>& a, const std::vector<double>& b, double tolerance,
                 double factor) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i)
    EXPECT_NEAR(a[i], factor * b[i], tolerance * (std::abs(b[i]) + 1e-6)) << "element " << i;
}

}  // namespace tolvenra::test
