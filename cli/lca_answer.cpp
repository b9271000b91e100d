#include "lca_answer.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace tolvenra::cli {
namespace {

bool has_prior(const lca_options& options) {
  return options.prior_rho > 0.0 || options.prior_gamma > 0.0 || options.prior_beta > 0.0;
}

void order_classes(const lca_data& data, std::size_t nc, const lca_fit& fit, lca_answer& answer) {
  std::vector<double> share(nc, 0.0);
  for (std::size_t g = 0; g < data.groups(); ++g)
    for (std::size_t c = 0; c < nc; ++c)
      share[c] += data.group_weighted_cases[g] / data.weighted_cases * fit.gamma[c + nc * g];
  answer.order.resize(nc);
  std::iota(answer.order.begin(), answer.order.end(), std::size_t{0});
  if (!data.model.tells_classes_apart())
    std::stable_sort(answer.order.begin(), answer.order.end(),
                     [&](std::size_t a, std::size_t b) { return share[a] > share[b]; });
  answer.class_labels = data.model.class_names;
  for (std::size_t c = answer.class_labels.size(); c < nc; ++c)
    answer.class_labels.push_back(fmt::format("{}", c + 1));
  for (const std::size_t c : answer.order) answer.shares.push_back(share[c]);
}

void set_estimates(const lca_data& data, std::size_t nc, const lca_fit& fit, lca_answer& answer) {
  const std::size_t nitem = data.items.size();
  const auto nrcmax = static_cast<std::size_t>(most_categories_of(data));
  for (std::size_t g = 0; g < data.groups(); ++g) {
    std::vector<double>& gamma = answer.gamma.emplace_back();
    for (const std::size_t c : answer.order) gamma.push_back(fit.gamma[c + nc * g]);
    auto& of_group = answer.rho.emplace_back();
    for (std::size_t j = 0; j < nitem; ++j) {
      auto& of_item = of_group.emplace_back();
      for (const std::size_t c : answer.order) {
        std::vector<double>& row = of_item.emplace_back();
        for (std::size_t k = 0; k < data.items[j].labels.size(); ++k)
          row.push_back(fit.rho[j + nitem * (c + nc * (k + nrcmax * g))]);
      }
    }
  }
}

/// Log-odds against the printed reference class: differences of the engine's columns.
void set_coefficients(const lca_data& data, std::size_t nc, const lca_fit& fit,
                      lca_answer& answer) {
  const lca_model& model = data.model;
  const std::size_t rows = data.covariates.size() + 1;
  for (std::size_t g = 0; rows > 1 && g < data.groups(); ++g) {
    const auto column = [&](std::size_t printed) {
      return fit.beta.begin() +
             static_cast<std::ptrdiff_t>(rows * (answer.order[printed] + nc * g));
    };
    auto& of_group = answer.beta.emplace_back(nc);
    auto& runaway = answer.runaway.emplace_back(nc);
    const auto place = [&](std::size_t printed, std::size_t v) {
      return v + rows * (answer.order[printed] + nc * g);
    };
    for (std::size_t k = 0; k < nc; ++k) {
      if (model.binary && k != model.compared) continue;
      for (std::size_t v = 0; v < rows; ++v) {
        runaway[k].push_back(
            model.binary ? runs_away(fit.beta_runs, place(k, v))
                         : runs_away(fit.beta_runs, place(k, v), place(model.reference, v)));
        answer.any_runaway = answer.any_runaway || runaway[k].back();
      }
      of_group[k].assign(column(k), column(k) + static_cast<std::ptrdiff_t>(rows));
      for (std::size_t v = 0; v < rows && !model.binary; ++v)
        of_group[k][v] -= column(model.reference)[static_cast<std::ptrdiff_t>(v)];
    }
  }
}

void set_clusters(const lca_fit& fit, lca_answer& answer) {
  answer.clusters = {fit.n_clusters, fit.cluster_min, fit.cluster_max, std::nullopt};
  if (fit.has_errors()) answer.clusters->deff = fit.deff;
}

}  // namespace

lca_answer make_lca_answer(const lca_data& data, const lca_options& options, const lca_fit& fit) {
  const auto nc = static_cast<std::size_t>(options.classes);
  lca_answer answer;
  set_fit(data, fit,
          {.entropy = fit.fit_extra[3], .X2_p = fit.fit_extra[6], .bound = fit.fit_extra[7]},
          has_prior(options), answer);
  order_classes(data, nc, fit, answer);
  set_estimates(data, nc, fit, answer);
  set_coefficients(data, nc, fit, answer);
  if (data.errors_wanted) answer.errors = make_standard_errors(data, nc, fit, answer);
  if (!data.cluster.empty()) set_clusters(fit, answer);
  const std::size_t classes = data.model.binary ? 1 : nc - 1;
  for (std::size_t v = 0; v < fit.test_stat.size(); ++v)
    add_test(fit, v, data.covariates[v].name, static_cast<std::int32_t>(classes * data.groups()),
             answer, !data.weight.empty() || !data.cluster.empty());
  if (options.residuals || !options.json.empty())
    answer.residuals = bivariate_residuals(data, options.classes, fit);
  add_fit_warnings(options, fit, starts_of(data.model, options), report_terms_of(data, options),
                   answer);
  return answer;
}

}  // namespace tolvenra::cli
