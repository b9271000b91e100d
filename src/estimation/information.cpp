// Negative second derivatives: expected complete-data information less what the latent class hides.
#include <algorithm>

#include "core/dynamic_allocation.hpp"
#include "core/parallel.hpp"
#include "estimation/derivatives.hpp"

namespace tolvenra::estimation {
namespace {

/// The information of one stratum in its own logits; the lower triangle is filled.
class stratum_information {
 public:
  stratum_information(const mlworkspace& work, const free_parameters& map,
                      const derivatives& derivs, int32 g)
      : work_(work),
        map_(map),
        design_(derivs.design),
        sums_(derivs.sums[static_cast<std::size_t>(g - 1)]),
        g_(g),
        n_(map.in_stratum()),
        membership_(static_cast<std::size_t>(map.membership)),
        responses_(static_cast<std::size_t>(map.responses)),
        values_(n_ * n_) {
    for (std::size_t j = 0; j < n_; ++j)
      for (std::size_t i = j; i < n_; ++i) at(i, j) = sums_.outer[i + j * sums_.order];
    subtract_within();
    add_slopes();
    add_shares();
    add_responses();
  }

  [[nodiscard]] double operator()(std::size_t i, std::size_t j) const {
    return values_[std::max(i, j) + std::min(i, j) * n_];
  }

 private:
  double& at(std::size_t i, std::size_t j) { return values_[i + j * n_]; }

  void subtract_within() {
    const std::size_t length = membership_ + responses_;
    for (std::size_t c = 0; c < static_cast<std::size_t>(map_.nc); ++c) {
      const double* within = sums_.within.data() + c * sums_.class_order * sums_.class_order;
      const auto place = [&](std::size_t i) { return i < membership_ ? i : i + c * responses_; };
      for (std::size_t j = 0; j < length; ++j)
        for (std::size_t i = j; i < length; ++i)
          at(place(i), place(j)) -= within[i + j * sums_.class_order];
    }
  }

  /// x x' by the covariance of the indicators of the slope classes, over the covariate patterns.
  void add_slopes() {
    const auto slopes = static_cast<std::size_t>(map_.slopes);
    if (slopes == 0) return;
    const auto columns = static_cast<std::size_t>(map_.columns);
    const std::size_t blocks = slopes / columns;
    const regression& fit = work_.beta.fits[static_cast<std::size_t>(g_ - 1)];
    const auto first = static_cast<std::size_t>(
        work_.rows->covariates.stratum_start[static_cast<std::size_t>(g_ - 1)]);
    double total = 0.0;
    for (const double weight : fit.weight.flat) total += weight;
    const double factor = 1.0 + (fit.prior.empty() ? 0.0 : fit.prior_ess / total);
    std::vector<double> sum(slopes * slopes);
    std::vector<double> scratch(
        sum.size() * static_cast<std::size_t>(parallel::blocks_for(fit.x.n[0], sum.size())));
    const auto width = static_cast<std::size_t>(work_.classes.width);
    const auto add = [&](int32 from, int32 to, std::span<double> part) {
      for (int32 u = from; u <= to; ++u) {
        const std::size_t pattern = first + static_cast<std::size_t>(u - 1);
        const double* z = &design_.z[pattern * columns];
        const double* gamma = &work_.classes.prior[pattern * width];
        for (std::size_t l = 0; l < blocks; ++l)
          for (std::size_t k = l; k < blocks; ++k) {
            const double other = gamma[map_.slope_class[l] - 1];
            const double share = gamma[map_.slope_class[k] - 1];
            const double weight = factor * fit.weight(u) * share * ((k == l ? 1.0 : 0.0) - other);
            for (std::size_t q = 0; q < columns; ++q)
              for (std::size_t p = 0; p < columns; ++p)
                part[k * columns + p + (l * columns + q) * slopes] += weight * z[p] * z[q];
          }
      }
    };
    parallel::sum_over_rows(fit.x.n[0], work_.em.threads, sum, scratch, add);
    for (std::size_t j = 0; j < slopes; ++j)
      for (std::size_t i = j; i < slopes; ++i) at(i, j) += sum[i + j * slopes];
  }

  /// Cases, and pseudo-cases of the prior in force, that the share logits divide.
  [[nodiscard]] double divided_cases(const class_shares& shares) const {
    double cases = 0.0;
    for (std::size_t c = 0; c < shares.pi.size(); ++c) {
      if (!(shares.pi[c] > 0.0)) continue;
      cases += sums_.class_total[c];
      const std::size_t cell = c + static_cast<std::size_t>(g_ - 1) * shares.pi.size();
      if (work_.beta.active) {
        const regression& fit = work_.beta.fits[static_cast<std::size_t>(g_ - 1)];
        if (!fit.prior.empty()) cases += fit.prior_ess * fit.prior[c];
      } else if (work_.gamma.use_prior) {
        cases += work_.gamma.pseudo[cell];
      }
    }
    return cases;
  }

  void add_shares() {
    if (map_.shares == 0) return;
    const class_shares shares = shares_of(work_, g_);
    const double cases = divided_cases(shares);
    const auto first = static_cast<std::size_t>(map_.slopes);
    const auto pi = [&](int32 l) {
      return shares.pi[static_cast<std::size_t>(map_.share_class(l, g_) - 1)];
    };
    for (int32 j = 1; j <= map_.shares; ++j)
      for (int32 i = j; i <= map_.shares; ++i)
        at(first + static_cast<std::size_t>(i - 1), first + static_cast<std::size_t>(j - 1)) +=
            cases * pi(i) * ((i == j ? 1.0 : 0.0) - pi(j));
  }

  /// Pseudo-answers of the prior in force to item j in class c.
  [[nodiscard]] double pseudo_answers(int32 j, int32 c) const {
    double sum = 0.0;
    const array<double, 4>& rho = work_.rho.now;
    for (int32 r = 1; r <= work_.data.nrc(j) && work_.rho.use_prior; ++r)
      sum += work_.rho.pseudo[static_cast<std::size_t>(&rho(j, c, r, g_) - rho.data())];
    return sum;
  }

  void add_responses() {
    const int32 copy = map_.copy_of(g_);
    for (int32 c = 1; c <= map_.nc; ++c)
      for (int32 j = 1; j <= work_.data.nci; ++j) {
        const auto item = static_cast<std::size_t>(j - 1);
        const auto cls = static_cast<std::size_t>(c - 1);
        const double answers =
            sums_.answered[cls * static_cast<std::size_t>(work_.data.nci) + item] +
            pseudo_answers(j, c);
        const std::size_t first =
            membership_ + cls * responses_ + static_cast<std::size_t>(map_.item_first[item]);
        const auto rho = [&](int32 l) {
          return work_.rho.now(j, c, map_.category(j, c, copy, l), g_);
        };
        for (int32 k = 0; k + 1 < work_.data.nrc(j); ++k)
          for (int32 l = k; l + 1 < work_.data.nrc(j); ++l)
            at(first + static_cast<std::size_t>(l), first + static_cast<std::size_t>(k)) +=
                answers * rho(l) * ((k == l ? 1.0 : 0.0) - rho(k));
      }
  }

  const mlworkspace& work_;
  const free_parameters& map_;
  const scaled_design& design_;
  const stratum_sums& sums_;
  int32 g_;
  std::size_t n_, membership_, responses_;
  std::vector<double> values_;
};

void fill_blocks(const mlworkspace& work, const free_parameters& map, derivatives& derivs) {
  const auto membership = static_cast<int32>(map.membership_at(map.nstr + 1));
  const auto responses = static_cast<int32>(map.place.size()) - membership;
  derivs.neg_second_beta.allocate({membership, membership});
  derivs.neg_second_phi.allocate({responses, responses});
  derivs.neg_second_beta_phi_cross.allocate({membership, responses});
  const auto own = static_cast<std::size_t>(map.membership);
  for (int32 g = 1; g <= map.nstr; ++g) {
    const stratum_information information(work, map, derivs, g);
    for (std::size_t j = 0; j < map.in_stratum(); ++j)
      for (std::size_t i = 0; i < map.in_stratum(); ++i) {
        const auto row = static_cast<int32>(map.at(g, i)) + 1;
        const auto column = static_cast<int32>(map.at(g, j)) + 1;
        const double value = information(i, j);
        if (i < own && j < own)
          derivs.neg_second_beta(row, column) += value;
        else if (i < own)
          derivs.neg_second_beta_phi_cross(row, column - membership) += value;
        else if (j >= own)
          derivs.neg_second_phi(row - membership, column - membership) += value;
      }
  }
}

}  // namespace

int32 run_compute_neg_second_for_lca(const mlworkspace& work, const free_parameters& map,
                                     derivatives& derivs, const routine& here, error_type& err) {
  return allocation::allocate_under(std::string(here.name) + ": neg_second_phi", here, err,
                                    [&] { fill_blocks(work, map, derivs); });
}

int32 run_compute_neg_second_for_lca_binary(const mlworkspace& work, const free_parameters& map,
                                            derivatives& derivs, const routine& here,
                                            error_type& err) {
  const int32 compared = work.given.param.binary_gamma;
  const auto refuse = [&](std::string_view how) {
    return fail(
        err, here,
        {text("Cannot get derivatives or standard errors because the reference class is too",
              how)});
  };
  if (compared < 1) return refuse(" small.");
  if (compared > map.nc) return refuse(" big.");
  return run_compute_neg_second_for_lca(work, map, derivs, here, err);
}

}  // namespace tolvenra::estimation
