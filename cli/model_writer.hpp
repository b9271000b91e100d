/// \file model_writer.hpp  What the model files of all analyses have in common, written.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "case_data.hpp"
#include "parameter_model.hpp"

namespace tolvenra::cli {

/// A TOML text in double quotes. Throws input_error for a text that is not UTF-8.
std::string toml_quoted(const std::string& text);
std::string toml_quoted(const std::vector<std::string>& texts);

class model_writer {
 public:
  model_writer(const char* title, const analysis_options& options)
      : text(title), options_(options) {}

  void begin(const char* name);
  void line(const std::string& key, const std::string& value);
  /// A line for a text that is not empty.
  void line_if(const std::string& key, const std::string& value);
  /// [data] with its columns.
  void write_data();
  void write_categories(const std::vector<const categories*>& columns);
  void write_restrictions(const stated_parameters& stated);
  void write_priors(const std::vector<std::pair<const char*, double>>& strengths);
  /// The settings of the search, and the starting values.
  void write_settings(const stated_parameters& stated);
  /// `class 2` by number, or its name in quotes.
  static std::string latent_text(const std::vector<std::string>& names, std::size_t at);
  /// The number of classes, or their names.
  static std::string latents_text(const std::vector<std::string>& names, std::int32_t number);

  std::string text;

 private:
  void write_values(const char* name, const std::vector<std::pair<std::string, double>>& values);

  const analysis_options& options_;
};

}  // namespace tolvenra::cli
