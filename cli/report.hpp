/// \file report.hpp  What a latent class analysis prints.
#pragma once

#include <string>

#include "lca_answer.hpp"
#include "report_parts.hpp"

namespace tolvenra::cli {

/// The whole report, UTF-8, with a line end behind the last line.
std::string lca_report(const lca_data& data, const lca_options& options, const lca_answer& answer);

}  // namespace tolvenra::cli
