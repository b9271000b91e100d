/// \file saturated_cells.hpp  The cells of a response table that incomplete patterns can tell
/// apart.
///
/// A cell of the full cross-classification matters to the likelihood of incomplete data only
/// through the set of observed patterns that agree with it. Cells with the same set receive the
/// same factor in every EM pass and start equal, so they stay equal: the EM algorithm runs over
/// classes of such cells, each with its number of cells, and takes exactly the steps that it would
/// take over the cells one by one. Cells that agree with no pattern are empty after the first pass
/// and never formed.
///
/// A table of 2^100 cells may thus have a few thousand classes. They are found by going through the
/// items and merging, after each, all beginnings of cells that agree with the same patterns.
#pragma once

#include <functional>
#include <vector>

#include "core/array.hpp"
#include "core/types.hpp"

namespace tolvenra::estimation {

struct cell_classes {
  std::vector<int64> start;     ///< offsets into `pattern`, one more than there are classes
  std::vector<int32> pattern;   ///< 0-based patterns that agree with each class, ascending
  std::vector<double> cells;    ///< number of cells of each class
  std::vector<int32> class_of;  ///< by cell (first item fastest), -1 unreachable; for small tables
  int64 work = 0;               ///< pairs visited to find them

  [[nodiscard]] std::size_t size() const { return cells.size(); }
};

/// Bounds on memory and time. A pair is a class together with one pattern that agrees with it.
struct cell_limits {
  int64 classes = int64{1} << 24;
  int64 pairs = int64{1} << 25;          ///< kept at any time, 4 bytes each
  int64 work = int64{1} << 31;           ///< pairs visited altogether
  int64 mapped_cells = int64{1} << 16;   ///< tables up to this size get `class_of`
  std::function<bool()> cancelled = {};  ///< asked now and then; ends the search like a limit
};

/// Finds the classes.
/// \param y     (patterns, items) responses, 0 missing; each pattern has at least one response
/// \param levs  levels of the items, positive
/// \return false when a limit was reached, with `classes` empty. \throws std::bad_alloc
bool find_cell_classes(const array<int32, 2>& y, const array<int32, 1>& levs,
                       const cell_limits& limits, cell_classes& classes);

}  // namespace tolvenra::estimation
