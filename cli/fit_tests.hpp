/// \file fit_tests.hpp  Tests of fit, and whether their tail probabilities can be believed.
#pragma once

#include <limits>
#include <optional>
#include <vector>

#include "fit_record.hpp"

namespace tolvenra::cli {

/// What stands in the way of a p-value; the first that applies.
enum class p_value_use {
  meaningful,
  no_statistic,  ///< the saturated model could not be had, or no response is missing
  no_freedom,    ///< no degrees of freedom
  covariates,    ///< no statistic: a conditional likelihood against an unconditional one
  restrictions,  ///< parameters that the restrictions determine count in the degrees of freedom
  weights,       ///< sampling weights: the statistic is no sum of independent contributions
  clusters,      ///< neither with cases that depend on each other
  sparse,        ///< expected counts too small for the chi-square approximation
  overflow       ///< more cells than can be numbered
};

struct fit_test {
  std::optional<double> statistic, df, p;
  p_value_use use = p_value_use::no_statistic;
};

/// Expected counts of one or several tables. Patterns that nobody shows share what the observed
/// ones leave of their table.
struct expected_cells {
  double cells = 0.0;
  double cases = 0.0;
  double below_5 = 0.0;         ///< cells that expect fewer than 5 cases
  double in_thin_tables = 0.0;  ///< cells of tables with fewer than 5 cases a cell
  double smallest = std::numeric_limits<double>::infinity();

  [[nodiscard]] double mean() const { return cells > 0.0 ? cases / cells : 0.0; }
};

/// Does chi-square describe a likelihood-ratio statistic on these cells? From 5 cases a cell on
/// the average (Koehler & Larntz 1980, JASA 75, 336-344); of several tables those below may hold a
/// fifth of the cells, the share that Cochran (1954, Biometrics 10, 417-451) allows below 5.
bool cells_suit_G2(const expected_cells& cells);

/// Does it describe Pearson's statistic? From 10 cases, 3 cells, cases^2 / cells >= 10 and expected
/// counts of 0.25 on (Koehler & Larntz 1980).
bool cells_suit_X2(const expected_cells& cells);

struct fit_tests {
  bool missing_responses = false;
  expected_cells complete;  ///< the tables of all items, one per group: what G2 rests on
  expected_cells shown;     ///< the tables of every missingness pattern that occurs, by group
  fit_test G2, X2;
  fit_test missing;                         ///< of responses missing completely at random
  double saturated_loglik = 0.0;            ///< has a meaning while G2 has a statistic
  std::int32_t passes = 0, unfinished = 0;  ///< of the saturated model; groups that ended early
  double bound = 0.0;  ///< how far the saturated log-likelihood may lie below its maximum
};

/// Counts the cells behind a completed fit, group by group and missingness pattern by missingness
/// pattern. \param complete_only  of the tables of all items alone, whether they have cases or not.
expected_cells count_cells(const case_data& data, const fit_record& fit, bool complete_only);

/// What the two calls of the engine keep in different elements of fit_extra, or leave to the host.
struct call_measures {
  double entropy = 0.0;  ///< relative, weighted by cases
  double X2_p = 0.0;     ///< upper tail of X2 on its degrees of freedom; NaN where there is none
  double bound = 0.0;    ///< how far cat_loglik may lie below its maximum
};

fit_tests make_fit_tests(const case_data& data, const fit_record& fit,
                         const call_measures& measures);

}  // namespace tolvenra::cli
