#include "patterns.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "input_error.hpp"
#include "posteriors.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::array<const char*, 3> added{"observed", "expected", "std_residual"};

void check_name(const std::string& name) {
  if (std::find(added.begin(), added.end(), name) != added.end())
    throw input_error::of(
        "--patterns: the analysis already has a column \"{}\", which would be added; rename it.",
        name);
}

}  // namespace

void check_pattern_names(const case_data& data) {
  for (const categories& item : data.items) check_name(item.name);
  if (data.group) check_name(data.group->name);
}

void write_patterns(const case_data& data, const fit_record& fit, std::FILE* file) {
  std::string line;
  if (data.group) line += csv_field(data.group->name) + ',';
  for (const categories& item : data.items) line += csv_field(item.name) + ',';
  fmt::print(file, "{}{},{},{}\n", line, added[0], added[1], added[2]);
  const auto npattern = static_cast<std::size_t>(fit.run_info[4]);
  for (std::size_t p = 0; p < npattern; ++p) {
    const auto code = [&](std::size_t column) {
      return static_cast<std::size_t>(fit.response_patterns[p + data.rows * column]);
    };
    line.clear();
    if (data.group) line += csv_field(data.group->labels[code(0) - 1]) + ',';
    for (std::size_t j = 0; j < data.items.size(); ++j) {
      const std::size_t response = code(j + 1);
      line += (response == 0 ? "NA" : csv_field(data.items[j].labels[response - 1])) + ',';
    }
    const double observed = fit.pattern_counts[p];
    const double expected = fit.pattern_counts[p + data.rows];
    fmt::print(file, "{}{},{},{}\n", line, observed, expected,
               (observed - expected) / std::sqrt(expected));
  }
}

}  // namespace tolvenra::cli
