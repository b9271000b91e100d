/// \file report.hpp  What an analysis prints.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lca_answer.hpp"

namespace tolvenra::cli {

/// Rows of cells in aligned columns: the first `left` columns flush left, the others flush right,
/// two blanks between them. Widths count characters, not bytes.
std::string aligned(const std::vector<std::vector<std::string>>& rows, std::size_t left,
                    std::string_view indent = "  ");

/// Four decimals, never "-0.0000".
std::string fixed(double value);

/// "p < 0.0001" or "p = 0.0123".
std::string p_text(double p);

/// The whole report, UTF-8, with a line end behind the last line.
std::string lca_report(const lca_data& data, const lca_options& options, const lca_answer& answer);

}  // namespace tolvenra::cli
