#include "estimation/augmentation_labels.hpp"

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "model/label_exchange.hpp"
#include "numerics/assignment.hpp"

namespace tolvenra::estimation {
namespace {

/// Codes, values and prior counts of a family, its shape apart.
template <std::size_t R>
bool unrestricted(const prob_block<R>& block) {
  return !block.use_prior && std::all_of(block.code.flat.begin(), block.code.flat.end(),
                                         [](int32 code) { return code == 1; });
}

/// Whether neighbouring labels may be exchanged in all of a family, its prior included.
template <std::size_t R>
bool exchangeable(const prob_block<R>& block, std::initializer_list<std::size_t> dimensions) {
  return unrestricted(block) || labels_exchangeable(block.code, block.now, dimensions,
                                                    [&](std::size_t at, std::size_t to) {
                                                      return !block.use_prior ||
                                                             block.pseudo[at] == block.pseudo[to];
                                                    });
}

/// The assignment of drawn labels (rows) to labels (columns) that agrees most.
std::vector<int32> best_assignment(array<double, 2> agreement) {
  for (double& value : agreement.flat) value = -value;
  return assignment::least_cost(agreement);
}

}  // namespace

label_freedom freedom_of_labels(const mlworkspace& work) {
  const param_type& set = work.given.param;
  const bool statuses = work.data.ni > 0;
  const bool plain_classes = unrestricted(work.gamma) && unrestricted(work.rho);
  const bool plain_statuses = !statuses || (unrestricted(work.delta) && unrestricted(work.tau) &&
                                            unrestricted(work.big_rho));
  label_freedom free;
  free.classes = work.latent.nc > 1 && exchangeable(work.gamma, {0}) &&
                 exchangeable(work.rho, {1}) &&
                 (!statuses || (exchangeable(work.delta, {1}) && exchangeable(work.tau, {3}) &&
                                exchangeable(work.big_rho, {4})));
  // On its own only what shares nothing that the labels could be read from.
  free.classes_by_stratum =
      free.classes && plain_classes && plain_statuses && !work.rho_equal_across_strata &&
      (!statuses || !set.big_rho_equal_across_strata || set.big_rho_equal_across_class);
  free.statuses = statuses && work.latent.ns > 1 && exchangeable(work.delta, {0}) &&
                  exchangeable(work.tau, {0, 1}) && exchangeable(work.big_rho, {1});
  const bool apart = free.statuses && plain_statuses;
  free.statuses_by_time = apart && !set.big_rho_equal_across_time;
  free.statuses_by_class = apart && !set.big_rho_equal_across_class;
  free.statuses_by_stratum = apart && !set.big_rho_equal_across_strata;
  return free;
}

label_map own_labels(const mlworkspace& work) {
  label_map map;
  const int32 nc = work.latent.nc;
  map.cls.allocate({nc, work.data.nstr});
  map.sta.allocate({work.latent.ns, work.data.nt, nc, work.data.nstr});
  for (std::size_t at = 0; at < map.cls.size(); ++at)
    map.cls.flat[at] = indices_at(map.cls.n, static_cast<int64>(at))[0];
  for (std::size_t at = 0; at < map.sta.size(); ++at)
    map.sta.flat[at] = indices_at(map.sta.n, static_cast<int64>(at))[0];
  return map;
}

void match_classes(const label_freedom& free, const array<double, 3>& agreement, label_map& map) {
  if (!free.classes) return;
  const int32 nc = agreement.n[0];
  const int32 nstr = agreement.n[2];
  array<double, 2> sum;
  for (int32 g = 1; g <= nstr; ++g) {
    if (g == 1 || free.classes_by_stratum) sum.allocate({nc, nc});
    for (int32 c = 1; c <= nc; ++c)
      for (int32 d = 1; d <= nc; ++d) sum(d, c) += agreement(d, c, g);
    if (g < nstr && !free.classes_by_stratum) continue;
    const auto labels = best_assignment(sum);
    for (int32 h = free.classes_by_stratum ? g : 1; h <= g; ++h)
      std::copy(labels.begin(), labels.end(), map.cls.column(h));
  }
}

void match_statuses(const label_freedom& free, const array<double, 5>& agreement, label_map& map) {
  if (!free.statuses) return;
  const int32 ns = agreement.n[0];
  const int32 nt = agreement.n[2];
  const int32 nc = agreement.n[3];
  const int32 nstr = agreement.n[4];
  // One assignment for every set of times, classes and strata that share their labels.
  const auto unit_of = [&](int32 t, int32 c, int32 g) {
    const int32 at_time = free.statuses_by_time ? t - 1 : 0;
    const int32 at_class = free.statuses_by_class ? c - 1 : 0;
    const int32 at_stratum = free.statuses_by_stratum ? g - 1 : 0;
    return static_cast<std::size_t>(at_time + nt * (at_class + nc * at_stratum));
  };
  std::vector<array<double, 2>> sums(static_cast<std::size_t>(nt * nc * nstr));
  std::vector<std::vector<int32>> labels(sums.size());
  const auto each = [&](auto&& body) {
    for (int32 g = 1; g <= nstr; ++g)
      for (int32 c = 1; c <= nc; ++c)
        for (int32 t = 1; t <= nt; ++t) body(t, c, g, unit_of(t, c, g));
  };
  each([&](int32 t, int32 c, int32 g, std::size_t unit) {
    if (!sums[unit].allocated) sums[unit].allocate({ns, ns});
    for (int32 s = 1; s <= ns; ++s)
      for (int32 d = 1; d <= ns; ++d) sums[unit](d, s) += agreement(d, s, t, c, g);
  });
  for (std::size_t unit = 0; unit < sums.size(); ++unit)
    if (sums[unit].allocated) labels[unit] = best_assignment(sums[unit]);
  each([&](int32 t, int32 c, int32 g, std::size_t unit) {
    std::copy(labels[unit].begin(), labels[unit].end(), map.sta.column(t, c, g));
  });
}

namespace {

/// `from` with every element moved to the indices that `moved(index)` gives.
template <std::size_t R, class Moved>
array<double, R> relabelled(const array<double, R>& from, Moved&& moved) {
  array<double, R> to = from;
  for (std::size_t at = 0; at < from.flat.size(); ++at) {
    auto index = indices_at(from.n, static_cast<int64>(at));
    moved(index);
    int64 offset = 0;
    for (std::size_t d = R; d-- > 0;) offset = offset * from.n[d] + index[d] - 1;
    to.flat[static_cast<std::size_t>(offset)] = from.flat[at];
  }
  return to;
}

}  // namespace

array<double, 2> relabelled_gamma(const label_map& map, const array<double, 2>& from) {
  return relabelled(from, [&](auto& i) { i[0] = map.cls(i[0], i[1]); });
}
array<double, 4> relabelled_rho(const label_map& map, const array<double, 4>& from) {
  return relabelled(from, [&](auto& i) { i[1] = map.cls(i[1], i[3]); });
}
array<double, 3> relabelled_delta(const label_map& map, const array<double, 3>& from) {
  return relabelled(from, [&](auto& i) {
    i[1] = map.cls(i[1], i[2]);
    i[0] = map.sta(i[0], 1, i[1], i[2]);
  });
}
array<double, 5> relabelled_tau(const label_map& map, const array<double, 5>& from) {
  return relabelled(from, [&](auto& i) {
    i[3] = map.cls(i[3], i[4]);
    i[0] = map.sta(i[0], i[2], i[3], i[4]);
    i[1] = map.sta(i[1], i[2] + 1, i[3], i[4]);
  });
}
array<double, 6> relabelled_big_rho(const label_map& map, const array<double, 6>& from) {
  return relabelled(from, [&](auto& i) {
    i[4] = map.cls(i[4], i[5]);
    i[1] = map.sta(i[1], i[3], i[4], i[5]);
  });
}

}  // namespace tolvenra::estimation
