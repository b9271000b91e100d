/// \file fit_call.hpp  What the call records of both models have in common.
#pragma once

#include <cstdint>
#include <vector>

#include "analysis_options.hpp"
#include "case_data.hpp"
#include "fit_record.hpp"

namespace tolvenra::cli {

/// Cases, settings, and room for the report. The record points into the arguments.
template <class Call>
void set_inputs(Call& call, const case_data& data, const analysis_options& options,
                std::vector<char>& message, tolvenra_progress* progress) {
  call.progress = progress;
  call.nkase = static_cast<std::int32_t>(data.rows);
  call.nstr = static_cast<std::int32_t>(data.groups());
  call.strata_given = data.group ? 1 : 0;
  call.strata = data.group ? data.group->code.data() : nullptr;
  call.freq_given = data.freq.empty() ? 0 : 1;
  call.freq = data.freq.data();
  call.seed = options.seed;
  call.criterion = options.criterion;
  call.max_iter = options.max_iter;
  call.max_threads = options.threads;
  call.msg_len = static_cast<std::int32_t>(message.size());
  call.message = message.data();
}

/// The cells of a fit and of its starts; `converged` becomes fit.converged after the call.
template <class Call>
void set_results(Call& call, fit_record& fit, start_arrays& starts, std::uint8_t& converged) {
  call.response_patterns = fit.response_patterns.data();
  call.pattern_counts = fit.pattern_counts.data();
  call.run_info = fit.run_info.data();
  call.start_seeds = starts.seed.data();
  call.start_loglik = starts.loglik.data();
  call.start_converged = starts.converged.data();
  call.start_iter = starts.iterations.data();
  call.start_status = starts.status.data();
  call.converged = &converged;
  call.iterations = &fit.iterations;
  call.loglik = &fit.loglik;
  call.overflow_count = &fit.overflow_count;
  call.apparent_df = &fit.apparent_df;
  call.n_params = fit.n_params.data();
  call.G2 = &fit.G2;
  call.fit_extra = fit.fit_extra.data();
  call.cat_loglik = &fit.cat_loglik;
  call.cat_g2 = &fit.cat_g2;
  call.cat_df = &fit.cat_df;
  call.test_stat = data_or_null(fit.test_stat);
  call.test_p = data_or_null(fit.test_p);
  call.test_status = data_or_null(fit.test_status);
}

}  // namespace tolvenra::cli
