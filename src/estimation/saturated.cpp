#include "estimation/saturated.hpp"

#include <cmath>
#include <limits>
#include <new>

#include "core/dynamic_allocation.hpp"
#include "estimation/response_patterns.hpp"

namespace tolvenra::estimation {
namespace {

using namespace dynamic_allocation;

constexpr routine preliminaries{"md_preliminaries", "estimation"};
constexpr routine catmod{"md_catmod", "estimation"};

int32 refuse_memory(error_type& err, std::string_view label) {
  err_handle(err, error_code::allocation, {.whichsub = catmod.whichsub(), .msg = label});
  return -1;
}

int32 copy_patterns(const mlworkspace& work, const stratum_patterns& patterns, mdinfo_type& mdinfo,
                    error_type& err) {
  const int32 npatt = patterns.row.n[0];
  const int32 p = mdinfo.levs.n[0];
  if (int2_alloc(mdinfo.orig_obspat, npatt, p, err, {}, "md_preliminaries: mdinfo%orig_obspat") !=
          0 ||
      dbl1_alloc(mdinfo.orig_counts, npatt, err, {}, "md_preliminaries: mdinfo%orig_counts") != 0 ||
      int1_alloc(mdinfo.jmp, p, err, {}, "md_preliminaries: mdinfo%jmp") != 0)
    return -1;
  mdinfo.rows = patterns.row.flat;
  mdinfo.orig_counts.flat = patterns.count.flat;
  int64 stride = 1;
  for (int32 j = 1; j <= p; ++j) {
    for (int32 i = 1; i <= npatt; ++i)
      mdinfo.orig_obspat(i, j) = work.rows->response(patterns.row(i), j);
    mdinfo.jmp(j) = static_cast<int32>(stride);
    stride *= mdinfo.levs(j);
    if (stride > std::numeric_limits<int32>::max()) stride = 0;
  }
  return 0;
}

/// Sorts the patterns by which responses they hold.
int32 sort_by_missingness(mdinfo_type& mdinfo, array<double, 1>& keys, error_type& err) {
  array<int32, 1> range;
  if (int1_alloc(range, mdinfo.levs.n[0], err) != 0)
    return fail(err, preliminaries,
                {text("Could not allocate one or more of the local variables.")});
  std::fill(range.flat.begin(), range.flat.end(), 2);
  const auto held = [&](int32 i, int32 j) { return mdinfo.orig_obspat(i, j) > 0 ? 1 : 0; };
  return sort_by_key(mdinfo.orig_obspat.n[0], held, range, mdinfo.ord, keys, err);
}

int32 allocate_groups(int32 groups, mdinfo_type& mdinfo, error_type& err) {
  const int32 npatt = mdinfo.ord.n[0];
  const int32 p = mdinfo.levs.n[0];
  if (int2_alloc(mdinfo.r, groups, p, err, {}, "md_preliminaries: mdinfo%r") != 0 ||
      int1_alloc(mdinfo.mdp, npatt, err, {}, "md_preliminaries: mdinfo%mdp") != 0 ||
      int1_alloc(mdinfo.mobs, groups, err, {}, "md_preliminaries: mdinfo%mobs") != 0 ||
      int1_alloc(mdinfo.mdpst, groups, err, {}, "md_preliminaries: mdinfo%mdpst") != 0 ||
      int1_alloc(mdinfo.umdp, groups, err, {}, "md_preliminaries: mdinfo%umdp") != 0 ||
      int1_alloc(mdinfo.nmdp, groups, err, {}, "md_preliminaries: mdinfo%nmdp") != 0)
    return -1;
  return 0;
}

int32 group_by_missingness(mdinfo_type& mdinfo, error_type& err) {
  array<double, 1> keys;
  if (sort_by_missingness(mdinfo, keys, err) != 0) return -1;
  const int32 npatt = mdinfo.ord.n[0];
  int32 groups = 0;
  for (int32 i = 1; i <= npatt; ++i) groups += i == 1 || keys(i) != keys(i - 1) ? 1 : 0;
  if (allocate_groups(groups, mdinfo, err) != 0) return -1;
  int32 m = 0;
  for (int32 i = 1; i <= npatt; ++i) {
    if (i == 1 || keys(i) != keys(i - 1)) {
      mdinfo.umdp(++m) = mdinfo.ord(i);
      mdinfo.mdpst(m) = i;
      for (int32 j = 1; j <= mdinfo.levs.n[0]; ++j) {
        mdinfo.r(m, j) = mdinfo.orig_obspat(mdinfo.ord(i), j) > 0 ? 1 : 0;
        mdinfo.mobs(m) += mdinfo.r(m, j);
      }
    }
    mdinfo.mdp(mdinfo.ord(i)) = m;
    ++mdinfo.nmdp(m);
  }
  return 0;
}

/// The patterns that hold a response, grouped by missingness pattern.
int32 gather_informative(mdinfo_type& mdinfo, error_type& err) {
  int32 n = 0;
  for (const int32 i : mdinfo.ord.flat) n += mdinfo.mobs(mdinfo.mdp(i)) > 0 ? 1 : 0;
  if (int2_alloc(mdinfo.x, n, mdinfo.levs.n[0], err, {}, "md_preliminaries: mdinfo%x") != 0)
    return -1;
  int32 to = 0;
  for (const int32 i : mdinfo.ord.flat) {
    if (mdinfo.mobs(mdinfo.mdp(i)) == 0) continue;
    ++to;
    for (int32 j = 1; j <= mdinfo.levs.n[0]; ++j) mdinfo.x(to, j) = mdinfo.orig_obspat(i, j);
  }
  return 0;
}

/// Counts of the rows of `x`.
std::vector<double> informative_counts(const mdinfo_type& mdinfo) {
  std::vector<double> counts;
  counts.reserve(static_cast<std::size_t>(mdinfo.x.n[0]));
  for (const int32 i : mdinfo.ord.flat)
    if (mdinfo.mobs(mdinfo.mdp(i)) > 0) counts.push_back(mdinfo.orig_counts(i));
  return counts;
}

int32 run_passes(mdinfo_type& mdinfo, double criterion, error_type& err) {
  std::vector<double> counts;
  try {
    counts = informative_counts(mdinfo);
  } catch (const std::bad_alloc&) {
    return refuse_memory(err, "md_catmod: c");
  }
  cell_fit_controls controls = mdinfo.controls;
  controls.criterion = criterion;
  try {
    mdinfo.fit = fit_cells(mdinfo.classes, counts, controls);
  } catch (const std::bad_alloc&) {
    return refuse_memory(err, "md_catmod: thetanew");
  }
  if (!std::isfinite(mdinfo.fit.loglik))
    return fail(err, catmod, {text("Error invoking CAT model E-step.")});
  return 0;
}

/// Cell probabilities and expected counts of the observed patterns.
int32 hand_back(mdinfo_type& mdinfo, error_type& err) {
  const cell_classes& classes = mdinfo.classes;
  if (dbl1_alloc(mdinfo.expect_sat, mdinfo.ord.n[0], err, {}, "md_catmod: mdinfo%expect_sat") !=
          0 ||
      dbl1_alloc(mdinfo.theta, static_cast<int32>(classes.class_of.size()), err, {},
                 "md_catmod: mdinfo%theta") != 0)
    return pass_on(err, catmod);
  for (std::size_t cell = 0; cell < classes.class_of.size(); ++cell)
    if (classes.class_of[cell] >= 0) {
      const auto k = static_cast<std::size_t>(classes.class_of[cell]);
      mdinfo.theta.flat[cell] = mdinfo.fit.mass[k] / classes.cells[k];
    }
  std::size_t informative = 0;
  for (int32 m = 1; m <= mdinfo.mdpst.n[0]; ++m) {
    const double total = missingness_total(mdinfo, m);
    for (int32 at = mdinfo.mdpst(m); at < mdinfo.mdpst(m) + mdinfo.nmdp(m); ++at)
      mdinfo.expect_sat(mdinfo.ord(at)) =
          total * (mdinfo.mobs(m) > 0 ? mdinfo.fit.probability[informative++] : 1.0);
  }
  return 0;
}

}  // namespace

double missingness_total(const mdinfo_type& mdinfo, int32 m) {
  double total = 0.0;
  for (int32 at = mdinfo.mdpst(m); at < mdinfo.mdpst(m) + mdinfo.nmdp(m); ++at)
    total += mdinfo.orig_counts(mdinfo.ord(at));
  return total;
}

int32 md_preliminaries(const mlworkspace& work, mdinfo_type& mdinfo, error_type& err,
                       int32 stratum) {
  if (response_levels(work, mdinfo.levs, err) != 0) return pass_on(err, preliminaries);
  for (const int32 levels : mdinfo.levs.flat)
    if (levels <= 0)
      return fail(err, preliminaries,
                  {text("There is a zero or negative number"), text("in the nrc or nrs array.")});
  stratum_patterns patterns;
  if (aggregate_stratum(work, stratum, patterns, err) != 0)
    return fail(err, preliminaries,
                {text("Could not allocate one or more of the local variables.")});
  if (copy_patterns(work, patterns, mdinfo, err) != 0 || group_by_missingness(mdinfo, err) != 0 ||
      gather_informative(mdinfo, err) != 0)
    return pass_on(err, preliminaries);
  return 0;
}

int32 md_catmod(const mlworkspace&, mdinfo_type& mdinfo, double criterion, int32& iterations,
                error_type& err) {
  iterations = 0;
  try {
    mdinfo.overflow = !find_cell_classes(mdinfo.x, mdinfo.levs, mdinfo.limits, mdinfo.classes);
  } catch (const std::bad_alloc&) {
    return refuse_memory(err, "md_catmod: mc");
  }
  if (mdinfo.overflow) return 0;
  if (run_passes(mdinfo, criterion, err) != 0 || hand_back(mdinfo, err) != 0) return -1;
  iterations = mdinfo.fit.passes;
  return 0;
}

int32 nullify_mdinfo(mdinfo_type& mdinfo, error_type& err) {
  if (int1_dealloc(mdinfo.levs, err, "nullify_mdinfo: mdinfo%levs") != 0 ||
      int2_dealloc(mdinfo.r, err, "nullify_mdinfo: mdinfo%r") != 0 ||
      int1_dealloc(mdinfo.mdp, err, "nullify_mdinfo: mdinfo%mdp") != 0 ||
      int1_dealloc(mdinfo.jmp, err, "nullify_mdinfo: mdinfo%jmp") != 0 ||
      int1_dealloc(mdinfo.mobs, err, "nullify_mdinfo: mdinfo%mobs") != 0 ||
      int1_dealloc(mdinfo.ord, err, "nullify_mdinfo: mdinfo%ord") != 0 ||
      int1_dealloc(mdinfo.mdpst, err, "nullify_mdinfo: mdinfo%mdpst") != 0 ||
      int1_dealloc(mdinfo.umdp, err, "nullify_mdinfo: mdinfo%umdp") != 0 ||
      int1_dealloc(mdinfo.nmdp, err, "nullify_mdinfo: mdinfo%nmdp") != 0 ||
      int2_dealloc(mdinfo.orig_obspat, err, "nullify_mdinfo: mdinfo%orig_obspat") != 0 ||
      dbl1_dealloc(mdinfo.orig_counts, err, "nullify_mdinfo: mdinfo%orig_counts") != 0 ||
      int2_dealloc(mdinfo.x, err, "nullify_mdinfo: mdinfo%x") != 0 ||
      dbl1_dealloc(mdinfo.theta, err, "nullify_mdinfo: mdinfo%theta") != 0 ||
      dbl1_dealloc(mdinfo.expect_sat, err, "nullify_mdinfo: mdinfo%expect_sat") != 0 ||
      dbl1_dealloc(mdinfo.expected, err, "nullify_mdinfo: mdinfo%expected") != 0)
    return pass_on(err, {"nullify_mdinfo", "estimation"});
  mdinfo = mdinfo_type{};
  return 0;
}

}  // namespace tolvenra::estimation
