#include <algorithm>
#include <numeric>

#include "core/parallel.hpp"
#include "estimation/derivatives.hpp"
#include "estimation/outer_products.hpp"
#include "numerics/matrix_methods.hpp"

namespace tolvenra::estimation {
namespace {

constexpr std::size_t capacity = 32;

/// The cases cluster by cluster, 0-based; clusters in the order of their identifiers.
struct cases_by_cluster {
  std::vector<int32> start, cases;

  explicit cases_by_cluster(const array<int32, 1>& clusters) {
    cases.resize(clusters.size());
    std::iota(cases.begin(), cases.end(), 0);
    std::stable_sort(cases.begin(), cases.end(), [&](int32 a, int32 b) {
      return clusters.flat[static_cast<std::size_t>(a)] <
             clusters.flat[static_cast<std::size_t>(b)];
    });
    for (std::size_t k = 0; k < cases.size(); ++k)
      if (k == 0 || clusters.flat[static_cast<std::size_t>(cases[k - 1])] !=
                        clusters.flat[static_cast<std::size_t>(cases[k])])
        start.push_back(static_cast<int32>(k));
    start.push_back(static_cast<int32>(cases.size()));
  }
  [[nodiscard]] int32 count() const { return static_cast<int32>(start.size()) - 1; }
};

class cluster_summation {
 public:
  struct batch {
    outer_products::panels scores;
    std::vector<double> posterior, z, score, of_cluster, ones, scaled;
  };

  cluster_summation(const mlworkspace& work, const free_parameters& map,
                    const scaled_design& design)
      : work_(work), map_(map), clusters_(work.given.dataset.clusters) {
    for (int32 g = 1; g <= map.nstr; ++g) strata_.emplace_back(work, map, design, g);
  }

  [[nodiscard]] int32 count() const { return clusters_.count(); }

  [[nodiscard]] batch make_batch() const {
    const auto free = static_cast<std::size_t>(map_.count());
    return {outer_products::panels(free, capacity),
            std::vector<double>(static_cast<std::size_t>(map_.nc)),
            std::vector<double>(strata_.front().class_length()),
            std::vector<double>(map_.in_stratum()),
            std::vector<double>(free),
            std::vector<double>(capacity, 1.0),
            std::vector<double>(outer_products::tile * capacity)};
  }

  /// Adds clusters first..last (1-based): products, then the sum of the scores.
  void add(int32 first, int32 last, batch& work, double* sums, std::size_t products) const {
    for (int32 h = first; h <= last;) {
      std::size_t k = 0;
      for (; k < capacity && h <= last; ++k, ++h) {
        score_cluster(h - 1, work);
        work.scores.put(k, work.of_cluster.data(), work.of_cluster.size());
        for (std::size_t i = 0; i < work.of_cluster.size(); ++i)
          sums[products + i] += work.of_cluster[i];
      }
      work.scores.add_products(work.ones.data(), k, sums, work.scaled.data());
    }
  }

 private:
  void score_cluster(int32 h, batch& work) const {
    std::fill(work.of_cluster.begin(), work.of_cluster.end(), 0.0);
    const dataset_type& data = work_.given.dataset;
    const auto at = static_cast<std::size_t>(h);
    for (int32 k = clusters_.start[at]; k < clusters_.start[at + 1]; ++k) {
      const auto i = static_cast<std::size_t>(clusters_.cases[static_cast<std::size_t>(k)]);
      const int32 g = data.strata.flat[i];
      const int32 row = work_.rows->row_of_case[i];
      const row_scores& rows = strata_[static_cast<std::size_t>(g - 1)];
      rows.posterior(row, work.posterior.data());
      rows.total(row, work.posterior.data(), work.z.data(), work.score.data());
      const double weight =
          (data.freq_set ? data.freq.flat[i] : 1.0) * (data.weight_set ? data.weight.flat[i] : 1.0);
      for (std::size_t l = 0; l < work.score.size(); ++l) {
        const logit_place& place = map_.place[map_.at(g, l)];
        if (place.free >= 0)
          work.of_cluster[static_cast<std::size_t>(place.free)] +=
              place.sign * weight * work.score[l];
      }
    }
  }

  const mlworkspace& work_;
  const free_parameters& map_;
  cases_by_cluster clusters_;
  std::vector<row_scores> strata_;
};

}  // namespace

void sum_over_clusters(const mlworkspace& work, const free_parameters& map,
                       const scaled_design& design, array<double, 2>& outer,
                       array<double, 1>& sum) {
  const cluster_summation clusters(work, map, design);
  const std::size_t order = outer_products::padded(static_cast<std::size_t>(map.count()));
  const std::size_t products = order * order;
  const std::size_t size = products + order;
  const int32 blocks = parallel::blocks_for(clusters.count(), size);
  std::vector<cluster_summation::batch> batches(
      static_cast<std::size_t>(parallel::team_for(blocks, work.em.threads)), clusters.make_batch());
  std::vector<double> parts(size * static_cast<std::size_t>(blocks), 0.0);
  parallel::for_blocks_by_worker(blocks, work.em.threads, [&](int32 b, int32 worker) {
    const parallel::row_range range = parallel::rows_of_block(clusters.count(), b, blocks);
    clusters.add(range.first, range.last, batches[static_cast<std::size_t>(worker)],
                 parts.data() + size * static_cast<std::size_t>(b), products);
  });
  for (std::size_t b = 1; b < static_cast<std::size_t>(blocks); ++b)
    for (std::size_t q = 0; q < size; ++q) parts[q] += parts[b * size + q];
  outer.allocate({map.count(), map.count()});
  sum.allocate({map.count()});
  for (int32 j = 1; j <= map.count(); ++j) {
    sum(j) = parts[products + static_cast<std::size_t>(j - 1)];
    for (int32 i = j; i <= map.count(); ++i)
      outer(i, j) = outer(j, i) =
          parts[static_cast<std::size_t>(i - 1) + static_cast<std::size_t>(j - 1) * order];
  }
}

}  // namespace tolvenra::estimation
