#include "api/status_stabilising.hpp"

#include <algorithm>

#include "core/dynamic_allocation.hpp"
#include "model/label_exchange.hpp"
#include "numerics/assignment.hpp"

namespace tolvenra::api {
namespace {

/// Adds the squared distances between the statuses of two sets at one time.
void add_distances(const param_type& a, const param_type& b, int32 t, int32 g,
                   array<double, 2>& cost) {
  for (int32 s = 1; s <= a.ns; ++s)
    for (int32 other = 1; other <= a.ns; ++other)
      for (int32 i = 1; i <= a.ni; ++i)
        for (int32 r = 1; r <= a.nrs(i); ++r) {
          const double difference = a.big_rho(i, s, r, t, 1, g) - b.big_rho(i, other, r, t, 1, g);
          cost(s, other) += difference * difference;
        }
}

/// The first time, or stratum, that has the labels of this one.
int32 leading(int32 index, bool equal) { return equal ? 1 : index; }

}  // namespace

int32 drop_status_covariates(const dataset_type& dataset, const param_type& param,
                             stabilising_model& plain, error_type& err) {
  plain.dataset = dataset;
  if (dataset::put_ncov_delta(0, plain.dataset, err) != 0 ||
      dataset::put_ncov_tau(0, plain.dataset, err) != 0)
    return -1;
  estimation::rows_of(plain.dataset);
  array<int32, 1> dims;
  if (param::get_dims(param, dims, err) != 0) return -1;
  dims(5) = dims(6) = 0;
  param_type& own = plain.param;
  using namespace param;
  if (put_dims(dims, own, err) != 0 ||
      put_big_rho_equal_across_strata(param.big_rho_equal_across_strata, own, err) != 0 ||
      put_big_rho_equal_across_time(param.big_rho_equal_across_time, own, err) != 0 ||
      put_delta_restrictions(param.delta_restrictions, own, err) != 0 ||
      put_tau_restrictions(param.tau_restrictions, own, err) != 0 ||
      put_big_rho_restrictions(param.big_rho_restrictions, own, err) != 0 ||
      put_delta(param.delta, own, err) != 0 || put_tau(param.tau, own, err) != 0)
    return -1;
  return put_big_rho(param.big_rho, own, err);
}

int32 put_status_priors(const param_type& plain, const array<int32, 3>& status_of, double strength,
                        param_type& param, error_type& err) {
  if (!(strength > 0.0)) return 0;
  array<double, 3> delta;
  array<double, 5> tau;
  if (allocation::allocate_under("runlta: delta_a", {"runlta", ""}, err,
                                 [&] { delta = plain.delta; }) != 0 ||
      allocation::allocate_under("runlta: tau_a", {"runlta", ""}, err, [&] { tau = plain.tau; }) !=
          0)
    return -1;
  for (int32 g = 1; g <= param.nstr; ++g)
    for (int32 s = 1; s <= param.ns; ++s) {
      delta(s, 1, g) = plain.delta(status_of(s, 1, g), 1, g);
      for (int32 k = 1; k < param.nt; ++k)
        for (int32 d = 1; d <= param.ns; ++d)
          tau(s, d, k, 1, g) = plain.tau(status_of(s, k, g), status_of(d, k + 1, g), k, 1, g);
    }
  if (param.ncov_delta > 0 &&
      param::put_delta_beta_stabilizing_prior(delta, strength, param, err) != 0)
    return -1;
  if (param.ncov_tau > 0 && param.nt > 1)
    return param::put_tau_beta_stabilizing_prior(tau, strength, param, err);
  return 0;
}

array<int32, 3> match_status_labels(const param_type& start, const param_type& plain) {
  array<int32, 3> status_of;
  status_of.allocate({start.ns, start.nt, start.nstr});
  const bool one_time = start.big_rho_equal_across_time;
  const bool one_stratum = start.big_rho_equal_across_strata;
  for (int32 g = 1; g <= start.nstr; ++g)
    for (int32 t = 1; t <= start.nt; ++t) {
      const int32 from_t = leading(t, one_time);
      const int32 from_g = leading(g, one_stratum);
      if (from_t != t || from_g != g) {
        std::copy_n(status_of.column(from_t, from_g), start.ns, status_of.column(t, g));
        continue;
      }
      array<double, 2> cost;
      cost.allocate({start.ns, start.ns});
      add_distances(start, plain, t, g, cost);
      const auto columns = assignment::least_cost(cost);
      std::copy(columns.begin(), columns.end(), status_of.column(t, g));
    }
  return status_of;
}

array<int32, 3> own_status_labels(const param_type& param) {
  array<int32, 3> status_of;
  status_of.allocate({param.ns, param.nt, param.nstr});
  for (int32 g = 1; g <= param.nstr; ++g)
    for (int32 t = 1; t <= param.nt; ++t)
      for (int32 s = 1; s <= param.ns; ++s) status_of(s, t, g) = s;
  return status_of;
}

bool statuses_are_labelled(const param_type& param, const array<double, 6>* fixed_big_rho) {
  array<int32, 6> of_big_rho = param.big_rho_restrictions;
  free_padding(of_big_rho.flat, param::big_rho_rows(param));
  const array<double, 6>& big_rho = fixed_big_rho ? *fixed_big_rho : param.big_rho;
  return !labels_exchangeable(param.delta_restrictions, param.delta, {0}) ||
         !labels_exchangeable(param.tau_restrictions, param.tau, {0, 1}) ||
         !labels_exchangeable(of_big_rho, big_rho, {1});
}

}  // namespace tolvenra::api
