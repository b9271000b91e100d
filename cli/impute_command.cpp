#include "impute_command.hpp"

#include <cmath>

#include "imputation_report.hpp"
#include "imputed_data.hpp"
#include "input_error.hpp"
#include "report_parts.hpp"

namespace tolvenra::cli {
namespace {

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

/// How the results speak of a model.
struct wording {
  const char* model;
  const char* latents;
  std::string title;
  std::vector<std::string> printed;    ///< classes or statuses in the order of print
  std::vector<std::string> by_number;  ///< the same in the engine's order
};

wording wording_of(const lca_data& data, const lca_answer& answer) {
  std::vector<std::string> by_number(answer.order.size());
  for (std::size_t k = 0; k < answer.order.size(); ++k)
    by_number[answer.order[k]] = answer.class_labels[k];
  return {"lca", "classes",
          fmt::format("Multiple imputation of latent classes: {}, {}",
                      counted(answer.shares.size(), "class", "classes"),
                      counted(data.items.size(), "item", "items")),
          answer.class_labels, by_number};
}

wording wording_of(const lta_data& data, const lta_answer& answer) {
  const std::vector<std::string>& labels = answer.status_labels;
  return {
      "lta", "statuses",
      fmt::format("Multiple imputation of latent statuses: {}, {}, {}",
                  counted(labels.size(), "status", "statuses"),
                  counted(data.nitem(), "item", "items"), counted(data.ntime(), "time", "times")),
      labels, labels};
}

/// What the engine would refuse, in the words of the options.
void refuse_covariates(const case_data& data, const analysis_options& options, const char* key) {
  if (!data.covariates.empty())
    throw input_error::of("{}: models with covariates cannot be imputed; leave the covariates out.",
                          options.asked_by(key));
}

void check_model(const lca_data& data, const lca_options& options) {
  refuse_covariates(data, options, "covariates");
}

void check_model(const lta_data& data, const lta_options& options) {
  refuse_covariates(data, options,
                    data.starting.empty() ? "covariates_transition" : "covariates_start");
  if (!data.weight.empty())
    throw input_error::of("{}: transition models with sampling weights cannot be imputed.",
                          options.asked_by("weight"));
}

void check_frequencies(const case_data& data, const analysis_options& options) {
  for (const double f : data.freq)
    if (f != std::floor(f))
      throw input_error::of(
          "{}: imputation draws every subject on its own and needs whole frequencies, not {}.",
          options.asked_by("freq"), f);
}

/// What was found, whatever the model.
struct findings {
  wording words;
  const case_data& data;
  bool start_given;
  const fit_answer& answer;
  std::vector<parameter_table> tables;
};

std::string report(const findings& found, const analysis_options& options,
                   const imputation_options& wanted) {
  std::string text =
      found.words.title + "\n\nSample\n" +
      aligned(sample_rows(found.data, options, {"Rows", found.data.rows}), 2) + '\n' +
      fmt::format("Maximum likelihood, log-likelihood {}.\n", fixed(found.answer.figures.loglik)) +
      search_section(options, found.start_given, found.answer) + '\n' +
      imputation_section(options, wanted);
  for (const parameter_table& table : found.tables)
    text += '\n' + combined_section(table, wanted.logit_intervals);
  return text;
}

std::string document(const findings& found, const analysis_options& options,
                     const imputation_options& wanted) {
  return json_text({{"model", found.words.model},
                    {"engine", engine_json()},
                    {"data", options.file},
                    {"imputation", imputation_json(options, wanted)},
                    {"n", found.data.cases},
                    {"rows", found.data.rows},
                    {found.words.latents, found.words.printed},
                    {"converged", found.answer.converged},
                    {"loglik", found.answer.figures.loglik},
                    {"warnings", found.answer.warnings},
                    {"parameters", combined_json(found.tables)}});
}

/// Imputes under a progress display. Empty, and told to the user, when it failed.
template <class Data, class Options, class Fit>
std::optional<imputation> run_imputation(const Data& data, const Options& options,
                                         const imputation_options& wanted, const Fit& fit,
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
  failure = report_failure(failed, cancelled, {});
  return std::nullopt;
}

/// \param prepare  table to data. \param run  data to fit. \param make_answer  fit to answer
/// \param make_tables  what is printed of the parameters
template <class Options, class Prepare, class Run, class Answer, class Tables>
exit_code run_analysis(const Options& options, const imputation_options& wanted, Prepare&& prepare,
                       Run&& run, Answer&& make_answer, Tables&& make_tables) {
  check_options(options);
  const impute_files outputs(options, wanted);
  const data_table table = read_table(options.file);
  const auto data = prepare(table, options);
  check_model(data, options);
  check_frequencies(data, options);
  std::optional<imputed_layout> layout;
  if (outputs.imputed) layout = layout_of(table, data, options);

  exit_code failure = exit_good;
  const auto fit = run_with_progress<decltype(run(data, options, nullptr))>(
      [&](tolvenra_progress* progress) { return run(data, options, progress); }, {}, failure);
  if (!fit) return failure;
  const auto answer = make_answer(data, options, *fit);
  const auto result = run_imputation(data, options, wanted, *fit, failure);
  if (!result) return failure;
  const findings found{wording_of(data, answer), data, data.model.start_given, answer,
                       make_tables(data, options, answer, *result)};
  std::optional<std::string> unwritten;
  try {
    if (outputs.json)
      outputs.json->write(
          [&](std::FILE* file) { fmt::print(file, "{}", document(found, options, wanted)); });
    if (layout) {
      layout->labels = found.words.by_number;
      outputs.imputed->write(
          [&](std::FILE* file) { write_imputed(table, *layout, data, *result, file); });
    }
  } catch (const output_error& error) {
    unwritten = error.what();
  }
  print_all(stdout, report(found, options, wanted));
  if (unwritten) throw output_error(*unwritten);
  return answer.converged ? exit_good : exit_not_converged;
}

}  // namespace

exit_code run_impute_command(const CLI::App& impute, impute_options& options) {
  if (options.statuses) {
    forget_overridden(impute, options.lta);
    return run_analysis(options.lta, options.wanted, prepare_lta, run_lta, make_lta_answer,
                        lta_tables);
  }
  forget_overridden(impute, options.lca);
  if (!options.lca.cluster.empty())
    throw input_error::of("{}: imputation takes no account of clusters; leave it out.",
                          options.lca.asked_by("cluster"));
  options.lca.se = false;  // Rubin's rules give those of the report
  return run_analysis(options.lca, options.wanted, prepare_lca, run_lca, make_lca_answer,
                      lca_tables);
}

}  // namespace tolvenra::cli
