// Zeros that the host fixed or started from may leave a class without cases, or a case without a
// class; the first steps then divide by zero, and the report should say why.
#include <algorithm>
#include <string>

#include "api/fixed_values.hpp"
#include "api/lca_run.hpp"

namespace tolvenra::api {
namespace {

/// Zeros that no step leaves again: fixed ones, and those of given starting values.
class lasting_zeros {
 public:
  explicit lasting_zeros(const lca_run& run) : run_(run), started_(run.call.start_given != 0) {}

  [[nodiscard]] bool closed(int32 c, int32 g) const {
    const param_type& set = run_.param;
    const bool lasting = set.gamma_restrictions(c, g) == 0 || (started_ && set.ncov == 0);
    return lasting && set.gamma(c, g) == 0.0;
  }
  [[nodiscard]] bool impossible(int32 j, int32 c, int32 r, int32 g) const {
    if (!run_.given_rho.allocated) return false;
    const bool lasting = started_ || run_.param.rho_restrictions(j, c, r, g) == 0;
    return lasting && run_.given_rho(j, c, r, g) == 0.0;
  }

 private:
  const lca_run& run_;
  bool started_;
};

/// The first item whose response a class cannot give, 0 for none.
int32 impossible_item(const lca_run& run, const lasting_zeros& zeros, int32 k, int32 c, int32 g) {
  const array<int32, 2>& y = *run.dataset.y;
  for (int32 j = 1; j <= run.param.nci; ++j)
    if (y(k, j) > 0 && zeros.impossible(j, c, y(k, j), g)) return j;
  return 0;
}

void explain_case(lca_run& run, const lasting_zeros& zeros) {
  const param_type& set = run.param;
  const array<int32, 2>& y = *run.dataset.y;
  for (int32 k = 1; k <= run.dataset.nkase; ++k) {
    const int32 g = run.dataset.strata(k);
    int32 class_named = 0, item = 0;
    bool possible = false;
    for (int32 c = 1; c <= set.nc && !possible; ++c) {
      if (zeros.closed(c, g)) continue;
      const int32 j = impossible_item(run, zeros, k, c, g);
      possible = j == 0;
      if (class_named == 0) class_named = c, item = j;
    }
    if (possible || class_named == 0) continue;
    refuse(run, {text("No class can give the responses of case ", k, ", stratum (group) ", g, ":"),
                 text("in class ", class_named, " response ", y(k, item), " to item ", item,
                      " has probability 0.")});
    return;
  }
}

void explain_class(lca_run& run, const lasting_zeros& zeros) {
  const param_type& set = run.param;
  const row_layout responses = param::rho_rows(set);
  for (int32 g = 1; g <= set.nstr; ++g)
    for (int32 c = 1; c <= set.nc; ++c) {
      bool reached = !zeros.closed(c, g);
      for (int32 other = 1; other <= set.nstr && set.rho_equal_across_strata; ++other)
        reached = reached || !zeros.closed(c, other);
      for (int32 j = 1; j <= set.nci && !reached; ++j) {
        const int32 row = j - 1 + set.nci * (c - 1 + set.nc * (g - 1));
        if (!needs_counts(set.rho_restrictions.flat, responses, row)) continue;
        refuse(run, {text("The share of class ", c, " in stratum (group) ", g,
                          " is 0, so no case tells its"),
                     text("responses to item ", j, ". Fix its response probabilities, or hold rho"),
                     text("equal across strata with one where the class occurs.")});
        return;
      }
    }
}

bool says(const error_type& err, std::string_view words) {
  const auto lines = lines_of(err);
  return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.find(words) != std::string::npos;
  });
}

}  // namespace

void explain_impossible(lca_run& run) {
  const lasting_zeros zeros(run);
  if (says(run.err, "post_denom"))
    explain_case(run, zeros);
  else if (says(run.err, "rtmp_denom"))
    explain_class(run, zeros);
}

}  // namespace tolvenra::api
