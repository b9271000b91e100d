/// \file augmentation.hpp  Multiple imputation for the command.
///
/// No exported call starts data augmentation; the command `tolvenra impute` links the engine and
/// calls the routines below with the record of a run call and plain vectors.
#pragma once

#include <cstdint>
#include <vector>

#include "api/generated/call_records.hpp"

namespace tolvenra::api {

struct imputation_request {
  std::int32_t imputations = 20;  ///< at least 1
  std::int32_t burn_in = 200;     ///< cycles before the first imputation
  std::int32_t spacing = 50;      ///< cycles from one imputation to the next
  std::int32_t seed = 1;
};

/// Combined estimates of a parameter array on one scale, in the order of the call's array.
struct combined_estimates {
  std::vector<double> estimate, std_err, df;
  std::vector<double> lower, upper;         ///< two-sided 90 % interval
  std::vector<double> missing_information;  ///< fraction, 0 to 1
};

struct combined_parameter {
  combined_estimates probability, logit;
};

/// Subjects are the rows of the data, a row of frequency f counting as f subjects.
struct imputation_answer {
  combined_parameter gamma, rho;             ///< of latent classes
  combined_parameter delta, tau, big_rho;    ///< of latent statuses
  std::vector<std::int32_t> row_of_subject;  ///< from 1
  std::vector<std::int32_t> cls;             ///< (subjects, imputations)
  std::vector<std::int32_t> status;          ///< (subjects, times, imputations)
  std::vector<std::int32_t> responses;  ///< (subjects, columns of y, imputations), the missing ones
                                        ///< filled in; empty when none is missing
};

/// Impute from the parameters that the call holds (start_given is true, or random_starts false),
/// the estimates of a fit; its restrictions and priors are in force. Read no result address but the
/// message and run under the call's progress record. \return 0, or -1 with the report in the
/// message
std::int32_t impute_lca(const lca_call& call, const imputation_request& request,
                        imputation_answer& answer) noexcept;
std::int32_t impute_lta(const lta_call& call, const imputation_request& request,
                        imputation_answer& answer) noexcept;

}  // namespace tolvenra::api
