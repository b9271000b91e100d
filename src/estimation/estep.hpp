/// \file estep.hpp  E-step of the EM algorithm, module `estimation`.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// Divides the rows into blocks and sizes the scratch; once per loaded parameter set.
/// \throws std::bad_alloc
void plan_estep(mlworkspace& work);

/// Log-likelihood and expected complete-data counts at the current estimates.
///
/// A case of stratum g with responses y has the likelihood L = sum over classes c of
/// gamma(c, g) * product over the items j with a response of rho(j, c, y_j, g), and the posterior
/// class probabilities of Bayes' rule. The counts that the M-steps need are summed in the same
/// pass; with latent statuses see `status_estep`.
/// \param[in,out] work  loaded; reads gamma.now and rho.now, writes em.loglik [natural log,
///                      weighted] and classes.counts; with post.keep also post.cls and
///                      post.likelihood.
/// \param[in,out] err   "post_denom" when a case's likelihood is below 2.2250738585072014e-308.
/// \return 0, or -1 with the outputs unspecified. Parallel over rows; same bits at any thread
/// count. Source: Goodman (1974), Biometrika 61, 215-231; Dempster, Laird & Rubin (1977), JRSS B
/// 39, 1-38.
int32 estep(mlworkspace& work, error_type& err);

}  // namespace tolvenra::estimation
