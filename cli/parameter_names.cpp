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

constexpr const char* forms =
    "rho[item, category, class], gamma[class] or beta[covariate, class], with the group as a last "
    "index where there are groups";

input_error no_name(const located_text& name) {
  return input_error::of("{}: \"{}\" is no parameter; it should read {}.", name.where, name.text,
                         forms);
}

class name_parser {
 public:
  explicit name_parser(const located_text& name) : name_(name), rest_(name.text) {}

  parameter_name parse() {
    parameter_name result;
    skip_blanks();
    result.of = take_family();
    if (!take('[')) throw no_name(name_);
    do {
      result.indices.push_back(take_index());
    } while (take(','));
    if (!take(']') || !rest_.empty()) throw no_name(name_);
    return result;
  }

 private:
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

  family take_family() {
    for (const auto& [word, of] : {std::pair<std::string_view, family>{"gamma", family::gamma},
                                   {"rho", family::rho},
                                   {"beta", family::beta}})
      if (rest_.starts_with(word)) {
        rest_.remove_prefix(word.size());
        return of;
      }
    throw no_name(name_);
  }

  parameter_name::index take_index() {
    skip_blanks();
    if (rest_.starts_with('\'')) return take_quoted();
    const std::size_t end = rest_.find_first_of(",]");
    if (end == std::string_view::npos || end == 0) throw no_name(name_);
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

  /// \param label_of  finds the offset of a text that is no wildcard
  template <class Find>
  static choice of(const parameter_name::index& index, std::size_t n, Find&& find) {
    if (index.is("*")) return {all_of(n), false};
    if (index.is("each")) return {all_of(n), true};
    return {{find()}, false};
  }

  /// The key of element k, where this choice takes part in it.
  [[nodiscard]] std::vector<std::size_t> key(std::vector<std::size_t> before, std::size_t k) const {
    if (each) before.push_back(k);
    return before;
  }
};

parameter_name parse_parameter_name(const located_text& name) { return name_parser(name).parse(); }

parameter_space::parameter_space(const lca_data& data, std::vector<std::string> class_names,
                                 std::size_t classes, bool shared_rho)
    : data_(data),
      class_names_(std::move(class_names)),
      items_(data.items.size()),
      classes_(classes),
      most_categories_(static_cast<std::size_t>(most_categories_of(data))),
      coefficients_(data.covariates.size() + 1),
      shared_rho_(shared_rho) {}

std::size_t parameter_space::size(family of) const {
  const std::size_t shares = classes_ * data_.groups();
  if (of == family::gamma) return shares;
  return of == family::beta ? coefficients_ * shares : items_ * most_categories_ * shares;
}

std::size_t parameter_space::class_offset(const parameter_name::index& index,
                                          const located_text& name) const {
  const auto named = std::find(class_names_.begin(), class_names_.end(), index.text);
  if (named != class_names_.end()) return static_cast<std::size_t>(named - class_names_.begin());
  std::string_view digits = index.text;
  if (!index.quoted && digits.starts_with("class ")) digits.remove_prefix(6);
  std::size_t number = 0;
  if (!index.quoted && all_digits(digits)) {
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (number >= 1 && number <= classes_) return number - 1;
  }
  const std::string within = name.text == index.text ? "" : fmt::format("\"{}\": ", name.text);
  throw input_error::of("{}: {}there is no class \"{}\"; {}.", name.where, within, index.text,
                        class_names_.empty()
                            ? fmt::format("the classes are numbered from 1 to {}", classes_)
                            : fmt::format("the classes are {}", fmt::join(class_names_, ", ")));
}

std::size_t parameter_space::find_class(const located_text& name) const {
  return class_offset({name.text, false}, name);
}

parameter_space::choice parameter_space::choose_class(const parameter_name::index& index,
                                                      const located_text& name) const {
  return choice::of(index, classes_, [&] { return class_offset(index, name); });
}

parameter_space::choice parameter_space::choose_group(const parameter_name& parts, std::size_t at,
                                                      const located_text& name,
                                                      bool groups_apart) const {
  const auto refuse = [&](const char* why) {
    return input_error::of("{}: \"{}\" has {} {}; it should read {}.", name.where, name.text,
                           parts.indices.size(), why, forms);
  };
  if (parts.indices.size() < at || parts.indices.size() > at + 1)
    throw refuse(parts.indices.size() == 1 ? "index" : "indices");
  const std::size_t groups = groups_of(parts.of);
  if (parts.indices.size() == at) return {all_of(groups), groups_apart && groups > 1};
  if (!data_.group) throw refuse("indices, but there are no groups");
  if (groups == 1 && parts.of == family::rho && shared_rho_)
    throw refuse("indices, but the groups share rho, so that no group can be named");
  parameter_name::index index = parts.indices[at];
  return choice::of(index, groups, [&] {
    const std::vector<std::string>& labels = data_.group->labels;
    if (const auto found = find_label(labels, index.text)) return *found;
    if (!index.quoted && index.text.starts_with("group "))
      if (const auto found = find_label(labels, std::string_view(index.text).substr(6)))
        return *found;
    not_among(name, "group", index.text, labels, "The groups");
  });
}

void parameter_space::find_rho(const parameter_name& parts, const located_text& name,
                               const choice& groups, parameter_cells& found) const {
  const choice cls = choose_class(parts.indices[2], name);
  const choice items = choice::of(parts.indices[0], items_, [&] {
    std::vector<std::string> known;
    for (std::size_t j = 0; j < items_; ++j) {
      known.push_back(data_.items[j].name);
      if (known.back() == parts.indices[0].text) return j;
    }
    not_among(name, "item", parts.indices[0].text, known, "The items");
  });
  for (std::size_t j = 0; j < items.at.size(); ++j) {
    const categories& item = data_.items[items.at[j]];
    const parameter_name::index& index = parts.indices[1];
    const choice responses = choice::of(index, item.labels.size(), [&] {
      if (const auto label = find_label(item.labels, index.text)) return *label;
      not_among(name, "category", index.text, item.labels,
                fmt::format("The categories of item \"{}\"", item.name));
    });
    for (std::size_t k = 0; k < responses.at.size(); ++k)
      for (std::size_t c = 0; c < cls.at.size(); ++c)
        for (std::size_t g = 0; g < groups.at.size(); ++g)
          found.lists[groups.key(cls.key(responses.key(items.key({}, j), k), c), g)].push_back(
              rho_at(items.at[j], responses.at[k], cls.at[c], groups.at[g]));
  }
}

parameter_space::choice parameter_space::choose_coefficient(const parameter_name::index& index,
                                                            const located_text& name) const {
  if (data_.covariates.empty())
    throw input_error::of("{}: \"{}\": without covariates there are no coefficients.", name.where,
                          name.text);
  return choice::of(index, coefficients_, [&]() -> std::size_t {
    if (index.is("intercept")) return 0;
    std::vector<std::string> known{"intercept"};
    for (std::size_t v = 0; v < data_.covariates.size(); ++v) {
      if (data_.covariates[v].name == index.text) return v + 1;
      known.push_back(data_.covariates[v].name);
    }
    not_among(name, "covariate", index.text, known, "The coefficients");
  });
}

parameter_cells parameter_space::find(const located_text& name, bool groups_apart) const {
  const parameter_name parts = parse_parameter_name(name);
  const std::size_t indices = parts.of == family::gamma ? 1 : parts.of == family::beta ? 2 : 3;
  const choice groups = choose_group(parts, indices, name, groups_apart);
  parameter_cells found{parts.of, {}};
  if (parts.of == family::rho) {
    find_rho(parts, name, groups, found);
    return found;
  }
  const choice cls = choose_class(parts.indices[indices - 1], name);
  choice coefficients{{0}, false};
  if (parts.of == family::beta) coefficients = choose_coefficient(parts.indices[0], name);
  for (std::size_t v = 0; v < coefficients.at.size(); ++v)
    for (std::size_t c = 0; c < cls.at.size(); ++c)
      for (std::size_t g = 0; g < groups.at.size(); ++g)
        found.lists[groups.key(cls.key(coefficients.key({}, v), c), g)].push_back(
            parts.of == family::gamma ? gamma_at(cls.at[c], groups.at[g])
                                      : beta_at(coefficients.at[v], cls.at[c], groups.at[g]));
  return found;
}

std::string parameter_space::class_and_group(std::size_t cls, std::size_t group, family of) const {
  std::string text =
      class_names_.empty() ? fmt::format("class {}", cls + 1) : quoted_if_needed(class_names_[cls]);
  if (data_.group && !(of == family::rho && shared_rho_))
    text += ", " + quoted_if_needed(data_.group->labels[group]);
  return text + ']';
}

std::string parameter_space::rho_name(std::size_t item, std::size_t category, std::size_t cls,
                                      std::size_t group) const {
  return fmt::format("rho[{}, {}, {}", quoted_if_needed(data_.items[item].name),
                     quoted_if_needed(data_.items[item].labels[category]),
                     class_and_group(cls, group, family::rho));
}

std::string parameter_space::gamma_name(std::size_t cls, std::size_t group) const {
  return "gamma[" + class_and_group(cls, group, family::gamma);
}

std::string parameter_space::beta_name(std::size_t coefficient, std::size_t cls,
                                       std::size_t group) const {
  return fmt::format(
      "beta[{}, {}",
      coefficient == 0 ? "intercept" : quoted_if_needed(data_.covariates[coefficient - 1].name),
      class_and_group(cls, group, family::beta));
}

}  // namespace tolvenra::cli
