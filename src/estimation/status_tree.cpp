#include "estimation/status_tree.hpp"

#include <algorithm>
#include <cstdint>
#include <numeric>

#include "core/parallel.hpp"
#include "estimation/distinct_rows.hpp"

namespace tolvenra {
namespace {

using key = std::uint64_t;

constexpr int32 nodes_per_chunk = 4096;  ///< rows times waves, so that the vectors stay in caches

std::size_t at(int32 i) { return static_cast<std::size_t>(i); }

/// Replaces keys by their ranks from 0. \return the number of distinct keys
key rank(std::vector<key>& keys) {
  std::vector<key> distinct = keys;
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  for (key& k : keys)
    k = static_cast<key>(std::lower_bound(distinct.begin(), distinct.end(), k) - distinct.begin());
  return distinct.size();
}

/// Ranks of the waves that the rows [first, end) show at one time, in the order of their responses.
/// \return their number
int32 rank_waves(const distinct_rows& rows, const status_design& design, int32 t, int32 first,
                 int32 end, std::vector<key>& keys) {
  const int32 ni = design.nrs.n[0];
  keys.assign(at(end - first), 0);
  key range = 1;  // keys lie below it
  for (int32 i = 1; i <= ni; ++i) {
    const auto codes = static_cast<key>(design.nrs(i)) + 1;
    if (range > (~key{0} >> 1) / codes) range = rank(keys);
    for (int32 row = first; row < end; ++row)
      keys[at(row - first)] =
          keys[at(row - first)] * codes +
          static_cast<key>(rows.response(row + 1, design.first_column + t * ni + i - 1));
    range *= codes;
  }
  if (range > 4 * keys.size() + 1024) return static_cast<int32>(rank(keys));
  std::vector<int32> number(static_cast<std::size_t>(range), 0);
  for (const key k : keys) number[static_cast<std::size_t>(k)] = 1;
  std::exclusive_scan(number.begin(), number.end(), number.begin(), 0);
  for (key& k : keys) k = static_cast<key>(number[static_cast<std::size_t>(k)]);
  return static_cast<int32>(*std::max_element(keys.begin(), keys.end())) + 1;
}

/// Waves of all rows, time by time.
struct wave_table {
  int32 nrow = 0;
  std::vector<int32> number;  ///< row + nrow * t
  [[nodiscard]] int32 operator()(int32 row, int32 t) const {
    return number[at(row) + at(nrow) * at(t)];
  }
};

wave_table number_waves(const distinct_rows& rows, const status_design& design, status_tree& tree) {
  wave_table waves;
  waves.nrow = rows.nrow;
  waves.number.resize(at(rows.nrow) * at(design.nt));
  std::vector<key> keys;
  for (int32 g = 0; g < design.nstr; ++g)
    for (int32 t = 0; t < design.nt; ++t) {
      const int32 first = rows.stratum_start[at(g)];
      const int32 end = rows.stratum_start[at(g + 1)];
      const int32 start = tree.waves();
      tree.wave_start.push_back(start);
      if (first == end) continue;
      tree.wave_row.resize(at(start + rank_waves(rows, design, t, first, end, keys)), -1);
      for (int32 row = first; row < end; ++row) {
        const int32 wave = start + static_cast<int32>(keys[at(row - first)]);
        waves.number[at(row) + at(rows.nrow) * at(t)] = wave;
        if (tree.wave_row[at(wave)] < 0) tree.wave_row[at(wave)] = row;
      }
    }
  tree.wave_start.push_back(tree.waves());
  return waves;
}

/// Stable counting sort of rows.
template <class KeyOf>
void sort_rows(std::vector<int32>& order, int32 keys, KeyOf&& key_of) {
  std::vector<int32> start(at(keys) + 1, 0);
  for (const int32 row : order) ++start[at(key_of(row)) + 1];
  std::partial_sum(start.begin(), start.end(), start.begin());
  std::vector<int32> sorted(order.size());
  for (const int32 row : order) sorted[at(start[at(key_of(row))]++)] = row;
  order.swap(sorted);
}

std::vector<int32> stratum_of_rows(const distinct_rows& rows) {
  std::vector<int32> stratum(at(rows.nrow));
  for (std::size_t g = 0; g + 1 < rows.stratum_start.size(); ++g)
    std::fill(stratum.begin() + rows.stratum_start[g], stratum.begin() + rows.stratum_start[g + 1],
              static_cast<int32>(g));
  return stratum;
}

/// Chunks that cross neither patterns nor blocks.
void divide(const std::vector<int32>& stratum, const std::vector<int32>& pattern,
            status_tree& tree) {
  const auto nrow = static_cast<int32>(tree.row.size());
  const int32 limit = std::max(16, nodes_per_chunk / tree.nt);
  tree.blocks = parallel::blocks_for(nrow, 1);
  for (int32 b = 0; b < tree.blocks; ++b) {
    const auto range = parallel::rows_of_block(nrow, b, tree.blocks);
    for (int32 first = range.first - 1; first < range.last;) {
      const int32 row = tree.row[at(first)];
      status_tree::chunk chunk{first, first + 1, stratum[at(row)], pattern[at(row)], b};
      while (chunk.end < range.last && chunk.end - first < limit &&
             pattern[at(tree.row[at(chunk.end)])] == chunk.pattern)
        ++chunk.end;
      tree.chunks.push_back(chunk);
      tree.most_rows = std::max(tree.most_rows, chunk.end - first);
      first = chunk.end;
    }
  }
}

/// Adds a chunk's nodes level by level; `leaf` holds the rows' nodes of the level before.
void grow(const wave_table& waves, const status_tree::chunk& chunk, status_tree& tree) {
  const std::size_t first_node = tree.wave.size();
  for (int32 t = 0; t < tree.nt; ++t) {
    const std::size_t level = tree.wave.size();
    tree.level_start.push_back(level);
    int32 parent = -1;
    int32 wave = -1;
    for (int32 i = chunk.first; i < chunk.end; ++i) {
      const int32 own_parent = t > 0 ? tree.leaf[at(i)] : 0;
      const int32 own_wave = waves(tree.row[at(i)], t);
      if (own_parent != parent || own_wave != wave) {
        parent = own_parent;
        wave = own_wave;
        tree.parent.push_back(parent);
        tree.wave.push_back(wave);
      }
      tree.leaf[at(i)] = static_cast<int32>(tree.wave.size() - level) - 1;
    }
  }
  tree.most_nodes = std::max(tree.most_nodes, static_cast<int32>(tree.wave.size() - first_node));
}

}  // namespace

status_tree grow_status_trees(const distinct_rows& rows, const status_design& design) {
  status_tree tree;
  tree.nt = design.nt;
  tree.by_pattern = design.covariates;
  const wave_table waves = number_waves(rows, design, tree);
  const std::vector<int32> stratum = stratum_of_rows(rows);
  std::vector<int32> pattern = stratum;
  if (design.covariates)
    for (std::size_t row = 0; row < pattern.size(); ++row)
      pattern[row] = rows.covariates.of_row[row] - 1;
  tree.row.resize(at(rows.nrow));
  std::iota(tree.row.begin(), tree.row.end(), 0);
  if (design.first_column > 1)  // else the rows are in this order
    for (int32 t = design.nt; t-- > 0;)
      sort_rows(tree.row, tree.waves(), [&](int32 row) { return waves(row, t); });
  sort_rows(tree.row, design.covariates ? rows.covariates.count : design.nstr,
            [&](int32 row) { return pattern[at(row)]; });
  divide(stratum, pattern, tree);
  tree.leaf.assign(at(rows.nrow), 0);
  for (const status_tree::chunk& chunk : tree.chunks) grow(waves, chunk, tree);
  tree.level_start.push_back(tree.wave.size());
  return tree;
}

}  // namespace tolvenra
