#include "estimation/estep.hpp"

#include <algorithm>

#include "core/parallel.hpp"
#include "estimation/estep_kernel.hpp"

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

estep_kernel::block kernel_block(mlworkspace& work, int32 b) {
  const class_counts& classes = work.classes;
  const auto at = static_cast<std::size_t>(b);
  const row_block& rows = work.scratch.blocks[at];
  const std::size_t stack = work.scratch.stack.size() / work.scratch.blocks.size();
  estep_kernel::block block;
  block.ncol = work.data.nci;
  block.nc = classes.nc;
  block.width = classes.width;
  block.slots = classes.slots;
  block.item_slot = classes.item_slot.data();
  block.shared = work.rows->shared.data();
  block.stratum_start = work.rows->stratum_start.data();
  block.weight = work.rows->weight.data();
  block.table = classes.table.data();
  if (!classes.prior.empty()) {
    block.prior = classes.prior.data();
    block.pattern = work.rows->covariates.of_row.data();
  }
  block.first_row = rows.first_row;
  block.end_row = rows.end_row;
  block.first_stratum = rows.first_stratum;
  block.end_stratum = rows.end_stratum;
  block.counts = work.scratch.counts.data() + rows.counts;
  block.stack = work.scratch.stack.data() + stack * at;
  if (work.post.keep) {
    block.posterior = work.post.cls.data();
    block.likelihood = work.post.likelihood.data();
  }
  return block;
}

void run_block(mlworkspace& work, int32 b) {
  estep_kernel::block block = kernel_block(work, b);
  const auto strata = static_cast<std::size_t>(block.end_stratum - block.first_stratum);
  std::fill_n(block.counts, strata * work.classes.slab(), 0.0);
  if (work.rows->codes16.empty())
    estep_kernel::run(block, work.rows->codes8.data());
  else
    estep_kernel::run(block, work.rows->codes16.data());
  work.scratch.loglik[static_cast<std::size_t>(b)] = block.loglik;
  work.scratch.failed_row[static_cast<std::size_t>(b)] = block.failed_row;
}

/// Threads that pay: below a fifth of a millisecond of work, waiting for each other costs more.
int32 team_for(const mlworkspace& work) {
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
  classes.slots = 1;
  classes.item_slot.clear();
  for (int32 j = 1; j <= work.data.nci; ++j) {
    classes.item_slot.push_back(classes.slots);
    classes.slots += work.data.nrc(j) + 1;
  }
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
  const distinct_rows& rows = *work.rows;
  const std::size_t slab = work.classes.slab();
  const int32 blocks = parallel::blocks_for(rows.nrow, slab);
  estep_scratch& scratch = work.scratch;
  scratch.blocks.clear();
  std::size_t counts = 0;
  for (int32 b = 0; b < blocks; ++b) {
    const auto range = parallel::rows_of_block(rows.nrow, b, blocks);
    row_block block{range.first - 1, range.last, 0, 0, counts};
    const auto stratum_of = [&](int32 row) {  // 0-based stratum of a 0-based row
      const auto at = std::upper_bound(rows.stratum_start.begin(), rows.stratum_start.end(), row);
      return static_cast<int32>(at - rows.stratum_start.begin()) - 1;
    };
    block.first_stratum = stratum_of(block.first_row);
    block.end_stratum = stratum_of(block.end_row - 1) + 1;
    counts += slab * static_cast<std::size_t>(block.end_stratum - block.first_stratum);
    scratch.blocks.push_back(block);
  }
  const auto vectors = static_cast<std::size_t>(2 * (work.data.nci + 1) + 1);
  scratch.counts.assign(counts, 0.0);
  scratch.stack.assign(
      vectors * static_cast<std::size_t>(work.classes.width) * scratch.blocks.size(), 0.0);
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
  parallel::for_blocks(static_cast<int32>(work.scratch.blocks.size()), team_for(work),
                       [&](int32 b) { run_block(work, b); });
  const auto& failed = work.scratch.failed_row;
  if (std::any_of(failed.begin(), failed.end(), [](int32 row) { return row >= 0; }))
    return fail(err, here, error_code::division_by_zero, {text("post_denom")});
  add_blocks(work);
  return 0;
}

}  // namespace tolvenra::estimation
