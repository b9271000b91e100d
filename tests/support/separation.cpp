#include "support/separation.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <thread>

#include "model/param.hpp"
#include "support/naive_maximiser.hpp"

namespace tolvenra::test {
namespace {

std::size_t z(int i) { return static_cast<std::size_t>(i); }

class dice {
 public:
  explicit dice(unsigned seed) : engine_(seed) {}
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }
  int below(int n) { return static_cast<int>(uniform() * n); }
  bool chance(double p) { return uniform() < p; }
  int draw(const std::vector<double>& weight) {
    double total = 0.0;
    for (const double w : weight) total += w;
    double u = uniform() * total;
    std::size_t c = 0;
    while (c + 1 < weight.size() && !(u < weight[c])) u -= weight[c++];
    return static_cast<int>(c);
  }

 private:
  std::mt19937_64 engine_;
};

/// How covariates decide about a category.
enum class mechanism { dummy_excludes, constant_within, cut, noisy_cut, steep, group_lacks };
constexpr std::array<const char*, 6> names{"dummy excludes", "constant within", "cut",
                                           "noisy cut",      "steep",           "group lacks"};

/// One covariate with the chances of the categories given it.
struct separating {
  mechanism how = mechanism::cut;
  int categories = 2, outcast = 0;
  std::vector<double> share;
  double unit = 1.0, origin = 0.0;  ///< of the covariate's scale

  separating(dice& d, int count, bool groups) : categories(count) {
    how = static_cast<mechanism>(d.below(groups ? 6 : 5));
    if (groups && d.chance(0.5)) how = mechanism::group_lacks;
    outcast = d.below(count);
    for (int c = 0; c < count; ++c) share.push_back(0.5 + d.uniform());
    if (d.chance(0.3)) {
      unit = 20.0;
      origin = 1990.0;
    }
  }
  /// Of dummies 0 or 1, else from -1 to 1.
  double value(dice& d) const {
    return how == mechanism::dummy_excludes || how == mechanism::group_lacks ? d.below(2)
                                                                             : 2 * d.uniform() - 1;
  }
  int category(dice& d, double& x, int group) const {
    std::vector<double> weight = share;
    if ((how == mechanism::dummy_excludes && x > 0.5) ||
        (how == mechanism::group_lacks && group == 2))
      weight[z(outcast)] = 0.0;
    if (how == mechanism::steep)
      for (int c = 0; c < categories; ++c) weight[z(c)] *= std::exp(7.0 * c * x);
    const int c = d.draw(weight);
    if (how == mechanism::constant_within && c == outcast) x = 0.3;
    if (how != mechanism::cut && how != mechanism::noisy_cut) return c;
    const double at = x + (how == mechanism::noisy_cut ? 0.1 * (d.uniform() - 0.5) : 0.0);
    return std::clamp(static_cast<int>((at + 1.0) / 2.0 * categories), 0, categories - 1);
  }
  [[nodiscard]] double scaled(double x) const { return origin + unit * x; }
};

/// Typical answers that tell categories apart.
int answer(dice& d, int category, int item, int categories, double strength) {
  const int typical = (category + (item > 2 ? item * category : item)) % categories;
  return 1 + (d.chance(strength) ? typical : d.below(categories));
}

/// Items of two and three categories.
std::vector<std::int32_t> items(dice& d, int least, int most) {
  std::vector<std::int32_t> nrc;
  for (int count = least + d.below(most - least + 1); count > 0; --count)
    nrc.push_back(d.chance(0.3) ? 3 : 2);
  return nrc;
}

}  // namespace

lca_problem separated_design_of_classes(unsigned seed) {
  dice d(seed);
  lca_problem p;
  p.nkase = 60 + d.below(100);
  p.nrc = items(d, 4, 7);
  p.nci = static_cast<int>(p.nrc.size());
  p.nc = 2 + d.below(3);
  p.nstr = d.chance(0.3) ? 2 : 1;
  p.rho_equal_strata = d.chance(0.6);
  p.ncov = 1 + d.below(2);
  const separating x(d, p.nc, p.nstr > 1);
  const double strength = 0.6 + 0.35 * d.uniform();
  const double missing = d.chance(0.3) ? 0.1 : 0.0;
  p.y.resize(z(p.nkase * p.nci));
  p.cov.resize(z(p.nkase * p.ncov));
  const bool frequencies = d.chance(0.25);
  const bool weights = d.chance(0.25);
  for (int k = 1; k <= p.nkase; ++k) {
    if (p.nstr > 1) p.strata.push_back(1 + k % 2);
    double value = x.value(d);
    const int c = x.category(d, value, p.stratum(k));
    p.cov[z(k - 1)] = x.scaled(value);
    if (p.ncov > 1) p.cov[z(k - 1 + p.nkase)] = x.how == mechanism::cut ? d.below(2) : d.uniform();
    for (int j = 1; j <= p.nci; ++j)
      p.set_response(k, j, d.chance(missing) ? 0 : answer(d, c, j, p.nrc[z(j - 1)], strength));
    if (frequencies) p.freq.push_back(1 + d.below(3));
    if (weights) p.weight.push_back(0.5 + d.uniform());
  }
  p.baseline = 1 + d.below(p.nc);
  if (d.chance(0.3)) p.binary = 1 + d.below(p.nc);
  if (d.chance(0.3)) p.beta_prior = 1.0;
  p.seed = static_cast<int>(seed);
  return p;
}

lta_problem separated_design_of_statuses(unsigned seed) {
  dice d(seed);
  lta_problem p;
  p.nkase = 50 + d.below(70);
  p.nrs = items(d, 4, 5);
  p.ni = static_cast<int>(p.nrs.size());
  p.nt = 2 + d.below(2);
  p.ns = 2 + d.below(2);
  p.nstr = d.chance(0.25) ? 2 : 1;
  p.equal_time = d.chance(0.8);
  p.equal_strata = d.chance(0.8);
  p.ncov_delta = 1;
  p.ncov_tau = 1 + (d.chance(0.25) ? 1 : 0);
  const separating initial(d, p.ns, p.nstr > 1);
  const separating moves(d, p.ns, p.nstr > 1);
  const int shunned = d.chance(0.3) ? d.below(p.ns) : -1;  // a destination nobody takes
  const bool zeros = d.chance(0.25);
  const double strength = 0.75 + 0.2 * d.uniform();
  const double missing = d.chance(0.3) ? 0.1 : 0.0;
  const bool frequencies = d.chance(0.25);
  p.y.resize(z(p.nkase * p.ni * p.nt));
  const int columns = p.ncov_delta + (p.nt - 1) * p.ncov_tau;
  p.cov.resize(z(p.nkase * columns));
  const auto cov = [&](int k, int j) -> double& { return p.cov[z(k - 1 + j * p.nkase)]; };
  for (int k = 1; k <= p.nkase; ++k) {
    if (p.nstr > 1) p.strata.push_back(1 + k % 2);
    double value = initial.value(d);
    int s = initial.category(d, value, p.stratum(k));
    cov(k, 0) = initial.scaled(value);
    for (int t = 1; t <= p.nt; ++t) {
      for (int i = 1; i <= p.ni; ++i)
        p.response(k, i, t) = d.chance(missing) ? 0 : answer(d, s, i, p.nrs[z(i - 1)], strength);
      if (t == p.nt) break;
      value = moves.value(d);
      int to = moves.category(d, value, p.stratum(k));
      if (to == shunned || (zeros && s == 1 && to == 0)) to = s;  // nobody moves there
      const int first = p.ncov_delta + (t - 1) * p.ncov_tau;
      cov(k, first) = moves.scaled(value);
      if (p.ncov_tau > 1) cov(k, first + 1) = d.below(2);
      s = to;
    }
    if (frequencies) p.freq.push_back(1 + d.below(3));
  }
  p.baseline_delta = 1 + d.below(p.ns);
  if (d.chance(0.3)) p.binary_delta = 1 + d.below(p.ns);
  const bool binary = !zeros && d.chance(0.3);
  for (int row = 0; row < p.ns * (p.nt - 1); ++row) {
    p.baseline_tau.push_back(zeros ? p.ns : 1 + d.below(p.ns));
    if (binary) p.binary_tau.push_back(1 + d.below(p.ns));
  }
  if (zeros) {
    p.set_uniform_start();
    for (int g = 1; g <= p.nstr; ++g)
      for (int k = 1; k < p.nt; ++k) {
        p.tau_restrictions[p.tau_cell(2, 1, k, g)] = 0;
        for (int to = 1; to <= p.ns; ++to)
          p.tau[p.tau_cell(2, to, k, g)] = to == 1 ? 0.0 : 1.0 / (p.ns - 1);
      }
  }
  if (d.chance(0.3)) p.prior_strength = 1.0;
  p.seed = static_cast<int>(seed);
  return p;
}

namespace {

std::string words(const lca_problem& p) {
  return "LCA, " + std::to_string(p.nkase) + " cases, " + std::to_string(p.nc) + " classes, " +
         std::to_string(p.nstr) + " groups" + (p.binary > 0 ? ", binary" : "") +
         (p.beta_prior > 0.0 ? ", prior" : "") + (p.freq.empty() ? "" : ", frequencies") +
         (p.weight.empty() ? "" : ", weights");
}
std::string words(const lta_problem& p) {
  return "LTA, " + std::to_string(p.nkase) + " cases, " + std::to_string(p.ns) + " statuses, " +
         std::to_string(p.nt) + " times, " + std::to_string(p.nstr) + " groups" +
         (p.binary_delta > 0 ? ", binary start" : "") +
         (p.binary_tau.empty() ? "" : ", binary moves") +
         (p.prior_strength > 0.0 ? ", prior" : "") + (p.freq.empty() ? "" : ", frequencies") +
         (p.tau_restrictions.empty() ? "" : ", zeros");
}

double prior_of(const lca_problem& p) { return p.beta_prior; }
double prior_of(const lta_problem& p) { return p.prior_strength; }
bool labelled(const lca_problem&) { return false; }
bool labelled(const lta_problem& p) { return !p.tau_restrictions.empty(); }

/// Response probabilities that a start begins with.
std::vector<double> drawn_rho(const std::vector<int>& sizes, const std::vector<std::int32_t>& of,
                              int seed, const std::function<void(param_type&, error_type&)>& set) {
  param_type param;
  error_type err;
  array<int32, 1> dims;
  dims.allocate({static_cast<int32>(sizes.size() + of.size())});
  std::copy(sizes.begin(), sizes.end(), dims.flat.begin());
  std::copy(of.begin(), of.end(), dims.flat.begin() + static_cast<std::ptrdiff_t>(sizes.size()));
  if (param::put_dims(dims, param, err) != 0) throw std::runtime_error("dimensions");
  set(param, err);
  const bool classes = sizes[0] > 0;
  if ((classes ? param::run_random_rho_startvals(param, err, seed, seed)
               : param::run_random_big_rho_startvals(param, err, seed, seed)) != 0)
    throw std::runtime_error("random starting values");
  return classes ? std::vector<double>(param.rho.flat.begin(), param.rho.flat.end())
                 : std::vector<double>(param.big_rho.flat.begin(), param.big_rho.flat.end());
}
std::vector<double> drawn_rho(const lca_problem& p, int seed) {
  return drawn_rho({p.nci, 0, 1, 0, 0, 0, p.nstr, p.nc, 1}, p.nrc, seed,
                   [&](param_type& param, error_type& err) {
                     param::put_rho_equal_across_strata(p.rho_equal_strata, param, err);
                   });
}
std::vector<double> drawn_rho(const lta_problem& p, int seed) {
  return drawn_rho({0, p.ni, p.nt, 0, 0, 0, p.nstr, 1, p.ns}, p.nrs, seed,
                   [&](param_type& param, error_type& err) {
                     param::put_big_rho_equal_across_strata(p.equal_strata, param, err);
                     param::put_big_rho_equal_across_time(p.equal_time, param, err);
                   });
}

/// Largest fall of the log-likelihood in one iteration; with a prior, of the penalised one of a
/// single start that is stopped ever later.
template <class Problem>
double largest_fall(const Problem& posed, const Problem& fit) {
  double fall = 0.0;
  const auto compare = [&](double before, double after) {
    fall = std::max(fall, before - after - 1e-9 * std::abs(before));
  };
  if (!(prior_of(fit) > 0.0)) {
    for (std::size_t i = 1; i < z(fit.iterations); ++i) compare(fit.llvec[i - 1], fit.llvec[i]);
    return fall;
  }
  Problem stopped = posed;
  stopped.nstarts = 1;
  stopped.seed = fit.start_seeds[z(fit.run_info[1] - 1)];
  double before = -std::numeric_limits<double>::infinity();
  int after_plain = 0;  // the run without covariates has to converge within the same limit
  for (int more = 1; more < 100000; more += more < 8 ? 1 : more) {
    Problem now = stopped;
    if (after_plain > 0) now.max_iter = after_plain + more;
    if (now.run() != 0) throw std::runtime_error(now.message);
    if (after_plain == 0) {
      after_plain = now.run_info[13];
      continue;
    }
    if (std::isfinite(before)) compare(before, now.fit_extra[4]);
    before = now.fit_extra[4];
    if (now.converged) break;
  }
  return fall;
}

std::string first_line(const std::string& message) {
  return message.substr(0, message.find_first_of("\r\n"));
}

template <class Problem>
separation_outcome compare(Problem p, int em_steps, int threads) {
  separation_outcome out;
  out.what = words(p);
  p.threads = threads;
  const Problem posed = p;
  if (p.run() != 0) {
    out.refused = true;
    out.failure = first_line(p.message);
    return out;
  }
  for (const int status : p.start_status) out.lost += status != 0 ? 1 : 0;
  out.converged = p.converged != 0;
  out.runaways = p.run_info[15];
  out.loglik = p.loglik;
  out.fall = largest_fall(posed, p);

  const naive_model model(p);
  const bool prior = prior_of(p) > 0.0;
  const auto start_values = [&](int i) { return drawn_rho(p, p.start_seeds[z(i)]); };
  naive_plain plain;
  if (prior) plain = model.fit_plain(start_values(0));
  const auto model_of_start = [&](int i) {
    naive_model own = model;
    if (!prior) return own;
    const naive_plain of_start =
        labelled(p) || p.nstarts < 2 ? plain : model.fit_plain(start_values(i));
    own.set_prior(prior_of(p), plain, labelled(p) || p.nstarts < 2 ? nullptr : &of_start);
    return own;
  };
  std::vector<naive_maximum> reached(z(p.nstarts));
  std::atomic<int> next{0};
  const auto work = [&] {
    for (int i = next++; i < p.nstarts; i = next++) {
      const naive_model own = model_of_start(i);
      reached[z(i)] = own.climb(own.start(start_values(i)), em_steps);
    }
  };
  std::thread other;
  if (threads > 1) other = std::thread(work);
  work();
  if (other.joinable()) other.join();
  const auto best =
      std::max_element(reached.begin(), reached.end(),
                       [](const auto& a, const auto& b) { return a.penalised < b.penalised; });
  out.best_start = static_cast<int>(best - reached.begin()) + 1;
  out.below = best->penalised - p.fit_extra[4];
  out.of_that_start = best->loglik - p.start_loglik[z(out.best_start - 1)];
  if (out.below > 1e-4) {
    Problem again = p;
    again.nstarts = 1;
    model.hand_over(best->theta, again);
    if (again.run() == 0) {
      out.resumed = best->penalised - again.fit_extra[4];
    } else {
      out.resumed = std::numeric_limits<double>::infinity();
      out.failure = "resumed: " + first_line(again.message);
    }
  }

  const naive_model chosen = model_of_start(p.run_info[1] - 1);
  const naive_maximum here = chosen.value(chosen.estimates(p));
  out.predictor = chosen.largest_predictor(here.theta);
  out.disagreement =
      std::max(std::abs(here.penalised - p.fit_extra[4]), std::abs(here.loglik - p.loglik)) /
      std::abs(p.loglik);
  out.left = chosen.climb(here.theta, 0).penalised - p.fit_extra[4];
  return out;
}

}  // namespace

separation_outcome compare_with_naive(lca_problem problem, int em_steps, int threads) {
  return compare(std::move(problem), em_steps, threads);
}
separation_outcome compare_with_naive(lta_problem problem, int em_steps, int threads) {
  return compare(std::move(problem), em_steps, threads);
}

}  // namespace tolvenra::test
