/// \file analysis_command.hpp  From options to exit code: what all subcommands share.
#pragma once

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>

#include "analysis_options.hpp"
#include "fit_record.hpp"
#include "output_file.hpp"
#include "plain_report.hpp"
#include "progress.hpp"

namespace tolvenra::cli {

enum exit_code : int {
  exit_good = 0,
  exit_analysis_failed = 1,
  exit_bad_input = 2,
  exit_not_converged = 3,
  exit_cancelled = 130
};

/// The files to write, known to be writable before the analysis begins.
struct output_files {
  std::optional<output_file> json, posteriors, patterns;

  explicit output_files(const analysis_options& options);

 private:
  void refuse_shared(const analysis_options& options) const;
};

/// Writes to standard output. Throws output_error.
void print_all(std::FILE* file, const std::string& text);

/// Says why there is no fit.
exit_code report_failure(const fit_record& fit, bool cancelled, const report_terms& terms);

/// Runs the engine under a progress display. Empty, and told to the user, when it failed; then
/// `failure` says how to leave.
template <class Fit, class Run>
std::optional<Fit> run_with_progress(Run&& run, const report_terms& terms, exit_code& failure) {
  bool cancelled = false;
  Fit fit;
  {
    progress_display progress(::isatty(STDERR_FILENO) != 0);
    fit = run(progress.record());
    cancelled = progress.cancelled();
  }
  if (fit.completed && !cancelled) return fit;
  failure = report_failure(fit, cancelled, terms);
  return std::nullopt;
}

/// Writes the files that are asked for, then prints the report: a file that cannot be written must
/// not cost the user the report, nor a closed pipe the files.
template <class Json, class Posteriors, class Patterns>
void write_results(const output_files& outputs, const std::string& report, Json&& json,
                   Posteriors&& posteriors, Patterns&& patterns) {
  std::optional<std::string> unwritten;
  try {
    if (outputs.json) outputs.json->write([&](std::FILE* file) { fmt::print(file, "{}", json()); });
    if (outputs.posteriors) outputs.posteriors->write(posteriors);
    if (outputs.patterns) outputs.patterns->write(patterns);
  } catch (const output_error& error) {
    unwritten = error.what();
  }
  print_all(stdout, report);
  if (unwritten) throw output_error(*unwritten);
}

}  // namespace tolvenra::cli
