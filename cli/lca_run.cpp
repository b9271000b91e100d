#include "lca_run.hpp"

#include <utility>

#include "api/findings.hpp"
#include "covariate_scale.hpp"
#include "fit_call.hpp"

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
  const auto ncov = static_cast<std::int32_t>(data.covariates.size());
  const lca_model& model = data.model;
  const std::vector<std::int32_t> nrc = category_counts(data);
  const std::vector<std::int32_t> y = response_matrix(data);
  const std::vector<column_scale> scales = covariate_scales(data);
  const std::vector<double> cov = scaled_matrix(data, scales);
  const std::int32_t nstarts = starts_of(data.model, options);
  const auto reference = static_cast<std::int32_t>(engine_reference(model)) + 1;
  const auto compared = static_cast<std::int32_t>(model.compared) + 1;
  const bool want_post = !options.posteriors.empty();

  lca_fit fit;
  fit.gamma = model.gamma;
  fit.rho = model.rho;
  if (ncov > 0) fit.beta = model.beta;
  if (ncov > 0) fit.beta.resize(fit.gamma.size() * (data.covariates.size() + 1));
  const auto each_class = [&](auto&& change, std::vector<double>& beta) {
    for (std::size_t at = 0; at < beta.size(); at += scales.size() + 1) change(&beta[at]);
  };
  each_class([&](double* b) { to_engine(scales, b); }, fit.beta);
  if (want_post) fit.post_cls.resize(data.rows * nc);
  make_room(data, data.covariates.size(), fit);
  if (data.errors_wanted) make_room_for_errors(data, nc, fit);
  start_arrays starts(static_cast<std::size_t>(nstarts));
  std::vector<char> message(8192, ' ');
  std::uint8_t converged = 0;

  api::lca_call call{};
  set_inputs(call, data, options, message, progress);
  set_results(call, fit, starts, converged);
  call.nci = static_cast<std::int32_t>(data.items.size());
  call.nrc = nrc.data();
  call.nrcmax = most_categories_of(data);
  call.ncov = ncov;
  call.y = y.data();
  call.weight_given = data.weight.empty() ? 0 : 1;
  call.weight = data.weight.data();
  call.clusters = data_or_null(data.cluster);
  call.cov = data_or_null(cov);
  call.nc = options.classes;
  call.rho_equal_strata = options.invariant ? 1 : 0;
  call.binary_wanted = model.binary && nc > 2 ? 1 : 0;
  call.baseline_gamma = &reference;
  call.binary_gamma = &compared;
  call.gamma = fit.gamma.data();
  call.rho = fit.rho.data();
  call.beta = data_or_null(fit.beta);
  call.want_post = want_post ? 1 : 0;
  call.post_cls = data_or_null(fit.post_cls);
  call.se_option = data.errors_wanted ? 1 : 0;
  call.std_gamma = data_or_null(fit.std_gamma);
  call.std_gamma_model = data_or_null(fit.std_gamma_model);
  call.std_rho = data_or_null(fit.std_rho);
  call.cov_b = data_or_null(fit.cov_b);
  call.deff = &fit.deff;
  call.start_given = model.start_given ? 1 : 0;
  call.gamma_restrictions = data_or_null(model.gamma_code);
  call.rho_restrictions = data_or_null(model.rho_code);
  call.nstarts = nstarts;
  call.beta_prior_strength = options.prior_beta;
  call.rho_prior_strength = options.prior_rho;
  call.gamma_prior_strength = options.prior_gamma;
  call.n_clusters = &fit.n_clusters;
  call.cluster_min = &fit.cluster_min;
  call.cluster_max = &fit.cluster_max;
  call.want_tests = ncov > 0 ? 1 : 0;
  api::run_findings found;
  fit.completed = api::run_lca(call, found) == 0;

  each_class([&](double* b) { to_user(scales, b); }, fit.beta);
  fit.beta_runs = std::move(found.beta);
  for (auto& part : fit.beta_runs)
    each_class([&](double* b) { direction_to_user(scales, b); }, part);
  if (!found.cov_b.empty() && !fit.cov_b.empty()) {
    fit.cov_b = std::move(found.cov_b);
    covariance_to_user(scales, static_cast<std::size_t>(fit.run_info[8]), fit.cov_b);
  }
  fit.converged = converged != 0;
  fit.message = trimmed(message);
  fit.starts = starts.records();
  return fit;
}

}  // namespace tolvenra::cli
