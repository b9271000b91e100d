/// \file findings.hpp  Runs for the homes that link the engine: the cells of a call, and what the
/// calls have no position for.
#pragma once

#include <cstdint>
#include <vector>

#include "api/generated/call_records.hpp"

namespace tolvenra::api {

/// What a completed run found beside its cells.
struct run_findings {
  /// A direction along which the likelihood of a regression rises without end, in the order of the
  /// family's coefficient array: the part that each coefficient takes in it, relative to its
  /// column. A coefficient, or a difference of two of the same covariate, has no finite estimate
  /// where its part, or the difference of theirs, reaches `runaway_part` in any direction.
  using direction = std::vector<double>;
  std::vector<direction> beta, delta_beta, tau_beta;
  /// cov_b of the call with these directions held instead of left out: it has the variances of
  /// differences that are finite though their coefficients are not. Empty without standard errors.
  std::vector<double> cov_b;
};

inline constexpr double runaway_part = 1e-6;

/// As the exported calls, with findings of a run that returns 0.
std::int32_t run_lca(const lca_call& call, run_findings& findings) noexcept;
std::int32_t run_lta(const lta_call& call, run_findings& findings) noexcept;

}  // namespace tolvenra::api
