/// \file starts.hpp  The search over starting values.
///
/// EM climbs to a local maximum, so a model is fitted from many starting values and the best fit is
/// kept. Starts are independent: with small data they run side by side, each on one thread, else
/// one after the other with the rows divided among the threads. Either way every start gives the
/// same bits, the best one is the first of the highest log-likelihood, and a start that fails is
/// marked and skipped.
#pragma once

#include <limits>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "api/progress.hpp"
#include "api/stabilising.hpp"
#include "core/error_handler.hpp"
#include "estimation/em.hpp"

namespace tolvenra::api {

/// What a failed start shows for its log-likelihood and iterations.
inline constexpr double failed_loglik = -std::numeric_limits<double>::max();
inline constexpr int32 failed_iterations = -1;

struct start_outcome {
  int32 seed = 0;
  bool finished = false;  ///< fitted or failed, not cut short by the host
  int32 status = 1;       ///< 0 fitted, -1 regression could not be fitted, 1 other failure
  double loglik = failed_loglik;
  int32 iterations = failed_iterations;
  bool converged = false;
  bool copied = false;  ///< of another start with the same starting values
  error_type report;    ///< lines of a failed start

  void take_results(const start_outcome& from) {
    finished = from.finished;
    status = from.status;
    loglik = from.loglik;
    iterations = from.iterations;
    converged = from.converged;
    copied = true;
  }
};

/// A fitted start with all it leaves behind.
struct fitted_start {
  int32 number = 0;  ///< 1-based
  param_type param;
  mlresult_type result;
  mlworkspace work;
};

/// The host's values of fixed cells of what is drawn at random, or null.
struct fixed_measurement {
  const array<double, 4>* rho = nullptr;
  const array<double, 6>* big_rho = nullptr;
};

struct start_search {
  const dataset_type* dataset = nullptr;
  const model_type* model = nullptr;
  const param_type* base = nullptr;  ///< dimensions, options and what the starts share
  bool random = true;                ///< each start draws its own rho or big_rho; otherwise all
                                     ///< starts are one, fitted once
  fixed_measurement fixed;
  const stabilising_model* plain = nullptr;  ///< relabel its priors for every start, or null
  prior_strengths strengths;
  estimation::em_controls controls;
  run_progress* progress = nullptr;
};

/// Fits all starts. \return the best fitted start, null when none could be fitted or the host
/// cancelled the run (`progress->cancelled()`); the outcomes are complete either way.
std::unique_ptr<fitted_start> run_starts(const start_search& search,
                                         std::vector<start_outcome>& outcomes, error_type& err);

/// The start with the highest log-likelihood, the first of them; failed ones come last.
/// \param driver  names the work arrays in reports: "runlca"
/// \return 0 with its 1-based number, or -1
int32 choose_start(const std::vector<start_outcome>& outcomes, std::string_view driver,
                   int32& number, error_type& err);

/// Random response probabilities by a seed: rho, or big_rho of a model with status items.
int32 draw_measurement(int32 seed, const fixed_measurement& fixed, param_type& param,
                       error_type& err);

/// One seed per start, drawn from a generator seeded with `seed` (below 1: by the clock). The first
/// uniform after a small seed is close to 1, so one is drawn and discarded before each seed.
int32 draw_start_seeds(int32 seed, std::span<start_outcome> outcomes, error_type& err);

/// Whether the report says that a regression could not be fitted.
bool regression_failed(const error_type& err);

}  // namespace tolvenra::api
