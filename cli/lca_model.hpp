/// \file lca_model.hpp  What an analysis says about its parameters: classes, restrictions, starting
/// values.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "lca_options.hpp"

namespace tolvenra::cli {

struct lca_data;

/// The arrays are the engine's: rho(item, class, category, group), gamma(class, group) and
/// beta(coefficient, class, group), column-major. Codes: 0 fixed, 1 free, k >= 2 member of set k.
struct lca_model {
  std::vector<std::string> class_names;  ///< as the user gave them; empty for numbers
  std::size_t reference = 0;             ///< class (from 0) that the others are compared with
  bool binary = false;                   ///< `compared` against all others together
  std::size_t compared = 0;              ///< class (from 0) of a binary regression
  std::vector<std::int32_t> rho_code, gamma_code;  ///< empty: all free
  std::vector<double> rho, gamma, beta;            ///< fixed and starting values, else 0
  bool start_given = false;

  /// The restrictions and starting values by name, written out, in the order of the arrays: what
  /// was said, whatever wildcards said it.
  std::vector<std::vector<std::string>> equal;
  std::vector<std::pair<std::string, double>> fix, start;

  /// Does anything name a class by its number? Otherwise classes may be listed by size.
  [[nodiscard]] bool tells_classes_apart() const {
    return binary || start_given || !rho_code.empty() || !gamma_code.empty();
  }
};

/// Throws input_error, which names the place, for what the data do not have and for restrictions
/// and starting values that contradict each other.
lca_model make_lca_model(const lca_data& data, const lca_options& options);

}  // namespace tolvenra::cli
