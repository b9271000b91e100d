/// \file fit_sentences.hpp  The tests of fit in plain words.
#pragma once

#include <string>
#include <string_view>

#include "fit_tests.hpp"

namespace tolvenra::cli {

/// What stands beside the statistic: its p-value, or in brackets why there is none.
std::string p_remark(const fit_test& test);

/// The reason that keeps a p-value from being meaningful, empty when it is meaningful.
std::string p_reason(p_value_use use);

/// A section of the report: what each test compares and what it says at the 5 % level.
/// \param latents  what explains the responses, "classes" or "statuses"
/// \param residuals  the analysis offers bivariate residuals
std::string fit_test_section(const fit_tests& tests, std::string_view latents, bool residuals);

}  // namespace tolvenra::cli
