#include "support/da_problem.hpp"

#include <cmath>
#include <random>
#include <stdexcept>

namespace tolvenra::test {
namespace {

void expect(int32 status, const error_type& err) {
  if (status == 0) return;
  std::string lines;
  for (const std::string& line : lines_of(err)) lines += line + "\n";
  throw std::runtime_error(lines);
}

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
  const auto covers = [](double low, double high, double truth) {
    return low <= truth && truth <= high ? 1 : 0;
  };
  const auto logit = [](double p) { return std::log(p / (1.0 - p)); };
  const daresult& r = da.result;
  ++sets;
  gamma_covered += covers(r.gamma.lo_ci(1, 1), r.gamma.hi_ci(1, 1), gamma);
  logit_gamma_covered += covers(r.logit_gamma.lo_ci(1, 1), r.logit_gamma.hi_ci(1, 1), logit(gamma));
  for (int c = 1; c <= 2; ++c)
    for (int j = 1; j <= 6; ++j) {
      const auto at_c = static_cast<std::size_t>(c - 1);
      const auto at_j = static_cast<std::size_t>(j - 1);
      const double p = rho[at_c][at_j];
      rho_covered[at_c][at_j] += covers(r.rho.lo_ci(j, c, 1, 1), r.rho.hi_ci(j, c, 1, 1), p);
      logit_rho_covered[at_c][at_j] +=
          covers(r.logit_rho.lo_ci(j, c, 1, 1), r.logit_rho.hi_ci(j, c, 1, 1), logit(p));
    }
}

double coverage_study::mean_rho(bool logit) const {
  double sum = 0.0;
  for (const auto& of_class : logit ? logit_rho_covered : rho_covered)
    for (const int covered : of_class) sum += covered;
  return sum / (12.0 * sets);
}

}  // namespace tolvenra::test
