#include "lta_command.hpp"

#include "lta_json.hpp"
#include "lta_model_file.hpp"
#include "lta_posteriors.hpp"
#include "lta_report.hpp"
#include "patterns.hpp"

namespace tolvenra::cli {
exit_code run_lta_command(const lta_options& options) {
  check_options(options);
  if (options.print_model) {
    const data_table table = read_table(options.file);
    print_all(stdout, model_text(prepare_lta(table, options), options));
    return exit_good;
  }
  const output_files outputs(options);
  const data_table table = read_table(options.file);
  const lta_data data = prepare_lta(table, options);
  if (outputs.posteriors) check_posterior_names(table, data, options);
  if (outputs.patterns) check_pattern_names(data);

  exit_code failure = exit_good;
  const auto fit = run_with_progress<lta_fit>(
      [&](tolvenra_progress* progress) { return run_lta(data, options, progress); },
      report_terms_of(data, options), failure);
  if (!fit) return failure;
  const lta_answer answer = make_lta_answer(data, options, *fit);
  write_results(
      outputs, lta_report(data, options, answer), [&] { return lta_json(data, options, answer); },
      [&](std::FILE* file) { write_posteriors(table, data, options, *fit, answer, file); },
      [&](std::FILE* file) { write_patterns(data, *fit, file); });
  return answer.converged ? exit_good : exit_not_converged;
}

}  // namespace tolvenra::cli
