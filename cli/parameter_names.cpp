#include "parameter_names.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <numeric>

#include "input_error.hpp"
#include "near_names.hpp"

namespace tolvenra::cli {
namespace {

class name_parser {
 public:
  name_parser(const located_text& name, const std::vector<parameter_family>& families,
              const std::string& forms)
      : name_(name), families_(families), forms_(forms), rest_(name.text) {}

  parameter_name parse() {
    parameter_name result;
    skip_blanks();
    result.family = take_family();
    if (!take('[')) throw no_name();
    do {
      result.indices.push_back(take_index());
    } while (take(','));
    if (!take(']') || !rest_.empty()) throw no_name();
    return result;
  }

 private:
  [[nodiscard]] input_error no_name() const {
    return input_error::of("{}: \"{}\" is no parameter; it should read {}.", name_.where,
                           name_.text, forms_);
  }

  void skip_blanks() {
    while (rest_.starts_with(' ')) rest_.remove_prefix(1);
  }

  bool take(char wanted) {
    skip_blanks();
    if (!rest_.starts_with(wanted)) return false;
    rest_.remove_prefix(1);
    skip_blanks();
    return true;
  }

  std::size_t take_family() {
    const std::string_view word = rest_.substr(0, rest_.find_first_of(" ["));
    for (std::size_t f = 0; f < families_.size(); ++f)
      if (word == families_[f].name) {
        rest_.remove_prefix(word.size());
        return f;
      }
    throw no_name();
  }

  parameter_name::index take_index() {
    skip_blanks();
    if (rest_.starts_with('\'')) return take_quoted();
    const std::size_t end = rest_.find_first_of(",]");
    if (end == std::string_view::npos || end == 0) throw no_name();
    std::string_view text = rest_.substr(0, end);
    while (text.ends_with(' ')) text.remove_suffix(1);
    rest_.remove_prefix(end);
    return {std::string(text), false};
  }

  parameter_name::index take_quoted() {
    std::string text;
    for (std::size_t at = 1; at < rest_.size(); ++at) {
      if (rest_[at] == '\'') {
        if (at + 1 == rest_.size() || rest_[at + 1] != '\'') {
          rest_.remove_prefix(at + 1);
          return {text, true};
        }
        ++at;
      }
      text += rest_[at];
    }
    throw input_error::of("{}: a quote in \"{}\" is never closed.", name_.where, name_.text);
  }

  const located_text& name_;
  const std::vector<parameter_family>& families_;
  const std::string& forms_;
  std::string_view rest_;
};

bool all_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char c) { return std::isdigit(c) != 0; });
}

/// The text of an index, in quotes where it would be read as something else.
std::string quoted_if_needed(const std::string& text) {
  const bool plain = !text.empty() && text.find_first_of(",[]'") == std::string::npos &&
                     text.front() != ' ' && text.back() != ' ' && text != "*" && text != "each" &&
                     text != "intercept" && !text.starts_with("class ") &&
                     !text.starts_with("group ");
  if (plain) return text;
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? "''" : std::string(1, c);
  return result + '\'';
}

std::vector<std::size_t> all_of(std::size_t n) {
  std::vector<std::size_t> all(n);
  std::iota(all.begin(), all.end(), std::size_t{0});
  return all;
}

[[noreturn]] void not_among(const located_text& name, const char* what, std::string_view text,
                            const std::vector<std::string>& known, std::string_view they) {
  throw input_error::of("{}: \"{}\": there is no {} \"{}\". {}", name.where, name.text, what, text,
                        suggestion(text, known, they));
}

}  // namespace

/// What an index stands for, and whether for one after the other.
struct parameter_space::choice {
  std::vector<std::size_t> at;
  bool each = false;
};

parameter_name parameter_space::parse(const located_text& name) const {
  return name_parser(name, families_, forms_).parse();
}

std::size_t parameter_space::latent_offset(const parameter_axis& axis,
                                           const parameter_name::index& index,
                                           const located_text& name) const {
  const auto named = std::find(axis.labels.begin(), axis.labels.end(), index.text);
  if (named != axis.labels.end()) return static_cast<std::size_t>(named - axis.labels.begin());
  std::string_view digits = index.text;
  if (!index.quoted && digits.starts_with(latent_ + ' ')) digits.remove_prefix(latent_.size() + 1);
  std::size_t number = 0;
  if (!index.quoted && all_digits(digits)) {
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (number >= 1 && number <= axis.extent) return number - 1;
  }
  const std::string within = name.text == index.text ? "" : fmt::format("\"{}\": ", name.text);
  throw input_error::of("{}: {}there is no {} \"{}\"; the {} are {}.", name.where, within, latent_,
                        index.text, latents_,
                        axis.labels.empty() ? fmt::format("numbered from 1 to {}", axis.extent)
                                            : fmt::format("{}", fmt::join(axis.labels, ", ")));
}

std::size_t parameter_space::find_latent(const located_text& name) const {
  for (const parameter_axis& axis : families_.front().axes)
    if (axis.of == parameter_axis::kind::latent)
      return latent_offset(axis, {name.text, false}, name);
  return 0;
}

std::size_t parameter_space::find_index(const parameter_axis& axis,
                                        const parameter_name::index& index,
                                        const located_text& name, std::size_t item) const {
  using kind = parameter_axis::kind;
  const auto labelled = [&](const std::vector<std::string>& labels, const std::string& word,
                            const std::string& they) {
    if (const auto found = find_label(labels, index.text)) return *found;
    if (!index.quoted && index.text.starts_with(word + ' '))
      if (const auto found =
              find_label(labels, std::string_view(index.text).substr(word.size() + 1)))
        return *found;
    not_among(name, word.c_str(), index.text, labels, they);
  };
  const auto same = [&](const std::vector<std::string>& known, const char* what,
                        const char* they) -> std::size_t {
    const auto found = std::find(known.begin(), known.end(), index.text);
    if (found == known.end()) not_among(name, what, index.text, known, they);
    return static_cast<std::size_t>(found - known.begin());
  };
  switch (axis.of) {
    case kind::latent:
      return latent_offset(axis, index, name);
    case kind::item:
      return same(axis.labels, "item", "The items");
    case kind::category: {
      const categories& of_item = *items_[item];
      if (const auto label = find_label(of_item.labels, index.text)) return *label;
      not_among(name, "category", index.text, of_item.labels,
                fmt::format("The categories of item \"{}\"", of_item.name));
    }
    case kind::group:
      return labelled(axis.labels, "group", "The groups");
    case kind::time:
      return labelled(axis.labels, "time", "The times");
    case kind::coefficient:
      break;
  }
  if (index.is("intercept")) return 0;
  std::vector<std::string> known{"intercept"};
  known.insert(known.end(), axis.labels.begin(), axis.labels.end());
  const std::size_t found = same(known, "covariate", "The coefficients");
  if (found == 0) not_among(name, "covariate", index.text, known, "The coefficients");
  return found;
}

parameter_space::choice parameter_space::choose(const parameter_axis& axis,
                                                const parameter_name::index& index,
                                                const located_text& name, std::size_t item) const {
  const bool by_item = axis.of == parameter_axis::kind::category;
  const std::size_t n = by_item ? items_[item]->labels.size() : axis.extent;
  if (index.is("*")) return {all_of(n), false};
  if (index.is("each")) return {all_of(n), true};
  return {{find_index(axis, index, name, item)}, false};
}

void parameter_space::check_count(const parameter_name& parts, const located_text& name) const {
  const parameter_family& family = families_[parts.family];
  const std::size_t given = parts.indices.size(), most = family.axes.size();
  const bool grouped = family.axes.back().of == parameter_axis::kind::group;
  const auto refuse = [&](const std::string& why) {
    return input_error::of("{}: \"{}\" has {} {}; it should read {}.", name.where, name.text, given,
                           why, forms_);
  };
  if (!grouped && given == most + 1) throw refuse(family.no_group);
  if (given > most || given + (grouped ? 1 : 0) < most)
    throw refuse(given == 1 ? "index" : "indices");
  if (family.axes.front().of == parameter_axis::kind::coefficient &&
      family.axes.front().labels.empty())
    throw input_error::of("{}: \"{}\": without covariates there are no coefficients.", name.where,
                          name.text);
}

void parameter_space::collect(const parameter_name& parts, const located_text& name,
                              bool groups_apart, const std::vector<std::size_t>& before,
                              const std::vector<std::size_t>& key, parameter_cells& found) const {
  const parameter_family& family = families_[parts.family];
  const std::size_t k = before.size();
  if (k == family.axes.size()) {
    found.lists[key].push_back(offset_of(family, before));
    return;
  }
  const parameter_axis& axis = family.axes[k];
  const choice chosen =
      k < parts.indices.size()
          ? choose(axis, parts.indices[k], name, before.empty() ? 0 : before.front())
          : choice{all_of(axis.extent), groups_apart && axis.extent > 1};
  for (std::size_t i = 0; i < chosen.at.size(); ++i) {
    std::vector<std::size_t> further = before, longer = key;
    further.push_back(chosen.at[i]);
    if (chosen.each) longer.push_back(i);
    collect(parts, name, groups_apart, further, longer, found);
  }
}

parameter_cells parameter_space::find(const located_text& name, bool groups_apart) const {
  const parameter_name parts = parse(name);
  check_count(parts, name);
  parameter_cells found{parts.family, {}};
  collect(parts, name, groups_apart, {}, {}, found);
  return found;
}

std::size_t parameter_space::extent(const parameter_family& family, std::size_t axis,
                                    const std::vector<std::size_t>& before) const {
  const parameter_axis& asked = family.axes[axis];
  return asked.of == parameter_axis::kind::category ? items_[before.front()]->labels.size()
                                                    : asked.extent;
}

std::string parameter_space::text_of(const parameter_axis& axis, std::size_t at,
                                     std::size_t item) const {
  using kind = parameter_axis::kind;
  if (axis.of == kind::category) return quoted_if_needed(items_[item]->labels[at]);
  if (axis.of == kind::latent && axis.labels.empty()) return fmt::format("{} {}", latent_, at + 1);
  if (axis.of == kind::coefficient)
    return at == 0 ? "intercept" : quoted_if_needed(axis.labels[at - 1]);
  return quoted_if_needed(axis.labels[at]);
}

std::string parameter_space::name_of(const parameter_family& family,
                                     const std::vector<std::size_t>& at) const {
  std::vector<std::string> texts;
  for (std::size_t k = 0; k < at.size(); ++k)
    texts.push_back(text_of(family.axes[k], at[k], at.front()));
  return fmt::format("{}[{}]", family.name, fmt::join(texts, ", "));
}

std::size_t offset_of(const parameter_family& family, const std::vector<std::size_t>& at) {
  std::size_t offset = 0;
  for (std::size_t k = 0; k < at.size(); ++k) offset += at[k] * family.axes[k].stride;
  return offset;
}

}  // namespace tolvenra::cli
