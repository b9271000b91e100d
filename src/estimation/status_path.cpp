#include "estimation/status_path.hpp"

#include <algorithm>

namespace tolvenra::estimation {

int32 category_at(double u, double total, const double* p, int32 n, int64 step) {
  double accumulated = 0.0;
  int32 last = 1;  // with a weight: rounding may leave u times the total out of reach
  for (int32 r = 1; r <= n; ++r) {
    const double weight = p[(r - 1) * step];
    if (!(weight > 0.0)) continue;
    last = r;
    accumulated += weight;
    if (u * total <= accumulated) return r;
  }
  return last;
}

status_path_sampler::status_path_sampler(int32 ns, int32 nt)
    : ns_(ns),
      nt_(nt),
      emission_(static_cast<std::size_t>(ns) * static_cast<std::size_t>(nt), 1.0),
      filtered_(emission_.size()),
      weights_(static_cast<std::size_t>(ns)),
      uniforms_(static_cast<std::size_t>(nt)),
      path_(static_cast<std::size_t>(nt), 1) {}

void status_path_sampler::filter(const double* delta, const double* tau) {
  for (int32 t = 0; t < nt_; ++t) {
    double* now = &filtered_[static_cast<std::size_t>(t * ns_)];
    const double* emission = &emission_[static_cast<std::size_t>(t * ns_)];
    double total = 0.0;
    for (int32 d = 0; d < ns_; ++d) {
      double predicted = t == 0 ? delta[d] : 0.0;
      if (t > 0) {
        const double* before = now - ns_;
        const double* into = tau + (std::ptrdiff_t{t - 1} * ns_ + d) * ns_;
        for (int32 o = 0; o < ns_; ++o) predicted += before[o] * into[o];
      }
      now[d] = predicted * emission[d];
      total += now[d];
    }
    for (int32 d = 0; d < ns_; ++d) now[d] /= total;
  }
}

int32 status_path_sampler::draw(ran_state_type& random, const double* delta, const double* tau,
                                error_type& err) {
  for (double& u : uniforms_)
    if (random_generator::unit_uniform(random, u, err) != 0) return -1;
  filter(delta, tau);
  for (int32 t = nt_; t >= 1; --t) {
    const double* filtered = &filtered_[static_cast<std::size_t>((t - 1) * ns_)];
    std::copy_n(filtered, ns_, weights_.begin());
    if (t < nt_) {
      const int32 next = path_[static_cast<std::size_t>(t)] - 1;
      const double* into = tau + (std::ptrdiff_t{t - 1} * ns_ + next) * ns_;
      for (int32 o = 0; o < ns_; ++o) weights_[static_cast<std::size_t>(o)] *= into[o];
    }
    double total = 0.0;
    for (const double weight : weights_) total += weight;
    path_[static_cast<std::size_t>(t - 1)] =
        category_at(uniforms_[static_cast<std::size_t>(t - 1)], total, weights_.data(), ns_, 1);
  }
  return 0;
}

}  // namespace tolvenra::estimation
