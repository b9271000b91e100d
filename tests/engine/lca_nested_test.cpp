// Hosts with threads and processes of their own.
#include <gtest/gtest.h>
#include <omp.h>

#ifndef _WIN32
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <fstream>

#include "support/allocations.hpp"
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

#ifndef _WIN32
/// Ends the process: 0 when a run in several threads gives the answer of `alone`.
[[noreturn]] void run_and_exit(const lca_problem& alone) {
  alarm(60);  // a run that waits for threads which do not exist
  lca_problem again = alone;
  again.threads = 2;
  again.run();
  _exit(again.status == 0 && again.rho == alone.rho && again.start_loglik == alone.start_loglik
            ? 0
            : 1);
}

lca_problem several_starts() {
  lca_problem problem = simulate(300, {2, 3, 2, 2}, 2, 3);
  problem.nstarts = 4;
  problem.threads = 1;
  problem.run();
  return problem;
}

TEST(LcaForked, AChildOfAProcessThatRanThreadsFitsToo) {
  const lca_problem alone = several_starts();
  lca_problem before = alone;
  before.threads = 2;
  before.run();
  const pid_t child = fork();
  if (child == 0) run_and_exit(alone);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

/// Lets the process map no more than it has, which leaves no room for a thread's stack.
void freeze_address_space() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlim_t most = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (rlim_t{1} << 19);
  const rlimit limit{most, most};
  setrlimit(RLIMIT_AS, &limit);
}

TEST(LcaThreadLimit, AThreadThatCannotBeCreatedIsDoneWithout) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer reserves the address space";
#endif
  if (!heap_is_watched) GTEST_SKIP() << "the sanitizer reserves the address space";
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has run no thread yet
  EXPECT_EXIT(
      {
        const lca_problem alone = several_starts();
        freeze_address_space();
        run_and_exit(alone);
      },
      testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
}  // namespace tolvenra::test
