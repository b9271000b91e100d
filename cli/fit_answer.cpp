#include "fit_answer.hpp"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace tolvenra::cli {
namespace {

std::optional<double> if_finite(double value) {
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

/// The engine reports its criteria on the scale of G2; here they stand on -2 log-likelihood, which
/// is what most tables in the literature show, and exists when G2 does not.
void set_criteria(double n, fit_figures& figures) {
  const double deviance = -2.0 * figures.loglik;
  const double p = figures.n_params;
  figures.aic = deviance + 2.0 * p;
  figures.bic = deviance + std::log(n) * p;
  figures.caic = deviance + (std::log(n) + 1.0) * p;
  figures.abic = deviance + std::log((n + 2.0) / 24.0) * p;
}

}  // namespace

void set_fit(const case_data& data, const fit_record& fit, const call_measures& measures,
             bool has_prior, fit_answer& answer) {
  answer.converged = fit.converged;
  answer.iterations = fit.iterations;
  answer.best_start_hits = fit.run_info[3];
  answer.starts = fit.starts;
  answer.warnings = data.warnings;
  fit_figures& figures = answer.figures;
  figures.loglik = fit.loglik;
  figures.n_params = fit.n_params[0];
  figures.independent = fit.run_info[12];
  figures.entropy = measures.entropy;
  if (has_prior) figures.penalised_loglik = if_finite(fit.fit_extra[4]);
  set_criteria(data.weighted_cases, figures);
  answer.of_fit = make_fit_tests(data, fit, measures);
  // The saturated model knows no covariates: there is nothing to compare with.
  if (!data.covariates.empty()) return;
  const bool too_many_cells = fit.apparent_df == std::numeric_limits<std::int32_t>::max();
  if (!too_many_cells) figures.df = fit.apparent_df;
  figures.G2 = answer.of_fit.G2.statistic;
  figures.G2_p = answer.of_fit.G2.p;
  figures.X2 = answer.of_fit.X2.statistic;
}

void add_test(const fit_record& fit, std::size_t k, const std::string& name, std::int32_t df,
              fit_answer& answer, bool corrected) {
  covariate_test& test = answer.tests.emplace_back();
  test.name = name;
  test.df = df;
  test.statistic = if_finite(fit.test_stat[k]);
  if (test.statistic) test.p = if_finite(fit.test_p[k]);
  test.converged = fit.test_status[k] == 0 || fit.test_status[k] == 5;
  if (test.converged) return;
  answer.warnings.push_back(
      test.statistic
          ? fmt::format("The model without \"{}\" has not converged: its test is too small or "
                        "too large. Raise --max-iter.",
                        name)
      : corrected
          ? fmt::format("\"{}\" is not tested: the model without it could not be fitted, or there "
                        "are no standard errors to correct the statistic by.",
                        name)
          : fmt::format("The model without \"{}\" could not be fitted: it is not tested.", name));
}

void add_fit_warnings(const analysis_options& options, const fit_record& fit, std::int32_t starts,
                      const report_terms& terms, fit_answer& answer) {
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
  if (const auto failed = starts - fit.run_info[2]; failed > 0)
    warn(fmt::format(
        "{} of {} starts failed.{}", failed, starts,
        fit.run_info[7] < 0 ? "" : " The last report:\n" + plain_report(fit.message, terms)));
  if (answer.best_start_hits == 1 && starts > 1)
    warn(
        "Only one start reached the best log-likelihood: it may be a local maximum. Raise "
        "--starts.");
}

}  // namespace tolvenra::cli
