// Slices of the parameter arrays.
#include "model/param_slice_cuts.hpp"

namespace tolvenra::param {
namespace {

constexpr std::string_view rows_ns = "The number of rows must be equal to NS = ";
constexpr std::string_view columns_nc = "The number of columns must be equal to NC = ";
constexpr std::string_view columns_ns = "The number of columns must be equal to NS = ";

int32 coefficients(int32 ncov) { return std::max(ncov + 1, 0); }

index_argument stratum_index(const param_type& p, int32 stratum, std::size_t dimension) {
  return {"The value of the argument 'stratum' (group),", stratum, p.nstr, dimension};
}
index_argument class_index(const param_type& p, int32 clss, std::size_t dimension) {
  return {"The value of the argument 'clss',", clss, p.nc, dimension};
}
index_argument transition_index(const param_type& p, int32 transition, std::size_t dimension) {
  return {"The value of the argument 'transition',", transition, p.nt - 1, dimension};
}

slice_cut<1> beta_cut(const param_type& p, int32 stratum) {
  return {{{stratum_index(p, stratum, 2)}},
          0,
          1,
          {{{"The number of rows must be equal to NCOV+1 = ", coefficients(p.ncov)},
            {columns_nc, p.nc}}}};
}
slice_cut<1> delta_cut(const param_type& p, int32 stratum) {
  return {{{stratum_index(p, stratum, 2)}}, 0, 1, {{{rows_ns, p.ns}, {columns_nc, p.nc}}}};
}
slice_cut<3> tau_cut(const param_type& p, int32 stratum, int32 clss, int32 transition) {
  return {
      {{stratum_index(p, stratum, 4), class_index(p, clss, 3), transition_index(p, transition, 2)}},
      0,
      1,
      {{{rows_ns, p.ns}, {columns_ns, p.ns}}}};
}
slice_cut<2> delta_beta_cut(const param_type& p, int32 stratum, int32 clss) {
  return {{{stratum_index(p, stratum, 3), class_index(p, clss, 2)}},
          0,
          1,
          {{{"The number of rows must be equal to ncov_delta + 1 = ", coefficients(p.ncov_delta)},
            {columns_ns, p.ns}}}};
}
slice_cut<4> tau_beta_cut(const param_type& p, int32 stratum, int32 clss, int32 transition,
                          int32 status) {
  return {{{stratum_index(p, stratum, 5),
            class_index(p, clss, 4),
            transition_index(p, transition, 3),
            {"The value of the argument 'status',", status, p.ns, 1}}},
          0,
          2,
          {{{"The number of rows must be equal to ncov_tau+1 = ", coefficients(p.ncov_tau)},
            {columns_ns, p.ns}}}};
}

/// Dimensions, index arguments and shape, in this order.
template <std::size_t N>
int32 check_slice(const array<double, 2>& slice, std::string_view has, const slice_cut<N>& cut,
                  const param_type& param, const routine& here, error_type& err) {
  if (require_dims(param, here, err) != 0 || check_indices(cut, here, err) != 0) return -1;
  return check_sides(slice, has, cut.sides, here, err);
}

int32 refuse_negative_item(const array<double, 2>& slice, int64 at, std::string_view in_array,
                           const routine& here, error_type& err) {
  const auto [row, column] = indices_at(slice.n, at);
  return fail(err, here, {text("The item in row ", row, ", column ", column), text(in_array)});
}

/// Rows over categories, of which each has `own`; or columns when `along` is 0.
template <class SayNegative>
int32 check_probabilities(const array<double, 2>& slice, std::size_t along, int32 own,
                          SayNegative&& negative, const routine& here, error_type& err) {
  row_layout rows;
  const auto make = [&] { return rows_along(slice.n, along, std::array{own}); };
  if (make_rows(rows, make, here, err) != 0) return -1;
  const auto sum = [&](int64 at, double total) {
    const auto [row, column] = indices_at(slice.n, at);
    return fail(err, here,
                {along == 0 ? text("Column ", column, " in the ", here.name.substr(4), " array")
                            : text("Row ", row, " in the ", here.name.substr(4), " array"),
                 text("sums to ", total, "; it should sum to 1.0.")});
  };
  return check_rows(slice.flat, rows, negative, sum);
}

template <std::size_t N, std::size_t R>
int32 put_coefficients(const array<double, 2>& slice, std::string_view has, const slice_cut<N>& cut,
                       array<double, R>& full, const dims_of<R>& dims, const param_type& param,
                       std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  if (check_slice(slice, has, cut, param, here, err) != 0 || check_finite(slice, here, err) != 0)
    return -1;
  return store_slice(slice, cut, cut.sides[1].extent, full, dims, label, err);
}

template <std::size_t N, std::size_t R>
int32 get_slice(const param_type& param, const slice_cut<N>& cut, const array<double, R>& full,
                std::string_view absent, array<double, 2>& slice, std::string_view label,
                error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0 || check_indices(cut, here, err) != 0) return -1;
  if (!full.allocated) return refuse_absent(absent, here, err);
  return copy_slice(full, cut, slice, label, err);
}

}  // namespace

int32 put_rho2(const array<double, 2>& rho2, int32 stratum, int32 citem, param_type& param,
               error_type& err) {
  constexpr routine here{"put_rho2", "param"};
  const auto cut = rho_cut(param, stratum, citem);
  if (check_slice(rho2, "The rho2 array has ", cut, param, here, err) != 0) return -1;
  const int32 own = param.nrc(citem);
  const auto negative = [&](int64 at) {
    return refuse_negative_item(rho2, at, "in the rho2 array is negative.", here, err);
  };
  if (check_probabilities(rho2, 1, own, negative, here, err) != 0) return -1;
  return store_slice(rho2, cut, own, param.rho, rho_dims(param), "put_rho2: param%rho", err);
}

int32 put_delta2(const array<double, 2>& delta2, int32 stratum, param_type& param,
                 error_type& err) {
  constexpr routine here{"put_delta2", "param"};
  const auto cut = delta_cut(param, stratum);
  if (check_slice(delta2, "The delta2 array has ", cut, param, here, err) != 0) return -1;
  const auto negative = [&](int64 at) {
    return refuse_negative_item(delta2, at, "in the delta2 array is negative.", here, err);
  };
  if (check_probabilities(delta2, 0, param.ns, negative, here, err) != 0) return -1;
  return store_slice(delta2, cut, param.nc, param.delta, delta_dims(param),
                     "put_delta2: param%delta", err);
}

int32 put_tau2(const array<double, 2>& tau2, int32 stratum, int32 clss, int32 transition,
               param_type& param, error_type& err) {
  constexpr routine here{"put_tau2", "param"};
  const auto cut = tau_cut(param, stratum, clss, transition);
  if (check_slice(tau2, "The tau2 array has ", cut, param, here, err) != 0) return -1;
  const auto negative = [&](int64 at) {
    const auto [row, column] = indices_at(tau2.n, at);
    return fail(err, here,
                {text("The item in column ", column, ", row ", row),
                 text("in the tau2 array is negative.")});
  };
  if (check_probabilities(tau2, 1, param.ns, negative, here, err) != 0) return -1;
  return store_slice(tau2, cut, param.ns, param.tau, tau_dims(param), "put_tau2: param%tau", err);
}

int32 put_big_rho2(const array<double, 2>& big_rho2, int32 stratum, int32 clss, int32 time,
                   int32 sitem, param_type& param, error_type& err) {
  constexpr routine here{"put_big_rho2", "param"};
  const auto cut = big_rho_cut(param, stratum, clss, time, sitem);
  if (check_slice(big_rho2, "The big_rho2 array has ", cut, param, here, err) != 0) return -1;
  const int32 own = param.nrs(sitem);
  const auto negative = [&](int64 at) {
    return refuse_negative_item(big_rho2, at, "in the big_rho2 array is negative.", here, err);
  };
  if (check_probabilities(big_rho2, 1, own, negative, here, err) != 0) return -1;
  return store_slice(big_rho2, cut, own, param.big_rho, big_rho_dims(param),
                     "put_big_rho2: param%big_rho", err);
}

int32 put_beta2(const array<double, 2>& beta2, int32 stratum, param_type& param, error_type& err) {
  return put_coefficients(beta2, "The beta2 array has ", beta_cut(param, stratum), param.beta,
                          beta_dims(param), param, "put_beta2: param%beta", err);
}
int32 put_delta_beta2(const array<double, 2>& delta_beta2, int32 stratum, int32 clss,
                      param_type& param, error_type& err) {
  return put_coefficients(delta_beta2, "The delta_beta2 array has ",
                          delta_beta_cut(param, stratum, clss), param.delta_beta,
                          delta_beta_dims(param), param, "put_delta_beta2: param%delta_beta", err);
}
int32 put_tau_beta2(const array<double, 2>& tau_beta2, int32 stratum, int32 clss, int32 transition,
                    int32 status, param_type& param, error_type& err) {
  return put_coefficients(tau_beta2, "The tau_beta2 array has ",
                          tau_beta_cut(param, stratum, clss, transition, status), param.tau_beta,
                          tau_beta_dims(param), param, "put_tau_beta2: param%tau_beta", err);
}

int32 get_rho2(const param_type& param, int32 stratum, int32 citem, array<double, 2>& rho2,
               error_type& err) {
  return get_slice(param, rho_cut(param, stratum, citem), param.rho,
                   "The rho array has not yet been specified", rho2, "get_rho2: rho2", err);
}
int32 get_beta2(const param_type& param, int32 stratum, array<double, 2>& beta2, error_type& err) {
  return get_slice(param, beta_cut(param, stratum), param.beta,
                   "The beta array has not yet been specified", beta2, "get_beta2: beta2", err);
}
int32 get_delta2(const param_type& param, int32 stratum, array<double, 2>& delta2,
                 error_type& err) {
  return get_slice(param, delta_cut(param, stratum), param.delta,
                   "The delta array has not yet been specified", delta2, "get_delta2: delta2", err);
}
int32 get_tau2(const param_type& param, int32 stratum, int32 clss, int32 transition,
               array<double, 2>& tau2, error_type& err) {
  return get_slice(param, tau_cut(param, stratum, clss, transition), param.tau,
                   "The tau array has not yet been specified", tau2, "get_tau2: tau2", err);
}
int32 get_big_rho2(const param_type& param, int32 stratum, int32 clss, int32 time, int32 sitem,
                   array<double, 2>& big_rho2, error_type& err) {
  return get_slice(param, big_rho_cut(param, stratum, clss, time, sitem), param.big_rho,
                   "The big_rho array has not yet been specified", big_rho2,
                   "get_big_rho2: big_rho2", err);
}
int32 get_delta_beta2(const param_type& param, int32 stratum, int32 clss,
                      array<double, 2>& delta_beta2, error_type& err) {
  return get_slice(param, delta_beta_cut(param, stratum, clss), param.delta_beta,
                   "The delta_beta array has not yet been specified", delta_beta2,
                   "get_delta_beta2: delta_beta2", err);
}
int32 get_tau_beta2(const param_type& param, int32 stratum, int32 clss, int32 transition,
                    int32 status, array<double, 2>& tau_beta2, error_type& err) {
  return get_slice(param, tau_beta_cut(param, stratum, clss, transition, status), param.tau_beta,
                   "The tau_beta array has not yet been specified", tau_beta2,
                   "get_tau_beta2: tau_beta2", err);
}

}  // namespace tolvenra::param
