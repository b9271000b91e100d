// Labels of classes and statuses: what is counted under new labels are the relabelled draws.
#include "estimation/augmentation_labels.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace tolvenra::estimation {
namespace {

constexpr int32 nc = 2, ns = 3, nt = 3, nstr = 2, ni = 2, nr = 2;

struct subject {
  int32 g, c;
  std::array<int32, nt> s;
};

struct counts {
  array<double, 2> gamma;
  array<double, 3> delta;
  array<double, 5> tau;
  array<double, 6> big_rho;

  explicit counts(const std::vector<subject>& subjects) {
    gamma.allocate({nc, nstr});
    delta.allocate({ns, nc, nstr});
    tau.allocate({ns, ns, nt - 1, nc, nstr});
    big_rho.allocate({ni, ns, nr, nt, nc, nstr});
    for (std::size_t k = 0; k < subjects.size(); ++k) {
      const subject& one = subjects[k];
      const auto status = [&](int32 t) { return one.s[static_cast<std::size_t>(t - 1)]; };
      ++gamma(one.c, one.g);
      ++delta(status(1), one.c, one.g);
      for (int32 t = 1; t <= nt; ++t) {
        if (t < nt) ++tau(status(t), status(t + 1), t, one.c, one.g);
        for (int32 i = 1; i <= ni; ++i)
          ++big_rho(i, status(t), 1 + static_cast<int32>(k) * (i + t) % nr, t, one.c, one.g);
      }
    }
  }
};

/// Every label exchanged in its own way.
label_map shuffled(std::mt19937& engine) {
  label_map map;
  map.cls.allocate({nc, nstr});
  map.sta.allocate({ns, nt, nc, nstr});
  const auto fill = [&](std::vector<int32>& flat, int32 n) {
    for (std::size_t first = 0; first < flat.size(); first += static_cast<std::size_t>(n)) {
      const auto begin = flat.begin() + static_cast<std::ptrdiff_t>(first);
      std::iota(begin, begin + n, 1);
      std::shuffle(begin, begin + n, engine);
    }
  };
  fill(map.cls.flat, nc);
  fill(map.sta.flat, ns);
  return map;
}

std::vector<subject> draw_subjects(std::mt19937& engine) {
  const auto below = [&](int32 n) {
    return 1 + static_cast<int32>(engine() % static_cast<unsigned>(n));
  };
  std::vector<subject> subjects(80);
  for (subject& one : subjects) one = {below(nstr), below(nc), {below(ns), below(ns), below(ns)}};
  return subjects;
}

subject relabelled(subject one, const label_map& map) {
  one.c = map.cls(one.c, one.g);
  for (int32 t = 1; t <= nt; ++t) {
    int32& s = one.s[static_cast<std::size_t>(t - 1)];
    s = map.sta(s, t, one.c, one.g);
  }
  return one;
}

TEST(Labels, RelabelledCountsAreCountsOfRelabelledDraws) {
  std::mt19937 engine(3);
  for (int trial = 0; trial < 20; ++trial) {
    const std::vector<subject> drawn = draw_subjects(engine);
    const label_map map = shuffled(engine);
    std::vector<subject> moved;
    for (const subject& one : drawn) moved.push_back(relabelled(one, map));
    const counts before(drawn);
    const counts after(moved);
    EXPECT_EQ(relabelled_gamma(map, before.gamma), after.gamma);
    EXPECT_EQ(relabelled_delta(map, before.delta), after.delta);
    EXPECT_EQ(relabelled_tau(map, before.tau), after.tau);
    EXPECT_EQ(relabelled_big_rho(map, before.big_rho), after.big_rho);
  }
}

TEST(Labels, TheBestAssignmentIsFoundWhereLabelsAreFree) {
  std::mt19937 engine(4);
  const label_map hidden = shuffled(engine);
  array<double, 3> classes;
  classes.allocate({nc, nc, nstr}, 1.0);
  array<double, 5> statuses;
  statuses.allocate({ns, ns, nt, nc, nstr}, 1.0);
  for (int32 g = 1; g <= nstr; ++g)
    for (int32 c = 1; c <= nc; ++c) {
      classes(c, hidden.cls(c, g), g) = g == 1 ? 9.0 : 5.0;  // stratum 1 outweighs stratum 2
      for (int32 t = 1; t <= nt; ++t)
        for (int32 s = 1; s <= ns; ++s)
          statuses(s, hidden.sta(s, t, c, g), t, c, g) = t == 2 ? 90.0 : 5.0;
    }
  label_map own;
  own.cls = shuffled(engine).cls;
  own.sta = hidden.sta;
  label_map found = own;
  match_classes({}, classes, found);
  match_statuses({}, statuses, found);
  EXPECT_EQ(found.cls, own.cls);  // not free: left alone
  label_freedom free;
  free.classes = free.classes_by_stratum = true;
  free.statuses = free.statuses_by_time = free.statuses_by_class = free.statuses_by_stratum = true;
  match_classes(free, classes, found);
  found.sta.flat.assign(found.sta.size(), 0);
  match_statuses(free, statuses, found);
  EXPECT_EQ(found.cls, hidden.cls);
  EXPECT_EQ(found.sta, hidden.sta);
  free.classes_by_stratum = free.statuses_by_time = false;
  match_classes(free, classes, found);
  match_statuses(free, statuses, found);
  for (int32 c = 1; c <= nc; ++c) EXPECT_EQ(found.cls(c, 2), hidden.cls(c, 1));
  for (int32 g = 1; g <= nstr; ++g)
    for (int32 c = 1; c <= nc; ++c)
      for (int32 t = 1; t <= nt; ++t)
        for (int32 s = 1; s <= ns; ++s)
          EXPECT_EQ(found.sta(s, t, c, g), hidden.sta(s, 2, c, g));  // time 2 outweighs the others
}

}  // namespace
}  // namespace tolvenra::estimation
