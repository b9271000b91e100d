// Random starting values: uniform draws, normalised row by row.
#include "model/param_checks.hpp"
#include "numerics/random_generator.hpp"

namespace tolvenra::param {
namespace {

int32 seed_stream(ran_state_type& state, int32 seed1, int32 seed2, const routine& here,
                  error_type& err) {
  const int32 status = seed1 < 0 || seed2 < 0
                           ? random_generator::ran_timeseed(state, err)
                           : random_generator::ran_setall(state, seed1, seed2, err);
  if (status != 0) return fail(err, here, {text("Error initializing random number generator.")});
  return 0;
}

/// A random probability vector in `count` elements `step` apart.
int32 draw_row(double* first, int32 count, int64 step, ran_state_type& state, const routine& here,
               error_type& err) {
  double sum = 0.0;
  for (int32 r = 0; r < count; ++r) {
    double& value = first[r * step];
    if (random_generator::ran_genunf(state, 0.0, 1.0, value, err) != 0)
      return fail(err, here, {text("Error in random number generator.")});
    sum += value;
  }
  for (int32 r = 0; r < count; ++r) first[r * step] /= sum;
  return 0;
}

/// Copies the first slab along dimension k (from 0) to the others, in all slabs of the dimensions
/// behind it that are filled already.
template <std::size_t R>
void copy_first_slab(array<double, R>& a, std::size_t k) {
  if (a.size() == 0) return;
  const int64 slab = a.stride[k];
  const int64 whole = slab * a.n[k];
  for (auto at = a.flat.begin(); at != a.flat.end(); at += whole)
    for (int32 other = 1; other < a.n[k]; ++other) std::copy_n(at, slab, at + slab * other);
}

}  // namespace

int32 run_random_rho_startvals(param_type& param, error_type& err, int32 seed1, int32 seed2) {
  constexpr routine here{"run_random_rho_startvals", "param"};
  array<double, 4> rho;
  ran_state_type state;
  if (require_dims(param, here, err) != 0 ||
      fields::allocate(rho, extents_of(rho_dims(param)), "run_random_rho_startvals: param%rho",
                       here, err) != 0 ||
      seed_stream(state, seed1, seed2, here, err) != 0)
    return -1;
  for (int32 c = 1; c <= param.nc; ++c)
    for (int32 j = 1; j <= param.nci; ++j)
      if (param.nrc(j) > 0 &&
          draw_row(&rho(j, c, 1, 1), param.nrc(j), rho.stride[2], state, here, err) != 0)
        return -1;
  copy_first_slab(rho, 3);
  param.rho = std::move(rho);
  return 0;
}

int32 run_random_big_rho_startvals(param_type& param, error_type& err, int32 seed1, int32 seed2) {
  constexpr routine here{"run_random_big_rho_startvals", "param"};
  array<double, 6> big_rho;
  ran_state_type state;
  if (require_dims(param, here, err) != 0 ||
      fields::allocate(big_rho, extents_of(big_rho_dims(param)),
                       "run_random_big_rho_startvals: param%big_rho", here, err) != 0 ||
      seed_stream(state, seed1, seed2, here, err) != 0)
    return -1;
  for (int32 c = 1; c <= param.nc; ++c)
    for (int32 t = 1; t <= param.nt; ++t)
      for (int32 k = 1; k <= param.ns; ++k)
        for (int32 i = 1; i <= param.ni; ++i)
          if (param.nrs(i) > 0 && draw_row(&big_rho(i, k, 1, t, c, 1), param.nrs(i),
                                           big_rho.stride[2], state, here, err) != 0)
            return -1;
  // Draws of their own at each time would start a pooled M-step from unrelated status labels.
  if (param.big_rho_equal_across_time) copy_first_slab(big_rho, 3);
  if (param.big_rho_equal_across_class) copy_first_slab(big_rho, 4);
  copy_first_slab(big_rho, 5);
  param.big_rho = std::move(big_rho);
  return 0;
}

}  // namespace tolvenra::param
