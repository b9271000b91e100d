/// \file model_reader.hpp  What the model files of all analyses have in common (TOML).
#pragma once

#include <toml++/toml.h>

#include <cmath>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "analysis_options.hpp"

namespace tolvenra::cli {

/// One table of the file; asks for its keys and notes where they stand. Throws input_error, which
/// names line, key and what was expected.
class section {
 public:
  /// \param keys  that the table may have; empty for any
  section(const toml::table& document, const std::string& source, std::string name,
          const std::vector<std::string>& keys);

  static std::string place(const std::string& source, const toml::node& node);

  [[nodiscard]] const toml::node* find(std::string_view key) const {
    return table_ == nullptr ? nullptr : table_->get(key);
  }

  [[nodiscard]] std::string where(const toml::node& node, std::string_view key) const;

  [[noreturn]] void refuse(const toml::node& node, std::string_view key,
                           std::string_view wanted) const;

  /// Calls take(node) when the key is there; what take refuses, should have been `wanted`.
  template <class Take>
  void with(std::string_view key, std::string_view wanted, analysis_options& options,
            Take&& take) const {
    const toml::node* node = find(key);
    if (node == nullptr) return;
    if (!take(*node)) refuse(*node, key, wanted);
    options.where[std::string(key)] = where(*node, key);
  }

  void text(std::string_view key, std::string_view wanted, analysis_options& options,
            std::string& value) const;
  void texts(std::string_view key, std::string_view wanted, analysis_options& options,
             std::vector<std::string>& value) const;
  void flag(std::string_view key, analysis_options& options, bool& value) const;
  /// From 1 to `most`.
  void whole(std::string_view key, std::int32_t most, analysis_options& options,
             std::int32_t& value) const;
  /// Above 0, or, where `zero` is allowed, from 0 on.
  void number(std::string_view key, bool zero, analysis_options& options, double& value) const;

  /// A text stands for a list of one.
  static bool read_texts(const toml::node& node, std::vector<std::string>& value);

  /// Names with values: parameters to fix or to start from.
  static void read_values(const toml::node& node, const std::string& source,
                          const std::string& name, std::vector<located_value>& values);

  template <class Visit>
  void each(Visit&& visit) const {
    if (table_ == nullptr) return;
    for (const auto& [key, value] : *table_) visit(std::string(key.str()), value);
  }

 private:
  const std::string& source_;
  std::string name_;
  const toml::table* table_ = nullptr;
};

/// Reads the tables that mean the same in every analysis.
class model_reader {
 public:
  model_reader(const toml::table& document, const std::string& source, analysis_options& options)
      : document_(document), source_(source), options_(options) {}

  /// Throws input_error for a table that no model file has.
  void check_sections() const;
  /// [data]. \param more  further keys with the texts that they hold
  void read_data(const std::vector<std::pair<const char*, std::string*>>& more) const;
  void read_categories() const;
  void read_restrictions() const;
  /// [prior]: strengths by key, kept as prior_key.
  void read_priors(const std::vector<std::pair<const char*, double*>>& strengths) const;
  void read_estimation() const;
  void read_start() const;
  /// A number of classes or statuses, or a list of their names. \param one  what it is called
  void read_latent(const section& model, const char* key, const char* one, std::int32_t& number,
                   std::vector<std::string>& names) const;

 private:
  void add_set(const section& restrictions, const toml::array& names, const char* wanted) const;
  void read_names(const section& model, const toml::node& node, const char* key, const char* one,
                  std::int32_t& number, std::vector<std::string>& names) const;

  const toml::table& document_;
  const std::string& source_;
  analysis_options& options_;
};

/// The text of a model file. Throws input_error when it cannot be read.
std::string read_model_text(const std::string& path);

/// Throws the input_error of a fault of the syntax.
[[noreturn]] void refuse_syntax(const std::string& source, const toml::parse_error& error);

/// Parses a text and lets `read(document)` take it.
template <class Read>
auto parse_document(std::string_view text, const std::string& source, Read&& read) {
  try {
    const toml::table document = toml::parse(text);
    return read(document);
  } catch (const toml::parse_error& error) {
    refuse_syntax(source, error);
  }
}

}  // namespace tolvenra::cli
