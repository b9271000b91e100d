#include "fit_record.hpp"

#include <cmath>

namespace tolvenra::cli {
namespace {

constexpr double least_runaway_part = 1e-6;

}  // namespace

bool engine_matches() {
  std::uint8_t mismatch = 0;
  checkversion(interface_version.data(), &mismatch);
  return mismatch == 0;
}

std::vector<std::int32_t> response_matrix(const case_data& data) {
  std::vector<std::int32_t> y;
  y.reserve(data.rows * data.items.size());
  for (const categories& item : data.items) y.insert(y.end(), item.code.begin(), item.code.end());
  return y;
}

std::vector<std::int32_t> category_counts(const case_data& data) {
  std::vector<std::int32_t> nrc;
  for (const categories& item : data.items)
    nrc.push_back(static_cast<std::int32_t>(item.labels.size()));
  return nrc;
}

void make_room(const case_data& data, std::size_t tests, fit_record& fit) {
  fit.test_stat.resize(tests);
  fit.test_p.resize(tests);
  fit.test_status.resize(tests);
  fit.response_patterns.resize(data.rows * (1 + data.items.size()));
  fit.pattern_counts.resize(data.rows * 2);
}

bool runs_away(const runaway_directions& directions, std::size_t at) {
  return runs_away(directions, at, at);
}

bool runs_away(const runaway_directions& directions, std::size_t at, std::size_t reference) {
  for (const std::vector<double>& part : directions) {
    const double other = reference == at ? 0.0 : part[reference];
    if (!(std::abs(part[at] - other) < least_runaway_part)) return true;
  }
  return false;
}

std::string trimmed(const std::vector<char>& message) {
  const std::string text(message.begin(), message.end());
  return text.substr(0, text.find_last_not_of(std::string(" \0\n\r", 4)) + 1);
}

}  // namespace tolvenra::cli
