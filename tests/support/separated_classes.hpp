/// \file separated_classes.hpp  Latent class problems with well-separated classes, and what the
/// tests of standard errors add to them.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "support/lca_problem.hpp"

namespace tolvenra::test {

/// Well-separated classes whose shares move with the covariates, the second of which is far from 0
/// and on a scale of its own. Asks for standard errors, at a criterion of 1e-10.
lca_problem separated(int n, const std::vector<std::int32_t>& nrc, int nc, unsigned seed,
                      int ncov = 0, int nstr = 1, double missing = 0.0);

void add_weights(lca_problem& p, unsigned seed);
void add_frequencies(lca_problem& p);
void add_clusters(lca_problem& p, int clusters);

/// Code of a cell of rho, to be changed; all are free at first.
std::int32_t& code(lca_problem& p, int j, int c, int r, int g = 1);
/// Fixes the first category of a dichotomous item.
void fix_rho(lca_problem& p, int j, int c, double first);

/// Runs and expects standard errors.
lca_problem done(lca_problem fit);
/// a equals factor * b up to the tolerance, relative to b.
void expect_same(const std::vector<double>& a, const std::vector<double>& b, double tolerance,
                 double factor = 1.0);

}  // namespace tolvenra::test
