#include "lca_command.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>

#include "input_error.hpp"
#include "json_output.hpp"
#include "model_file.hpp"
#include "output_file.hpp"
#include "patterns.hpp"
#include "posteriors.hpp"
#include "progress.hpp"
#include "report.hpp"

namespace tolvenra::cli {
namespace {

/// The files to write, known to be writable before the analysis begins.
struct output_files {
  std::optional<output_file> json, posteriors, patterns;

  explicit output_files(const lca_options& options) {
    if (!options.json.empty()) json.emplace(options.json, "--json");
    if (!options.posteriors.empty()) posteriors.emplace(options.posteriors, "--posteriors");
    if (!options.patterns.empty()) patterns.emplace(options.patterns, "--patterns");
    refuse_shared(options);
  }

 private:
  void refuse_shared(const lca_options& options) const {
    const struct {
      const std::optional<output_file>& file;
      const std::string& path;
      const char* option;
    } all[] = {{json, options.json, "--json"},
               {posteriors, options.posteriors, "--posteriors"},
               {patterns, options.patterns, "--patterns"}};
    for (const auto& one : all) {
      for (const auto* other = &one + 1; other != std::end(all); ++other)
        if (one.file && other->file && one.file->same_as(other->path))
          throw input_error::of("{} and {} both name {}; give each a file of its own.", one.option,
                                other->option, one.path);
      if (one.file && options.file != "-" && one.file->same_as(options.file))
        throw input_error::of("{} would overwrite the data in {}; give another name.", one.option,
                              options.file);
    }
  }
};

void print_all(std::FILE* file, const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), file) != text.size() || std::fflush(file) != 0)
    throw output_error("The results could not be written to standard output.");
}

constexpr const char* regression_hint =
    "Some covariates may follow from the others, or tell a class apart without error: leave these "
    "out or give a prior (--prior-beta 1).\n";

bool regression_failed(const lca_fit& fit) {
  return std::any_of(fit.starts.begin(), fit.starts.end(),
                     [](const lca_start& start) { return start.status == -1; });
}

/// Writes what is asked for; the text of a failure.
std::optional<std::string> write_files(const output_files& outputs, const data_table& table,
                                       const lca_data& data, const lca_options& options,
                                       const lca_fit& fit, const lca_answer& answer) {
  try {
    if (outputs.json)
      outputs.json->write(
          [&](std::FILE* file) { fmt::print(file, "{}", lca_json(data, options, answer)); });
    if (outputs.posteriors)
      outputs.posteriors->write(
          [&](std::FILE* file) { write_posteriors(table, fit, answer, file); });
    if (outputs.patterns)
      outputs.patterns->write([&](std::FILE* file) { write_patterns(data, fit, file); });
  } catch (const output_error& error) {
    return error.what();
  }
  return std::nullopt;
}

}  // namespace

exit_code run_lca_command(const lca_options& options) {
  check_options(options);
  if (options.print_model) {
    const data_table table = read_table(options.file);
    print_all(stdout, model_text(prepare_lca(table, options), options));
    return exit_good;
  }
  const output_files outputs(options);
  const data_table table = read_table(options.file);
  const lca_data data = prepare_lca(table, options);
  if (outputs.posteriors) check_posterior_names(table, options.classes);
  if (outputs.patterns) check_pattern_names(data);

  lca_fit fit;
  {
    progress_display progress(::isatty(STDERR_FILENO) != 0);
    fit = run_lca(data, options, progress.record());
    if (!fit.completed && progress.cancelled()) {
      fmt::print(stderr, "\ntolvenra: cancelled.\n");
      return exit_cancelled;
    }
  }
  if (!fit.completed) {
    fmt::print(stderr, "tolvenra: the analysis failed.\n{}\n{}", fit.message,
               regression_failed(fit) ? regression_hint : "");
    return exit_analysis_failed;
  }
  const lca_answer answer = make_lca_answer(data, options, fit);
  // A file that cannot be written must not cost the user the report, nor a closed pipe the files.
  const auto unwritten = write_files(outputs, table, data, options, fit, answer);
  print_all(stdout, lca_report(data, options, answer));
  if (unwritten) throw output_error(*unwritten);
  return answer.converged ? exit_good : exit_not_converged;
}

}  // namespace tolvenra::cli
