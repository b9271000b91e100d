/// \file augmentation_records.hpp  The summaries of data augmentation by name, and their storage,
/// module `estimation`.
#pragma once

#include <string_view>

#include "estimation/augmentation.hpp"

namespace tolvenra::estimation {

/// How the reports speak of one parameter: its two summaries.
struct da_wording {
  struct summary {
    std::string_view allocate, release, combine;
  };
  summary natural, logit;
  std::string_view form_logit;
};

inline constexpr da_wording da_gamma_words{
    {"Could not allocate daresult%gamma.", "Could not deallocate daresult%gamma.",
     "Error computing da results for gamma."},
    {"Could not allocate daresult%logit_gamma.", "Could not deallocate daresult%logit_gamma.",
     "Error computing da results for logit_gamma."},
    "Error computing daresult%logit_gamma."};
inline constexpr da_wording da_rho_words{
    {"Could not allocate daresult%rho.", "Could not deallocate daresult%rho.",
     "Error computing da results for rho."},
    {"Could not allocate daresult%logit_rho.", "Could not deallocate daresult%logit_rho.",
     "Error computing da results for logit_rho."},
    "Error computing daresult%logit_rho."};
inline constexpr da_wording da_delta_words{
    {"Could not allocate daresult%delta.", "Could not deallocate daresult%delta.",
     "Error computing da results for delta."},
    {"Could not allocate daresult%logit_delta.", "Could not deallocate daresult%logit_delta.",
     "Error computing da results for logit_delta."},
    "Error computing daresult%logit_delta."};
inline constexpr da_wording da_tau_words{
    {"Could not allocate daresult%tau.", "Could not deallocate daresult%tau.",
     "Error computing da results for tau."},
    {"Could not allocate daresult%logit_tau.", "Could not deallocate daresult%logit_tau.",
     "Error computing da results for logit_tau."},
    "Error computing daresult%logit_tau."};
inline constexpr da_wording da_big_rho_words{
    {"Could not allocate daresult%big_rho.", "Could not deallocate daresult%big_rho.",
     "Error computing da results for big_rho."},
    {"Could not allocate daresult%logit_big_rho.", "Could not deallocate daresult%logit_big_rho.",
     "Error computing da results for logit_big_rho."},
    "Error computing daresult%logit_big_rho."};

/// body(natural summary, logit summary, wording) for the five parameters, until one fails.
/// \return 0, or what the failing call returned
template <class Result, class Body>
int32 for_each_parameter(Result& result, Body&& body) {
  int32 status = body(result.gamma, result.logit_gamma, da_gamma_words);
  if (status == 0) status = body(result.rho, result.logit_rho, da_rho_words);
  if (status == 0) status = body(result.delta, result.logit_delta, da_delta_words);
  if (status == 0) status = body(result.tau, result.logit_tau, da_tau_words);
  if (status == 0) status = body(result.big_rho, result.logit_big_rho, da_big_rho_words);
  return status;
}

}  // namespace tolvenra::estimation
