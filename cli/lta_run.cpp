#include "lta_run.hpp"

namespace tolvenra::cli {
namespace {

/// Counted from 1, as the engine has them.
std::vector<std::int32_t> one_based(const std::vector<std::size_t>& offsets) {
  std::vector<std::int32_t> numbers;
  for (const std::size_t offset : offsets) numbers.push_back(static_cast<std::int32_t>(offset) + 1);
  return numbers;
}

}  // namespace

lta_fit run_lta(const lta_data& data, const lta_options& options, tolvenra_progress* progress) {
  const lta_model& model = data.model;
  const auto ns = static_cast<std::size_t>(options.statuses);
  const auto size = [](const auto& list) { return static_cast<std::int32_t>(list.size()); };
  std::vector<std::int32_t> nrs;
  for (const categories& item : data.item_labels) nrs.push_back(size(item.labels));
  const std::vector<std::int32_t> y = response_matrix(data);
  const std::vector<double> cov = covariate_matrix(data);
  const std::int32_t nstarts = starts_of(data.model, options);
  const bool want_tests = covariates_are_tested(data);
  const bool start_binary = model.binary && !data.starting.empty();
  const bool move_binary = model.binary && !data.moving.empty();
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
  fit.post.resize(data.rows * data.ntime() * ns);
  make_room(data, want_tests ? data.starting.size() + data.moving.size() : 0, fit);
  start_arrays starts(static_cast<std::size_t>(nstarts));
  std::vector<char> message(8192, ' ');
  std::uint8_t converged = 0;

  const std::int32_t status = runlta(
      progress, size(nrs), nrs.data(), most_categories_of(data), size(data.times),
      static_cast<std::int32_t>(data.rows), size(data.starting), size(data.moving),
      static_cast<std::int32_t>(data.groups()), y.data(), /*strata_given=*/data.group ? 1 : 0,
      /*freq_given=*/data.engine_freq.empty() ? 0 : 1,
      data.group ? data.group->code.data() : nullptr, data_or_null(cov),
      data_or_null(data.engine_freq), options.statuses,
      /*big_rho_equal_strata=*/options.equal_over("group") ? 1 : 0,
      /*big_rho_equal_time=*/options.equal_over("time") ? 1 : 0,
      /*binary_delta_wanted=*/start_binary ? 1 : 0, /*binary_tau_wanted=*/move_binary ? 1 : 0,
      &reference, reference_of.data(), &compared, compared_of.data(), fit.delta.data(),
      fit.tau.data(), fit.rho.data(), data_or_null(fit.delta_beta), data_or_null(fit.tau_beta),
      fit.post.data(), /*post_cls_adj_sta=*/nullptr, fit.response_patterns.data(),
      fit.pattern_counts.data(), &nstarts, starts.seed.data(), starts.loglik.data(),
      starts.converged.data(), starts.iterations.data(), starts.status.data(),
      /*random_starts=*/model.start_given ? 0 : 1, data_or_null(model.delta_code),
      data_or_null(model.tau_code), data_or_null(model.rho_code), options.seed,
      options.prior_strength, options.criterion, options.max_iter, options.threads, &converged,
      &fit.iterations, /*max_abs_diff=*/nullptr, /*mean_abs_diff=*/nullptr, fit.run_info.data(),
      &fit.loglik, &fit.overflow_count, &fit.apparent_df, fit.n_params.data(), &fit.G2,
      /*aic=*/nullptr, /*bic=*/nullptr, &fit.cat_loglik, &fit.cat_g2, &fit.cat_df,
      /*llvec=*/nullptr, /*want_post=*/1, /*madvec=*/nullptr, fit.fit_extra.data(),
      data_or_null(fit.test_stat), data_or_null(fit.test_p), data_or_null(fit.test_status),
      static_cast<std::int32_t>(message.size()), message.data());

  fit.completed = status == 0;
  fit.converged = converged != 0;
  fit.message = trimmed(message);
  fit.starts = starts.records();
  return fit;
}

}  // namespace tolvenra::cli
