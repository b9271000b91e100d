#include "lca_command.hpp"

#include "json_output.hpp"
#include "model_file.hpp"
#include "patterns.hpp"
#include "posteriors.hpp"
#include "report.hpp"

namespace tolvenra::cli {
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

  exit_code failure = exit_good;
  const auto fit = run_with_progress<lca_fit>(
      [&](tolvenra_progress* progress) { return run_lca(data, options, progress); },
      report_terms_of(data, options), failure);
  if (!fit) return failure;
  const lca_answer answer = make_lca_answer(data, options, *fit);
  write_results(
      outputs, lca_report(data, options, answer), [&] { return lca_json(data, options, answer); },
      [&](std::FILE* file) { write_posteriors(table, *fit, answer, file); },
      [&](std::FILE* file) { write_patterns(data, *fit, file); });
  return answer.converged ? exit_good : exit_not_converged;
}

}  // namespace tolvenra::cli
