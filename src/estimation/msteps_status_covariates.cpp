#include "estimation/msteps_status_covariates.hpp"

#include <algorithm>

#include "core/dynamic_allocation.hpp"
#include "estimation/covariate_design.hpp"
#include "estimation/flat_directions.hpp"
#include "estimation/status_estep.hpp"

namespace tolvenra::estimation {
namespace {

constexpr routine loading{"load_mlworkspace_param", "estimation"};

std::size_t at(int64 i) { return static_cast<std::size_t>(i); }

int32 check_delta_codes(const mlworkspace& work, error_type& err) {
  const param_type& param = work.given.param;
  const auto& code = work.delta.code;
  if (std::any_of(code.flat.begin(), code.flat.end(), [](int32 k) { return k >= 2; }))
    return refuse_with_covariates(loading, "Delta parameter equality restrictions are not allowed",
                                  err);
  for (std::size_t q = 0; q < code.size(); ++q) {
    const auto index = indices_at(code.n, static_cast<int64>(q));
    const int32 s = index[0];
    const int32 needed =  // the reference, or the status of the binary form
        param.delta_binary_regression ? param.binary_delta : param.baseline_delta;
    if (code.flat[q] != 0) continue;
    if (work.delta.now.flat[q] != 0.0)
      return refuse_with_covariates(
          loading, "Fixed (nonzero) delta parameter restrictions are not allowed", err);
    if (s == needed)
      return fail(
          err, loading,
          {text("Delta of status ", s, " is fixed at zero in stratum (group) ", index[2], ","),
           text("but the regression needs it as its ",
                param.delta_binary_regression ? "compared" : "reference", " status.")});
  }
  return 0;
}

int32 check_tau_codes(const mlworkspace& work, error_type& err) {
  const param_type& param = work.given.param;
  const auto& code = work.tau.code;
  if (std::any_of(code.flat.begin(), code.flat.end(), [](int32 k) { return k >= 2; }))
    return refuse_with_covariates(loading, "Tau parameter equality restrictions are not allowed",
                                  err);
  for (std::size_t q = 0; q < code.size(); ++q) {
    if (code.flat[q] != 0) continue;
    const auto index = indices_at(code.n, static_cast<int64>(q));
    if (work.tau.now.flat[q] == 0.0 && param.tau_binary_regression)
      return fail(err, loading,
                  {text("Fixed (0) tau parameter restrictions are not allowed"),
                   text("when binary logistic regression has been specified.")});
    if (work.tau.now.flat[q] != 0.0)
      return refuse_with_covariates(
          loading, "Fixed (nonzero) tau parameter restrictions are not allowed", err);
    if (index[1] == param.baseline_tau(index[0], index[2]))
      return fail(
          err, loading,
          {text("Tau from status ", index[0], " to ", index[1], " is fixed at zero at time ",
                index[2], " in stratum (group) ", index[4], ","),
           text("but the regression needs it as its reference status.")});
  }
  return 0;
}

/// One fitted row of categories: a class of a stratum, for tau at a transition and origin too; all
/// 1-based.
struct place {
  int32 g, c, k = 1, s = 1;
};

std::string text_of(const place& p, bool transition) {
  std::string where = "Group: " + to_text(int64{p.g}) + "; class: " + to_text(int64{p.c});
  if (transition) where += "; transition: " + to_text(int64{p.k}) + "; row: " + to_text(int64{p.s});
  return where;
}

/// Calls body(place) for every row of delta, or of tau.
template <class Body>
int32 for_each_place(const mlworkspace& work, bool transition, Body&& body) {
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 c = 1; c <= work.latent.nc; ++c)
      for (int32 k = 1; k <= (transition ? work.data.nt - 1 : 1); ++k)
        for (int32 s = 1; s <= (transition ? work.latent.ns : 1); ++s)
          if (body(place{g, c, k, s}) != 0) return -1;
  return 0;
}

/// The regressions of the initial status.
struct delta_family {
  static constexpr bool transition = false;
  static constexpr routine here{"mstep_delta_beta", "estimation"};
  static constexpr std::string_view name = "delta";
  static constexpr std::string_view no_workspace =
      "Unable to allocate instance(s) of the logit workspace type for delta beta.";

  static auto& block(auto& work) { return work.delta_beta; }
  static auto& probabilities(auto& work) { return work.delta.now; }
  static std::size_t design(const mlworkspace&, const place& p) { return at(p.g - 1); }
  static std::size_t row(const mlworkspace& work, const place& p) {
    return at(int64{p.g - 1} * work.latent.nc + p.c - 1);
  }
  static int32 columns(const mlworkspace& work) { return work.data.ncov_delta + 1; }
  static int32 first_column(const mlworkspace& work, int32) { return work.data.ncov + 1; }
  static double* cell(auto& values, const place& p, int32 d) { return &values(d, p.c, p.g); }
  static double* coefficients(array<double, 4>& beta, const place& p, int32 d) {
    return &beta(1, d, p.c, p.g);
  }
  static int32 code(const mlworkspace& work, const place& p, int32 d) {
    return work.delta.code(d, p.c, p.g);
  }
  static int32 baseline(const param_type& param, const place&) { return param.baseline_delta; }
  static int32 compared(const param_type& param, const place&) {
    return param.delta_binary_regression ? param.binary_delta : 0;
  }
  static double prior(const param_type& param, const place& p, int32 d) {
    return param.delta_beta_stabilizing_prior(d, p.c, p.g);
  }
  static double prior_ess(const param_type& param) {
    return param.delta_beta_stabilizing_prior_ess;
  }
  /// Counts and probabilities of the place at a pattern, 0-based.
  static const double* count(const mlworkspace& work, const place& p, int32 unit) {
    return &work.statuses.delta_count[work.statuses.delta_at(unit, p.c - 1)];
  }
  static std::size_t table(const mlworkspace& work, const place& p, int32 unit) {
    return work.statuses.delta_at(unit, p.c - 1);
  }
  static std::vector<double>& tables(status_tables& t) { return t.delta; }
  static const std::vector<double>& tables(const status_tables& t) { return t.delta; }
};

/// The regressions of the transitions.
struct tau_family {
  static constexpr bool transition = true;
  static constexpr routine here{"mstep_tau_beta", "estimation"};
  static constexpr std::string_view name = "tau";
  static constexpr std::string_view no_workspace =
      "Unable to allocate instance(s) of the logit workspace type for tau beta.";

  static auto& block(auto& work) { return work.tau_beta; }
  static auto& probabilities(auto& work) { return work.tau.now; }
  static std::size_t design(const mlworkspace& work, const place& p) {
    return at(int64{p.g - 1} * (work.data.nt - 1) + p.k - 1);
  }
  static std::size_t row(const mlworkspace& work, const place& p) {
    return at(((int64{p.g - 1} * work.latent.nc + p.c - 1) * (work.data.nt - 1) + p.k - 1) *
                  work.latent.ns +
              p.s - 1);
  }
  static int32 columns(const mlworkspace& work) { return work.data.ncov_tau + 1; }
  static int32 first_column(const mlworkspace& work, int32 k) {
    return work.data.ncov + work.data.ncov_delta + (k - 1) * work.data.ncov_tau + 1;
  }
  static double* cell(auto& values, const place& p, int32 d) {
    return &values(p.s, d, p.k, p.c, p.g);
  }
  static double* coefficients(array<double, 6>& beta, const place& p, int32 d) {
    return &beta(1, p.s, d, p.k, p.c, p.g);
  }
  static int32 code(const mlworkspace& work, const place& p, int32 d) {
    return work.tau.code(p.s, d, p.k, p.c, p.g);
  }
  static int32 baseline(const param_type& param, const place& p) {
    return param.baseline_tau(p.s, p.k);
  }
  static int32 compared(const param_type& param, const place& p) {
    return param.tau_binary_regression ? param.binary_tau(p.s, p.k) : 0;
  }
  static double prior(const param_type& param, const place& p, int32 d) {
    return param.tau_beta_stabilizing_prior(p.s, d, p.k, p.c, p.g);
  }
  static double prior_ess(const param_type& param) { return param.tau_beta_stabilizing_prior_ess; }
  static const double* count(const mlworkspace& work, const place& p, int32 unit) {
    const status_tables& tables = work.statuses;
    return &tables.tau_count[tables.tau_count_at(unit, p.c - 1, p.k - 1) + tables.vectors(p.s - 1)];
  }
  static std::size_t table(const mlworkspace& work, const place& p, int32 unit) {
    return work.statuses.tau_at(unit, p.c - 1, p.k - 1) + work.statuses.vectors(p.s - 1);
  }
  static std::vector<double>& tables(status_tables& t) { return t.tau; }
  static const std::vector<double>& tables(const status_tables& t) { return t.tau; }
};

/// The stabilising prior of a row.
template <class Family>
std::vector<double> prior_of(const mlworkspace& work, const place& p) {
  std::vector<double> prior;
  std::vector<bool> absent;
  for (int32 d = 1; d <= work.latent.ns; ++d) {
    prior.push_back(Family::prior(work.given.param, p, d));
    absent.push_back(Family::code(work, p, d) == 0);
  }
  return compute_stabilizing_prior(std::move(prior), absent);
}

/// What differs between the rows that share a design: structural zeros, reference and prior.
template <class Family>
void aim(const mlworkspace& work, const place& p, regression& fit) {
  const param_type& param = work.given.param;
  const auto& block = Family::block(work);
  fit.baseline = Family::baseline(param, p);
  fit.binary = Family::compared(param, p);
  fit.prior.clear();
  for (int32 d = 1; d <= work.latent.ns; ++d) fit.absent[at(d - 1)] = Family::code(work, p, d) == 0;
  if (block.use_prior) fit.prior = prior_of<Family>(work, p);
  fit.prior_ess = block.use_prior ? Family::prior_ess(param) : 0.0;
}

/// Coefficients of a row, side by side: (columns, statuses), column-major.
template <class Family>
std::vector<double> gather(auto& beta, const mlworkspace& work, const place& p) {
  const int32 columns = Family::columns(work);
  std::vector<double> own;
  for (int32 d = 1; d <= work.latent.ns; ++d) {
    const double* from = Family::coefficients(beta, p, d);
    own.insert(own.end(), from, from + columns);
  }
  return own;
}

template <class Family>
void scatter(const std::vector<double>& own, const mlworkspace& work, const place& p, auto& beta) {
  const int32 columns = Family::columns(work);
  for (int32 d = 1; d <= work.latent.ns; ++d)
    std::copy_n(own.begin() + (d - 1) * columns, columns, Family::coefficients(beta, p, d));
}

/// Probabilities of a row at every pattern of its stratum, into the tables.
template <class Family>
int32 predict_row(mlworkspace& work, const place& p, double limit, error_type& err) {
  auto& block = Family::block(work);
  regression& fit = block.fits[Family::design(work, p)];
  aim<Family>(work, p, fit);
  const pattern_range patterns = patterns_of(work, p.g);
  const std::size_t first = Family::table(work, p, patterns.first);
  const std::size_t step = Family::table(work, p, patterns.first + 1) - first;
  const std::vector<double> beta = gather<Family>(block.now, work, p);
  return predict(fit, beta.data(), block.rows[Family::row(work, p)].shares,
                 &Family::tables(work.statuses)[first], static_cast<int32>(step), Family::name,
                 Family::here, err, limit);
}

/// The transposed matrices follow the matrices.
void transpose_transitions(status_tables& tables) {
  const std::size_t matrix = tables.vectors(tables.ns);
  for (std::size_t m = 0; m < tables.tau.size(); m += 2 * matrix)
    for (int32 s = 0; s < tables.ns; ++s)
      for (int32 d = 0; d < tables.ns; ++d)
        tables.tau[m + matrix + tables.vectors(d) + at(s)] =
            tables.tau[m + tables.vectors(s) + at(d)];
}

template <class Family>
int32 predict_all(mlworkspace& work, double limit, error_type& err) {
  if (for_each_place(work, Family::transition,
                     [&](const place& p) { return predict_row<Family>(work, p, limit, err); }) != 0)
    return -1;
  if (Family::transition) transpose_transitions(work.statuses);
  return 0;
}

template <class Family>
int32 load_family(mlworkspace& work, const routine& here, std::string_view label, error_type& err) {
  auto& block = Family::block(work);
  const bool transition = Family::transition;
  block.n_estimated = 0;
  block.fits.clear();
  block.rows.clear();
  const auto load_designs = [&] {
    for (int32 g = 1; g <= work.data.nstr; ++g)
      for (int32 k = 1; k <= (transition ? work.data.nt - 1 : 1); ++k) {
        const pattern_range patterns = patterns_of(work, g);
        regression& fit = block.fits.emplace_back();
        size_regression(patterns.count, Family::columns(work), work.latent.ns, fit);
        fill_design(work, patterns.first, Family::first_column(work, k), fit);
      }
  };
  if (allocation::allocate_under(label, here, err, load_designs) != 0)
    return fail(err, here, {text(Family::no_workspace)});
  for_each_place(work, transition, [&](const place& p) {
    regression& fit = block.fits[Family::design(work, p)];
    aim<Family>(work, p, fit);
    std::vector<double> start;
    for (int32 d = 1; d <= work.latent.ns; ++d)
      start.push_back(*Family::cell(Family::probabilities(work), p, d));
    block.rows.emplace_back().shares = starting_shares(start, fit.binary);
    std::vector<double> beta = gather<Family>(block.now, work, p);
    refer_to_baseline(fit, beta.data());
    scatter<Family>(beta, work, p, block.now);
    block.n_estimated += regression_parameters(fit);
    return 0;
  });
  return predict_all<Family>(work, largest_exponent, err);
}

/// The expected statuses, or moves, of the row at every pattern.
template <class Family>
void fill_outcomes(const mlworkspace& work, const place& p, regression& fit) {
  const pattern_range patterns = patterns_of(work, p.g);
  for (int32 u = 1; u <= patterns.count; ++u) {
    const double* count = Family::count(work, p, patterns.first + u - 1);
    for (int32 d = 1; d <= work.latent.ns; ++d) fit.y(u, d) = count[d - 1];
  }
}

template <class Family>
int32 mstep_family(mlworkspace& work, error_type& err) {
  auto& block = Family::block(work);
  const auto fit_row = [&](const place& p) {
    regression& fit = block.fits[Family::design(work, p)];
    aim<Family>(work, p, fit);
    fill_outcomes<Family>(work, p, fit);
    std::vector<double> beta = gather<Family>(block.now, work, p);
    if (fit_regression(fit, beta.data(), block.rows[Family::row(work, p)], work.em.threads,
                       Family::here, text_of(p, Family::transition), err) != 0)
      return -1;
    scatter<Family>(beta, work, p, block.now);
    return 0;
  };
  if (for_each_place(work, Family::transition, fit_row) != 0) return -1;
  return predict_all<Family>(work, any_predictor, err);
}

template <class Family>
void find_family_runaways(mlworkspace& work) {
  auto& block = Family::block(work);
  if (!block.active) return;
  for_each_place(work, Family::transition, [&](const place& p) {
    regression& fit = block.fits[Family::design(work, p)];
    aim<Family>(work, p, fit);
    fill_outcomes<Family>(work, p, fit);
    const std::vector<double> beta = gather<Family>(block.now, work, p);
    find_runaways(fit, beta.data(), work.em.threads, block.rows[Family::row(work, p)]);
    return 0;
  });
}

/// \param left_out  covariate, 1-based; 0 for none
template <class Family>
int32 regress_family_without(mlworkspace& work, int32 left_out, auto& beta, error_type& err) {
  auto& block = Family::block(work);
  const int32 columns = Family::columns(work) - (left_out > 0 ? 1 : 0);
  auto extents = block.now.n;
  extents[0] = columns;
  beta.allocate(extents);
  if (!block.active) return 0;
  return for_each_place(work, Family::transition, [&](const place& p) {
    regression& fit = block.fits[Family::design(work, p)];
    aim<Family>(work, p, fit);
    fill_outcomes<Family>(work, p, fit);
    std::vector<double> own(at(int64{columns} * work.latent.ns), 0.0);
    if (fit_without(fit, left_out, own.data(), work.em.threads, Family::here,
                    text_of(p, Family::transition), err) != 0)
      return -1;
    for (int32 d = 1; d <= work.latent.ns; ++d)
      std::copy_n(own.begin() + (d - 1) * columns, columns, Family::coefficients(beta, p, d));
    return 0;
  });
}

/// Averages of the probabilities over the patterns, weighted by the expected cases in the row; by
/// the patterns' weights where none is expected.
template <class Family>
void average_family(mlworkspace& work) {
  for_each_place(work, Family::transition, [&](const place& p) {
    const pattern_range patterns = patterns_of(work, p.g);
    const auto weighted_by = [&](auto&& weight_of) {
      std::vector<double> mean(at(work.latent.ns), 0.0);
      double total = 0.0;
      for (int32 unit = patterns.first; unit < patterns.first + patterns.count; ++unit) {
        const double weight = weight_of(unit);
        const double* own = &Family::tables(work.statuses)[Family::table(work, p, unit)];
        for (std::size_t d = 0; d < mean.size(); ++d) mean[d] += weight * own[d];
        total += weight;
      }
      for (double& m : mean) m /= total;
      if (total > 0.0)
        for (int32 d = 1; d <= work.latent.ns; ++d)
          *Family::cell(Family::probabilities(work), p, d) = mean[at(d - 1)];
      return total > 0.0;
    };
    const bool expected = weighted_by([&](int32 unit) {
      const double* count = Family::count(work, p, unit);
      double cases = 0.0;
      for (int32 d = 0; d < work.latent.ns; ++d) cases += count[d];
      return cases;
    });
    if (!expected) weighted_by([&](int32 unit) { return work.rows->covariates.weight[at(unit)]; });
    return 0;
  });
}

template <class Family>
double log_prior_of_family(const mlworkspace& work) {
  double sum = 0.0;
  for_each_place(work, Family::transition, [&](const place& p) {
    const pattern_range patterns = patterns_of(work, p.g);
    double total = 0.0;
    double of_row = 0.0;
    const std::vector<double> prior = prior_of<Family>(work, p);
    for (int32 unit = patterns.first; unit < patterns.first + patterns.count; ++unit) {
      const double weight = work.rows->covariates.weight[at(unit)];
      const double* own = &Family::tables(work.statuses)[Family::table(work, p, unit)];
      total += weight;
      for (int32 d = 1; d <= work.latent.ns; ++d) {
        if (prior[at(d - 1)] > 0.0) of_row += weight * prior[at(d - 1)] * std::log(own[d - 1]);
      }
    }
    sum += Family::prior_ess(work.given.param) / total * of_row;
    return 0;
  });
  return sum;
}

}  // namespace

int32 check_status_codes(mlworkspace& work, error_type& err) {
  const bool statuses = work.data.ni > 0 && work.latent.ns >= 2;
  work.delta_beta.active = statuses && work.data.ncov_delta > 0;
  work.tau_beta.active = statuses && work.data.ncov_tau > 0 && work.data.nt >= 2;
  if (work.delta_beta.active && check_delta_codes(work, err) != 0) return -1;
  return work.tau_beta.active ? check_tau_codes(work, err) : 0;
}

int32 load_delta_beta(mlworkspace& work, error_type& err) {
  constexpr routine here{"load_delta_beta", "estimation"};
  const param_type& param = work.given.param;
  work.delta_beta.now = param.delta_beta;
  work.delta_beta.old = param.delta_beta;
  if (!work.delta_beta.active) return 0;
  work.delta_beta.use_prior =
      param.delta_beta_stabilizing_prior_set && param.delta_beta_stabilizing_prior_ess > 0.0;
  work.delta.n_estimated = 0;  // delta follows from delta_beta
  return load_family<delta_family>(work, here, "mstep_delta_beta: post", err);
}

int32 load_tau_beta(mlworkspace& work, error_type& err) {
  constexpr routine here{"load_tau_beta", "estimation"};
  const param_type& param = work.given.param;
  work.tau_beta.now = param.tau_beta;
  work.tau_beta.old = param.tau_beta;
  if (!work.tau_beta.active) return 0;
  work.tau_beta.use_prior =
      param.tau_beta_stabilizing_prior_set && param.tau_beta_stabilizing_prior_ess > 0.0;
  work.tau.n_estimated = 0;  // tau follows from tau_beta
  return load_family<tau_family>(work, here, "mstep_tau_beta: post", err);
}

int32 mstep_delta_beta(mlworkspace& work, error_type& err) {
  return mstep_family<delta_family>(work, err);
}
int32 mstep_tau_beta(mlworkspace& work, error_type& err) {
  return mstep_family<tau_family>(work, err);
}

void find_status_runaways(mlworkspace& work) {
  find_family_runaways<delta_family>(work);
  find_family_runaways<tau_family>(work);
}

int32 regress_statuses_without(mlworkspace& work, int32 of_start, int32 of_moves,
                               array<double, 4>& delta_beta, array<double, 6>& tau_beta,
                               error_type& err) {
  if (regress_family_without<delta_family>(work, of_start, delta_beta, err) != 0) return -1;
  return regress_family_without<tau_family>(work, of_moves, tau_beta, err);
}

void average_status_probabilities(mlworkspace& work) {
  if (work.delta_beta.active) average_family<delta_family>(work);
  if (work.tau_beta.active) average_family<tau_family>(work);
}

double status_log_prior(const mlworkspace& work) {
  double sum = 0.0;
  if (work.delta_beta.active && work.delta_beta.use_prior)
    sum += log_prior_of_family<delta_family>(work);
  if (work.tau_beta.active && work.tau_beta.use_prior) sum += log_prior_of_family<tau_family>(work);
  return sum;
}

}  // namespace tolvenra::estimation
