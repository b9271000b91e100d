#include "lca_run.hpp"

namespace tolvenra::cli {
namespace {

/// Room for the standard errors that the model has. Without covariates nobody needs cov_b.
void make_room_for_errors(const lca_data& data, std::size_t nc, lca_fit& fit) {
  fit.std_gamma.resize(fit.gamma.size());
  fit.std_gamma_model.resize(fit.gamma.size());
  fit.std_rho.resize(fit.rho.size());
  if (data.covariates.empty()) return;
  const std::size_t order =
      (data.covariates.size() + 1) * (data.model.binary ? 1 : nc - 1) * data.groups();
  fit.cov_b.resize(order * order);
}

}  // namespace

std::size_t engine_reference(const lca_model& model) {
  if (model.binary) return model.compared == 0 ? 1 : 0;
  return model.tells_classes_apart() ? model.reference : 0;
}

lca_fit run_lca(const lca_data& data, const lca_options& options, tolvenra_progress* progress) {
  const auto nc = static_cast<std::size_t>(options.classes);
  const auto nitem = static_cast<std::int32_t>(data.items.size());
  const auto nrow = static_cast<std::int32_t>(data.rows);
  const auto ngroup = static_cast<std::int32_t>(data.groups());
  const std::vector<std::int32_t> nrc = category_counts(data);
  const std::int32_t nrcmax = most_categories_of(data);
  const std::vector<std::int32_t> y = response_matrix(data);
  const lca_model& model = data.model;
  const std::vector<double> cov = covariate_matrix(data);
  const auto ncov = static_cast<std::int32_t>(data.covariates.size());
  const std::int32_t nstarts = starts_of(data.model, options);
  const auto reference = static_cast<std::int32_t>(engine_reference(model)) + 1;
  const auto compared = static_cast<std::int32_t>(model.compared) + 1;
  const bool want_post = !options.posteriors.empty();
  const bool want_tests = ncov > 0;

  lca_fit fit;
  fit.gamma = model.gamma;
  fit.rho = model.rho;
  if (ncov > 0) fit.beta = model.beta;
  if (ncov > 0) fit.beta.resize(fit.gamma.size() * (data.covariates.size() + 1));
  if (want_post) fit.post_cls.resize(data.rows * nc);
  make_room(data, want_tests ? data.covariates.size() : 0, fit);
  if (data.errors_wanted) make_room_for_errors(data, nc, fit);
  start_arrays starts(static_cast<std::size_t>(nstarts));
  std::vector<char> message(8192, ' ');
  std::uint8_t converged = 0;

  const std::int32_t status = runlca(
      progress, nitem, nrc.data(), nrcmax, nrow, ncov, ngroup, y.data(),
      /*strata_given=*/data.group ? 1 : 0, /*freq_given=*/data.freq.empty() ? 0 : 1,
      /*weight_given=*/data.weight.empty() ? 0 : 1, data.group ? data.group->code.data() : nullptr,
      data_or_null(data.cluster), ncov > 0 ? cov.data() : nullptr, data.freq.data(),
      data.weight.data(), options.classes,
      /*rho_equal_strata=*/options.invariant ? 1 : 0,
      /*binary_wanted=*/model.binary && nc > 2 ? 1 : 0, &reference, &compared, fit.gamma.data(),
      fit.rho.data(), ncov > 0 ? fit.beta.data() : nullptr,
      want_post ? fit.post_cls.data() : nullptr, fit.response_patterns.data(),
      fit.pattern_counts.data(), data_or_null(fit.std_gamma), data_or_null(fit.std_gamma_model),
      data_or_null(fit.std_rho), /*std_beta=*/nullptr, data_or_null(fit.cov_b),
      /*se_option=*/data.errors_wanted ? 1 : 0, fit.run_info.data(),
      /*start_given=*/model.start_given ? 1 : 0, data_or_null(model.gamma_code),
      data_or_null(model.rho_code), nstarts, options.seed,
      /*seed2=*/0, starts.seed.data(), starts.loglik.data(), starts.converged.data(),
      starts.iterations.data(), options.prior_beta, options.prior_rho, options.prior_gamma,
      options.criterion, options.max_iter, options.threads, &converged, &fit.iterations,
      /*max_abs_diff=*/nullptr, /*mean_abs_diff=*/nullptr, starts.status.data(), &fit.deff,
      &fit.loglik, &fit.overflow_count, &fit.apparent_df, fit.n_params.data(), &fit.G2,
      /*aic=*/nullptr, /*bic=*/nullptr, /*caic=*/nullptr, /*abic=*/nullptr, /*entropyraw=*/nullptr,
      /*entropy=*/nullptr, fit.fit_extra.data(), &fit.cat_loglik, &fit.cat_g2, &fit.cat_df,
      /*llvec=*/nullptr, &fit.n_clusters, &fit.cluster_min, &fit.cluster_max, want_post ? 1 : 0,
      want_tests ? 1 : 0, /*want_draws=*/0,
      /*drawn_class=*/nullptr, want_tests ? fit.test_stat.data() : nullptr,
      want_tests ? fit.test_p.data() : nullptr, want_tests ? fit.test_status.data() : nullptr,
      /*madvec=*/nullptr, static_cast<std::int32_t>(message.size()), message.data());

  fit.completed = status == 0;
  fit.converged = converged != 0;
  fit.message = trimmed(message);
  fit.starts = starts.records();
  return fit;
}

}  // namespace tolvenra::cli
