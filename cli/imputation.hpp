/// \file imputation.hpp  Multiple imputation: what is asked for, what comes back.
#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "lca_run.hpp"

namespace tolvenra::cli {

struct imputation_options {
  std::int32_t imputations = 20, burn_in = 200, spacing = 50;
  std::string imputed;           ///< file for the imputed data; empty when not wanted
  bool logit_intervals = false;  ///< print intervals that were formed on the logit scale
};

/// Combined estimates of a parameter array on one scale, in the order of the engine's array.
struct combined_estimates {
  std::vector<double> estimate, std_err, df;
  std::vector<double> lower, upper;         ///< two-sided 90 % interval
  std::vector<double> missing_information;  ///< fraction
};

struct combined_parameter {
  combined_estimates probability, logit;
};

/// Subjects are the rows of the data, a row of frequency f counting as f subjects.
struct imputation {
  bool completed = false;
  std::string message;  ///< the engine's report when it failed
  combined_parameter gamma, rho;
  std::vector<std::int32_t> row_of_subject;  ///< from 1
  std::vector<std::int32_t> cls;        ///< (subjects, imputations), as the engine numbers them
  std::vector<std::int32_t> responses;  ///< (subjects, items, imputations); empty when no
                                        ///< response is missing
};

/// Imputes from the estimates of a fit.
imputation impute(const lca_data& data, const lca_options& options,
                  const imputation_options& wanted, const lca_fit& fit,
                  tolvenra_progress* progress);

}  // namespace tolvenra::cli
