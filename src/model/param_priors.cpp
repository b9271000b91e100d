// Priors and their effective sample sizes.
#include <cmath>

#include "model/param_checks.hpp"

namespace tolvenra::param {
namespace {

/// Extents with dimension `along` (from 0) left out: one value per row.
template <std::size_t R>
std::array<int32, R - 1> without(const dims_of<R>& dims, std::size_t along) {
  std::array<int32, R - 1> extents{};
  for (std::size_t k = 0; k + 1 < R; ++k) extents[k] = dims[k < along ? k : k + 1].extent;
  return extents;
}

// One value per row of each family.
std::array<int32, 1> gamma_ess(const param_type& p) { return without(gamma_dims(p), 0); }
std::array<int32, 3> rho_ess(const param_type& p) { return without(rho_dims(p), 2); }
std::array<int32, 2> delta_ess(const param_type& p) { return without(delta_dims(p), 0); }
std::array<int32, 4> tau_ess(const param_type& p) { return without(tau_dims(p), 1); }
std::array<int32, 5> big_rho_ess(const param_type& p) { return without(big_rho_dims(p), 2); }

/// Checks and stores a prior and gives each of its rows the worth of one observation.
template <std::size_t R>
int32 put_prior(const array<double, R>& prior, row_check<R>* check, const param_type& param,
                const std::array<int32, R - 1>& ess_extents, array<double, R>& field,
                array<double, R - 1>& ess_field, bool& set, std::string_view label,
                error_type& err) {
  const routine here = routine_of(label);
  const std::string ess_label = std::string(label) + "_ess";
  row_layout rows;
  array<double, R - 1> ess;
  if (require_dims(param, here, err) != 0 || check(prior, param, rows, here, err) != 0 ||
      fields::allocate(ess, ess_extents, ess_label, here, err) != 0 ||
      store_rows(prior, field, rows, label, err) != 0)
    return -1;
  std::fill(ess.flat.begin(), ess.flat.end(), 1.0);
  ess_field = std::move(ess);
  set = true;
  return 0;
}

/// What is said of effective sample sizes that come too early or cannot be.
struct ess_words {
  std::string_view prior_first, before_ess, contained;
};

template <std::size_t R>
int32 put_ess(const array<double, R>& ess, const std::array<int32, R>& extents, bool prior_set,
              array<double, R>& field, const param_type& param, const ess_words& words,
              std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0) return -1;
  if (ess.n != extents) return fail(err, here, error_code::not_conformable);
  if (!prior_set) return fail(err, here, {text(words.prior_first), text(words.before_ess)});
  const auto all = [&](auto&& good) { return std::all_of(ess.flat.begin(), ess.flat.end(), good); };
  if (!all([](double v) { return v >= 0.0; }))
    return fail(err, here, {text(words.contained), text("negative numbers.")});
  if (!all([](double v) { return std::isfinite(v); }))
    return fail(err, here, {text(words.contained), text("numbers that are not finite.")});
  return store(ess, field, label, err);
}

template <std::size_t R>
int32 get_ess(const param_type& param, const array<double, R>& field, array<double, R>& ess,
              std::string_view absent, std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0) return -1;
  if (!field.allocated)
    return fail(err, here, {text(absent), text("specified in the parameter set provided.")});
  return store(field, ess, label, err);
}

int32 check_stabilizing_ess(double ess, const routine& here, error_type& err) {
  const auto refuse = [&](std::string_view why) {
    return fail(err, here, {text("The ", here.name.substr(4), " ess"), text(why)});
  };
  if (!(ess >= 0.0)) return refuse("was negative.");
  return std::isfinite(ess) ? 0 : refuse("was not a finite number.");
}

template <std::size_t R>
int32 put_stabilizing(const array<double, R>& prior, double ess, row_check<R>* check,
                      const param_type& param, array<double, R>& field, double& ess_field,
                      bool& set, std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  row_layout rows;
  if (require_dims(param, here, err) != 0 || check(prior, param, rows, here, err) != 0 ||
      check_stabilizing_ess(ess, here, err) != 0 || store_rows(prior, field, rows, label, err) != 0)
    return -1;
  ess_field = ess;
  set = true;
  return 0;
}

int32 get_stabilizing_ess(const param_type& param, double field, double& ess, const routine& here,
                          error_type& err) {
  if (!param.dims_set)
    return fail(err, here,
                {text("The method could not be invoked because"),
                 text("the parameter set has not yet been specified.")});
  ess = field;
  return 0;
}

}  // namespace

int32 put_gamma_prior(const array<double, 2>& prior, param_type& param, error_type& err) {
  return put_prior(prior, check_gamma, param, gamma_ess(param), param.gamma_prior,
                   param.gamma_prior_ess, param.gamma_prior_set,
                   "put_gamma_prior: param%gamma_prior", err);
}
int32 put_rho_prior(const array<double, 4>& prior, param_type& param, error_type& err) {
  return put_prior(prior, check_rho, param, rho_ess(param), param.rho_prior, param.rho_prior_ess,
                   param.rho_prior_set, "put_rho_prior: param%rho_prior", err);
}
int32 put_delta_prior(const array<double, 3>& prior, param_type& param, error_type& err) {
  return put_prior(prior, check_delta, param, delta_ess(param), param.delta_prior,
                   param.delta_prior_ess, param.delta_prior_set,
                   "put_delta_prior: param%delta_prior", err);
}
int32 put_tau_prior(const array<double, 5>& prior, param_type& param, error_type& err) {
  return put_prior(prior, check_tau, param, tau_ess(param), param.tau_prior, param.tau_prior_ess,
                   param.tau_prior_set, "put_tau_prior: param%tau_prior", err);
}
int32 put_big_rho_prior(const array<double, 6>& prior, param_type& param, error_type& err) {
  return put_prior(prior, check_big_rho, param, big_rho_ess(param), param.big_rho_prior,
                   param.big_rho_prior_ess, param.big_rho_prior_set,
                   "put_big_rho_prior: param%big_rho_prior", err);
}

int32 get_gamma_prior(const param_type& param, array<double, 2>& prior, error_type& err) {
  return get_array(param, param.gamma_prior, prior, "get_gamma_prior: gamma_prior",
                   "The gamma_prior array has not yet been specified", err);
}
int32 get_rho_prior(const param_type& param, array<double, 4>& prior, error_type& err) {
  return get_array(param, param.rho_prior, prior, "get_rho_prior: rho_prior",
                   "The rho_prior array has not yet been specified", err);
}
int32 get_delta_prior(const param_type& param, array<double, 3>& prior, error_type& err) {
  return get_array(param, param.delta_prior, prior, "get_delta_prior: delta_prior",
                   "The delta_prior array has not yet been specified", err);
}
int32 get_tau_prior(const param_type& param, array<double, 5>& prior, error_type& err) {
  return get_array(param, param.tau_prior, prior, "get_tau_prior: tau_prior",
                   "The tau_prior array has not yet been specified", err);
}
int32 get_big_rho_prior(const param_type& param, array<double, 6>& prior, error_type& err) {
  return get_array(param, param.big_rho_prior, prior, "get_big_rho_prior: big_rho_prior",
                   "The big_rho_prior array has not yet been specified", err);
}

int32 put_gamma_prior_ess(const array<double, 1>& ess, param_type& param, error_type& err) {
  return put_ess(
      ess, gamma_ess(param), param.gamma_prior_set, param.gamma_prior_ess, param,
      {"The gamma_prior array must first be specified", "before specifying gamma_prior_ess.",
       "The gamma_prior_ess array contained one or more"},
      "put_gamma_prior_ess: param%gamma_prior_ess", err);
}
int32 put_rho_prior_ess(const array<double, 3>& ess, param_type& param, error_type& err) {
  return put_ess(ess, rho_ess(param), param.rho_prior_set, param.rho_prior_ess, param,
                 {"The rho_prior array must first be specified", "before specifying rho_prior_ess.",
                  "The rho_prior_ess array contained one or more"},
                 "put_rho_prior_ess: param%rho_prior_ess", err);
}
int32 put_delta_prior_ess(const array<double, 2>& ess, param_type& param, error_type& err) {
  return put_ess(
      ess, delta_ess(param), param.delta_prior_set, param.delta_prior_ess, param,
      {"The delta_prior array must first be specified", "before specifying delta_prior_ess.",
       "The delta_prior_ess array contained one or more"},
      "put_delta_prior_ess: param%delta_prior_ess", err);
}
int32 put_tau_prior_ess(const array<double, 4>& ess, param_type& param, error_type& err) {
  return put_ess(ess, tau_ess(param), param.tau_prior_set, param.tau_prior_ess, param,
                 {"The tau_prior array must first be specified", "before specifying tau_prior_ess.",
                  "The tau_prior_ess array contained one or more"},
                 "put_tau_prior_ess: param%tau_prior_ess", err);
}
int32 put_big_rho_prior_ess(const array<double, 5>& ess, param_type& param, error_type& err) {
  return put_ess(
      ess, big_rho_ess(param), param.big_rho_prior_set, param.big_rho_prior_ess, param,
      {"The big_rho_prior array must first be specified", "before specifying big_rho_prior_ess.",
       "The big_rho_prior_ess array contained one or more"},
      "put_big_rho_prior_ess: param%big_rho_prior_ess", err);
}

int32 get_gamma_prior_ess(const param_type& param, array<double, 1>& ess, error_type& err) {
  return get_ess(param, param.gamma_prior_ess, ess, "The gamma_prior_ess array has not yet been",
                 "get_gamma_prior_ess: gamma_prior_ess", err);
}
int32 get_rho_prior_ess(const param_type& param, array<double, 3>& ess, error_type& err) {
  return get_ess(param, param.rho_prior_ess, ess, "The rho_prior_ess array has not yet been",
                 "get_rho_prior_ess: rho_prior_ess", err);
}
int32 get_delta_prior_ess(const param_type& param, array<double, 2>& ess, error_type& err) {
  return get_ess(param, param.delta_prior_ess, ess, "The delta_prior_ess array has not yet been",
                 "get_delta_prior_ess: delta_prior_ess", err);
}
int32 get_tau_prior_ess(const param_type& param, array<double, 4>& ess, error_type& err) {
  return get_ess(param, param.tau_prior_ess, ess, "The tau_prior_ess array has not yet been",
                 "get_tau_prior_ess: tau_prior_ess", err);
}
int32 get_big_rho_prior_ess(const param_type& param, array<double, 5>& ess, error_type& err) {
  return get_ess(param, param.big_rho_prior_ess, ess,
                 "The big_rho_prior_ess array has not yet been",
                 "get_big_rho_prior_ess: big_rho_prior_ess", err);
}

int32 put_beta_stabilizing_prior(const array<double, 2>& prior, double ess, param_type& param,
                                 error_type& err) {
  return put_stabilizing(prior, ess, check_gamma, param, param.beta_stabilizing_prior,
                         param.beta_stabilizing_prior_ess, param.beta_stabilizing_prior_set,
                         "put_beta_stabilizing_prior: param%beta_stabilizing_prior", err);
}
int32 put_delta_beta_stabilizing_prior(const array<double, 3>& prior, double ess, param_type& param,
                                       error_type& err) {
  return put_stabilizing(
      prior, ess, check_delta, param, param.delta_beta_stabilizing_prior,
      param.delta_beta_stabilizing_prior_ess, param.delta_beta_stabilizing_prior_set,
      "put_delta_beta_stabilizing_prior: param%delta_beta_stabilizing_prior", err);
}
int32 put_tau_beta_stabilizing_prior(const array<double, 5>& prior, double ess, param_type& param,
                                     error_type& err) {
  return put_stabilizing(prior, ess, check_tau, param, param.tau_beta_stabilizing_prior,
                         param.tau_beta_stabilizing_prior_ess, param.tau_beta_stabilizing_prior_set,
                         "put_tau_beta_stabilizing_prior: param%tau_beta_stabilizing_prior", err);
}

int32 get_beta_stabilizing_prior(const param_type& param, array<double, 2>& prior,
                                 error_type& err) {
  return get_array(param, param.beta_stabilizing_prior, prior,
                   "get_beta_stabilizing_prior: beta_stabilizing_prior",
                   "The beta_stabilizing_prior array has not yet been specified", err);
}
int32 get_delta_beta_stabilizing_prior(const param_type& param, array<double, 3>& prior,
                                       error_type& err) {
  return get_array(param, param.delta_beta_stabilizing_prior, prior,
                   "get_delta_beta_stabilizing_prior: delta_beta_stabilizing_prior",
                   "The delta_beta_stabilizing_prior array has not yet been specified", err);
}
int32 get_tau_beta_stabilizing_prior(const param_type& param, array<double, 5>& prior,
                                     error_type& err) {
  return get_array(param, param.tau_beta_stabilizing_prior, prior,
                   "get_tau_beta_stabilizing_prior: tau_beta_stabilizing_prior",
                   "The tau_beta_stabilizing_prior array has not yet been specified", err);
}

int32 get_beta_stabilizing_prior_ess(const param_type& param, double& ess, error_type& err) {
  return get_stabilizing_ess(param, param.beta_stabilizing_prior_ess, ess,
                             {"get_beta_stabilizing_prior_ess", "param"}, err);
}
int32 get_delta_beta_stabilizing_prior_ess(const param_type& param, double& ess, error_type& err) {
  return get_stabilizing_ess(param, param.delta_beta_stabilizing_prior_ess, ess,
                             {"get_delta_beta_stabilizing_prior_ess", "param"}, err);
}
int32 get_tau_beta_stabilizing_prior_ess(const param_type& param, double& ess, error_type& err) {
  return get_stabilizing_ess(param, param.tau_beta_stabilizing_prior_ess, ess,
                             {"get_tau_beta_stabilizing_prior_ess", "param"}, err);
}

}  // namespace tolvenra::param
