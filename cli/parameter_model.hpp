/// \file parameter_model.hpp  Restrictions and starting values of named parameters.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "parameter_names.hpp"

namespace tolvenra::cli {

/// What may be said of a family. Reasons are empty where it may.
struct family_rules {
  std::string no_restriction;  ///< why nothing can be fixed or equal
  std::string only_zeros;      ///< why nothing can be equal or fixed at another value than 0
  std::string no_start;        ///< why there are no starting values
  std::string start_required;  ///< what a start needs when it says nothing of some row
  bool always_filled = false;  ///< rows hold probabilities also without starting values
  /// Why the element at this offset cannot start from a value; empty when it can.
  std::function<std::string(std::size_t)> no_start_at;
};

/// Restrictions and starting values by name, written out, in the order of the arrays: what was
/// said, whatever wildcards said it.
struct stated_parameters {
  bool start_given = false;
  std::vector<std::vector<std::string>> equal;
  std::vector<std::pair<std::string, double>> fix, start;
};

/// Starts that are made: one when the model says where to start.
inline std::int32_t starts_of(const stated_parameters& stated, const analysis_options& options) {
  return stated.start_given ? 1 : options.starts;
}

/// One array of the engine. Codes: 0 fixed, 1 free, k >= 2 member of set k.
struct family_values {
  std::vector<std::int32_t> code;  ///< empty: all free
  std::vector<double> value;       ///< fixed and starting values, else 0
};

struct parameter_model {
  stated_parameters stated;
  std::vector<family_values> families;  ///< as in the space
};

/// Throws input_error, which names the place, for what the analysis does not have and for
/// restrictions and starting values that contradict each other. \param rules  one per family
parameter_model make_parameter_model(const parameter_space& space,
                                     const std::vector<family_rules>& rules,
                                     const analysis_options& options);

/// Classes that start alike stay alike: EM cannot tell them apart.
/// \param rho  starting values (item, class, ...) \param latents  "Classes" or "Statuses"
void warn_of_equal_starts(std::size_t items, std::size_t classes, const std::vector<double>& rho,
                          const char* latents, std::vector<std::string>& warnings);

}  // namespace tolvenra::cli
