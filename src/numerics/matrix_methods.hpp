/// \file matrix_methods.hpp  Dense linear algebra and small array utilities, module
/// `matrix_methods`.
///
/// Matrices are column-major, double precision, 1-based; results go into arrays that the caller
/// has allocated with the right extents, unless told otherwise, and that are not among the inputs.
/// Each routine returns 0, or -1 with its report; a result that would not be finite is a failure.
/// Source of the factorisations: Golub & Van Loan (2013), Matrix Computations, 4th ed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra::matrix_methods {

// Products.

/// c = a b. \param a  (m, k) \param b  (k, n) \param[out] c  (m, n)
int32 mat_mult(const array<double, 2>& a, const array<double, 2>& b, array<double, 2>& c,
               error_type& err);
/// c = a b. \param a  (m, k) \param b  (k) \param[out] c  (m)
int32 mat_mult(const array<double, 2>& a, const array<double, 1>& b, array<double, 1>& c,
               error_type& err);
/// c = a b a'. \param a  (n, m) \param b  (m, m) \param[out] c  (n, n)
int32 mat_mult_pre_and_post(const array<double, 2>& a, const array<double, 2>& b,
                            array<double, 2>& c, error_type& err);
/// m = v v'.
int32 outer_product_of_vector(const array<double, 1>& v, array<double, 2>& m, error_type& err);
/// c = a' a. \param a  (m, n) \param[out] c  (n, n)
int32 premult_by_transpose(const array<double, 2>& a, array<double, 2>& c, error_type& err);
/// c = a a'. \param a  (m, n) \param[out] c  (m, m)
int32 postmult_by_transpose(const array<double, 2>& a, array<double, 2>& c, error_type& err);
/// c = l l' for lower l.
int32 mult_tri_by_its_transpose(const array<double, 2>& l, array<double, 2>& c, error_type& err);
/// trace = tr(a b), without forming the product. Elements beyond sqrt(largest double / n^2), whose
/// products could overflow, are refused.
int32 quadratic_form_trace_real_matrix(const array<double, 2>& a, const array<double, 2>& b,
                                       double& trace, error_type& err);
/// w = u x v, three elements each.
int32 real_cross_product(const array<double, 1>& u, const array<double, 1>& v, array<double, 1>& w,
                         error_type& err);

// Factorisations and inverses.

/// l = lower factor of the symmetric a (its lower triangle is read), a = l l'.
int32 cholesky(const array<double, 2>& a, array<double, 2>& l, error_type& err);
/// The same in place.
int32 cholesky_lower(array<double, 2>& a, error_type& err);
/// The inverse of a lower factor in place. A factor is singular when a squared pivot is at most
/// 1e-13 of its row's squared length (1 - R^2 of that variable given the earlier ones).
int32 invert_lower(array<double, 2>& l, error_type& err);
/// c = m' m for lower m.
int32 premult_lower_by_transpose(const array<double, 2>& m, array<double, 2>& c, error_type& err);
/// The same over m itself, both triangles written.
int32 premult_lower_by_transpose(array<double, 2>& m, error_type& err);
/// x = l^-1 b for lower l.
int32 backsolve(const array<double, 2>& l, const array<double, 1>& b, array<double, 1>& x,
                error_type& err);
/// Inverse of a symmetric positive definite matrix.
/// \param mask   rows and columns that take part (all when null); the others of yinv become 0
/// \param ridge  added to the diagonal first, 1e-15 when absent
int32 symmetric_real_inverse(const array<double, 2>& y, array<double, 2>& yinv, error_type& err,
                             const array<logical, 1>* mask = nullptr,
                             std::optional<double> ridge = std::nullopt);
/// a = u diag(w) v' with m >= n, singular values descending, by one-sided Jacobi rotations.
/// \param a  (m, n) \param[out] u  (m, n) orthonormal columns \param[out] w  (n)
/// \param[out] v  (n, n) orthogonal
/// Source: Hestenes (1958), J. SIAM 6, 51-90; de Rijk (1989), SIAM J. Sci. Stat. Comput. 10,
/// 359-371.
int32 sv_decomp(const array<double, 2>& a, array<double, 2>& u, array<double, 1>& w,
                array<double, 2>& v, error_type& err);
/// The Moore-Penrose inverse; singular values up to max(m, n) eps w_max count as zero.
/// \param a  (m, n), m >= n \param[out] inverse  (n, m)
int32 pseudo_inv(const array<double, 2>& a, array<double, 2>& inverse, error_type& err);

// Diagonals.

/// Adds c >= 0 to the diagonal of a square matrix.
int32 add_a_ridge_to(array<double, 2>& a, double c, error_type& err);
/// Adds d to the diagonal of a square matrix.
int32 add_a_diag_matrix_to(array<double, 2>& a, const array<double, 1>& d, error_type& err);
int32 take_diag_real(const array<double, 2>& a, array<double, 1>& d, error_type& err);
int32 take_trace_real(const array<double, 2>& a, double& trace, error_type& err);

// Data.

/// Centres every column and divides it by its standard deviation (n - 1), in place.
int32 standardize_real_matrix(array<double, 2>& x, error_type& err);
int32 standardize_real_vector(array<double, 1>& x, error_type& err);

/// Maps positive integer codes to 1..k in ascending order of the codes.
/// \param[out] recoded  new code of every element; given the length of `source`
/// \param[out] unique   the k distinct codes, ascending; allocated here
int32 recode_integers(const array<int32, 1>& source, array<int32, 1>& recoded,
                      array<int32, 1>& unique, error_type& err);

/// idx(k) = position of the k-th smallest element, as `sort::indexx_dble`.
int32 indexx_dble(const array<double, 1>& a, array<int32, 1>& idx, error_type& err);

/// The matrix as text, a line of fields of width 8 with two decimals per row; at most 999 columns.
int32 pretty_print_real(const array<double, 2>& a, std::string& printed, error_type& err);

/// Writes a matrix as text, a line per row: reals with two decimals in 8 characters, integers in 8
/// characters, asterisks where the number does not fit. \param append  behind what the file holds
int32 write_matrix(const array<double, 2>& a, std::string_view file, bool append, error_type& err);
int32 write_matrix(const array<int32, 2>& a, std::string_view file, bool append, error_type& err);

}  // namespace tolvenra::matrix_methods
