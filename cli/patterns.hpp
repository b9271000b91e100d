/// \file patterns.hpp  The response patterns with observed and expected counts.
#pragma once

#include <cstdio>

#include "fit_record.hpp"

namespace tolvenra::cli {

/// Throws input_error when an item or the group has a name that `write_patterns` adds.
void check_pattern_names(const case_data& data);

/// CSV: the group where there are groups, the items, then observed, expected and std_residual,
/// (observed - expected) / sqrt(expected); one line for each distinct pattern. Labels as in the
/// data, NA where a response is missing; a pattern with missing responses is expected among the
/// cases that answered the same items.
void write_patterns(const case_data& data, const fit_record& fit, std::FILE* file);

}  // namespace tolvenra::cli
