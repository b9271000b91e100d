/// \file standard_error_json.hpp  Standard errors, intervals and clusters as JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "lca_answer.hpp"

namespace tolvenra::cli {

/// Null without clusters.
nlohmann::ordered_json clusters_json(const lca_answer& answer);

/// Null when not wanted; with `given` false and a reason when there are none. Each table has the
/// shape of its estimates; standard errors are 0 where nothing was estimated and null at the
/// boundary, intervals [low, high] or null.
nlohmann::ordered_json standard_errors_json(const lca_answer& answer);

}  // namespace tolvenra::cli
