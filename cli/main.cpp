#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "impute_command.hpp"
#include "input_error.hpp"
#include "lca_command.hpp"
#include "lta_command.hpp"
#include "lta_model_file.hpp"
#include "model_file.hpp"
#include "output_file.hpp"

namespace tolvenra::cli {
namespace {

std::string version_text() {
  return fmt::format("tolvenra {} (interface {})", TOLVENRA_VERSION,
                     fmt::join(interface_version, "."));
}

exit_code run(int argc, char** argv) {
  CLI::App app("Latent class and latent transition analysis of data files", "tolvenra");
  lca_options lca;
  CLI::App* lca_command = add_lca_command(app, lca);
  lta_options lta;
  CLI::App* lta_command = add_lta_command(app, lta);
  impute_options imputed;
  imputed.statuses = asks_for_statuses(argc, argv);
  CLI::App* impute_command = add_impute_command(app, imputed);
  app.set_version_flag("--version", version_text, "Print the version");
  app.require_subcommand(1);
  try {
    app.parse(argc, argv);
    const bool from_file = read_impute_model(imputed) || !lca.model.empty() || !lta.model.empty();
    if (!lca.model.empty()) lca = read_model_file(lca.model);
    if (!lta.model.empty()) lta = read_lta_model_file(lta.model);
    if (from_file) app.parse(argc, argv);  // once more: the command line comes before the file
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exit_good : exit_bad_input;
  }
  if (!engine_matches()) {
    fmt::print(stderr, "tolvenra: the engine library that was found does not offer interface {}.\n",
               fmt::join(interface_version, "."));
    return exit_analysis_failed;
  }
  if (impute_command->parsed()) return run_impute_command(*impute_command, imputed);
  forget_overridden(*lca_command, lca);
  forget_overridden(*lta_command, lta);
  if (lta_command->parsed()) return run_lta_command(lta);
  return lca_command->parsed() ? run_lca_command(lca) : exit_bad_input;
}

exit_code complain(const std::string& text, exit_code code) {
  fmt::print(stderr, "tolvenra: {}\n", text);
  return code;
}

}  // namespace
}  // namespace tolvenra::cli

int main(int argc, char** argv) {
  using namespace tolvenra::cli;
  try {
    return run(argc, argv);
  } catch (const input_error& error) {
    return complain(error.what(), exit_bad_input);
  } catch (const output_error& error) {
    return complain(error.what(), exit_analysis_failed);
  } catch (const std::bad_alloc&) {
    return complain("there is not enough memory for this analysis.", exit_analysis_failed);
  } catch (const std::exception& error) {
    return complain(error.what(), exit_analysis_failed);
  }
}
