#include "support/lta_problem.hpp"

#include <algorithm>
#include <cmath>
#include <random>

#include "api/exports.hpp"

namespace tolvenra::test {
namespace {

template <class T>
const T* address(const std::vector<T>& values) {
  return values.empty() ? nullptr : values.data();
}

/// Probability of category c by a baseline logit, or by a binary one whose other categories keep
/// the proportions of `average`.
double logit_probability(const std::vector<double>& eta, const std::vector<double>& average,
                         int compared, int c) {
  const auto at = static_cast<std::size_t>(c - 1);
  if (compared > 0) {
    const auto own = static_cast<std::size_t>(compared - 1);
    const double p = 1.0 / (1.0 + std::exp(-eta[own]));
    return c == compared ? p : (1.0 - p) * average[at] / (1.0 - average[own]);
  }
  double total = 0.0;
  for (std::size_t k = 0; k < eta.size(); ++k) total += average[k] > 0.0 ? std::exp(eta[k]) : 0.0;
  return average[at] > 0.0 ? std::exp(eta[at]) / total : 0.0;
}

}  // namespace

std::size_t lta_problem::cell(const std::vector<int>& index, const std::vector<int>& extents) {
  std::size_t offset = 0;
  for (std::size_t k = extents.size(); k-- > 0;)
    offset = offset * static_cast<std::size_t>(extents[k]) + static_cast<std::size_t>(index[k] - 1);
  return offset;
}

int lta_problem::nrsmax() const { return *std::max_element(nrs.begin(), nrs.end()); }

double lta_problem::start_probability(int k, int s) const {
  const int g = stratum(k);
  if (ncov_delta == 0 || ns < 2) return delta[delta_cell(s, g)];
  std::vector<double> eta, average;
  for (int c = 1; c <= ns; ++c) {
    eta.push_back(delta_beta[cell({1, c, g}, {ncov_delta + 1, ns, nstr})]);
    average.push_back(delta[delta_cell(c, g)]);
    for (int j = 1; j <= ncov_delta; ++j)
      eta.back() += cov[cell({k, j}, {nkase, 1})] *
                    delta_beta[cell({j + 1, c, g}, {ncov_delta + 1, ns, nstr})];
  }
  return logit_probability(eta, average, binary_delta, s);
}

double lta_problem::move_probability(int k, int s, int d, int t) const {
  const int g = stratum(k);
  if (ncov_tau == 0 || ns < 2) return tau[tau_cell(s, d, t, g)];
  const std::vector<int> extents{ncov_tau + 1, ns, ns, nt - 1, nstr};
  std::vector<double> eta, average;
  for (int c = 1; c <= ns; ++c) {
    eta.push_back(tau_beta[cell({1, s, c, t, g}, extents)]);
    average.push_back(tau[tau_cell(s, c, t, g)]);
    for (int j = 1; j <= ncov_tau; ++j)
      eta.back() += cov[cell({k, ncov_delta + (t - 1) * ncov_tau + j}, {nkase, 1})] *
                    tau_beta[cell({j + 1, s, c, t, g}, extents)];
  }
  const int compared = binary_tau.empty() ? 0 : binary_tau[cell({s, t}, {ns, nt - 1})];
  return logit_probability(eta, average, compared, d);
}

double lta_problem::wave_probability(int k, int t, int s) const {
  double product = 1.0;
  for (int i = 1; i <= ni; ++i)
    if (const int r = response(k, i, t); r > 0)
      product *= big_rho[rho_cell(i, s, r, t, stratum(k))];
  return product;
}

void lta_problem::for_each_sequence(
    int k, const std::function<void(const std::vector<int>&, double)>& body) const {
  std::vector<double> start, wave, move;  // of this case, looked up by every sequence
  for (int s = 1; s <= ns; ++s) start.push_back(start_probability(k, s));
  for (int t = 1; t <= nt; ++t)
    for (int s = 1; s <= ns; ++s) {
      wave.push_back(wave_probability(k, t, s));
      for (int d = 1; d <= ns && t < nt; ++d) move.push_back(move_probability(k, s, d, t));
    }
  const auto states = static_cast<std::size_t>(ns);
  std::vector<int> sequence(static_cast<std::size_t>(nt), 1);
  for (bool more = true; more;) {
    double f = start[at(sequence[0])];
    for (std::size_t t = 0; t < sequence.size(); ++t) {
      const std::size_t own = t * states + at(sequence[t]);
      f *= wave[own];
      if (t + 1 < sequence.size()) f *= move[own * states + at(sequence[t + 1])];
    }
    body(sequence, f);
    std::size_t t = 0;
    while (t < sequence.size() && ++sequence[t] > ns) sequence[t++] = 1;
    more = t < sequence.size();
  }
}

double lta_problem::naive_likelihood(int k) const {
  double sum = 0.0;
  for_each_sequence(k, [&](const std::vector<int>&, double f) { sum += f; });
  return sum;
}

double lta_problem::naive_loglik() const {
  double sum = 0.0;
  for (int k = 1; k <= nkase; ++k) sum += case_weight(k) * std::log(naive_likelihood(k));
  return sum;
}

void lta_problem::set_uniform_start() {
  const auto states = static_cast<std::size_t>(ns);
  const auto strata_count = static_cast<std::size_t>(nstr);
  delta.assign(states * strata_count, 1.0 / ns);
  tau.assign(states * states * static_cast<std::size_t>(nt - 1) * strata_count, 1.0 / ns);
  delta_restrictions.assign(delta.size(), 1);
  tau_restrictions.assign(tau.size(), 1);
}

api::lta_call lta_problem::prepare() {
  const auto n = static_cast<std::size_t>(nkase);
  const auto size = [](std::initializer_list<int> extents) {
    std::size_t product = 1;
    for (const int e : extents) product *= static_cast<std::size_t>(e);
    return product;
  };
  const auto starts = static_cast<std::size_t>(std::max(nstarts, 1));
  if (delta.empty()) delta.assign(size({ns, nstr}), 1.0 / ns);
  if (tau.empty()) tau.assign(size({ns, ns, nt - 1, nstr}), 1.0 / ns);
  big_rho.resize(size({ni, ns, nrsmax(), nt, nstr}));
  delta_beta.resize(size({ncov_delta + 1, ns, nstr}));
  tau_beta.resize(size({ncov_tau + 1, ns, ns, nt - 1, nstr}));
  sta.assign(n * size({nt, ns}), 0.0);
  adj.assign(n * size({ns, ns, nt - 1}), 0.0);
  patterns.assign(n * size({ni * nt + 1}), 0);
  pattern_counts.assign(2 * n, 0.0);
  llvec.assign(static_cast<std::size_t>(std::max(max_iter, 1)), 0.0);
  madvec = llvec;
  start_seeds.assign(starts, 0);
  start_iter.assign(starts, 0);
  start_status.assign(starts, 7);
  start_loglik.assign(starts, 0.0);
  start_converged.assign(starts, 7);
  test_stat.assign(static_cast<std::size_t>(ncov_delta + ncov_tau), 0.0);
  test_p = test_stat;
  test_status.assign(test_stat.size(), 7);
  text_.assign(static_cast<std::size_t>(msg_len), '?');

  api::lta_call call{};
  call.progress = progress;
  call.ni = ni;
  call.nrs = nrs.data();
  call.nrsmax = nrsmax();
  call.nt = nt;
  call.nkase = nkase;
  call.ncov_delta = ncov_delta;
  call.ncov_tau = ncov_tau;
  call.nstr = nstr;
  call.y = y.data();
  call.strata_given = strata.empty() ? 0 : 1;
  call.freq_given = freq.empty() ? 0 : 1;
  call.strata = address(strata);
  call.cov = address(cov);
  call.freq = address(freq);
  call.ns = ns;
  call.big_rho_equal_strata = equal_strata ? 1 : 0;
  call.big_rho_equal_time = equal_time ? 1 : 0;
  call.binary_delta_wanted = binary_delta > 0 ? 1 : 0;
  call.binary_tau_wanted = binary_tau.empty() ? 0 : 1;
  call.baseline_delta = &baseline_delta;
  call.baseline_tau = address(baseline_tau);
  call.binary_delta = &binary_delta;
  call.binary_tau = address(binary_tau);
  call.delta = delta.data();
  call.tau = tau.data();
  call.big_rho = big_rho.data();
  call.delta_beta = delta_beta.data();
  call.tau_beta = tau_beta.data();
  call.post_cls_sta = sta.data();
  call.post_cls_adj_sta = adj.data();
  call.response_patterns = patterns.data();
  call.pattern_counts = pattern_counts.data();
  call.nstarts = &nstarts;
  call.start_seeds = start_seeds.data();
  call.start_loglik = start_loglik.data();
  call.start_converged = start_converged.data();
  call.start_iter = start_iter.data();
  call.start_status = start_status.data();
  call.random_starts = random ? 1 : 0;
  call.delta_restrictions = address(delta_restrictions);
  call.tau_restrictions = address(tau_restrictions);
  call.big_rho_restrictions = address(big_rho_restrictions);
  call.seed = seed;
  call.prior_strength = prior_strength;
  call.criterion = criterion;
  call.max_iter = max_iter;
  call.max_threads = threads;
  call.converged = &converged;
  call.iterations = &iterations;
  call.max_abs_diff = &max_abs_diff;
  call.mean_abs_diff = &mean_abs_diff;
  call.run_info = run_info.data();
  call.loglik = &loglik;
  call.overflow_count = &overflow;
  call.apparent_df = &apparent_df;
  call.n_params = n_params.data();
  call.G2 = &G2;
  call.aic = &aic;
  call.bic = &bic;
  call.cat_loglik = &cat_loglik;
  call.cat_g2 = &cat_g2;
  call.cat_df = &cat_df;
  call.llvec = llvec.data();
  call.want_post = want_post ? 1 : 0;
  call.madvec = madvec.data();
  call.fit_extra = fit_extra.data();
  call.test_stat = want_tests ? test_stat.data() : nullptr;
  call.test_p = test_p.data();
  call.test_status = test_status.data();
  call.msg_len = msg_len;
  call.message = text_.data();
  return call;
}

int lta_problem::run() {
  const api::lta_call call = prepare();
  status = api::guarded_run_lta(call);
  message = text_;
  return status;
}

lta_truth clear_truth(const lta_problem& shape, unsigned seed) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  lta_problem sizes = shape;
  sizes.prepare();
  lta_truth truth{sizes.delta, sizes.tau, sizes.big_rho};
  for (int g = 1; g <= shape.nstr; ++g)
    for (int s = 1; s <= shape.ns; ++s) {
      truth.delta[shape.delta_cell(s, g)] = 2.0 * s / shape.ns / (shape.ns + 1);
      for (int k = 1; k < shape.nt; ++k)
        for (int d = 1; d <= shape.ns; ++d)
          truth.tau[shape.tau_cell(s, d, k, g)] =
              shape.ns == 1 ? 1.0 : (s == d ? 0.7 : 0.3 / (shape.ns - 1));
      for (int i = 1; i <= shape.ni; ++i) {
        const int categories = shape.nrs[static_cast<std::size_t>(i - 1)];
        const int digits = shape.ns > 4 ? 3 : (shape.ns > 2 ? 2 : 1);
        const int typical = ((s - 1) >> (i % digits)) % categories + 1;  // binary digits of s - 1
        const double strength = 0.8 + 0.15 * uniform();
        for (int t = 1; t <= shape.nt; ++t)
          for (int r = 1; r <= categories; ++r)
            truth.big_rho[shape.rho_cell(i, s, r, t, g)] =
                categories == 1 ? 1.0
                                : (r == typical ? strength : (1.0 - strength) / (categories - 1));
      }
    }
  return truth;
}

void simulate_cases(lta_problem& shape, const lta_truth& truth, unsigned seed, double missing_wave,
                    double missing) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  const auto draw = [&](int count, const std::function<double(int)>& p) {
    double u = uniform();
    int c = 1;
    while (c < count && u > p(c)) u -= p(c++);
    return c;
  };
  lta_problem model = shape;  // regressions, where there are any, come from its coefficients
  model.delta = truth.delta;
  model.tau = truth.tau;
  model.big_rho = truth.big_rho;
  shape.y.assign(static_cast<std::size_t>(shape.nkase * shape.ni * shape.nt), 0);
  if (shape.nstr > 1 && shape.strata.empty())
    for (int k = 1; k <= shape.nkase; ++k) shape.strata.push_back(1 + (k - 1) % shape.nstr);
  model.strata = shape.strata;
  for (int k = 1; k <= shape.nkase; ++k) {
    int s = draw(shape.ns, [&](int c) { return model.start_probability(k, c); });
    for (int t = 1; t <= shape.nt; ++t) {
      const bool wave = uniform() >= missing_wave;
      for (int i = 1; i <= shape.ni; ++i) {
        const int r = draw(shape.nrs[static_cast<std::size_t>(i - 1)], [&](int c) {
          return model.big_rho[model.rho_cell(i, s, c, t, shape.stratum(k))];
        });
        shape.response(k, i, t) = wave && uniform() >= missing ? r : 0;
      }
      if (t < shape.nt)
        s = draw(shape.ns, [&](int d) { return model.move_probability(k, s, d, t); });
    }
  }
}

lta_problem simulate_lta(int nkase, const std::vector<std::int32_t>& nrs, int nt, int ns,
                         unsigned seed, double missing_wave, double missing, int nstr) {
  lta_problem problem;
  problem.nkase = nkase;
  problem.nrs = nrs;
  problem.ni = static_cast<int>(nrs.size());
  problem.nt = nt;
  problem.ns = ns;
  problem.nstr = nstr;
  simulate_cases(problem, clear_truth(problem, seed), seed + 1, missing_wave, missing);
  return problem;
}

}  // namespace tolvenra::test
