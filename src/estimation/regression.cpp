#include "estimation/regression.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include "estimation/flat_directions.hpp"
#include "estimation/guarded_climb.hpp"

namespace tolvenra::estimation {
namespace {

constexpr int32 newton_limit = 20;
std::size_t at(int32 i) { return static_cast<std::size_t>(i); }

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
  explicit fitter(regression& fit) : fit_(fit) {}

  /// Up to `limit` Newton steps from `beta`.
  attempt newton(array<double, 2>& beta, int32 limit) {
    err_reset(report_);
    int32 iterations = 0;
    bool converged = false;
    const int32 slots = logit_model::slots_for(fit_.x.n[0], fit_.x.n[1], fit_.outcome.n[1]);
    if (logit_model::run_logit_model_threads(fit_.x, fit_.outcome, nullptr, fit_.fitted.baseline,
                                             iterations, converged, loglik_, beta, fit_.mask, 1,
                                             slots, limit, fit_.logit, report_) != 0)
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

  /// Bound from below on the information of any direction after a fit that converged, per 1 +
  /// |objective|: no linear predictor has a larger variance than the sum of its parts allows.
  [[nodiscard]] double margin() const {
    const logit_mt_workspace_type& work = fit_.logit;
    double widest = 0.0;
    for (int32 q = 0; q < work.inverse.n[0]; q += work.p) {
      double deviation = 0.0;
      for (int32 j = 1; j <= work.p; ++j)
        deviation += fit_.reach[at(j - 1)] * std::sqrt(work.inverse(q + j, q + j));
      widest = std::max(widest, deviation * deviation);
    }
    return widest > 0.0 ? 1.0 / (widest * (1.0 + std::abs(loglik_))) : 0.0;
  }

  [[nodiscard]] const error_type& report() const { return report_; }

 private:
  regression& fit_;
  double loglik_ = 0.0;
  error_type report_;
};

/// The attempts at one regression.
class attempts {
 public:
  attempts(regression& fit, fitted_row& row, int32 threads)
      : fit_(fit), row_(row), newton_(fit), surface_(fit, threads), begin_(fit.coefficients) {}

  /// 1 and 2: Newton from the coefficients at hand, with a check for effects that are truly zero;
  /// 3: from zero; 4 and 5: the guarded climb from both. \return what the last one reached
  attempt run() {
    const bool fresh = row_.margin < 0.0;
    if (row_.climbs || !(fresh || informed())) look_at_begin();
    if (!row_.climbs && !directions_.any_flat()) {
      const attempt reached = plain_fits();
      if (reached == attempt::converged && (!fresh || informed())) return reached;
      if (fit_.aliased || surface_.order() == 0) return reached;
      if (!value_) look_at_begin();
      if (reached == attempt::converged && !directions_.any_flat() && risen(fit_.coefficients))
        return reached;
    }
    if (!has_basis_) return attempt::failed;
    const array<double, 2> movable = movable_directions(surface_, begin_, directions_);
    const attempt reached = guarded(begin_, movable);
    if (reached == attempt::converged) return reached;
    return guarded(zero_but_held(movable), movable);
  }

  [[nodiscard]] const fitter& newton() const { return newton_; }

 private:
  /// Whether the last fit left no direction near the limit below which they are held.
  [[nodiscard]] bool informed() const { return row_.margin > 1e3 * held_below; }

  /// Directions by information where the M-step begins. It costs more than the fit of an ordinary
  /// regression, which does not need it.
  void look_at_begin() {
    has_basis_ = reference_basis(fit_, basis_);
    if (!has_basis_) return;
    surface_.expand(begin_);
    value_ = surface_.value;
    directions_ = find_directions(surface_, basis_, held_below);
  }

  attempt plain_fits() {
    array<double, 2> zero = begin_;
    std::fill(zero.flat.begin(), zero.flat.end(), 0.0);
    attempt reached = attempt::failed;
    for (const array<double, 2>* from : {&begin_, &zero}) {
      fit_.coefficients = *from;
      reached = newton_.settle(fit_.coefficients);
      if (reached != attempt::converged) continue;
      if (!value_ || risen(fit_.coefficients)) break;
      reached = attempt::not_converged;
    }
    if (reached == attempt::converged) row_.margin = newton_.margin();
    return reached;
  }

  attempt guarded(array<double, 2> from, const array<double, 2>& movable) {
    const climb_outcome outcome = climb(surface_, movable, fit_.limits, from);
    if (!outcome.finite) return attempt::failed;
    if (!outcome.converged || !risen(from)) return attempt::not_converged;
    const bool held = movable.n[1] < surface_.order();
    row_.margin = held ? 0.0 : outcome.margin;
    row_.climbs = !(row_.margin > runaway_below);
    fit_.coefficients = std::move(from);
    return attempt::converged;
  }

  /// Zero along the movable directions; what is held stays.
  [[nodiscard]] array<double, 2> zero_but_held(const array<double, 2>& movable) const {
    const array<double, 2> reference = reference_of(fit_);
    const int32 order = surface_.order();
    array<double, 2> rest = begin_;
    for (int32 i = 1; i <= movable.n[1]; ++i) {
      double part = 0.0;  // of the coefficients along this direction, in the reference
      for (int32 q = 0; q < order; ++q)
        for (int32 s = 0; s < order; ++s)
          part += movable(q + 1, i) * reference(q + 1, s + 1) *
                  begin_(surface_.column(s), surface_.category(s));
      for (int32 q = 0; q < order; ++q)
        rest(surface_.column(q), surface_.category(q)) -= part * movable(q + 1, i);
    }
    return rest;
  }

  /// Whether the objective is not below that of the beginning, but for rounding of the sums.
  bool risen(const array<double, 2>& beta) {
    const double rounding = 1e-12 * (1.0 + std::abs(*value_)) +
                            std::max(surface_.rounding(beta), surface_.rounding(begin_));
    return surface_.objective(beta) >= *value_ - rounding;
  }

  regression& fit_;
  fitted_row& row_;
  fitter newton_;
  regression_surface surface_;
  array<double, 2> begin_, basis_;
  bool has_basis_ = false;
  std::optional<double> value_;  ///< objective at the beginning, where it was looked at
  direction_set directions_;
};

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
/// They stay as they are where nobody is expected in any of them.
void update_shares(const regression& fit, std::vector<double>& shares) {
  const int32 r = fit.y.n[1];
  std::vector<double> counts(at(r), 0.0);
  double total = 0.0;
  for (int32 c = 1; c <= r; ++c) {
    if (c == fit.binary) continue;
    double& count = counts[at(c - 1)];
    if (!fit.prior.empty()) count = fit.prior_ess * fit.prior[at(c - 1)];
    for (int32 u = 1; u <= fit.y.n[0]; ++u) count += fit.y(u, c);
    total += count;
  }
  if (!(total > 0.0)) return;
  for (double& count : counts) count /= total;
  shares = std::move(counts);
}

}  // namespace

int32 fit_regression(regression& fit, double* beta, fitted_row& row, int32 threads,
                     const routine& here, const std::string& where, error_type& err) {
  if (fit.binary > 0) update_shares(fit, row.shares);
  if (!load_outcome(fit) || fit.fitted.count() < 2) return 0;
  load_coefficients(fit, beta);
  fit.logit.threads = threads;
  attempts all(fit, row, threads);
  const attempt reached = all.run();
  if (reached != attempt::converged)
    return report_failure(reached, !fit.prior.empty(), all.newton(), here, where, err);
  const int32 p = fit.x.n[1];
  for (int32 k = 1; k <= fit.fitted.count(); ++k)
    if (k != fit.fitted.baseline)
      to_user(fit, fit.coefficients.column(k), beta + (fit.fitted.of[at(k - 1)] - 1) * p);
  return 0;
}

int32 fit_without(const regression& fit, int32 left_out, double* beta, int32 threads,
                  const routine& here, const std::string& where, error_type& err) {
  const int32 n = fit.x.n[0];
  const int32 r = fit.y.n[1];
  regression rest;
  size_regression(n, fit.x.n[1] - (left_out > 0 ? 1 : 0), r, rest);
  for (int32 j = 1, to = 0; j <= fit.x.n[1]; ++j) {
    if (left_out > 0 && j == left_out + 1) continue;
    ++to;
    for (int32 u = 1; u <= n; ++u)
      rest.x(u, to) = fit.mean[at(j - 1)] + fit.scale[at(j - 1)] * fit.x(u, j);
  }
  rest.weight = fit.weight;
  scale_design(rest);
  rest.y = fit.y;
  rest.baseline = fit.baseline;
  rest.binary = fit.binary;
  rest.absent = fit.absent;
  rest.prior = fit.prior;
  rest.prior_ess = fit.prior_ess;
  std::fill_n(beta, int64{rest.x.n[1]} * r, 0.0);
  fitted_row row;
  return fit_regression(rest, beta, row, threads, here, where, err);
}

}  // namespace tolvenra::estimation
