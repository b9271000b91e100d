#include "estimation/fit_stats.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>

#include "core/dynamic_allocation.hpp"
#include "estimation/expected_counts.hpp"
#include "estimation/response_patterns.hpp"
#include "estimation/saturated.hpp"

namespace tolvenra::estimation {
namespace {

constexpr routine here{"run_compute_fit_stats", "estimation"};
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::size_t offset(int32 row) { return static_cast<std::size_t>(row - 1); }

/// Pearson's contribution of one missingness pattern, its unobserved cells among them.
double pearson(const std::vector<double>& observed, const std::vector<double>& expected) {
  double x2 = 0.0;
  double unobserved = 0.0;
  for (std::size_t p = 0; p < observed.size(); ++p) {
    const double difference = observed[p] - expected[p];
    x2 += difference * difference / expected[p];
    unobserved += difference;
  }
  return x2 + unobserved;
}

/// What the strata share: the bounds on the work, and the host's wish.
struct stage {
  stage(const mlworkspace& work, const fit_stats_controls& controls)
      : saturated(controls.saturated),
        watch(controls.watch, work.em),
        expected(work, controls.expected, watch) {}

  bool saturated;
  stage_watch watch;
  expected_counter expected;
  int64 cell_work = int64{1} << 31;    ///< left for finding classes of cells
  int64 cell_visits = int64{1} << 31;  ///< left for the passes
};

/// Sums over the strata.
struct saturated_sums {
  double loglik = 0.0;    ///< of the saturated model
  double separate = 0.0;  ///< of free probabilities for every missingness pattern
  double x2 = 0.0, df = 0.0, shortfall = 0.0;
  int32 passes = 0, unfinished = 0;
  bool overflow = false;  ///< a saturated model is out of reach
  bool failed = false;    ///< for a reason that was reported
};

double multinomial_loglik(const std::vector<double>& counts, double total) {
  double loglik = 0.0;
  const double log_total = std::log(total);  // n / total may be too small for a double
  for (const double n : counts)
    if (n > 0.0) loglik += n * (std::log(n) - log_total);
  return loglik;
}

double sum_of(const std::vector<double>& values) {
  return std::accumulate(values.begin(), values.end(), 0.0);
}

int32 add_complete_stratum(const mlworkspace& work, int32 stratum, stage& own,
                           mlresult_type& result, saturated_sums& sums, error_type& err) {
  stratum_patterns patterns;
  if (aggregate_stratum(work, stratum, patterns, err) != 0)
    return fail(err, here, {text("Could not aggregate the data.")});
  const std::vector<double>& counts = patterns.count.flat;
  const double total = sum_of(counts);
  const auto expected = own.expected(patterns.row.flat, total);
  sums.loglik += multinomial_loglik(counts, total);
  sums.x2 += pearson(counts, expected);
  const auto append = [](const auto& from, auto& to) {
    to.insert(to.end(), from.begin(), from.end());
  };
  append(patterns.row.flat, result.pattern_row);
  append(counts, result.observed);
  append(expected, result.expected);
  return 0;
}

/// Expected counts and X2, missingness pattern by missingness pattern.
int32 compare_with_model(expected_counter& expected_of, const std::vector<int32>& rows,
                         mdinfo_type& mdinfo, saturated_sums& sums, error_type& err) {
  const int32 npatt = mdinfo.ord.n[0];
  if (dynamic_allocation::dbl1_alloc(mdinfo.expected, npatt, err, {},
                                     "run_compute_fit_stats: mdinfo%expected") != 0)
    return pass_on(err, here);
  std::vector<int32> members;
  std::vector<double> observed;
  for (int32 m = 1; m <= mdinfo.mdpst.n[0]; ++m) {
    members.clear();
    observed.clear();
    const auto first = mdinfo.ord.flat.begin() + (mdinfo.mdpst(m) - 1);
    for (auto at = first; at != first + mdinfo.nmdp(m); ++at) {
      members.push_back(rows[offset(*at)]);
      observed.push_back(mdinfo.orig_counts(*at));
    }
    const double total = sum_of(observed);
    const auto expected = expected_of(members, total);
    sums.separate += multinomial_loglik(observed, total);
    sums.x2 += pearson(observed, expected);
    for (std::size_t i = 0; i < expected.size(); ++i)
      mdinfo.expected(first[static_cast<std::ptrdiff_t>(i)]) = expected[i];
  }
  return 0;
}

/// Fits the saturated model of one stratum with missing responses; without it there is none of the
/// data.
void fit_saturated(const mlworkspace& work, int32 stratum, stage& own, mdinfo_type& mdinfo,
                   saturated_sums& sums, error_type& err) {
  const auto stop = [&own] { return own.watch.stop(); };
  mdinfo.limits.work = own.cell_work;
  mdinfo.limits.cancelled = mdinfo.controls.cancelled = stop;
  mdinfo.controls.max_visits = own.cell_visits / (work.data.nstr - stratum + 1);
  mdinfo.controls.threads = work.em.threads;
  int32 passes = 0;
  sums.failed = md_catmod(work, mdinfo, 0.01 * work.em.criterion, passes, err) != 0;
  if (sums.failed) fail(err, here, {text("Could not fit the CAT model.")});
  if (own.watch.stopped()) return;
  sums.overflow = sums.failed || mdinfo.overflow;
  if (sums.overflow) return;
  own.cell_work -= mdinfo.classes.work;
  own.cell_visits -= mdinfo.fit.visits;
  sums.passes += passes;
  sums.unfinished += mdinfo.fit.converged ? 0 : 1;
  sums.shortfall += mdinfo.fit.shortfall;
  sums.loglik += mdinfo.fit.loglik;
  sums.df += missingness_df(mdinfo);
}

int32 add_incomplete_stratum(const mlworkspace& work, int32 stratum, stage& own,
                             mlresult_type& result, saturated_sums& sums, error_type& err) {
  mdinfo_type mdinfo;
  if (md_preliminaries(work, mdinfo, err, stratum) != 0)
    return fail(err, here, {text("Could not initialize arrays for CAT model.")});
  if (compare_with_model(own.expected, mdinfo.rows, mdinfo, sums, err) != 0) return -1;
  if (own.saturated && !sums.overflow && !own.watch.stopped())
    fit_saturated(work, stratum, own, mdinfo, sums, err);
  const auto append = [](const auto& from, auto& to) {
    to.insert(to.end(), from.begin(), from.end());
  };
  append(mdinfo.rows, result.pattern_row);
  append(mdinfo.orig_counts.flat, result.observed);
  append(mdinfo.expected.flat, result.expected);
  if (nullify_mdinfo(mdinfo, err) != 0)
    return fail(err, here, {text("Unable to nullify the mdinfo type.")});
  return 0;
}

/// Hands the sums to the result; what does not exist after an overflow is 0, X2 is NaN.
void fill_saturated(const saturated_sums& sums, bool missing, mlresult_type& result) {
  result.cat_loglik = result.cat_g2 = result.cat_shortfall = 0.0;
  result.cat_df = result.cat_passes = result.cat_unfinished = 0;
  if (sums.overflow) {
    result.overflow_count = 2;
  } else {
    result.cat_loglik = sums.loglik;
    result.cat_passes = sums.passes;
    result.cat_unfinished = sums.unfinished;
    result.cat_shortfall = sums.shortfall;
    // The separate model contains the common one: below 0 there is only rounding.
    if (missing) result.cat_g2 = std::max(2.0 * (sums.separate - sums.loglik), 0.0);
    constexpr int32 most = std::numeric_limits<int32>::max();
    if (sums.df <= most) {
      result.cat_df = static_cast<int32>(sums.df);
    } else {  // or not a number
      result.cat_df = most;
      result.overflow_count = std::max(result.overflow_count, 1);
    }
  }
  result.X2 = result.overflow_count == 0 ? sums.x2 : nan;
}

/// Patterns, their counts and the saturated model, stratum by stratum.
int32 add_strata(const mlworkspace& work, stage& own, mlresult_type& result, saturated_sums& sums,
                 error_type& err) {
  const auto add_stratum = work.data.missing ? add_incomplete_stratum : add_complete_stratum;
  try {
    for (int32 g = 1; g <= work.data.nstr; ++g)
      if (add_stratum(work, g, own, result, sums, err) != 0) return -1;
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation);
  }
  return sums.failed ? -1 : 0;
}

/// The host cancelled before the strata were done.
void mark_unfinished(mlresult_type& result) {
  result.cat_loglik = result.cat_g2 = result.cat_shortfall = result.X2 = nan;
  result.cat_df = -1;
}

void forget_patterns(mlresult_type& result) {
  result.pattern_row.clear();
  result.observed.clear();
  result.expected.clear();
}

/// Classification entropy of the posteriors, each row counted `times(row)` times.
double raw_entropy(const mlresult_type& result, const std::vector<double>& times) {
  const auto nc = static_cast<std::size_t>(result.nc);
  double entropy = 0.0;
  for (std::size_t row = 0; row < times.size(); ++row) {
    double of_row = 0.0;
    for (std::size_t c = 0; c < nc; ++c) {
      const double p = result.post_cls[row * nc + c];
      of_row -= p * std::log(p + 1e-10);
    }
    entropy += times[row] * of_row;
  }
  return entropy;
}

void fill_criteria(double n, mlresult_type& result) {
  const double p = result.n_params_estimated;
  result.aic = result.G2 + 2.0 * p;
  result.bic = result.G2 + std::log(n) * p;
  result.caic = result.G2 + (std::log(n) + 1.0) * p;
  result.abic = result.G2 + std::log((n + 2.0) / 24.0) * p;
}

void fill_entropy(const mlworkspace& work, mlresult_type& result) {
  const double scale = work.data.total_weight * std::log(work.latent.nc) + 1e-15;
  const auto relative = [&](double raw) { return work.latent.nc < 2 ? 1.0 : 1.0 - raw / scale; };
  result.entropyraw = raw_entropy(result, work.rows->cases);
  result.entropy = relative(result.entropyraw);
  result.weighted_entropyraw = raw_entropy(result, work.rows->weight);
  result.weighted_entropy = relative(result.weighted_entropyraw);
}

}  // namespace

void set_apparent_df(const mlworkspace& work, mlresult_type& result) {
  constexpr double most = std::numeric_limits<int32>::max();
  double cells = 1.0;
  for (const int32 categories : work.data.nrc.flat) cells *= categories;
  for (const int32 categories : work.data.nrs.flat) cells *= std::pow(categories, work.data.nt);
  const double df = work.data.nstr * (cells - 1.0) - result.n_params_estimated;
  if (!(cells <= most && df <= most)) {
    result.overflow_count = 1;
    result.apparent_df = std::numeric_limits<int32>::max();
  } else {
    result.apparent_df = static_cast<int32>(df);
  }
}

int32 run_compute_fit_stats(mlworkspace& work, mlresult_type& result, error_type& err,
                            const fit_stats_controls& controls) {
  forget_patterns(result);
  stage own(work, controls);
  own.watch.stop();
  saturated_sums sums;
  const int32 status = add_strata(work, own, result, sums, err);
  if (status != 0 && !sums.failed) {  // some strata are not there
    sums.overflow = true;
    forget_patterns(result);
  }
  fill_saturated(sums, work.data.missing, result);
  if (own.watch.stopped()) mark_unfinished(result);
  result.G2 = -2.0 * (result.loglik - result.cat_loglik);
  fill_criteria(work.data.total_weight, result);
  fill_entropy(work, result);
  result.has_fit_stats = true;
  return status;
}

}  // namespace tolvenra::estimation
