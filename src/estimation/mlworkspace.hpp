/// \file mlworkspace.hpp  The working record of one maximum-likelihood run, module `estimation`.
///
/// Filled by `put_dataset`, `put_model` and `put_param`, in that order; then read and written by
/// the EM loop and the fit statistics. The records below nest what belongs together. Names that
/// differ from those of the formulas:
///
/// - new_gamma, old_gamma, gamma_numerator: `gamma.now`, `gamma.old`, `gamma.numerator`, and so for
///   the other families
/// - combined_weight, by case: `rows->weight`, by distinct row
/// - kase_by_str: `rows->stratum_start`
/// - indic_ci, ciy: `rows->response`, 0 where missing
/// - indic_si, siy: `rows->response`, behind the class items
/// - post_cls, by case: `post.cls`, by distinct row
/// - delta_by_kase, tau_by_kase: `statuses.delta`, `statuses.tau`
/// - post_cls_sta, post_cls_adj_sta, by case: `status_posteriors`, a row at a time
///
/// A case without any response needs no prior-only posteriors of its own: the recursion gives it
/// the prior probabilities.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "estimation/class_counts.hpp"
#include "estimation/distinct_rows.hpp"
#include "estimation/prob_block.hpp"
#include "estimation/regression.hpp"
#include "estimation/status_tables.hpp"
#include "model/dataset.hpp"
#include "model/model.hpp"
#include "model/param.hpp"

namespace tolvenra {

/// Sizes and options of the data.
struct case_data {
  int32 nkase = 0, nci = 0, ni = 0, nt = 1, nstr = 1;
  int32 nrcmax = 0, nrsmax = 0;
  int32 ncov = 0, ncov_delta = 0, ncov_tau = 0;
  array<int32, 1> nrc, nrs;
  bool aggregated = false, weighted = false, clustered = false, missing = false;
  array<int32, 1> nkase_by_str;  ///< (nstr) cases of each stratum
  double total_weight = 0.0;     ///< sum of frequency times weight, the number of cases without
};

/// A family of regressions in the workspace: coefficients in the parameter's shape, one record per
/// design matrix (beta and delta_beta: per stratum; tau_beta: per stratum and transition) and one
/// per fitted row of categories.
template <std::size_t R>
struct logit_block {
  bool active = false;        ///< the categories are regressed on covariates
  array<double, R> now, old;  ///< estimates (new_, old_)
  std::vector<estimation::regression> fits;
  std::vector<estimation::fitted_row> rows;  ///< what the fits leave behind
  bool use_prior = false;                    ///< a stabilising prior is in use
  int32 n_estimated = 0;
};

/// Latent dimensions and, while they are few, the status sequences one by one. Estimation never
/// walks through them; they are what the recursion is checked against.
struct latent_tables {
  bool loaded = false;
  int32 nc = 1, ns = 1;
  array<int32, 2> loc;           ///< (ns^nt, nt) status sequences, time 1 fastest
  array<int32, 3> patt_loc;      ///< (ns^(nt-1), ns, nt) sequences with status s at time t
  array<int32, 4> patt_adj_loc;  ///< (ns^(nt-2), ns, ns, nt-1) with s at t and s' at t + 1
};
/// The tables above are built up to this many sequences.
inline constexpr int64 most_sequences = 4096;

/// Posteriors over distinct rows, kept only when asked for (`keep`).
struct posteriors {
  bool keep = false;
  std::vector<double> cls;         ///< nrow x nc, row by row
  std::vector<double> likelihood;  ///< nrow
};

/// Chunks of one block of the parallel sums and the strata that they touch, 0-based.
struct row_block {
  int32 first_chunk = 0, end_chunk = 0, first_stratum = 0, end_stratum = 0;
  std::size_t counts = 0;  ///< offset of the block's slabs in the scratch
};

/// Scratch of the E-step.
struct estep_scratch {
  std::vector<row_block> blocks;
  std::vector<double> counts;     ///< slabs of all blocks
  std::vector<double> vectors;    ///< products and pending sums of the nodes, per worker
  std::vector<double> loglik;     ///< one per block
  std::vector<int32> failed_row;  ///< one per block, -1 for none
};

/// Chunks of one block of the parallel sums over status trees, 0-based.
struct status_block {
  int32 first_chunk = 0, end_chunk = 0;
  std::size_t counts = 0;  ///< offset of the block's counts in the scratch
};

/// Scratch of the E-step of statuses.
struct status_sums {
  std::vector<status_block> blocks;
  std::vector<double> counts;   ///< expected counts of all blocks
  std::vector<double> vectors;  ///< of the recursion, per worker
  std::vector<double> loglik;   ///< one per block
  std::vector<char> failed;     ///< one per block
};

/// State and settings of the iterations.
struct em_state {
  int32 max_iter = 10000, threads = 1, iter = 0;
  double criterion = 1e-6, loglik = 0.0;
  double max_abs_diff = 0.0, mean_abs_diff = 0.0;
  bool converged = false;
  std::vector<double> llvec, madvec;  ///< one element per iteration
};

/// The three containers that were loaded.
struct containers {
  dataset_type dataset;
  model_type model;
  param_type param;
};

struct mlworkspace {
  bool initialised = false;
  case_data data;
  std::shared_ptr<const distinct_rows> rows;
  latent_tables latent;
  prob_block<2> gamma;
  prob_block<4> rho;
  prob_block<3> delta;
  prob_block<5> tau;
  prob_block<6> big_rho;
  bool rho_equal_across_strata = false;
  pooled_rows big_rho_pool;  ///< of big_rho held equal across classes, times or strata
  logit_block<3> beta;
  logit_block<4> delta_beta;
  logit_block<6> tau_beta;
  class_counts classes;
  status_tables statuses;
  posteriors post;
  estep_scratch scratch;
  status_sums status_scratch;
  em_state em;
  containers given;
};

namespace estimation {

/// Releases everything, or everything but the three containers. \return 0 or -1
int32 nullify_mlworkspace(mlworkspace& work, error_type& err);
int32 nullify_mlworkspace_except_types(mlworkspace& work, error_type& err);

/// The distinct rows of a record that holds responses, collapsed at the first call and kept in the
/// record. Call it once before several threads load the same record. \throws std::bad_alloc
std::shared_ptr<const distinct_rows> rows_of(const dataset_type& dataset);

/// Loads the data: starts by nullifying; collapses the cases, or shares the rows that an earlier
/// load of the same data left in the record. \return 0 or -1
int32 put_dataset(const dataset_type& dataset, mlworkspace& work, error_type& err);
/// Loads the latent dimensions; requires loaded data.
int32 put_model(const model_type& model, mlworkspace& work, error_type& err);
/// Loads the parameter set after checking it against data and model; decodes its restrictions and
/// counts the parameters that EM estimates.
int32 put_param(const param_type& param, mlworkspace& work, error_type& err);

/// Copies parameters, restrictions and options from the loaded set into the workspace's blocks.
int32 load_mlworkspace_param(mlworkspace& work, error_type& err);

}  // namespace estimation
}  // namespace tolvenra
