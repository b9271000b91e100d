/// \file lta_answer.hpp  A transition fit as the user sees it.
#pragma once

#include <string>
#include <vector>

#include "fit_answer.hpp"
#include "lta_run.hpp"

namespace tolvenra::cli {

struct lta_answer : fit_answer {
  using table = std::vector<std::vector<double>>;
  std::vector<std::string> status_labels;            ///< "1", "2", ... or the user's names
  std::vector<std::vector<double>> delta;            ///< [group][status]
  std::vector<std::vector<table>> tau;               ///< [group][transition][from][to]
  std::vector<std::vector<std::vector<table>>> rho;  ///< [group][time][item][status][category]
  table shares;                     ///< [time][status], over the groups by their size
  std::vector<table> group_shares;  ///< [group][time][status]
  table modal_cases;                ///< [time][status]: weighted cases by most likely status
  std::vector<std::vector<std::size_t>> sequences;  ///< [person][time], statuses from 0
  /// [group][status][coefficient]: empty where a status has none, as the reference. Empty without
  /// covariates.
  std::vector<table> delta_beta;
  std::vector<std::vector<std::vector<table>>> tau_beta;  ///< [group][transition][from][to]
  /// Whether a coefficient has no finite estimate, in the shapes of delta_beta and tau_beta.
  using marks = std::vector<std::vector<bool>>;
  std::vector<marks> delta_runaway;
  std::vector<std::vector<std::vector<marks>>> tau_runaway;
};

/// Upper tail of the chi-square distribution; NaN without degrees of freedom. By its finite sums:
/// Abramowitz & Stegun (1964), 26.4.4 and 26.4.5.
double chi_square_tail(double statistic, std::int64_t df);

/// \param fit  completed.
lta_answer make_lta_answer(const lta_data& data, const lta_options& options, const lta_fit& fit);

}  // namespace tolvenra::cli
