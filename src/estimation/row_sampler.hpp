/// \file row_sampler.hpp  Posterior draws and complete-data estimates of probability vectors,
/// module `estimation`.
///
/// One routine for gamma, rho, delta, tau and big_rho: rows over (flat values, row_layout) under
/// fixed elements and equality groups. With complete data the elements of a row that are not fixed
/// have a Dirichlet posterior, scaled to what the fixed ones leave, whose shapes are count plus
/// prior count. Rows that equality groups tie together have a posterior of this kind where the
/// pooled closed form of the restrictions is exact: the masses of the groups and of the free part
/// are one Dirichlet vector of the pooled counts, the split of every row's free part another.
/// Other patterns of equality are not supported.
///
/// Rows without prior counts get Jeffreys' prior, 1/2 per element; rows tied together share one
/// such prior, as one row would have it.
/// Source: Gelman et al. (2013), Bayesian Data Analysis, 3rd ed., ch. 3; Schafer (1997), Analysis
/// of Incomplete Multivariate Data, ch. 7.
#pragma once

#include <span>
#include <vector>

#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "estimation/row_solver.hpp"
#include "model/prob_rows.hpp"
#include "numerics/random_generator.hpp"

namespace tolvenra::estimation {

/// Complete-data estimates of all elements of a family, in the layout of its values.
struct row_estimates {
  std::vector<double> q;      ///< posterior mean: (count + prior) / (total + prior total)
  std::vector<double> var;    ///< q (1 - q) / eff_n; 0 for what the restrictions determine
  std::vector<double> eff_n;  ///< cases and prior cases behind the estimate
  std::vector<double> n;      ///< cases of the row
};

class row_sampler {
 public:
  row_sampler() = default;
  /// \param solver  the decoded restrictions of the rows that are sampled
  /// \param layout  of these rows
  /// \param shared  where rows are held equal: the element, in `layout`, that each element of the
  ///                family's array takes its value from; empty: every row is on its own
  /// \param pseudo  prior counts in the family's array; empty: none
  /// \throws std::bad_alloc
  row_sampler(const row_solver& solver, const row_layout& layout, std::vector<std::size_t> shared,
              std::span<const double> pseudo);

  /// False when equality groups leave no closed form.
  [[nodiscard]] bool supported() const;

  /// Draws all elements that are not fixed, row by row.
  /// \param counts  complete-data counts in the layout of the values
  /// \return 0, or -1 with "Unable to generate random gamma variate." under the routine `here`
  int32 draw(ran_state_type& state, std::span<const double> counts, std::span<double> values,
             const routine& here, error_type& err);

  /// Estimates from complete-data counts; `values` holds the fixed elements.
  void estimate(std::span<const double> counts, std::span<const double> values, row_estimates& out);

 private:
  using component = row_solver::component;

  void set_prior(std::span<const double> pseudo);
  void sum_shared(std::span<const double> counts);
  void spread(std::span<const double> values, std::span<double> to) const;
  void sum_shapes(const component& c);
  int32 draw_dirichlet(ran_state_type& state, const routine& here, error_type& err);
  int32 draw_rows(ran_state_type& state, std::span<double> values, const routine& here,
                  error_type& err);
  int32 draw_masses(ran_state_type& state, const component& c, std::span<double> values,
                    const routine& here, error_type& err);
  void estimate_component(const component& c, row_estimates& out) const;

  row_solver rules_;
  row_layout layout_;
  std::vector<std::size_t> shared_;
  std::vector<double> prior_;           ///< prior counts by element, of the split of a free part
  std::vector<double> pooled_prior_;    ///< and of the masses of groups and free parts
  std::vector<double> sum_;             ///< counts of the sampled rows
  std::vector<double> values_;          ///< and their values, where rows are shared
  std::vector<double> masses_;          ///< pooled shapes of a component: groups, then free part
  std::vector<double> shapes_, drawn_;  ///< of the vector at hand
};

/// Logit of an estimate and its variance; the estimate is kept between 0.5/(n + 1) and
/// 1 - 0.5/(n + 1), so that both exist. One without a variance is not estimated: its logit is
/// exact, infinite for 0 and 1.
struct logit_estimate {
  double value = 0.0, var = 0.0;
};
logit_estimate on_logit_scale(double q, double var, double eff_n, double n);

}  // namespace tolvenra::estimation
