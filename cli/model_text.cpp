#include <fmt/format.h>

#include "model_file.hpp"
#include "model_writer.hpp"

namespace tolvenra::cli {

std::string model_text(const lca_data& data, const lca_options& options) {
  const lca_model& model = data.model;
  model_writer writer("# Latent class analysis: tolvenra lca --model THIS_FILE\n", options);
  writer.write_data();
  writer.line_if("cluster", options.cluster);
  writer.begin("model");
  std::vector<std::string> items, covariates;
  std::vector<const categories*> columns;
  for (const categories& item : data.items) items.push_back(item.name);
  for (const categories& item : data.items) columns.push_back(&item);
  for (const covariate& column : data.covariates) covariates.push_back(column.name);
  if (data.group) columns.push_back(&*data.group);
  writer.line("items", toml_quoted(items));
  writer.line("classes", model_writer::latents_text(model.class_names, options.classes));
  if (options.invariant) writer.line("invariant", "true");
  if (!covariates.empty()) {
    writer.line("covariates", toml_quoted(covariates));
    writer.line(model.binary ? "binary" : "reference",
                model_writer::latent_text(model.class_names,
                                          model.binary ? model.compared : model.reference));
  }
  writer.write_categories(columns);
  writer.write_restrictions(model);
  writer.write_priors(
      {{"rho", options.prior_rho}, {"gamma", options.prior_gamma}, {"beta", options.prior_beta}});
  writer.write_settings(model);
  return std::move(writer.text);
}

}  // namespace tolvenra::cli
