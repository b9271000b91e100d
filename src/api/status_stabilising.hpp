/// \file status_stabilising.hpp  The run without covariates of a transition model; see stabilising.
#pragma once

#include "api/stabilising.hpp"

namespace tolvenra::api {

/// The data and the parameter set without the covariates of initial statuses and transitions.
int32 drop_status_covariates(const dataset_type& dataset, const param_type& param,
                             stabilising_model& plain, error_type& err);

/// Puts the estimates of delta and tau in `plain` as priors of the regressions into `param`; status
/// s of `param` at time t takes the values of status status_of(s, t, stratum) of `plain`.
/// \param strength  in pseudo-cases per fitted regression; not above 0 (or NaN): no prior
int32 put_status_priors(const param_type& plain, const array<int32, 3>& status_of, double strength,
                        param_type& param, error_type& err);

/// Labels under which the estimates of `start` resemble those of `plain`: (ns, nt, nstr), the same
/// at all times, or in all strata, where big_rho is equal across them.
array<int32, 3> match_status_labels(const param_type& start, const param_type& plain);

/// Every status keeps its label.
array<int32, 3> own_status_labels(const param_type& param);

/// Whether restrictions tell the statuses apart, so that labels mean the same in every start.
/// \param fixed_big_rho  the host's values of fixed cells of random big_rho, or null
bool statuses_are_labelled(const param_type& param, const array<double, 6>* fixed_big_rho);

}  // namespace tolvenra::api
