#include <algorithm>
#include <cmath>
#include <limits>

#include "estimation/augmentation.hpp"
#include "numerics/cdf.hpp"

namespace tolvenra::estimation {
namespace {

/// The normal distribution, as far as the t distribution reaches.
constexpr double most_df = 1e10;

double degrees_of_freedom(double ubar, double between, int32 m) {
  if (m < 2 || !(between > 0.0)) return most_df;
  const double ratio = 1.0 + ubar / between;
  const double df = (m - 1) * ratio * ratio;
  return df < most_df ? df : most_df;
}

/// Upper 5 % point of the t distribution; neighbouring elements often share their df.
class t_value {
 public:
  int32 of(double df, double& t, error_type& err) {
    if (df != df_) {
      double p = 0.95;
      double q = 0.050000000000000044;
      double of_cdf = df;
      if (cdf::cdf_t(2, p, q, t_, of_cdf, err) != 0)
        return fail(err, {"compute_da_results", "estimation"},
                    {text("Error computing t-value for confidence interval.")});
      df_ = df;
    }
    t = t_;
    return 0;
  }

 private:
  double df_ = -1.0, t_ = 0.0;
};

/// Has no imputation a variance, and do all have one value? On the logit scale it may be infinite.
template <std::size_t R>
bool determined(const daparam<R>& param, std::size_t at) {
  for (std::size_t i = at; i < param.imp.size(); i += param.qbar.size())
    if (param.var_imp.flat[i] != 0.0 || param.imp.flat[i] != param.imp.flat[at]) return false;
  return true;
}

/// What the restrictions determine has a value and nothing else.
template <std::size_t R>
void set_determined(daparam<R>& param, std::size_t at) {
  constexpr double none = std::numeric_limits<double>::quiet_NaN();
  param.qbar.flat[at] = param.imp.flat[at];
  for (auto* variance : {&param.ubar, &param.bi_var, &param.var}) variance->flat[at] = 0.0;
  for (auto* absent : {&param.std_err, &param.df, &param.lo_ci, &param.hi_ci})
    absent->flat[at] = none;
}

}  // namespace

template <std::size_t R>
int32 compute_da_results(daparam<R>& param, error_type& err) {
  const int32 m = param.imp.n[R];
  const std::size_t size = param.qbar.size();
  t_value quantile;
  for (std::size_t at = 0; at < size; ++at) {
    if (determined(param, at)) {
      set_determined(param, at);
      continue;
    }
    const double first = param.imp.flat[at];  // sums of differences: equal estimates stay exact
    double differences = 0.0;
    double variances = 0.0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(m); ++i) {
      differences += param.imp.flat[at + i * size] - first;
      variances += param.var_imp.flat[at + i * size];
    }
    const double qbar = first + differences / m;
    double squares = 0.0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(m); ++i) {
      const double deviation = param.imp.flat[at + i * size] - qbar;
      squares += deviation * deviation;
    }
    const double ubar = variances / m;
    const double bi_var = m > 1 ? squares / (m - 1) : 0.0;
    const double between = (1.0 + 1.0 / m) * bi_var;
    const double var = ubar + between;
    const double df = degrees_of_freedom(ubar, between, m);
    double t = 0.0;
    if (quantile.of(df, t, err) != 0) return -1;
    param.qbar.flat[at] = qbar;
    param.ubar.flat[at] = ubar;
    param.bi_var.flat[at] = bi_var;
    param.var.flat[at] = var;
    param.std_err.flat[at] = std::sqrt(var);
    param.df.flat[at] = df;
    param.lo_ci.flat[at] = qbar - t * param.std_err.flat[at];
    param.hi_ci.flat[at] = qbar + t * param.std_err.flat[at];
  }
  return 0;
}

double missing_information(double ubar, double bi_var, double df, int32 imputations) {
  if (std::isnan(df)) return df;
  const double between = (1.0 + 1.0 / imputations) * bi_var;
  if (!(between > 0.0)) return 0.0;
  if (!(ubar > 0.0)) return 1.0;
  const double increase = between / ubar;
  return (increase + 2.0 / (df + 3.0)) / (increase + 1.0);
}

template int32 compute_da_results(daparam<2>&, error_type&);
template int32 compute_da_results(daparam<3>&, error_type&);
template int32 compute_da_results(daparam<4>&, error_type&);
template int32 compute_da_results(daparam<5>&, error_type&);
template int32 compute_da_results(daparam<6>&, error_type&);

}  // namespace tolvenra::estimation
