/// \file matrix_methods.hpp  Dense linear algebra and small array utilities, module
/// `matrix_methods`.
///
/// Matrices are column-major, double precision, 1-based; results go into arrays that the caller
/// supplies with the right extents unless told otherwise. Each routine returns 0, or -1 with its
/// report.
#pragma once

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra::matrix_methods {

/// Maps positive integer codes to 1..k in ascending order of the codes.
/// \param[out] recoded  new code of every element; given the length of `source`
/// \param[out] unique   the k distinct codes, ascending; allocated here
int32 recode_integers(const array<int32, 1>& source, array<int32, 1>& recoded,
                      array<int32, 1>& unique, error_type& err);

}  // namespace tolvenra::matrix_methods
