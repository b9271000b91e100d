// Does every start give an answer where covariates separate latent categories, and is it a maximum?
// 200 random designs (support/separation.hpp), alternately of classes and of statuses, seeds 1 to
// 200, 20 random starts each; a naive maximiser climbs from the same starting values. Ends with
// status 1 when a start is lost, a log-likelihood falls, a fit has not converged, or the best start
// lies more than 1e-4 below the naive maximum without being at a maximum of its own. Arguments: the
// first and the last seed.
#include <cstdio>
#include <cstdlib>

#include "support/separation.hpp"

namespace {

using tolvenra::test::separation_outcome;

constexpr int starts = 20;
constexpr double tolerance = 1e-4;

separation_outcome outcome_of(unsigned seed) {
  const auto run = [](auto problem) {
    problem.nstarts = starts;
    problem.want_post = false;
    return tolvenra::test::compare_with_naive(problem, 20, 2);
  };
  return seed % 2 == 1 ? run(tolvenra::test::separated_design_of_classes(seed))
                       : run(tolvenra::test::separated_design_of_statuses(seed));
}

struct tally {
  int sets = 0, refused = 0, with_lost = 0, lost = 0, fell = 0, unconverged = 0, runaway = 0;
  int below = 0, at_other_maximum = 0, unexplained = 0;
  double largest_disagreement = 0.0;

  void add(const separation_outcome& o) {
    ++sets;
    if (o.refused) {
      ++refused;
      lost += starts;
      return;
    }
    lost += o.lost;
    with_lost += o.lost > 0 ? 1 : 0;
    fell += o.fall > 0.0 ? 1 : 0;
    unconverged += o.converged ? 0 : 1;
    runaway += o.runaways > 0 ? 1 : 0;
    if (!(o.disagreement <= largest_disagreement)) largest_disagreement = o.disagreement;
    if (!(o.below <= tolerance)) {
      ++below;
      if (o.left <= tolerance || o.resumed <= tolerance)
        ++at_other_maximum;
      else
        ++unexplained;
    } else if (!(o.left <= tolerance)) {
      ++unexplained;
    }
  }
  [[nodiscard]] bool good() const {
    return refused + lost + fell + unconverged + unexplained == 0 && largest_disagreement <= 1e-6;
  }
};

void print(const char* name, const tally& t) {
  std::printf("%-8s data sets %d, refused %d; starts lost %d, in %d data sets\n", name, t.sets,
              t.refused, t.lost, t.with_lost);
  std::printf("         log-likelihood fell %d, not converged %d, runaway coefficients %d\n",
              t.fell, t.unconverged, t.runaway);
  std::printf("         below the naive maximum %d: other maximum %d, unknown %d\n", t.below,
              t.at_other_maximum, t.unexplained);
  std::printf("         disagreement %.1e\n", t.largest_disagreement);
}

}  // namespace

int main(int argc, char** argv) {
  const int first = argc > 1 ? std::atoi(argv[1]) : 1;
  const int last = argc > 2 ? std::atoi(argv[2]) : 200;
  tally classes, statuses;
  for (int seed = first; seed <= last; ++seed) {
    const separation_outcome o = outcome_of(static_cast<unsigned>(seed));
    (seed % 2 == 1 ? classes : statuses).add(o);
    if (o.refused || o.lost > 0 || o.fall > 0.0 || !o.converged || o.below > tolerance ||
        o.left > tolerance || o.disagreement > 1e-8)
      std::printf(
          "%d: %s (%s)\n  lost %d, fall %.1e, %sconverged, best %.6f, below %.6f (start %d, itself "
          "%.6f, resumed %.6f), left %.6f, largest predictor %.1f, disagreement %.1e %s\n",
          seed, o.what.c_str(), o.runaways > 0 ? "runaway" : "no runaway", o.lost, o.fall,
          o.converged ? "" : "not ", o.loglik, o.below, o.best_start, o.of_that_start, o.resumed,
          o.left, o.predictor, o.disagreement, o.failure.c_str());
    std::fflush(stdout);
  }
  print("classes", classes);
  print("statuses", statuses);
  return classes.good() && statuses.good() ? 0 : 1;
}
