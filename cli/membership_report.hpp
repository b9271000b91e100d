/// \file membership_report.hpp  How class membership depends on covariates, as it is printed.
#pragma once

#include <string>

#include "lca_answer.hpp"

namespace tolvenra::cli {

/// Tests of the covariates and a table of coefficients and odds ratios per group; empty without
/// covariates.
std::string membership_sections(const lca_data& data, const lca_options& options,
                                const lca_answer& answer);

}  // namespace tolvenra::cli
