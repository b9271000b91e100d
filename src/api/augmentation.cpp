#include "api/augmentation.hpp"

#include "api/guarded.hpp"
#include "api/lca_run.hpp"
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

/// Runs the chain on the loaded records of a driver.
template <class Run>
int32 run_chain(Run& run, const imputation_request& request, daresult& result) {
  run_progress::fit_view view{&run.progress, 1, true};
  run.progress.begin_stage(run_stage::starts, 1);
  const da_options options{request.seed,    request.imputations,  request.burn_in,
                           request.spacing, run.call.max_threads, view.watch()};
  mlresult_type ml;
  return estimation::run_da_procedure(run.dataset, run.model, run.param, options, result, ml,
                                      run.err);
}

int32 impute(lca_run& run, const imputation_request& request, imputation_answer& answer) {
  daresult result;
  if (check_lca_boundary(run) != 0 || load_data(run) != 0 || load_model(run) != 0 ||
      run_chain(run, request, result) != 0)
    return -1;
  answer.gamma = combined(result.gamma, result.logit_gamma, result.imputations);
  answer.rho = combined(result.rho, result.logit_rho, result.imputations);
  answer.row_of_subject = std::move(result.kase_of_subject.flat);
  answer.cls = std::move(result.class_label_tracking_kase.flat);
  answer.responses = std::move(result.ciy_imp_save.flat);
  return 0;
}

}  // namespace

std::int32_t impute_lca(const lca_call& call, const imputation_request& request,
                        imputation_answer& answer) noexcept {
  return guarded("impute", call.message, call.msg_len, [&] {
    lca_run run(call);
    run.message.begin();
    const int32 status = impute(run, request, answer);
    if (status != 0) run.message.write(run.err);
    return status;
  });
}

}  // namespace tolvenra::api
