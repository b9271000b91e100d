#include "estimation/msteps.hpp"

#include <algorithm>
#include <span>

namespace tolvenra::estimation {
namespace {

/// Adds the prior's pseudo-counts; they are ordinary counts from here on.
template <std::size_t R>
void add_pseudo_counts(prob_block<R>& block) {
  if (!block.use_prior) return;
  for (std::size_t q = 0; q < block.pseudo.size(); ++q) block.numerator.flat[q] += block.pseudo[q];
}

/// New values of rows from their numerators.
template <std::size_t R>
int32 update_rows(prob_block<R>& block, std::span<const double> numerator, std::span<double> now,
                  const routine& here, error_type& err) {
  switch (block.solver.solve(numerator, now, block.denominator)) {
    case row_solver::outcome::solved:
      return 0;
    case row_solver::outcome::zero_denominator:
      return fail(err, here, error_code::division_by_zero, {text("rtmp_denom")});
    case row_solver::outcome::inconsistent:
      break;
  }
  return fail(err, here, {text("The equality and fixed restrictions of a row could not be met.")});
}

template <std::size_t R>
int32 update_rows(prob_block<R>& block, const routine& here, error_type& err) {
  return update_rows(block, block.numerator.flat, block.now.flat, here, err);
}

/// The expected counts of the class items, missing responses spread by the previous estimates.
void count_responses(mlworkspace& work) {
  const class_counts& classes = work.classes;
  auto& rho = work.rho;
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 j = 1; j <= work.data.nci; ++j) {
      const double* missing = &classes.counts[classes.at(j, 0, g)];
      for (int32 r = 1; r <= work.data.nrc(j); ++r) {
        const double* observed = &classes.counts[classes.at(j, r, g)];
        for (int32 c = 1; c <= work.latent.nc; ++c)
          rho.numerator(j, c, r, g) = observed[c - 1] + missing[c - 1] * rho.old(j, c, r, g);
      }
    }
}

/// Sums the numerators of all strata into stratum 1.
void pool_strata(prob_block<4>& rho) {
  const auto stride = static_cast<std::size_t>(rho.numerator.stride[3]);
  for (int32 g = 2; g <= rho.numerator.n[3]; ++g) {
    const double* from = rho.numerator.data() + stride * static_cast<std::size_t>(g - 1);
    for (std::size_t q = 0; q < stride; ++q) rho.numerator.flat[q] += from[q];
  }
}

void copy_to_all_strata(prob_block<4>& rho) {
  const auto stride = static_cast<std::size_t>(rho.now.stride[3]);
  for (int32 g = 2; g <= rho.now.n[3]; ++g)
    std::copy_n(rho.now.data(), stride, rho.now.data() + stride * static_cast<std::size_t>(g - 1));
}

/// The same of the status items.
void count_status_responses(mlworkspace& work) {
  const status_tables& tables = work.statuses;
  auto& big_rho = work.big_rho;
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 c = 1; c <= work.latent.nc; ++c)
      for (int32 t = 1; t <= work.data.nt; ++t)
        for (int32 i = 1; i <= work.data.ni; ++i) {
          const double* missing =
              &tables.response_count[tables.response_at(g - 1, t - 1, c - 1) +
                                     tables.vectors(
                                         tables.item_slot[static_cast<std::size_t>(i - 1)])];
          for (int32 r = 1; r <= work.data.nrs(i); ++r) {
            const double* observed = missing + tables.vectors(r);
            for (int32 s = 1; s <= work.latent.ns; ++s)
              big_rho.numerator(i, s, r, t, c, g) =
                  observed[s - 1] + missing[s - 1] * big_rho.old(i, s, r, t, c, g);
          }
        }
}

}  // namespace

int32 mstep_rho(mlworkspace& work, error_type& err) {
  constexpr routine here{"mstep_rho", "estimation"};
  count_responses(work);
  add_pseudo_counts(work.rho);
  const bool equal_strata = work.rho_equal_across_strata;
  if (equal_strata) pool_strata(work.rho);
  if (update_rows(work.rho, here, err) != 0) return -1;
  if (equal_strata) copy_to_all_strata(work.rho);
  return 0;
}

int32 mstep_gamma(mlworkspace& work, error_type& err) {
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    const double* totals = &work.classes.counts[work.classes.prevalence(g)];
    std::copy_n(totals, work.latent.nc, work.gamma.numerator.column(g));
  }
  add_pseudo_counts(work.gamma);
  return update_rows(work.gamma, {"mstep_gamma", "estimation"}, err);
}

int32 mstep_big_rho(mlworkspace& work, error_type& err) {
  constexpr routine here{"mstep_big_rho", "estimation"};
  count_status_responses(work);
  add_pseudo_counts(work.big_rho);
  pooled_rows& pooled = work.big_rho_pool;
  if (!pooled.active()) return update_rows(work.big_rho, here, err);
  std::fill(pooled.numerator.begin(), pooled.numerator.end(), 0.0);
  for (std::size_t q = 0; q < pooled.offset.size(); ++q)
    pooled.numerator[pooled.offset[q]] += work.big_rho.numerator.flat[q];
  if (update_rows(work.big_rho, pooled.numerator, pooled.now, here, err) != 0) return -1;
  for (std::size_t q = 0; q < pooled.offset.size(); ++q)
    work.big_rho.now.flat[q] = pooled.now[pooled.offset[q]];
  return 0;
}

int32 mstep_delta(mlworkspace& work, error_type& err) {
  const status_tables& tables = work.statuses;
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 c = 1; c <= work.latent.nc; ++c)
      std::copy_n(&tables.delta_count[tables.delta_at(g - 1, c - 1)], work.latent.ns,
                  work.delta.numerator.column(c, g));
  add_pseudo_counts(work.delta);
  return update_rows(work.delta, {"mstep_delta", "estimation"}, err);
}

int32 mstep_tau(mlworkspace& work, error_type& err) {
  const status_tables& tables = work.statuses;
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 c = 1; c <= work.latent.nc; ++c)
      for (int32 k = 1; k < work.data.nt; ++k) {
        const double* count = &tables.tau_count[tables.tau_count_at(g - 1, c - 1, k - 1)];
        for (int32 s = 1; s <= work.latent.ns; ++s, count += tables.width)
          for (int32 d = 1; d <= work.latent.ns; ++d)
            work.tau.numerator(s, d, k, c, g) = count[d - 1];
      }
  add_pseudo_counts(work.tau);
  return update_rows(work.tau, {"mstep_tau", "estimation"}, err);
}

}  // namespace tolvenra::estimation
