#include <algorithm>
#include <new>

#include "core/dynamic_allocation.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::matrix_methods {

int32 recode_integers(const array<int32, 1>& source, array<int32, 1>& recoded,
                      array<int32, 1>& unique, error_type& err) {
  constexpr routine here{"recode_integers", "matrix_methods"};
  if (!source.allocated) return fail(err, here, {text("Matrix was not allocated")});
  if (std::any_of(source.flat.begin(), source.flat.end(), [](int32 v) { return v <= 0; }))
    return fail(err, here, {text("Some of the source integers were negative or zero")});
  std::vector<int32> codes;
  try {
    codes = source.flat;
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation);
  }
  std::sort(codes.begin(), codes.end());
  codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  if (dynamic_allocation::int1_alloc(unique, static_cast<int32>(codes.size()), err) != 0 ||
      (recoded.size() != source.size() &&
       dynamic_allocation::int1_alloc(recoded, source.n[0], err) != 0))
    return pass_on(err, here);
  std::copy(codes.begin(), codes.end(), unique.flat.begin());
  std::transform(source.flat.begin(), source.flat.end(), recoded.flat.begin(), [&](int32 v) {
    return static_cast<int32>(std::lower_bound(codes.begin(), codes.end(), v) - codes.begin()) + 1;
  });
  return 0;
}

}  // namespace tolvenra::matrix_methods
