/// \file status_tree.hpp  The response waves that rows share from the first time on, as trees.
///
/// A wave is what a case answers at one time. The forward-backward recursion of a row needs of each
/// wave only the probability under every status, so distinct waves are evaluated once; and rows
/// that agree up to some time share the recursion up to there. A tree holds the rows of a chunk:
/// its nodes at level t are the distinct beginnings of t waves. The forward vector of a node
/// depends on the node alone, and backward vectors add up over the rows below it, so both passes
/// run over nodes instead of rows and times.
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"

namespace tolvenra {

struct distinct_rows;

/// Offsets and numbers are 0-based throughout.
struct status_tree {
  /// Neighbouring rows of one stratum and, with covariates on the statuses, one covariate pattern.
  struct chunk {
    int32 first = 0, end = 0;  ///< positions in `row`
    int32 stratum = 0;
    int32 pattern = 0;  ///< covariate pattern; the stratum without covariates on the statuses
    int32 block = 0;    ///< of the finest division of the rows into blocks
  };
  int32 nt = 0;
  bool by_pattern = false;        ///< chunks do not cross covariate patterns
  std::vector<int32> wave_start;  ///< nstr * nt + 1: waves of stratum g at time t start at g*nt+t
  std::vector<int32> wave_row;    ///< by wave: a row that shows it
  std::vector<int32> row;         ///< rows in the order of the trees
  std::vector<int32> leaf;        ///< by position: node at the last level
  std::vector<chunk> chunks;
  std::vector<std::size_t> level_start;  ///< chunks * nt + 1: first node of a chunk's level
  std::vector<int32> wave;               ///< by node
  std::vector<int32> parent;             ///< by node: number within the level before
  int32 blocks = 1;                      ///< of the finest division
  int32 most_rows = 1, most_nodes = 1;   ///< in a chunk

  [[nodiscard]] int32 waves() const { return static_cast<int32>(wave_row.size()); }
  /// First node of level t (0-based) of chunk k; level nt is the end of the chunk's nodes.
  [[nodiscard]] std::size_t level(std::size_t k, int32 t) const {
    return level_start[k * static_cast<std::size_t>(nt) + static_cast<std::size_t>(t)];
  }
};

/// What the trees are grown from.
struct status_design {
  int32 first_column = 1;  ///< of the status items at time 1, 1-based
  array<int32, 1> nrs;     ///< categories of the status items
  int32 nt = 1, nstr = 1;
  bool covariates = false;  ///< the initial status or the transitions have covariates
};

/// Trees over the status items; the rows must have been numbered. \throws std::bad_alloc
status_tree grow_status_trees(const distinct_rows& rows, const status_design& design);

}  // namespace tolvenra
