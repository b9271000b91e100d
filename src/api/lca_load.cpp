#include <algorithm>
#include <utility>

#include "api/fixed_values.hpp"
#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"
#include "core/dynamic_allocation.hpp"

namespace tolvenra::api {
namespace {

using namespace dynamic_allocation;

int32 put_covariates(lca_run& run) {
  const lca_call& call = run.call;
  array<double, 2> cov2;
  if (dataset::put_ncov(call.ncov, run.dataset, run.err) != 0 ||
      make_work_array("runlca: cov2", run, [&] {
        cov2 = copy_in<double, 2>(call.cov, {call.nkase, call.ncov});
      }) != 0)
    return -1;
  return dataset::put_cov(std::move(cov2), run.dataset, run.err);
}

}  // namespace

int32 load_data(lca_run& run) {
  const lca_call& call = run.call;
  dataset_type& data = run.dataset;
  error_type& err = run.err;
  using namespace dataset;
  if (put_nt(1, data, err) != 0 ||
      put_nrc(copy_in<int32, 1>(call.nrc, {call.nci}), data, err) != 0 ||
      put_nstr(call.nstr, data, err) != 0 ||
      put_y(copy_in<int32, 2>(call.y, {call.nkase, call.nci}), data, err) != 0)
    return -1;
  const auto by_case = [&](const double* values) {
    return copy_in<double, 1>(values, {call.nkase});
  };
  if (call.freq_given && put_freq(by_case(call.freq), data, err) != 0) return -1;
  if (call.weight_given && put_weight(by_case(call.weight), data, err) != 0) return -1;
  if (call.clusters &&
      put_cluster_information(copy_in<int32, 1>(call.clusters, {call.nkase}), data, err) != 0)
    return -1;
  if (call.strata_given && put_strata(copy_in<int32, 1>(call.strata, {call.nkase}), data, err) != 0)
    return -1;
  if (call.ncov != 0 && put_covariates(run) != 0) return -1;
  if (refuse_empty_strata(run, call.strata_given != 0) != 0 ||
      refuse_empty_items(run, data.nrc) != 0)
    return -1;
  estimation::rows_of(data);  // once, before the starts share it
  return 0;
}

namespace {

int32 put_sizes(lca_run& run) {
  const lca_call& call = run.call;
  array<int32, 1> dims;
  if (int1_alloc(dims, 9 + call.nci, run.err, {}, "runlca: dims") != 0) return -1;
  const std::array<int32, 9> sizes{call.nci, 0, 1, call.ncov, 0, 0, call.nstr, call.nc, 1};
  std::copy(sizes.begin(), sizes.end(), dims.flat.begin());
  std::copy_n(call.nrc, call.nci, dims.flat.begin() + 9);
  return param::put_dims(dims, run.param, run.err);
}

bool holds_fixed_rho(const param_type& param) {
  array<int32, 4> codes = param.rho_restrictions;
  free_padding(codes.flat, param::rho_rows(param));
  return std::find(codes.flat.begin(), codes.flat.end(), 0) != codes.flat.end();
}

int32 put_restrictions(lca_run& run) {
  const lca_call& call = run.call;
  if (call.gamma_restrictions &&
      param::put_gamma_restrictions(
          copy_in<int32, 2>(call.gamma_restrictions, {call.nc, call.nstr}), run.param, run.err) !=
          0)
    return -1;
  const std::array<int32, 4> shape{call.nci, call.nc, call.nrcmax, call.nstr};
  if (call.rho_restrictions &&
      param::put_rho_restrictions(copy_in<int32, 4>(call.rho_restrictions, shape), run.param,
                                  run.err) != 0)
    return -1;
  const bool fixed = holds_fixed_rho(run.param);
  if (fixed && !call.rho)
    return refuse(
        run, {text("A required argument is missing (NULL address):"), text("position 23 (rho)")});
  if (!fixed && !call.start_given) return 0;
  return make_work_array("runlca: rho_temp", run,
                         [&] { run.given_rho = copy_in<double, 4>(call.rho, shape); });
}

/// Reference class, or the class of a binary regression.
int32 put_regression_options(lca_run& run) {
  const lca_call& call = run.call;
  if (call.ncov == 0) return 0;
  const int32 baseline = call.baseline_gamma ? *call.baseline_gamma : 1;
  if (param::put_baseline_gamma(baseline, run.param, run.err) != 0) return -1;
  return call.binary_wanted ? param::put_binary_gamma(*call.binary_gamma, run.param, run.err) : 0;
}

/// The host's gamma; where only its fixed cells are read, the other classes share the rest equally.
int32 put_gamma_start(lca_run& run) {
  const lca_call& call = run.call;
  if (!call.gamma) return 0;
  array<double, 2> gamma_temp;
  if (make_work_array("runlca: gamma_temp", run, [&] {
        gamma_temp = copy_in<double, 2>(call.gamma, {call.nc, call.nstr});
        if (call.start_given) return;
        array<double, 2> uniform = run.param.gamma;
        keep_fixed_values(gamma_temp.flat, run.param.gamma_restrictions.flat,
                          param::gamma_rows(run.param), uniform.flat);
        gamma_temp = std::move(uniform);
      }) != 0)
    return -1;
  return param::put_gamma(gamma_temp, run.param, run.err);
}

/// Starting values of the host.
int32 put_start_values(lca_run& run) {
  const lca_call& call = run.call;
  if (put_gamma_start(run) != 0) return -1;
  if (!call.start_given) return 0;
  array<double, 3> beta_temp;
  if (call.beta && call.ncov > 0 &&
      (make_work_array(
           "runlca: beta_temp", run,
           [&] {
             beta_temp = copy_in<double, 3>(call.beta, {call.ncov + 1, call.nc, call.nstr});
           }) != 0 ||
       param::put_beta(beta_temp, run.param, run.err) != 0))
    return -1;
  return param::put_rho(run.given_rho, run.param, run.err);
}

/// Observed proportions of an item's categories, over the cases that answered it.
std::vector<double> observed_proportions(const distinct_rows& rows, int32 item, int32 categories) {
  std::vector<double> p(static_cast<std::size_t>(categories), 0.0);
  double total = 0.0;
  for (int32 row = 1; row <= rows.nrow; ++row) {
    const double weight = rows.weight[static_cast<std::size_t>(row - 1)];
    const int32 r = rows.response(row, item);
    if (r == 0) continue;
    p[static_cast<std::size_t>(r - 1)] += weight;
    total += weight;
  }
  for (double& share : p) share = total > 0.0 ? share / total : 1.0 / categories;
  return p;
}

/// A prior that knows no labels: every class expects the proportions of the whole sample.
int32 put_rho_prior(lca_run& run) {
  const lca_call& call = run.call;
  array<double, 4> prior;
  array<double, 3> ess;
  prior.allocate({call.nci, call.nc, call.nrcmax, call.nstr});
  ess.allocate({call.nci, call.nc, call.nstr}, call.rho_prior_strength);
  for (int32 j = 1; j <= call.nci; ++j) {
    const auto p = observed_proportions(*run.dataset.rows, j, run.param.nrc(j));
    for (int32 g = 1; g <= call.nstr; ++g)
      for (int32 c = 1; c <= call.nc; ++c)
        for (int32 r = 1; r <= run.param.nrc(j); ++r)
          prior(j, c, r, g) = p[static_cast<std::size_t>(r - 1)];
  }
  if (param::put_rho_prior(prior, run.param, run.err) != 0) return -1;
  return param::put_rho_prior_ess(ess, run.param, run.err);
}

int32 put_gamma_prior(lca_run& run) {
  const lca_call& call = run.call;
  array<double, 2> prior;
  array<double, 1> ess;
  prior.allocate({call.nc, call.nstr}, 1.0 / call.nc);
  ess.allocate({call.nstr}, call.gamma_prior_strength);
  if (param::put_gamma_prior(prior, run.param, run.err) != 0) return -1;
  return param::put_gamma_prior_ess(ess, run.param, run.err);
}

}  // namespace

int32 load_model(lca_run& run) {
  const lca_call& call = run.call;
  if (model::put_nc(call.nc, run.model, run.err) != 0 || put_sizes(run) != 0 ||
      param::put_rho_equal_across_strata(call.rho_equal_strata != 0, run.param, run.err) != 0)
    return -1;
  if (call.nc < 1)
    return refuse(run, {text("The number of latent classes specified was ", call.nc),
                        text("A run needs at least 1.")});
  if (put_regression_options(run) != 0 || put_restrictions(run) != 0 || put_start_values(run) != 0)
    return -1;
  if (call.ncov > 0) return 0;  // the priors come from the stabilising run
  if (call.rho_prior_strength > 0.0 && put_rho_prior(run) != 0) return -1;
  return call.gamma_prior_strength > 0.0 ? put_gamma_prior(run) : 0;
}

}  // namespace tolvenra::api
