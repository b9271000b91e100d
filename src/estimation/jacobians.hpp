/// \file jacobians.hpp  From the logits to probabilities and coefficients, module `estimation`.
///
/// A probability depends on the logits of its own row alone, so a Jacobian keeps, row by row, the
/// columns of that block only.
#pragma once

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/free_parameters.hpp"
#include "estimation/row_scores.hpp"

namespace tolvenra::estimation {

/// Class prevalences, averaged over the covariate patterns by weight, by the membership logits of
/// their stratum. \param[out] jacobian  (nc * nstr, membership), allocated
int32 run_compute_lca_beta_jacobian(const mlworkspace& work, const free_parameters& map,
                                    const scaled_design& design, array<double, 2>& jacobian,
                                    const routine& here, error_type& err);
/// The same for the binary form: its coefficients, then the logits of the other classes' shares.
int32 run_compute_lca_b_jacobian_binary(const mlworkspace& work, const free_parameters& map,
                                        const scaled_design& design, array<double, 2>& jacobian,
                                        const routine& here, error_type& err);
/// Response probabilities by the logits of their item. \param[out] jacobian  (nci * nc * nrcmax *
/// copies, nrcmax - 1), rows in the order of rho, allocated
int32 run_compute_lca_phi_jacobian(const mlworkspace& work, const free_parameters& map,
                                   array<double, 2>& jacobian, const routine& here,
                                   error_type& err);

/// Coefficients as reported by the membership logits of stratum g: those of the covariates as the
/// host gave them; without covariates log(gamma_c / gamma_1) for the classes behind the first.
/// \return (coefficients, membership) \throws std::bad_alloc
array<double, 2> coefficient_jacobian(const mlworkspace& work, const free_parameters& map,
                                      const scaled_design& design, int32 g);

/// Covariance of linear functions of two blocks of places.
/// \param a, b   (m, n), (k, l) coefficients of the places from `first_a`, `first_b` on
/// \return (m, k) \throws std::bad_alloc
array<double, 2> covariance_of(const free_parameters& map, const array<double, 2>& covariance,
                               const array<double, 2>& a, std::size_t first_a,
                               const array<double, 2>& b, std::size_t first_b);

/// Variance of row `row` (1-based) of a Jacobian over the `n` places from `first` on.
double variance_of(const free_parameters& map, const array<double, 2>& covariance,
                   const array<double, 2>& jacobian, int32 row, std::size_t first, int32 n);

}  // namespace tolvenra::estimation
