#include <limits>

#include "core/dynamic_allocation.hpp"
#include "core/parallel.hpp"
#include "numerics/logit_model_rows.hpp"

namespace tolvenra::logit_model {
namespace {

/// Releases every array. \return 0 or -1 at the first that cannot be released
int32 release_arrays(logit_mt_workspace_type& work, error_type& err) {
  using namespace dynamic_allocation;
  const bool released =
      dbl2_dealloc(work.coefficients, err) == 0 && dbl1_dealloc(work.current, err) == 0 &&
      dbl1_dealloc(work.previous, err) == 0 && dbl2_dealloc(work.neg_hessian, err) == 0 &&
      dbl1_dealloc(work.totals, err) == 0 && dbl1_dealloc(work.score, err) == 0 &&
      dbl2_dealloc(work.inverse, err) == 0 && dbl2_dealloc(work.slot_score, err) == 0 &&
      dbl3dealloc(work.slot_hessian, err) == 0 && dbl2_dealloc(work.predictor, err) == 0 &&
      dbl2_dealloc(work.probability, err) == 0 && dbl1_dealloc(work.row_weight, err) == 0 &&
      dbl3dealloc(work.tile, err) == 0 && dbl1_dealloc(work.slot_loglik, err) == 0 &&
      int1_dealloc(work.slot_failure, err) == 0;
  return released ? 0 : -1;
}

int32 allocate_arrays(logit_mt_workspace_type& work, int32 order, error_type& err) {
  using namespace dynamic_allocation;
  const int32 n = work.n, p = work.p, r = work.r, t = work.t;
  const bool allocated =
      dbl2_alloc(work.coefficients, p, r, err) == 0 && dbl1_alloc(work.current, order, err) == 0 &&
      dbl1_alloc(work.previous, order, err) == 0 &&
      dbl2_alloc(work.neg_hessian, order, order, err) == 0 &&
      dbl1_alloc(work.totals, r, err) == 0 && dbl1_alloc(work.score, order, err) == 0 &&
      dbl2_alloc(work.inverse, order, order, err) == 0 &&
      dbl2_alloc(work.slot_score, order, t, err) == 0 &&
      dbl3_alloc(work.slot_hessian, order, order, t, err) == 0 &&
      dbl2_alloc(work.predictor, n, r, err) == 0 && dbl2_alloc(work.probability, n, r, err) == 0 &&
      dbl1_alloc(work.row_weight, n, err) == 0 &&
      dbl3_alloc(work.tile, tile_rows, p, t, err) == 0 &&
      dbl1_alloc(work.slot_loglik, t, err) == 0 && int1_alloc(work.slot_failure, t, err) == 0;
  return allocated ? 0 : -1;
}

}  // namespace

int32 slots_for(int32 n, int32 p, int32 r) {
  const auto order = static_cast<std::size_t>(p) * static_cast<std::size_t>(r > 1 ? r - 1 : 0);
  return parallel::blocks_for(n, order * (order + 1) + 1);
}

int32 setup_logit_mt_workspace_type(int32 n, int32 r, int32 p, int32 baseline, int32 slots,
                                    const array<double, 2>& y, logit_mt_workspace_type& work,
                                    error_type& err) {
  constexpr routine here{"setup_logit_mt_workspace_type", "logit_model"};
  if (y.n[0] != n || y.n[1] != r) return fail(err, here, error_code::not_conformable, {text("y")});
  const int64 order = int64{p} * (r - 1);
  if (order > std::numeric_limits<int32>::max()) return fail(err, here, error_code::allocation);
  work.n = n;
  work.r = r;
  work.p = p;
  work.b = baseline;
  work.t = slots;
  if (allocate_arrays(work, static_cast<int32>(order), err) != 0) {
    nullify_logit_mt_workspace_type(work, err);
    return -1;
  }
  work.needs_setup = false;
  return 0;
}

int32 nullify_logit_mt_workspace_type(logit_mt_workspace_type& work, error_type& err) {
  const int32 status = release_arrays(work, err);
  work.n = work.p = work.r = work.b = work.t = 0;
  work.needs_setup = true;
  if (status == 0) return 0;
  return pass_on(err, {"nullify_logit_mt_workspace_type", "logit_model"});
}

}  // namespace tolvenra::logit_model
