#include "lta_model_file.hpp"

#include "model_reader.hpp"
#include "model_writer.hpp"

namespace tolvenra::cli {

lta_options parse_lta_model(std::string_view text, const std::string& source) {
  return parse_document(text, source, [&](const toml::table& document) {
    lta_options options;
    const model_reader reader(document, source, options);
    reader.check_sections();
    reader.read_data({{"id", &options.id}, {"time", &options.time}, {"pattern", &options.pattern}});
    const section model(document, source, "model",
                        {"items", "times", "statuses", "invariant", "covariates_start",
                         "covariates_transition", "reference", "binary"});
    constexpr const char* columns = "a list of columns such as [\"age\", \"x1-x3\"]";
    model.texts("items", "a list such as [\"1: a1, b1\", \"2: a2, b2\"] or [\"a\", \"b\"]", options,
                options.items);
    model.texts("times", "a list of times such as [1, 2, 3]", options, options.times);
    reader.read_latent(model, "statuses", "status", options.statuses, options.status_names);
    model.texts("invariant", "a list of \"time\" and \"group\"", options, options.invariant);
    model.texts("covariates_start", columns, options, options.covariates_start);
    model.texts("covariates_transition", columns, options, options.covariates_transition);
    model.text("reference", "the number or name of a status", options, options.reference);
    model.text("binary", "the number or name of a status", options, options.binary);
    reader.read_categories();
    reader.read_restrictions();
    reader.read_priors({{"strength", &options.prior_strength}});
    reader.read_estimation();
    reader.read_start();
    return options;
  });
}

lta_options read_lta_model_file(const std::string& path) {
  return parse_lta_model(read_model_text(path), path);
}

std::string model_text(const lta_data& data, const lta_options& options) {
  const lta_model& model = data.model;
  model_writer writer("# Latent transition analysis: tolvenra lta --model THIS_FILE\n", options);
  writer.write_data();
  writer.line_if("id", options.id);
  writer.line_if("time", options.time);
  writer.line_if("pattern", options.pattern);
  writer.begin("model");
  writer.line("items", toml_quoted(options.items));
  if (options.is_long() || !options.pattern.empty()) writer.line("times", toml_quoted(data.times));
  writer.line("statuses", model_writer::latents_text(model.status_names, options.statuses));
  for (const auto& [key, list] : {std::pair{"invariant", &options.invariant},
                                  {"covariates_start", &options.covariates_start},
                                  {"covariates_transition", &options.covariates_transition}})
    if (!list->empty()) writer.line(key, toml_quoted(*list));
  if (model.binary) {
    writer.line("binary", model_writer::latent_text(model.status_names, model.compared));
  } else if (!options.reference.empty()) {
    writer.line("reference", model_writer::latent_text(model.status_names, model.reference));
  }
  std::vector<const categories*> columns;
  for (const categories& item : data.item_labels) columns.push_back(&item);
  if (data.group) columns.push_back(&*data.group);
  writer.write_categories(columns);
  writer.write_restrictions(model);
  writer.write_priors({{"strength", options.prior_strength}});
  writer.write_settings(model);
  return std::move(writer.text);
}

}  // namespace tolvenra::cli
