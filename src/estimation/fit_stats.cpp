#include "estimation/fit_stats.hpp"

#include <cmath>
#include <limits>

namespace tolvenra::estimation {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::size_t offset(int32 row) { return static_cast<std::size_t>(row - 1); }

/// One pass over the patterns of every stratum.
/// The body is called with the stratum's total and the offsets [first, end) of its patterns.
template <class Body>
void for_each_stratum(const mlworkspace& work, const mlresult_type& result, Body&& body) {
  const distinct_rows& rows = *work.rows;
  std::size_t p = 0;
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    const std::size_t first = p;
    double total = 0.0;
    for (; p < result.pattern_row.size() &&
           result.pattern_row[p] <= rows.stratum_start[static_cast<std::size_t>(g)];
         ++p)
      total += result.observed[p];
    body(total, first, p);
  }
}

double saturated_loglik(const mlworkspace& work, const mlresult_type& result) {
  double loglik = 0.0;
  for_each_stratum(work, result, [&](double total, std::size_t first, std::size_t end) {
    for (std::size_t p = first; p < end; ++p)
      loglik += result.observed[p] * std::log(result.observed[p] / total);
  });
  return loglik;
}

/// Expected counts of the patterns and Pearson's statistic.
double pearson(const mlworkspace& work, mlresult_type& result) {
  result.expected.assign(result.observed.size(), 0.0);
  double x2 = 0.0;
  for_each_stratum(work, result, [&](double total, std::size_t first, std::size_t end) {
    double unobserved = total;
    for (std::size_t p = first; p < end; ++p) {
      const double expected = total * work.post.likelihood[offset(result.pattern_row[p])];
      const double difference = result.observed[p] - expected;
      x2 += difference * difference / expected;
      unobserved -= expected;
      result.expected[p] = expected;
    }
    x2 += unobserved;
  });
  return x2;
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

int32 aggregate_items(const mlworkspace& work, mlresult_type& result, error_type&) {
  const distinct_rows& rows = *work.rows;
  result.pattern_row.clear();
  result.observed.clear();
  std::size_t g = 1;
  for (int32 row = 1; row <= rows.nrow; ++row) {
    bool fresh = false;
    while (rows.stratum_start[g] < row) ++g, fresh = true;  // the stratum ended before this row
    fresh = fresh || row == 1 || rows.shared[offset(row)] < rows.ncol;
    if (fresh) {
      result.pattern_row.push_back(row);
      result.observed.push_back(0.0);
    }
    result.observed.back() += rows.weight[offset(row)];
  }
  return 0;
}

void set_apparent_df(const mlworkspace& work, mlresult_type& result) {
  constexpr double most = std::numeric_limits<int32>::max();
  double cells = 1.0;
  for (const int32 categories : work.data.nrc.flat) cells *= categories;
  const double df = work.data.nstr * (cells - 1.0) - result.n_params_estimated;
  if (!(cells <= most && df <= most)) {
    result.overflow_count = 1;
    result.apparent_df = std::numeric_limits<int32>::max();
  } else {
    result.apparent_df = static_cast<int32>(df);
  }
}

int32 run_compute_fit_stats(mlworkspace& work, mlresult_type& result, error_type& err) {
  if (aggregate_items(work, result, err) != 0)
    return fail(err, {"run_compute_fit_stats", "estimation"},
                {text("Could not aggregate the data.")});
  const bool cells_fit = result.overflow_count == 0;
  result.X2 = pearson(work, result);
  if (!cells_fit) result.X2 = nan;
  if (work.data.missing) {  // the saturated model of incomplete data is not computable yet
    ++result.overflow_count;
    result.X2 = nan;
    result.cat_loglik = result.cat_g2 = 0.0;
    result.cat_df = 0;
  } else {
    result.cat_loglik = saturated_loglik(work, result);
  }
  result.G2 = -2.0 * (result.loglik - result.cat_loglik);
  fill_criteria(work.data.total_weight, result);
  fill_entropy(work, result);
  result.has_fit_stats = true;
  return 0;
}

}  // namespace tolvenra::estimation
