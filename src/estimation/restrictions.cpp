#include "estimation/restrictions.hpp"

#include <algorithm>
#include <vector>

namespace tolvenra::estimation {
namespace {

/// Equality codes already met; codes may be as large as an integer, so they are kept sorted.
class equivalence_classes {
 public:
  bool first_time(int32 code) {
    const auto at = std::lower_bound(seen_.begin(), seen_.end(), code);
    if (at != seen_.end() && *at == code) return false;
    seen_.insert(at, code);
    return true;
  }

 private:
  std::vector<int32> seen_;
};

}  // namespace

int32 number_of_parameters_estimated(std::span<const int32> codes, const row_layout& rows) {
  equivalence_classes groups;
  int32 count = 0;
  for (int32 m = 0; m < rows.nrows; ++m) {
    int32 in_row = 0;
    for (int32 r = 0; r < rows.length[static_cast<std::size_t>(m)]; ++r) {
      const int32 code = codes[static_cast<std::size_t>(rows.base(m) + r * rows.step)];
      if (code == 1 || (code >= 2 && groups.first_time(code))) ++in_row;
    }
    count += std::max(in_row - 1, 0);
  }
  return count;
}

}  // namespace tolvenra::estimation
