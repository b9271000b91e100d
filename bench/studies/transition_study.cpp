// Are transition probabilities recovered? 100 data sets of 2,000 cases, 3 statuses, 6 dichotomous
// items, 3 times, responses equal over time; seeds 1 to 100, three random starts each. Ends with
// status 1 when the mean absolute error of tau is 0.02 or more, or a parameter's bias is more than
// three standard errors.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include "support/lta_problem.hpp"

namespace {

using tolvenra::test::lta_problem;
using tolvenra::test::lta_truth;

constexpr int sets = 100, statuses = 3, times = 3;

/// Order of the estimated statuses under which their responses are nearest to the true ones.
std::array<int, statuses> match(const lta_problem& fit, const lta_truth& truth) {
  std::array<int, statuses> order{1, 2, 3}, best = order;
  double least = std::numeric_limits<double>::max();
  do {
    double distance = 0.0;
    for (int s = 1; s <= statuses; ++s)
      for (int i = 1; i <= fit.ni; ++i) {
        const int own = order[static_cast<std::size_t>(s - 1)];
        const double d =
            fit.big_rho[fit.rho_cell(i, own, 1, 1, 1)] - truth.big_rho[fit.rho_cell(i, s, 1, 1, 1)];
        distance += d * d;
      }
    if (distance < least) {
      least = distance;
      best = order;
    }
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

struct error_sums {
  std::vector<double> sum, square;
  double absolute = 0.0;
  int cells = 0;

  void add(std::size_t cell, double error) {
    if (sum.size() <= cell) {
      sum.resize(cell + 1, 0.0);
      square.resize(cell + 1, 0.0);
    }
    sum[cell] += error;
    square[cell] += error * error;
    absolute += std::abs(error);
    ++cells;
  }
  [[nodiscard]] double worst_bias() const {  ///< in standard errors
    double worst = 0.0;
    for (std::size_t q = 0; q < sum.size(); ++q) {
      const double mean = sum[q] / sets;
      const double variance = (square[q] - sets * mean * mean) / (sets - 1);
      if (variance > 0.0) worst = std::max(worst, std::abs(mean) / std::sqrt(variance / sets));
    }
    return worst;
  }
};

}  // namespace

int main() {
  lta_problem shape;
  shape.nkase = 2000;
  shape.nrs.assign(6, 2);
  shape.ni = 6;
  shape.nt = times;
  shape.ns = statuses;
  shape.equal_time = true;
  shape.nstarts = 3;
  shape.threads = 2;
  const lta_truth truth = tolvenra::test::clear_truth(shape, 900);
  error_sums delta, tau, big_rho;
  for (int set = 1; set <= sets; ++set) {
    lta_problem fit = shape;
    tolvenra::test::simulate_cases(fit, truth, static_cast<unsigned>(set));
    fit.seed = set;
    if (fit.run() != 0) {
      std::printf("data set %d: %s\n", set, fit.message.c_str());
      return 1;
    }
    const auto own = match(fit, truth);
    const auto of = [&](int s) { return own[static_cast<std::size_t>(s - 1)]; };
    for (int s = 1; s <= statuses; ++s) {
      const std::size_t at = fit.delta_cell(s, 1);
      delta.add(at, fit.delta[fit.delta_cell(of(s), 1)] - truth.delta[at]);
      for (int k = 1; k < times; ++k)
        for (int d = 1; d <= statuses; ++d) {
          const std::size_t cell = fit.tau_cell(s, d, k, 1);
          tau.add(cell, fit.tau[fit.tau_cell(of(s), of(d), k, 1)] - truth.tau[cell]);
        }
      for (int i = 1; i <= fit.ni; ++i) {
        const std::size_t cell = fit.rho_cell(i, s, 1, 1, 1);
        big_rho.add(cell, fit.big_rho[fit.rho_cell(i, of(s), 1, 1, 1)] - truth.big_rho[cell]);
      }
    }
  }
  bool good = tau.absolute / tau.cells < 0.02;
  std::printf("%-8s %10s %24s\n", "", "mean |error|", "largest bias / its error");
  for (const auto& [name, errors] :
       {std::pair{"delta", &delta}, {"tau", &tau}, {"big_rho", &big_rho}}) {
    std::printf("%-8s %12.4f %24.2f\n", name, errors->absolute / errors->cells,
                errors->worst_bias());
    good = good && errors->worst_bias() <= 3.0;
  }
  return good ? 0 : 1;
}
