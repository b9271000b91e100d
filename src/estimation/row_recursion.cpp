#include "estimation/row_recursion.hpp"

#include <algorithm>
#include <cmath>

#include "core/parallel.hpp"

namespace tolvenra::estimation {
namespace {

std::size_t at(int64 i) { return static_cast<std::size_t>(i); }

}  // namespace

int32 stratum_of(const distinct_rows& rows, int32 row) {
  const auto end = std::lower_bound(rows.stratum_start.begin(), rows.stratum_start.end(), row);
  return static_cast<int32>(end - rows.stratum_start.begin());
}

row_recursion::row_recursion(const mlworkspace& work, std::size_t paths)
    : work_(work),
      ns_(work.latent.ns),
      nt_(work.data.nt),
      emission_(at(nt_) * at(ns_)),
      forward_(emission_.size()),
      backward_(emission_.size()),
      scale_(at(nt_)),
      paths_(paths) {}

int32 row_recursion::unit_of(int32 row) const {
  return work_.rows->statuses.by_pattern ? work_.rows->covariates.of_row[at(row - 1)] - 1
                                         : stratum_of(*work_.rows, row) - 1;
}

double row_recursion::transition(int32 k, int32 s, int32 d) const {
  const status_tables& tables = work_.statuses;
  return tables.tau[tables.tau_at(tau_unit_, class_, k) + tables.vectors(s) + at(d)];
}

void row_recursion::evaluate_waves(int32 row, int32 c) {
  const status_tables& tables = work_.statuses;
  const int32 g = stratum_of(*work_.rows, row);
  std::fill(emission_.begin(), emission_.end(), 1.0);
  for (int32 t = 0; t < nt_; ++t) {
    const double* slab = &tables.responses[tables.response_at(g - 1, t, c - 1)];
    for (int32 i = 1; i <= work_.data.ni; ++i) {
      const int32 code = work_.rows->response(row, work_.data.nci + t * work_.data.ni + i);
      const double* by = slab + tables.vectors(tables.item_slot[at(i - 1)] + code);
      for (int32 s = 0; s < ns_; ++s) emission_[cell(t, s)] *= by[s];
    }
  }
}

int32 row_recursion::choose_units(int32 stratum, int32 c, int32 unit) {
  const status_tables& tables = work_.statuses;
  const bool by_pattern = work_.rows->statuses.by_pattern;
  tau_unit_ = by_pattern && tables.tau_by_pattern ? unit : stratum - 1;
  class_ = c - 1;
  return by_pattern && tables.delta_by_pattern ? unit : stratum - 1;
}

double row_recursion::filter(int32 row, int32 c, int32 unit) {
  const status_tables& tables = work_.statuses;
  const int32 delta_unit = choose_units(stratum_of(*work_.rows, row), c, unit);
  return filter_from(&tables.delta[tables.delta_at(delta_unit, class_)], row);
}

double row_recursion::filter_from(const double* initial, int32 row, int32 c) {
  choose_units(stratum_of(*work_.rows, row), c, 0);
  return filter_from(initial, row);
}

double row_recursion::filter_from(const double* initial, int32 row) {
  evaluate_waves(row, class_ + 1);
  double likelihood = 1.0;
  for (int32 t = 0; t < nt_; ++t) {
    double sum = 0.0;
    for (int32 d = 0; d < ns_; ++d) {
      double before = t == 0 ? initial[d] : 0.0;
      for (int32 s = 0; s < ns_ && t > 0; ++s)
        before += forward_[cell(t - 1, s)] * transition(t - 1, s, d);
      forward_[cell(t, d)] = before * emission_[cell(t, d)];
      sum += forward_[cell(t, d)];
    }
    scale_[at(t)] = sum >= smallest_normal ? 1.0 / sum : 0.0;
    for (int32 d = 0; d < ns_; ++d) forward_[cell(t, d)] *= scale_[at(t)];
    likelihood *= sum;
  }
  return likelihood;
}

void row_recursion::add_paths(int32 stratum, int32 c, int32 unit, double factor,
                              std::span<double> paths) {
  const status_tables& tables = work_.statuses;
  const double* delta = &tables.delta[tables.delta_at(choose_units(stratum, c, unit), class_)];
  const std::size_t ns = at(ns_);
  for (std::size_t s = 0; s < ns; ++s) paths_[s] = factor * delta[s];
  std::size_t size = ns;  // sequences up to this time; from the last on they make room in place
  for (int32 t = 1; t < nt_; ++t, size *= ns)
    for (std::size_t path = size; path-- > 0;) {
      const double until = paths_[path];
      for (std::size_t d = 0; d < ns; ++d)
        paths_[path * ns + d] =
            until * transition(t - 1, static_cast<int32>(path % ns), static_cast<int32>(d));
    }
  for (std::size_t path = 0; path < size; ++path) paths[path] += paths_[path];
}

double row_recursion::sum_over_paths(int32 row, int32 c, std::span<const double> paths) {
  evaluate_waves(row, c);
  const std::size_t ns = at(ns_);
  const double* from = paths.data();
  std::size_t size = paths.size() / ns;
  for (int32 t = nt_ - 1; t >= 0; --t, size /= ns, from = paths_.data())
    for (std::size_t path = 0; path < size; ++path) {
      double sum = 0.0;
      for (std::size_t s = 0; s < ns; ++s)
        sum += from[path * ns + s] * emission_[cell(t, static_cast<int32>(s))];
      paths_[path] = sum;
    }
  return paths_[0];
}

void row_recursion::smooth() {
  for (int32 s = 0; s < ns_; ++s) backward_[cell(nt_ - 1, s)] = 1.0;
  for (int32 t = nt_ - 1; t-- > 0;)
    for (int32 s = 0; s < ns_; ++s) {
      double sum = 0.0;
      for (int32 d = 0; d < ns_; ++d)
        sum += transition(t, s, d) * emission_[cell(t + 1, d)] * scale_[at(t + 1)] *
               backward_[cell(t + 1, d)];
      backward_[cell(t, s)] = sum;
    }
}

void status_posteriors(const mlworkspace& work, std::vector<double>& sta,
                       std::vector<double>& adj) {
  const int32 nrow = work.rows->nrow;
  const int32 nc = work.latent.nc;
  const int32 ns = work.latent.ns;
  const int32 nt = work.data.nt;
  const std::size_t sta_size = at(nc) * at(nt) * at(ns);
  const std::size_t adj_size = at(nc) * at(ns) * at(ns) * at(nt - 1);
  sta.assign(at(nrow) * sta_size, 0.0);
  adj.assign(at(nrow) * adj_size, 0.0);
  const int32 blocks = parallel::blocks_for(nrow, 1);
  std::vector<row_recursion> recursions(at(parallel::team_for(blocks, work.em.threads)),
                                        row_recursion(work));
  parallel::for_blocks_by_worker(blocks, work.em.threads, [&](int32 b, int32 worker) {
    row_recursion& recursion = recursions[at(worker)];
    const auto range = parallel::rows_of_block(nrow, b, blocks);
    for (int32 row = range.first; row <= range.last; ++row)
      for (int32 c = 0; c < nc; ++c) {
        const double of_class = work.post.cls[at(row - 1) * at(nc) + at(c)];
        if (!(of_class > 0.0)) continue;  // its waves may be impossible
        recursion.filter(row, c + 1, recursion.unit_of(row));
        recursion.smooth();
        double* to = &sta[at(row - 1) * sta_size];
        for (int32 t = 0; t < nt; ++t)
          for (int32 s = 0; s < ns; ++s)
            to[c + nc * (t + nt * s)] = of_class * recursion.status(t, s);
        to = adj.data() + at(row - 1) * adj_size;
        for (int32 k = 0; k + 1 < nt; ++k)
          for (int32 s = 0; s < ns; ++s)
            for (int32 d = 0; d < ns; ++d)
              to[c + nc * (s + ns * (d + ns * k))] = of_class * recursion.move(k, s, d);
      }
  });
}

double status_entropy(const mlworkspace& work) {
  const int32 nrow = work.rows->nrow;
  const int32 nc = work.latent.nc;
  const int32 ns = work.latent.ns;
  const int32 nt = work.data.nt;
  const int32 blocks = parallel::blocks_for(nrow, 1);
  std::vector<double> sums(at(blocks), 0.0);
  std::vector<row_recursion> recursions(at(parallel::team_for(blocks, work.em.threads)),
                                        row_recursion(work));
  std::vector<double> marginals(recursions.size() * at(nt) * at(ns));
  parallel::for_blocks_by_worker(blocks, work.em.threads, [&](int32 b, int32 worker) {
    row_recursion& recursion = recursions[at(worker)];
    double* p = &marginals[at(worker) * at(nt) * at(ns)];
    const auto range = parallel::rows_of_block(nrow, b, blocks);
    for (int32 row = range.first; row <= range.last; ++row) {
      std::fill_n(p, at(nt) * at(ns), 0.0);
      for (int32 c = 0; c < nc; ++c) {
        const double of_class = work.post.cls[at(row - 1) * at(nc) + at(c)];
        if (!(of_class > 0.0)) continue;
        recursion.filter(row, c + 1, recursion.unit_of(row));
        recursion.smooth();
        for (int32 t = 0; t < nt; ++t)
          for (int32 s = 0; s < ns; ++s) p[t * ns + s] += of_class * recursion.status(t, s);
      }
      for (int32 q = 0; q < nt * ns; ++q)
        sums[at(b)] -= work.rows->weight[at(row - 1)] * p[q] * std::log(p[q] + 1e-10);
    }
  });
  double entropy = 0.0;
  for (const double sum : sums) entropy += sum;
  return entropy;
}

}  // namespace tolvenra::estimation
