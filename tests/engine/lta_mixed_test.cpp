// Classes and statuses together, which no export reaches: the E-step against the enumeration of all
// classes and listed status sequences, and whole fits by their ascent and first-order conditions.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimation/em.hpp"
#include "estimation/estep.hpp"
#include "estimation/row_recursion.hpp"

namespace tolvenra {
namespace {

struct sizes {
  int nkase;
  std::vector<int32> nrc, nrs;
  int32 nt, nc, ns, nstr;
  double missing;
};

struct problem {
  dataset_type dataset;
  model_type model;
  param_type param;
};

array<int32, 1> vector_from(const std::vector<int32>& values) {
  array<int32, 1> a;
  a.allocate({static_cast<int32>(values.size())});
  a.flat = values;
  return a;
}

void fill_rows(std::vector<double>& values, const row_layout& rows, std::mt19937_64& engine) {
  std::uniform_real_distribution<double> uniform(0.05, 1.0);
  for (int32 m = 0; m < rows.nrows; ++m) {
    double total = 0.0;
    for (int32 r = 0; r < rows.length[static_cast<std::size_t>(m)]; ++r)
      total += values[static_cast<std::size_t>(rows.base(m) + r * rows.step)] = uniform(engine);
    for (int32 r = 0; r < rows.length[static_cast<std::size_t>(m)]; ++r)
      values[static_cast<std::size_t>(rows.base(m) + r * rows.step)] /= total;
  }
}

problem random_problem(const sizes& s, unsigned seed) {
  problem p;
  error_type err;
  std::mt19937_64 engine(seed);
  const auto ni = static_cast<int32>(s.nrs.size());
  const auto nci = static_cast<int32>(s.nrc.size());
  array<int32, 2> y;
  array<int32, 1> strata;
  y.allocate({s.nkase, nci + ni * s.nt});
  strata.allocate({s.nkase});
  for (int32 k = 1; k <= s.nkase; ++k) {
    strata(k) = 1 + k % s.nstr;
    for (int32 j = 1; j <= y.n[1]; ++j) {
      const int32 levels = j <= nci ? s.nrc[static_cast<std::size_t>(j - 1)]
                                    : s.nrs[static_cast<std::size_t>((j - nci - 1) % ni)];
      const bool missing = std::uniform_real_distribution<double>()(engine) < s.missing;
      y(k, j) = missing ? 0 : 1 + static_cast<int32>(engine() % static_cast<unsigned>(levels));
    }
  }
  std::vector<int32> dims{nci, ni, s.nt, 0, 0, 0, s.nstr, s.nc, s.ns};
  dims.insert(dims.end(), s.nrc.begin(), s.nrc.end());
  dims.insert(dims.end(), s.nrs.begin(), s.nrs.end());
  EXPECT_EQ(dataset::put_nrc(vector_from(s.nrc), p.dataset, err), 0);
  EXPECT_EQ(dataset::put_nrs(vector_from(s.nrs), p.dataset, err), 0);
  EXPECT_EQ(dataset::put_nt(s.nt, p.dataset, err), 0);
  EXPECT_EQ(dataset::put_y(y, p.dataset, err), 0);
  EXPECT_EQ(dataset::put_nstr(s.nstr, p.dataset, err), 0);
  EXPECT_EQ(dataset::put_strata(strata, p.dataset, err), 0);
  EXPECT_EQ(model::put_nc(s.nc, p.model, err), 0);
  EXPECT_EQ(model::put_ns(s.ns, p.model, err), 0);
  EXPECT_EQ(param::put_dims(vector_from(dims), p.param, err), 0);
  fill_rows(p.param.gamma.flat, param::gamma_rows(p.param), engine);
  fill_rows(p.param.rho.flat, param::rho_rows(p.param), engine);
  fill_rows(p.param.delta.flat, param::delta_rows(p.param), engine);
  fill_rows(p.param.tau.flat, param::tau_rows(p.param), engine);
  fill_rows(p.param.big_rho.flat, param::big_rho_rows(p.param), engine);
  return p;
}

/// Joint probability of a case with class c and the listed status sequence p.
double joint(const problem& q, const latent_tables& latent, int32 k, int32 c, int32 p) {
  const param_type& v = q.param;
  const int32 g = q.dataset.strata(k);
  const array<int32, 2>& y = *q.dataset.y;
  double f = v.gamma(c, g) * v.delta(latent.loc(p, 1), c, g);
  for (int32 j = 1; j <= v.nci; ++j)
    if (y(k, j) > 0) f *= v.rho(j, c, y(k, j), g);
  for (int32 t = 1; t <= v.nt; ++t) {
    const int32 s = latent.loc(p, t);
    if (t > 1) f *= v.tau(latent.loc(p, t - 1), s, t - 1, c, g);
    for (int32 i = 1; i <= v.ni; ++i)
      if (const int32 r = y(k, v.nci + (t - 1) * v.ni + i); r > 0) f *= v.big_rho(i, s, r, t, c, g);
  }
  return f;
}

TEST(StatusEstep, EqualsTheEnumerationOfClassesAndSequences) {
  const sizes shapes[] = {
      {60, {2, 3}, {2, 3}, 4, 2, 3, 1, 0.3}, {60, {2}, {2, 2, 2}, 3, 3, 2, 2, 0.2},
      {40, {}, {3, 2}, 5, 1, 4, 1, 0.5},     {50, {2, 2}, {2}, 1, 2, 3, 2, 0.1},
      {30, {3}, {2, 2}, 2, 2, 9, 1, 0.4},    {40, {2, 2}, {4}, 6, 2, 1, 1, 0.3}};
  unsigned seed = 300;
  for (const sizes& s : shapes) {
    SCOPED_TRACE(::testing::Message() << "shape " << seed);
    const problem q = random_problem(s, ++seed);
    error_type err;
    mlworkspace work;
    ASSERT_EQ(estimation::put_dataset(q.dataset, work, err), 0);
    ASSERT_EQ(estimation::put_model(q.model, work, err), 0);
    ASSERT_EQ(estimation::put_param(q.param, work, err), 0);
    work.post.keep = true;
    work.em.threads = 2;
    ASSERT_EQ(estimation::estep(work, err), 0);
    mlresult_type result;
    result.filled = true;
    result.rows = work.rows;
    result.nc = s.nc;
    result.ns = s.ns;
    result.nt = s.nt;
    estimation::status_posteriors(work, result.post_cls_sta, result.post_cls_adj_sta);
    result.post_cls = work.post.cls;
    array<double, 2> cls;
    array<double, 4> sta;
    array<double, 5> adj;
    ASSERT_EQ(estimation::get_post_cls(result, cls, err), 0);
    ASSERT_EQ(estimation::get_post_cls_sta(result, sta, err), 0);
    ASSERT_EQ(estimation::get_post_cls_adj_sta(result, adj, err), 0);

    const latent_tables& latent = work.latent;
    const int32 npatt = latent.loc.n[0];
    double loglik = 0.0;
    double worst = 0.0;
    const auto compare = [&](double a, double b) { worst = std::max(worst, std::abs(a - b)); };
    array<double, 5> tau_count = q.param.tau;
    std::fill(tau_count.flat.begin(), tau_count.flat.end(), 0.0);
    for (int32 k = 1; k <= s.nkase; ++k) {
      double likelihood = 0.0;
      for (int32 c = 1; c <= s.nc; ++c)
        for (int32 p = 1; p <= npatt; ++p) likelihood += joint(q, latent, k, c, p);
      loglik += std::log(likelihood);
      for (int32 c = 1; c <= s.nc; ++c) {
        double of_class = 0.0;
        for (int32 p = 1; p <= npatt; ++p) of_class += joint(q, latent, k, c, p) / likelihood;
        compare(cls(k, c), of_class);
        for (int32 t = 1; t <= s.nt; ++t)
          for (int32 a = 1; a <= s.ns; ++a) {
            double sum = 0.0;
            for (int32 p = 1; p <= npatt / s.ns; ++p)
              sum += joint(q, latent, k, c, latent.patt_loc(p, a, t)) / likelihood;
            compare(sta(k, c, t, a), sum);
            for (int32 b = 1; b <= s.ns && t < s.nt; ++b) {
              double both = 0.0;
              for (int32 p = 1; p <= latent.patt_adj_loc.n[0]; ++p)
                both += joint(q, latent, k, c, latent.patt_adj_loc(p, a, b, t)) / likelihood;
              compare(adj(k, c, a, b, t), both);
              tau_count(a, b, t, c, q.dataset.strata(k)) += both;
            }
          }
      }
    }
    EXPECT_LT(worst, 1e-12);
    EXPECT_NEAR(work.em.loglik, loglik, 1e-12 * std::abs(loglik));
    for (int32 g = 1; g <= s.nstr; ++g)  // what the tree summed over all rows at once
      for (int32 c = 1; c <= s.nc; ++c)
        for (int32 t = 1; t < s.nt; ++t)
          for (int32 a = 1; a <= s.ns; ++a)
            for (int32 b = 1; b <= s.ns; ++b)
              EXPECT_NEAR(work.statuses.tau_count[work.statuses.tau_count_at(g - 1, c - 1, t - 1) +
                                                  work.statuses.vectors(a - 1) +
                                                  static_cast<std::size_t>(b - 1)],
                          tau_count(a, b, t, c, g), 1e-11);
  }
}

TEST(StatusEstep, ListsSequencesOnlyWhileTheyAreFew) {
  for (const auto& [ns, nt, listed] :
       {std::tuple{4, 6, 4096}, {4, 7, 0}, {20, 20, 0}, {1, 30, 1}, {99, 1, 99}}) {
    const problem q = random_problem({20, {}, {2, 2}, nt, 1, ns, 1, 0.0}, 9);
    error_type err;
    mlworkspace work;
    ASSERT_EQ(estimation::put_dataset(q.dataset, work, err), 0);
    ASSERT_EQ(estimation::put_model(q.model, work, err), 0);
    EXPECT_EQ(work.latent.loc.n[0], listed) << ns << " statuses, " << nt << " times";
  }
}

TEST(MixedModel, ClimbsToAStationaryPointWithClassesAndStatuses) {
  problem q = random_problem({800, {2, 2, 3}, {2, 2, 2}, 3, 2, 2, 2, 0.1}, 77);
  error_type err;
  ASSERT_EQ(param::put_big_rho_equal_across_class(true, q.param, err), 0);
  ASSERT_EQ(param::put_big_rho_equal_across_time(true, q.param, err), 0);
  ASSERT_EQ(param::put_big_rho_equal_across_strata(true, q.param, err), 0);
  mlresult_type result;
  mlworkspace work;
  const estimation::em_controls controls{1e-5, 3000, 1, {}, true};
  ASSERT_EQ(estimation::run_em_modelfit(q.dataset, q.model, q.param, result, work, err, controls),
            0);
  for (std::size_t i = 2; i < result.llvec.size(); ++i)
    EXPECT_GE(result.llvec[i], result.llvec[i - 1] - 1e-9 * std::abs(result.llvec[i]));
  EXPECT_EQ(result.n_params_big_rho, 2 * 3);
  EXPECT_EQ(result.n_params_tau, 2 * 2 * 2 * 2);
  EXPECT_EQ(q.param.big_rho(1, 2, 1, 3, 2, 2), q.param.big_rho(1, 2, 1, 1, 1, 1));
  double loglik = 0.0;
  for (int32 k = 1; k <= 800; ++k) {
    double likelihood = 0.0;
    for (int32 c = 1; c <= 2; ++c)
      for (int32 p = 1; p <= 8; ++p) likelihood += joint(q, work.latent, k, c, p);
    loglik += std::log(likelihood);
  }
  EXPECT_NEAR(result.loglik, loglik, 1e-9 * std::abs(loglik));
  EXPECT_FALSE(result.post_cls_sta.empty());
}

}  // namespace
}  // namespace tolvenra
