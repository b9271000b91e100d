/// \file lca_problem.hpp  A latent class analysis as a host poses it, and the naive oracle that
/// checks every fit from the raw data with no code of the engine.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "api/generated/call_records.hpp"

namespace tolvenra::test {

/// Inputs and results of one call; all arrays column-major. Fill the inputs, then call `run`.
struct lca_problem {
  int nkase = 0, nci = 0, nstr = 1, nc = 1;
  std::vector<std::int32_t> nrc;
  std::vector<std::int32_t> y, strata, clusters;
  std::vector<double> freq, weight;
  bool rho_equal_strata = false, start_given = false, want_post = true, want_draws = false;
  int nstarts = 1, seed = 1, seed2 = 1, max_iter = 10000, threads = 1, msg_len = 500;
  double criterion = 1e-6;
  double rho_prior = 0.0, gamma_prior = 0.0;
  int ncov = 0, se_option = 0;
  std::vector<double> cov, beta;
  int baseline = 1, binary = 0;  ///< reference class, or the class of a binary regression
  double beta_prior = 0.0;
  bool want_tests = false, host_tests = false;  ///< computed, or statistics supplied in test_stat
  std::vector<double> test_stat, test_p;
  std::vector<std::int32_t> test_status;
  std::vector<std::int32_t> gamma_restrictions, rho_restrictions;
  tolvenra_progress* progress = nullptr;

  std::vector<double> given_gamma, given_rho;  ///< what gamma and rho held before the call
  std::vector<double> gamma, rho, post_cls, pattern_counts, llvec, madvec;
  std::vector<std::int32_t> patterns, drawn, start_seeds, start_iter, start_status;
  std::vector<double> start_loglik;
  std::vector<double> std_gamma, std_gamma_model, std_rho, std_beta, cov_b;  ///< with se_option
  std::vector<std::uint8_t> start_converged;
  std::array<std::int32_t, 24> run_info{};
  std::array<std::int32_t, 9> n_params{};
  std::array<double, 12> fit_extra{};
  std::uint8_t converged = 0;
  std::int32_t iterations = -1, overflow = 0, apparent_df = 0, cat_df = 0, n_clusters = 0;
  double max_abs_diff = 0, mean_abs_diff = 0, loglik = 0, G2 = 0, aic = 0, bic = 0, caic = 0,
         abic = 0;
  double entropyraw = 0, entropy = 0, cat_loglik = 0, cat_g2 = 0, deff = 0;
  double cluster_min = 0, cluster_max = 0;
  std::string message;
  std::int32_t status = 0;

  [[nodiscard]] int nrcmax() const;
  /// Response of a case, class prevalence and item-response probability; all indices from 1.
  [[nodiscard]] int response(int k, int j) const { return y[at(k, j)]; }
  void set_response(int k, int j, int value) { y[at(k, j)] = value; }
  [[nodiscard]] double gamma_at(int c, int g) const;
  [[nodiscard]] double rho_at(int j, int c, int r, int g) const;
  [[nodiscard]] double& rho_ref(int j, int c, int r, int g);
  [[nodiscard]] int stratum(int k) const { return strata.empty() ? 1 : strata[index(k)]; }
  [[nodiscard]] double case_weight(int k) const {
    return (freq.empty() ? 1.0 : freq[index(k)]) * (weight.empty() ? 1.0 : weight[index(k)]);
  }
  /// Class probability of a case: its stratum's, or that of its covariates.
  [[nodiscard]] double class_probability(int k, int c) const;
  [[nodiscard]] double cov_at(int k, int j) const {
    return j == 0 ? 1.0 : cov[index(k) + index(j) * static_cast<std::size_t>(nkase)];
  }
  [[nodiscard]] double beta_at(int j, int c, int g) const {  // j = 0 is the intercept
    return beta[static_cast<std::size_t>(j) +
                static_cast<std::size_t>(ncov + 1) *
                    (index(c) + static_cast<std::size_t>(nc) * index(g))];
  }
  /// Log-likelihood of the current gamma and rho, by summing every case on its own.
  [[nodiscard]] double naive_loglik() const;

  /// Sizes the result arrays and fills the call record, which points into this object.
  api::lca_call prepare();
  /// Prepares and calls the driver. \return its status, also kept in `status`
  int run();

 private:
  std::string text_;
  static std::size_t index(int k) { return static_cast<std::size_t>(k - 1); }
  [[nodiscard]] std::size_t at(int k, int j) const {
    return index(k) + index(j) * static_cast<std::size_t>(nkase);
  }
};

/// Recomputes what a fit claims: log-likelihood, sums of probabilities, posteriors, information
/// criteria, G2 and X2 by brute force, the ascent of EM, and a score near zero at convergence.
/// Failures are reported to GoogleTest.
void verify_fit(const lca_problem& fit);

/// Data drawn from a latent class model with random parameters.
/// \param missing  chance that a response is missing (completely at random)
lca_problem simulate(int nkase, const std::vector<std::int32_t>& nrc, int nc, unsigned seed,
                     double missing = 0.0, int nstr = 1);

/// The frequency tables in examples/, by file name.
lca_problem example(const std::string& name, int nc);

}  // namespace tolvenra::test
