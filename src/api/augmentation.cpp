#include "api/augmentation.hpp"

#include <utility>

#include "api/guarded.hpp"
#include "api/lca_run.hpp"
#include "api/lta_run.hpp"
#include "estimation/augmentation.hpp"

namespace tolvenra::api {
namespace {

template <std::size_t R>
combined_estimates combined(const daparam<R>& from, int32 imputations) {
  combined_estimates to{from.qbar.flat,  from.std_err.flat, from.df.flat,
                        from.lo_ci.flat, from.hi_ci.flat,   {}};
  for (std::size_t at = 0; at < from.qbar.size(); ++at)
    to.missing_information.push_back(estimation::missing_information(
        from.ubar.flat[at], from.bi_var.flat[at], from.df.flat[at], imputations));
  return to;
}

template <std::size_t R>
combined_parameter combined(const daparam<R>& probability, const daparam<R>& logit,
                            int32 imputations) {
  return {combined(probability, imputations), combined(logit, imputations)};
}

void take(daresult& result, const lca_run&, imputation_answer& answer) {
  answer.gamma = combined(result.gamma, result.logit_gamma, result.imputations);
  answer.rho = combined(result.rho, result.logit_rho, result.imputations);
  answer.cls = std::move(result.class_label_tracking_kase.flat);
  answer.responses = std::move(result.ciy_imp_save.flat);
}

void take(daresult& result, const lta_run&, imputation_answer& answer) {
  answer.delta = combined(result.delta, result.logit_delta, result.imputations);
  answer.tau = combined(result.tau, result.logit_tau, result.imputations);
  answer.big_rho = combined(result.big_rho, result.logit_big_rho, result.imputations);
  answer.status = std::move(result.status_label_tracking_kase.flat);
  answer.responses = std::move(result.siy_imp_save.flat);  // items, then times, as in y
}

/// Loads the records of a driver, runs the chain on them and takes its results.
template <class Run, class Call>
int32 impute(const Call& call, int32 (*check)(Run&), const imputation_request& request,
             imputation_answer& answer) noexcept {
  return guarded("impute", call.message, call.msg_len, [&] {
    Run run(call);
    run.message.begin();
    run_progress::fit_view view{&run.progress, 1, true};
    run.progress.begin_stage(run_stage::starts, 1);
    const da_options options{request.seed,    request.imputations, request.burn_in,
                             request.spacing, call.max_threads,    view.watch()};
    daresult result;
    mlresult_type ml;
    if (check(run) != 0 || load_data(run) != 0 || load_model(run) != 0 ||
        estimation::run_da_procedure(run.dataset, run.model, run.param, options, result, ml,
                                     run.err) != 0) {
      run.message.write(run.err);
      return -1;
    }
    take(result, run, answer);
    answer.row_of_subject = std::move(result.kase_of_subject.flat);
    return 0;
  });
}

}  // namespace

std::int32_t impute_lca(const lca_call& call, const imputation_request& request,
                        imputation_answer& answer) noexcept {
  return impute<lca_run>(call, check_lca_boundary, request, answer);
}

std::int32_t impute_lta(const lta_call& call, const imputation_request& request,
                        imputation_answer& answer) noexcept {
  return impute<lta_run>(call, check_lta_boundary, request, answer);
}

}  // namespace tolvenra::api
