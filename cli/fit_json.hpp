/// \file fit_json.hpp  Tests of fit and bivariate residuals as JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "fit_tests.hpp"
#include "residuals.hpp"

namespace tolvenra::cli {

/// Keys that stand among the figures of fit; what does not exist is null.
nlohmann::ordered_json fit_tests_json(const fit_tests& tests);

/// One object for each pair of items, in item order; tables as [category][category].
nlohmann::ordered_json residuals_json(const lca_data& data,
                                      const std::vector<pair_residual>& residuals);

}  // namespace tolvenra::cli
