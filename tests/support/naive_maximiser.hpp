/// \file naive_maximiser.hpp  Direct maximisation of the likelihood of latent class and transition
/// models with covariates, with no code of the engine: every status sequence of every case is
/// enumerated, all parameters are on logit scales, and BFGS climbs as far as double precision lets
/// it. Latent classes are statuses at a single time.
#pragma once

#include <vector>

#include "support/lca_problem.hpp"
#include "support/lta_problem.hpp"

namespace tolvenra::test {

/// One regression of initial statuses (time -1), or of the destinations from an origin.
struct naive_regression {
  int stratum = 0, time = -1, origin = 0;  ///< from 0
  int baseline = 0, binary = -1;           ///< category, from 0; -1: not the binary form
  std::vector<bool> absent;                ///< structural zeros
  std::vector<double> prior;               ///< probabilities of the pseudo-cases; empty: none
  std::size_t offset = 0;                  ///< of its parameters: coefficients, then share logits
};

/// Probabilities of a model without covariates.
struct naive_plain {
  std::vector<std::vector<double>> rows;  ///< of each regression's categories
  std::vector<double> rho;                ///< as naive_model::rho_at numbers them
};

struct naive_maximum {
  double loglik = 0.0, penalised = 0.0;
  std::vector<double> theta;
};

class naive_model {
 public:
  explicit naive_model(const lca_problem& problem);
  explicit naive_model(const lta_problem& problem);

  /// \param rho  response probabilities in the shape of the problem's; all else starts at zero
  [[nodiscard]] std::vector<double> start(const std::vector<double>& rho) const;
  /// Parameters of the estimates that a problem holds.
  [[nodiscard]] std::vector<double> estimates(const lca_problem& fit) const;
  [[nodiscard]] std::vector<double> estimates(const lta_problem& fit) const;

  /// Largest linear predictor of any case, against its reference.
  [[nodiscard]] double largest_predictor(const std::vector<double>& theta) const;
  /// Gives the problem these parameters as starting values; predictors above 650, which no start
  /// may have, take their whole regression down.
  void hand_over(const std::vector<double>& theta, lca_problem& problem) const;
  void hand_over(const std::vector<double>& theta, lta_problem& problem) const;

  [[nodiscard]] naive_maximum value(const std::vector<double>& theta) const;
  /// \param em_steps  generalised EM steps before BFGS takes over
  [[nodiscard]] naive_maximum climb(std::vector<double> theta, int em_steps) const;

  /// EM without covariates until no probability changes by more than 1e-6.
  [[nodiscard]] naive_plain fit_plain(const std::vector<double>& rho) const;
  /// Gives every regression the probabilities of `of` as prior. \param own  a fit whose labels the
  /// model has: those of `of` are permuted so that the responses are nearest; null: labels agree
  void set_prior(double cases, const naive_plain& of, const naive_plain* own);

 private:
  using table = std::vector<double>;
  struct expectation;  ///< of every case: statuses at each time and moves

  void lay_out();
  [[nodiscard]] const double* design(const naive_regression& fit, int k) const;
  [[nodiscard]] int columns(const naive_regression& fit) const;
  void log_probabilities(const naive_regression& fit, const double* x, const table& theta,
                         double* out) const;
  [[nodiscard]] table shares(const naive_regression& fit, const table& theta) const;
  [[nodiscard]] table log_rho(const table& theta) const;
  [[nodiscard]] double largest_predictor(const naive_regression& fit, const table& theta) const;
  void hand_over_rho(const table& theta, table& rho) const;
  double expect(const table& lrho, const std::vector<table>& rows, bool by_case,
                expectation& e) const;
  [[nodiscard]] std::vector<table> case_rows(const table& theta) const;
  double expected_loglik(const table& theta, const table& lrho, const std::vector<table>& rows,
                         const expectation& e, table* gradient, double& log_prior) const;
  [[nodiscard]] std::size_t rho_at(int i, int s, int r, int t, int g) const;
  [[nodiscard]] int answer(int k, int i, int t) const;
  [[nodiscard]] std::vector<int> nearest_labels(const naive_plain& of, const naive_plain& own,
                                                int t, int g) const;

  int cases_ = 0, items_ = 0, times_ = 1, statuses_ = 1, strata_ = 1, widest_ = 2;
  bool equal_strata_ = false, equal_time_ = false;
  std::vector<int> categories_, y_, stratum_;
  table weight_, stratum_weight_;
  std::vector<int> cells_;  ///< of each status sequence, by time: its place in a case's rows
  std::vector<table> x_;  ///< designs with intercept, row by row: initial, then of each transition
  std::vector<int> columns_;
  std::vector<naive_regression> fits_;  ///< by stratum: initial, then by transition and origin
  double prior_cases_ = 0.0;
  std::size_t rho_offset_ = 0, parameters_ = 0;
};

}  // namespace tolvenra::test
