#include "api/starts.hpp"

#include <algorithm>
#include <exception>
#include <string>

#include "api/fixed_values.hpp"
#include "api/status_stabilising.hpp"
#include "core/dynamic_allocation.hpp"
#include "core/parallel.hpp"
#include "numerics/random_generator.hpp"
#include "numerics/sort.hpp"

namespace tolvenra::api {
namespace {

/// Ties go to the lowest start number.
bool better(const start_outcome& a, int32 number_a, const start_outcome& b, int32 number_b) {
  return a.loglik > b.loglik || (a.loglik == b.loglik && number_a < number_b);
}

/// Small data leave a thread's caches room for a whole start.
bool side_by_side(const start_search& search, int32 starts) {
  const dataset_type& data = *search.dataset;
  const double rows = data.rows ? data.rows->nrow : data.nkase;
  const double bytes =
      8.0 * rows * (data.nci * search.model->nc + double{1} * data.ni * data.nt * search.model->ns);
  return starts > 1 && bytes < 4.0 * (1 << 20);
}

/// Gives the model without covariates the starting values of a start.
int32 put_start(const param_type& base, const param_type& start, param_type& own, error_type& err) {
  if (start.ni == 0)
    return param::put_rho(start.rho, own, err) == 0 ? param::put_gamma(base.gamma, own, err) : -1;
  if (param::put_big_rho(start.big_rho, own, err) != 0 ||
      param::put_delta(base.delta, own, err) != 0)
    return -1;
  return param::put_tau(base.tau, own, err);
}

/// Gives the start the priors of the stabilising run under its own labels: the classes of the model
/// without covariates, fitted from the start's values, are matched with that run's.
int32 relabel_priors(const start_search& search, start_outcome& outcome,
                     const estimation::em_controls& controls, param_type& param) {
  const stabilising_model& plain = *search.plain;
  param_type own = plain.param;
  mlresult_type result;
  mlworkspace work;
  if (put_start(*search.base, param, own, outcome.report) != 0) return -1;
  if (estimation::run_em_modelfit(plain.dataset, *search.model, own, result, work, outcome.report,
                                  controls) != 0) {
    // A class that dies out there need not do so with covariates: the start's own values tell the
    // labels.
    if (search.progress->cancelled()) return -1;
    err_reset(outcome.report);
  }
  if (param.ni > 0)
    return put_status_priors(plain.param, match_status_labels(own, plain.param),
                             search.strengths.status, param, outcome.report);
  return put_stabilising_priors(plain.param, match_labels(own, plain.param), search.strengths,
                                param, outcome.report);
}

int32 fit(const start_search& search, start_outcome& outcome,
          const estimation::em_controls& controls, fitted_start& start) {
  start.param = *search.base;
  if (search.random &&
      draw_measurement(outcome.seed, search.fixed, start.param, outcome.report) != 0)
    return -1;
  if (search.plain && relabel_priors(search, outcome, controls, start.param) != 0) return -1;
  return estimation::run_em_modelfit(*search.dataset, *search.model, start.param, start.result,
                                     start.work, outcome.report, controls);
}

void run_one(const start_search& search, int32 number, int32 threads, bool on_calling_thread,
             start_outcome& outcome, std::unique_ptr<fitted_start>& best,
             const std::vector<start_outcome>& outcomes) {
  if (search.progress->cancelled()) return;
  run_progress::fit_view view{search.progress, number, on_calling_thread};
  estimation::em_controls controls = search.controls;
  controls.max_threads = threads;
  controls.watch = view.watch();
  auto start = std::make_unique<fitted_start>();
  start->number = number;
  if (fit(search, outcome, controls, *start) != 0) {
    if (search.progress->cancelled()) return;
    outcome.status = regression_failed(outcome.report) ? -1 : 1;
  } else {
    outcome.status = 0;
    outcome.loglik = start->result.loglik;
    outcome.iterations = start->result.iter;
    outcome.converged = start->result.converged;
    if (!best ||
        better(outcome, number, outcomes[static_cast<std::size_t>(best->number - 1)], best->number))
      best = std::move(start);
  }
  outcome.finished = true;
  search.progress->finish_start(outcome.status == 0, outcome.loglik);
}

void note_lack_of_memory(start_outcome& outcome) noexcept {
  try {
    err_handle(outcome.report, error_code::allocation, {.msg = "start"});
  } catch (...) {  // not even room for the report
    outcome.report.occurred = true;
  }
  outcome.finished = true;
}

}  // namespace

int32 draw_measurement(int32 seed, const fixed_measurement& fixed, param_type& param,
                       error_type& err) {
  if (param.ni > 0) {
    if (param::run_random_big_rho_startvals(param, err, seed, seed) != 0) return -1;
    if (!fixed.big_rho) return 0;
    array<double, 6> big_rho = param.big_rho;
    keep_fixed_values(fixed.big_rho->flat, param.big_rho_restrictions.flat,
                      param::big_rho_rows(param), big_rho.flat);
    return param::put_big_rho(big_rho, param, err);
  }
  if (param::run_random_rho_startvals(param, err, seed, seed) != 0) return -1;
  if (!fixed.rho) return 0;
  array<double, 4> rho = param.rho;
  keep_fixed_values(fixed.rho->flat, param.rho_restrictions.flat, param::rho_rows(param), rho.flat);
  return param::put_rho(rho, param, err);
}

bool regression_failed(const error_type& err) {
  for (const std::string& line : lines_of(err))
    if (line.find("Could not fit logit model") != std::string::npos) return true;
  return false;
}

int32 choose_start(const std::vector<start_outcome>& outcomes, std::string_view driver,
                   int32& number, error_type& err) {
  const auto count = static_cast<int32>(outcomes.size());
  array<double, 1> keys;
  array<int32, 1> order;
  const std::string of_driver(driver);
  if (dynamic_allocation::dbl1_alloc(keys, count, err, {}, of_driver + ": keys_for_sorting") != 0 ||
      dynamic_allocation::int1_alloc(order, count, err, {}, of_driver + ": indices_for_sorting") !=
          0)
    return -1;
  for (int32 i = 1; i <= count; ++i)  // ascending keys: the highest log-likelihood comes first
    keys(i) = -outcomes[static_cast<std::size_t>(i - 1)].loglik;
  if (sort::indexx_dble(keys, order, err) != 0) return -1;
  number = order(1);
  for (int32 k = 2; k <= count && keys(order(k)) == keys(order(1)); ++k)
    number = std::min(number, order(k));
  return 0;
}

std::unique_ptr<fitted_start> run_starts(const start_search& search,
                                         std::vector<start_outcome>& outcomes, error_type& err) {
  const auto count = search.random ? static_cast<int32>(outcomes.size()) : 1;
  const int32 threads = parallel::thread_count(search.controls.max_threads.value_or(0));
  const bool apart = side_by_side(search, count);
  std::vector<std::unique_ptr<fitted_start>> best(static_cast<std::size_t>(apart ? threads : 1));
  search.progress->begin_stage(run_stage::starts, count);
  parallel::for_tasks(count, static_cast<int32>(best.size()), [&](int32 i, int32 worker) {
    start_outcome& outcome = outcomes[static_cast<std::size_t>(i)];
    try {
      run_one(search, i + 1, apart ? 1 : threads, worker == 0, outcome,
              best[static_cast<std::size_t>(worker)], outcomes);
    } catch (const std::exception&) {
      note_lack_of_memory(outcome);
    }
  });
  for (std::size_t i = 1; i < outcomes.size() && !search.random; ++i)
    outcomes[i].take_results(outcomes.front());
  if (search.progress->cancelled()) return nullptr;
  int32 number = 0;
  if (choose_start(outcomes, search.base->ni > 0 ? "runlta" : "runlca", number, err) != 0)
    return nullptr;
  for (auto& candidate : best)
    if (candidate && candidate->number == number) return std::move(candidate);
  return nullptr;
}

int32 draw_start_seeds(int32 seed, std::span<start_outcome> outcomes, error_type& err) {
  using namespace random_generator;
  constexpr int32 too_large = 2147483399;  // could not be given back as a second seed
  ran_state_type state;
  if ((seed >= 1 ? ran_setall(state, seed, seed, err) : ran_timeseed(state, err)) != 0) return -1;
  for (start_outcome& outcome : outcomes) {
    double discarded = 0.0;
    if (ran_genunf(state, 0.0, 1.0, discarded, err) != 0) return -1;
    do {
      if (ran_genint(state, outcome.seed, err) != 0) return -1;
    } while (outcome.seed >= too_large);
  }
  return 0;
}

}  // namespace tolvenra::api
