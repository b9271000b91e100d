/// \file fit_answer.hpp  What every fit tells the user, whatever the model: criteria on -2
/// log-likelihood, tests, the search for the best start.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fit_tests.hpp"
#include "plain_report.hpp"

namespace tolvenra::cli {

/// Figures of fit; what does not exist is empty.
struct fit_figures {
  double loglik = 0.0;
  std::int32_t n_params = 0;
  std::int32_t independent = 0;    ///< parameters less those that the restrictions determine
  std::optional<std::int32_t> df;  ///< empty above 32 bits, and, as the next ones, with covariates
  std::optional<double> G2, G2_p, X2;
  std::optional<double> penalised_loglik;  ///< with the log prior; empty without priors
  double aic = 0.0, bic = 0.0, caic = 0.0, abic = 0.0;
  double entropy = 0.0;  ///< relative entropy of the classification, weighted by cases
};

/// Likelihood-ratio test of one covariate.
struct covariate_test {
  std::string name;
  std::optional<double> statistic;  ///< empty when the fit without the covariate failed
  std::int32_t df = 0;
  std::optional<double> p;
  bool converged = false;  ///< the fit without the covariate
};

struct fit_answer {
  fit_figures figures;
  fit_tests of_fit;
  bool converged = false;
  std::int32_t iterations = 0, best_start_hits = 0;
  bool any_runaway = false;  ///< some coefficients have no finite estimate
  std::vector<covariate_test> tests;
  std::vector<start_record> starts;
  std::vector<std::string> warnings;
};

/// Fills all but the tests of covariates. \param fit  completed. \param has_prior  a prior has a
/// part in the estimates.
void set_fit(const case_data& data, const fit_record& fit, const call_measures& measures,
             bool has_prior, fit_answer& answer);

/// Adds the test of the k-th covariate, and a warning where it failed. \param corrected  the
/// statistic is corrected by standard errors, without which there is none
void add_test(const fit_record& fit, std::size_t k, const std::string& name, std::int32_t df,
              fit_answer& answer, bool corrected = false);

/// Warns of what the fit and the search left open. \param starts  that were made
void add_fit_warnings(const analysis_options& options, const fit_record& fit, std::int32_t starts,
                      const report_terms& terms, fit_answer& answer);

}  // namespace tolvenra::cli
