#include "lca_model.hpp"

namespace tolvenra::cli {
namespace {

using kind = parameter_axis::kind;

std::vector<std::string> names_of(const std::vector<covariate>& covariates) {
  std::vector<std::string> names;
  for (const covariate& column : covariates) names.push_back(column.name);
  return names;
}

/// What may be said of gamma, rho and beta, once the model knows its reference.
std::vector<family_rules> rules_of(const case_data& data, const lca_model& model,
                                   std::size_t classes) {
  family_rules gamma, rho, beta;
  if (!data.covariates.empty()) {
    gamma.no_restriction =
        "with covariates the class shares follow from the coefficients and cannot be restricted.";
    gamma.no_start =
        "with covariates the class shares follow from the coefficients; start from "
        "beta[intercept, ...] instead.";
  }
  rho.start_required =
      "a start needs every item in every class (the last category may be left out).";
  beta.no_restriction = "coefficients cannot be restricted; rho and gamma can.";
  if (data.covariates.empty()) beta.no_start = "there are none";
  const std::size_t coefficients = data.covariates.size() + 1;
  beta.no_start_at = [=, &model](std::size_t at) -> std::string {
    const std::size_t c = at / coefficients % classes;
    if (model.binary ? c == model.compared : c != model.reference) return {};
    return std::string(model.binary
                           ? "a class that is not the one of `binary` belongs to the others"
                           : "the reference class is what the others are compared with") +
           " and has no coefficients to start from.";
  };
  return {gamma, rho, beta};
}

}  // namespace

parameter_space lca_parameters(const case_data& data, const lca_options& options) {
  const std::size_t items = data.items.size(), groups = data.groups();
  const auto classes = static_cast<std::size_t>(options.classes);
  const auto categories_each = static_cast<std::size_t>(most_categories_of(data));
  const std::size_t coefficients = data.covariates.size() + 1;
  const auto latent = [&](std::size_t stride) {
    return parameter_axis{kind::latent, classes, stride, options.class_names};
  };
  parameter_family gamma{"gamma", {latent(1)}, classes * groups, 0, {}, {}};
  parameter_family rho{"rho", {}, items * classes * categories_each * groups, 1, {}, {}};
  std::vector<std::string> names;
  std::vector<const categories*> columns;
  for (const categories& item : data.items) {
    names.push_back(item.name);
    columns.push_back(&item);
  }
  rho.axes = {{kind::item, items, 1, names},
              {kind::category, categories_each, items * classes, {}},
              latent(items)};
  parameter_family beta{"beta", {}, coefficients * classes * groups, std::nullopt, {}, {}};
  beta.axes = {{kind::coefficient, coefficients, 1, names_of(data.covariates)},
               latent(coefficients)};
  for (parameter_family* family : {&gamma, &rho, &beta}) {
    const std::size_t stride = family->size / groups;
    family->no_group = "indices, but there are no groups";
    if (!data.group) continue;
    if (family == &rho && options.invariant) {
      family->shared = {{groups, stride}};
      family->no_group = "indices, but the groups share rho, so that no group can be named";
    } else {
      family->axes.push_back({kind::group, groups, stride, data.group->labels});
    }
  }
  return {{gamma, rho, beta},
          columns,
          "class",
          "classes",
          "rho[item, category, class], gamma[class] or beta[covariate, class], with the group as a "
          "last index where there are groups"};
}

lca_model make_lca_model(const case_data& data, const lca_options& options) {
  const parameter_space space = lca_parameters(data, options);
  lca_model model;
  model.class_names = options.class_names;
  const auto chosen = [&](const std::string& text, const char* key) {
    return text.empty() ? 0 : space.find_latent({text, options.asked_by(key)});
  };
  model.reference = chosen(options.reference, "reference");
  model.binary = !options.binary.empty();
  model.compared = chosen(options.binary, "binary");
  parameter_model made = make_parameter_model(
      space, rules_of(data, model, static_cast<std::size_t>(options.classes)), options);
  static_cast<stated_parameters&>(model) = std::move(made.stated);
  model.gamma = std::move(made.families[0].value);
  model.gamma_code = std::move(made.families[0].code);
  model.rho = std::move(made.families[1].value);
  model.rho_code = std::move(made.families[1].code);
  if (model.start_given && !data.covariates.empty()) model.beta = std::move(made.families[2].value);
  return model;
}

}  // namespace tolvenra::cli
