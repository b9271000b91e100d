#include "support/lca_problem.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>

#include "api/exports.hpp"

namespace tolvenra::test {
namespace {

template <class T>
const T* address(const std::vector<T>& values) {
  return values.empty() ? nullptr : values.data();
}

}  // namespace

int lca_problem::nrcmax() const { return *std::max_element(nrc.begin(), nrc.end()); }

double lca_problem::gamma_at(int c, int g) const {
  return gamma[index(c) + index(g) * static_cast<std::size_t>(nc)];
}

double& lca_problem::rho_ref(int j, int c, int r, int g) {
  const auto items = static_cast<std::size_t>(nci);
  const auto classes = static_cast<std::size_t>(nc);
  const auto categories = static_cast<std::size_t>(nrcmax());
  return rho[index(j) + items * (index(c) + classes * (index(r) + categories * index(g)))];
}

double lca_problem::rho_at(int j, int c, int r, int g) const {
  return const_cast<lca_problem*>(this)->rho_ref(j, c, r, g);
}

api::lca_call lca_problem::prepare() {
  const auto n = static_cast<std::size_t>(nkase);
  const auto starts = static_cast<std::size_t>(std::max(nstarts, 1));
  const auto cells = static_cast<std::size_t>(nci) * static_cast<std::size_t>(nc) *
                     static_cast<std::size_t>(nrcmax()) * static_cast<std::size_t>(nstr);
  gamma.resize(static_cast<std::size_t>(nc) * static_cast<std::size_t>(nstr));
  rho.resize(cells);
  beta.resize(static_cast<std::size_t>((ncov + 1) * nc * nstr));
  test_stat.resize(static_cast<std::size_t>(ncov));
  test_p.resize(test_stat.size());
  test_status.resize(test_stat.size());
  given_gamma = gamma;
  given_rho = rho;
  post_cls.assign(n * static_cast<std::size_t>(nc), 0.0);
  patterns.assign(n * static_cast<std::size_t>(nci + 1), 0);
  pattern_counts.assign(n * 2, 0.0);
  llvec.assign(static_cast<std::size_t>(std::max(max_iter, 1)), 0.0);
  madvec = llvec;
  drawn.assign(n, 0);
  start_seeds.assign(starts, 0);
  start_iter.assign(starts, 0);
  start_status.assign(starts, 7);
  start_loglik.assign(starts, 0.0);
  start_converged.assign(starts, 7);
  text_.assign(static_cast<std::size_t>(msg_len), '?');

  api::lca_call call{};
  call.progress = progress;
  call.nci = nci;
  call.nrc = nrc.data();
  call.nrcmax = nrcmax();
  call.nkase = nkase;
  call.ncov = ncov;
  call.nstr = nstr;
  call.y = y.data();
  call.strata_given = strata.empty() ? 0 : 1;
  call.freq_given = freq.empty() ? 0 : 1;
  call.weight_given = weight.empty() ? 0 : 1;
  call.strata = address(strata);
  call.clusters = address(clusters);
  call.cov = address(cov);
  call.beta = ncov > 0 ? beta.data() : nullptr;
  call.baseline_gamma = &baseline;
  call.binary_gamma = &binary;
  call.binary_wanted = binary > 0 ? 1 : 0;
  call.beta_prior_strength = beta_prior;
  call.want_tests = want_tests ? 1 : 0;
  call.test_stat = ncov > 0 && (want_tests || host_tests) ? test_stat.data() : nullptr;
  call.test_p = test_p.data();
  call.test_status = test_status.data();
  call.freq = address(freq);
  call.weight = address(weight);
  call.nc = nc;
  call.rho_equal_strata = rho_equal_strata ? 1 : 0;
  call.gamma = gamma.data();
  call.rho = rho.data();
  call.post_cls = post_cls.data();
  call.response_patterns = patterns.data();
  call.pattern_counts = pattern_counts.data();
  call.se_option = se_option;
  if (se_option != 0) {
    const int blocks = binary > 0 ? 1 : nc - 1;
    const auto order = static_cast<std::size_t>((ncov + 1) * blocks * nstr);
    std_gamma.assign(gamma.size(), -1.0);
    std_gamma_model.assign(gamma.size(), -1.0);
    std_rho.assign(cells, -1.0);
    std_beta.assign(beta.size(), -1.0);
    cov_b.assign(order * order, -1.0);
    call.std_gamma = std_gamma.data();
    call.std_gamma_model = std_gamma_model.data();
    call.std_rho = std_rho.data();
    call.std_beta = std_beta.data();
    call.cov_b = cov_b.data();
  }
  call.run_info = run_info.data();
  call.start_given = start_given ? 1 : 0;
  call.gamma_restrictions = address(gamma_restrictions);
  call.rho_restrictions = address(rho_restrictions);
  call.nstarts = nstarts;
  call.seed = seed;
  call.seed2 = seed2;
  call.start_seeds = start_seeds.data();
  call.start_loglik = start_loglik.data();
  call.start_converged = start_converged.data();
  call.start_iter = start_iter.data();
  call.start_status = start_status.data();
  call.rho_prior_strength = rho_prior;
  call.gamma_prior_strength = gamma_prior;
  call.criterion = criterion;
  call.max_iter = max_iter;
  call.max_threads = threads;
  call.converged = &converged;
  call.iterations = &iterations;
  call.max_abs_diff = &max_abs_diff;
  call.mean_abs_diff = &mean_abs_diff;
  call.deff = &deff;
  call.loglik = &loglik;
  call.overflow_count = &overflow;
  call.apparent_df = &apparent_df;
  call.n_params = n_params.data();
  call.G2 = &G2;
  call.aic = &aic;
  call.bic = &bic;
  call.caic = &caic;
  call.abic = &abic;
  call.entropyraw = &entropyraw;
  call.entropy = &entropy;
  call.fit_extra = fit_extra.data();
  call.cat_loglik = &cat_loglik;
  call.cat_g2 = &cat_g2;
  call.cat_df = &cat_df;
  call.llvec = llvec.data();
  call.n_clusters = &n_clusters;
  call.cluster_min = &cluster_min;
  call.cluster_max = &cluster_max;
  call.want_post = want_post ? 1 : 0;
  call.want_draws = want_draws ? 1 : 0;
  call.drawn_class = drawn.data();
  call.madvec = madvec.data();
  call.msg_len = msg_len;
  call.message = text_.data();
  return call;
}

double lca_problem::class_probability(int k, int c) const {
  const int g = stratum(k);
  if (ncov == 0 || nc < 2) return gamma_at(c, g);
  std::vector<double> weights;
  double total = 0.0;
  for (int other = 1; other <= nc; ++other) {
    double eta = 0.0;
    for (int j = 0; j <= ncov; ++j) eta += cov_at(k, j) * beta_at(j, other, g);
    weights.push_back(std::exp(eta));
    total += weights.back();
  }
  if (binary == 0) return weights[index(c)] / total;
  // The compared class by its logit; the others share the rest as they do on average.
  const double compared = weights[index(binary)] / (1.0 + weights[index(binary)]);
  if (c == binary) return compared;
  return (1.0 - compared) * gamma_at(c, g) / (1.0 - gamma_at(binary, g));
}

int lca_problem::run() {
  const api::lca_call call = prepare();
  status = api::guarded_run_lca(call);
  message = text_;
  return status;
}

lca_problem simulate(int nkase, const std::vector<std::int32_t>& nrc, int nc, unsigned seed,
                     double missing, int nstr) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  lca_problem problem;
  problem.nkase = nkase;
  problem.nci = static_cast<int>(nrc.size());
  problem.nrc = nrc;
  problem.nc = nc;
  problem.nstr = nstr;
  problem.y.resize(static_cast<std::size_t>(nkase) * nrc.size());
  std::vector<std::vector<std::vector<double>>> rho(static_cast<std::size_t>(nc));
  for (auto& of_class : rho)
    for (const int categories : nrc) {
      std::vector<double> p(static_cast<std::size_t>(categories));
      double sum = 0.0;
      for (double& value : p) sum += value = 0.05 + uniform() * uniform() * uniform();
      for (double& value : p) value /= sum;
      of_class.push_back(p);
    }
  for (int k = 1; k <= nkase; ++k) {
    if (nstr > 1) problem.strata.push_back(1 + (k - 1) % nstr);
    const auto c = std::min(static_cast<std::size_t>(uniform() * uniform() * nc * 1.6),
                            static_cast<std::size_t>(nc - 1));
    for (int j = 1; j <= problem.nci; ++j) {
      const auto& p = rho[c][static_cast<std::size_t>(j - 1)];
      double u = uniform();
      int r = 1;
      while (r < static_cast<int>(p.size()) && u > p[static_cast<std::size_t>(r - 1)])
        u -= p[static_cast<std::size_t>(r++ - 1)];
      problem.set_response(k, j, uniform() < missing ? 0 : r);
    }
  }
  return problem;
}

lca_problem example(const std::string& name, int nc) {
  std::ifstream file(std::string(TOLVENRA_EXAMPLES) + "/" + name);
  std::string line;
  std::getline(file, line);
  std::vector<std::vector<int>> rows;
  while (std::getline(file, line)) {
    std::vector<int> row;
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, ',');) row.push_back(std::stoi(cell));
    rows.push_back(row);
  }
  lca_problem problem;
  problem.nkase = static_cast<int>(rows.size());
  problem.nci = static_cast<int>(rows.front().size()) - 1;
  problem.nc = nc;
  for (int j = 0; j < problem.nci; ++j) {
    int largest = 0;
    for (const auto& row : rows) {
      problem.y.push_back(row[static_cast<std::size_t>(j)]);
      largest = std::max(largest, row[static_cast<std::size_t>(j)]);
    }
    problem.nrc.push_back(largest);
  }
  for (const auto& row : rows) problem.freq.push_back(row.back());
  return problem;
}

}  // namespace tolvenra::test
