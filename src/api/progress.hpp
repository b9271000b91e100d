/// \file progress.hpp  Progress for the host, and its wish to stop.
///
/// The host may give a record (`tolvenra_progress`). It is filled and its callback called on the
/// host's calling thread alone, between EM iterations; the threads that fit other starts read only
/// the cancel cell and the stop flag.
#pragma once

#include <atomic>

#include "core/types.hpp"
#include "estimation/em.hpp"
#include "tolvenra/tolvenra.h"

namespace tolvenra::api {

enum class run_stage : int32 {
  stabilising = 1,
  starts = 2,
  covariate_tests = 3,
  errors = 4,
  fit_statistics = 5
};

class run_progress {
 public:
  /// A record smaller than the first published size is ignored.
  explicit run_progress(tolvenra_progress* record);

  /// From the starts on the number of finished ones and the best log-likelihood stay.
  void begin_stage(run_stage stage, int32 nstarts);
  /// A start is done; `loglik` counts for the best one when it was fitted.
  void finish_start(bool fitted, double loglik);
  /// Tells the host that a stage after the fit has begun. \return whether the host wants to stop
  bool announce(const em_state& fit);
  [[nodiscard]] bool cancelled() const { return stop_.load(std::memory_order_relaxed); }

  /// What one thread reports while it fits a start; must outlive the fit.
  struct fit_view {
    run_progress* progress = nullptr;
    int32 start = 1;
    bool on_calling_thread = true;

    [[nodiscard]] estimation::em_watch watch();
  };

 private:
  static bool on_iteration(void* context, const em_state& state);

  tolvenra_progress* record_;
  run_stage stage_ = run_stage::starts;
  int32 nstarts_ = 1;
  std::atomic<int32> starts_done_{0};
  std::atomic<double> best_loglik_;
  std::atomic<bool> stop_{false};
};

}  // namespace tolvenra::api
