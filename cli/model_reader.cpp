#include "model_reader.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "columns.hpp"
#include "input_error.hpp"
#include "near_names.hpp"

namespace tolvenra::cli {
namespace {

std::string type_of(const toml::node& node) {
  if (node.is_table()) return "a table";
  if (node.is_array()) return "a list";
  if (node.is_string()) return "a text";
  if (node.is_boolean()) return "true or false";
  return node.is_number() ? "a number" : "a date or time";
}

/// A text, or a number or boolean as one would type it.
std::optional<std::string> as_text(const toml::node& node) {
  if (const auto* text = node.as_string()) return text->get();
  if (const auto* whole = node.as_integer()) return fmt::format("{}", whole->get());
  if (const auto* number = node.as_floating_point()) return fmt::format("{}", number->get());
  if (const auto* flag = node.as_boolean()) return flag->get() ? "true" : "false";
  return std::nullopt;
}

}  // namespace

section::section(const toml::table& document, const std::string& source, std::string name,
                 const std::vector<std::string>& keys)
    : source_(source), name_(std::move(name)) {
  const toml::node* node = document.get(name_);
  if (node == nullptr) return;
  table_ = node->as_table();
  if (table_ == nullptr)
    throw input_error::of("{}: {} should be a table, [{}], not {}.", place(source_, *node), name_,
                          name_, type_of(*node));
  for (const auto& [key, value] : *table_)
    if (!keys.empty() && std::find(keys.begin(), keys.end(), key.str()) == keys.end())
      throw input_error::of("{}: [{}] has no key \"{}\". {}", place(source_, value), name_,
                            key.str(), suggestion(key.str(), keys, "Its keys"));
}

std::string section::place(const std::string& source, const toml::node& node) {
  return fmt::format("{}, line {}", source, node.source().begin.line);
}

std::string section::where(const toml::node& node, std::string_view key) const {
  return fmt::format("{}: {}.{}", place(source_, node), name_, key);
}

void section::refuse(const toml::node& node, std::string_view key, std::string_view wanted) const {
  const auto text = as_text(node);
  throw input_error::of("{} should be {}, not {}.", where(node, key), wanted,
                        text && !node.is_string() ? *text : type_of(node));
}

void section::text(std::string_view key, std::string_view wanted, analysis_options& options,
                   std::string& value) const {
  with(key, wanted, options, [&](const toml::node& node) {
    const auto given = as_text(node);
    if (given) value = *given;
    return given && !given->empty();
  });
}

void section::texts(std::string_view key, std::string_view wanted, analysis_options& options,
                    std::vector<std::string>& value) const {
  with(key, wanted, options, [&](const toml::node& node) { return read_texts(node, value); });
}

void section::flag(std::string_view key, analysis_options& options, bool& value) const {
  with(key, "true or false", options, [&](const toml::node& node) {
    const auto* given = node.as_boolean();
    if (given != nullptr) value = given->get();
    return given != nullptr;
  });
}

void section::whole(std::string_view key, std::int32_t most, analysis_options& options,
                    std::int32_t& value) const {
  with(key, fmt::format("a whole number from 1 to {}", most), options, [&](const toml::node& node) {
    const auto* given = node.as_integer();
    if (given == nullptr || given->get() < 1 || given->get() > most) return false;
    value = static_cast<std::int32_t>(given->get());
    return true;
  });
}

void section::number(std::string_view key, bool zero, analysis_options& options,
                     double& value) const {
  with(key, zero ? "a number of at least 0" : "a number above 0", options,
       [&](const toml::node& node) {
         const auto given = node.is_number() ? node.value<double>() : std::nullopt;
         if (!given || !std::isfinite(*given) || !(zero ? *given >= 0.0 : *given > 0.0))
           return false;
         value = *given;
         return true;
       });
}

bool section::read_texts(const toml::node& node, std::vector<std::string>& value) {
  value.clear();
  if (const auto one = as_text(node)) {
    value.push_back(*one);
    return true;
  }
  if (!node.is_array()) return false;
  for (const toml::node& element : *node.as_array()) {
    const auto text = as_text(element);
    if (!text) return false;
    value.push_back(*text);
  }
  return true;
}

void section::read_values(const toml::node& node, const std::string& source,
                          const std::string& name, std::vector<located_value>& values) {
  const toml::table* table = node.as_table();
  if (table == nullptr)
    throw input_error::of("{}: {} should be a table of parameters and values, not {}.",
                          place(source, node), name, type_of(node));
  std::multimap<toml::source_index, std::string_view> in_file_order;
  for (const auto& [key, value] : *table)
    in_file_order.emplace(value.source().begin.line, key.str());
  for (const auto& [line, key] : in_file_order) {
    const toml::node& value = *table->get(key);
    located_value& given = values.emplace_back();
    given.name = {std::string(key), fmt::format("{}: {}", place(source, value), name)};
    const auto add = [&](const toml::node& element) {
      const auto number = element.is_number() ? element.value<double>() : std::nullopt;
      if (!number || !std::isfinite(*number))
        throw input_error::of("{}: \"{}\" should be a number or a list of numbers, not {}.",
                              given.name.where, given.name.text, type_of(value));
      given.values.push_back(*number);
    };
    if (!value.is_array()) add(value);
    if (value.is_array())
      for (const toml::node& element : *value.as_array()) add(element);
  }
}

void model_reader::check_sections() const {
  static const std::vector<std::string> known{"data",  "model", "categories", "restrictions",
                                              "prior", "start", "estimation"};
  for (const auto& [key, value] : document_)
    if (std::find(known.begin(), known.end(), key.str()) == known.end())
      throw input_error::of("{}: a model file has no table \"{}\". {}",
                            section::place(source_, value), key.str(),
                            suggestion(key.str(), known, "The tables"));
}

void model_reader::read_data(const std::vector<std::pair<const char*, std::string*>>& more) const {
  std::vector<std::string> keys{"file", "freq", "weight", "group", "na"};
  for (const auto& [key, value] : more) keys.emplace_back(key);
  const section data(document_, source_, "data", keys);
  data.text("file", "the name of a data file", options_, options_.file);
  if (!options_.file.empty() && options_.file != "-")
    options_.file = (std::filesystem::path(source_).parent_path() / options_.file).string();
  for (const auto& [key, column] : {std::pair{"freq", &options_.freq},
                                    {"weight", &options_.weight},
                                    {"group", &options_.group}})
    data.text(key, "the name of a column", options_, *column);
  for (const auto& [key, value] : more) data.text(key, "a text", options_, *value);
  data.texts("na", "a list of texts", options_, options_.na);
}

void model_reader::read_latent(const section& model, const char* key, const char* one,
                               std::int32_t& number, std::vector<std::string>& names) const {
  const toml::node* node = model.find(key);
  if (node != nullptr && node->is_array()) {
    read_names(model, *node, key, one, number, names);
  } else if (node != nullptr && !node->is_integer()) {
    model.refuse(*node, key,
                 fmt::format("a whole number from 1 to {} or a list of names", most_classes));
  } else {
    model.whole(key, most_classes, options_, number);
  }
}

void model_reader::read_names(const section& model, const toml::node& node, const char* key,
                              const char* one, std::int32_t& number,
                              std::vector<std::string>& names) const {
  const std::string where = model.where(node, key);
  if (!section::read_texts(node, names) || names.empty() || names.size() > most_classes)
    model.refuse(node, key, fmt::format("a number or a list of 1 to {} names", most_classes));
  std::vector<std::string> sorted = names;
  std::sort(sorted.begin(), sorted.end());
  for (std::size_t c = 0; c < sorted.size(); ++c) {
    const std::string& name = sorted[c];
    if (name.empty() || name == "*" || name == "each" ||
        name.starts_with(fmt::format("{} ", one)) ||
        name.find_first_not_of("0123456789") == std::string::npos)
      throw input_error::of("{}: \"{}\" cannot be the name of a {}; use a word that is no number.",
                            where, name, one);
    if (c > 0 && name == sorted[c - 1])
      throw input_error::of("{}: two {} are named \"{}\".", where, key, name);
  }
  number = static_cast<std::int32_t>(names.size());
  options_.where[key] = where;
}

void model_reader::read_categories() const {
  const section categories(document_, source_, "categories", {});
  categories.each([&](const std::string& columns, const toml::node& node) {
    const std::string where = categories.where(node, '"' + columns + '"');
    listed_categories& list = options_.categories.emplace_back();
    list.columns = {columns, where};
    if (!node.is_array() || !section::read_texts(node, list.labels) || list.labels.empty() ||
        list.labels.size() > 999)
      categories.refuse(node, '"' + columns + '"', "a list of 1 to 999 categories");
    for (std::size_t k = 0; k < list.labels.size(); ++k) {
      std::vector<std::string> others = list.labels;
      others.erase(others.begin() + static_cast<std::ptrdiff_t>(k));
      if (find_label(others, list.labels[k]))
        throw input_error::of("{}: the category \"{}\" is listed twice.", where, list.labels[k]);
    }
  });
}

void model_reader::read_restrictions() const {
  const section restrictions(document_, source_, "restrictions", {"equal", "fix"});
  if (const toml::node* fix = restrictions.find("fix"))
    section::read_values(*fix, source_, "restrictions.fix", options_.fix);
  const toml::node* equal = restrictions.find("equal");
  if (equal == nullptr) return;
  constexpr const char* wanted =
      "a list of sets such as [[\"rho[A, yes, class 1]\", \"rho[B, yes, class 1]\"]]";
  if (!equal->is_array()) restrictions.refuse(*equal, "equal", wanted);
  const toml::array& sets = *equal->as_array();
  const bool one_set = !sets.empty() && sets.front().is_string();
  if (one_set) return add_set(restrictions, sets, wanted);
  for (const toml::node& set : sets) {
    if (!set.is_array()) restrictions.refuse(set, "equal", wanted);
    add_set(restrictions, *set.as_array(), wanted);
  }
}

void model_reader::add_set(const section& restrictions, const toml::array& names,
                           const char* wanted) const {
  equal_set& set = options_.equal.emplace_back();
  for (const toml::node& name : names) {
    if (!name.is_string()) restrictions.refuse(name, "equal", wanted);
    set.push_back({name.as_string()->get(), restrictions.where(name, "equal")});
  }
  if (set.empty()) restrictions.refuse(names, "equal", wanted);
}

void model_reader::read_priors(
    const std::vector<std::pair<const char*, double*>>& strengths) const {
  std::vector<std::string> keys;
  for (const auto& [key, strength] : strengths) keys.emplace_back(key);
  const section prior(document_, source_, "prior", keys);
  for (const auto& [key, strength] : strengths) {
    prior.number(key, true, options_, *strength);
    if (auto at = options_.where.extract(key)) {
      at.key() = std::string("prior_") + key;
      options_.where.insert(std::move(at));
    }
  }
}

void model_reader::read_estimation() const {
  const section estimation(document_, source_, "estimation",
                           {"starts", "seed", "criterion", "max_iter", "threads"});
  estimation.whole("starts", most_starts, options_, options_.starts);
  estimation.whole("seed", largest_seed, options_, options_.seed);
  estimation.number("criterion", false, options_, options_.criterion);
  estimation.whole("max_iter", most_iterations, options_, options_.max_iter);
  estimation.whole("threads", most_threads, options_, options_.threads);
}

void model_reader::read_start() const {
  if (const toml::node* start = document_.get("start"))
    section::read_values(*start, source_, "start", options_.start);
}

std::string read_model_text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file || std::filesystem::is_directory(path) || !(text << file.rdbuf()))
    throw input_error::of("--model: {} cannot be read: {}.", path,
                          std::filesystem::is_directory(path) ? "it is a folder"
                          : errno != 0                        ? std::strerror(errno)
                                                              : "it is empty");
  return text.str();
}

void refuse_syntax(const std::string& source, const toml::parse_error& error) {
  throw input_error::of("{}, line {}: {}", source, error.source().begin.line, error.description());
}

}  // namespace tolvenra::cli
