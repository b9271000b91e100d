#include <algorithm>
#include <utility>

#include "core/dynamic_allocation.hpp"
#include "estimation/estep.hpp"
#include "estimation/mlworkspace.hpp"
#include "estimation/msteps_covariates.hpp"
#include "estimation/msteps_status_covariates.hpp"
#include "estimation/restrictions.hpp"

namespace tolvenra::estimation {
namespace {

/// Loads one family of probability vectors: values and codes.
template <std::size_t R>
void load_block(const array<double, R>& values, const array<int32, R>& codes, row_layout rows,
                prob_block<R>& block) {
  block.denominator.assign(static_cast<std::size_t>(rows.nrows), 0.0);
  block.rows = std::move(rows);
  block.now = values;
  block.old = values;
  block.code = codes;
  free_padding(block.code.flat, block.rows);
  block.numerator.allocate(values.n);
}

/// Loads a prior as pseudo-counts; `ess` holds one value per row, in row order.
template <std::size_t R>
void load_prior(bool given, const array<double, R>& prior, const std::vector<double>& ess,
                prob_block<R>& block) {
  block.use_prior = given && std::any_of(ess.begin(), ess.end(), [](double e) { return e > 0.0; });
  block.pseudo.clear();
  if (!block.use_prior) return;
  block.pseudo.assign(prior.size(), 0.0);
  for (int32 m = 0; m < block.rows.nrows; ++m)
    for (int32 r = 0; r < block.rows.length[static_cast<std::size_t>(m)]; ++r) {
      const auto at = static_cast<std::size_t>(block.rows.base(m) + r * block.rows.step);
      block.pseudo[at] = ess[static_cast<std::size_t>(m)] * prior.flat[at];
    }
}

/// Initial statuses, transitions and responses to the status items.
int32 load_statuses(mlworkspace& work, error_type& err) {
  constexpr routine here{"load_mlworkspace_param", "estimation"};
  using allocation::allocate_under;
  const param_type& param = work.given.param;
  if (allocate_under("load_mlworkspace_param: work%new_delta", here, err,
                     [&] {
                       load_block(param.delta, param.delta_restrictions, param::delta_rows(param),
                                  work.delta);
                       load_prior(param.delta_prior_set, param.delta_prior,
                                  param.delta_prior_ess.flat, work.delta);
                     }) != 0 ||
      allocate_under(
          "load_mlworkspace_param: work%new_tau", here, err,
          [&] {
            load_block(param.tau, param.tau_restrictions, param::tau_rows(param), work.tau);
            load_prior(param.tau_prior_set, param.tau_prior, param.tau_prior_ess.flat, work.tau);
          }) != 0 ||
      allocate_under("load_mlworkspace_param: work%new_big_rho", here, err, [&] {
        load_block(param.big_rho, param.big_rho_restrictions, param::big_rho_rows(param),
                   work.big_rho);
        load_prior(param.big_rho_prior_set, param.big_rho_prior, param.big_rho_prior_ess.flat,
                   work.big_rho);
      }) != 0)
    return -1;
  if (check_status_codes(work, err) != 0) return -1;
  if (get_info_from_delta_restriction(work, err) != 0)
    return fail(err, here, {text("Could not get info from delta_restrictions.")});
  if (get_info_from_tau_restriction(work, err) != 0)
    return fail(err, here, {text("Could not get info from tau_restrictions.")});
  if (get_info_from_big_rho_restriction(work, err) != 0)
    return fail(err, here, {text("Could not get info from big_rho_restrictions.")});
  return 0;
}

}  // namespace

int32 load_mlworkspace_param(mlworkspace& work, error_type& err) {
  constexpr routine here{"load_mlworkspace_param", "estimation"};
  using allocation::allocate_under;
  const param_type& param = work.given.param;
  work.rho_equal_across_strata = param.rho_equal_across_strata;
  if (allocate_under("load_mlworkspace_param: work%new_gamma", here, err,
                     [&] {
                       load_block(param.gamma, param.gamma_restrictions, param::gamma_rows(param),
                                  work.gamma);
                       load_prior(param.gamma_prior_set, param.gamma_prior,
                                  param.gamma_prior_ess.flat, work.gamma);
                     }) != 0 ||
      allocate_under("load_mlworkspace_param: work%new_rho", here, err, [&] {
        load_block(param.rho, param.rho_restrictions, param::rho_rows(param), work.rho);
        load_prior(param.rho_prior_set, param.rho_prior, param.rho_prior_ess.flat, work.rho);
      }) != 0)
    return -1;
  if (check_gamma_codes(work, err) != 0) return -1;
  if (get_info_from_gamma_restriction(work, err) != 0)
    return fail(err, here, {text("Could not get info from gamma_restrictions.")});
  if (get_info_from_rho_restriction(work, err) != 0)
    return fail(err, here, {text("Could not get info from rho_restrictions.")});
  if (work.data.ni > 0 && load_statuses(work, err) != 0) return -1;
  if (allocate_under("load_mlworkspace_param: work%post_cls", here, err,
                     [&] { plan_estep(work); }) != 0)
    return -1;
  if (load_beta(work, err) != 0 || load_delta_beta(work, err) != 0 || load_tau_beta(work, err) != 0)
    return pass_on(err, here);
  return 0;
}

}  // namespace tolvenra::estimation
