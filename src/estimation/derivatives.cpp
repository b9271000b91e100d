#include "estimation/derivatives.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "core/dynamic_allocation.hpp"
#include "estimation/score_sums.hpp"
#include "numerics/matrix_checks.hpp"

namespace tolvenra::estimation {
namespace {

using matrix_methods::all_finite;

/// Adds factor * v v'.
void add_outer(const array<double, 1>& v, double factor, array<double, 2>& matrix) {
  for (int32 j = 1; j <= v.n[0]; ++j)
    for (int32 i = 1; i <= v.n[0]; ++i) matrix(i, j) += factor * v(i) * v(j);
}

/// Adds the products of a stratum's scores, of which the lower triangle is known.
void add_stratum(const free_parameters& map, int32 g, const stratum_sums& sums,
                 const std::vector<double>& products, array<double, 2>& matrix) {
  const std::size_t n = map.in_stratum();
  for (std::size_t j = 0; j < n; ++j) {
    const logit_place& column = map.place[map.at(g, j)];
    for (std::size_t i = 0; i < n && column.free >= 0; ++i) {
      const logit_place& row = map.place[map.at(g, i)];
      if (row.free >= 0)
        matrix(row.free + 1, column.free + 1) +=
            row.sign * column.sign * products[std::max(i, j) + std::min(i, j) * sums.order];
    }
  }
}

/// Sum of the scores by free parameter.
array<double, 1> total_score(const free_parameters& map, const derivatives& derivs) {
  array<double, 1> total;
  total.allocate({map.count()});
  for (std::size_t k = 0; k < map.place.size(); ++k)
    if (const logit_place& place = map.place[k]; place.free >= 0)
      total(place.free + 1) += place.sign * derivs.this_first.flat[k] * derivs.sample_size;
  return total;
}

/// Centres sums of products at the mean score and scales them for the lost degree of freedom.
void finish_middle(const array<double, 1>& total, double units, array<double, 2>& middle) {
  add_outer(total, -1.0 / units, middle);
  for (double& value : middle.flat) value *= units / (units - 1.0);
}

void fill_sums(const mlworkspace& work, const free_parameters& map, derivatives& derivs) {
  derivs.design = scale_covariates(work, map.columns);
  derivs.sums.clear();
  derivs.this_first.allocate({static_cast<int32>(map.place.size())});
  for (int32 g = 1; g <= map.nstr; ++g) {
    derivs.sums.push_back(sum_over_stratum(work, map, derivs.design, g));
    for (std::size_t i = 0; i < map.in_stratum(); ++i)
      derivs.this_first.flat[map.at(g, i)] += derivs.sums.back().first[i] / derivs.sample_size;
  }
}

void fill_middle(const mlworkspace& work, const free_parameters& map, bool clustered,
                 derivatives& derivs) {
  const double subjects = std::accumulate(work.rows->freq.begin(), work.rows->freq.end(), 0.0);
  array<double, 2>& cases = derivs.middle_unclustered;
  cases.allocate({map.count(), map.count()});
  for (int32 g = 1; g <= map.nstr; ++g) {
    const stratum_sums& sums = derivs.sums[static_cast<std::size_t>(g - 1)];
    add_stratum(map, g, sums, work.data.weighted ? sums.outer_squared : sums.outer, cases);
  }
  finish_middle(total_score(map, derivs), subjects, cases);
  const auto& sizes = work.given.dataset.clustercounts_subjects.flat;
  const auto& kases = work.given.dataset.clustercounts_kases.flat;
  const auto all_one = [](const auto& counts) {
    return std::all_of(counts.begin(), counts.end(), [](auto count) { return count == 1; });
  };
  if (!clustered || (all_one(sizes) && all_one(kases))) {
    derivs.middle = cases;  // a cluster of one subject is a case
    return;
  }
  array<double, 1> total;
  sum_over_clusters(work, map, derivs.design, derivs.middle, total);
  finish_middle(total, static_cast<double>(sizes.size()), derivs.middle);
}

double independent_units(const mlworkspace& work, bool clustered) {
  return clustered ? static_cast<double>(work.given.dataset.clustercounts_subjects.size())
                   : std::accumulate(work.rows->freq.begin(), work.rows->freq.end(), 0.0);
}

int32 compute_first(const mlworkspace& work, const free_parameters& map, bool clustered,
                    derivatives& derivs, const routine& here, error_type& err) {
  derivs.sample_size = work.data.total_weight;
  if (!(derivs.sample_size >= 2.0) || !(independent_units(work, clustered) >= 2.0))
    return fail(err, here, {text("The sample size is too small to get sandwich standard errors.")});
  const std::string label = std::string(here.name) + ": this_first";
  const std::string middle = std::string(here.name) + ": middle_matrix";
  if (allocation::allocate_under(label, here, err, [&] { fill_sums(work, map, derivs); }) != 0 ||
      allocation::allocate_under(middle, here, err,
                                 [&] { fill_middle(work, map, clustered, derivs); }) != 0)
    return -1;
  if (!all_finite(derivs.this_first) || !all_finite(derivs.middle))
    return fail(err, here, {text("Error in finding derivatives.")});
  return 0;
}

}  // namespace

int32 nullify_derivatives(derivatives& derivs, error_type&) {
  derivs = derivatives{};
  return 0;
}

int32 run_compute_first_for_lca(const mlworkspace& work, const free_parameters& map,
                                derivatives& derivs, const routine& here, error_type& err) {
  return compute_first(work, map, false, derivs, here, err);
}
int32 run_compute_first_for_lca_binary(const mlworkspace& work, const free_parameters& map,
                                       derivatives& derivs, const routine& here, error_type& err) {
  return compute_first(work, map, false, derivs, here, err);
}
int32 run_compute_first_for_lca_meas_invar(const mlworkspace& work, const free_parameters& map,
                                           derivatives& derivs, const routine& here,
                                           error_type& err) {
  return compute_first(work, map, false, derivs, here, err);
}
int32 run_compute_first_for_lca_meas_invar_clustered(const mlworkspace& work,
                                                     const free_parameters& map,
                                                     derivatives& derivs, const routine& here,
                                                     error_type& err) {
  return compute_first(work, map, true, derivs, here, err);
}
int32 run_compute_first_for_lca_meas_invar_binary(const mlworkspace& work,
                                                  const free_parameters& map, derivatives& derivs,
                                                  const routine& here, error_type& err) {
  return compute_first(work, map, false, derivs, here, err);
}
int32 run_compute_first_for_lca_meas_invar_clustered_binary(const mlworkspace& work,
                                                            const free_parameters& map,
                                                            derivatives& derivs,
                                                            const routine& here, error_type& err) {
  return compute_first(work, map, true, derivs, here, err);
}

}  // namespace tolvenra::estimation
