/// \file records.hpp  What the tests of the model records share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "model/dataset.hpp"
#include "model/param.hpp"

namespace tolvenra::tests {

using strings = std::vector<std::string>;

inline name8 name(std::string_view text) {
  name8 padded;
  padded.fill(' ');
  std::copy_n(text.begin(), std::min(text.size(), padded.size()), padded.begin());
  return padded;
}
inline std::string shown(const name8& text) { return {text.begin(), text.end()}; }

/// An array from its elements, first index fastest.
template <class T, std::size_t R>
array<T, R> array_of(const std::array<int32, R>& extents, const std::vector<T>& elements) {
  array<T, R> a;
  a.allocate(extents);
  EXPECT_EQ(a.size(), elements.size());
  std::copy_n(elements.begin(), std::min(a.size(), elements.size()), a.flat.begin());
  return a;
}
template <class T, std::size_t R>
array<T, R> filled(const std::array<int32, R>& extents, T value) {
  array<T, R> a;
  a.allocate(extents, value);
  return a;
}

/// Unchanged, the shared matrices being the very same ones.
inline bool same(const dataset_type& a, const dataset_type& b) {
  const auto all = [](const dataset_type& d) {
    return std::tie(d.not_ready, d.nkase, d.nci, d.ni, d.nt, d.nrcmax, d.nrsmax, d.ncov,
                    d.ncov_delta, d.ncov_tau, d.nstr, d.freq_set, d.weight_set, d.y_set,
                    d.cluster_set, d.nrc, d.nrs, d.y, d.strata, d.clustercounts_kases,
                    d.clustercounts_subjects, d.freq, d.weight, d.cov, d.clusters, d.citem_names,
                    d.sitem_names, d.citem_levels, d.sitem_levels, d.cov_names, d.strata_levels,
                    d.strata_name, d.rows);
  };
  return all(a) == all(b);
}
template <class Record>
bool same(const Record& a, const Record& b) {
  return a == b;
}

/// A call that must leave the record alone and report exactly these lines, its routine line last.
template <class Record>
struct refusal {
  const char* why;
  std::function<int32(Record&, error_type&)> call;
  strings lines;
};

template <class Record>
void expect_refusals(const Record& record, const std::vector<refusal<Record>>& cases) {
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    Record after = record;
    error_type err;
    EXPECT_EQ(t.call(after, err), -1);
    EXPECT_EQ(lines_of(err), t.lines);
    EXPECT_TRUE(same(after, record)) << "the record has changed";
  }
}

/// A parameter set of the given dims vector.
inline param_type sized(std::initializer_list<int32> dims) {
  param_type p;
  error_type err;
  EXPECT_EQ(param::put_dims(vector_of(dims), p, err), 0);
  EXPECT_EQ(lines_of(err), strings{});
  return p;
}

/// 3 categorical items of 2, 3 and 4 categories and 2 status items of 3 and 2; nt 3, strata 2,
/// classes 2, statuses 3, covariates 1, 2 and 3.
inline param_type mixed_set() { return sized({3, 2, 3, 1, 2, 3, 2, 2, 3, 2, 3, 4, 3, 2}); }

/// Valid probabilities in the shape of rho and big_rho: uniform over each item's own categories,
/// garbage beyond them.
inline array<double, 4> uniform_rho(const param_type& p) {
  auto rho = filled(p.rho.n, -7.0);
  for (int32 s = 1; s <= p.nstr; ++s)
    for (int32 c = 1; c <= p.nc; ++c)
      for (int32 j = 1; j <= p.nci; ++j)
        for (int32 r = 1; r <= p.nrc(j); ++r) rho(j, c, r, s) = 1.0 / p.nrc(j);
  return rho;
}
inline array<double, 6> uniform_big_rho(const param_type& p) {
  auto big_rho = filled(p.big_rho.n, -7.0);
  for (int32 i = 1; i <= p.ni; ++i)
    for (int32 k = 1; k <= p.ns; ++k)
      for (int32 r = 1; r <= p.nrs(i); ++r)
        for (int32 t = 1; t <= p.nt; ++t)
          for (int32 c = 1; c <= p.nc; ++c)
            for (int32 s = 1; s <= p.nstr; ++s) big_rho(i, k, r, t, c, s) = 1.0 / p.nrs(i);
  return big_rho;
}

}  // namespace tolvenra::tests
