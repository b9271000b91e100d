#include "analysis_command.hpp"

#include <fmt/format.h>

#include <iterator>

#include "input_error.hpp"

namespace tolvenra::cli {

output_files::output_files(const analysis_options& options) {
  if (!options.json.empty()) json.emplace(options.json, "--json");
  if (!options.posteriors.empty()) posteriors.emplace(options.posteriors, "--posteriors");
  if (!options.patterns.empty()) patterns.emplace(options.patterns, "--patterns");
  refuse_shared(options);
}

void output_files::refuse_shared(const analysis_options& options) const {
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

void print_all(std::FILE* file, const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), file) != text.size() || std::fflush(file) != 0)
    throw output_error("The results could not be written to standard output.");
}

exit_code report_failure(const fit_record& fit, bool cancelled, const report_terms& terms) {
  if (cancelled) {
    fmt::print(stderr, "\ntolvenra: cancelled.\n");
    return exit_cancelled;
  }
  fmt::print(stderr, "tolvenra: the analysis failed.\n{}\n", plain_report(fit.message, terms));
  return exit_analysis_failed;
}

}  // namespace tolvenra::cli
