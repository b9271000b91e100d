#include "impute_command.hpp"

#include <CLI/CLI.hpp>
#include <cmath>

#include "imputation_report.hpp"
#include "imputed_data.hpp"
#include "input_error.hpp"
#include "option_parsing.hpp"
#include "report_parts.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::int32_t most_imputations = 10'000;
constexpr std::int32_t most_cycles = 100'000;

struct impute_files {
  std::optional<output_file> json, imputed;

  impute_files(const analysis_options& options, const imputation_options& wanted) {
    if (!options.json.empty()) json.emplace(options.json, "--json");
    if (!wanted.imputed.empty()) imputed.emplace(wanted.imputed, "--imputed");
    if (json && imputed && json->same_as(wanted.imputed))
      throw input_error::of("--json and --imputed both name {}; give each a file of its own.",
                            options.json);
    for (const auto& [file, option] : {std::pair{&json, "--json"}, {&imputed, "--imputed"}})
      if (*file && options.file != "-" && (*file)->same_as(options.file))
        throw input_error::of("{} would overwrite the data in {}; give another name.", option,
                              options.file);
  }
};

/// What the engine would refuse, in the words of the options.
void check_imputable(const lca_data& data, const lca_options& options) {
  if (!data.covariates.empty())
    throw input_error::of("{}: models with covariates cannot be imputed; leave the covariates out.",
                          options.asked_by("covariates"));
  for (const double f : data.freq)
    if (f != std::floor(f))
      throw input_error::of(
          "{}: imputation draws every subject on its own and needs whole frequencies, not {}.",
          options.asked_by("freq"), f);
}

std::string report(const lca_data& data, const lca_options& options,
                   const imputation_options& wanted, const lca_answer& answer,
                   const std::vector<parameter_table>& tables) {
  std::string text =
      fmt::format("Multiple imputation of latent classes: {}, {}\n\nSample\n",
                  counted(answer.shares.size(), "class", "classes"),
                  counted(data.items.size(), "item", "items")) +
      aligned(sample_rows(data, options, {"Rows", data.rows}), 2) + '\n' +
      fmt::format("Maximum likelihood, log-likelihood {}.\n", fixed(answer.figures.loglik)) +
      search_section(options, data.model.start_given, answer) + '\n' +
      imputation_section(options, wanted);
  for (const parameter_table& table : tables)
    text += '\n' + combined_section(table, wanted.logit_intervals);
  return text;
}

std::string document(const lca_data& data, const lca_options& options,
                     const imputation_options& wanted, const lca_answer& answer,
                     const std::vector<parameter_table>& tables) {
  return json_text({{"model", "lca"},
                    {"engine", engine_json()},
                    {"data", options.file},
                    {"imputation", imputation_json(options, wanted)},
                    {"n", data.cases},
                    {"rows", data.rows},
                    {"classes", answer.class_labels},
                    {"converged", answer.converged},
                    {"loglik", answer.figures.loglik},
                    {"warnings", answer.warnings},
                    {"parameters", combined_json(tables)}});
}

/// Imputes under a progress display. Empty, and told to the user, when it failed.
std::optional<imputation> run_imputation(const lca_data& data, const lca_options& options,
                                         const imputation_options& wanted, const lca_fit& fit,
                                         exit_code& failure) {
  imputation result;
  bool cancelled = false;
  {
    progress_display progress(::isatty(STDERR_FILENO) != 0);
    result = impute(data, options, wanted, fit, progress.record());
    cancelled = progress.cancelled();
  }
  if (result.completed) return result;
  fit_record failed;
  failed.message = result.message;
  failure = report_failure(failed, cancelled, "");
  return std::nullopt;
}

}  // namespace

CLI::App* add_impute_command(CLI::App& app, lca_options& options, imputation_options& wanted) {
  CLI::App* impute =
      app.add_subcommand("impute", "Multiple imputation of latent classes and missing responses");
  add_lca_analysis(*impute, options);
  add_whole_number(*impute, "--imputations", wanted.imputations, most_imputations,
                   "Number of imputations [20]");
  impute->add_option("--burn-in", wanted.burn_in, "Cycles before the first imputation [200]")
      ->check(CLI::Range(std::int32_t{0}, most_cycles))
      ->option_text("N");
  add_whole_number(*impute, "--spacing", wanted.spacing, most_cycles,
                   "Cycles from one imputation to the next [50]");
  impute->add_flag("--logit-intervals", wanted.logit_intervals,
                   "Print intervals formed on the logit scale, which stay between 0 and 1");
  add_text(*impute, "--imputed", wanted.imputed, "Write the imputed data sets to this CSV file",
           "OUT");
  add_text(*impute, "--json", options.json, "Write everything at full precision to this file",
           "OUT");
  return impute;
}

exit_code run_impute_command(const lca_options& options, const imputation_options& wanted) {
  check_options(options);
  const impute_files outputs(options, wanted);
  const data_table table = read_table(options.file);
  const lca_data data = prepare_lca(table, options);
  check_imputable(data, options);
  if (outputs.imputed) check_imputed_names(table);

  exit_code failure = exit_good;
  const auto fit = run_with_progress<lca_fit>(
      [&](tolvenra_progress* progress) { return run_lca(data, options, progress); }, "", failure);
  if (!fit) return failure;
  const lca_answer answer = make_lca_answer(data, options, *fit);
  const auto result = run_imputation(data, options, wanted, *fit, failure);
  if (!result) return failure;
  const auto tables = lca_tables(data, options, answer, *result);
  std::optional<std::string> unwritten;
  try {
    if (outputs.json)
      outputs.json->write([&](std::FILE* file) {
        fmt::print(file, "{}", document(data, options, wanted, answer, tables));
      });
    if (outputs.imputed)
      outputs.imputed->write(
          [&](std::FILE* file) { write_imputed(table, data, options, answer, *result, file); });
  } catch (const output_error& error) {
    unwritten = error.what();
  }
  print_all(stdout, report(data, options, wanted, answer, tables));
  if (unwritten) throw output_error(*unwritten);
  return answer.converged ? exit_good : exit_not_converged;
}

}  // namespace tolvenra::cli
