#include "near_names.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace tolvenra::cli {
namespace {

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return result;
}

/// Insertions, deletions and replacements that turn one text into the other (Levenshtein).
std::size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string suggestion(std::string_view wanted, const std::vector<std::string>& known,
                       std::string_view they) {
  std::vector<std::pair<std::size_t, std::string>> near;
  const std::string folded = lower(wanted);
  const std::size_t most = std::min<std::size_t>(folded.size() / 2, 2);
  for (const std::string& name : known) {
    const std::size_t distance = edit_distance(folded, lower(name));
    if (!name.empty() && distance <= most) near.emplace_back(distance, '"' + name + '"');
  }
  std::stable_sort(near.begin(), near.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  if (near.size() > 3) near.resize(3);
  std::vector<std::string> names;
  names.reserve(near.size());
  for (auto& [distance, name] : near) names.push_back(std::move(name));
  if (!names.empty()) return fmt::format("Did you mean {}?", fmt::join(names, " or "));
  constexpr std::size_t shown = 20;
  names.assign(known.begin(),
               known.begin() + static_cast<std::ptrdiff_t>(std::min(shown, known.size())));
  return fmt::format("{} are {}{}.", they, fmt::join(names, ", "),
                     known.size() > shown ? ", ..." : "");
}

}  // namespace tolvenra::cli
