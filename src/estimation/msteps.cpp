#include "estimation/msteps.hpp"

#include <algorithm>

namespace tolvenra::estimation {
namespace {

/// Adds the prior's pseudo-counts; they are ordinary counts from here on.
template <std::size_t R>
void add_pseudo_counts(prob_block<R>& block) {
  if (!block.use_prior) return;
  for (std::size_t q = 0; q < block.pseudo.size(); ++q) block.numerator.flat[q] += block.pseudo[q];
}

/// New values of a family from its numerators.
template <std::size_t R>
int32 update_rows(prob_block<R>& block, const routine& here, error_type& err) {
  switch (block.solver.solve(block.numerator.flat, block.now.flat, block.denominator)) {
    case row_solver::outcome::solved:
      return 0;
    case row_solver::outcome::zero_denominator:
      return fail(err, here, error_code::division_by_zero, {text("rtmp_denom")});
    case row_solver::outcome::inconsistent:
      break;
  }
  return fail(err, here, {text("The equality and fixed restrictions of a row could not be met.")});
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

}  // namespace tolvenra::estimation
