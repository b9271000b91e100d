/// \file parallel.hpp  The only place that speaks to the OpenMP runtime.
///
/// Sums run over row blocks whose number depends on the data's size alone, and the blocks are added
/// in order: a result has the same bits at every thread count. Nothing may throw inside a body;
/// failures are noted per block (`first_failure`) and reported after the region.
#pragma once

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <cstddef>
#include <span>

#include "core/types.hpp"

namespace tolvenra::parallel {

inline int32 max_threads() { return omp_get_max_threads(); }
inline int32 thread_number() { return omp_get_thread_num(); }

/// `team` where that many threads can run, else 1. A team larger than any that the calling thread
/// had before is tried first: a thread that the runtime cannot create ends the host. A child of a
/// process that ran a team computes alone: threads do not survive a fork, and the runtime would
/// wait for them.
int32 startable_team(int32 team);

/// The smaller of the runtime's maximum and the caller's, 1 where so many threads cannot run; a
/// limit below 1 is none. Every region is given its count, so the host's own setting is never
/// touched.
int32 thread_count(int32 limit);

/// Plain IEEE arithmetic for a scope: rounding to nearest, exceptions masked, denormal numbers
/// kept. Hosts may compute with unmasked exceptions or flush-to-zero, and so may threads they
/// started.
class fp_environment_guard {
 public:
  fp_environment_guard() {
    std::fegetenv(&before_);
    std::fesetenv(FE_DFL_ENV);
  }
  fp_environment_guard(const fp_environment_guard&) = delete;
  fp_environment_guard& operator=(const fp_environment_guard&) = delete;
  ~fp_environment_guard() { std::fesetenv(&before_); }

 private:
  std::fenv_t before_{};
};

/// Number of row blocks for `n` rows and sums of `width` values: enough to balance 64 threads,
/// not so many that the blocks' sums outgrow 16 MB.
inline int32 blocks_for(int32 n, std::size_t width) {
  const auto most =
      std::max<std::size_t>(1, (std::size_t{1} << 21) / std::max<std::size_t>(width, 1));
  return static_cast<int32>(
      std::min<std::size_t>(static_cast<std::size_t>(std::clamp(n / 256, 1, 64)), most));
}

/// Rows of block `b` of `blocks` over `n` rows, 1-based and inclusive.
struct row_range {
  int32 first, last;
};
inline row_range rows_of_block(int32 n, int32 b, int32 blocks) {
  return {static_cast<int32>(int64{n} * b / blocks) + 1,
          static_cast<int32>(int64{n} * (b + 1) / blocks)};
}

/// Threads of a region over `blocks` blocks.
inline int32 team_for(int32 blocks, int32 threads) {
  return std::clamp(threads, 1, std::max(blocks, 1));
}

/// Runs body(b, worker) for the blocks 0..blocks-1, divided statically among the workers
/// 0..team_for(blocks, threads)-1; what a worker owns is its own during the region.
template <class Body>
void for_blocks_by_worker(int32 blocks, int32 threads, Body&& body) {
  const int32 team = startable_team(team_for(blocks, threads));
  if (team == 1) {
    for (int32 b = 0; b < blocks; ++b) body(b, 0);
    return;
  }
#pragma omp parallel num_threads(team)
  {
    const fp_environment_guard plain;
    const int32 worker = thread_number();
#pragma omp for schedule(static)
    for (int32 b = 0; b < blocks; ++b) body(b, worker);
  }
}

/// The same for bodies that own nothing.
template <class Body>
void for_blocks(int32 blocks, int32 threads, Body&& body) {
  for_blocks_by_worker(blocks, threads, [&](int32 b, int32) { body(b); });
}

/// Runs body(i, worker) for i = 0..n-1, handed out one by one to the workers
/// 0..team_for(n, threads)-1. Worker 0 is the calling thread and always takes task 0, so that what
/// only the calling thread may do is done even when the other workers are quick.
template <class Body>
void for_tasks(int32 n, int32 threads, Body&& body) {
  const int32 team = startable_team(team_for(n, threads));
  if (team == 1) {
    for (int32 i = 0; i < n; ++i) body(i, 0);
    return;
  }
  std::atomic<int32> next{1};
#pragma omp parallel num_threads(team)
  {
    const fp_environment_guard plain;
    const int32 worker = thread_number();
    for (int32 i = worker == 0 ? 0 : next++; i < n; i = next++) body(i, worker);
  }
}

/// out = sum over blocks, in block order, of what body(first, last, part) adds to its own part.
/// \param scratch  at least out.size() * blocks_for(n, out.size()) values, reused by the caller.
template <class Body>
void sum_over_rows(int32 n, int32 threads, std::span<double> out, std::span<double> scratch,
                   Body&& body) {
  const std::size_t width = out.size();
  const int32 blocks = blocks_for(n, width);
  for_blocks(blocks, threads, [&](int32 b) {
    const auto part = scratch.subspan(width * static_cast<std::size_t>(b), width);
    std::fill(part.begin(), part.end(), 0.0);
    const row_range rows = rows_of_block(n, b, blocks);
    body(rows.first, rows.last, part);
  });
  std::fill(out.begin(), out.end(), 0.0);
  for (int32 b = 0; b < blocks; ++b)
    for (std::size_t q = 0; q < width; ++q)
      out[q] += scratch[width * static_cast<std::size_t>(b) + q];
}

}  // namespace tolvenra::parallel
