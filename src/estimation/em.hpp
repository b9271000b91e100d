/// \file em.hpp  The EM driver, module `estimation`.
#pragma once

#include <optional>

#include "core/error_handler.hpp"
#include "estimation/mlresult.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Called once per iteration; a true answer ends the run.
struct em_watch {
  void* context = nullptr;
  bool (*cancelled)(void* context, const em_state& state) = nullptr;
};

struct em_controls {
  std::optional<double> criterion;   ///< largest absolute change at convergence, > 0; 1e-6
  std::optional<int32> max_iter;     ///< at least 1; 10000
  std::optional<int32> max_threads;  ///< below 1: the runtime's maximum
  em_watch watch;
  bool status_posteriors = false;  ///< hand back post_cls_sta and post_cls_adj_sta too
};

/// Fits one model from one set of starting values.
///
/// Iterates E-step and M-steps until the largest absolute change of a parameter is at most the
/// criterion or the iteration limit is reached; one more E-step gives log-likelihood and posteriors
/// at the final estimates.
/// \param[in,out] param   starting values and restrictions in, estimates out.
/// \param[out]    result  iterations, histories, log-likelihood, posteriors.
/// \param[out]    work    the workspace of the run, for the fit statistics.
/// \return 0, or -1 with a report that names step and iteration; `param` then is as it was.
/// Source: Dempster, Laird & Rubin (1977), JRSS B 39, 1-38.
int32 run_em_modelfit(const dataset_type& dataset, const model_type& model, param_type& param,
                      mlresult_type& result, mlworkspace& work, error_type& err,
                      const em_controls& controls = {});

/// Loads data, model and parameters; failures are reported in the name of the calling routine.
int32 load_workspace(const dataset_type& dataset, const model_type& model, const param_type& param,
                     mlworkspace& work, const routine& caller, error_type& err);

/// Logarithm of the priors in force at the estimates, up to a constant; with the log-likelihood it
/// is what the iterations raise.
double log_prior(const mlworkspace& work);

/// Copies the estimates into the parameter set.
int32 retrieve_parameters_from_workspace(param_type& param, const mlworkspace& work,
                                         error_type& err);

}  // namespace tolvenra::estimation
