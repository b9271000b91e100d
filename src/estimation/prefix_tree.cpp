#include "estimation/prefix_tree.hpp"

#include <algorithm>

#include "core/parallel.hpp"
#include "estimation/distinct_rows.hpp"

namespace tolvenra {
namespace {

constexpr int32 most_rows = 2048;   ///< of a chunk, so that its products stay in the caches
constexpr int32 rows_per_node = 3;  ///< a node costs as much as passing three rows through an item

/// Chunks of at most `most_rows` rows that cross neither strata nor blocks.
std::vector<prefix_tree::chunk> divide(const distinct_rows& rows, int32 blocks) {
  std::vector<prefix_tree::chunk> chunks;
  int32 g = 0;
  for (int32 b = 0; b < blocks; ++b) {
    const auto range = parallel::rows_of_block(rows.nrow, b, blocks);
    for (int32 first = range.first - 1; first < range.last;) {
      while (rows.stratum_start[static_cast<std::size_t>(g) + 1] <= first) ++g;
      prefix_tree::chunk chunk;
      chunk.first_row = first;
      chunk.end_row = std::min(
          {range.last, first + most_rows, rows.stratum_start[static_cast<std::size_t>(g) + 1]});
      chunk.stratum = g;
      chunk.block = b;
      chunks.push_back(chunk);
      first = chunk.end_row;
    }
  }
  return chunks;
}

/// Number of items up to which the chunk's rows share enough leading responses.
int32 useful_depth(const distinct_rows& rows, const prefix_tree::chunk& chunk, int32 items) {
  std::vector<int32> fresh(static_cast<std::size_t>(items) + 1, 0);  // rows by shared responses
  for (int32 row = chunk.first_row + 1; row < chunk.end_row; ++row)
    ++fresh[static_cast<std::size_t>(std::min(rows.shared[static_cast<std::size_t>(row)], items))];
  int64 nodes = 1;  // prefixes of length depth + 1
  int32 depth = 0;
  while (depth < items) {
    nodes += fresh[static_cast<std::size_t>(depth)];
    if (nodes * rows_per_node > chunk.end_row - chunk.first_row) break;
    ++depth;
  }
  return depth;
}

/// Adds the chunk's nodes level by level.
void grow(const distinct_rows& rows, std::span<const int32> first_slot, prefix_tree::chunk& chunk,
          prefix_tree& tree) {
  chunk.first_node = tree.parent.size();
  chunk.nodes = 1;
  tree.parent.push_back(0);
  tree.slot.push_back(0);
  for (int32 row = chunk.first_row; row < chunk.end_row; ++row)
    tree.leaf[static_cast<std::size_t>(row)] = 0;
  for (int32 depth = 1; depth <= chunk.depth; ++depth)
    for (int32 row = chunk.first_row; row < chunk.end_row; ++row) {
      const auto at = static_cast<std::size_t>(row);
      if (row == chunk.first_row || rows.shared[at] < depth) {
        tree.parent.push_back(tree.leaf[at]);
        tree.slot.push_back(first_slot[static_cast<std::size_t>(depth - 1)] +
                            rows.response(row + 1, depth));
        ++chunk.nodes;
      }
      tree.leaf[at] = chunk.nodes - 1;
    }
  tree.most_nodes = std::max(tree.most_nodes, chunk.nodes);
}

}  // namespace

std::vector<int32> item_slots(std::span<const int32> categories) {
  std::vector<int32> slots{1};
  for (const int32 count : categories) slots.push_back(slots.back() + count + 1);
  return slots;
}

prefix_tree grow_trees(const distinct_rows& rows, std::span<const int32> categories) {
  prefix_tree tree;
  tree.blocks = parallel::blocks_for(rows.nrow, 1);
  tree.chunks = divide(rows, tree.blocks);
  tree.leaf.resize(static_cast<std::size_t>(rows.nrow));
  const std::vector<int32> first_slot = item_slots(categories);
  for (prefix_tree::chunk& chunk : tree.chunks) {
    chunk.depth = useful_depth(rows, chunk, static_cast<int32>(categories.size()));
    grow(rows, first_slot, chunk, tree);
  }
  return tree;
}

}  // namespace tolvenra
