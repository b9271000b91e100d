#include "model_writer.hpp"

#include <fmt/ranges.h>

#include "input_error.hpp"
#include "utf8.hpp"

namespace tolvenra::cli {

std::string toml_quoted(const std::string& text) {
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

std::string toml_quoted(const std::vector<std::string>& texts) {
  std::vector<std::string> parts;
  for (const std::string& text : texts) parts.push_back(toml_quoted(text));
  return fmt::format("[{}]", fmt::join(parts, ", "));
}

void model_writer::begin(const char* name) { text += fmt::format("\n[{}]\n", name); }

void model_writer::line(const std::string& key, const std::string& value) {
  text += fmt::format("{} = {}\n", key, value);
}

void model_writer::line_if(const std::string& key, const std::string& value) {
  if (!value.empty()) line(key, toml_quoted(value));
}

void model_writer::write_data() {
  begin("data");
  line("file", toml_quoted(options_.file));
  line_if("freq", options_.freq);
  line_if("weight", options_.weight);
  line_if("group", options_.group);
  if (!options_.na.empty()) line("na", toml_quoted(options_.na));
}

std::string model_writer::latent_text(const std::vector<std::string>& names, std::size_t at) {
  return names.empty() ? fmt::format("{}", at + 1) : toml_quoted(names[at]);
}

std::string model_writer::latents_text(const std::vector<std::string>& names, std::int32_t number) {
  return names.empty() ? fmt::format("{}", number) : toml_quoted(names);
}

void model_writer::write_categories(const std::vector<const categories*>& columns) {
  begin("categories");
  for (const categories* column : columns)
    line(toml_quoted(column->name), toml_quoted(column->labels));
}

void model_writer::write_values(const char* name,
                                const std::vector<std::pair<std::string, double>>& values) {
  begin(name);
  for (const auto& [parameter, value] : values)
    line(toml_quoted(parameter), fmt::format("{}", value));
}

void model_writer::write_restrictions(const stated_parameters& stated) {
  if (!stated.equal.empty()) {
    begin("restrictions");
    text += "equal = [\n";
    for (const auto& set : stated.equal) text += "  " + toml_quoted(set) + ",\n";
    text += "]\n";
  }
  if (!stated.fix.empty()) write_values("restrictions.fix", stated.fix);
}

void model_writer::write_priors(const std::vector<std::pair<const char*, double>>& strengths) {
  bool begun = false;
  for (const auto& [key, strength] : strengths) {
    if (!(strength > 0.0)) continue;
    if (!begun) begin("prior");
    begun = true;
    line(key, fmt::format("{}", strength));
  }
}

void model_writer::write_settings(const stated_parameters& stated) {
  begin("estimation");
  if (!stated.start_given) line("starts", fmt::format("{}", options_.starts));
  line("seed", fmt::format("{}", options_.seed));
  line("criterion", fmt::format("{}", options_.criterion));
  line("max_iter", fmt::format("{}", options_.max_iter));
  if (stated.start_given) write_values("start", stated.start);
}

}  // namespace tolvenra::cli
