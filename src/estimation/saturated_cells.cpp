#include "estimation/saturated_cells.hpp"

#include <algorithm>
#include <numeric>
#include <span>

namespace tolvenra::estimation {
namespace {

using word = std::uint64_t;

/// A well mixed image of a pattern number (finaliser of a 64-bit multiplicative generator).
word image_of(int32 pattern) {
  word z = static_cast<word>(pattern) + 0x9E3779B97F4A7C15;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
  return z ^ (z >> 31);
}

/// Lists of patterns, each kept once, with the number of cell beginnings that lead to it.
class pattern_lists {
 public:
  pattern_lists() : slots_(64, -1) { start_.push_back(0); }

  [[nodiscard]] std::size_t size() const { return count_.size(); }
  [[nodiscard]] int64 pairs() const { return static_cast<int64>(pattern_.size()); }
  [[nodiscard]] double count(std::size_t k) const { return count_[k]; }
  [[nodiscard]] std::span<const int32> list(std::size_t k) const {
    const auto first = static_cast<std::size_t>(start_[k]);
    return {pattern_.data() + first, static_cast<std::size_t>(start_[k + 1]) - first};
  }

  /// Adds `count` beginnings that agree with the patterns of `list`. \return the list's number
  int32 add(std::span<const int32> list, double count) {
    word hash = list.size();
    for (const int32 p : list) hash += image_of(p);
    std::size_t at = hash & (slots_.size() - 1);
    for (; slots_[at] >= 0; at = (at + 1) & (slots_.size() - 1)) {
      const auto k = static_cast<std::size_t>(slots_[at]);
      if (hash_[k] == hash && std::ranges::equal(this->list(k), list)) {
        count_[k] += count;
        return slots_[at];
      }
    }
    const auto fresh = static_cast<int32>(count_.size());
    slots_[at] = fresh;
    pattern_.insert(pattern_.end(), list.begin(), list.end());
    start_.push_back(pairs());
    hash_.push_back(hash);
    count_.push_back(count);
    if (2 * count_.size() > slots_.size()) grow();
    return fresh;
  }

  void hand_over(cell_classes& classes) {
    classes.start = std::move(start_);
    classes.pattern = std::move(pattern_);
    classes.cells = std::move(count_);
  }

 private:
  void grow() {
    slots_.assign(2 * slots_.size(), -1);
    for (std::size_t k = 0; k < hash_.size(); ++k) {
      std::size_t at = hash_[k] & (slots_.size() - 1);
      while (slots_[at] >= 0) at = (at + 1) & (slots_.size() - 1);
      slots_[at] = static_cast<int32>(k);
    }
  }

  std::vector<int64> start_;
  std::vector<int32> pattern_, slots_;
  std::vector<word> hash_;
  std::vector<double> count_;
};

/// Divides one list by the responses to one item: list r of `level` takes the patterns with
/// response r and those without a response, level 0 the latter alone.
class divided_list {
 public:
  explicit divided_list(int32 levels) : level_(static_cast<std::size_t>(levels) + 1) {}

  void divide(std::span<const int32> list, const int32* response) {
    for (const int32 r : seen_) level_[static_cast<std::size_t>(r)].clear();
    level_[0].clear();
    seen_.clear();
    for (const int32 p : list)
      if (const int32 r = response[p]; r > 0) {
        auto& of_level = level_[static_cast<std::size_t>(r)];
        if (of_level.empty()) seen_.push_back(r);
        of_level.push_back(p);
      } else {
        level_[0].push_back(p);
      }
    std::sort(seen_.begin(), seen_.end());
    for (const int32 r : seen_) merge_missing(level_[static_cast<std::size_t>(r)]);
  }

  [[nodiscard]] std::span<const int32> seen() const { return seen_; }  ///< responses, ascending
  [[nodiscard]] std::span<const int32> level(int32 r) const {
    return level_[static_cast<std::size_t>(r)];
  }
  [[nodiscard]] int64 work() const {
    return static_cast<int64>(level_[0].size() * (seen_.size() + 1));
  }

 private:
  void merge_missing(std::vector<int32>& of_level) {
    if (level_[0].empty()) return;
    merged_.resize(of_level.size() + level_[0].size());
    std::ranges::merge(of_level, level_[0], merged_.begin());
    of_level.swap(merged_);
  }

  std::vector<std::vector<int32>> level_;
  std::vector<int32> seen_, merged_;
};

/// List of every beginning of a cell, first item fastest, while the table is small.
class cell_map {
 public:
  explicit cell_map(bool wanted) : list_(wanted ? 1 : 0, 0) {}
  [[nodiscard]] bool wanted() const { return !list_.empty(); }

  void start_item(std::size_t lists, int32 levels) {
    levels_ = static_cast<std::size_t>(levels);
    if (wanted()) child_.assign(lists * levels_, -1);
  }
  void note(std::size_t list, int32 r, int32 child) {
    if (wanted()) child_[list * levels_ + static_cast<std::size_t>(r - 1)] = child;
  }
  void end_item() {
    if (!wanted()) return;
    std::vector<int32> longer;
    longer.reserve(list_.size() * levels_);
    for (std::size_t r = 0; r < levels_; ++r)
      for (const int32 list : list_)
        longer.push_back(list < 0 ? -1 : child_[static_cast<std::size_t>(list) * levels_ + r]);
    list_.swap(longer);
  }
  std::vector<int32> take() { return std::move(list_); }

 private:
  std::vector<int32> list_, child_;
  std::size_t levels_ = 0;
};

/// All lists after one more item.
/// \return false when a limit was reached
bool divide_all(const pattern_lists& lists, const int32* response, int32 levels,
                const cell_limits& limits, int64& work, cell_map& map, pattern_lists& next) {
  constexpr int64 between_questions = int64{1} << 24;
  divided_list divided(levels);
  int64 ask_at = work;
  map.start_item(lists.size(), levels);
  for (std::size_t k = 0; k < lists.size(); ++k) {
    divided.divide(lists.list(k), response);
    work += static_cast<int64>(lists.list(k).size()) + divided.work();
    const auto unseen = levels - static_cast<int32>(divided.seen().size());
    const int32 child = unseen > 0 && !divided.level(0).empty()
                            ? next.add(divided.level(0), lists.count(k) * unseen)
                            : -1;
    if (map.wanted())
      for (int32 r = 1; r <= levels; ++r) map.note(k, r, child);
    for (const int32 r : divided.seen()) map.note(k, r, next.add(divided.level(r), lists.count(k)));
    if (next.pairs() > limits.pairs || static_cast<int64>(next.size()) > limits.classes ||
        work > limits.work)
      return false;
    if (limits.cancelled && work >= ask_at) {
      if (limits.cancelled()) return false;
      ask_at = work + between_questions;
    }
  }
  map.end_item();
  return true;
}

}  // namespace

bool find_cell_classes(const array<int32, 2>& y, const array<int32, 1>& levs,
                       const cell_limits& limits, cell_classes& classes) {
  classes = cell_classes{};
  double table = 1.0;
  for (const int32 levels : levs.flat) table *= levels;
  std::vector<int32> all(static_cast<std::size_t>(y.n[0]));
  std::iota(all.begin(), all.end(), 0);
  pattern_lists lists;
  if (!all.empty()) lists.add(all, 1.0);
  cell_map map(table <= static_cast<double>(limits.mapped_cells));
  int64 work = 0;
  for (int32 j = 1; j <= y.n[1] && !all.empty(); ++j) {
    pattern_lists next;
    if (!divide_all(lists, y.column(j), levs(j), limits, work, map, next)) return false;
    lists = std::move(next);
  }
  lists.hand_over(classes);
  classes.work = work;
  if (!all.empty()) classes.class_of = map.take();
  return true;
}

}  // namespace tolvenra::estimation
