/// \file lta_problem.hpp  A latent transition analysis as a host poses it, and the naive oracle
/// that checks every fit from the raw data by full enumeration with no code of the engine.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "api/generated/call_records.hpp"

namespace tolvenra::test {

/// Inputs and results of one call; all arrays column-major, all indices of the accessors from 1.
struct lta_problem {
  int nkase = 0, ni = 0, nt = 1, ns = 1, nstr = 1;
  std::vector<std::int32_t> nrs, y, strata;
  std::vector<double> freq;
  int ncov_delta = 0, ncov_tau = 0;
  std::vector<double> cov;
  bool equal_strata = false, equal_time = false, random = true, want_post = true;
  bool want_tests = false;
  int baseline_delta = 1, binary_delta = 0;
  std::vector<std::int32_t> baseline_tau, binary_tau;
  std::vector<double> delta, tau, big_rho, delta_beta, tau_beta;  ///< in and out; empty: NULL in
  std::vector<std::int32_t> delta_restrictions, tau_restrictions, big_rho_restrictions;
  int nstarts = 1, seed = 1, max_iter = 10000, threads = 1, msg_len = 500;
  double criterion = 1e-6, prior_strength = 0.0;
  tolvenra_progress* progress = nullptr;

  std::vector<double> sta, adj, pattern_counts, llvec, madvec, start_loglik, test_stat, test_p;
  std::vector<std::int32_t> patterns, start_seeds, start_iter, start_status, test_status;
  std::vector<std::uint8_t> start_converged;
  std::array<std::int32_t, 24> run_info{};
  std::array<std::int32_t, 9> n_params{};
  std::array<double, 12> fit_extra{};
  std::uint8_t converged = 0;
  std::int32_t iterations = -1, overflow = 0, apparent_df = 0, cat_df = 0;
  double max_abs_diff = 0, mean_abs_diff = 0, loglik = 0, G2 = 0, aic = 0, bic = 0;
  double cat_loglik = 0, cat_g2 = 0;
  std::string message;
  std::int32_t status = 0;

  [[nodiscard]] int nrsmax() const;
  [[nodiscard]] int& response(int k, int i, int t) { return y[cell({k, i, t}, {nkase, ni, nt})]; }
  [[nodiscard]] int response(int k, int i, int t) const {
    return y[cell({k, i, t}, {nkase, ni, nt})];
  }
  [[nodiscard]] std::size_t delta_cell(int s, int g) const { return cell({s, g}, {ns, nstr}); }
  [[nodiscard]] std::size_t tau_cell(int s, int d, int k, int g) const {
    return cell({s, d, k, g}, {ns, ns, nt - 1, nstr});
  }
  [[nodiscard]] std::size_t rho_cell(int i, int s, int r, int t, int g) const {
    return cell({i, s, r, t, g}, {ni, ns, nrsmax(), nt, nstr});
  }
  [[nodiscard]] double posterior(int k, int t, int s) const {
    return sta[cell({k, t, s}, {nkase, nt, ns})];
  }
  [[nodiscard]] double move(int k, int s, int d, int t) const {
    return adj[cell({k, s, d, t}, {nkase, ns, ns, nt - 1})];
  }
  [[nodiscard]] int stratum(int k) const { return strata.empty() ? 1 : strata[at(k)]; }
  [[nodiscard]] double case_weight(int k) const { return freq.empty() ? 1.0 : freq[at(k)]; }

  /// Probabilities of a case at the current values: its stratum's, or those of its covariates.
  [[nodiscard]] double start_probability(int k, int s) const;
  [[nodiscard]] double move_probability(int k, int s, int d, int t) const;
  /// Probability of what a case answers at time t in status s, missing responses left out.
  [[nodiscard]] double wave_probability(int k, int t, int s) const;
  /// Calls body(sequence, joint probability) for every status sequence of a case.
  void for_each_sequence(int k,
                         const std::function<void(const std::vector<int>&, double)>& body) const;
  [[nodiscard]] double naive_likelihood(int k) const;
  [[nodiscard]] double naive_loglik() const;

  void set_uniform_start();  ///< delta and tau uniform, codes all free
  /// Sizes the result arrays and fills the call record, which points into this object.
  api::lta_call prepare();
  int run();  ///< prepares and calls the driver

  static std::size_t cell(const std::vector<int>& index, const std::vector<int>& extents);

 private:
  std::string text_;
  static std::size_t at(int k) { return static_cast<std::size_t>(k - 1); }
};

/// Recomputes what a fit claims: log-likelihood, posteriors of statuses and moves, sums, criteria,
/// the saturated model and X2 of complete data, the ascent, and for unrestricted parameters that
/// they equal their own update. Failures are reported to GoogleTest.
void verify_lta(const lta_problem& fit);

/// Parameters that a simulation draws from; flat in the shapes of lta_problem.
struct lta_truth {
  std::vector<double> delta, tau, big_rho;
};
/// Strong items and stayers: statuses that can be told apart.
lta_truth clear_truth(const lta_problem& shape, unsigned seed);

/// Cases drawn from the truth (or, with coefficients in `shape`, from the regressions).
/// \param missing_wave, missing  chance that a wave, or a response, is missing
void simulate_cases(lta_problem& shape, const lta_truth& truth, unsigned seed,
                    double missing_wave = 0.0, double missing = 0.0);

/// A problem of the given sizes, with cases from a clear truth.
lta_problem simulate_lta(int nkase, const std::vector<std::int32_t>& nrs, int nt, int ns,
                         unsigned seed, double missing_wave = 0.0, double missing = 0.0,
                         int nstr = 1);

}  // namespace tolvenra::test
