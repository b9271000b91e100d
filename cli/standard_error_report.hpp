/// \file standard_error_report.hpp  Standard errors and intervals as they are printed.
#pragma once

#include <string>

#include "lca_answer.hpp"
#include "report_parts.hpp"

namespace tolvenra::cli {

/// Columns of the widest cell, `0.7207 (0.0412)`.
inline constexpr std::size_t width_with_error = 15;

/// An estimate with its standard error in brackets, or `boundary` in the place of the error.
std::string with_error(double estimate, const uncertainty& known);

/// `0.6301, 0.7960`, or `at the boundary`, or `fixed`.
std::string interval_text(const uncertainty& known);

/// What the standard errors are and are not, or why there are none. Empty when the user wants none.
std::string standard_error_section(const lca_data& data, const lca_options& options,
                                   const lca_answer& answer);

/// The row of the sample section; empty without clusters.
table_rows cluster_rows(const lca_options& options, const lca_answer& answer);

}  // namespace tolvenra::cli
