#include "estimation/standard_errors.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/dynamic_allocation.hpp"
#include "estimation/derivatives.hpp"
#include "estimation/flat_directions.hpp"
#include "estimation/jacobians.hpp"
#include "estimation/sandwich.hpp"
#include "estimation/standard_error_form.hpp"
#include "numerics/matrix_checks.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::estimation {
namespace {

using dynamic_allocation::dbl2_alloc;
using matrix_methods::all_finite;

/// The results of one run, kept apart until all of them exist.
struct errors_found {
  array<double, 2> std_gamma, std_gamma_model, cov_b, cov_b_held, cov_b_model;
  array<double, 4> std_rho;
  array<double, 3> std_beta;
};

/// One run of a driver.
class standard_error_run {
 public:
  standard_error_run(const mlworkspace& work, const standard_error_form& form, error_type& err)
      : work_(work), form_(form), err_(err) {}

  int32 run(mlresult_type& result) {
    int32 status = -1;
    if (allocation::allocate_under(form_.label, form_.here, err_, [&] {
          if (check_standard_error_form(work_, result, form_, err_) == 0) status = compute(result);
        }) != 0)
      return -1;
    return status;
  }

 private:
  [[nodiscard]] std::string label(std::string_view matrix) const {
    return std::string(form_.here.name) + ": " + std::string(matrix);
  }

  int32 refuse(std::string_view words) { return fail(err_, form_.here, {text(words)}); }

  int32 allocate(array<double, 2>& matrix, int32 rows, int32 columns, std::string_view name) {
    if (dbl2_alloc(matrix, rows, columns, err_, {}, label(name)) == 0) return 0;
    return pass_on(err_, form_.here);
  }

  int32 compute(mlresult_type& result) {
    derivatives derivs;
    if (find_free_parameters(work_, map_, form_.here, err_) != 0 || find_derivatives(derivs) != 0)
      return -1;
    array<double, 2> information_matrix;
    if (allocate(information_matrix, map_.count(), map_.count(), "information_matrix") != 0)
      return -1;
    apply_restrictions(derivs, information_matrix);
    if (!all_finite(information_matrix))
      return refuse("Unexpected error while applying restrictions to the information matrix.");
    // Without covariates a table has no room for more parameters than cells, whatever its pivots.
    if ((!work_.beta.active && result.apparent_df < 0) ||
        invert_information(work_, map_, information_matrix, inverse_, err_) != 0)
      return refuse("Error in inverting information matrix.");
    if (build_sandwich(derivs) != 0) return -1;
    errors_found found;
    if (find_gamma(derivs, found) != 0 || find_rho(found) != 0) return -1;
    find_coefficients(derivs, found);
    if (!all_finite(found.std_gamma) || !all_finite(found.std_gamma_model) ||
        !all_finite(found.std_rho) || !all_finite(found.cov_b))
      return refuse("Unexpected error in calculating standard errors");
    found.cov_b_held = found.cov_b;
    leave_out_runaways(found);
    const double deff = design_effect(derivs);
    store(found, deff, result);
    return nullify_derivatives(derivs, err_);
  }

  int32 find_derivatives(derivatives& derivs) {
    derivative_routine* first = nullptr;
    if (!form_.invariant)
      first = form_.binary ? run_compute_first_for_lca_binary : run_compute_first_for_lca;
    else if (work_.data.clustered)
      first = form_.binary ? run_compute_first_for_lca_meas_invar_clustered_binary
                           : run_compute_first_for_lca_meas_invar_clustered;
    else
      first = form_.binary ? run_compute_first_for_lca_meas_invar_binary
                           : run_compute_first_for_lca_meas_invar;
    derivative_routine* second =
        form_.binary ? run_compute_neg_second_for_lca_binary : run_compute_neg_second_for_lca;
    if (first(work_, map_, derivs, form_.here, err_) != 0) return -1;
    return second(work_, map_, derivs, form_.here, err_);
  }

  void apply_restrictions(const derivatives& derivs, array<double, 2>& information) const {
    const std::size_t responses = map_.membership_at(map_.nstr + 1);
    add_restricted(map_, derivs.neg_second_beta, 0, 0, information);
    add_restricted(map_, derivs.neg_second_phi, responses, responses, information);
    array<double, 2> cross;
    cross.allocate(information.n);
    add_restricted(map_, derivs.neg_second_beta_phi_cross, 0, responses, cross);
    for (int32 j = 1; j <= cross.n[1]; ++j)
      for (int32 i = 1; i <= cross.n[0]; ++i) information(i, j) += cross(i, j) + cross(j, i);
  }

  int32 build_sandwich(const derivatives& derivs) {
    if (allocate(robust_, map_.count(), map_.count(), "cov_of_phi") != 0) return -1;
    if (map_.count() > 0 &&
        matrix_methods::mat_mult_pre_and_post(inverse_, derivs.middle, robust_, err_) != 0)
      return refuse("Error occurred while trying to use the sandwich formula");
    for (int32 k = 1; k <= map_.count(); ++k)
      if (!(robust_(k, k) >= 0.0))
        return refuse("Error in constructing the sandwich covariance matrix");
    return 0;
  }

  int32 find_gamma(const derivatives& derivs, errors_found& found) {
    array<double, 2> jacobian_gamma_beta;
    if (allocate(jacobian_gamma_beta, map_.nc * map_.nstr, map_.membership,
                 "jacobian_gamma_beta") != 0)
      return -1;
    const auto jacobian =
        form_.binary ? run_compute_lca_b_jacobian_binary : run_compute_lca_beta_jacobian;
    if (jacobian(work_, map_, derivs.design, jacobian_gamma_beta, form_.here, err_) != 0) return -1;
    found.std_gamma.allocate({map_.nc, map_.nstr});
    found.std_gamma_model.allocate({map_.nc, map_.nstr});
    for (int32 g = 1; g <= map_.nstr && map_.membership > 0; ++g)
      for (int32 c = 1; c <= map_.nc; ++c) {
        if (map_.at_boundary(work_.gamma.now(c, g))) continue;
        const auto error = [&](const array<double, 2>& covariance) {
          return root(variance_of(map_, covariance, jacobian_gamma_beta, (g - 1) * map_.nc + c,
                                  map_.membership_at(g), map_.membership));
        };
        found.std_gamma(c, g) = error(robust_);
        found.std_gamma_model(c, g) = error(inverse_);
      }
    return 0;
  }

  int32 find_rho(errors_found& found) {
    const array<double, 4>& rho = work_.rho.now;
    array<double, 2> jacobian_rho_phi;
    if (allocate(jacobian_rho_phi, rho.n[0] * map_.nc * rho.n[2] * map_.copies, rho.n[2] - 1,
                 "jacobian_rho_phi") != 0)
      return -1;
    if (run_compute_lca_phi_jacobian(work_, map_, jacobian_rho_phi, form_.here, err_) != 0)
      return -1;
    found.std_rho.allocate(rho.n);
    for (int32 g = 1; g <= map_.nstr; ++g)
      for (int32 c = 1; c <= map_.nc; ++c)
        for (int32 j = 1; j <= rho.n[0]; ++j) {
          const int32 logits = work_.data.nrc(j) - 1;
          const std::size_t first =
              map_.responses_at(map_.copy_of(g), c) +
              static_cast<std::size_t>(map_.item_first[static_cast<std::size_t>(j - 1)]);
          for (int32 r = 1; r <= work_.data.nrc(j) && logits > 0; ++r) {
            if (map_.at_boundary(rho(j, c, r, g))) continue;
            const auto row = static_cast<int32>(&rho(j, c, r, map_.copy_of(g)) - rho.data()) + 1;
            found.std_rho(j, c, r, g) =
                root(variance_of(map_, robust_, jacobian_rho_phi, row, first, logits));
          }
        }
    return 0;
  }

  /// The variance of what is held is 0, and rounding may leave a little less; NaN stays.
  static double root(double variance) { return variance <= 0.0 ? 0.0 : std::sqrt(variance); }

  void find_coefficients(const derivatives& derivs, errors_found& found) {
    std::vector<array<double, 2>> jacobians;
    for (int32 g = 1; g <= map_.nstr; ++g)
      jacobians.push_back(coefficient_jacobian(work_, map_, derivs.design, g));
    const int32 own = jacobians.front().n[0];
    found.cov_b.allocate({own * map_.nstr, own * map_.nstr});
    found.cov_b_model.allocate(found.cov_b.n);
    for (int32 g = 1; g <= map_.nstr; ++g)
      for (int32 h = 1; h <= map_.nstr; ++h)
        for (const auto& [covariance, of_b] :
             {std::pair{&robust_, &found.cov_b}, std::pair{&inverse_, &found.cov_b_model}}) {
          const auto block = covariance_of(
              map_, *covariance, jacobians[static_cast<std::size_t>(g - 1)], map_.membership_at(g),
              jacobians[static_cast<std::size_t>(h - 1)], map_.membership_at(h));
          for (int32 j = 1; j <= own; ++j)
            for (int32 i = 1; i <= own; ++i)
              (*of_b)((g - 1) * own + i, (h - 1) * own + j) = block(i, j);
        }
    if (map_.columns == 0) return;
    found.std_beta.allocate(work_.beta.now.n);
    int32 k = 0;
    for (int32 g = 1; g <= map_.nstr; ++g)
      for (const int32 c : map_.slope_class)
        for (int32 q = 1; q <= map_.columns; ++q) {
          ++k;
          found.std_beta(q, c, g) = root(found.cov_b(k, k));
        }
  }

  /// Coefficients without a finite estimate have no variance either.
  void leave_out_runaways(errors_found& found) const {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    int32 k = 0;
    for (int32 g = 1; g <= map_.nstr && map_.columns > 0; ++g)
      for (const int32 c : map_.slope_class)
        for (int32 q = 1; q <= map_.columns; ++q) {
          ++k;
          if (!is_runaway(work_.beta.rows[static_cast<std::size_t>(g - 1)], q, c)) continue;
          found.std_beta(q, c, g) = nan;
          for (int32 other = 1; other <= found.cov_b.n[0]; ++other)
            found.cov_b(k, other) = found.cov_b(other, k) = nan;
        }
  }

  /// NaN without clusters.
  double design_effect(const derivatives& derivs) {
    double with = 0.0;
    double without = 0.0;
    error_type unused;
    if (!work_.data.clustered || map_.count() == 0 ||
        matrix_methods::quadratic_form_trace_real_matrix(inverse_, derivs.middle, with, unused) !=
            0 ||
        matrix_methods::quadratic_form_trace_real_matrix(inverse_, derivs.middle_unclustered,
                                                         without, unused) != 0)
      return std::numeric_limits<double>::quiet_NaN();
    return with / without;
  }

  void store(errors_found& found, double deff, mlresult_type& result) const {
    result.std_gamma = std::move(found.std_gamma);
    result.std_gamma_model = std::move(found.std_gamma_model);
    result.std_rho = std::move(found.std_rho);
    result.std_beta = std::move(found.std_beta);
    result.cov_b = std::move(found.cov_b);
    result.cov_b_held = std::move(found.cov_b_held);
    result.cov_b_model = std::move(found.cov_b_model);
    result.n_boundary = map_.boundary;
    result.has_deff = std::isfinite(deff);
    result.deff = deff;
  }

  const mlworkspace& work_;
  const standard_error_form& form_;
  error_type& err_;
  free_parameters map_;
  array<double, 2> inverse_, robust_;
};

/// What the measurement-invariant drivers are for.
bool needs_invariance(const mlworkspace& work) {
  return work.data.clustered || (work.data.nstr > 1 && work.rho_equal_across_strata);
}

standard_error_driver* multinomial_driver_of(const mlworkspace& work) {
  return needs_invariance(work) ? run_compute_standard_errors_lca_meas_invar
                                : run_compute_standard_errors_lca;
}

}  // namespace

int32 run_compute_standard_errors_lca(const mlworkspace& work, mlresult_type& result,
                                      error_type& err) {
  constexpr standard_error_form form{{"run_compute_standard_errors_lca", "estimation"},
                                     "run_compute_standard_errors_lca: cov_of_beta"};
  return standard_error_run(work, form, err).run(result);
}

int32 run_compute_standard_errors_lca_meas_invar(const mlworkspace& work, mlresult_type& result,
                                                 error_type& err) {
  constexpr standard_error_form form{{"run_compute_standard_errors_lca_meas_invar", "estimation"},
                                     "run_compute_standard_errors_lca_meas_invar: cov_of_beta",
                                     false,
                                     true};
  return standard_error_run(work, form, err).run(result);
}

int32 run_compute_standard_errors_lca_binary(const mlworkspace& work, mlresult_type& result,
                                             error_type& err) {
  constexpr standard_error_form form{{"run_compute_standard_errors_lca_binary", "estimation"},
                                     "run_compute_standard_errors_lca_binary: cov_of_beta",
                                     true,
                                     false};
  return standard_error_run(work, form, err).run(result);
}

int32 run_compute_standard_errors_lca_binary_meas_invar(const mlworkspace& work,
                                                        mlresult_type& result, error_type& err) {
  constexpr standard_error_form form{
      {"run_compute_standard_errors_lca_binary_meas_invar", "estimation"},
      "run_compute_standard_errors_lca_binary_meas_invar: cov_of_beta",
      true,
      true};
  return standard_error_run(work, form, err).run(result);
}

standard_error_driver* driver_of(const mlworkspace& work) {
  if (!work.beta.active || !work.given.param.gamma_binary_regression)
    return multinomial_driver_of(work);
  return needs_invariance(work) ? run_compute_standard_errors_lca_binary_meas_invar
                                : run_compute_standard_errors_lca_binary;
}

standard_error_driver* driver_for_tests(const mlworkspace& work) {
  return work.latent.nc == 2 ? multinomial_driver_of(work) : driver_of(work);
}

}  // namespace tolvenra::estimation
