/// \file matrix_checks.hpp  Checks that the matrix methods share.
#pragma once

#include <algorithm>
#include <cmath>

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra::matrix_methods {

constexpr routine in(std::string_view name) { return {name, "matrix_methods"}; }

template <std::size_t R>
bool all_finite(const array<double, R>& a) {
  return std::all_of(a.flat.begin(), a.flat.end(), [](double v) { return std::isfinite(v); });
}

/// Status of a routine whose result is `a`.
template <std::size_t R>
int32 finish(const array<double, R>& a, const routine& here, error_type& err) {
  return all_finite(a) ? 0 : fail(err, here, {text("The result is not finite.")});
}

inline bool is_square(const array<double, 2>& a) { return a.n[0] == a.n[1]; }

/// A square matrix and a result of the same extents.
inline int32 check_squares(const array<double, 2>& input, const array<double, 2>& output,
                           const routine& here, error_type& err) {
  if (!is_square(input)) return fail(err, here, error_code::not_square, {text("input")});
  if (!is_square(output)) return fail(err, here, error_code::not_square, {text("output")});
  if (input.n != output.n)
    return fail(err, here, error_code::not_conformable, {text("input, output")});
  return 0;
}

}  // namespace tolvenra::matrix_methods
