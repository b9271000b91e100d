/// \file patterns.hpp  The response patterns with observed and expected counts.
#pragma once

#include <cstdio>

#include "lca_run.hpp"

namespace tolvenra::cli {

/// Throws input_error when an item or the group has a name that `write_patterns` adds.
void check_pattern_names(const lca_data& data);

/// CSV: the group where there are groups, the items, then observed, expected and std_residual,
/// (observed - expected) / sqrt(expected); one line for each distinct pattern. Labels as in the
/// data, NA where a response is missing; a pattern with missing responses is expected among the
/// cases that answered the same items.
void write_patterns(const lca_data& data, const lca_fit& fit, std::FILE* file);

}  // namespace tolvenra::cli
