/// \file analysis_options.hpp  What a user can ask of any analysis.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tolvenra::cli {

inline constexpr std::int32_t most_classes = 99;
inline constexpr std::int32_t most_starts = 1'000'000;
inline constexpr std::int32_t most_iterations = 1'000'000;
inline constexpr std::int32_t most_threads = 4096;
/// The largest value that both seeds of the generator accept.
inline constexpr std::int32_t largest_seed = 2'147'483'398;

/// A text of the user and the place where it stands, as in `m.toml, line 7: equal`.
struct located_text {
  std::string text, where;
};

/// A parameter, or several by wildcards, and the user's value for all of them, or one for each.
struct located_value {
  located_text name;
  std::vector<double> values;
};

/// Parameters that are to be equal, as the user wrote them.
using equal_set = std::vector<located_text>;

/// The categories of a column, or of a range of columns, in the user's order.
struct listed_categories {
  located_text columns;
  std::vector<std::string> labels;
};

struct analysis_options {
  std::string file;
  std::vector<std::string> items;
  std::string freq, weight, group;  ///< column names; empty when not given
  std::string reference, binary;    ///< classes, by number or name; empty when not given
  std::vector<listed_categories> categories;
  std::vector<equal_set> equal;
  std::vector<located_value> fix, start;
  std::int32_t starts = 20;
  std::int32_t seed = 1;
  double criterion = 1e-6;
  std::int32_t max_iter = 10000;
  std::int32_t threads = 0;  ///< 0: as many as there are
  std::vector<std::string> na;
  std::string json, posteriors, patterns;  ///< files to write; empty when not wanted
  std::string model;                       ///< the model file; empty without one
  bool print_model = false;

  /// Where the model file gives an option, by its key ("prior_rho").
  std::map<std::string, std::string, std::less<>> where;
  /// How messages call an option: `--prior-rho`, or its place in the model file.
  [[nodiscard]] std::string asked_by(std::string_view key) const;
  /// Throws input_error unless `there` holds where the option of this key is `wanted`.
  void needs(bool wanted, std::string_view key, bool there, std::string_view what) const;
};

}  // namespace tolvenra::cli
