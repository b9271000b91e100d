/// \file stage_watch.hpp  How a computation after the fit reports to the host and learns its wish.
#pragma once

#include "estimation/em.hpp"

namespace tolvenra::estimation {

/// Reports the fit that the stage works on, with a count of its own steps as the iteration.
class stage_watch {
 public:
  stage_watch(const em_watch& watch, const em_state& fit) : watch_(watch) {
    state_.max_iter = fit.max_iter;
    state_.loglik = fit.loglik;
    state_.max_abs_diff = fit.max_abs_diff;
  }

  /// One more step is done; calling thread only. \return whether the host wants to stop
  bool stop() {
    ++state_.iter;
    stopped_ = stopped_ || (watch_.cancelled && watch_.cancelled(watch_.context, state_));
    return stopped_;
  }
  [[nodiscard]] bool stopped() const { return stopped_; }

 private:
  em_watch watch_;
  em_state state_;
  bool stopped_ = false;
};

}  // namespace tolvenra::estimation
