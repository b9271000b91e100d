#include "progress.hpp"

#include <fmt/format.h>
#include <signal.h>

#include <cmath>
#include <cstdio>

namespace tolvenra::cli {
namespace {

/// A signal handler can reach nothing but globals.
tolvenra_progress* volatile running = nullptr;

void cancel_run(int) {
  if (tolvenra_progress* record = running) record->cancel = 1;
}

void handle_interrupts(tolvenra_progress* record) {
  running = record;
  struct sigaction action {};
  action.sa_handler = record ? &cancel_run : SIG_DFL;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
}

std::string duration(double seconds) {
  const auto whole = static_cast<long long>(std::ceil(seconds));
  if (whole < 60) return fmt::format("{} s", whole);
  if (whole < 3600) return fmt::format("{} min {:02} s", whole / 60, whole % 60);
  return fmt::format("{} h {:02} min", whole / 3600, whole / 60 % 60);
}

}  // namespace

std::string progress_line(const tolvenra_progress& record, double seconds) {
  if (record.stage == 3) return fmt::format("covariate {} of {}", record.start, record.nstarts);
  if (record.stage == 4) return "standard errors";
  if (record.stage == 5) return fmt::format("fit statistics, step {}", record.iteration);
  if (record.nstarts <= 1)
    return fmt::format("iteration {}, log-likelihood {:.4f}, largest change {:.1e}",
                       record.iteration, record.loglik, record.max_abs_diff);
  std::string line = fmt::format("start {} of {}", record.start, record.nstarts);
  if (record.starts_done < 1) return fmt::format("{}, log-likelihood {:.4f}", line, record.loglik);
  if (record.best_loglik > TOLVENRA_FAILED_START)
    line += fmt::format(", best log-likelihood {:.4f}", record.best_loglik);
  const double left = seconds / record.starts_done * (record.nstarts - record.starts_done);
  return fmt::format("{}, about {} left", line, duration(left));
}

progress_display::progress_display(bool on_terminal) : begin_(clock::now()), last_shown_(begin_) {
  record_.size = static_cast<std::int32_t>(sizeof record_);
  record_.user = this;
  if (on_terminal) record_.notify = &progress_display::notify;
  handle_interrupts(&record_);
}

progress_display::~progress_display() {
  handle_interrupts(nullptr);
  if (shown_) std::fputs("\r\033[K", stderr);
}

std::int32_t progress_display::notify(tolvenra_progress* record) {
  auto& self = *static_cast<progress_display*>(record->user);
  const auto now = clock::now();
  if (now - self.last_shown_ < std::chrono::milliseconds(200)) return 0;
  self.last_shown_ = now;
  self.shown_ = true;
  try {
    const std::chrono::duration<double> elapsed = now - self.begin_;
    std::fputs(("\r\033[K" + progress_line(*record, elapsed.count())).c_str(), stderr);
    std::fflush(stderr);
  } catch (...) {  // a line that is not shown must not end the run
  }
  return 0;
}

}  // namespace tolvenra::cli
