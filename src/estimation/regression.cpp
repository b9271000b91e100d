#include "estimation/regression.hpp"

#include <algorithm>
#include <cmath>

namespace tolvenra::estimation {
namespace {

constexpr int32 newton_limit = 20;

/// Categories that a fit estimates, with the reference's place among them, all 1-based.
struct fitted_categories {
  std::vector<int32> of;
  int32 baseline = 1;
};

fitted_categories categories_of(const regression& fit) {
  fitted_categories all;
  if (fit.binary > 0) {  // the compared category against the rest
    all.of = {fit.binary, 0};
    all.baseline = 2;
    return all;
  }
  for (int32 c = 1; c <= fit.y.n[1]; ++c) {
    if (fit.absent[static_cast<std::size_t>(c - 1)]) continue;
    all.of.push_back(c);
    if (c == fit.baseline) all.baseline = static_cast<int32>(all.of.size());
  }
  return all;
}

double row_total(const array<double, 2>& y, int32 u) {
  double total = 0.0;
  for (int32 c = 1; c <= y.n[1]; ++c) total += y(u, c);
  return total;
}

/// Outcomes of the fitted categories; the prior adds its share of every pattern's weight.
void fill_outcome(regression& fit, const fitted_categories& categories) {
  const int32 n = fit.x.n[0];
  const auto r = static_cast<int32>(categories.of.size());
  if (fit.outcome.n != std::array<int32, 2>{n, r}) fit.outcome.allocate({n, r});
  double total_weight = 0.0;
  for (int32 u = 1; u <= n; ++u) total_weight += fit.weight(u);
  const double worth = fit.prior.empty() ? 0.0 : fit.prior_ess / total_weight;
  double present = 0.0;  // prior mass of the categories that take part
  const auto prior = [&](int32 c) { return fit.prior[static_cast<std::size_t>(c - 1)]; };
  for (int32 c = 1; c <= fit.y.n[1] && worth > 0.0; ++c)
    if (!fit.absent[static_cast<std::size_t>(c - 1)]) present += prior(c);
  for (int32 k = 1; k <= r; ++k) {
    const int32 c = categories.of[static_cast<std::size_t>(k - 1)];
    double share = 0.0;
    if (worth > 0.0) share = c > 0 ? prior(c) / present : 1.0 - prior(fit.binary) / present;
    for (int32 u = 1; u <= n; ++u) {
      const double observed = c > 0 ? fit.y(u, c) : row_total(fit.y, u) - fit.y(u, fit.binary);
      fit.outcome(u, k) = std::max(observed, 0.0) + worth * fit.weight(u) * share;
    }
  }
  for (int32 u = 1; u <= n; ++u) fit.mask(u) = row_total(fit.outcome, u) > 0.0 ? 1 : 0;
}

/// Log-likelihood of the outcomes; NaN where a predictor leaves the range of exp.
double objective(const regression& fit, const array<double, 2>& beta) {
  double sum = 0.0;
  const int32 r = beta.n[1];
  std::vector<double> eta(static_cast<std::size_t>(r));
  for (int32 u = 1; u <= fit.x.n[0]; ++u) {
    if (fit.mask(u) == 0) continue;
    for (int32 k = 1; k <= r; ++k) {
      double value = 0.0;
      for (int32 j = 1; j <= fit.x.n[1]; ++j) value += fit.x(u, j) * beta(j, k);
      eta[static_cast<std::size_t>(k - 1)] = value;
    }
    const double most = *std::max_element(eta.begin(), eta.end());
    double scale = 0.0;
    for (const double e : eta) scale += std::exp(e - most);
    for (int32 k = 1; k <= r; ++k)
      if (fit.outcome(u, k) > 0.0)
        sum += fit.outcome(u, k) * (eta[static_cast<std::size_t>(k - 1)] - most - std::log(scale));
  }
  return sum;
}

double largest(const array<double, 2>& beta) {
  double most = 0.0;
  for (const double b : beta.flat) most = std::max(most, std::abs(b));
  return most;
}

/// Whether no coefficient differs by more than rounding allows: the relative test of the fitter
/// never passes for an effect that is truly zero.
bool at_rest(const array<double, 2>& before, const array<double, 2>& after) {
  const double tolerance = 1e-8 * (1.0 + largest(after));
  for (std::size_t q = 0; q < before.size(); ++q)
    if (!(std::abs(after.flat[q] - before.flat[q]) <= tolerance)) return false;
  return true;
}

bool finite(const array<double, 2>& beta) {
  return std::all_of(beta.flat.begin(), beta.flat.end(), [](double b) { return std::isfinite(b); });
}

enum class attempt { converged, not_converged, failed };

/// The Newton fits of one regression, with their last report.
class fitter {
 public:
  fitter(regression& fit, int32 baseline) : fit_(fit), baseline_(baseline) {}

  /// Up to `limit` Newton steps from `beta`.
  attempt newton(array<double, 2>& beta, int32 limit) {
    err_reset(report_);
    int32 iterations = 0;
    bool converged = false;
    double loglik = 0.0;
    const int32 slots = logit_model::slots_for(fit_.x.n[0], fit_.x.n[1], fit_.outcome.n[1]);
    if (logit_model::run_logit_model_threads(fit_.x, fit_.outcome, nullptr, baseline_, iterations,
                                             converged, loglik, beta, fit_.mask, 1, slots, limit,
                                             fit_.logit, report_) != 0)
      return attempt::failed;
    if (!finite(beta)) return attempt::failed;
    return converged ? attempt::converged : attempt::not_converged;
  }

  /// Newton steps, then one more to see whether anything still moves.
  attempt settle(array<double, 2>& beta) {
    const attempt first = newton(beta, newton_limit);
    if (first != attempt::not_converged) return first;
    fit_.trial = beta;
    const attempt second = newton(beta, 1);
    if (second == attempt::not_converged && at_rest(fit_.trial, beta)) return attempt::converged;
    return second == attempt::not_converged ? newton(beta, newton_limit) : second;
  }

  /// Single steps, halved until the likelihood does not fall.
  attempt halving(array<double, 2>& beta) {
    double value = objective(fit_, beta);
    for (int step = 0; step < 100; ++step) {
      fit_.trial = beta;
      const attempt outcome = newton(fit_.trial, 1);
      if (outcome == attempt::failed) return outcome;
      if (outcome == attempt::converged || at_rest(beta, fit_.trial)) {
        beta = fit_.trial;
        return attempt::converged;
      }
      double next = objective(fit_, fit_.trial);
      const double full_step = next;
      for (int half = 0; half < 20 && !(next >= value); ++half) {
        for (std::size_t q = 0; q < beta.size(); ++q)
          fit_.trial.flat[q] = 0.5 * (fit_.trial.flat[q] + beta.flat[q]);
        next = objective(fit_, fit_.trial);
      }
      if (!(next >= value)) {  // at the maximum rounding hides any further ascent, nowhere else
        const bool rounding = std::abs(full_step - value) <= 1e-10 * (1.0 + std::abs(value));
        return rounding ? attempt::converged : attempt::not_converged;
      }
      beta = fit_.trial;
      value = next;
    }
    return attempt::not_converged;
  }

  [[nodiscard]] const error_type& report() const { return report_; }

 private:
  regression& fit_;
  int32 baseline_;
  error_type report_;
};

/// Five attempts, from the previous coefficients and from zero, with full and with halved steps.
/// \return what the last one reached
attempt five_attempts(fitter& newton, array<double, 2>& beta) {
  array<double, 2> zero = beta;
  std::fill(zero.flat.begin(), zero.flat.end(), 0.0);
  array<double, 2> last_finite = beta;
  // 1 and 2: from the previous coefficients, then a check for effects that are truly zero.
  attempt reached = newton.settle(beta);
  if (reached == attempt::converged) return reached;
  if (finite(beta)) last_finite = beta;
  beta = zero;  // 3
  reached = newton.settle(beta);
  if (reached == attempt::converged) return reached;
  beta = last_finite;  // 4
  reached = newton.halving(beta);
  if (reached == attempt::converged) return reached;
  beta = zero;  // 5
  return newton.halving(beta);
}

int32 report_failure(attempt reached, bool prior_in_use, const fitter& newton, const routine& here,
                     const std::string& where, error_type& err) {
  if (reached == attempt::failed) {
    for (const std::string& line : lines_of(newton.report())) err_add_line(err.lines, line);
    return fail(err, here,
                {text("Could not fit logit model.  The problem occurred in:"), text(where)});
  }
  if (prior_in_use)
    return fail(err, here,
                {text("Logit model did not converge after 5"), text(" attempts."),
                 text("Could not fit logit model. The problem occured in"), text(where)});
  return fail(err, here,
              {text("Logit model did not converge after 5"), text(" attempts."),
               text("Could not fit logit model. We suggest"),
               text("using the BETA PRIOR statement."), text(where)});
}

/// Proportions of the categories that the binary form does not compare; 0 for the compared one.
std::vector<double> shares_of(const regression& fit) {
  const int32 r = fit.y.n[1];
  std::vector<double> shares(static_cast<std::size_t>(r), 0.0);
  double total = 0.0;
  for (int32 c = 1; c <= r; ++c) {
    if (c == fit.binary) continue;
    const auto at = static_cast<std::size_t>(c - 1);
    double count = fit.prior.empty() ? 0.0 : fit.prior_ess * fit.prior[at];
    for (int32 u = 1; u <= fit.y.n[0]; ++u) count += fit.y(u, c);
    shares[at] = count;
    total += count;
  }
  for (double& share : shares) share = total > 0.0 ? share / total : 0.0;
  return shares;
}

}  // namespace

void size_regression(int32 n, int32 p, int32 r, regression& fit) {
  fit.x.allocate({n, p});
  fit.y.allocate({n, r});
  fit.weight.allocate({n});
  fit.mask.allocate({n});
  fit.absent.assign(static_cast<std::size_t>(r), false);
}

int32 fit_regression(regression& fit, double* beta, std::vector<double>& shares, int32 threads,
                     const routine& here, const std::string& where, error_type& err) {
  const fitted_categories categories = categories_of(fit);
  const auto r = static_cast<int32>(categories.of.size());
  const int32 p = fit.x.n[1];
  if (fit.binary > 0) shares = shares_of(fit);
  if (r < 2) return 0;
  fill_outcome(fit, categories);
  if (fit.coefficients.n != std::array<int32, 2>{p, r}) fit.coefficients.allocate({p, r});
  for (int32 k = 1; k <= r; ++k) {
    const int32 c = categories.of[static_cast<std::size_t>(k - 1)];
    for (int32 j = 1; j <= p; ++j)
      fit.coefficients(j, k) = k == categories.baseline ? 0.0 : beta[(c - 1) * p + j - 1];
  }
  fit.logit.threads = threads;
  fitter newton(fit, categories.baseline);
  const attempt reached = five_attempts(newton, fit.coefficients);
  if (reached != attempt::converged)
    return report_failure(reached, !fit.prior.empty(), newton, here, where, err);
  for (int32 k = 1; k <= r; ++k)
    if (const int32 c = categories.of[static_cast<std::size_t>(k - 1)]; c > 0)
      for (int32 j = 1; j <= p; ++j) beta[(c - 1) * p + j - 1] = fit.coefficients(j, k);
  return 0;
}

int32 predict(const regression& fit, const double* beta, const std::vector<double>& shares,
              double* p, int32 step, std::string_view name, const routine& here, error_type& err) {
  const int32 r = fit.y.n[1];
  const int32 columns = fit.x.n[1];
  for (int32 u = 1; u <= fit.x.n[0]; ++u, p += step) {
    double most = 0.0;  // the reference's predictor
    for (int32 c = 1; c <= r; ++c) {
      p[c - 1] = 0.0;
      const bool reference = fit.binary > 0 ? c != fit.binary : c == fit.baseline;
      if (reference || fit.absent[static_cast<std::size_t>(c - 1)]) continue;
      for (int32 j = 1; j <= columns; ++j)
        p[c - 1] += fit.x(u, j) * beta[(c - 1) * columns + j - 1];
      if (!(p[c - 1] <= largest_exponent))
        return fail(err, here, error_code::exp_too_large, {text("exp for ", name)});
      most = std::max(most, p[c - 1]);
    }
    // The maximum is taken out after the check: several exponentials near the limit would overflow.
    double denominator = std::exp(-most);
    for (int32 c = 1; c <= r; ++c) {
      const bool reference = fit.binary > 0 ? c != fit.binary : c == fit.baseline;
      if (reference || fit.absent[static_cast<std::size_t>(c - 1)]) continue;
      p[c - 1] = std::exp(p[c - 1] - most);
      denominator += p[c - 1];
    }
    if (!(denominator >= smallest_normal))
      return fail(err, here, error_code::division_by_zero, {text("denom for ", name)});
    const double rest = std::exp(-most) / denominator;
    for (int32 c = 1; c <= r; ++c) {
      if (fit.binary > 0)
        p[c - 1] = c == fit.binary ? p[c - 1] / denominator
                                   : rest * shares[static_cast<std::size_t>(c - 1)];
      else
        p[c - 1] = c == fit.baseline ? rest : p[c - 1] / denominator;
    }
  }
  return 0;
}

int32 regression_parameters(const regression& fit) {
  const int32 absent = static_cast<int32>(std::count(fit.absent.begin(), fit.absent.end(), true));
  const int32 categories = fit.y.n[1] - absent;
  return fit.binary > 0 ? fit.x.n[1] + categories - 2 : fit.x.n[1] * (categories - 1);
}

}  // namespace tolvenra::estimation
