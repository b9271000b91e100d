/// \file imputation.hpp  Multiple imputation: what is asked for, what comes back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lca_run.hpp"
#include "lta_run.hpp"

namespace tolvenra::cli {

struct imputation_options {
  std::int32_t imputations = 20, burn_in = 200, spacing = 50;
  std::string imputed;           ///< file for the imputed data; empty when not wanted
  bool logit_intervals = false;  ///< print intervals that were formed on the logit scale
};

/// Combined estimates of a parameter array on one scale, in the order of the engine's array. Fixed
/// values have an estimate alone, the rest is NaN.
struct combined_estimates {
  std::vector<double> estimate, std_err, df;
  std::vector<double> lower, upper;         ///< two-sided 90 % interval
  std::vector<double> missing_information;  ///< fraction
};

struct combined_parameter {
  combined_estimates probability, logit;
};

/// Subjects are the cases, a case of frequency f counting as f subjects.
struct imputation {
  bool completed = false;
  std::string message;                ///< the engine's report when it failed
  combined_parameter shares;          ///< gamma, or delta of the first time
  combined_parameter transitions;     ///< tau; empty for latent classes
  combined_parameter responses;       ///< rho or big_rho
  std::vector<std::int32_t> case_of;  ///< [subject], from 1
  std::vector<std::int32_t> latent;   ///< (subjects, times, imputations) class or status, from 1
  std::vector<std::int32_t> filled;   ///< (subjects, columns of responses, imputations) categories;
                                      ///< empty when none is missing
};

/// Impute from the estimates of a fit.
imputation impute(const lca_data& data, const lca_options& options,
                  const imputation_options& wanted, const lca_fit& fit,
                  tolvenra_progress* progress);
imputation impute(const lta_data& data, const lta_options& options,
                  const imputation_options& wanted, const lta_fit& fit,
                  tolvenra_progress* progress);

}  // namespace tolvenra::cli
