#include "estimation/estep.hpp"
#include "estimation/mlworkspace.hpp"
#include "estimation/restrictions.hpp"

namespace tolvenra::estimation {
namespace {

/// Loads one family of probability vectors: values, codes, the fixed sum of every row.
template <std::size_t R>
void load_block(const array<double, R>& values, const array<int32, R>& codes, row_layout rows,
                prob_block<R>& block) {
  block.rows = std::move(rows);
  block.now = values;
  block.old = values;
  block.code = codes;
  block.numerator.allocate(values.n);
  const auto nrows = static_cast<std::size_t>(block.rows.nrows);
  block.denominator.assign(nrows, 0.0);
  block.sum_fix.assign(nrows, 0.0);
  for (int32 m = 0; m < block.rows.nrows; ++m)
    for (int32 r = 0; r < block.rows.length[static_cast<std::size_t>(m)]; ++r) {
      const auto at = static_cast<std::size_t>(block.rows.base(m) + r * block.rows.step);
      if (block.code.flat[at] == 0) block.sum_fix[static_cast<std::size_t>(m)] += values.flat[at];
    }
  block.n_estimated = number_of_parameters_estimated(block.code.flat, block.rows);
}

/// Estimated rho parameters; strata that share their rho are counted once.
int32 count_rho(const mlworkspace& work) {
  row_layout rows = work.rho.rows;
  if (work.rho_equal_across_strata) rows.nrows /= work.data.nstr;
  return number_of_parameters_estimated(work.rho.code.flat, rows);
}

}  // namespace

int32 load_mlworkspace_param(mlworkspace& work, error_type&) {
  const param_type& param = work.given.param;
  work.rho_equal_across_strata = param.rho_equal_across_strata;
  load_block(param.gamma, param.gamma_restrictions, param::gamma_rows(param), work.gamma);
  load_block(param.rho, param.rho_restrictions, param::rho_rows(param), work.rho);
  work.rho.n_estimated = count_rho(work);
  plan_estep(work);
  return 0;
}

}  // namespace tolvenra::estimation
