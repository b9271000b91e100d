#include "estimation/expected_counts.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/parallel.hpp"
#include "estimation/row_recursion.hpp"

namespace tolvenra::estimation {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::size_t at(int32 i) { return static_cast<std::size_t>(i); }
double as_double(std::size_t n) { return static_cast<double>(n); }

/// Whether a distinct row exists and differs from the row before it in covariates alone.
bool same_pattern(const distinct_rows& rows, int32 row) {
  return row <= rows.nrow && rows.shared[at(row - 1)] == rows.ncol;
}

/// Products of one pass of a row's waves, all classes together.
double wave_products(const mlworkspace& work) {
  return 1.0 * work.latent.nc * work.data.nt * work.latent.ns * (work.latent.ns + work.data.ni);
}

}  // namespace

std::vector<double> expected_counter::operator()(const std::vector<int32>& rows, double total) {
  std::vector<double> expected(rows.size(), nan);
  if (!wanted_ || watch_.stopped()) return expected;
  const bool covariates = work_.beta.active || work_.delta_beta.active || work_.tau_beta.active;
  if (!covariates) {
    for (std::size_t i = 0; i < rows.size(); ++i)
      expected[i] = total * work_.post.likelihood[at(rows[i] - 1)];
    return expected;
  }
  const auto mix = shares(rows, total);
  const bool done = work_.data.ni == 0       ? average_classes(rows, mix, expected)
                    : !work_.tau_beta.active ? average_initial(rows, mix, expected)
                                             : average_moves(rows, mix, expected);
  for (double& count : expected) count *= done ? total : nan;
  return expected;
}

/// Covariate patterns of the cases that show one of the response patterns.
std::vector<expected_counter::pattern_share> expected_counter::shares(
    const std::vector<int32>& rows, double total) const {
  const distinct_rows& data = *work_.rows;
  std::vector<pattern_share> mix;
  for (const int32 first : rows)
    for (int32 row = first; row == first || same_pattern(data, row); ++row)
      mix.push_back({data.covariates.of_row[at(row - 1)] - 1, data.weight[at(row - 1)] / total});
  std::ranges::stable_sort(mix, {}, &pattern_share::pattern);
  std::size_t kept = 0;
  for (std::size_t i = 1; i < mix.size(); ++i)
    if (mix[i].pattern == mix[kept].pattern)
      mix[kept].share += mix[i].share;
    else
      mix[++kept] = mix[i];
  mix.resize(std::min(mix.size(), kept + 1));
  return mix;
}

const double* expected_counter::prevalence(int32 stratum, int32 pattern) const {
  const class_counts& classes = work_.classes;
  return classes.prior.empty() ? &classes.table[classes.prevalence(stratum)]
                               : &classes.prior[at(pattern) * at(classes.width)];
}

/// Probability of a row's class items in class c, 1-based.
double expected_counter::class_items(int32 row, int32 stratum, int32 c) const {
  const class_counts& classes = work_.classes;
  double product = 1.0;
  for (int32 j = 1; j <= work_.data.nci; ++j)
    product *= classes.table[classes.at(j, work_.rows->response(row, j), stratum) + at(c - 1)];
  return product;
}

bool expected_counter::afford(double products) {
  if (!(products <= products_left_)) return false;
  products_left_ -= products;
  return true;
}

/// Fills in `of_row(row, recursion)` for all rows, asking the host now and then.
/// \param products  what a row costs
template <class Likelihood>
bool expected_counter::fill(const std::vector<int32>& rows, double products, std::size_t paths,
                            std::vector<double>& expected, Likelihood&& of_row) {
  const auto n = static_cast<int32>(rows.size());
  const bool large = products * n > 1e5;
  const int32 team = parallel::team_for(large ? n : 1, work_.em.threads);
  std::vector<row_recursion> recursions(at(team), row_recursion(work_, paths));
  const auto chunk = static_cast<int32>(std::clamp(1e8 / std::max(products, 1.0), 1.0, 1.0 * n));
  for (int32 first = 0; first < n; first += std::min(chunk, n - first)) {
    if (watch_.stop()) return false;
    parallel::for_blocks_by_worker(std::min(chunk, n - first), team, [&](int32 b, int32 worker) {
      const std::size_t i = at(first + b);
      expected[i] = of_row(rows[i], recursions[at(worker)]);
    });
  }
  return true;
}

/// Latent class models: responses do not depend on the covariates given the class.
bool expected_counter::average_classes(const std::vector<int32>& rows,
                                       const std::vector<pattern_share>& mix,
                                       std::vector<double>& expected) {
  const int32 g = stratum_of(*work_.rows, rows.front());
  const int32 nc = work_.latent.nc;
  std::vector<double> average(at(nc), 0.0);
  for (const auto& [pattern, share] : mix)
    for (int32 c = 0; c < nc; ++c) average[at(c)] += share * prevalence(g, pattern)[c];
  return fill(rows, 1.0 * nc * work_.data.nci, 0, expected, [&](int32 row, row_recursion&) {
    double sum = 0.0;
    for (int32 c = 1; c <= nc; ++c) sum += average[at(c - 1)] * class_items(row, g, c);
    return sum;
  });
}

/// Nor do the waves given class and initial status, without covariates of the transitions.
bool expected_counter::average_initial(const std::vector<int32>& rows,
                                       const std::vector<pattern_share>& mix,
                                       std::vector<double>& expected) {
  const status_tables& tables = work_.statuses;
  const int32 g = stratum_of(*work_.rows, rows.front());
  const int32 nc = work_.latent.nc;
  const std::size_t ns = at(work_.latent.ns);
  const bool by_pattern = work_.rows->statuses.by_pattern && tables.delta_by_pattern;
  if (!afford(wave_products(work_) * as_double(rows.size()))) return false;
  std::vector<double> average(at(nc) * ns, 0.0);
  for (const auto& [pattern, share] : mix)
    for (int32 c = 0; c < nc; ++c) {
      const double* delta = &tables.delta[tables.delta_at(by_pattern ? pattern : g - 1, c)];
      const double weight = share * (work_.data.nci > 0 ? prevalence(g, pattern)[c] : 1.0);
      for (std::size_t s = 0; s < ns; ++s) average[at(c) * ns + s] += weight * delta[s];
    }
  return fill(rows, wave_products(work_), 0, expected, [&](int32 row, row_recursion& recursion) {
    double sum = 0.0;
    for (int32 c = 1; c <= nc; ++c)
      sum += class_items(row, g, c) * recursion.filter_from(&average[at(c - 1) * ns], row, c);
    return sum;
  });
}

/// With covariates of the transitions the sequences of statuses are averaged while they are few,
/// else every response pattern is evaluated at every covariate pattern.
bool expected_counter::average_moves(const std::vector<int32>& rows,
                                     const std::vector<pattern_share>& mix,
                                     std::vector<double>& expected) {
  const double sequences = work_.latent.nc * std::pow(work_.latent.ns, work_.data.nt);
  const double by_path = 2.0 * sequences * as_double(rows.size() + mix.size());
  const double by_pair = wave_products(work_) * as_double(rows.size()) * as_double(mix.size());
  if (sequences <= most_paths && by_path < by_pair)
    return afford(by_path) && average_paths(rows, mix, expected);
  return afford(by_pair) && add_pairs(rows, mix, expected);
}

bool expected_counter::average_paths(const std::vector<int32>& rows,
                                     const std::vector<pattern_share>& mix,
                                     std::vector<double>& expected) {
  const int32 g = stratum_of(*work_.rows, rows.front());
  const int32 nc = work_.latent.nc;
  std::size_t paths = 1;
  for (int32 t = 0; t < work_.data.nt; ++t) paths *= at(work_.latent.ns);
  const auto n = static_cast<int32>(mix.size());
  const std::size_t width = at(nc) * paths;
  const int32 blocks = parallel::blocks_for(n, width);
  std::vector<row_recursion> recursions(at(parallel::team_for(blocks, work_.em.threads)),
                                        row_recursion(work_, paths));
  std::vector<double> parts(at(blocks) * width, 0.0), average(width, 0.0);
  parallel::for_blocks_by_worker(blocks, work_.em.threads, [&](int32 b, int32 worker) {
    const auto range = parallel::rows_of_block(n, b, blocks);
    for (int32 i = range.first; i <= range.last; ++i)
      for (int32 c = 1; c <= nc; ++c) {
        const auto& [pattern, share] = mix[at(i - 1)];
        const double weight = share * (work_.data.nci > 0 ? prevalence(g, pattern)[c - 1] : 1.0);
        recursions[at(worker)].add_paths(
            g, c, pattern, weight,
            std::span(parts).subspan(at(b) * width + at(c - 1) * paths, paths));
      }
  });
  for (std::size_t q = 0; q < parts.size(); ++q) average[q % width] += parts[q];
  return fill(rows, 2.0 * as_double(width), paths, expected,
              [&](int32 row, row_recursion& recursion) {
                double sum = 0.0;
                for (int32 c = 1; c <= nc; ++c)
                  sum += class_items(row, g, c) *
                         recursion.sum_over_paths(
                             row, c, std::span(average).subspan(at(c - 1) * paths, paths));
                return sum;
              });
}

bool expected_counter::add_pairs(const std::vector<int32>& rows,
                                 const std::vector<pattern_share>& mix,
                                 std::vector<double>& expected) {
  const int32 g = stratum_of(*work_.rows, rows.front());
  return fill(rows, wave_products(work_) * as_double(mix.size()), 0, expected,
              [&](int32 row, row_recursion& recursion) {
                double sum = 0.0;
                for (int32 c = 1; c <= work_.latent.nc; ++c) {
                  const double items = class_items(row, g, c);
                  for (const auto& [pattern, share] : mix) {
                    const double prior = work_.data.nci > 0 ? prevalence(g, pattern)[c - 1] : 1.0;
                    sum += share * prior * items * recursion.filter(row, c, pattern);
                  }
                }
                return sum;
              });
}

}  // namespace tolvenra::estimation
