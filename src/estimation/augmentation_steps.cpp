#include "estimation/augmentation_steps.hpp"

#include <algorithm>

#include "core/dynamic_allocation.hpp"
#include "estimation/status_path.hpp"

namespace tolvenra::estimation {
namespace {

constexpr routine istep_routine{"istep", "estimation"};

int32 draw_uniform(ran_state_type& random, double& u, error_type& err) {
  if (random_generator::unit_uniform(random, u, err) == 0) return 0;
  return fail(err, istep_routine, {text("Unable to generate random uniform.")});
}

/// Draws one subject after the other and counts what they are.
class subject_pass {
 public:
  subject_pass(const mlworkspace& work, dawork& da) : work_(work), rows_(*work.rows), da_(da) {}

  int32 run(error_type& err) {
    const auto clear = [](auto&... families) {
      (std::fill(families.count.flat.begin(), families.count.flat.end(), 0.0), ...);
    };
    clear(da_.gamma, da_.rho, da_.delta, da_.tau, da_.big_rho);
    const auto subjects = static_cast<int32>(da_.kase.size());
    for (int32 k = 1; k <= subjects; ++k) {
      const auto at = static_cast<std::size_t>(k - 1);
      row_ = rows_.row_of_case[static_cast<std::size_t>(da_.kase[at] - 1)];
      g_ = da_.stratum[at];
      weight_ = da_.weight.empty() ? 1.0 : da_.weight[at];
      if (draw_class(k, err) != 0 || draw_statuses(k, err) != 0 || draw_class_items(k, err) != 0 ||
          draw_status_items(k, err) != 0)
        return -1;
    }
    return 0;
  }

 private:
  int32 draw_class(int32 k, error_type& err) {
    double u = 0.0;
    if (draw_uniform(da_.random, u, err) != 0) return -1;
    const int32 nc = work_.latent.nc;
    c_ = category_at(
        u, 1.0, &work_.post.cls[static_cast<std::size_t>(row_ - 1) * static_cast<std::size_t>(nc)],
        nc, 1);
    da_.imputed_cls(k) = c_;
    da_.gamma.count(c_, g_) += weight_;
    return 0;
  }

  int32 draw_statuses(int32 k, error_type& err) {
    if (!da_.recursion) return 0;
    da_.recursion->filter(row_, c_, da_.recursion->unit_of(row_));
    if (da_.path.draw(da_.random, *da_.recursion, err) != 0)
      return fail(err, istep_routine, {text("Unable to generate random uniform.")});
    int32 before = 0;
    for (int32 t = 1; t <= work_.data.nt; ++t) {
      const int32 s = da_.path.statuses()[static_cast<std::size_t>(t - 1)];
      da_.imputed_sta(k, t) = s;
      if (t == 1)
        da_.delta.count(s, c_, g_) += weight_;
      else
        da_.tau.count(before, s, t - 1, c_, g_) += weight_;
      before = s;
    }
    return 0;
  }

  int32 draw_class_items(int32 k, error_type& err) {
    for (int32 j = 1; j <= work_.data.nci; ++j) {
      int32 r = rows_.response(row_, j);
      if (r == 0) {
        double u = 0.0;
        if (draw_uniform(da_.random, u, err) != 0) return -1;
        const array<double, 4>& rho = work_.rho.now;
        r = category_at(u, 1.0, &rho(j, c_, 1, g_), work_.data.nrc(j), rho.stride[2]);
        da_.ciy_imp(k, j) = r;
      }
      da_.rho.count(j, c_, r, g_) += weight_;
    }
    return 0;
  }

  int32 draw_status_items(int32 k, error_type& err) {
    for (int32 t = 1; t <= work_.data.nt && da_.recursion; ++t) {
      const int32 s = da_.imputed_sta(k, t);
      for (int32 i = 1; i <= work_.data.ni; ++i) {
        int32 r = rows_.response(row_, work_.data.nci + (t - 1) * work_.data.ni + i);
        if (r == 0) {
          double u = 0.0;
          if (draw_uniform(da_.random, u, err) != 0) return -1;
          const array<double, 6>& rho = work_.big_rho.now;
          r = category_at(u, 1.0, &rho(i, s, 1, t, c_, g_), work_.data.nrs(i), rho.stride[2]);
          da_.siy_imp(k, i, t) = r;
        }
        da_.big_rho.count(i, s, r, t, c_, g_) += weight_;
      }
    }
    return 0;
  }

  const mlworkspace& work_;
  const distinct_rows& rows_;
  dawork& da_;
  int32 row_ = 1, g_ = 1, c_ = 1;  // of the subject at hand
  double weight_ = 1.0;
};

/// Draws a family given its counts.
template <std::size_t R>
int32 pstep(prob_block<R>& block, da_family<R>& family, ran_state_type& random, const routine& here,
            error_type& err) {
  return family.sampler.draw(random, family.count.flat, block.now.flat, here, err);
}

/// Stores the estimates of one family as imputation number `imputation`.
/// \param relabelled  gives counts the labels of the starting parameters
template <std::size_t R>
int32 per_imputation(const prob_block<R>& block,
                     array<double, R> (*relabelled)(const label_map&, const array<double, R>&),
                     int32 imputation, dawork& da, da_family<R>& family, daparam<R>& param,
                     const routine& here, error_type& err) {
  row_estimates& estimates = da.estimates;
  return allocation::allocate_under("per_imputation: dawork%estimates", here, err, [&] {
    const array<double, R> count = relabelled(da.labels, family.count);
    family.sampler.estimate(count.flat, block.now.flat, estimates);
    const auto at = static_cast<std::ptrdiff_t>(block.now.size()) * (imputation - 1);
    std::copy(estimates.q.begin(), estimates.q.end(), param.imp.flat.begin() + at);
    std::copy(estimates.var.begin(), estimates.var.end(), param.var_imp.flat.begin() + at);
    family.eff_n.insert(family.eff_n.end(), estimates.eff_n.begin(), estimates.eff_n.end());
    family.n.insert(family.n.end(), estimates.n.begin(), estimates.n.end());
  });
}

/// Copies the current imputation into its place among the saved ones.
template <class T, std::size_t R>
void save(const array<T, R>& current, int32 imputation, array<T, R + 1>& saved) {
  if (!saved.allocated) return;
  std::copy(current.flat.begin(), current.flat.end(),
            saved.flat.begin() + static_cast<std::ptrdiff_t>(current.size()) * (imputation - 1));
}

void count_class_agreement(const mlworkspace& work, dawork& da) {
  const int32 nc = work.latent.nc;
  array<double, 3>& agreement = da.agreement.cls;
  agreement.allocate({nc, nc, work.data.nstr});
  for (int32 k = 1; k <= static_cast<int32>(da.kase.size()); ++k) {
    const auto at = static_cast<std::size_t>(k - 1);
    const int32 row = work.rows->row_of_case[static_cast<std::size_t>(da.kase[at] - 1)];
    const double* p = &da.ml_cls[static_cast<std::size_t>(row - 1) * static_cast<std::size_t>(nc)];
    for (int32 c = 1; c <= nc; ++c) agreement(da.imputed_cls(k), c, da.stratum[at]) += p[c - 1];
  }
}

void count_status_agreement(const mlworkspace& work, dawork& da) {
  const int32 nc = work.latent.nc;
  const int32 ns = work.latent.ns;
  const int32 nt = work.data.nt;
  array<double, 5>& agreement = da.agreement.sta;
  agreement.allocate({ns, ns, nt, nc, work.data.nstr});
  const std::size_t record = static_cast<std::size_t>(nc * nt) * static_cast<std::size_t>(ns);
  for (int32 k = 1; k <= static_cast<int32>(da.kase.size()); ++k) {
    const auto at = static_cast<std::size_t>(k - 1);
    const int32 g = da.stratum[at];
    const int32 c = da.labels.cls(da.imputed_cls(k), g);
    const int32 row = work.rows->row_of_case[static_cast<std::size_t>(da.kase[at] - 1)];
    const double* p = &da.ml_cls_sta[static_cast<std::size_t>(row - 1) * record];
    for (int32 t = 1; t <= nt; ++t)
      for (int32 s = 1; s <= ns; ++s)
        agreement(da.imputed_sta(k, t), s, t, c, g) += p[c - 1 + nc * (t - 1 + nt * (s - 1))];
  }
}

void track_statuses(const mlworkspace& work, dawork& da, int32 imputation, daresult& result) {
  count_status_agreement(work, da);
  match_statuses(da.freedom, da.agreement.sta, da.labels);
  for (int32 k = 1; k <= static_cast<int32>(da.kase.size()); ++k) {
    const int32 g = da.stratum[static_cast<std::size_t>(k - 1)];
    const int32 c = da.labels.cls(da.imputed_cls(k), g);
    for (int32 t = 1; t <= work.data.nt; ++t)
      result.status_label_tracking_kase(k, t, imputation) =
          da.labels.sta(da.imputed_sta(k, t), t, c, g);
  }
  save(da.imputed_sta, imputation, da.imputed_sta_save);
  save(da.siy_imp, imputation, da.siy_imp_save);
}

}  // namespace

int32 istep(const mlworkspace& work, dawork& da, int32 imputation, error_type& err) {
  if (subject_pass(work, da).run(err) == 0) return 0;
  return fail(err, istep_routine,
              {text("Could not impute classes and/or statuses", " of imputation ", imputation)});
}

int32 pstep_rho(mlworkspace& work, dawork& da, error_type& err) {
  return pstep(work.rho, da.rho, da.random, {"pstep_rho", "estimation"}, err);
}

int32 pstep_gamma(mlworkspace& work, dawork& da, error_type& err) {
  return pstep(work.gamma, da.gamma, da.random, {"pstep_gamma", "estimation"}, err);
}

int32 pstep_big_rho(mlworkspace& work, dawork& da, error_type& err) {
  return pstep(work.big_rho, da.big_rho, da.random, {"pstep_big_rho", "estimation"}, err);
}

int32 pstep_delta(mlworkspace& work, dawork& da, error_type& err) {
  return pstep(work.delta, da.delta, da.random, {"pstep_delta", "estimation"}, err);
}

int32 pstep_tau(mlworkspace& work, dawork& da, error_type& err) {
  return pstep(work.tau, da.tau, da.random, {"pstep_tau", "estimation"}, err);
}

int32 track_labels(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                   error_type& err) {
  return allocation::allocate_under(
      "track_labels: dawork%labels", {"track_labels", "estimation"}, err, [&] {
        da.labels = own_labels(work);
        count_class_agreement(work, da);
        match_classes(da.freedom, da.agreement.cls, da.labels);
        save(da.labels.cls, imputation, result.class_label_tracking);
        if (da.recursion) track_statuses(work, da, imputation, result);
        save(da.labels.sta, imputation, result.status_label_tracking);
        for (int32 k = 1; k <= static_cast<int32>(da.kase.size()); ++k)
          result.class_label_tracking_kase(k, imputation) =
              da.labels.cls(da.imputed_cls(k), da.stratum[static_cast<std::size_t>(k - 1)]);
        save(da.imputed_cls, imputation, da.imputed_cls_save);
        save(da.ciy_imp, imputation, da.ciy_imp_save);
      });
}

int32 per_imputation_gamma(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                           error_type& err) {
  return per_imputation(work.gamma, relabelled_gamma, imputation, da, da.gamma, result.gamma,
                        {"per_imputation_gamma", "estimation"}, err);
}

int32 per_imputation_rho(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                         error_type& err) {
  constexpr routine here{"per_imputation_rho", "estimation"};
  if (per_imputation(work.rho, relabelled_rho, imputation, da, da.rho, result.rho, here, err) != 0)
    return -1;
  if (!da.recursion) return 0;
  return per_imputation(work.big_rho, relabelled_big_rho, imputation, da, da.big_rho,
                        result.big_rho, here, err);
}

int32 per_imputation_delta(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                           error_type& err) {
  return per_imputation(work.delta, relabelled_delta, imputation, da, da.delta, result.delta,
                        {"per_imputation_delta", "estimation"}, err);
}

int32 per_imputation_tau(const mlworkspace& work, dawork& da, int32 imputation, daresult& result,
                         error_type& err) {
  return per_imputation(work.tau, relabelled_tau, imputation, da, da.tau, result.tau,
                        {"per_imputation_tau", "estimation"}, err);
}

}  // namespace tolvenra::estimation
