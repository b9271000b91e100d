/// \file record_fields.hpp  Storing, copying out and releasing the arrays of the model records.
///
/// Shared by the modules `dataset`, `model` and `param`. A value is copied into a new array under
/// its allocation label first and takes the field's place only then, so that a record whose routine
/// fails is as it was.
#pragma once

#include <algorithm>
#include <array>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "core/array.hpp"
#include "core/dynamic_allocation.hpp"
#include "core/error_handler.hpp"

namespace tolvenra::fields {

template <class T, std::size_t R>
constexpr const auto& alloc_operation() {
  using namespace dynamic_pointer_allocation;
  if constexpr (std::is_same_v<T, int32>)
    return std::get<R - 1>(
        std::tie(int1_alloc, int2_alloc, int3_alloc, int4_alloc, int5_alloc, int6_alloc));
  else if constexpr (std::is_same_v<T, double>)
    return std::get<R - 1>(std::tie(dbl1_alloc, dbl2_alloc, dbl3_alloc, dbl4_alloc, dbl5_alloc,
                                    dbl6_alloc, dbl7_alloc));
  else
    return std::get<R - 1>(std::tie(str1_alloc, str2_alloc));
}

template <class T, std::size_t R>
constexpr const auto& dealloc_operation() {
  using namespace dynamic_pointer_allocation;
  if constexpr (std::is_same_v<T, int32>)
    return std::get<R - 1>(std::tie(int1_dealloc, int2_dealloc, int3_dealloc, int4_dealloc,
                                    int5_dealloc, int6_dealloc));
  else if constexpr (std::is_same_v<T, double>)
    return std::get<R - 1>(std::tie(dbl1_dealloc, dbl2_dealloc, dbl3dealloc, dbl4dealloc,
                                    dbl5dealloc, dbl6dealloc, dbl7dealloc));
  else
    return std::get<R - 1>(std::tie(str1_dealloc, str2_dealloc));
}

/// Allocates an array under a label ("put_y: dataset%y"); adds the caller's line to a failure.
template <class T, std::size_t R>
int32 allocate(array<T, R>& a, const std::array<int32, R>& extents, std::string_view label,
               const routine& here, error_type& err) {
  const int32 status = std::apply(
      [&](auto... n) {
        return alloc_operation<T, R>()(a, n..., err, std::nullopt, allocation::message(label));
      },
      extents);
  return status == 0 ? 0 : pass_on(err, here);
}

template <class T, std::size_t R>
int32 release(array<T, R>& a, std::string_view label, error_type& err) {
  return dealloc_operation<T, R>()(a, err, allocation::message(label));
}

/// Puts a copy of `from` in place of a field.
template <class T, std::size_t R>
int32 store(const array<T, R>& from, array<T, R>& field, std::string_view label,
            const routine& here, error_type& err) {
  array<T, R> copy;
  if (allocate(copy, from.n, label, here, err) != 0) return -1;
  std::copy(from.flat.begin(), from.flat.end(), copy.flat.begin());
  field = std::move(copy);
  return 0;
}

/// The routine of a label: "put_y" of "put_y: dataset%y".
constexpr routine routine_of(std::string_view label, std::string_view module) {
  return {label.substr(0, label.find(':')), module};
}

/// Smallest and largest element; 0 and 0 of none.
struct value_range {
  int32 smallest = 0, largest = 0;
};
inline value_range range_of(std::span<const int32> values) {
  if (values.empty()) return {};
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  return {*low, *high};
}

/// A default label: prefix and number with leading zeros, blank padded. A number that does not fit
/// shows as asterisks.
inline name8 numbered(std::string_view prefix, int32 number, std::size_t digits,
                      std::string_view suffix = {}) {
  std::string shown = to_text(int64{number});
  shown = shown.size() > digits ? std::string(digits, '*')
                                : std::string(digits - shown.size(), '0') + shown;
  const std::string whole = std::string(prefix) + shown + std::string(suffix);
  name8 name;
  name.fill(' ');
  std::copy_n(whole.begin(), std::min(whole.size(), name.size()), name.begin());
  return name;
}

}  // namespace tolvenra::fields
