#include "estimation/covariate_design.hpp"

namespace tolvenra::estimation {

pattern_range patterns_of(const mlworkspace& work, int32 g) {
  const auto& start = work.rows->covariates.stratum_start;
  const int32 first = start[static_cast<std::size_t>(g - 1)];
  return {first, start[static_cast<std::size_t>(g)] - first};
}

void fill_design(const mlworkspace& work, int32 first_pattern, int32 first_column,
                 regression& fit) {
  const array<double, 2>& cov = *work.given.dataset.cov;
  const covariate_patterns& patterns = work.rows->covariates;
  for (int32 u = 1; u <= fit.x.n[0]; ++u) {
    const auto at = static_cast<std::size_t>(first_pattern + u - 1);
    fit.weight(u) = patterns.weight[at];
    fit.x(u, 1) = 1.0;
    for (int32 j = 2; j <= fit.x.n[1]; ++j)
      fit.x(u, j) = cov(patterns.first_case[at], first_column + j - 2);
  }
  scale_design(fit);
}

std::vector<double> starting_shares(std::span<const double> p, int32 compared) {
  std::vector<double> shares(p.begin(), p.end());
  if (compared > 0) shares[static_cast<std::size_t>(compared - 1)] = 0.0;
  double total = 0.0;
  for (const double share : shares) total += share;
  for (std::size_t c = 0; c < shares.size(); ++c)
    if (static_cast<int32>(c) + 1 != compared)
      shares[c] =
          total > 0.0 ? shares[c] / total : 1.0 / (static_cast<double>(shares.size()) - 1.0);
  return shares;
}

void refer_to_baseline(const regression& fit, double* beta) {
  const int32 p = fit.x.n[1];
  for (int32 j = 0; j < p; ++j) {
    const double reference = fit.binary > 0 ? 0.0 : beta[(fit.baseline - 1) * p + j];
    for (int32 c = 1; c <= fit.y.n[1]; ++c) {
      const bool estimated =
          fit.binary > 0 ? c == fit.binary
                         : c != fit.baseline && !fit.absent[static_cast<std::size_t>(c - 1)];
      double& b = beta[(c - 1) * p + j];
      b = estimated ? b - reference : 0.0;
    }
  }
}

int32 refuse_with_covariates(const routine& here, std::string_view what, error_type& err) {
  return fail(err, here, {text(what), text("when covariates are specified in the model.")});
}

}  // namespace tolvenra::estimation
