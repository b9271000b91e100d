/// \file stabilising.hpp  The run without covariates that feeds the priors of a covariate model.
///
/// With strong covariate effects or small classes a logit may have no finite maximum. The class
/// shares of the same model without covariates, worth a few pseudo-cases, keep it finite. Random
/// starts arrive at other class labels than that run did, so the priors are relabelled for each
/// start: equal maxima then have equal penalised likelihoods.
/// Source: Clogg et al. (1991), JASA 86, 68-78.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/em.hpp"
#include "model/dataset.hpp"
#include "model/model.hpp"
#include "model/param.hpp"

namespace tolvenra::api {

/// Strengths of the priors in pseudo-cases; not above 0 (or NaN): off.
struct prior_strengths {
  double beta = 0.0, rho = 0.0, gamma = 0.0;
  double status = 0.0;  ///< of the regressions of initial statuses and transitions

  [[nodiscard]] bool any() const { return beta > 0.0 || rho > 0.0 || gamma > 0.0 || status > 0.0; }
};

/// The model without covariates: its data, its dimensions with everything else of the run, and
/// after the fit its estimates.
struct stabilising_model {
  dataset_type dataset;
  param_type param;
  int32 iterations = 0;
};

/// The data and the parameter set without the class covariates.
int32 drop_covariates(const dataset_type& dataset, const param_type& param,
                      stabilising_model& plain, error_type& err);

/// Puts the priors that the estimates of `plain` give into `param`; class c of `param` takes the
/// values of class class_of(c, stratum), both 1-based, of `plain`.
int32 put_stabilising_priors(const param_type& plain, const array<int32, 2>& class_of,
                             const prior_strengths& strengths, param_type& param, error_type& err);

/// Rows of a stabilising prior as the regressions of the full model have them, for the
/// probabilities that take their place when a test leaves no covariate.
void raise_rows(const row_layout& rows, const std::vector<int32>& codes,
                std::vector<double>& prior);

/// Labels under which the estimates of `start` resemble those of `plain`, per stratum (one for all
/// strata where rho is equal across them). \return (nc, nstr) class of `plain` for every class
array<int32, 2> match_labels(const param_type& start, const param_type& plain);

/// Every class keeps its label.
array<int32, 2> own_labels(const param_type& param);

/// Whether restrictions tell the classes apart, so that labels mean the same in every start.
/// \param fixed_rho  the host's values of fixed cells of random rho, or null: those of `param`
bool classes_are_labelled(const param_type& param, const array<double, 4>* fixed_rho);

}  // namespace tolvenra::api
