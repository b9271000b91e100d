#include "support/da_problem.hpp"

#include <cmath>
#include <random>
#include <stdexcept>

#include "numerics/cdf.hpp"

namespace tolvenra::test {
namespace {

void expect(int32 status, const error_type& err) {
  if (status == 0) return;
  std::string lines;
  for (const std::string& line : lines_of(err)) lines += line + "\n";
  throw std::runtime_error(lines);
}

/// Counts which intervals cover, one parameter after the other.
class coverage_counter {
 public:
  coverage_counter(int* covered, int* logit_covered)
      : covered_(covered), logit_covered_(logit_covered) {}

  template <std::size_t R, class... I>
  void add(double truth, const daparam<R>& p, const daparam<R>& logit, I... i) {
    const double log_odds = std::log(truth / (1.0 - truth));
    *covered_++ += p.lo_ci(i...) <= truth && truth <= p.hi_ci(i...) ? 1 : 0;
    *logit_covered_++ += logit.lo_ci(i...) <= log_odds && log_odds <= logit.hi_ci(i...) ? 1 : 0;
  }

 private:
  int *covered_, *logit_covered_;
};

template <class T, class V, std::size_t R>
array<T, R> array_of(const std::vector<V>& values, const std::array<int32, R>& extents) {
  array<T, R> a;
  a.allocate(extents);
  a.flat.assign(values.begin(), values.end());
  return a;
}

}  // namespace

da_problem::da_problem(const lca_problem& fit) {
  const std::array<int32, 1> by_case{fit.nkase};
  const std::array<int32, 4> by_cell{fit.nci, fit.nc, fit.nrcmax(), fit.nstr};
  const auto good = [&](int32 status) { expect(status, err); };
  good(dataset::put_nt(1, dataset, err));
  good(dataset::put_nrc(array_of<int32>(fit.nrc, std::array<int32, 1>{fit.nci}), dataset, err));
  good(dataset::put_nstr(fit.nstr, dataset, err));
  good(dataset::put_y(array_of<int32>(fit.y, std::array<int32, 2>{fit.nkase, fit.nci}), dataset,
                      err));
  if (!fit.freq.empty()) good(dataset::put_freq(array_of<double>(fit.freq, by_case), dataset, err));
  if (!fit.weight.empty())
    good(dataset::put_weight(array_of<double>(fit.weight, by_case), dataset, err));
  if (!fit.strata.empty())
    good(dataset::put_strata(array_of<int32>(fit.strata, by_case), dataset, err));
  good(model::put_nc(fit.nc, model, err));
  std::vector<int32> dims{fit.nci, 0, 1, 0, 0, 0, fit.nstr, fit.nc, 1};
  dims.insert(dims.end(), fit.nrc.begin(), fit.nrc.end());
  good(param::put_dims(array_of<int32>(dims, std::array<int32, 1>{9 + fit.nci}), param, err));
  good(param::put_rho_equal_across_strata(fit.rho_equal_strata, param, err));
  if (!fit.gamma_restrictions.empty())
    good(param::put_gamma_restrictions(
        array_of<int32>(fit.gamma_restrictions, std::array<int32, 2>{fit.nc, fit.nstr}), param,
        err));
  if (!fit.rho_restrictions.empty())
    good(param::put_rho_restrictions(array_of<int32>(fit.rho_restrictions, by_cell), param, err));
  good(param::put_gamma(array_of<double>(fit.gamma, std::array<int32, 2>{fit.nc, fit.nstr}), param,
                        err));
  good(param::put_rho(array_of<double>(fit.rho, by_cell), param, err));
  options.seed = 1;
  options.max_threads = 1;
}

da_problem::da_problem(const lta_problem& fit) {
  const std::array<int32, 1> by_case{fit.nkase};
  const std::array<int32, 3> delta_shape{fit.ns, 1, fit.nstr};
  const std::array<int32, 5> tau_shape{fit.ns, fit.ns, fit.nt - 1, 1, fit.nstr};
  const std::array<int32, 6> rho_shape{fit.ni, fit.ns, fit.nrsmax(), fit.nt, 1, fit.nstr};
  const auto good = [&](int32 status) { expect(status, err); };
  good(dataset::put_nt(fit.nt, dataset, err));
  good(dataset::put_nrs(array_of<int32>(fit.nrs, std::array<int32, 1>{fit.ni}), dataset, err));
  good(dataset::put_nstr(fit.nstr, dataset, err));
  good(dataset::put_y(array_of<int32>(fit.y, std::array<int32, 2>{fit.nkase, fit.ni * fit.nt}),
                      dataset, err));
  if (!fit.freq.empty()) good(dataset::put_freq(array_of<double>(fit.freq, by_case), dataset, err));
  if (!fit.strata.empty())
    good(dataset::put_strata(array_of<int32>(fit.strata, by_case), dataset, err));
  good(model::put_ns(fit.ns, model, err));
  std::vector<int32> dims{0, fit.ni, fit.nt, 0, 0, 0, fit.nstr, 1, fit.ns};
  dims.insert(dims.end(), fit.nrs.begin(), fit.nrs.end());
  good(param::put_dims(array_of<int32>(dims, std::array<int32, 1>{9 + fit.ni}), param, err));
  good(param::put_big_rho_equal_across_strata(fit.equal_strata, param, err));
  good(param::put_big_rho_equal_across_time(fit.equal_time, param, err));
  if (!fit.delta_restrictions.empty())
    good(param::put_delta_restrictions(array_of<int32>(fit.delta_restrictions, delta_shape), param,
                                       err));
  if (!fit.tau_restrictions.empty())
    good(param::put_tau_restrictions(array_of<int32>(fit.tau_restrictions, tau_shape), param, err));
  if (!fit.big_rho_restrictions.empty())
    good(param::put_big_rho_restrictions(array_of<int32>(fit.big_rho_restrictions, rho_shape),
                                         param, err));
  good(param::put_delta(array_of<double>(fit.delta, delta_shape), param, err));
  good(param::put_tau(array_of<double>(fit.tau, tau_shape), param, err));
  good(param::put_big_rho(array_of<double>(fit.big_rho, rho_shape), param, err));
  options.seed = 1;
  options.max_threads = 1;
}

double log_dirichlet_multinomial(const std::vector<double>& counts,
                                 const std::vector<double>& prior) {
  double n = 0.0;
  double a = 0.0;
  double sum = 0.0;
  for (std::size_t r = 0; r < counts.size(); ++r) {
    n += counts[r];
    a += prior[r];
    sum += std::lgamma(counts[r] + prior[r]) - std::lgamma(prior[r]);
  }
  return sum + std::lgamma(a) - std::lgamma(a + n);
}

double tail_of_fit(const std::vector<double>& observed, const std::vector<double>& probability) {
  double n = 0.0;
  for (const double count : observed) n += count;
  double rare = 0.0;
  double rare_expected = 0.0;
  double x2 = 0.0;
  double cells = 0.0;
  for (std::size_t z = 0; z < observed.size(); ++z) {
    const double expected = n * probability[z];
    if (expected == 0.0 && observed[z] > 0.0) return 0.0;
    if (expected < 5.0) {
      rare += observed[z];
      rare_expected += expected;
      continue;
    }
    x2 += (observed[z] - expected) * (observed[z] - expected) / expected;
    ++cells;
  }
  if (rare_expected >= 1.0) {
    x2 += (rare - rare_expected) * (rare - rare_expected) / rare_expected;
    ++cells;
  }
  double p = 0.0;
  double q = 0.0;
  double df = cells - 1.0;
  error_type err;
  expect(cdf::cdf_chi(1, p, q, x2, df, err), err);
  return q;
}

void coverage_study::add(unsigned seed, const da_options& options) {
  std::mt19937_64 engine(seed);
  const auto uniform = [&] { return static_cast<double>(engine() >> 11) * 0x1.0p-53; };
  lca_problem fit;
  fit.nkase = 500;
  fit.nci = 6;
  fit.nc = 2;
  fit.nrc.assign(6, 2);
  fit.y.assign(3000, 0);
  for (int k = 1; k <= fit.nkase; ++k) {
    const auto& p = rho[uniform() < gamma ? 0 : 1];
    for (int j = 1; j <= 6; ++j)
      fit.set_response(k, j, uniform() < p[static_cast<std::size_t>(j - 1)] ? 1 : 2);
  }
  fit.gamma = {gamma, 1.0 - gamma};  // start at the truth: the classes keep its labels
  fit.rho.assign(24, 0.0);
  for (int j = 1; j <= 6; ++j)
    for (int c = 1; c <= 2; ++c) {
      const double p = rho[static_cast<std::size_t>(c - 1)][static_cast<std::size_t>(j - 1)];
      fit.rho_ref(j, c, 1, 1) = p;
      fit.rho_ref(j, c, 2, 1) = 1.0 - p;
    }
  fit.start_given = true;
  if (fit.run() != 0) throw std::runtime_error(fit.message);
  da_problem da(fit);
  da.options = options;
  da.options.seed = static_cast<int32>(seed);
  expect(da.run(), da.err);
  const daresult& r = da.result;
  ++sets;
  coverage_counter(&gamma_covered, &logit_gamma_covered).add(gamma, r.gamma, r.logit_gamma, 1, 1);
  for (int c = 1; c <= 2; ++c) {
    const auto at = static_cast<std::size_t>(c - 1);
    coverage_counter count(rho_covered[at].data(), logit_rho_covered[at].data());
    for (int j = 1; j <= 6; ++j)
      count.add(rho[at][static_cast<std::size_t>(j - 1)], r.rho, r.logit_rho, j, c, 1, 1);
  }
}

double coverage_study::mean_rho(bool logit) const {
  double sum = 0.0;
  for (const auto& of_class : logit ? logit_rho_covered : rho_covered)
    for (const int covered : of_class) sum += covered;
  return sum / (12.0 * sets);
}

namespace {

/// The problem with the truth as its starting values.
lta_problem status_study_problem(unsigned seed) {
  lta_problem fit;
  fit.nkase = 500;
  fit.ni = 4;
  fit.nt = 3;
  fit.ns = 2;
  fit.nrs = {2, 2, 2, 2};
  fit.y.assign(6000, 1);
  fit.equal_time = true;
  fit.random = false;
  fit.set_uniform_start();
  lta_truth truth{{0.6, 0.4}, {0.8, 0.1, 0.2, 0.9, 0.8, 0.1, 0.2, 0.9}, std::vector<double>(48)};
  const double yes[2][4] = {{0.85, 0.8, 0.9, 0.75}, {0.2, 0.25, 0.15, 0.3}};
  for (int t = 1; t <= 3; ++t)
    for (int s = 1; s <= 2; ++s)
      for (int i = 1; i <= 4; ++i) {
        truth.big_rho[fit.rho_cell(i, s, 1, t, 1)] = yes[s - 1][i - 1];
        truth.big_rho[fit.rho_cell(i, s, 2, t, 1)] = 1.0 - yes[s - 1][i - 1];
      }
  simulate_cases(fit, truth, seed);
  fit.delta = truth.delta;
  fit.tau = truth.tau;
  fit.big_rho = truth.big_rho;
  return fit;
}

}  // namespace

void status_coverage_study::add(unsigned seed, const da_options& options) {
  const lta_problem truth = status_study_problem(seed);
  lta_problem fit = truth;
  if (fit.run() != 0) throw std::runtime_error(fit.message);
  da_problem da(fit);
  da.options = options;
  da.options.seed = static_cast<int32>(seed);
  expect(da.run(), da.err);
  const daresult& r = da.result;
  ++sets;
  coverage_counter count(covered.data(), logit_covered.data());
  count.add(truth.delta[0], r.delta, r.logit_delta, 1, 1, 1);
  for (int k = 1; k <= 2; ++k)
    for (int s = 1; s <= 2; ++s)
      count.add(truth.tau[truth.tau_cell(s, 1, k, 1)], r.tau, r.logit_tau, s, 1, k, 1, 1);
  for (int s = 1; s <= 2; ++s)
    for (int i = 1; i <= 4; ++i)
      count.add(truth.big_rho[truth.rho_cell(i, s, 1, 1, 1)], r.big_rho, r.logit_big_rho, i, s, 1,
                1, 1, 1);
}

double status_coverage_study::mean(bool logit, int first, int last) const {
  double sum = 0.0;
  for (int k = first; k < last; ++k)
    sum += (logit ? logit_covered : covered)[static_cast<std::size_t>(k)];
  return sum / (1.0 * sets * (last - first));
}

}  // namespace tolvenra::test
