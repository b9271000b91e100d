#include "api/stabilising.hpp"

#include <algorithm>

#include "core/dynamic_allocation.hpp"
#include "model/label_exchange.hpp"
#include "numerics/assignment.hpp"

namespace tolvenra::api {
namespace {

double squared_distance(const param_type& a, int32 class_a, const param_type& b, int32 class_b,
                        int32 g) {
  double sum = 0.0;
  for (int32 j = 1; j <= a.nci; ++j)
    for (int32 r = 1; r <= a.nrc(j); ++r) {
      const double difference = a.rho(j, class_a, r, g) - b.rho(j, class_b, r, g);
      sum += difference * difference;
    }
  return sum;
}

/// Class shares and response probabilities under other labels.
struct relabelled {
  array<double, 2> gamma;
  array<double, 4> rho;
};

relabelled relabel(const param_type& plain, const array<int32, 2>& class_of) {
  relabelled own{plain.gamma, plain.rho};
  for (int32 g = 1; g <= plain.nstr; ++g)
    for (int32 c = 1; c <= plain.nc; ++c) {
      const int32 other = class_of(c, g);
      own.gamma(c, g) = plain.gamma(other, g);
      for (int32 r = 1; r <= plain.nrcmax; ++r)
        for (int32 j = 1; j <= plain.nci; ++j) own.rho(j, c, r, g) = plain.rho(j, other, r, g);
    }
  return own;
}

}  // namespace

int32 drop_covariates(const dataset_type& dataset, const param_type& param,
                      stabilising_model& plain, error_type& err) {
  plain.dataset = dataset;
  if (dataset::put_ncov(0, plain.dataset, err) != 0) return -1;
  estimation::rows_of(plain.dataset);
  array<int32, 1> dims;
  if (param::get_dims(param, dims, err) != 0) return -1;
  dims(4) = 0;
  if (param::put_dims(dims, plain.param, err) != 0 ||
      param::put_rho_equal_across_strata(param.rho_equal_across_strata, plain.param, err) != 0 ||
      param::put_gamma_restrictions(param.gamma_restrictions, plain.param, err) != 0 ||
      param::put_rho_restrictions(param.rho_restrictions, plain.param, err) != 0 ||
      param::put_gamma(param.gamma, plain.param, err) != 0)
    return -1;
  return param::put_rho(param.rho, plain.param, err);
}

int32 put_stabilising_priors(const param_type& plain, const array<int32, 2>& class_of,
                             const prior_strengths& strengths, param_type& param, error_type& err) {
  relabelled prior;
  if (allocation::allocate_under("runlca: stabilizing_prior", {"runlca", ""}, err,
                                 [&] { prior = relabel(plain, class_of); }) != 0)
    return -1;
  array<double, 3> rho_ess;
  array<double, 1> gamma_ess;
  if (allocation::allocate_under("runlca: prior_ess", {"runlca", ""}, err, [&] {
        rho_ess.allocate({param.nci, param.nc, param.nstr}, strengths.rho);
        gamma_ess.allocate({param.nstr}, strengths.gamma);
      }) != 0)
    return -1;
  if (strengths.rho > 0.0 && (param::put_rho_prior(prior.rho, param, err) != 0 ||
                              param::put_rho_prior_ess(rho_ess, param, err) != 0))
    return -1;
  if (strengths.gamma > 0.0 && (param::put_gamma_prior(prior.gamma, param, err) != 0 ||
                                param::put_gamma_prior_ess(gamma_ess, param, err) != 0))
    return -1;
  if (!(strengths.beta > 0.0)) return 0;
  return param::put_beta_stabilizing_prior(prior.gamma, strengths.beta, param, err);
}

void raise_rows(const row_layout& rows, const std::vector<int32>& codes,
                std::vector<double>& prior) {
  for (int32 m = 0; m < rows.nrows; ++m) {
    std::vector<double> own;
    std::vector<bool> absent;
    const auto place = [&](std::size_t r) {
      return static_cast<std::size_t>(rows.base(m)) + r * static_cast<std::size_t>(rows.step);
    };
    const auto length = static_cast<std::size_t>(rows.length[static_cast<std::size_t>(m)]);
    for (std::size_t r = 0; r < length; ++r) {
      own.push_back(prior[place(r)]);
      absent.push_back(codes[place(r)] == 0);
    }
    own = estimation::compute_stabilizing_prior(std::move(own), absent);
    for (std::size_t r = 0; r < length; ++r) prior[place(r)] = own[r];
  }
}

array<int32, 2> match_labels(const param_type& start, const param_type& plain) {
  array<int32, 2> class_of;
  class_of.allocate({start.nc, start.nstr});
  for (int32 g = 1; g <= start.nstr; ++g) {
    if (g > 1 && start.rho_equal_across_strata) {
      for (int32 c = 1; c <= start.nc; ++c) class_of(c, g) = class_of(c, 1);
      continue;
    }
    array<double, 2> cost;
    cost.allocate({start.nc, start.nc});
    for (int32 c = 1; c <= start.nc; ++c)
      for (int32 other = 1; other <= start.nc; ++other)
        cost(c, other) = squared_distance(start, c, plain, other, g);
    const auto columns = assignment::least_cost(cost);
    std::copy(columns.begin(), columns.end(), class_of.column(g));
  }
  return class_of;
}

array<int32, 2> own_labels(const param_type& param) {
  array<int32, 2> class_of;
  class_of.allocate({param.nc, param.nstr});
  for (int32 g = 1; g <= param.nstr; ++g)
    for (int32 c = 1; c <= param.nc; ++c) class_of(c, g) = c;
  return class_of;
}

bool classes_are_labelled(const param_type& param, const array<double, 4>* fixed_rho) {
  array<int32, 4> of_rho = param.rho_restrictions;
  free_padding(of_rho.flat, param::rho_rows(param));
  return !labels_exchangeable(param.gamma_restrictions, param.gamma, {0}) ||
         !labels_exchangeable(of_rho, fixed_rho ? *fixed_rho : param.rho, {1});
}

}  // namespace tolvenra::api
