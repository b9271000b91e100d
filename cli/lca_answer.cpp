#include "lca_answer.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace tolvenra::cli {
namespace {

std::optional<double> if_finite(double value) {
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

/// The engine reports its criteria on the scale of G2; here they stand on -2 log-likelihood, which
/// is what most tables in the literature show, and exists when G2 does not.
void set_criteria(double n, lca_fit_figures& figures) {
  const double deviance = -2.0 * figures.loglik;
  const double p = figures.n_params;
  figures.aic = deviance + 2.0 * p;
  figures.bic = deviance + std::log(n) * p;
  figures.caic = deviance + (std::log(n) + 1.0) * p;
  figures.abic = deviance + std::log((n + 2.0) / 24.0) * p;
}

bool has_prior(const lca_options& options) {
  return options.prior_rho > 0.0 || options.prior_gamma > 0.0 || options.prior_beta > 0.0;
}

void set_figures(const lca_data& data, const lca_options& options, const lca_fit& fit,
                 lca_answer& answer) {
  lca_fit_figures& figures = answer.figures;
  figures.loglik = fit.loglik;
  figures.n_params = fit.n_params[0];
  figures.independent = fit.run_info[12];
  figures.entropy = fit.fit_extra[3];
  if (has_prior(options)) figures.penalised_loglik = if_finite(fit.fit_extra[4]);
  set_criteria(data.weighted_cases, figures);
  answer.of_fit = make_fit_tests(data, fit);
  // The saturated model knows no covariates: there is nothing to compare with.
  if (!data.covariates.empty()) return;
  const bool too_many_cells = fit.apparent_df == std::numeric_limits<std::int32_t>::max();
  if (!too_many_cells) figures.df = fit.apparent_df;
  figures.G2 = answer.of_fit.G2.statistic;
  figures.G2_p = answer.of_fit.G2.p;
  figures.X2 = answer.of_fit.X2.statistic;
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
    for (std::size_t k = 0; k < nc; ++k) {
      if (model.binary && k != model.compared) continue;
      of_group[k].assign(column(k), column(k) + static_cast<std::ptrdiff_t>(rows));
      for (std::size_t v = 0; v < rows && !model.binary; ++v)
        of_group[k][v] -= column(model.reference)[static_cast<std::ptrdiff_t>(v)];
    }
  }
}

void set_tests(const lca_data& data, std::size_t nc, const lca_fit& fit, lca_answer& answer) {
  const std::size_t classes = data.model.binary ? 1 : nc - 1;
  for (std::size_t v = 0; v < fit.test_stat.size(); ++v) {
    covariate_test& test = answer.tests.emplace_back();
    test.name = data.covariates[v].name;
    test.df = static_cast<std::int32_t>(classes * data.groups());
    test.statistic = if_finite(fit.test_stat[v]);
    if (test.statistic) test.p = if_finite(fit.test_p[v]);
    test.converged = fit.test_status[v] == 0 || fit.test_status[v] == 5;
    if (test.converged) continue;
    answer.warnings.push_back(
        test.statistic
            ? fmt::format("The model without \"{}\" has not converged: its test is too small or "
                          "too large. Raise --max-iter.",
                          test.name)
            : fmt::format("The model without \"{}\" could not be fitted: it is not tested.",
                          test.name));
  }
}

void add_warnings(const lca_data& data, const lca_options& options, const lca_fit& fit,
                  lca_answer& answer) {
  const auto warn = [&](std::string text) { answer.warnings.push_back(std::move(text)); };
  if (answer.figures.df.value_or(0) < 0)
    warn(
        fmt::format("The degrees of freedom are negative ({}): the model has more parameters than "
                    "the data have cells, and it is not identified.",
                    *answer.figures.df));
  if (!answer.converged)
    warn(
        fmt::format("The estimates have not converged: {} iterations did not bring the largest "
                    "change below {}. Raise --max-iter.",
                    answer.iterations, options.criterion));
  const std::int32_t starts = starts_of(data, options);
  if (const auto failed = starts - fit.run_info[2]; failed > 0)
    warn(fmt::format("{} of {} starts failed. The last report:\n{}", failed, starts, fit.message));
  if (answer.best_start_hits == 1 && starts > 1)
    warn(
        "Only one start reached the best log-likelihood: it may be a local maximum. Raise "
        "--starts.");
}

}  // namespace

lca_answer make_lca_answer(const lca_data& data, const lca_options& options, const lca_fit& fit) {
  const auto nc = static_cast<std::size_t>(options.classes);
  lca_answer answer;
  answer.converged = fit.converged;
  answer.iterations = fit.iterations;
  answer.best_start_hits = fit.run_info[3];
  answer.starts = fit.starts;
  answer.warnings = data.warnings;
  set_figures(data, options, fit, answer);
  order_classes(data, nc, fit, answer);
  set_estimates(data, nc, fit, answer);
  set_coefficients(data, nc, fit, answer);
  set_tests(data, nc, fit, answer);
  if (options.residuals || !options.json.empty())
    answer.residuals = bivariate_residuals(data, options.classes, fit);
  add_warnings(data, options, fit, answer);
  return answer;
}

}  // namespace tolvenra::cli
