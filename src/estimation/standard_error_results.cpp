#include <cmath>
#include <limits>

#include "core/dynamic_allocation.hpp"
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
  array<double, 2> model, robust, inverse;
  std::vector<int32> tested;
  const int32 columns = work.data.ncov + 1;
  for (int32 k = covariate + 1; k <= result.cov_b.n[0]; k += columns)
    if (result.cov_b_model(k, k) > 0.0) tested.push_back(k);  // the others are held
  const auto n = static_cast<int32>(tested.size());
  for (auto* part : {&model, &robust, &inverse}) part->allocate({n, n});
  for (int32 j = 1; j <= n; ++j)
    for (int32 i = 1; i <= n; ++i) {
      const int32 row = tested[static_cast<std::size_t>(i - 1)];
      const int32 column = tested[static_cast<std::size_t>(j - 1)];
      // in units of the model's standard errors, which the trace does not see
      const double unit =
          std::sqrt(result.cov_b_model(row, row)) * std::sqrt(result.cov_b_model(column, column));
      model(i, j) = result.cov_b_model(row, column) / unit;
      robust(i, j) = result.cov_b(row, column) / unit;
    }
  double trace = 0.0;
  error_type unused;
  if (n == 0 || matrix_methods::symmetric_real_inverse(model, inverse, unused, nullptr, 0.0) != 0 ||
      matrix_methods::quadratic_form_trace_real_matrix(inverse, robust, trace, unused) != 0)
    return std::numeric_limits<double>::quiet_NaN();
  return trace / n;
}

}  // namespace tolvenra::estimation
