#include <fmt/ranges.h>

#include "input_error.hpp"
#include "model_file.hpp"
#include "utf8.hpp"

namespace tolvenra::cli {
namespace {

/// A TOML text in double quotes.
std::string quoted(const std::string& text) {
  if (first_invalid_utf8(text) != std::string::npos)
    throw input_error::of("--print-model: \"{}\" is not UTF-8 text, which a model file has to be.",
                          text);
  std::string result = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      result += {'\\', c};
    } else if (byte < 0x20 || byte == 0x7f) {
      result += fmt::format("\\u{:04x}", byte);
    } else {
      result += c;
    }
  }
  return result + '"';
}

std::string quoted(const std::vector<std::string>& texts) {
  std::vector<std::string> parts;
  for (const std::string& text : texts) parts.push_back(quoted(text));
  return fmt::format("[{}]", fmt::join(parts, ", "));
}

class model_writer {
 public:
  model_writer(const lca_data& data, const lca_options& options)
      : data_(data), model_(data.model), options_(options) {}

  std::string write() {
    text_ = "# Latent class analysis: tolvenra lca --model THIS_FILE\n";
    write_data();
    write_model();
    write_categories();
    write_restrictions();
    write_settings();
    if (model_.start_given) write_values("start", model_.start);
    return std::move(text_);
  }

 private:
  void begin(const char* name) { text_ += fmt::format("\n[{}]\n", name); }

  void line(const std::string& key, const std::string& value) {
    text_ += fmt::format("{} = {}\n", key, value);
  }

  void write_data() {
    begin("data");
    line("file", quoted(options_.file));
    for (const auto& [key, column] : {std::pair{"freq", &options_.freq},
                                      {"weight", &options_.weight},
                                      {"group", &options_.group}})
      if (!column->empty()) line(key, quoted(*column));
    if (!options_.na.empty()) line("na", quoted(options_.na));
  }

  [[nodiscard]] std::string class_text(std::size_t c) const {
    return model_.class_names.empty() ? fmt::format("{}", c + 1) : quoted(model_.class_names[c]);
  }

  void write_model() {
    begin("model");
    std::vector<std::string> items, covariates;
    for (const categories& item : data_.items) items.push_back(item.name);
    for (const covariate& column : data_.covariates) covariates.push_back(column.name);
    line("items", quoted(items));
    line("classes", model_.class_names.empty() ? fmt::format("{}", options_.classes)
                                               : quoted(model_.class_names));
    if (options_.invariant) line("invariant", "true");
    if (covariates.empty()) return;
    line("covariates", quoted(covariates));
    if (model_.binary) {
      line("binary", class_text(model_.compared));
    } else {
      line("reference", class_text(model_.reference));
    }
  }

  void write_categories() {
    begin("categories");
    for (const categories& item : data_.items) line(quoted(item.name), quoted(item.labels));
    if (data_.group) line(quoted(data_.group->name), quoted(data_.group->labels));
  }

  void write_values(const char* name, const std::vector<std::pair<std::string, double>>& values) {
    begin(name);
    for (const auto& [parameter, value] : values) line(quoted(parameter), fmt::format("{}", value));
  }

  void write_restrictions() {
    if (!model_.equal.empty()) {
      begin("restrictions");
      text_ += "equal = [\n";
      for (const auto& set : model_.equal) text_ += "  " + quoted(set) + ",\n";
      text_ += "]\n";
    }
    if (!model_.fix.empty()) write_values("restrictions.fix", model_.fix);
  }

  void write_settings() {
    if (options_.prior_rho + options_.prior_gamma + options_.prior_beta > 0.0) begin("prior");
    for (const auto& [key, strength] : {std::pair{"rho", options_.prior_rho},
                                        {"gamma", options_.prior_gamma},
                                        {"beta", options_.prior_beta}})
      if (strength > 0.0) line(key, fmt::format("{}", strength));
    begin("estimation");
    if (!model_.start_given) line("starts", fmt::format("{}", options_.starts));
    line("seed", fmt::format("{}", options_.seed));
    line("criterion", fmt::format("{}", options_.criterion));
    line("max_iter", fmt::format("{}", options_.max_iter));
  }

  const lca_data& data_;
  const lca_model& model_;
  const lca_options& options_;
  std::string text_;
};

}  // namespace

std::string model_text(const lca_data& data, const lca_options& options) {
  return model_writer(data, options).write();
}

}  // namespace tolvenra::cli
