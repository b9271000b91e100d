// A host that calls the library from inside its own parallel region.
#include <gtest/gtest.h>
#include <omp.h>

#include "support/lca_problem.hpp"

namespace tolvenra::test {
namespace {

TEST(LcaNested, ARunInsideTheHostsRegionGivesTheSameBits) {
  lca_problem alone = simulate(300, {2, 3, 2, 2}, 2, 3);
  alone.nstarts = 4;
  alone.run();
  verify_fit(alone);
  for (const int threads : {1, 2, 4}) {
    lca_problem inside = alone;
    inside.threads = threads;
#pragma omp parallel num_threads(3)
    if (omp_get_thread_num() == omp_get_num_threads() - 1) inside.run();
    EXPECT_EQ(inside.status, 0) << inside.message;
    EXPECT_EQ(inside.rho, alone.rho);
    EXPECT_EQ(inside.start_loglik, alone.start_loglik);
  }
}

}  // namespace
}  // namespace tolvenra::test
