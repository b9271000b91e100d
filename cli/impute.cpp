// The one file of the command that calls the engine other than through tolvenra.h: no export starts
// data augmentation.
#include <utility>

#include "api/augmentation.hpp"
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
  call.progress = progress;
  call.nci = static_cast<std::int32_t>(data.items.size());
  call.nrc = nrc.data();
  call.nrcmax = most_categories_of(data);
  call.nkase = static_cast<std::int32_t>(data.rows);
  call.nstr = static_cast<std::int32_t>(data.groups());
  call.y = y.data();
  call.strata_given = data.group ? 1 : 0;
  call.strata = data.group ? data.group->code.data() : nullptr;
  call.freq_given = data.freq.empty() ? 0 : 1;
  call.freq = data.freq.data();
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
  call.seed = options.seed;
  call.rho_prior_strength = options.prior_rho;
  call.gamma_prior_strength = options.prior_gamma;
  call.criterion = options.criterion;
  call.max_iter = options.max_iter;
  call.max_threads = options.threads;
  call.msg_len = static_cast<std::int32_t>(message.size());
  call.message = message.data();

  api::imputation_answer answer;
  imputation result;
  result.completed =
      api::impute_lca(call, {wanted.imputations, wanted.burn_in, wanted.spacing, options.seed},
                      answer) == 0;
  result.message = trimmed(message);
  result.gamma = taken(answer.gamma);
  result.rho = taken(answer.rho);
  result.row_of_subject = std::move(answer.row_of_subject);
  result.cls = std::move(answer.cls);
  result.responses = std::move(answer.responses);
  return result;
}

}  // namespace tolvenra::cli
