/// \file json_output.hpp  An analysis as JSON: keys that stay, numbers at full precision.
#pragma once

#include <string>

#include "lca_answer.hpp"

namespace tolvenra::cli {

/// Everything that is printed, the result of each start and every setting that decides the numbers,
/// indented by two blanks, with a line end behind it. What does not exist is null. Thread counts
/// and times are left out: the same data and settings give the same bytes.
std::string lca_json(const lca_data& data, const lca_options& options, const lca_answer& answer);

}  // namespace tolvenra::cli
