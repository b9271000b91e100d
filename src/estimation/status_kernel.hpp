/// \file status_kernel.hpp  The inner loops of the E-step of latent statuses: the scaled
/// forward-backward recursion over the nodes of one chunk, see status_tree.
///
/// With delta, the matrices A_t of transitions and b the probabilities of a node's wave under the
/// statuses, the forward vector of a node is f = (A' f_parent) * b / c, c its sum before the
/// division; the product of the c along the path is the likelihood of the waves. Backwards, a node
/// receives V, the sum over its children of b * B / c, and B = A V; f * B are the expected statuses
/// of the rows below it and f V' * A their transitions. Source: Baum et al. (1970), Ann. Math.
/// Statist. 41, 164-171; Rabiner (1989), Proc. IEEE 77, 257-286 (scaling).
#pragma once

#include <algorithm>

#include "core/types.hpp"
#include "estimation/status_tree.hpp"

namespace tolvenra::status_kernel {

/// What one chunk reads and writes for one class; vectors are `width` apart.
struct view {
  int32 ns = 0, width = 0;
  const status_tree* tree = nullptr;
  std::size_t chunk = 0;
  const double* emission = nullptr;  ///< by wave
  const double* delta = nullptr;
  const double* tau = nullptr;   ///< (transition) a matrix and its transpose
  double* wave_count = nullptr;  ///< by wave, less first_wave
  int32 first_wave = 0;          ///< of the counts at hand
  double* delta_count = nullptr;
  double* tau_count = nullptr;          ///< (transition) sums of f V', to be multiplied by tau
  double* forward = nullptr;            ///< by node
  double* passed = nullptr;             ///< by node: A'f for its children, then V from them
  double* scale = nullptr;              ///< by node: 1 / c, 0 where the waves are impossible
  double* likelihood = nullptr;         ///< by node: of the waves up to it
  const double* leaf_weight = nullptr;  ///< by leaf: B of the last level, the same in all statuses
};

/// \tparam W  padded status count as a constant, 0 for any multiple of eight.
template <int W>
class chunk_pass {
 public:
  explicit chunk_pass(const view& v)
      : v_(v), tree_(*v.tree), n_(W > 0 ? W : v.width), first_(tree_.level(v.chunk, 0)) {}

  void forward() {
    for (int32 t = 0; t < tree_.nt; ++t) {
      const range nodes = level(t);
      for (std::size_t node = nodes.first; node < nodes.end; ++node) forward_node(t, node, nodes);
    }
  }

  void backward() {
    const int32 last = tree_.nt - 1;
    if (last > 0) std::fill(v_.passed, v_.passed + vector(level(last).first - first_), 0.0);
    for (int32 t = last; t >= 0; --t) {
      const range nodes = level(t);
      for (std::size_t node = nodes.first; node < nodes.end; ++node) backward_node(t, node, nodes);
    }
  }

 private:
  static constexpr int lanes = W == 0 ? 128 : W;

  struct range {
    std::size_t first, end;
    std::size_t before;  ///< first node of the level before
  };
  [[nodiscard]] range level(int32 t) const {
    return {tree_.level(v_.chunk, t), tree_.level(v_.chunk, t + 1),
            t > 0 ? tree_.level(v_.chunk, t - 1) : 0};
  }
  [[nodiscard]] std::size_t vector(std::size_t count) const {
    return count * static_cast<std::size_t>(n_);
  }
  [[nodiscard]] const double* matrix(int32 k) const {
    return v_.tau + vector(static_cast<std::size_t>(k) * 2 * static_cast<std::size_t>(v_.ns));
  }
  /// Number of a node's parent within the chunk.
  [[nodiscard]] std::size_t parent(std::size_t node, const range& nodes) const {
    return nodes.before - first_ + static_cast<std::size_t>(tree_.parent[node]);
  }
  [[nodiscard]] const double* wave(std::size_t node) const {
    return v_.emission + vector(static_cast<std::size_t>(tree_.wave[node]));
  }
  /// sum = rows of m weighted by the elements of w
  void weigh(const double* m, const double* w, double* sum) const {
    std::fill(sum, sum + n_, 0.0);
    for (int32 s = 0; s < v_.ns; ++s) {
      const double* row = m + vector(static_cast<std::size_t>(s));
      for (int32 q = 0; q < n_; ++q) sum[q] += w[s] * row[q];
    }
  }

  void forward_node(int32 t, std::size_t node, const range& nodes) {
    const std::size_t own = node - first_;
    const std::size_t up = t > 0 ? parent(node, nodes) : 0;
    const double* before = t > 0 ? v_.passed + vector(up) : v_.delta;
    const double* b = wave(node);
    double f[lanes];
    double c = 0.0;
    for (int32 s = 0; s < n_; ++s) {
      f[s] = before[s] * b[s];
      c += f[s];
    }
    const double scale = c >= smallest_normal ? 1.0 / c : 0.0;
    for (int32 s = 0; s < n_; ++s) f[s] *= scale;
    v_.scale[own] = scale;
    v_.likelihood[own] = t > 0 ? c * v_.likelihood[up] : c;
    std::copy(f, f + n_, v_.forward + vector(own));
    if (t + 1 < tree_.nt) weigh(matrix(t), f, v_.passed + vector(own));
  }

  void backward_node(int32 t, std::size_t node, const range& nodes) {
    const std::size_t own = node - first_;
    const double* f = v_.forward + vector(own);
    double back[lanes];
    if (t + 1 == tree_.nt)
      std::fill(back, back + n_, v_.leaf_weight[node - nodes.first]);
    else
      take_messages(t, f, v_.passed + vector(own), back);
    double* count =
        v_.wave_count + vector(static_cast<std::size_t>(tree_.wave[node] - v_.first_wave));
    for (int32 s = 0; s < n_; ++s) count[s] += f[s] * back[s];
    if (t == 0) {
      for (int32 s = 0; s < n_; ++s) v_.delta_count[s] += f[s] * back[s];
      return;
    }
    double* message = v_.passed + vector(parent(node, nodes));
    const double* b = wave(node);
    const double scale = v_.scale[own];
    for (int32 s = 0; s < n_; ++s) message[s] += b[s] * scale * back[s];
  }

  /// Counts the transitions to the children and forms B from their messages.
  void take_messages(int32 t, const double* f, const double* messages, double* back) {
    const auto k = static_cast<std::size_t>(t);
    const auto ns = static_cast<std::size_t>(v_.ns);
    double* count = v_.tau_count + vector(k * ns);
    for (int32 s = 0; s < v_.ns; ++s) {
      double* to = count + vector(static_cast<std::size_t>(s));
      for (int32 q = 0; q < n_; ++q) to[q] += f[s] * messages[q];
    }
    weigh(matrix(t) + vector(ns), messages, back);
  }

  const view& v_;
  const status_tree& tree_;
  const int32 n_;
  const std::size_t first_;
};

/// Calls f with the pass that suits the width.
template <class F>
void with_pass(const view& v, F&& f) {
  switch (v.width) {
    case 2:
      return f(chunk_pass<2>(v));
    case 4:
      return f(chunk_pass<4>(v));
    case 6:
      return f(chunk_pass<6>(v));
    case 8:
      return f(chunk_pass<8>(v));
    default:
      return f(chunk_pass<0>(v));
  }
}

inline void forward(const view& v) {
  with_pass(v, [](auto pass) { pass.forward(); });
}
inline void backward(const view& v) {
  with_pass(v, [](auto pass) { pass.backward(); });
}

}  // namespace tolvenra::status_kernel
