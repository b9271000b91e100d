#include "lta_run.hpp"

#include <utility>

#include "api/findings.hpp"
#include "covariate_scale.hpp"
#include "fit_call.hpp"

namespace tolvenra::cli {
namespace {

/// Counted from 1, as the engine has them.
std::vector<std::int32_t> one_based(const std::vector<std::size_t>& offsets) {
  std::vector<std::int32_t> numbers;
  for (const std::size_t offset : offsets) numbers.push_back(static_cast<std::int32_t>(offset) + 1);
  return numbers;
}

/// Calls change(scales, first coefficient) for every row of coefficients of the start.
template <class Change>
void for_starts(const lta_data& data, std::span<const column_scale> scales,
                std::vector<double>& beta, Change&& change) {
  const auto own = scales.first(data.starting.size());
  for (std::size_t at = 0; at < beta.size(); at += own.size() + 1) change(own, &beta[at]);
}

/// The same of the transitions, each of which has columns of its own.
template <class Change>
void for_moves(const lta_data& data, std::size_t ns, std::span<const column_scale> scales,
               std::vector<double>& beta, Change&& change) {
  const std::size_t coefficients = data.moving.size() + 1;
  const std::size_t transition = coefficients * ns * ns;
  for (std::size_t at = 0; at < beta.size(); at += coefficients) {
    const std::size_t move = at / transition % (data.ntime() - 1);
    change(scales.subspan(data.starting.size() + move * data.moving.size(), data.moving.size()),
           &beta[at]);
  }
}

}  // namespace

lta_fit run_lta(const lta_data& data, const lta_options& options, tolvenra_progress* progress) {
  const lta_model& model = data.model;
  const auto ns = static_cast<std::size_t>(options.statuses);
  const auto size = [](const auto& list) { return static_cast<std::int32_t>(list.size()); };
  std::vector<std::int32_t> nrs;
  for (const categories& item : data.item_labels) nrs.push_back(size(item.labels));
  const std::vector<std::int32_t> y = response_matrix(data);
  const std::vector<column_scale> scales = covariate_scales(data);
  const std::vector<double> cov = scaled_matrix(data, scales);
  const std::int32_t nstarts = starts_of(data.model, options);
  const bool want_tests = covariates_are_tested(data);
  const auto reference = static_cast<std::int32_t>(model.reference) + 1;
  const auto compared = static_cast<std::int32_t>(model.compared) + 1;
  const std::vector<std::int32_t> reference_of = one_based(model.reference_of);
  const std::vector<std::int32_t> compared_of(reference_of.size(), compared);

  lta_fit fit;
  fit.delta = model.delta;
  fit.tau = model.tau;
  fit.rho = model.rho;
  if (!data.starting.empty()) fit.delta_beta = model.delta_beta;
  if (!data.moving.empty()) fit.tau_beta = model.tau_beta;
  const auto in = [](auto own, double* b) { to_engine(own, b); };
  for_starts(data, scales, fit.delta_beta, in);
  for_moves(data, ns, scales, fit.tau_beta, in);
  fit.post.resize(data.rows * data.ntime() * ns);
  make_room(data, want_tests ? data.starting.size() + data.moving.size() : 0, fit);
  start_arrays starts(static_cast<std::size_t>(nstarts));
  std::vector<char> message(8192, ' ');
  std::uint8_t converged = 0;

  api::lta_call call{};
  set_inputs(call, data, options, message, progress);
  set_results(call, fit, starts, converged);
  call.ni = size(nrs);
  call.nrs = nrs.data();
  call.nrsmax = most_categories_of(data);
  call.nt = size(data.times);
  call.ncov_delta = size(data.starting);
  call.ncov_tau = size(data.moving);
  call.y = y.data();
  call.freq_given = data.engine_freq.empty() ? 0 : 1;
  call.freq = data_or_null(data.engine_freq);
  call.cov = data_or_null(cov);
  call.ns = options.statuses;
  call.big_rho_equal_strata = options.equal_over("group") ? 1 : 0;
  call.big_rho_equal_time = options.equal_over("time") ? 1 : 0;
  call.binary_delta_wanted = model.binary && !data.starting.empty() ? 1 : 0;
  call.binary_tau_wanted = model.binary && !data.moving.empty() ? 1 : 0;
  call.baseline_delta = &reference;
  call.baseline_tau = reference_of.data();
  call.binary_delta = &compared;
  call.binary_tau = compared_of.data();
  call.delta = fit.delta.data();
  call.tau = fit.tau.data();
  call.big_rho = fit.rho.data();
  call.delta_beta = data_or_null(fit.delta_beta);
  call.tau_beta = data_or_null(fit.tau_beta);
  call.want_post = 1;
  call.post_cls_sta = fit.post.data();
  call.nstarts = &nstarts;
  call.random_starts = model.start_given ? 0 : 1;
  call.delta_restrictions = data_or_null(model.delta_code);
  call.tau_restrictions = data_or_null(model.tau_code);
  call.big_rho_restrictions = data_or_null(model.rho_code);
  call.prior_strength = options.prior_strength;
  api::run_findings found;
  fit.completed = api::run_lta(call, found) == 0;

  const auto out = [](auto own, double* b) { to_user(own, b); };
  const auto part_out = [](auto own, double* part) { direction_to_user(own, part); };
  for_starts(data, scales, fit.delta_beta, out);
  for_moves(data, ns, scales, fit.tau_beta, out);
  fit.start_runs = std::move(found.delta_beta);
  fit.move_runs = std::move(found.tau_beta);
  for (auto& part : fit.start_runs) for_starts(data, scales, part, part_out);
  for (auto& part : fit.move_runs) for_moves(data, ns, scales, part, part_out);
  fit.converged = converged != 0;
  fit.message = trimmed(message);
  fit.starts = starts.records();
  return fit;
}

}  // namespace tolvenra::cli
