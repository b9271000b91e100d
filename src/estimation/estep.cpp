#include "estimation/estep.hpp"

#include <algorithm>

#include "core/parallel.hpp"
#include "estimation/estep_kernel.hpp"
#include "estimation/status_estep.hpp"

namespace tolvenra::estimation {
namespace {

/// Copies the estimates into the order in which the rows read them.
void fill_table(mlworkspace& work) {
  class_counts& classes = work.classes;
  const array<double, 4>& rho = work.rho.now;
  for (int32 g = 1; g <= work.data.nstr; ++g) {
    double* prevalence = &classes.table[classes.prevalence(g)];
    for (int32 c = 1; c <= classes.nc; ++c) prevalence[c - 1] = work.gamma.now(c, g);
    for (int32 j = 1; j <= work.data.nci; ++j)
      for (int32 r = 1; r <= work.data.nrc(j); ++r) {
        double* slot = &classes.table[classes.at(j, r, g)];
        for (int32 c = 1; c <= classes.nc; ++c) slot[c - 1] = rho(j, c, r, g);
      }
  }
}

/// Class vectors that a worker needs: two per node of the largest tree, and one more.
std::size_t worker_scratch(const mlworkspace& work) {
  return (2 * static_cast<std::size_t>(work.rows->tree.most_nodes) + 1) *
         static_cast<std::size_t>(work.classes.width);
}

estep_kernel::block kernel_block(mlworkspace& work, int32 worker) {
  const class_counts& classes = work.classes;
  estep_kernel::block block;
  block.ncol = work.data.nci;
  block.row_length = work.rows->ncol;
  block.nc = classes.nc;
  block.width = classes.width;
  block.item_slot = classes.item_slot.data();
  block.tree = &work.rows->tree;
  block.weight = work.rows->weight.data();
  if (!classes.prior.empty()) {
    block.prior = classes.prior.data();
    block.pattern = work.rows->covariates.of_row.data();
  }
  block.product =
      work.scratch.vectors.data() + worker_scratch(work) * static_cast<std::size_t>(worker);
  block.pending = block.product + std::ptrdiff_t{work.rows->tree.most_nodes + 1} * classes.width;
  if (work.post.keep) {
    block.posterior = work.post.cls.data();
    block.likelihood = work.post.likelihood.data();
  }
  return block;
}

void run_block(mlworkspace& work, int32 b, int32 worker) {
  const row_block& chunks = work.scratch.blocks[static_cast<std::size_t>(b)];
  estep_kernel::block block = kernel_block(work, worker);
  estep_kernel::log_sum loglik;
  const std::size_t slab = work.classes.slab();
  double* counts = work.scratch.counts.data() + chunks.counts;
  std::fill_n(counts, slab * static_cast<std::size_t>(chunks.end_stratum - chunks.first_stratum),
              0.0);
  for (int32 k = chunks.first_chunk; k < chunks.end_chunk; ++k) {
    const prefix_tree::chunk& chunk = work.rows->tree.chunks[static_cast<std::size_t>(k)];
    const double* table =
        work.classes.table.data() + slab * static_cast<std::size_t>(chunk.stratum);
    double* to = counts + slab * static_cast<std::size_t>(chunk.stratum - chunks.first_stratum);
    const bool passed =
        work.rows->codes16.empty()
            ? estep_kernel::run(block, chunk, work.rows->codes8.data(), table, to, loglik)
            : estep_kernel::run(block, chunk, work.rows->codes16.data(), table, to, loglik);
    if (!passed) break;
  }
  work.scratch.loglik[static_cast<std::size_t>(b)] = loglik.value();
  work.scratch.failed_row[static_cast<std::size_t>(b)] = block.failed_row;
}

/// Threads that pay: below a fifth of a millisecond of work, waiting for each other costs more.
int32 threads_that_pay(const mlworkspace& work) {
  const double products = 1.0 * work.rows->nrow * work.data.nci * work.classes.width;
  return products < 500000.0 ? 1 : work.em.threads;
}

/// Adds the blocks in their order.
void add_blocks(mlworkspace& work) {
  class_counts& classes = work.classes;
  const std::size_t slab = classes.slab();
  std::fill(classes.counts.begin(), classes.counts.end(), 0.0);
  for (const row_block& rows : work.scratch.blocks) {
    const double* from = work.scratch.counts.data() + rows.counts;
    double* to = classes.counts.data() + slab * static_cast<std::size_t>(rows.first_stratum);
    const std::size_t values =
        slab * static_cast<std::size_t>(rows.end_stratum - rows.first_stratum);
    for (std::size_t q = 0; q < values; ++q) to[q] += from[q];
  }
  work.em.loglik = 0.0;
  for (const double part : work.scratch.loglik) work.em.loglik += part;
}

/// Sizes the tables: slot 0 for the prevalence, then per item a missing slot and its categories.
void lay_out_classes(mlworkspace& work) {
  class_counts& classes = work.classes;
  classes.nc = work.latent.nc;
  classes.width = padded_classes(classes.nc);
  classes.item_slot = item_slots({work.data.nrc.data(), work.data.nrc.size()});
  classes.slots = classes.item_slot.back();
  const std::size_t values = classes.slab() * static_cast<std::size_t>(work.data.nstr);
  classes.prior.clear();
  classes.table.assign(values, 0.0);
  classes.counts.assign(values, 0.0);
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 j = 1; j <= work.data.nci; ++j)
      std::fill_n(&classes.table[classes.at(j, 0, g)], classes.nc, 1.0);
}

}  // namespace

void plan_estep(mlworkspace& work) {
  lay_out_classes(work);
  if (work.data.ni > 0) {
    plan_status_estep(work);
    return;
  }
  const prefix_tree& tree = work.rows->tree;
  const std::size_t slab = work.classes.slab();
  const int32 blocks = std::min(tree.blocks, parallel::blocks_for(work.rows->nrow, slab));
  estep_scratch& scratch = work.scratch;
  scratch.blocks.clear();
  std::size_t counts = 0;
  for (std::size_t k = 0; k < tree.chunks.size(); ++k) {
    const prefix_tree::chunk& chunk = tree.chunks[k];
    const auto b = static_cast<std::size_t>(int64{chunk.block} * blocks / tree.blocks);
    if (b == scratch.blocks.size()) {
      scratch.blocks.push_back({static_cast<int32>(k), 0, chunk.stratum, chunk.stratum, counts});
    }
    row_block& block = scratch.blocks.back();
    block.end_chunk = static_cast<int32>(k) + 1;
    counts += slab * static_cast<std::size_t>(chunk.stratum + 1 - block.end_stratum);
    block.end_stratum = chunk.stratum + 1;
  }
  scratch.counts.assign(counts, 0.0);
  scratch.loglik.assign(scratch.blocks.size(), 0.0);
  scratch.failed_row.assign(scratch.blocks.size(), -1);
}

int32 estep(mlworkspace& work, error_type& err) {
  constexpr routine here{"estep", "estimation"};
  fill_table(work);
  if (work.post.keep) {
    work.post.likelihood.resize(static_cast<std::size_t>(work.rows->nrow));
    work.post.cls.resize(work.post.likelihood.size() * static_cast<std::size_t>(work.latent.nc));
  }
  if (work.data.ni > 0) return status_estep(work, err);
  const auto blocks = static_cast<int32>(work.scratch.blocks.size());
  const int32 threads = threads_that_pay(work);
  const auto workers = static_cast<std::size_t>(parallel::team_for(blocks, threads));
  if (work.scratch.vectors.size() < workers * worker_scratch(work))
    work.scratch.vectors.resize(workers * worker_scratch(work));
  parallel::for_blocks_by_worker(blocks, threads,
                                 [&](int32 b, int32 worker) { run_block(work, b, worker); });
  const auto& failed = work.scratch.failed_row;
  if (std::any_of(failed.begin(), failed.end(), [](int32 row) { return row >= 0; }))
    return fail(err, here, error_code::division_by_zero, {text("post_denom")});
  add_blocks(work);
  return 0;
}

}  // namespace tolvenra::estimation
