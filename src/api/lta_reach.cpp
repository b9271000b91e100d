// Fixed zeros may leave a status that no case can be in; the M-step then ends without counts for
// its rows, and the report should say why.
#include <algorithm>

#include "api/fixed_values.hpp"
#include "api/lta_run.hpp"

namespace tolvenra::api {
namespace {

/// Whether every probability vector that status s, time t and stratum g take from elsewhere (held
/// equal) is shared with a place for which `body` is true; all 1-based.
template <class Body>
bool shared_with(const lta_run& run, int32 t, int32 g, Body&& body) {
  const param_type& set = run.param;
  const bool times = set.big_rho_equal_across_time;
  const bool strata = set.big_rho_equal_across_strata;
  for (int32 other_g = strata ? 1 : g; other_g <= (strata ? set.nstr : g); ++other_g)
    for (int32 other_t = times ? 1 : t; other_t <= (times ? set.nt : t); ++other_t)
      if (body(other_t, other_g)) return true;
  return false;
}

/// Row of big_rho in the order of its layout; all 1-based.
int32 response_row(const param_type& set, int32 i, int32 s, int32 t, int32 g) {
  return i - 1 + set.ni * (s - 1 + set.ns * (t - 1 + set.nt * (g - 1)));
}

/// Statuses that some case can be in, by status, time and stratum.
array<char, 3> reachable(const param_type& set) {
  array<char, 3> reach;
  reach.allocate({set.ns, set.nt, set.nstr});
  const auto closed = [](double value, int32 code) { return code == 0 && value == 0.0; };
  for (int32 g = 1; g <= set.nstr; ++g) {
    for (int32 s = 1; s <= set.ns; ++s)
      reach(s, 1, g) = closed(set.delta(s, 1, g), set.delta_restrictions(s, 1, g)) ? 0 : 1;
    for (int32 k = 1; k < set.nt; ++k)
      for (int32 s = 1; s <= set.ns; ++s)
        for (int32 d = 1; d <= set.ns && reach(s, k, g) != 0; ++d)
          if (!closed(set.tau(s, d, k, 1, g), set.tau_restrictions(s, d, k, 1, g)))
            reach(d, k + 1, g) = 1;
  }
  return reach;
}

}  // namespace

void explain_unreachable(lta_run& run) {
  const param_type& set = run.param;
  const array<char, 3> reach = reachable(set);
  const row_layout moves = param::tau_rows(set);
  const row_layout responses = param::big_rho_rows(set);
  const auto explain = [&](std::initializer_list<text_lines> lines) {
    fail(run.err, run.here, lines);
  };
  for (int32 g = 1; g <= set.nstr; ++g)
    for (int32 t = 1; t <= set.nt; ++t)
      for (int32 s = 1; s <= set.ns; ++s) {
        if (reach(s, t, g) != 0) continue;
        const auto line = text("The fixed zeros let no case of stratum (group) ", g,
                               " be in status ", s, " at time ", t, ".");
        const int32 row = s - 1 + set.ns * (t - 1 + (set.nt - 1) * (g - 1));
        if (t < set.nt && needs_counts(set.tau_restrictions.flat, moves, row))
          return explain({line, text("Fix all but one element of its row of tau.")});
        const bool shared = shared_with(run, t, g, [&](int32 other_t, int32 other_g) {
          return reach(s, other_t, other_g) != 0;
        });
        for (int32 i = 1; i <= set.ni && !shared; ++i)
          if (needs_counts(set.big_rho_restrictions.flat, responses, response_row(set, i, s, t, g)))
            return explain({line, text("Fix its response probabilities, or hold big_rho"),
                            text("equal across time.")});
      }
}

}  // namespace tolvenra::api
