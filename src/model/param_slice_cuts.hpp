/// \file param_slice_cuts.hpp  Matrices cut out of parameter arrays by fixing all indices but two.
#pragma once

#include <array>
#include <string_view>

#include "model/param_checks.hpp"

namespace tolvenra::param {

/// An index argument: the line that refuses it up to its value, its range, what it fixes.
struct index_argument {
  std::string_view said;
  int32 value, limit;
  std::size_t dimension;  ///< of the full array, from 0
};

/// The indices in the order of their checks, and what becomes the slice's rows and columns.
template <std::size_t N>
struct slice_cut {
  std::array<index_argument, N> fixed;
  std::size_t rows, columns;  ///< dimensions of the full array, from 0
  dims_of<2> sides;
};

inline slice_cut<2> rho_cut(const param_type& p, int32 stratum, int32 citem) {
  return {{{{"The value of the argument 'stratum' (group),", stratum, p.nstr, 3},
            {"The value of the argument 'citem',", citem, p.nci, 0}}},
          1,
          2,
          {{{"The number of rows must be equal to NC = ", p.nc},
            {"The number of columns must be equal to nrcmax = ", p.nrcmax}}}};
}

inline slice_cut<4> big_rho_cut(const param_type& p, int32 stratum, int32 clss, int32 time,
                                int32 sitem) {
  return {{{{"The value of the argument 'stratum' (group),", stratum, p.nstr, 5},
            {"The value of the argument 'clss',", clss, p.nc, 4},
            {"The value of the argument 'time',", time, p.nt, 3},
            {"The value of the argument 'sitem',", sitem, p.ni, 0}}},
          1,
          2,
          {{{"The number of rows must be equal to NS = ", p.ns},
            {"The number of columns must be equal to nrsmax = ", p.nrsmax}}}};
}

template <std::size_t N>
slice_cut<N> with_indices_reversed(slice_cut<N> cut) {
  std::reverse(cut.fixed.begin(), cut.fixed.end());
  return cut;
}

template <std::size_t N>
int32 check_indices(const slice_cut<N>& cut, const routine& here, error_type& err) {
  for (const index_argument& index : cut.fixed)
    if (index.value < 1 || index.value > index.limit)
      return fail(err, here,
                  {text(index.said, index.value, ", is out of range."),
                   text("The valid range is 1 to ", index.limit)});
  return 0;
}

/// Calls visit(element of the full array, row, column) for the first `columns` columns; 1-based.
template <class Array, std::size_t N, class Visit>
void for_each_in_slice(Array& full, const slice_cut<N>& cut, int32 columns, Visit&& visit) {
  int64 base = 0;
  for (const index_argument& index : cut.fixed)
    base += full.stride[index.dimension] * (index.value - 1);
  for (int32 j = 1; j <= columns; ++j)
    for (int32 i = 1; i <= cut.sides[0].extent; ++i)
      visit(full.flat[static_cast<std::size_t>(base + full.stride[cut.rows] * (i - 1) +
                                               full.stride[cut.columns] * (j - 1))],
            i, j);
}

/// Writes a checked slice; columns from `kept` + 1 on are padding and become 0. A full array that
/// was released is made first, all 0.
template <class T, std::size_t R, std::size_t N>
int32 store_slice(const array<T, 2>& slice, const slice_cut<N>& cut, int32 kept, array<T, R>& full,
                  const dims_of<R>& dims, std::string_view label, error_type& err) {
  if (!full.allocated &&
      fields::allocate(full, extents_of(dims), label, routine_of(label), err) != 0)
    return -1;
  for_each_in_slice(full, cut, cut.sides[1].extent,
                    [&](T& to, int32 i, int32 j) { to = j <= kept ? slice(i, j) : T{}; });
  return 0;
}

/// Copies a slice out of an array that is there.
template <class T, std::size_t R, std::size_t N>
int32 copy_slice(const array<T, R>& full, const slice_cut<N>& cut, array<T, 2>& slice,
                 std::string_view label, error_type& err) {
  if (fields::allocate(slice, extents_of(cut.sides), label, routine_of(label), err) != 0) return -1;
  for_each_in_slice(full, cut, cut.sides[1].extent,
                    [&](const T& from, int32 i, int32 j) { slice(i, j) = from; });
  return 0;
}

}  // namespace tolvenra::param
