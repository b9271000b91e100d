#include "estimation/msteps_covariates.hpp"

#include <algorithm>

#include "core/dynamic_allocation.hpp"
#include "estimation/covariate_design.hpp"
#include "estimation/flat_directions.hpp"

namespace tolvenra::estimation {
namespace {

/// Equality numbers and fixed values have no meaning for regressed class shares.
int32 check_codes(const mlworkspace& work, error_type& err) {
  constexpr routine here{"load_mlworkspace_param", "estimation"};
  const auto& codes = work.gamma.code;
  if (std::any_of(codes.flat.begin(), codes.flat.end(), [](int32 code) { return code >= 2; }))
    return refuse_with_covariates(here, "Gamma parameter equality restrictions are not allowed",
                                  err);
  const param_type& param = work.given.param;
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 c = 1; c <= work.latent.nc; ++c) {
      const int32 needed =  // the reference, or the class of the binary form
          param.gamma_binary_regression ? param.binary_gamma : param.baseline_gamma;
      if (codes(c, g) != 0) continue;
      if (work.gamma.now(c, g) != 0.0)
        return refuse_with_covariates(
            here, "Fixed (nonzero) gamma parameter restrictions are not allowed", err);
      if (c == needed)
        return fail(err, here,
                    {text("Gamma of class ", c, " is fixed at zero in stratum (group) ", g, ","),
                     text("but the regression needs it as its ",
                          param.gamma_binary_regression ? "compared" : "reference", " class.")});
    }
  return 0;
}

void load_regression(const mlworkspace& work, int32 g, regression& fit) {
  const param_type& param = work.given.param;
  const pattern_range patterns = patterns_of(work, g);
  size_regression(patterns.count, work.data.ncov + 1, work.latent.nc, fit);
  fill_design(work, patterns.first, 1, fit);
  fit.baseline = param.baseline_gamma;
  fit.binary = param.gamma_binary_regression ? param.binary_gamma : 0;
  for (int32 c = 1; c <= work.latent.nc; ++c)
    fit.absent[static_cast<std::size_t>(c - 1)] = work.gamma.code(c, g) == 0;
  if (work.beta.use_prior) {
    const double* prior = param.beta_stabilizing_prior.column(g);
    fit.prior = compute_stabilizing_prior({prior, prior + work.latent.nc}, fit.absent);
    fit.prior_ess = param.beta_stabilizing_prior_ess;
  }
}

/// Outcome totals of a stratum's patterns: weighted posteriors of their rows, in row order.
void fill_outcomes(const mlworkspace& work, int32 g, int32 first_pattern, regression& fit) {
  std::fill(fit.y.flat.begin(), fit.y.flat.end(), 0.0);
  const distinct_rows& rows = *work.rows;
  const auto nc = static_cast<std::size_t>(work.latent.nc);
  for (int32 row = rows.stratum_start[static_cast<std::size_t>(g - 1)];
       row < rows.stratum_start[static_cast<std::size_t>(g)]; ++row) {
    const auto at = static_cast<std::size_t>(row);
    const int32 u = rows.covariates.of_row[at] - first_pattern;
    for (std::size_t c = 0; c < nc; ++c)
      fit.y(u, static_cast<int32>(c) + 1) += rows.weight[at] * work.post.cls[at * nc + c];
  }
}

}  // namespace

int32 check_gamma_codes(mlworkspace& work, error_type& err) {
  work.beta.active = work.data.ncov > 0 && work.data.nci > 0 && work.latent.nc >= 2;
  return work.beta.active ? check_codes(work, err) : 0;
}

int32 load_beta(mlworkspace& work, error_type& err) {
  constexpr routine here{"load_beta", "estimation"};
  const param_type& param = work.given.param;
  logit_block<3>& beta = work.beta;
  beta.now = param.beta;
  beta.old = param.beta;
  beta.n_estimated = 0;
  beta.fits.clear();
  beta.rows.clear();
  if (!beta.active) return 0;
  beta.use_prior = param.beta_stabilizing_prior_set && param.beta_stabilizing_prior_ess > 0.0;
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    if (allocation::allocate_under("mstep_beta: post", here, err, [&] {
          load_regression(work, g, beta.fits.emplace_back());
        }) != 0)
      return fail(err, here,
                  {text("Unable to allocate instance(s) of the logit workspace type for beta.")});
    const double* gamma = work.gamma.now.column(g);
    beta.rows.emplace_back().shares =
        starting_shares({gamma, static_cast<std::size_t>(work.latent.nc)}, beta.fits.back().binary);
    refer_to_baseline(beta.fits.back(), &beta.now(1, 1, g));
    beta.n_estimated += regression_parameters(beta.fits.back());
  }
  work.gamma.n_estimated = 0;  // gamma follows from beta
  return predict_gamma(work, err);
}

int32 predict_gamma(mlworkspace& work, error_type& err, double limit) {
  constexpr routine here{"mstep_beta", "estimation"};
  const int32 width = work.classes.width;
  work.classes.prior.resize(static_cast<std::size_t>(work.rows->covariates.count) *
                            static_cast<std::size_t>(width));
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    const auto at = static_cast<std::size_t>(g - 1);
    const regression& fit = work.beta.fits[at];
    double* p = work.classes.prior.data() + std::ptrdiff_t{width} * patterns_of(work, g).first;
    if (predict(fit, &work.beta.now(1, 1, g), work.beta.rows[at].shares, p, width, "gamma", here,
                err, limit) != 0)
      return -1;
    for (int32 c = 1; c <= work.latent.nc; ++c) work.gamma.now(c, g) = 0.0;
    for (int32 u = 1; u <= fit.x.n[0]; ++u, p += width) {
      for (int32 c = 1; c <= work.latent.nc; ++c) work.gamma.now(c, g) += fit.weight(u) * p[c - 1];
    }
    for (int32 c = 1; c <= work.latent.nc; ++c) work.gamma.now(c, g) /= fit.total_weight;
  }
  return 0;
}

int32 mstep_beta(mlworkspace& work, error_type& err) {
  constexpr routine here{"mstep_beta", "estimation"};
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    const auto at = static_cast<std::size_t>(g - 1);
    regression& fit = work.beta.fits[at];
    fill_outcomes(work, g, patterns_of(work, g).first, fit);
    const std::string where = "Group: " + to_text(int64{g});
    if (fit_regression(fit, &work.beta.now(1, 1, g), work.beta.rows[at], work.em.threads, here,
                       where, err) != 0)
      return -1;
  }
  return predict_gamma(work, err, any_predictor);
}

void find_class_runaways(mlworkspace& work) {
  if (!work.beta.active) return;
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    const auto at = static_cast<std::size_t>(g - 1);
    fill_outcomes(work, g, patterns_of(work, g).first, work.beta.fits[at]);
    find_runaways(work.beta.fits[at], &work.beta.now(1, 1, g), work.em.threads, work.beta.rows[at]);
  }
}

int32 regress_classes_without(const mlworkspace& work, int32 left_out, array<double, 3>& beta,
                              error_type& err) {
  constexpr routine here{"mstep_beta", "estimation"};
  beta.allocate({work.data.ncov, work.latent.nc, work.data.nstr});
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    const regression& fit = work.beta.fits[static_cast<std::size_t>(g - 1)];
    if (fit_without(fit, left_out, beta.column(1, g), work.em.threads, here,
                    "Group: " + to_text(int64{g}), err) != 0)
      return -1;
  }
  return 0;
}

}  // namespace tolvenra::estimation
