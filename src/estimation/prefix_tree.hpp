/// \file prefix_tree.hpp  The leading responses that neighbouring rows share, as trees.
///
/// Rows come sorted, so rows with the same first responses stand together. Products over leading
/// items are formed once per node instead of once per row, and posteriors reach the leading items'
/// counts once per node. A tree covers a chunk of neighbouring rows of one stratum and ends at the
/// depth behind which rows no longer share enough to pay; from there on rows go one by one.
#pragma once

#include <span>
#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"

namespace tolvenra {

struct distinct_rows;

/// Offsets and numbers are 0-based. Nodes of a chunk are numbered from its root, parents first.
struct prefix_tree {
  struct chunk {
    int32 first_row = 0, end_row = 0;
    int32 stratum = 0;
    int32 block = 0;             ///< of the finest division of the rows into blocks
    int32 depth = 0;             ///< items within the tree
    int32 nodes = 0;             ///< with the root
    std::size_t first_node = 0;  ///< of the root, in parent and slot
  };
  std::vector<chunk> chunks;
  std::vector<int32> parent;  ///< number of the node's parent within the chunk
  std::vector<int32> slot;    ///< slot of the node's response, see class_counts
  std::vector<int32> leaf;    ///< by row: node of its leading responses within the chunk
  int32 blocks = 1;           ///< of the finest division
  int32 most_nodes = 1;       ///< in a chunk
};

/// First slot of every item and, behind the last, the number of slots: slot 0 is the prevalence,
/// each item has one slot for a missing response and one per category.
std::vector<int32> item_slots(std::span<const int32> categories);

/// Trees over the first `categories.size()` response columns. \throws std::bad_alloc
prefix_tree grow_trees(const distinct_rows& rows, std::span<const int32> categories);

}  // namespace tolvenra
