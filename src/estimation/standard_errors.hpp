/// \file standard_errors.hpp  Standard errors of a fitted latent class model, module `estimation`.
///
/// With information A = T' H T and the centred outer products B of the scores of independent units
/// (cases, or clusters of cases) the covariance of the free parameters is the sandwich
///     V = A^-1 B A^-1,
/// valid also when the model does not hold exactly, under sampling weights (a common factor of
/// which changes nothing) and, with clusters, when cases of a cluster depend on each other. The
/// delta method carries it to probabilities and coefficients.
/// Sources: Huber (1967), Proc. 5th Berkeley Symp. 1, 221-233; White (1982), Econometrica 50, 1-25;
/// Binder (1983), Int. Statist. Rev. 51, 279-292; Louis (1982), JRSS B 44, 226-233.
#pragma once

#include "core/error_handler.hpp"
#include "estimation/mlresult.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// The drivers. Each checks that the run is one of its kind, and on success fills std_gamma,
/// std_gamma_model (from A^-1 alone), std_rho, std_beta with covariates, cov_b, cov_b_model,
/// n_boundary and, with clusters, deff = tr(A^-1 B) / tr(A^-1 B of unclustered cases).
///  - Probabilities at the boundary have standard error 0.
///  - cov_b: stratum slowest, then class without the reference, then covariate; without covariates
///    of log(gamma_c / gamma_1); binary form: coefficients of the compared class only.
/// \return 0, or -1 with a report under the driver's name and `result` as it was.
using standard_error_driver = int32(const mlworkspace& work, mlresult_type& result,
                                    error_type& err);
/// Membership without covariates or against a baseline; groups with responses of their own,
/// restrictions. Cases without clusters.
standard_error_driver run_compute_standard_errors_lca;
/// Responses equal in all groups, by the option or by equality groups; also clusters.
standard_error_driver run_compute_standard_errors_lca_meas_invar;
/// The same two for the binary form of the regression.
standard_error_driver run_compute_standard_errors_lca_binary;
standard_error_driver run_compute_standard_errors_lca_binary_meas_invar;

/// The driver of a run's kind: clusters are the business of the measurement-invariant ones.
standard_error_driver* driver_of(const mlworkspace& work);
/// The same where the covariance of the coefficients is wanted alone: two classes in the binary
/// form, which has a driver only for more, are the multinomial model with the other class as
/// reference.
standard_error_driver* driver_for_tests(const mlworkspace& work);

// The results, allocated for the caller; the covariance of the coefficients is `get_cov_b`.
int32 get_std_errs_for_gamma(const mlresult_type& result, array<double, 2>& values,
                             error_type& err);
int32 get_std_errs_for_rho(const mlresult_type& result, array<double, 4>& values, error_type& err);
int32 get_std_errs_for_beta(const mlresult_type& result, array<double, 3>& values, error_type& err);

/// First-order factor of Rao and Scott for the likelihood-ratio test of covariate `covariate`
/// (1-based): the mean eigenvalue of V_m^-1 V over its coefficients, V_m the model-based
/// covariance. A statistic divided by it has the mean of its chi-square distribution under weights
/// and clusters.
/// \param result  with cov_b and cov_b_model \return the factor, NaN when it does not exist
/// Source: Rao & Scott (1984), Ann. Statist. 12, 46-60.
double rao_scott_factor(const mlworkspace& work, const mlresult_type& result, int32 covariate);

}  // namespace tolvenra::estimation
