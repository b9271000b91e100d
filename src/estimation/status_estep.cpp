#include "estimation/status_estep.hpp"

#include <algorithm>

#include "core/parallel.hpp"
#include "estimation/estep_kernel.hpp"
#include "estimation/status_kernel.hpp"

namespace tolvenra::estimation {
namespace {

constexpr std::size_t most_counts = std::size_t{1} << 23;  ///< values of all blocks' counts
constexpr int32 fewest_blocks = 4;                         ///< even where counts are larger

std::size_t at(int64 i) { return static_cast<std::size_t>(i); }

const status_tree& tree_of(const mlworkspace& work) { return work.rows->statuses; }

/// Units of a chunk in the tables of delta or tau.
int32 unit_of(const status_tree::chunk& chunk, bool by_pattern) {
  return by_pattern ? chunk.pattern : chunk.stratum;
}

/// Where one block's counts lie in the scratch; the ranges end behind the last one.
struct block_counts {
  int32 first_wave, end_wave, first_delta, end_delta, first_tau, end_tau, first_stratum,
      end_stratum;
  std::size_t waves, delta, tau, classes, end;
};

block_counts counts_of(const mlworkspace& work, const status_block& block) {
  const status_tables& tables = work.statuses;
  const status_tree& tree = tree_of(work);
  const status_tree::chunk& first = tree.chunks[at(block.first_chunk)];
  const status_tree::chunk& last = tree.chunks[at(block.end_chunk - 1)];
  const int64 nc = tables.nc;
  block_counts c{};
  c.first_stratum = first.stratum;
  c.end_stratum = last.stratum + 1;
  c.first_wave = tree.wave_start[at(int64{first.stratum} * tree.nt)];
  c.end_wave = tree.wave_start[at(int64{c.end_stratum} * tree.nt)];
  c.first_delta = unit_of(first, tables.delta_by_pattern);
  c.end_delta = unit_of(last, tables.delta_by_pattern) + 1;
  c.first_tau = unit_of(first, tables.tau_by_pattern);
  c.end_tau = unit_of(last, tables.tau_by_pattern) + 1;
  c.waves = block.counts;
  c.delta = c.waves + tables.vectors(nc * (c.end_wave - c.first_wave));
  c.tau = c.delta + tables.vectors(nc * (c.end_delta - c.first_delta));
  c.classes = c.tau + tables.vectors(nc * (c.end_tau - c.first_tau) * (tables.nt - 1) * tables.ns);
  c.end = c.classes +
          (work.data.nci > 0 ? work.classes.slab() * at(c.end_stratum - c.first_stratum) : 0);
  return c;
}

/// What a worker needs: vectors and numbers by node, by leaf and by row and class.
struct worker_layout {
  std::size_t passed, scale, likelihood, leaf, rows, end;
};

worker_layout layout_of(const mlworkspace& work) {
  const status_tree& tree = tree_of(work);
  const auto nodes = at(tree.most_nodes);
  worker_layout w{};
  w.passed = nodes * at(work.statuses.width);
  w.scale = 2 * w.passed;
  w.likelihood = w.scale + nodes;
  w.leaf = w.likelihood + nodes;
  w.rows = w.leaf + at(tree.most_rows);
  w.end = w.rows + at(tree.most_rows) * at(work.statuses.nc);
  return w;
}

/// Passes the chunks of one block.
class block_pass {
 public:
  block_pass(mlworkspace& work, int32 b, int32 worker)
      : work_(work),
        tables_(work.statuses),
        tree_(tree_of(work)),
        block_(work.status_scratch.blocks[at(b)]),
        counts_(counts_of(work, block_)),
        sums_(work.status_scratch.counts.data()) {
    const worker_layout layout = layout_of(work);
    double* own = work.status_scratch.vectors.data() + layout.end * at(worker);
    view_.ns = tables_.ns;
    view_.width = tables_.width;
    view_.tree = &tree_;
    view_.forward = own;
    view_.passed = own + layout.passed;
    view_.scale = own + layout.scale;
    view_.likelihood = own + layout.likelihood;
    view_.leaf_weight = leaf_weight_ = own + layout.leaf;
    row_class_ = own + layout.rows;
  }

  /// \return false when a row's likelihood is below the smallest normal number
  bool run() {
    std::fill(sums_ + counts_.waves, sums_ + counts_.end, 0.0);
    for (int32 k = block_.first_chunk; k < block_.end_chunk; ++k)
      if (!(work_.data.nci > 0 ? pass_with_classes(k) : pass(k))) return false;
    return true;
  }
  [[nodiscard]] double loglik() const { return loglik_.value(); }

 private:
  /// Points the view at a chunk and class.
  void look_at(int32 k, int32 c) {
    const status_tree::chunk& chunk = tree_.chunks[at(k)];
    const int32 delta = unit_of(chunk, tables_.delta_by_pattern);
    const int32 tau = unit_of(chunk, tables_.tau_by_pattern);
    view_.chunk = at(k);
    view_.emission = tables_.emission.data() + tables_.emission_at(c, 0);
    view_.delta = tables_.delta.data() + tables_.delta_at(delta, c);
    view_.tau = tables_.tau.data() + tables_.tau_at(tau, c, 0);
    view_.first_wave = counts_.first_wave;
    view_.wave_count =
        sums_ + counts_.waves + tables_.vectors(int64{c} * (counts_.end_wave - counts_.first_wave));
    view_.delta_count = sums_ + counts_.delta + tables_.delta_at(delta - counts_.first_delta, c);
    view_.tau_count = sums_ + counts_.tau + tables_.tau_count_at(tau - counts_.first_tau, c, 0);
  }

  [[nodiscard]] double waves_likelihood(int32 position, std::size_t last_level) const {
    return view_.likelihood[last_level + at(tree_.leaf[at(position)])];
  }
  [[nodiscard]] std::size_t last_level(int32 k) const {
    return tree_.level(at(k), tree_.nt - 1) - tree_.level(at(k), 0);
  }
  void clear_leaves(int32 k) {
    const std::size_t leaves = tree_.level(at(k), tree_.nt) - tree_.level(at(k), tree_.nt - 1);
    std::fill_n(leaf_weight_, leaves, 0.0);
  }

  bool note(int32 row, double likelihood) {
    if (!(likelihood >= smallest_normal)) return false;
    loglik_.add(work_.rows->weight[at(row)], likelihood);
    if (work_.post.keep) work_.post.likelihood[at(row)] = likelihood;
    return true;
  }

  bool pass(int32 k) {
    const status_tree::chunk& chunk = tree_.chunks[at(k)];
    look_at(k, 0);
    status_kernel::forward(view_);
    clear_leaves(k);
    const std::size_t last = last_level(k);
    for (int32 i = chunk.first; i < chunk.end; ++i) {
      const int32 row = tree_.row[at(i)];
      if (!note(row, waves_likelihood(i, last))) return false;
      leaf_weight_[tree_.leaf[at(i)]] += work_.rows->weight[at(row)];
      if (work_.post.keep) work_.post.cls[at(row)] = 1.0;
    }
    status_kernel::backward(view_);
    return true;
  }

  bool pass_with_classes(int32 k) {
    const status_tree::chunk& chunk = tree_.chunks[at(k)];
    const int32 nc = tables_.nc;
    const std::size_t last = last_level(k);
    for (int32 c = 0; c < nc; ++c) {
      look_at(k, c);
      status_kernel::forward(view_);
      for (int32 i = chunk.first; i < chunk.end; ++i)
        row_class_[at(i - chunk.first) * at(nc) + at(c)] = waves_likelihood(i, last);
    }
    for (int32 i = chunk.first; i < chunk.end; ++i)
      if (!combine(tree_.row[at(i)], chunk.stratum, row_class_ + at(i - chunk.first) * at(nc)))
        return false;
    for (int32 c = nc; c-- > 0;) {
      if (c + 1 < nc) {  // the last class is still in the scratch
        look_at(k, c);
        status_kernel::forward(view_);
      }
      clear_leaves(k);
      for (int32 i = chunk.first; i < chunk.end; ++i)
        leaf_weight_[tree_.leaf[at(i)]] += row_class_[at(i - chunk.first) * at(nc) + at(c)];
      status_kernel::backward(view_);
    }
    return true;
  }

  /// Bayes' rule over the classes of one row, and the counts of its class items.
  /// \param f  the likelihoods of its waves by class; out: posteriors times weight
  bool combine(int32 row, int32 stratum, double* f) {
    const class_counts& classes = work_.classes;
    const int32 nc = tables_.nc;
    const double* prior =
        classes.prior.empty()
            ? &classes.table[classes.prevalence(stratum + 1)]
            : &classes.prior[at(work_.rows->covariates.of_row[at(row)] - 1) * at(classes.width)];
    double likelihood = 0.0;
    for (int32 c = 0; c < nc; ++c) {
      f[c] *= prior[c];
      for (int32 j = 1; j <= work_.data.nci; ++j)
        f[c] *= classes.table[classes.at(j, work_.rows->response(row + 1, j), stratum + 1) + at(c)];
      likelihood += f[c];
    }
    if (!note(row, likelihood)) return false;
    double* sums = sums_ + counts_.classes + classes.slab() * at(stratum - counts_.first_stratum);
    const double scale = work_.rows->weight[at(row)] / likelihood;
    for (int32 c = 0; c < nc; ++c) {
      if (work_.post.keep) work_.post.cls[at(row) * at(nc) + at(c)] = f[c] / likelihood;
      f[c] *= scale;
      sums[c] += f[c];
      for (int32 j = 1; j <= work_.data.nci; ++j)
        sums[classes.at(j, work_.rows->response(row + 1, j), 1) + at(c)] += f[c];
    }
    return true;
  }

  mlworkspace& work_;
  const status_tables& tables_;
  const status_tree& tree_;
  const status_block& block_;
  const block_counts counts_;
  double* sums_;
  double* leaf_weight_ = nullptr;
  double* row_class_ = nullptr;
  status_kernel::view view_;
  estep_kernel::log_sum loglik_;
};

void add(const double* from, std::size_t count, double* to) {
  for (std::size_t q = 0; q < count; ++q) to[q] += from[q];
}

/// Adds the blocks in their order and completes the counts of transitions.
void add_blocks(mlworkspace& work) {
  status_tables& tables = work.statuses;
  std::fill(tables.wave_count.begin(), tables.wave_count.end(), 0.0);
  std::fill(tables.delta_count.begin(), tables.delta_count.end(), 0.0);
  std::fill(tables.tau_count.begin(), tables.tau_count.end(), 0.0);
  std::fill(work.classes.counts.begin(), work.classes.counts.end(), 0.0);
  work.em.loglik = 0.0;
  const double* sums = work.status_scratch.counts.data();
  for (std::size_t b = 0; b < work.status_scratch.blocks.size(); ++b) {
    const block_counts c = counts_of(work, work.status_scratch.blocks[b]);
    const std::size_t waves = tables.vectors(c.end_wave - c.first_wave);
    for (int32 cls = 0; cls < tables.nc; ++cls)
      add(sums + c.waves + at(cls) * waves, waves,
          &tables.wave_count[tables.emission_at(cls, c.first_wave)]);
    add(sums + c.delta, c.tau - c.delta, &tables.delta_count[tables.delta_at(c.first_delta, 0)]);
    if (c.classes > c.tau)
      add(sums + c.tau, c.classes - c.tau,
          &tables.tau_count[tables.tau_count_at(c.first_tau, 0, 0)]);
    if (c.end > c.classes)
      add(sums + c.classes, c.end - c.classes,
          &work.classes.counts[work.classes.slab() * at(c.first_stratum)]);
    work.em.loglik += work.status_scratch.loglik[b];
  }
  const std::size_t matrix = tables.vectors(tables.ns);
  for (std::size_t m = 0; m * matrix < tables.tau_count.size(); ++m)
    for (std::size_t q = 0; q < matrix; ++q)
      tables.tau_count[m * matrix + q] *= tables.tau[2 * m * matrix + q];
}

/// Slot of the response that a wave shows to an item (1-based), within the slabs of its time.
std::size_t slot_of(const mlworkspace& work, int32 wave, int32 t, int32 item) {
  const int32 column = work.data.nci + t * work.data.ni + item;
  const int32 code = work.rows->response(tree_of(work).wave_row[at(wave)] + 1, column);
  return work.statuses.vectors(work.statuses.item_slot[at(item - 1)] + code);
}

/// Stratum and time of a slab group, 0-based.
struct slab_group {
  int32 stratum, t, first_wave, end_wave;
};
slab_group group_of(const mlworkspace& work, int32 i) {
  const status_tree& tree = tree_of(work);
  return {i / tree.nt, i % tree.nt, tree.wave_start[at(i)], tree.wave_start[at(i) + 1]};
}

void evaluate_waves(mlworkspace& work, const slab_group& group) {
  status_tables& tables = work.statuses;
  for (int32 c = 0; c < tables.nc; ++c) {
    const double* slab = &tables.responses[tables.response_at(group.stratum, group.t, c)];
    for (int32 wave = group.first_wave; wave < group.end_wave; ++wave) {
      double* b = &tables.emission[tables.emission_at(c, wave)];
      std::fill_n(b, tables.width, 0.0);
      std::fill_n(b, tables.ns, 1.0);
      for (int32 i = 1; i <= work.data.ni; ++i) {
        const double* by = slab + slot_of(work, wave, group.t, i);
        for (int32 s = 0; s < tables.width; ++s) b[s] *= by[s];
      }
    }
  }
}

void count_responses(mlworkspace& work, const slab_group& group) {
  status_tables& tables = work.statuses;
  for (int32 c = 0; c < tables.nc; ++c) {
    double* slab = &tables.response_count[tables.response_at(group.stratum, group.t, c)];
    std::fill_n(slab, tables.vectors(tables.slots), 0.0);
    for (int32 wave = group.first_wave; wave < group.end_wave; ++wave) {
      const double* count = &tables.wave_count[tables.emission_at(c, wave)];
      for (int32 i = 1; i <= work.data.ni; ++i)
        add(count, at(tables.width), slab + slot_of(work, wave, group.t, i));
    }
  }
}

/// Threads that pay: below a fifth of a millisecond of work, waiting for each other costs more.
int32 threads_that_pay(const mlworkspace& work) {
  const double products = 3.0 * static_cast<double>(tree_of(work).wave.size()) * work.statuses.ns *
                          work.statuses.width * work.statuses.nc;
  return products < 500000.0 ? 1 : work.em.threads;
}

void lay_out_tables(mlworkspace& work) {
  status_tables& tables = work.statuses;
  const status_tree& tree = tree_of(work);
  tables.nc = work.latent.nc;
  tables.ns = work.latent.ns;
  tables.nt = work.data.nt;
  tables.waves = tree.waves();
  tables.width = padded_classes(tables.ns);
  tables.item_slot.assign(1, 0);
  for (const int32 categories : work.data.nrs.flat)
    tables.item_slot.push_back(tables.item_slot.back() + categories + 1);
  tables.slots = tables.item_slot.back();
  const auto sized = [&](int64 count, auto&... arrays) {
    (arrays.assign(tables.vectors(count), 0.0), ...);
  };
  const int64 nc = tables.nc;
  const int64 patterns = tree.by_pattern ? work.rows->covariates.count : work.data.nstr;
  const int64 delta_units = tables.delta_by_pattern ? patterns : work.data.nstr;
  const int64 matrices = (tables.tau_by_pattern ? patterns : work.data.nstr) * (tables.nt - 1) * nc;
  sized(nc * work.data.nstr * tables.nt * tables.slots, tables.responses, tables.response_count);
  sized(nc * tables.waves, tables.emission, tables.wave_count);
  sized(nc * delta_units, tables.delta, tables.delta_count);
  sized(matrices * 2 * tables.ns, tables.tau);
  sized(matrices * tables.ns, tables.tau_count);
}

/// Blocks of chunks; as many as the sizes allow, whatever the threads.
void divide(mlworkspace& work) {
  const status_tree& tree = tree_of(work);
  const status_tables& tables = work.statuses;
  const std::size_t counts =
      tables.vectors(int64{tables.nc} * (int64{tables.waves} + (tables.nt - 1) * tables.ns + 1));
  const auto allowed = std::max<std::size_t>(most_counts / counts, fewest_blocks);
  const auto blocks =
      static_cast<int32>(std::min<std::size_t>(static_cast<std::size_t>(tree.blocks), allowed));
  status_sums& scratch = work.status_scratch;
  scratch.blocks.clear();
  std::size_t end = 0;
  for (std::size_t k = 0; k < tree.chunks.size(); ++k) {
    const auto b = at(int64{tree.chunks[k].block} * blocks / tree.blocks);
    if (b == scratch.blocks.size()) {
      if (b > 0) end = counts_of(work, scratch.blocks.back()).end;
      scratch.blocks.push_back({static_cast<int32>(k), 0, end});
    }
    scratch.blocks.back().end_chunk = static_cast<int32>(k) + 1;
  }
  scratch.counts.assign(counts_of(work, scratch.blocks.back()).end, 0.0);
  scratch.loglik.assign(scratch.blocks.size(), 0.0);
  scratch.failed.assign(scratch.blocks.size(), 0);
}

}  // namespace

void put_transitions(status_tables& tables, int32 unit, int32 c, int32 k, const double* p,
                     int64 row, int64 column) {
  double* to = tables.tau.data() + tables.tau_at(unit, c, k);
  double* transposed = to + tables.vectors(tables.ns);
  for (int32 s = 0; s < tables.ns; ++s)
    for (int32 d = 0; d < tables.ns; ++d) {
      const double value = p[s * row + d * column];
      to[tables.vectors(s) + at(d)] = value;
      transposed[tables.vectors(d) + at(s)] = value;
    }
}

void plan_status_estep(mlworkspace& work) {
  work.statuses.delta_by_pattern = work.delta_beta.active;
  work.statuses.tau_by_pattern = work.tau_beta.active;
  lay_out_tables(work);
  divide(work);
}

void fill_status_tables(mlworkspace& work) {
  status_tables& tables = work.statuses;
  const int32 nt = tables.nt;
  for (int32 g = 0; g < work.data.nstr; ++g)
    for (int32 c = 0; c < tables.nc; ++c) {
      for (int32 t = 0; t < nt; ++t) {
        double* slab = &tables.responses[tables.response_at(g, t, c)];
        for (int32 i = 1; i <= work.data.ni; ++i) {
          double* missing = slab + tables.vectors(tables.item_slot[at(i - 1)]);
          std::fill_n(missing, tables.ns, 1.0);  // a missing response contributes the factor 1
          for (int32 r = 1; r <= work.data.nrs(i); ++r)
            for (int32 s = 1; s <= tables.ns; ++s)
              missing[tables.vectors(r) + at(s - 1)] =
                  work.big_rho.now(i, s, r, t + 1, c + 1, g + 1);
        }
      }
      if (!tables.delta_by_pattern)
        std::copy_n(work.delta.now.column(c + 1, g + 1), tables.ns,
                    &tables.delta[tables.delta_at(g, c)]);
      for (int32 k = 0; k < nt - 1 && !tables.tau_by_pattern; ++k)
        put_transitions(tables, g, c, k, work.tau.now.column(1, k + 1, c + 1, g + 1), 1, tables.ns);
    }
  parallel::for_blocks(work.data.nstr * nt, threads_that_pay(work),
                       [&](int32 i) { evaluate_waves(work, group_of(work, i)); });
}

int32 status_estep(mlworkspace& work, error_type& err) {
  constexpr routine here{"estep", "estimation"};
  fill_status_tables(work);
  status_sums& scratch = work.status_scratch;
  const auto blocks = static_cast<int32>(scratch.blocks.size());
  const int32 threads = threads_that_pay(work);
  const std::size_t needed =
      layout_of(work).end * static_cast<std::size_t>(parallel::team_for(blocks, threads));
  if (scratch.vectors.size() < needed) scratch.vectors.resize(needed);
  parallel::for_blocks_by_worker(blocks, threads, [&](int32 b, int32 worker) {
    block_pass pass(work, b, worker);
    scratch.failed[at(b)] = pass.run() ? 0 : 1;
    scratch.loglik[at(b)] = pass.loglik();
  });
  if (std::any_of(scratch.failed.begin(), scratch.failed.end(), [](char f) { return f != 0; }))
    return fail(err, here, error_code::division_by_zero, {text("post_denom")});
  add_blocks(work);
  parallel::for_blocks(work.data.nstr * work.data.nt, threads,
                       [&](int32 i) { count_responses(work, group_of(work, i)); });
  return 0;
}

}  // namespace tolvenra::estimation
