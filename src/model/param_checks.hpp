/// \file param_checks.hpp  What the files of module `param` share: shapes, checks, storing.
///
/// Lines of a report are kept whole where they are raised; only the name of an array or argument is
/// put into them.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "model/param.hpp"
#include "model/record_fields.hpp"

namespace tolvenra::param {

inline constexpr int32 most_items = 999, most_categories = 999, most_times = 99, most_strata = 999;
inline constexpr int32 most_covariates = 99, most_latent = 99;

/// A dimension of an array: the second line of its report and the extent that it must have.
struct dim {
  std::string_view must_equal;
  int32 extent;
};
template <std::size_t R>
using dims_of = std::array<dim, R>;

template <std::size_t R>
std::array<int32, R> extents_of(const dims_of<R>& dims) {
  std::array<int32, R> extents{};
  for (std::size_t k = 0; k < R; ++k) extents[k] = dims[k].extent;
  return extents;
}

// Shapes of the parameter arrays. The wording differs from array to array and is kept.
dims_of<2> gamma_dims(const param_type& param);
dims_of<4> rho_dims(const param_type& param);
dims_of<3> beta_dims(const param_type& param);
dims_of<3> delta_dims(const param_type& param);
dims_of<5> tau_dims(const param_type& param);
dims_of<6> big_rho_dims(const param_type& param);
dims_of<4> delta_beta_dims(const param_type& param);
dims_of<6> tau_beta_dims(const param_type& param);
dims_of<2> baseline_tau_dims(const param_type& param);

int32 require_dims(const param_type& param, const routine& here, error_type& err);
int32 refuse_absent(std::string_view name, const routine& here, error_type& err);

/// The rows and columns of a matrix, in words of their own.
template <class T>
int32 check_sides(const array<T, 2>& a, std::string_view name, const dims_of<2>& dims,
                  const routine& here, error_type& err) {
  if (a.n[0] != dims[0].extent)
    return fail(err, here,
                {text("The ", name, " array has ", a.n[0], " rows;"),
                 text(dims[0].must_equal, dims[0].extent)});
  if (a.n[1] != dims[1].extent)
    return fail(err, here,
                {text("The ", name, " array has ", a.n[1], " columns;"),
                 text(dims[1].must_equal, dims[1].extent)});
  return 0;
}

/// One dimension, k from 0.
template <class T, std::size_t R>
int32 check_dimension(const array<T, R>& a, std::size_t k, std::string_view name, const dim& want,
                      const routine& here, error_type& err) {
  if (a.n[k] == want.extent) return 0;
  return fail(err, here,
              {text("Dimension ", k + 1, " of the ", name, " array is ", a.n[k]),
               text(want.must_equal, want.extent)});
}

/// All dimensions, the last one first.
template <class T, std::size_t R>
int32 check_shape(const array<T, R>& a, std::string_view name, const dims_of<R>& dims,
                  const routine& here, error_type& err) {
  for (std::size_t k = R; k-- > 0;)
    if (check_dimension(a, k, name, dims[k], here, err) != 0) return -1;
  return 0;
}

/// Shape and values of a probability array, for the parameter, its prior and the stabilising prior
/// of its regression alike. \param[out] rows  its rows, for storing
int32 check_gamma(const array<double, 2>& gamma, const param_type& param, row_layout& rows,
                  const routine& here, error_type& err);
int32 check_rho(const array<double, 4>& rho, const param_type& param, row_layout& rows,
                const routine& here, error_type& err);
int32 check_delta(const array<double, 3>& delta, const param_type& param, row_layout& rows,
                  const routine& here, error_type& err);
int32 check_tau(const array<double, 5>& tau, const param_type& param, row_layout& rows,
                const routine& here, error_type& err);
int32 check_big_rho(const array<double, 6>& big_rho, const param_type& param, row_layout& rows,
                    const routine& here, error_type& err);

/// "put_rho: param%rho"
inline std::string field_label(const routine& here, std::string_view field) {
  return std::string(here.name) + ": param%" + std::string(field);
}

/// Stores checked values; `here.name` behind "put_" is the name of the field.
template <class T, std::size_t R>
int32 store(const array<T, R>& from, array<T, R>& field, const routine& here, error_type& err) {
  return fields::store(from, field, field_label(here, here.name.substr(4)), here, err);
}

/// The same for probabilities, with 0 in the cells behind each row's own elements.
template <std::size_t R>
int32 store_rows(const array<double, R>& from, array<double, R>& field, const row_layout& rows,
                 const routine& here, error_type& err) {
  if (store(from, field, here, err) != 0) return -1;
  clear_padding(field.flat, rows);
  return 0;
}

/// Copies a field out; `here.name` behind "get_" is the name of the array.
template <class T, std::size_t R>
int32 get_array(const param_type& param, const array<T, R>& field, array<T, R>& to,
                const routine& here, error_type& err) {
  if (require_dims(param, here, err) != 0) return -1;
  if (!field.allocated) return refuse_absent(here.name.substr(4), here, err);
  return fields::copy_out(field, to, here, err);
}

/// Calls make() and reports lack of memory.
template <class Make>
int32 make_rows(row_layout& rows, Make&& make, const routine& here, error_type& err) {
  try {
    rows = make();
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation, {text(here.name, ": rows")});
  }
  return 0;
}

}  // namespace tolvenra::param
