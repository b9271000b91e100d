// Options: what is equal across strata, times or classes; baselines and binary regressions.
#include "model/param_checks.hpp"

namespace tolvenra::param {
namespace {

int32 put_equal_across(bool equal, bool responses_present, std::string_view absent, bool& field,
                       const param_type& param, const routine& here, error_type& err) {
  if (require_dims(param, here, err) != 0) return -1;
  if (!responses_present) return refuse_absent(absent, here, err);
  field = equal;
  return 0;
}

int32 check_choice(int32 choice, std::string_view said, int32 limit, const param_type& param,
                   const routine& here, error_type& err) {
  if (require_dims(param, here, err) != 0) return -1;
  if (choice >= 1 && choice <= limit) return 0;
  return fail(err, here, {text(said, choice, " The allowable range is 1 to ", limit)});
}

/// Storing the baseline that is in force already leaves a binary regression binary.
void keep_baseline(int32 choice, int32& baseline, bool& binary_regression) {
  if (choice == baseline) return;
  baseline = choice;
  binary_regression = false;
}

/// One status per origin and transition.
int32 put_statuses(const array<int32, 2>& from, std::string_view dimension1,
                   std::string_view dimension2, array<int32, 2>& field, const param_type& param,
                   std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  const auto dims = baseline_tau_dims(param);
  if (require_dims(param, here, err) != 0 ||
      check_extent(from.n[0], dims[0], here, err, dimension1) != 0 ||
      check_extent(from.n[1], dims[1], here, err, dimension2) != 0)
    return -1;
  const auto range = fields::range_of(from.flat);
  if (from.size() > 0 && range.smallest < 1)
    return fail(err, here,
                {text("The minimum value in the array specified was ", range.smallest),
                 text("The allowable minimum is 1.")});
  if (range.largest > param.ns)
    return fail(err, here,
                {text("The maximum value in the array specified was ", range.largest),
                 text("The allowable maximum is ", param.ns)});
  return store(from, field, label, err);
}

int32 get_statuses(const param_type& param, const array<int32, 2>& field, array<int32, 2>& to,
                   std::string_view absent, std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0) return -1;
  if (!field.allocated) return fail(err, here, {text(absent), text("in the model provided.")});
  return store(field, to, label, err);
}

}  // namespace

int32 put_rho_equal_across_strata(bool equal, param_type& param, error_type& err) {
  return put_equal_across(equal, param.rho.allocated, "The rho array has not yet been specified",
                          param.rho_equal_across_strata, param,
                          {"put_rho_equal_across_strata", "param"}, err);
}
int32 put_big_rho_equal_across_strata(bool equal, param_type& param, error_type& err) {
  return put_equal_across(
      equal, param.big_rho.allocated, "The big_rho array has not yet been specified",
      param.big_rho_equal_across_strata, param, {"put_big_rho_equal_across_strata", "param"}, err);
}
int32 put_big_rho_equal_across_time(bool equal, param_type& param, error_type& err) {
  return put_equal_across(
      equal, param.big_rho.allocated, "The big_rho array has not yet been specified",
      param.big_rho_equal_across_time, param, {"put_big_rho_equal_across_time", "param"}, err);
}
int32 put_big_rho_equal_across_class(bool equal, param_type& param, error_type& err) {
  return put_equal_across(
      equal, param.big_rho.allocated, "The big_rho array has not yet been specified",
      param.big_rho_equal_across_class, param, {"put_big_rho_equal_across_class", "param"}, err);
}

int32 put_baseline_gamma(int32 baseline_gamma, param_type& param, error_type& err) {
  if (check_choice(baseline_gamma, "The baseline class specified was ", param.nc, param,
                   {"put_baseline_gamma", "param"}, err) != 0)
    return -1;
  keep_baseline(baseline_gamma, param.baseline_gamma, param.gamma_binary_regression);
  return 0;
}
int32 put_baseline_delta(int32 baseline_delta, param_type& param, error_type& err) {
  if (check_choice(baseline_delta, "The baseline status specified was ", param.ns, param,
                   {"put_baseline_delta", "param"}, err) != 0)
    return -1;
  keep_baseline(baseline_delta, param.baseline_delta, param.delta_binary_regression);
  return 0;
}

int32 put_binary_gamma(int32 binary_gamma, param_type& param, error_type& err) {
  if (check_choice(binary_gamma, "The comparison class specified was ", param.nc, param,
                   {"put_binary_gamma", "param"}, err) != 0)
    return -1;
  param.binary_gamma = binary_gamma;
  param.gamma_binary_regression = true;
  return 0;
}
int32 put_binary_delta(int32 binary_delta, param_type& param, error_type& err) {
  if (check_choice(binary_delta, "The comparison status specified was ", param.ns, param,
                   {"put_binary_delta", "param"}, err) != 0)
    return -1;
  param.binary_delta = binary_delta;
  param.delta_binary_regression = true;
  return 0;
}

int32 put_baseline_tau(const array<int32, 2>& baseline_tau, param_type& param, error_type& err) {
  if (put_statuses(baseline_tau, "Dimension 1 of the baseline_tau array is ",
                   "Dimension 2 of the baseline_tau array is ", param.baseline_tau, param,
                   "put_baseline_tau: param%baseline_tau", err) != 0)
    return -1;
  param.tau_binary_regression = false;
  return 0;
}
int32 put_binary_tau(const array<int32, 2>& binary_tau, param_type& param, error_type& err) {
  if (put_statuses(binary_tau, "Dimension 1 of the binary_tau array is ",
                   "Dimension 2 of the binary_tau array is ", param.binary_tau, param,
                   "put_binary_tau: param%binary_tau", err) != 0)
    return -1;
  param.tau_binary_regression = true;
  return 0;
}

int32 get_baseline_tau(const param_type& param, array<int32, 2>& baseline_tau, error_type& err) {
  return get_statuses(param, param.baseline_tau, baseline_tau,
                      "The baseline_tau array has not yet been specified",
                      "get_baseline_tau: baseline_tau", err);
}
int32 get_binary_tau(const param_type& param, array<int32, 2>& binary_tau, error_type& err) {
  return get_statuses(param, param.binary_tau, binary_tau,
                      "The binary_tau array has not yet been specified",
                      "get_binary_tau: binary_tau", err);
}

}  // namespace tolvenra::param
