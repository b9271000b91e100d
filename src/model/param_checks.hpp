/// \file param_checks.hpp  What the files of module `param` share: shapes, checks, storing.
///
/// A report's words and an array's label are kept whole where they are given, names included, so
/// that a message can be found by searching for it.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
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
/// "The rho array has not yet been specified" and the rest of the sentence.
int32 refuse_absent(std::string_view absent, const routine& here, error_type& err);

/// The rows and columns of a matrix, in words of their own. \param has  "The rho2 array has "
template <class T>
int32 check_sides(const array<T, 2>& a, std::string_view has, const dims_of<2>& dims,
                  const routine& here, error_type& err) {
  if (a.n[0] != dims[0].extent)
    return fail(err, here, {text(has, a.n[0], " rows;"), text(dims[0].must_equal, dims[0].extent)});
  if (a.n[1] != dims[1].extent)
    return fail(err, here,
                {text(has, a.n[1], " columns;"), text(dims[1].must_equal, dims[1].extent)});
  return 0;
}

/// One extent. \param said  the pieces of what is said up to its value
template <class... P>
int32 check_extent(int32 extent, const dim& want, const routine& here, error_type& err,
                   const P&... said) {
  if (extent == want.extent) return 0;
  return fail(err, here, {text(said..., extent), text(want.must_equal, want.extent)});
}

/// All dimensions, the last one first. \param is  " of the rho array is "
template <class T, std::size_t R>
int32 check_shape(const array<T, R>& a, std::string_view is, const dims_of<R>& dims,
                  const routine& here, error_type& err) {
  for (std::size_t k = R; k-- > 0;)
    if (check_extent(a.n[k], dims[k], here, err, "Dimension ", k + 1, is) != 0) return -1;
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

template <std::size_t R>
using row_check = int32(const array<double, R>&, const param_type&, row_layout&, const routine&,
                        error_type&);

/// The routine of a label: "put_rho" of "put_rho: param%rho".
constexpr routine routine_of(std::string_view label) { return fields::routine_of(label, "param"); }

/// Stores checked values under a label.
template <class T, std::size_t R>
int32 store(const array<T, R>& from, array<T, R>& field, std::string_view label, error_type& err) {
  return fields::store(from, field, label, routine_of(label), err);
}

/// The same for probabilities, with 0 in the cells behind each row's own elements.
template <std::size_t R>
int32 store_rows(const array<double, R>& from, array<double, R>& field, const row_layout& rows,
                 std::string_view label, error_type& err) {
  if (store(from, field, label, err) != 0) return -1;
  clear_padding(field.flat, rows);
  return 0;
}

/// Coefficients have any sign and size, but are numbers.
template <std::size_t R>
int32 check_finite(const array<double, R>& coefficients, const routine& here, error_type& err) {
  const auto& values = coefficients.flat;
  if (std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); }))
    return 0;
  return fail(err, here,
              {text("One or more values in the ", here.name.substr(4), " array"),
               text("was not a finite number.")});
}

/// Copies a field out under a label ("get_rho: rho"). \param absent  as in `refuse_absent`
template <class T, std::size_t R>
int32 get_array(const param_type& param, const array<T, R>& field, array<T, R>& to,
                std::string_view label, std::string_view absent, error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0) return -1;
  if (!field.allocated) return refuse_absent(absent, here, err);
  return store(field, to, label, err);
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
