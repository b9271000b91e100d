/// \file progress.hpp  What the user sees of a running analysis, and Ctrl-C.
#pragma once

#include <chrono>
#include <string>

#include "tolvenra/tolvenra.h"

namespace tolvenra::cli {

/// One line such as "start 3 of 20, best log-likelihood -504.4677, about 12 s left".
/// \param seconds  since the first start began.
std::string progress_line(const tolvenra_progress& record, double seconds);

/// While it lives, Ctrl-C cancels the run (a second one ends the process), and the progress line is
/// kept on standard error when that is a terminal. One at a time.
class progress_display {
 public:
  explicit progress_display(bool on_terminal);
  progress_display(const progress_display&) = delete;
  progress_display& operator=(const progress_display&) = delete;
  ~progress_display();

  /// For the call of the engine.
  tolvenra_progress* record() { return &record_; }
  [[nodiscard]] bool cancelled() const { return record_.cancel != 0; }

 private:
  using clock = std::chrono::steady_clock;
  static std::int32_t notify(tolvenra_progress* record);

  tolvenra_progress record_{};
  clock::time_point begin_, last_shown_;
  bool shown_ = false;
};

}  // namespace tolvenra::cli
