// No export starts data augmentation.
#include <utility>

#include "api/augmentation.hpp"
#include "fit_call.hpp"
#include "imputation.hpp"

namespace tolvenra::cli {
namespace {

combined_estimates taken(api::combined_estimates& from) {
  return {std::move(from.estimate), std::move(from.std_err), std::move(from.df),
          std::move(from.lower),    std::move(from.upper),   std::move(from.missing_information)};
}

combined_parameter taken(api::combined_parameter& from) {
  return {taken(from.probability), taken(from.logit)};
}

api::imputation_request request_of(const imputation_options& wanted,
                                   const analysis_options& options) {
  return {wanted.imputations, wanted.burn_in, wanted.spacing, options.seed};
}

/// What both answers have in common.
imputation common_part(std::int32_t status, const std::vector<char>& message,
                       api::imputation_answer& answer) {
  imputation result;
  result.completed = status == 0;
  result.message = trimmed(message);
  result.case_of = std::move(answer.row_of_subject);
  result.filled = std::move(answer.responses);
  return result;
}

}  // namespace

imputation impute(const lca_data& data, const lca_options& options,
                  const imputation_options& wanted, const lca_fit& fit,
                  tolvenra_progress* progress) {
  const std::vector<std::int32_t> nrc = category_counts(data);
  const std::vector<std::int32_t> y = response_matrix(data);
  std::vector<double> gamma = fit.gamma;
  std::vector<double> rho = fit.rho;
  std::vector<char> message(8192, ' ');

  api::lca_call call{};
  set_inputs(call, data, options, message, progress);
  call.nci = static_cast<std::int32_t>(data.items.size());
  call.nrc = nrc.data();
  call.nrcmax = most_categories_of(data);
  call.y = y.data();
  call.weight_given = data.weight.empty() ? 0 : 1;
  call.weight = data.weight.data();
  call.nc = options.classes;
  call.rho_equal_strata = options.invariant ? 1 : 0;
  call.gamma = gamma.data();
  call.rho = rho.data();
  call.gamma_restrictions = data_or_null(data.model.gamma_code);
  call.rho_restrictions = data_or_null(data.model.rho_code);
  call.start_given = 1;
  call.nstarts = 1;
  call.rho_prior_strength = options.prior_rho;
  call.gamma_prior_strength = options.prior_gamma;

  api::imputation_answer answer;
  const std::int32_t status = api::impute_lca(call, request_of(wanted, options), answer);
  imputation result = common_part(status, message, answer);
  result.shares = taken(answer.gamma);
  result.responses = taken(answer.rho);
  result.latent = std::move(answer.cls);
  return result;
}

imputation impute(const lta_data& data, const lta_options& options,
                  const imputation_options& wanted, const lta_fit& fit,
                  tolvenra_progress* progress) {
  std::vector<std::int32_t> nrs;
  for (const categories& item : data.item_labels)
    nrs.push_back(static_cast<std::int32_t>(item.labels.size()));
  const std::vector<std::int32_t> y = response_matrix(data);
  std::vector<double> delta = fit.delta;
  std::vector<double> tau = fit.tau;
  std::vector<double> rho = fit.rho;
  std::vector<char> message(8192, ' ');

  api::lta_call call{};
  set_inputs(call, data, options, message, progress);
  call.ni = static_cast<std::int32_t>(nrs.size());
  call.nrs = nrs.data();
  call.nrsmax = most_categories_of(data);
  call.nt = static_cast<std::int32_t>(data.ntime());
  call.y = y.data();
  call.ns = options.statuses;
  call.big_rho_equal_strata = options.equal_over("group") ? 1 : 0;
  call.big_rho_equal_time = options.equal_over("time") ? 1 : 0;
  call.delta = delta.data();
  call.tau = tau.data();
  call.big_rho = rho.data();
  call.delta_restrictions = data_or_null(data.model.delta_code);
  call.tau_restrictions = data_or_null(data.model.tau_code);
  call.big_rho_restrictions = data_or_null(data.model.rho_code);
  call.random_starts = 0;

  api::imputation_answer answer;
  const std::int32_t status = api::impute_lta(call, request_of(wanted, options), answer);
  imputation result = common_part(status, message, answer);
  result.shares = taken(answer.delta);
  result.transitions = taken(answer.tau);
  result.responses = taken(answer.big_rho);
  result.latent = std::move(answer.status);
  return result;
}

}  // namespace tolvenra::cli
