/// \file lta_json.hpp  A transition analysis as JSON: keys that stay, numbers at full precision.
#pragma once

#include <string>

#include "lta_answer.hpp"

namespace tolvenra::cli {

/// Everything that is printed, the result of each start and every setting that decides the numbers,
/// indented by two blanks, with a line end behind it. What does not exist is null.
std::string lta_json(const lta_data& data, const lta_options& options, const lta_answer& answer);

}  // namespace tolvenra::cli
