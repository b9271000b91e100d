#include "api/findings.hpp"

#include <algorithm>

#include "api/guarded.hpp"
#include "api/lca_run.hpp"
#include "api/lta_run.hpp"
#include "api/run_lca.hpp"
#include "api/run_lta.hpp"
#include "estimation/flat_directions.hpp"

namespace tolvenra::api {
namespace {

static_assert(runaway_part == estimation::runaway_weight);

/// The flat directions of a family's rows, spread over its coefficient array.
/// \param first  place of a row's first coefficient; its categories are `step` apart
template <std::size_t R, class First>
std::vector<run_findings::direction> directions_of(const logit_block<R>& block, std::size_t step,
                                                   First&& first) {
  std::vector<run_findings::direction> all;
  for (std::size_t row = 0; row < block.rows.size(); ++row)
    for (const array<double, 2>& part : block.rows[row].runaway) {
      auto& direction = all.emplace_back(block.now.size(), 0.0);
      for (int32 c = 1; c <= part.n[1]; ++c)
        std::copy_n(part.column(c), part.n[0],
                    direction.begin() + static_cast<std::ptrdiff_t>(
                                            first(row) + static_cast<std::size_t>(c - 1) * step));
    }
  return all;
}

}  // namespace

std::int32_t run_lca(const lca_call& call, run_findings& findings) noexcept {
  return guarded("runlca", call.message, call.msg_len, [&] {
    return run_lca(call, [&](const fitted_start& best) {
      const auto& beta = best.work.beta;
      const std::size_t columns = static_cast<std::size_t>(beta.now.n[0]);
      const std::size_t stratum = columns * static_cast<std::size_t>(beta.now.n[1]);
      findings.beta = directions_of(beta, columns, [&](std::size_t g) { return g * stratum; });
      findings.cov_b = best.result.cov_b_held.flat;
    });
  });
}

std::int32_t run_lta(const lta_call& call, run_findings& findings) noexcept {
  return guarded("runlta", call.message, call.msg_len, [&] {
    return run_lta(call, [&](const fitted_start& best) {
      const auto& start = best.work.delta_beta;
      const auto& moves = best.work.tau_beta;
      const auto ns = static_cast<std::size_t>(best.work.latent.ns);
      const auto of_start = static_cast<std::size_t>(start.now.n[0]);
      const auto of_move = static_cast<std::size_t>(moves.now.n[0]);
      findings.delta_beta =
          directions_of(start, of_start, [&](std::size_t row) { return row * of_start * ns; });
      findings.tau_beta = directions_of(moves, of_move * ns, [&](std::size_t row) {
        return of_move * (row % ns + row / ns * ns * ns);  // origins, then the rest
      });
    });
  });
}

}  // namespace tolvenra::api
