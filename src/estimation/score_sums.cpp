#include "estimation/score_sums.hpp"

#include <algorithm>

#include "core/parallel.hpp"
#include "estimation/outer_products.hpp"

namespace tolvenra::estimation {
namespace {

using outer_products::padded;
using outer_products::panels;

constexpr std::size_t capacity = 32;  // rows whose vectors stay in the first cache level

/// Offsets of the sums within one vector.
struct layout {
  std::size_t order, class_order, nc, items;
  std::size_t outer_squared, within, first, class_total, answered, size;

  layout(const mlworkspace& work, const free_parameters& map, std::size_t class_length)
      : order(padded(map.in_stratum())),
        class_order(padded(class_length)),
        nc(static_cast<std::size_t>(map.nc)),
        items(static_cast<std::size_t>(work.data.nci)) {
    outer_squared = order * order;
    within = outer_squared + (work.data.weighted ? order * order : 0);
    first = within + nc * class_order * class_order;
    class_total = first + map.in_stratum();
    answered = class_total + nc;
    size = answered + items * nc;
  }
};

/// What one worker needs for a batch of rows.
struct batch {
  panels scores;
  std::vector<panels> given_class;
  std::vector<double> posterior, class_weight;  ///< (nc) of a row; (capacity, nc)
  std::vector<double> weight, weight_squared, z, score, scaled;

  explicit batch(const layout& at, std::size_t class_length, std::size_t in_stratum)
      : scores(in_stratum, capacity),
        given_class(at.nc, panels(class_length, capacity)),
        posterior(at.nc),
        class_weight(at.nc * capacity),
        weight(capacity),
        weight_squared(capacity),
        z(class_length),
        score(in_stratum),
        scaled(outer_products::tile * capacity) {}
};

class summation {
 public:
  summation(const mlworkspace& work, const row_scores& rows, const layout& at,
            std::size_t responses)
      : work_(work), rows_(rows), at_(at), responses_(responses) {}

  /// Adds rows first..last (1-based) to `sums`.
  void add(int32 first, int32 last, batch& work, double* sums) const {
    for (int32 row = first; row <= last;) {
      std::size_t count = 0;
      for (; count < capacity && row <= last; ++count, ++row) take_row(row, count, work, sums);
      work.scores.add_products(work.weight.data(), count, sums, work.scaled.data());
      if (work_.data.weighted)
        work.scores.add_products(work.weight_squared.data(), count, sums + at_.outer_squared,
                                 work.scaled.data());
      for (std::size_t c = 0; c < at_.nc; ++c)
        work.given_class[c].add_products(&work.class_weight[c * capacity], count,
                                         sums + at_.within + c * at_.class_order * at_.class_order,
                                         work.scaled.data());
    }
  }

 private:
  void take_row(int32 row, std::size_t k, batch& work, double* sums) const {
    const auto at = static_cast<std::size_t>(row - 1);
    const double weight = work_.rows->weight[at];
    work.weight[k] = weight;
    work.weight_squared[k] = work_.rows->weight2[at];
    rows_.posterior(row, work.posterior.data());
    const std::size_t membership = work.z.size() - responses_;
    std::fill_n(work.score.begin(), membership, 0.0);
    for (std::size_t c = 0; c < at_.nc; ++c) {
      const double p = work.posterior[c];
      rows_.given_class(row, static_cast<int32>(c) + 1, work.z.data());
      work.given_class[c].put(k, work.z.data(), work.z.size());
      work.class_weight[c * capacity + k] = weight * p;
      for (std::size_t i = 0; i < membership; ++i) work.score[i] += p * work.z[i];
      for (std::size_t i = 0; i < responses_; ++i)
        work.score[membership + c * responses_ + i] = p * work.z[membership + i];
      sums[at_.class_total + c] += weight * p;
      for (std::size_t j = 0; j < at_.items; ++j)
        if (work_.rows->response(row, static_cast<int32>(j) + 1) > 0)
          sums[at_.answered + c * at_.items + j] += weight * p;
    }
    work.scores.put(k, work.score.data(), work.score.size());
    for (std::size_t i = 0; i < work.score.size(); ++i)
      sums[at_.first + i] += weight * work.score[i];
  }

  const mlworkspace& work_;
  const row_scores& rows_;
  const layout& at_;
  std::size_t responses_;
};

stratum_sums split(const layout& at, const std::vector<double>& sums) {
  const auto part = [&](std::size_t first, std::size_t end) {
    return std::vector<double>(sums.begin() + static_cast<std::ptrdiff_t>(first),
                               sums.begin() + static_cast<std::ptrdiff_t>(end));
  };
  stratum_sums split;
  split.order = at.order;
  split.class_order = at.class_order;
  split.outer = part(0, at.outer_squared);
  split.outer_squared = part(at.outer_squared, at.within);
  split.within = part(at.within, at.first);
  split.first = part(at.first, at.class_total);
  split.class_total = part(at.class_total, at.answered);
  split.answered = part(at.answered, at.size);
  return split;
}

}  // namespace

stratum_sums sum_over_stratum(const mlworkspace& work, const free_parameters& map,
                              const scaled_design& design, int32 g) {
  const row_scores rows(work, map, design, g);
  const layout at(work, map, rows.class_length());
  const int32 before = work.rows->stratum_start[static_cast<std::size_t>(g - 1)];
  const int32 n = work.rows->stratum_start[static_cast<std::size_t>(g)] - before;
  const int32 blocks = parallel::blocks_for(n, at.size);
  std::vector<batch> batches(static_cast<std::size_t>(parallel::team_for(blocks, work.em.threads)),
                             batch(at, rows.class_length(), map.in_stratum()));
  std::vector<double> parts(at.size * static_cast<std::size_t>(blocks), 0.0);
  const summation sum(work, rows, at, static_cast<std::size_t>(map.responses));
  parallel::for_blocks_by_worker(blocks, work.em.threads, [&](int32 b, int32 worker) {
    const parallel::row_range range = parallel::rows_of_block(n, b, blocks);
    sum.add(before + range.first, before + range.last, batches[static_cast<std::size_t>(worker)],
            &parts[at.size * static_cast<std::size_t>(b)]);
  });
  for (std::size_t b = 1; b < static_cast<std::size_t>(blocks); ++b)
    for (std::size_t q = 0; q < at.size; ++q) parts[q] += parts[b * at.size + q];
  return split(at, parts);
}

}  // namespace tolvenra::estimation
