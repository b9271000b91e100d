/// \file lta_report.hpp  What a latent transition analysis prints.
#pragma once

#include <string>

#include "lta_answer.hpp"

namespace tolvenra::cli {

/// The whole report, UTF-8, with a line end behind the last line. Tables that are the same at all
/// times, or in all groups, are printed once.
std::string lta_report(const lta_data& data, const lta_options& options, const lta_answer& answer);

}  // namespace tolvenra::cli
