#include "estimation/row_sampler.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "numerics/variates.hpp"

namespace tolvenra::estimation {

row_sampler::row_sampler(const row_solver& solver, const row_layout& layout,
                         std::vector<std::size_t> shared, std::span<const double> pseudo)
    : rules_(solver), layout_(layout), shared_(std::move(shared)) {
  set_prior(pseudo);
}

void row_sampler::set_prior(std::span<const double> pseudo) {
  std::vector<double> given(
      static_cast<std::size_t>(layout_.nrows) * static_cast<std::size_t>(layout_.width), 0.0);
  if (!pseudo.empty()) {
    sum_shared(pseudo);
    given = sum_;
  }
  prior_ = given;
  pooled_prior_ = given;
  for (const component& c : rules_.components_)
    for (const std::size_t m : c.rows) {
      const auto& r = rules_.rows_[m];
      double total = 0.0;
      for (const auto* elements : {&r.free, &r.members})
        for (const std::size_t at : *elements) total += given[at];
      if (total > 0.0) continue;
      for (const auto* elements : {&r.free, &r.members})
        for (const std::size_t at : *elements) {
          prior_[at] = 0.5;
          pooled_prior_[at] = 0.5 / static_cast<double>(c.rows.size());
        }
    }
}

bool row_sampler::supported() const {
  return std::none_of(rules_.components_.begin(), rules_.components_.end(),
                      [](const component& c) { return c.kind == row_solver::path::newton; });
}

void row_sampler::sum_shared(std::span<const double> counts) {
  if (shared_.empty()) {
    sum_.assign(counts.begin(), counts.end());
    return;
  }
  sum_.assign(static_cast<std::size_t>(layout_.nrows) * static_cast<std::size_t>(layout_.width),
              0.0);
  for (std::size_t at = 0; at < counts.size(); ++at) sum_[shared_[at]] += counts[at];
}

/// Gives every element of the family's array the value of the row it shares.
void row_sampler::spread(std::span<const double> values, std::span<double> to) const {
  for (std::size_t at = 0; at < to.size(); ++at) to[at] = values[shared_[at]];
}

/// Pooled shapes of the groups' masses and, last, of the free part.
void row_sampler::sum_shapes(const component& c) {
  masses_.assign(c.groups.size() + 1, 0.0);
  for (std::size_t k = 0; k < c.groups.size(); ++k)
    for (const std::size_t at : rules_.groups_[c.groups[k]].elements)
      masses_[k] += sum_[at] + pooled_prior_[at];
  for (const std::size_t m : c.rows)
    for (const std::size_t at : rules_.rows_[m].free)
      masses_.back() += sum_[at] + pooled_prior_[at];
}

/// Draws `drawn_` with the shapes `shapes_`. A shape of 0, an element that neither data nor prior
/// know of, gives 0; a vector of nothing else is split equally.
int32 row_sampler::draw_dirichlet(ran_state_type& state, const routine& here, error_type& err) {
  drawn_.assign(shapes_.size(), 0.0);
  double total = 0.0;
  for (std::size_t k = 0; k < shapes_.size(); ++k) {
    if (!(shapes_[k] > 0.0)) continue;
    if (random_generator::ran_sgamma(state, shapes_[k], drawn_[k], err) != 0)
      return fail(err, here, {text("Unable to generate random gamma variate.")});
    total += drawn_[k];
  }
  for (double& p : drawn_)
    p = total >= smallest_normal ? p / total : 1.0 / static_cast<double>(drawn_.size());
  return 0;
}

/// Draws the groups' values of a pooled component. \return 0 with the free part's mass in
/// `masses_.back()`
int32 row_sampler::draw_masses(ran_state_type& state, const component& c, std::span<double> values,
                               const routine& here, error_type& err) {
  const auto& first = rules_.rows_[c.rows.front()];
  sum_shapes(c);
  shapes_ = masses_;
  if (first.free.empty()) shapes_.pop_back();
  if (draw_dirichlet(state, here, err) != 0) return -1;
  for (std::size_t k = 0; k < c.groups.size(); ++k) {
    const auto& g = rules_.groups_[c.groups[k]];
    for (const std::size_t at : g.elements)
      values[at] = first.left * drawn_[k] / g.links.front().members;
  }
  masses_.back() = first.free.empty() ? 0.0 : first.left * drawn_.back();
  return 0;
}

int32 row_sampler::draw_rows(ran_state_type& state, std::span<double> values, const routine& here,
                             error_type& err) {
  for (const auto& e : rules_.known_) values[e.at] = e.value;
  for (const component& c : rules_.components_) {
    if (!c.groups.empty() && draw_masses(state, c, values, here, err) != 0) return -1;
    for (const std::size_t m : c.rows) {
      const auto& r = rules_.rows_[m];
      const double left = c.groups.empty() ? r.left : masses_.back();
      if (r.free.size() == 1) {
        values[r.free.front()] = left;
        continue;
      }
      shapes_.clear();
      for (const std::size_t at : r.free) shapes_.push_back(sum_[at] + prior_[at]);
      if (draw_dirichlet(state, here, err) != 0) return -1;
      for (std::size_t k = 0; k < r.free.size(); ++k) values[r.free[k]] = left * drawn_[k];
    }
  }
  return 0;
}

int32 row_sampler::draw(ran_state_type& state, std::span<const double> counts,
                        std::span<double> values, const routine& here, error_type& err) {
  sum_shared(counts);
  if (shared_.empty()) return draw_rows(state, values, here, err);
  values_.resize(sum_.size());
  for (std::size_t at = values.size(); at-- > 0;) values_[shared_[at]] = values[at];
  if (draw_rows(state, values_, here, err) != 0) return -1;
  spread(values_, values);
  return 0;
}

/// Posterior means, and variances to first order of the product of a mass and a share of it.
void row_sampler::estimate_component(const component& c, row_estimates& out) const {
  double mass_total = 0.0;
  for (const double shape : masses_) mass_total += shape;
  const bool tied = !c.groups.empty();
  const double left = rules_.rows_[c.rows.front()].left;
  const auto put = [&](std::size_t at, double q, double var, double total) {
    out.q[at] = q;
    out.var[at] = var;
    out.eff_n[at] = var > 0.0 ? q * (1.0 - q) / var : total;
  };
  for (std::size_t k = 0; k < c.groups.size(); ++k) {
    const auto& g = rules_.groups_[c.groups[k]];
    const double p = masses_[k] / mass_total;
    const double part = left / g.links.front().members;
    for (const std::size_t at : g.elements)
      put(at, part * p, part * part * p * (1.0 - p) / mass_total, mass_total);
  }
  const double free_share = tied ? masses_.back() / mass_total : 1.0;
  const double mass = left * free_share;
  const double mass_var = tied ? left * left * free_share * (1.0 - free_share) / mass_total : 0.0;
  for (const std::size_t m : c.rows) {
    const auto& r = rules_.rows_[m];
    double total = 0.0;
    for (const std::size_t at : r.free) total += sum_[at] + prior_[at];
    for (const std::size_t at : r.free) {
      const double p = r.free.size() == 1 ? 1.0
                       : total > 0.0      ? (sum_[at] + prior_[at]) / total
                                          : 1.0 / static_cast<double>(r.free.size());
      put(at, mass * p,
          p * p * mass_var + mass * mass * p * (1.0 - p) / std::max(total, smallest_normal), total);
    }
  }
}

void row_sampler::estimate(std::span<const double> counts, std::span<const double> values,
                           row_estimates& out) {
  sum_shared(counts);
  out.q.assign(values.begin(), values.end());
  if (!shared_.empty()) {
    out.q.assign(sum_.size(), 0.0);
    for (std::size_t at = values.size(); at-- > 0;) out.q[shared_[at]] = values[at];
  }
  out.var.assign(sum_.size(), 0.0);
  out.n.assign(sum_.size(), 0.0);
  for (int32 m = 0; m < layout_.nrows; ++m) {
    const auto at = [&](int32 r) {
      return static_cast<std::size_t>(layout_.base(m) + r * layout_.step);
    };
    const int32 length = layout_.length[static_cast<std::size_t>(m)];
    double n = 0.0;
    for (int32 r = 0; r < length; ++r) n += sum_[at(r)];
    for (int32 r = 0; r < length; ++r) out.n[at(r)] = n;
  }
  out.eff_n = out.n;
  for (const auto& e : rules_.known_) out.q[e.at] = e.value;
  for (const component& c : rules_.components_) {
    sum_shapes(c);
    estimate_component(c, out);
  }
  if (shared_.empty()) return;
  for (auto* of_rows : {&out.q, &out.var, &out.eff_n, &out.n}) {
    values_ = *of_rows;
    of_rows->resize(values.size());
    spread(values_, *of_rows);
  }
}

logit_estimate on_logit_scale(double q, double var, double eff_n, double n) {
  if (!(var > 0.0)) return {std::log(q / (1.0 - q)), 0.0};
  const double margin = 0.5 / (n + 1.0);
  const double kept = std::min(std::max(q, margin), 1.0 - margin);
  return {std::log(kept / (1.0 - kept)), 1.0 / (eff_n * kept * (1.0 - kept))};
}

}  // namespace tolvenra::estimation
