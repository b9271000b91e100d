#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/dynamic_allocation.hpp"
#include "estimation/flat_directions.hpp"
#include "estimation/standard_errors.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::estimation {
namespace {

template <std::size_t R>
int32 copy_associated(const mlresult_type& result, const array<double, R>& from,
                      std::string_view complaint, std::string_view name, array<double, R>& values,
                      error_type& err) {
  const routine here{name, "estimation"};
  if (!result.filled)
    return fail(
        err, here,
        {text("The property could not be set because"),
         text("results of maximum likelihood estimation"), text("have not yet been obtained.")});
  if (!from.allocated)
    return fail(err, here, {text(complaint), text("in the mlresult type provided.")});
  return allocation::allocate_under(name, here, err, [&] { values = from; });
}

/// The coefficients of one covariate in the order of cov_b, those that are held left out, in units
/// of the model's standard errors, which a trace does not see.
class tested_coefficients {
 public:
  tested_coefficients(const mlworkspace& work, const mlresult_type& result, int32 covariate)
      : column_(covariate + 1) {
    const int32 columns = work.data.ncov + 1;
    for (int32 k = column_; k <= result.cov_b_model.n[0]; k += columns) {
      if (!(result.cov_b_model(k, k) > 0.0)) continue;
      place_.push_back(k);
      unit_.push_back(std::sqrt(result.cov_b_model(k, k)));
    }
  }

  /// Combinations that no flat direction changes, (coefficients, combinations): only they have a
  /// finite estimate.
  [[nodiscard]] array<double, 2> finite_combinations(const mlworkspace& work) const {
    std::vector<std::vector<double>> flat;
    for (std::size_t g = 0; g < work.beta.rows.size(); ++g)
      for (const array<double, 2>& direction : work.beta.rows[g].runaway) {
        std::vector<double> own;
        double largest = 0.0;
        for (std::size_t i = 0; i < place_.size(); ++i) {
          const auto [stratum, c] = class_at(work, place_[i]);
          const double change = stratum == g ? direction(column_, c) : 0.0;
          largest = std::max(largest, std::abs(change));
          own.push_back(change / unit_[i]);
        }
        if (largest >= runaway_weight) flat.push_back(std::move(own));
      }
    array<double, 2> directions, identity;
    const auto n = static_cast<int32>(place_.size());
    directions.allocate({n, static_cast<int32>(flat.size())});
    identity.allocate({n, n});
    for (int32 i = 1; i <= n; ++i) identity(i, i) = 1.0;
    for (std::size_t d = 0; d < flat.size(); ++d)
      std::copy(flat[d].begin(), flat[d].end(), directions.column(static_cast<int32>(d) + 1));
    return flat.empty() ? identity : complement_of(directions, identity);
  }

  /// Covariance of the combinations.
  [[nodiscard]] array<double, 2> covariance(const array<double, 2>& of_b,
                                            const array<double, 2>& combined) const {
    array<double, 2> result;
    result.allocate({combined.n[1], combined.n[1]});
    for (std::size_t i = 0; i < place_.size(); ++i)
      for (std::size_t j = 0; j < place_.size(); ++j) {
        const double value = of_b(place_[i], place_[j]) / (unit_[i] * unit_[j]);
        for (int32 a = 1; a <= combined.n[1]; ++a)
          for (int32 b = 1; b <= combined.n[1]; ++b)
            result(a, b) += combined(static_cast<int32>(i) + 1, a) * value *
                            combined(static_cast<int32>(j) + 1, b);
      }
    return result;
  }

 private:
  /// Stratum (0-based) and class (1-based) of a place in cov_b.
  static std::pair<std::size_t, int32> class_at(const mlworkspace& work, int32 place) {
    const regression& fit = work.beta.fits.front();
    const int32 block = (place - 1) / (work.data.ncov + 1);
    if (fit.binary > 0) return {static_cast<std::size_t>(block), fit.binary};
    const int32 each = work.latent.nc - 1;
    const int32 c = block % each + 1;
    return {static_cast<std::size_t>(block / each), c < fit.baseline ? c : c + 1};
  }

  int32 column_;
  std::vector<int32> place_;
  std::vector<double> unit_;
};

}  // namespace

int32 get_std_errs_for_gamma(const mlresult_type& result, array<double, 2>& values,
                             error_type& err) {
  return copy_associated(result, result.std_gamma, "The std_gamma array has not been associated",
                         "get_std_errs_for_gamma", values, err);
}

int32 get_std_errs_for_rho(const mlresult_type& result, array<double, 4>& values, error_type& err) {
  return copy_associated(result, result.std_rho, "The std_rho array has not been associated",
                         "get_std_errs_for_rho", values, err);
}

int32 get_std_errs_for_beta(const mlresult_type& result, array<double, 3>& values,
                            error_type& err) {
  return copy_associated(result, result.std_beta, "The std_beta array has not been associated",
                         "get_std_errs_for_beta", values, err);
}

double rao_scott_factor(const mlworkspace& work, const mlresult_type& result, int32 covariate) {
  const tested_coefficients tested(work, result, covariate);
  const array<double, 2> combined = tested.finite_combinations(work);
  const int32 n = combined.n[1];
  array<double, 2> inverse;
  inverse.allocate({n, n});
  double trace = 0.0;
  error_type unused;
  const array<double, 2> model = tested.covariance(result.cov_b_model, combined);
  const array<double, 2> robust = tested.covariance(result.cov_b_held, combined);
  if (n == 0 || matrix_methods::symmetric_real_inverse(model, inverse, unused, nullptr, 0.0) != 0 ||
      matrix_methods::quadratic_form_trace_real_matrix(inverse, robust, trace, unused) != 0)
    return std::numeric_limits<double>::quiet_NaN();
  return trace / n;
}

}  // namespace tolvenra::estimation
