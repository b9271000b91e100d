#include "estimation/msteps.hpp"

#include <algorithm>

namespace tolvenra::estimation {
namespace {

/// New values of the first `nrows` rows from their numerators.
template <std::size_t R>
int32 update_rows(prob_block<R>& block, int32 nrows, const routine& here, error_type& err) {
  for (int32 m = 0; m < nrows; ++m) {
    const auto at = static_cast<std::size_t>(m);
    const int32 length = block.rows.length[at];
    const int64 base = block.rows.base(m);
    const auto element = [&](int32 r) { return static_cast<std::size_t>(base + r * block.rows.step); };
    double total = 0.0;
    for (int32 r = 0; r < length; ++r)
      if (block.code.flat[element(r)] != 0) total += block.numerator.flat[element(r)];
    block.denominator[at] = total;
    const double left = std::max(0.0, 1.0 - block.sum_fix[at]);
    if (length == 1) {  // one category: the sum decides, whatever the class weighs
      if (block.code.flat[element(0)] != 0) block.now.flat[element(0)] = left;
      continue;
    }
    if (length == 0) continue;
    if (!(total >= smallest_normal))
      return fail(err, here, error_code::division_by_zero, {text("rtmp_denom")});
    for (int32 r = 0; r < length; ++r)
      if (block.code.flat[element(r)] != 0)
        block.now.flat[element(r)] = left * block.numerator.flat[element(r)] / total;
  }
  return 0;
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
  if (!work.rho_equal_across_strata) return update_rows(work.rho, work.rho.rows.nrows, here, err);
  pool_strata(work.rho);
  if (update_rows(work.rho, work.rho.rows.nrows / work.data.nstr, here, err) != 0) return -1;
  copy_to_all_strata(work.rho);
  return 0;
}

int32 mstep_gamma(mlworkspace& work, error_type& err) {
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    const double* totals = &work.classes.counts[work.classes.prevalence(g)];
    std::copy_n(totals, work.latent.nc, work.gamma.numerator.column(g));
  }
  return update_rows(work.gamma, work.gamma.rows.nrows, {"mstep_gamma", "estimation"}, err);
}

}  // namespace tolvenra::estimation
