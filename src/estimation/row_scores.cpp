#include "estimation/row_scores.hpp"

#include <algorithm>
#include <cmath>

namespace tolvenra::estimation {
namespace {

std::size_t pattern_of(const mlworkspace& work, int32 row) {
  return static_cast<std::size_t>(work.rows->covariates.of_row[static_cast<std::size_t>(row - 1)] -
                                  1);
}

/// Class probabilities of a row.
const double* prior_of(const mlworkspace& work, int32 row, int32 g) {
  const class_counts& classes = work.classes;
  return work.beta.active
             ? &classes.prior[pattern_of(work, row) * static_cast<std::size_t>(classes.width)]
             : &classes.table[classes.prevalence(g)];
}

}  // namespace

scaled_design scale_covariates(const mlworkspace& work, int32 columns) {
  scaled_design design;
  design.columns = columns;
  for (int32 g = 1; g <= work.data.nstr && columns > 0; ++g) {
    const regression& fit = work.beta.fits[static_cast<std::size_t>(g - 1)];
    design.mean.insert(design.mean.end(), fit.mean.begin(), fit.mean.end());
    design.scale.insert(design.scale.end(), fit.scale.begin(), fit.scale.end());
    for (int32 u = 1; u <= fit.x.n[0]; ++u)
      for (int32 j = 1; j <= columns; ++j) design.z.push_back(fit.x(u, j));
  }
  return design;
}

class_shares shares_of(const mlworkspace& work, int32 g) {
  const auto nc = static_cast<std::size_t>(work.latent.nc);
  class_shares shares{std::vector<double>(nc, 0.0), 1.0};
  if (work.beta.active) {
    const auto at = static_cast<std::size_t>(g - 1);
    const regression& fit = work.beta.fits[at];
    for (std::size_t c = 0; c < nc && fit.binary > 0; ++c)
      if (!fit.absent[c]) shares.pi[c] = work.beta.rows[at].shares[c];
    return shares;
  }
  shares.total = 0.0;
  for (int32 c = 1; c <= work.latent.nc; ++c)
    if (work.gamma.code(c, g) != 0) shares.total += work.gamma.now(c, g);
  for (int32 c = 1; c <= work.latent.nc; ++c)
    if (work.gamma.code(c, g) != 0 && shares.total > 0.0)
      shares.pi[static_cast<std::size_t>(c - 1)] = work.gamma.now(c, g) / shares.total;
  return shares;
}

row_scores::row_scores(const mlworkspace& work, const free_parameters& map,
                       const scaled_design& design, int32 g)
    : work_(work),
      map_(map),
      design_(design),
      g_(g),
      copy_(map.copy_of(g)),
      membership_(static_cast<std::size_t>(map.membership)),
      responses_(static_cast<std::size_t>(map.responses)),
      shares_(shares_of(work, g)) {
  for (int32 c = 1; c <= map.nc; ++c)
    for (int32 j = 1; j <= work.data.nci; ++j)
      for (int32 l = 0; l + 1 < work.data.nrc(j); ++l)
        likely_.push_back(work.rho.now(j, c, map.category(j, c, copy_, l), g));
}

void row_scores::posterior(int32 row, double* p) const {
  const class_counts& classes = work_.classes;
  std::copy_n(prior_of(work_, row, g_), map_.nc, p);
  for (int32 j = 1; j <= work_.data.nci; ++j) {
    const int32 y = work_.rows->response(row, j);
    if (y == 0) continue;
    const double* rho = &classes.table[classes.at(j, y, g_)];
    for (int32 c = 0; c < map_.nc; ++c) p[c] *= rho[c];
  }
  double likelihood = 0.0;
  for (int32 c = 0; c < map_.nc; ++c) likelihood += p[c];
  for (int32 c = 0; c < map_.nc; ++c) p[c] /= likelihood;
}

void row_scores::given_class(int32 row, int32 c, double* z) const {
  const double* gamma = prior_of(work_, row, g_);
  for (const int32 k : map_.slope_class) {
    const double residual = (c == k ? 1.0 : 0.0) - gamma[k - 1];
    const double* x = &design_.z[pattern_of(work_, row) * static_cast<std::size_t>(map_.columns)];
    for (int32 q = 0; q < map_.columns; ++q) *z++ = x[q] * residual;
  }
  const auto share = [&](int32 k) { return shares_.pi[static_cast<std::size_t>(k - 1)]; };
  const bool divided = share(c) > 0.0;
  for (int32 l = 1; l <= map_.shares; ++l) {
    const int32 k = map_.share_class(l, g_);
    *z++ = divided ? (c == k ? 1.0 : 0.0) - share(k) : 0.0;
  }
  const double* likely = likely_.data() + static_cast<std::size_t>(c - 1) * responses_;
  for (int32 j = 1; j <= work_.data.nci; ++j) {
    const int32 logits = std::max(work_.data.nrc(j) - 1, 0);
    const int32 y = work_.rows->response(row, j);
    for (int32 l = 0; l < logits; ++l) z[l] = y == 0 ? 0.0 : -likely[l];
    const int32 reference = map_.reference(j, c, copy_);
    if (y > 0 && y != reference) z[y < reference ? y - 1 : y - 2] += 1.0;
    z += logits;
    likely += logits;
  }
}

void row_scores::total(int32 row, const double* p, double* z, double* score) const {
  std::fill_n(score, membership_, 0.0);
  double* of_class = score + membership_;
  for (int32 c = 1; c <= map_.nc; ++c) {
    given_class(row, c, z);
    const double mass = p[c - 1];
    for (std::size_t i = 0; i < membership_; ++i) score[i] += mass * z[i];
    for (std::size_t i = 0; i < responses_; ++i) *of_class++ = mass * z[membership_ + i];
  }
}

}  // namespace tolvenra::estimation
