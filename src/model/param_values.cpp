// Whole parameter arrays.
#include "model/param_checks.hpp"

namespace tolvenra::param {
namespace {

/// Coefficients have a shape and are finite.
template <std::size_t R>
int32 put_coefficients(const array<double, R>& from, std::string_view is, const dims_of<R>& dims,
                       array<double, R>& field, const param_type& param, std::string_view label,
                       error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0 || check_shape(from, is, dims, here, err) != 0 ||
      check_finite(from, here, err) != 0)
    return -1;
  return store(from, field, label, err);
}

template <std::size_t R>
int32 put_probabilities(const array<double, R>& from, row_check<R>* check, array<double, R>& field,
                        const param_type& param, std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  row_layout rows;
  if (require_dims(param, here, err) != 0 || check(from, param, rows, here, err) != 0) return -1;
  return store_rows(from, field, rows, label, err);
}

}  // namespace

int32 put_gamma(const array<double, 2>& gamma, param_type& param, error_type& err) {
  return put_probabilities(gamma, check_gamma, param.gamma, param, "put_gamma: param%gamma", err);
}
int32 put_rho(const array<double, 4>& rho, param_type& param, error_type& err) {
  return put_probabilities(rho, check_rho, param.rho, param, "put_rho: param%rho", err);
}
int32 put_delta(const array<double, 3>& delta, param_type& param, error_type& err) {
  return put_probabilities(delta, check_delta, param.delta, param, "put_delta: param%delta", err);
}
int32 put_tau(const array<double, 5>& tau, param_type& param, error_type& err) {
  return put_probabilities(tau, check_tau, param.tau, param, "put_tau: param%tau", err);
}
int32 put_big_rho(const array<double, 6>& big_rho, param_type& param, error_type& err) {
  return put_probabilities(big_rho, check_big_rho, param.big_rho, param,
                           "put_big_rho: param%big_rho", err);
}

int32 put_beta(const array<double, 3>& beta, param_type& param, error_type& err) {
  return put_coefficients(beta, " of the beta array is ", beta_dims(param), param.beta, param,
                          "put_beta: param%beta", err);
}
int32 put_delta_beta(const array<double, 4>& delta_beta, param_type& param, error_type& err) {
  return put_coefficients(delta_beta, " of the delta_beta array is ", delta_beta_dims(param),
                          param.delta_beta, param, "put_delta_beta: param%delta_beta", err);
}
int32 put_tau_beta(const array<double, 6>& tau_beta, param_type& param, error_type& err) {
  return put_coefficients(tau_beta, " of the tau_beta array is ", tau_beta_dims(param),
                          param.tau_beta, param, "put_tau_beta: param%tau_beta", err);
}

int32 get_gamma(const param_type& param, array<double, 2>& gamma, error_type& err) {
  return get_array(param, param.gamma, gamma, "get_gamma: gamma",
                   "The gamma array has not yet been specified", err);
}
int32 get_rho(const param_type& param, array<double, 4>& rho, error_type& err) {
  return get_array(param, param.rho, rho, "get_rho: rho",
                   "The rho array has not yet been specified", err);
}
int32 get_beta(const param_type& param, array<double, 3>& beta, error_type& err) {
  return get_array(param, param.beta, beta, "get_beta: beta",
                   "The beta array has not yet been specified", err);
}
int32 get_delta(const param_type& param, array<double, 3>& delta, error_type& err) {
  return get_array(param, param.delta, delta, "get_delta: delta",
                   "The delta array has not yet been specified", err);
}
int32 get_tau(const param_type& param, array<double, 5>& tau, error_type& err) {
  return get_array(param, param.tau, tau, "get_tau: tau",
                   "The tau array has not yet been specified", err);
}
int32 get_big_rho(const param_type& param, array<double, 6>& big_rho, error_type& err) {
  return get_array(param, param.big_rho, big_rho, "get_big_rho: big_rho",
                   "The big_rho array has not yet been specified", err);
}
int32 get_delta_beta(const param_type& param, array<double, 4>& delta_beta, error_type& err) {
  return get_array(param, param.delta_beta, delta_beta, "get_delta_beta: delta_beta",
                   "The delta_beta array has not yet been specified", err);
}
int32 get_tau_beta(const param_type& param, array<double, 6>& tau_beta, error_type& err) {
  return get_array(param, param.tau_beta, tau_beta, "get_tau_beta: tau_beta",
                   "The tau_beta array has not yet been specified", err);
}

}  // namespace tolvenra::param
