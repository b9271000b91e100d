#include "numerics/assignment.hpp"

#include <limits>

namespace tolvenra::assignment {

std::vector<int32> least_cost(const array<double, 2>& cost) {
  const int32 n = cost.n[0];
  const auto size = static_cast<std::size_t>(n) + 1;
  std::vector<double> row_price(size, 0.0), column_price(size, 0.0);
  std::vector<int32> row_of(size, 0), before(size, 0);  // of every column; 0 is none
  for (int32 r = 1; r <= n; ++r) {
    // Grow a tree of cheapest alternating paths from row r until it meets a free column.
    std::vector<double> slack(size, std::numeric_limits<double>::infinity());
    std::vector<bool> in_tree(size, false);
    row_of[0] = r;
    int32 last = 0;
    while (row_of[static_cast<std::size_t>(last)] != 0) {
      in_tree[static_cast<std::size_t>(last)] = true;
      const int32 row = row_of[static_cast<std::size_t>(last)];
      double least = std::numeric_limits<double>::infinity();
      int32 next = 0;
      for (int32 c = 1; c <= n; ++c) {
        const auto at = static_cast<std::size_t>(c);
        if (in_tree[at]) continue;
        const double reduced =
            cost(row, c) - row_price[static_cast<std::size_t>(row)] - column_price[at];
        if (reduced < slack[at]) {
          slack[at] = reduced;
          before[at] = last;
        }
        if (next == 0 || slack[at] < least) {
          least = slack[at];
          next = c;
        }
      }
      for (std::size_t c = 0; c < size; ++c) {
        if (in_tree[c]) {
          row_price[static_cast<std::size_t>(row_of[c])] += least;
          column_price[c] -= least;
        } else {
          slack[c] -= least;
        }
      }
      last = next;
    }
    for (; last != 0; last = before[static_cast<std::size_t>(last)])
      row_of[static_cast<std::size_t>(last)] =
          row_of[static_cast<std::size_t>(before[static_cast<std::size_t>(last)])];
  }
  std::vector<int32> column_of(static_cast<std::size_t>(n), 0);
  for (int32 c = 1; c <= n; ++c)
    column_of[static_cast<std::size_t>(row_of[static_cast<std::size_t>(c)] - 1)] = c;
  return column_of;
}

}  // namespace tolvenra::assignment
