/// \file status_estep.hpp  E-step of models with latent statuses, module `estimation`.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Sizes the tables, divides the trees into blocks and sizes their scratch; once per loaded
/// parameter set. \throws std::bad_alloc
void plan_status_estep(mlworkspace& work);

/// Copies big_rho and, where they are not regressed, delta and tau into the tables, and evaluates
/// every wave.
void fill_status_tables(mlworkspace& work);

/// Copies a matrix of transitions and its transpose behind it into the tables.
/// \param p  probability of destination s' given origin s at p[(s - 1) * row + (s' - 1) * column]
void put_transitions(status_tables& tables, int32 unit, int32 c, int32 k, const double* p,
                     int64 row, int64 column);

/// The status side of `estep`: a case of stratum g has, given class c, the likelihood
///     sum over status sequences s of delta(s_1) prod_t tau(s_t-1, s_t) prod_t b_t(s_t),
/// b_t(s) the product of big_rho over the items with a response at time t. Writes em.loglik, the
/// counts of `statuses` and, with class items, those of `classes`; with post.keep post.cls and
/// post.likelihood too.
int32 status_estep(mlworkspace& work, error_type& err);

}  // namespace tolvenra::estimation
