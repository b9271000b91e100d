#include "model_file.hpp"

#include "model_reader.hpp"

namespace tolvenra::cli {

lca_options parse_model(std::string_view text, const std::string& source) {
  return parse_document(text, source, [&](const toml::table& document) {
    lca_options options;
    const model_reader reader(document, source, options);
    reader.check_sections();
    reader.read_data({{"cluster", &options.cluster}});
    const section model(document, source, "model",
                        {"items", "classes", "invariant", "covariates", "reference", "binary"});
    model.texts("items", "a list of columns such as [\"A\", \"q1-q12\"]", options, options.items);
    reader.read_latent(model, "classes", "class", options.classes, options.class_names);
    model.flag("invariant", options, options.invariant);
    model.texts("covariates", "a list of columns such as [\"age\", \"x1-x3\"]", options,
                options.covariates);
    model.text("reference", "the number or name of a class", options, options.reference);
    model.text("binary", "the number or name of a class", options, options.binary);
    reader.read_categories();
    reader.read_restrictions();
    reader.read_priors({{"rho", &options.prior_rho},
                        {"gamma", &options.prior_gamma},
                        {"beta", &options.prior_beta}});
    reader.read_estimation();
    reader.read_start();
    return options;
  });
}

lca_options read_model_file(const std::string& path) {
  return parse_model(read_model_text(path), path);
}

}  // namespace tolvenra::cli
