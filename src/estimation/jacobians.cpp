#include "estimation/jacobians.hpp"

#include <algorithm>
#include <span>

namespace tolvenra::estimation {
namespace {

/// Calls body(share of the stratum's weight, z, gamma) for its covariate patterns.
template <class Body>
void for_each_pattern(const mlworkspace& work, const scaled_design& design, int32 g, Body&& body) {
  const regression& fit = work.beta.fits[static_cast<std::size_t>(g - 1)];
  const auto first = static_cast<std::size_t>(
      work.rows->covariates.stratum_start[static_cast<std::size_t>(g - 1)]);
  double total = 0.0;
  for (const double weight : fit.weight.flat) total += weight;
  for (int32 u = 1; u <= fit.x.n[0]; ++u) {
    const std::size_t pattern = first + static_cast<std::size_t>(u - 1);
    body(fit.weight(u) / total, &design.z[pattern * static_cast<std::size_t>(design.columns)],
         &work.classes.prior[pattern * static_cast<std::size_t>(work.classes.width)]);
  }
}

/// Adds the part of the share logits: probability `left` is divided by the shares.
void add_shares(const mlworkspace& work, const free_parameters& map, int32 g, double left,
                array<double, 2>& jacobian) {
  const class_shares shares = shares_of(work, g);
  const auto pi = [&](int32 c) { return shares.pi[static_cast<std::size_t>(c - 1)]; };
  for (int32 l = 1; l <= map.shares; ++l)
    for (int32 c = 1; c <= map.nc; ++c) {
      const int32 k = map.share_class(l, g);
      jacobian((g - 1) * map.nc + c, map.slopes + l) =
          left * pi(c) * ((c == k ? 1.0 : 0.0) - pi(k));
    }
}

bool gamma_rows_fit(const free_parameters& map, const array<double, 2>& jacobian) {
  return jacobian.n == std::array<int32, 2>{map.nc * map.nstr, map.membership};
}

}  // namespace

int32 run_compute_lca_beta_jacobian(const mlworkspace& work, const free_parameters& map,
                                    const scaled_design& design, array<double, 2>& jacobian,
                                    const routine& here, error_type& err) {
  if (!gamma_rows_fit(map, jacobian))
    return fail(err, here,
                {text("Error calculating the Jacobian matrix for the gamma parameters")});
  for (int32 g = 1; g <= map.nstr; ++g) {
    if (map.columns == 0) {
      add_shares(work, map, g, shares_of(work, g).total, jacobian);
      continue;
    }
    for_each_pattern(work, design, g, [&](double share, const double* z, const double* gamma) {
      int32 column = 0;
      for (const int32 k : map.slope_class)
        for (int32 q = 0; q < map.columns; ++q) {
          ++column;
          for (int32 c = 1; c <= map.nc; ++c)
            jacobian((g - 1) * map.nc + c, column) +=
                share * z[q] * gamma[c - 1] * ((c == k ? 1.0 : 0.0) - gamma[k - 1]);
        }
    });
  }
  return 0;
}

int32 run_compute_lca_b_jacobian_binary(const mlworkspace& work, const free_parameters& map,
                                        const scaled_design& design, array<double, 2>& jacobian,
                                        const routine& here, error_type& err) {
  if (jacobian.n[0] != map.nc * map.nstr)
    return fail(err, here, {text("Wrong number of rows in Jacobian matrix")});
  if (jacobian.n[1] != map.membership)
    return fail(err, here, {text("Wrong number of columns in Jacobian matrix")});
  const int32 k = map.slope_class.front();
  for (int32 g = 1; g <= map.nstr; ++g) {
    const class_shares shares = shares_of(work, g);
    for_each_pattern(work, design, g, [&](double share, const double* z, const double* gamma) {
      for (int32 q = 1; q <= map.columns; ++q)
        for (int32 c = 1; c <= map.nc; ++c)
          jacobian((g - 1) * map.nc + c, q) +=
              share * z[q - 1] * gamma[k - 1] * (1.0 - gamma[k - 1]) *
              (c == k ? 1.0 : -shares.pi[static_cast<std::size_t>(c - 1)]);
    });
    add_shares(work, map, g, 1.0 - work.gamma.now(k, g), jacobian);
  }
  return 0;
}

int32 run_compute_lca_phi_jacobian(const mlworkspace& work, const free_parameters& map,
                                   array<double, 2>& jacobian, const routine& here,
                                   error_type& err) {
  const array<double, 4>& rho = work.rho.now;
  const int32 nrcmax = rho.n[2];
  if (jacobian.n != std::array<int32, 2>{rho.n[0] * map.nc * nrcmax * map.copies, nrcmax - 1})
    return fail(err, here, {text("The Jacobian matrix is the wrong size")});
  for (int32 copy = 1; copy <= map.copies; ++copy)
    for (int32 c = 1; c <= map.nc; ++c)
      for (int32 j = 1; j <= work.data.nci; ++j)
        for (int32 r = 1; r <= work.data.nrc(j); ++r)
          for (int32 l = 0; l + 1 < work.data.nrc(j); ++l) {
            const auto row = static_cast<int32>(&rho(j, c, r, copy) - rho.data()) + 1;
            const int32 k = map.category(j, c, copy, l);
            jacobian(row, l + 1) = rho(j, c, r, copy) * ((r == k ? 1.0 : 0.0) - rho(j, c, k, copy));
          }
  return 0;
}

array<double, 2> coefficient_jacobian(const mlworkspace& work, const free_parameters& map,
                                      const scaled_design& design, int32 g) {
  array<double, 2> jacobian;
  if (map.columns == 0) {
    const class_shares shares = shares_of(work, g);
    // d log(gamma_c) by the logit of class k; a class that the shares leave out stays as it is.
    const auto log_gamma = [&](int32 c, int32 k) {
      if (!(shares.pi[static_cast<std::size_t>(c - 1)] > 0.0)) return 0.0;
      return (c == k ? 1.0 : 0.0) - shares.pi[static_cast<std::size_t>(k - 1)];
    };
    jacobian.allocate({std::max(map.nc - 1, 0), map.membership});
    for (int32 l = 1; l <= map.shares; ++l)
      for (int32 c = 2; c <= map.nc; ++c) {
        const int32 k = map.share_class(l, g);
        jacobian(c - 1, l) = log_gamma(c, k) - log_gamma(1, k);
      }
    return jacobian;
  }
  jacobian.allocate({map.slopes, map.membership});
  const std::size_t first = static_cast<std::size_t>(g - 1) * static_cast<std::size_t>(map.columns);
  for (int32 block = 0; block < map.slopes; block += map.columns) {
    jacobian(block + 1, block + 1) = 1.0;
    for (int32 q = 2; q <= map.columns; ++q) {
      const std::size_t at = first + static_cast<std::size_t>(q - 1);
      jacobian(block + q, block + q) = 1.0 / design.scale[at];
      jacobian(block + 1, block + q) = -design.mean[at] / design.scale[at];
    }
  }
  return jacobian;
}

array<double, 2> covariance_of(const free_parameters& map, const array<double, 2>& covariance,
                               const array<double, 2>& a, std::size_t first_a,
                               const array<double, 2>& b, std::size_t first_b) {
  array<double, 2> half, result;
  half.allocate({a.n[1], b.n[0]});
  result.allocate({a.n[0], b.n[0]});
  for (int32 i = 1; i <= a.n[1]; ++i) {
    const logit_place& row = map.place[first_a + static_cast<std::size_t>(i - 1)];
    for (int32 j = 1; j <= b.n[1] && row.free >= 0; ++j) {
      const logit_place& column = map.place[first_b + static_cast<std::size_t>(j - 1)];
      if (column.free < 0) continue;
      const double value = row.sign * column.sign * covariance(row.free + 1, column.free + 1);
      for (int32 k = 1; k <= b.n[0]; ++k) half(i, k) += value * b(k, j);
    }
  }
  for (int32 k = 1; k <= b.n[0]; ++k)
    for (int32 i = 1; i <= a.n[1]; ++i)
      for (int32 m = 1; m <= a.n[0]; ++m) result(m, k) += a(m, i) * half(i, k);
  return result;
}

double variance_of(const free_parameters& map, const array<double, 2>& covariance,
                   const array<double, 2>& jacobian, int32 row, std::size_t first, int32 n) {
  const std::span<const logit_place> places(&map.place[first], static_cast<std::size_t>(n));
  double sum = 0.0;
  for (int32 i = 1; i <= n; ++i) {
    const logit_place& a = places[static_cast<std::size_t>(i - 1)];
    for (int32 j = 1; j <= n && a.free >= 0; ++j) {
      const logit_place& b = places[static_cast<std::size_t>(j - 1)];
      if (b.free >= 0)
        sum += jacobian(row, i) * jacobian(row, j) * a.sign * b.sign *
               covariance(a.free + 1, b.free + 1);
    }
  }
  return sum;
}

}  // namespace tolvenra::estimation
