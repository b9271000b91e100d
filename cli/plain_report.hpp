/// \file plain_report.hpp  The engine's reports on regressions in the words of the command.
#pragma once

#include <string>
#include <vector>

namespace tolvenra::cli {

/// What a report speaks of, as the user named it.
struct report_terms {
  std::string prior_option;         ///< that makes coefficients finite: "--prior-beta"
  bool prior_given = false;         ///< it was, with a strength above 0
  std::string covariates;           ///< of class membership, or of the start
  std::string moving;               ///< of the transitions
  std::vector<std::string> groups;  ///< empty for one
  std::vector<std::string> times;   ///< empty for latent classes
};

/// Sentences on what failed, where, and what helps that has not been tried; a report about
/// something else as it is.
std::string plain_report(const std::string& message, const report_terms& terms);

}  // namespace tolvenra::cli
