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

/// The parts in which the two analyses differ.
struct class_analysis {
  static constexpr const char* model = "lca";
  static constexpr const char* latents = "classes";
  using options_type = lca_options;
  using fit_type = lca_fit;

  static lca_data prepare(const data_table& table, const lca_options& options) {
    return prepare_lca(table, options);
  }
  static lca_fit run(const lca_data& data, const lca_options& options,
                     tolvenra_progress* progress) {
    return run_lca(data, options, progress);
  }
  static lca_answer answer(const lca_data& data, const lca_options& options, const lca_fit& fit) {
    return make_lca_answer(data, options, fit);
  }
  static auto tables(const lca_data& data, const lca_options& options, const lca_answer& answer,
                     const imputation& result) {
    return lca_tables(data, options, answer, result);
  }
  static const std::vector<std::string>& printed(const lca_answer& answer) {
    return answer.class_labels;
  }
  /// Labels by the engine's number.
  static std::vector<std::string> labels(const lca_answer& answer) {
    std::vector<std::string> labels(answer.order.size());
    for (std::size_t k = 0; k < answer.order.size(); ++k)
      labels[answer.order[k]] = answer.class_labels[k];
    return labels;
  }
  static std::string title(const lca_data& data, const lca_answer& answer) {
    return fmt::format("Multiple imputation of latent classes: {}, {}",
                       counted(answer.shares.size(), "class", "classes"),
                       counted(data.items.size(), "item", "items"));
  }
  static void check(const lca_data& data, const lca_options& options) {
    if (!data.covariates.empty())
      throw input_error::of(
          "{}: models with covariates cannot be imputed; leave the covariates out.",
          options.asked_by("covariates"));
  }
};

struct status_analysis {
  static constexpr const char* model = "lta";
  static constexpr const char* latents = "statuses";
  using options_type = lta_options;
  using fit_type = lta_fit;

  static lta_data prepare(const data_table& table, const lta_options& options) {
    return prepare_lta(table, options);
  }
  static lta_fit run(const lta_data& data, const lta_options& options,
                     tolvenra_progress* progress) {
    return run_lta(data, options, progress);
  }
  static lta_answer answer(const lta_data& data, const lta_options& options, const lta_fit& fit) {
    return make_lta_answer(data, options, fit);
  }
  static auto tables(const lta_data& data, const lta_options& options, const lta_answer& answer,
                     const imputation& result) {
    return lta_tables(data, options, answer, result);
  }
  static const std::vector<std::string>& printed(const lta_answer& answer) {
    return answer.status_labels;
  }
  static std::vector<std::string> labels(const lta_answer& answer) { return answer.status_labels; }
  static std::string title(const lta_data& data, const lta_answer& answer) {
    return fmt::format("Multiple imputation of latent statuses: {}, {}, {}",
                       counted(answer.status_labels.size(), "status", "statuses"),
                       counted(data.nitem(), "item", "items"),
                       counted(data.ntime(), "time", "times"));
  }
  static void check(const lta_data& data, const lta_options& options) {
    if (!data.covariates.empty())
      throw input_error::of(
          "{}: models with covariates cannot be imputed; leave the covariates out.",
          options.asked_by(data.starting.empty() ? "covariates_transition" : "covariates_start"));
    if (!data.weight.empty())
      throw input_error::of("{}: transition models with sampling weights cannot be imputed.",
                            options.asked_by("weight"));
  }
};

void check_frequencies(const case_data& data, const analysis_options& options) {
  for (const double f : data.freq)
    if (f != std::floor(f))
      throw input_error::of(
          "{}: imputation draws every subject on its own and needs whole frequencies, not {}.",
          options.asked_by("freq"), f);
}

/// What was found, whatever the model.
struct findings {
  const char* model;
  const char* latents;
  std::string title;
  const case_data& data;
  bool start_given;
  const fit_answer& answer;
  std::vector<std::string> labels;
  std::vector<parameter_table> tables;
};

std::string report(const findings& found, const analysis_options& options,
                   const imputation_options& wanted) {
  std::string text =
      found.title + "\n\nSample\n" +
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
  return json_text({{"model", found.model},
                    {"engine", engine_json()},
                    {"data", options.file},
                    {"imputation", imputation_json(options, wanted)},
                    {"n", found.data.cases},
                    {"rows", found.data.rows},
                    {found.latents, found.labels},
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
  failure = report_failure(failed, cancelled, "");
  return std::nullopt;
}

template <class Analysis>
exit_code run(const typename Analysis::options_type& options, const imputation_options& wanted) {
  check_options(options);
  const impute_files outputs(options, wanted);
  const data_table table = read_table(options.file);
  const auto data = Analysis::prepare(table, options);
  Analysis::check(data, options);
  check_frequencies(data, options);
  std::optional<imputed_layout> layout;
  if (outputs.imputed) layout = layout_of(table, data, options);

  exit_code failure = exit_good;
  const auto fit = run_with_progress<typename Analysis::fit_type>(
      [&](tolvenra_progress* progress) { return Analysis::run(data, options, progress); }, "",
      failure);
  if (!fit) return failure;
  const auto answer = Analysis::answer(data, options, *fit);
  const auto result = run_imputation(data, options, wanted, *fit, failure);
  if (!result) return failure;
  const findings found{Analysis::model,
                       Analysis::latents,
                       Analysis::title(data, answer),
                       data,
                       data.model.start_given,
                       answer,
                       Analysis::printed(answer),
                       Analysis::tables(data, options, answer, *result)};
  std::optional<std::string> unwritten;
  try {
    if (outputs.json)
      outputs.json->write(
          [&](std::FILE* file) { fmt::print(file, "{}", document(found, options, wanted)); });
    if (layout) {
      layout->labels = Analysis::labels(answer);
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
    return run<status_analysis>(options.lta, options.wanted);
  }
  forget_overridden(impute, options.lca);
  return run<class_analysis>(options.lca, options.wanted);
}

}  // namespace tolvenra::cli
