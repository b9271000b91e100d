#include <algorithm>
#include <limits>
#include <utility>

#include "api/host_arrays.hpp"
#include "api/lta_run.hpp"

namespace tolvenra::api {
namespace {

using namespace dynamic_allocation;

int32 check_addresses(lta_run& run) {
  const missing_address missing = first_missing(run.call);
  if (missing.position == 0) return 0;
  return refuse(run, {text("A required argument is missing (NULL address):"),
                      text("position ", missing.position, " (", missing.name, ")")});
}

int32 refuse_count(lta_run& run, std::string_view what, int32 value) {
  return refuse(run, {text("The number of ", what, " specified was ", value),
                      text("There must be at least 1.")});
}

int32 check_sizes(lta_run& run) {
  const lta_call& call = run.call;
  if (call.nkase < 1) return refuse_count(run, "cases", call.nkase);
  if (call.ni < 1) return refuse_count(run, "status items", call.ni);
  if (call.nt < 1) return refuse_count(run, "times", call.nt);
  const int32 largest = *std::max_element(call.nrs, call.nrs + call.ni);
  if (call.nrsmax != largest)
    return refuse(run, {text("The extent of the category dimension specified was ", call.nrsmax),
                        text("It must be equal to the largest element of nrs, ", largest)});
  const int64 columns =
      std::max<int64>(call.ncov_delta, 0) + std::max<int64>(call.ncov_tau, 0) * (call.nt - 1);
  if (beyond_memory({call.ni, call.ns, call.nrsmax, call.nt, call.nstr}, sizeof(double)) ||
      beyond_memory({call.ns, call.ns, call.nt, call.nstr, call.ncov_tau}, sizeof(double)) ||
      beyond_memory({call.nkase, call.ni, call.nt}, sizeof(int32)) ||
      int64{call.ni} * call.nt > std::numeric_limits<int32>::max() ||
      columns > std::numeric_limits<int32>::max())
    return refuse(run, {text("The dimensions specified are beyond what memory can hold.")});
  return 0;
}

int32 put_covariates(lta_run& run) {
  const lta_call& call = run.call;
  array<double, 2> cov2;
  if (dataset::put_ncov_delta(call.ncov_delta, run.dataset, run.err) != 0 ||
      dataset::put_ncov_tau(call.ncov_tau, run.dataset, run.err) != 0)
    return -1;
  const int32 columns = call.ncov_delta + call.ncov_tau * (call.nt - 1);
  if (columns <= 0) return 0;
  if (make_work_array("runlta: cov2", run, [&] {
        cov2 = copy_in<double, 2>(call.cov, {call.nkase, columns});
      }) != 0)
    return -1;
  return dataset::put_cov(std::move(cov2), run.dataset, run.err);
}

}  // namespace

int32 check_lta_boundary(lta_run& run) { return check_addresses(run) != 0 ? -1 : check_sizes(run); }

void enter_lta(const lta_run& run) {
  set_logical(run.call.converged, false);
  set_cell(run.call.iterations, -1);
  run.message.begin();
  if (run.call.run_info) std::fill_n(run.call.run_info, TOLVENRA_RUN_INFO_SIZE, 0);
}

int32 load_data(lta_run& run) {
  const lta_call& call = run.call;
  dataset_type& data = run.dataset;
  error_type& err = run.err;
  using namespace dataset;
  if (put_nt(call.nt, data, err) != 0 ||
      put_nrs(copy_in<int32, 1>(call.nrs, {call.ni}), data, err) != 0 ||
      put_y(copy_in<int32, 2>(call.y, {call.nkase, call.ni * call.nt}), data, err) != 0 ||
      put_nstr(call.nstr, data, err) != 0)
    return -1;
  if (call.freq_given && put_freq(copy_in<double, 1>(call.freq, {call.nkase}), data, err) != 0)
    return -1;
  if (call.strata_given && put_strata(copy_in<int32, 1>(call.strata, {call.nkase}), data, err) != 0)
    return -1;
  if ((call.ncov_delta != 0 || call.ncov_tau != 0) && put_covariates(run) != 0) return -1;
  if (refuse_empty_strata(run, call.strata_given != 0) != 0 ||
      refuse_empty_items(run, data.nrs) != 0)
    return -1;
  estimation::rows_of(data);  // once, before the starts share it
  return 0;
}

namespace {

int32 put_sizes(lta_run& run) {
  const lta_call& call = run.call;
  array<int32, 1> dims;
  if (int1_alloc(dims, 9 + call.ni, run.err, {}, "runlta: dims") != 0) return -1;
  const std::array<int32, 9> sizes{0,         call.ni, call.nt, 0, call.ncov_delta, call.ncov_tau,
                                   call.nstr, 1,       call.ns};
  std::copy(sizes.begin(), sizes.end(), dims.flat.begin());
  std::copy_n(call.nrs, call.ni, dims.flat.begin() + 9);
  return param::put_dims(dims, run.param, run.err);
}

/// References, or the compared statuses of binary regressions.
int32 put_regression_options(lta_run& run) {
  const lta_call& call = run.call;
  if (call.ncov_delta > 0) {
    const int32 baseline = call.baseline_delta ? *call.baseline_delta : 1;
    if (param::put_baseline_delta(baseline, run.param, run.err) != 0) return -1;
    if (call.binary_delta_wanted &&
        param::put_binary_delta(*call.binary_delta, run.param, run.err) != 0)
      return -1;
  }
  if (call.ncov_tau <= 0) return 0;
  const std::array<int32, 2> shape{call.ns, call.nt - 1};
  if (call.binary_tau_wanted)
    return param::put_binary_tau(copy_in<int32, 2>(call.binary_tau, shape), run.param, run.err);
  if (!call.baseline_tau) return 0;
  return param::put_baseline_tau(copy_in<int32, 2>(call.baseline_tau, shape), run.param, run.err);
}

/// Copies a host array into a work array and hands it to its put routine; nothing when NULL.
template <std::size_t R>
int32 put_values(lta_run& run, std::string_view label, const double* from,
                 const std::array<int32, R>& shape,
                 int32 (*put)(const array<double, R>&, param_type&, error_type&)) {
  if (!from) return 0;
  array<double, R> values;
  if (make_work_array(label, run, [&] { values = copy_in<double, R>(from, shape); }) != 0)
    return -1;
  return put(values, run.param, run.err);
}

template <std::size_t R>
int32 put_codes(lta_run& run, const std::int32_t* from, const std::array<int32, R>& shape,
                int32 (*put)(const array<int32, R>&, param_type&, error_type&)) {
  return from ? put(copy_in<int32, R>(from, shape), run.param, run.err) : 0;
}

int32 put_probabilities(lta_run& run) {
  const lta_call& call = run.call;
  const int32 moves = call.nt - 1;
  if (put_values<3>(run, "runlta: delta_a", call.delta, {call.ns, 1, call.nstr},
                    param::put_delta) != 0 ||
      put_values<5>(run, "runlta: tau_a", call.tau, {call.ns, call.ns, moves, 1, call.nstr},
                    param::put_tau) != 0)
    return -1;
  const std::array<int32, 6> shape{call.ni, call.ns, call.nrsmax, call.nt, 1, call.nstr};
  if (call.big_rho && make_work_array("runlta: rho_a", run, [&] {
                        run.given_big_rho = copy_in<double, 6>(call.big_rho, shape);
                      }) != 0)
    return -1;
  if (!call.random_starts && param::put_big_rho(run.given_big_rho, run.param, run.err) != 0)
    return -1;
  if (call.ncov_delta > 0 &&
      put_values<4>(run, "runlta: delta_beta_a", call.delta_beta,
                    {call.ncov_delta + 1, call.ns, 1, call.nstr}, param::put_delta_beta) != 0)
    return -1;
  if (call.ncov_tau <= 0) return 0;
  return put_values<6>(run, "runlta: tau_beta_a", call.tau_beta,
                       {call.ncov_tau + 1, call.ns, call.ns, moves, 1, call.nstr},
                       param::put_tau_beta);
}

int32 put_restrictions(lta_run& run) {
  const lta_call& call = run.call;
  const int32 moves = call.nt - 1;
  const std::array<int32, 6> shape{call.ni, call.ns, call.nrsmax, call.nt, 1, call.nstr};
  if (put_codes<3>(run, call.delta_restrictions, {call.ns, 1, call.nstr},
                   param::put_delta_restrictions) != 0 ||
      put_codes<5>(run, call.tau_restrictions, {call.ns, call.ns, moves, 1, call.nstr},
                   param::put_tau_restrictions) != 0 ||
      put_codes<6>(run, call.big_rho_restrictions, shape, param::put_big_rho_restrictions) != 0)
    return -1;
  array<int32, 6> codes = run.param.big_rho_restrictions;
  free_padding(codes.flat, param::big_rho_rows(run.param));
  if (!call.big_rho && std::find(codes.flat.begin(), codes.flat.end(), 0) != codes.flat.end())
    return refuse(run, {text("A required argument is missing (NULL address):"),
                        text("position 27 (big_rho)")});
  return 0;
}

}  // namespace

int32 load_model(lta_run& run) {
  const lta_call& call = run.call;
  param_type& set = run.param;
  error_type& err = run.err;
  if (model::put_ns(call.ns, run.model, err) != 0 || put_sizes(run) != 0 ||
      param::put_big_rho_equal_across_strata(call.big_rho_equal_strata != 0, set, err) != 0 ||
      param::put_big_rho_equal_across_time(call.big_rho_equal_time != 0, set, err) != 0)
    return -1;
  if (call.ns < 1)
    return refuse(run, {text("The number of latent statuses specified was ", call.ns),
                        text("A run needs at least 1.")});
  if (put_regression_options(run) != 0 || put_probabilities(run) != 0) return -1;
  return put_restrictions(run);
}

}  // namespace tolvenra::api
