#include "core/parallel.hpp"

#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace tolvenra::parallel {
namespace {

/// Starts that many threads, all alive at once as a team's are, and joins them: the runtime would
/// end the process where one of its own cannot be had.
bool can_start(int32 count) {
  std::mutex gate;
  std::vector<std::jthread> threads;
  try {
    threads.reserve(static_cast<std::size_t>(count));
    const std::scoped_lock closed(gate);
    for (int32 i = 0; i < count; ++i)
      threads.emplace_back([&gate] { const std::scoped_lock passed(gate); });
  } catch (const std::exception&) {  // those that started are joined by their destructors
    return false;
  }
  return true;
}

#ifndef _WIN32
/// The process that ran the first team, 0 before. The library's only lasting state: a forked child
/// inherits the number, and the runtime's belief in threads that it does not have.
std::atomic<pid_t> team_owner{0};

bool inherits_teams() {
  const pid_t owner = team_owner.load(std::memory_order_relaxed);
  return owner != 0 && owner != getpid();
}

void own_teams() {
  pid_t nobody = 0;
  team_owner.compare_exchange_strong(nobody, getpid(), std::memory_order_relaxed);
}
#else
bool inherits_teams() { return false; }
void own_teams() {}
#endif

}  // namespace

int32 startable_team(int32 team) {
  thread_local int32 largest = 1;  // the runtime keeps a pool for each of the host's threads
  if (team <= 1 || inherits_teams()) return 1;
  own_teams();
  if (team > largest) {
    if (!can_start(team - largest)) return 1;
    largest = team;
  }
  return team;
}

int32 thread_count(int32 limit) {
  const int32 most = std::max(max_threads(), 1);
  return startable_team(limit >= 1 && limit < most ? limit : most);
}

}  // namespace tolvenra::parallel
