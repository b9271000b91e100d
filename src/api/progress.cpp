#include "api/progress.hpp"

#include <cstddef>
#include <limits>

namespace tolvenra::api {
namespace {

constexpr double nothing_yet = -std::numeric_limits<double>::max();

}  // namespace

run_progress::run_progress(tolvenra_progress* record) : record_(record), best_loglik_(nothing_yet) {
  if (record_ && record_->size < static_cast<int32>(sizeof(tolvenra_progress))) record_ = nullptr;
}

void run_progress::begin_stage(run_stage stage, int32 nstarts) {
  stage_ = stage;
  nstarts_ = nstarts;
  if (stage != run_stage::stabilising && stage != run_stage::starts) return;
  starts_done_ = 0;
  best_loglik_ = nothing_yet;
}

void run_progress::finish_start(bool fitted, double loglik) {
  if (fitted) {
    double best = best_loglik_.load();
    while (loglik > best && !best_loglik_.compare_exchange_weak(best, loglik)) {
    }
  }
  ++starts_done_;
}

bool run_progress::announce(const em_state& fit) {
  fit_view view{this, 1, true};
  return on_iteration(&view, fit);
}

estimation::em_watch run_progress::fit_view::watch() { return {this, &run_progress::on_iteration}; }

bool run_progress::on_iteration(void* context, const em_state& state) {
  const fit_view& view = *static_cast<fit_view*>(context);
  run_progress& self = *view.progress;
  if (!self.record_) return false;
  tolvenra_progress& record = *self.record_;
  if (view.on_calling_thread) {
    record.stage = static_cast<int32>(self.stage_);
    record.start = view.start;
    record.nstarts = self.nstarts_;
    record.iteration = state.iter;
    record.max_iter = state.max_iter;
    record.loglik = state.loglik;
    record.max_abs_diff = state.max_abs_diff;
    record.best_loglik = self.best_loglik_.load();
    record.starts_done = self.starts_done_.load();
    if (record.notify && record.notify(&record) != 0) self.stop_ = true;
  }
  if (record.cancel != 0) self.stop_ = true;
  return self.cancelled();
}

}  // namespace tolvenra::api
