/// \file derivatives.hpp  First derivatives and observed information of a fitted latent class
/// model, module `estimation`.
///
/// One score routine and one information routine over distinct rows serve all forms of the model;
/// the named routines choose what is summed. All of it is on the logit scale (free_parameters.hpp)
/// with centred and scaled covariates.
///
/// With complete-data scores z_c, posterior p and score s = sum_c p_c z_c of a row, its negative
/// second derivatives are
///     E - sum_c p_c z_c z_c' + s s',
/// E the complete-data information expected under p. Priors add the curvature of their
/// pseudo-cases.
/// Sources: Louis (1982), JRSS B 44, 226-233 (information); Huber (1967), Proc. 5th Berkeley Symp.
/// 1, 221-233; White (1982), Econometrica 50, 1-25; Binder (1983), Int. Statist. Rev. 51, 279-292
/// (outer products of independent units, clusters).
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/free_parameters.hpp"
#include "estimation/mlworkspace.hpp"
#include "estimation/row_scores.hpp"

namespace tolvenra::estimation {

/// What the rows of a stratum add up to; weights are sums of frequency times sampling weight.
struct stratum_sums {
  std::size_t order = 0, class_order = 0;  ///< padded orders of the matrices
  std::vector<double> outer;               ///< s s' by weight, lower triangle
  std::vector<double> outer_squared;       ///< by frequency times squared weight; empty unweighted
  std::vector<double> within;       ///< by class: z_c z_c' by weight times p_c, lower triangles
  std::vector<double> first;        ///< s by weight
  std::vector<double> class_total;  ///< (nc) p_c by weight
  std::vector<double> answered;     ///< (nci, nc) p_c by weight over the rows that answered
};

struct derivatives {
  scaled_design design;
  std::vector<stratum_sums> sums;              ///< by stratum
  double sample_size = 0.0;                    ///< cases, or the sum of their weights
  array<double, 1> this_first;                 ///< by place: mean score
  array<double, 2> middle;                     ///< of the sandwich, free parameters: T' B T
  array<double, 2> middle_unclustered;         ///< the same as if cases came without clusters
  array<double, 2> neg_second_beta;            ///< membership by membership places
  array<double, 2> neg_second_phi;             ///< response by response places
  array<double, 2> neg_second_beta_phi_cross;  ///< membership by response places
};

/// Releases the record. \return 0
int32 nullify_derivatives(derivatives& derivs, error_type& err);

/// Fill `sums`, `this_first` and the middle matrices: the centred outer products of the scores of
/// the independent units (cases, counted by their frequencies; clusters) times units / (units - 1).
/// \param here  the driver, under which failures are reported
/// \return 0, or -1: fewer than two units, a score that is not finite, no memory
using derivative_routine = int32(const mlworkspace& work, const free_parameters& map,
                                 derivatives& derivs, const routine& here, error_type& err);
derivative_routine run_compute_first_for_lca;
derivative_routine run_compute_first_for_lca_binary;
derivative_routine run_compute_first_for_lca_meas_invar;
derivative_routine run_compute_first_for_lca_meas_invar_clustered;
derivative_routine run_compute_first_for_lca_meas_invar_binary;
derivative_routine run_compute_first_for_lca_meas_invar_clustered_binary;

/// Fill the blocks of negative second derivatives from the sums of a first routine, the curvature
/// of the priors in force added. The binary one checks its compared class first.
derivative_routine run_compute_neg_second_for_lca;
derivative_routine run_compute_neg_second_for_lca_binary;

/// Sum over clusters of the outer product of their scores, and of the scores, in the free
/// parameters. \throws std::bad_alloc
void sum_over_clusters(const mlworkspace& work, const free_parameters& map,
                       const scaled_design& design, array<double, 2>& outer, array<double, 1>& sum);

}  // namespace tolvenra::estimation
