/// \file lta_paths.hpp  The chain of statuses of every person: its probabilities and the most
/// likely sequence.
#pragma once

#include <vector>

#include "lta_run.hpp"

namespace tolvenra::cli {

/// Start and transition probabilities by person, from the estimates. Without covariates they are
/// those of the person's group. With them, log-odds against the reference; in the binary form the
/// statuses that are not compared share what is left in the proportions of their averages.
class status_chains {
 public:
  /// Both arguments outlive the object.
  status_chains(const lta_data& data, const lta_fit& fit);

  /// Probability of each status at the first time.
  [[nodiscard]] std::vector<double> start(std::size_t person) const;
  /// (from, to) from one time to the next. \param move  transition, from 0
  [[nodiscard]] std::vector<double> moves(std::size_t person, std::size_t move) const;
  /// Probability of each status at each time, [time][status], before any response is known.
  [[nodiscard]] std::vector<std::vector<double>> shares(std::size_t person) const;
  /// The most likely sequence of statuses (from 0) given the responses; of equally likely ones
  /// that with the smaller number at the last time where they differ. Viterbi (1967), IEEE
  /// Transactions on Information Theory 13, 260-269.
  [[nodiscard]] std::vector<std::size_t> sequence(std::size_t person) const;

 private:
  void regress(const double* average, const double* beta, std::size_t coefficients,
               std::size_t stride, std::size_t first_covariate, std::size_t reference,
               std::size_t step, std::size_t person, double* result) const;
  /// Log-probability of what a person answered at one time, given each status.
  [[nodiscard]] std::vector<double> log_responses(std::size_t person, std::size_t time) const;

  const lta_data& data_;
  const lta_fit& fit_;
  std::size_t ns_, ntime_, most_;
};

}  // namespace tolvenra::cli
