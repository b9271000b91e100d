/// \file parameter_names.hpp  Parameters by name: "rho[A, yes, class 1]".
///
/// A name is a family and its indices in square brackets:
///
///     rho[item, category, class]          probability of a response
///     gamma[class]                        share of a class
///     beta[covariate, class]              coefficient; `intercept` is the first one
///
/// A last index names the group; without it the name stands for every group. A class is `class 2`,
/// its number or its name. In any place `*` stands for all of them at once, and `each` for one
/// after the other. A text in single quotes is taken literally ('' is a quote).
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "lca_data.hpp"

namespace tolvenra::cli {

enum class family { gamma, rho, beta };

/// The parts of a name, not yet compared with a model.
struct parameter_name {
  struct index {
    std::string text;
    bool quoted = false;
    [[nodiscard]] bool is(const char* word) const { return !quoted && text == word; }
  };
  family of = family::rho;
  std::vector<index> indices;
};

/// Throws input_error for a text of another form.
parameter_name parse_parameter_name(const located_text& name);

/// The parameters that a name stands for: offsets into the array of the family, one list for every
/// combination of what `each` runs through.
struct parameter_cells {
  family of = family::rho;
  std::map<std::vector<std::size_t>, std::vector<std::size_t>> lists;
};

/// The parameters of one analysis: rho(item, class, category, group), gamma(class, group) and
/// beta(coefficient, class, group), column-major, as the engine holds them.
class parameter_space {
 public:
  /// \param shared_rho  the groups share rho: the names of rho know no groups and mean group 1
  parameter_space(const lca_data& data, std::vector<std::string> class_names, std::size_t classes,
                  bool shared_rho);

  [[nodiscard]] std::size_t rho_at(std::size_t item, std::size_t category, std::size_t cls,
                                   std::size_t group) const {
    return item + items_ * (cls + classes_ * (category + most_categories_ * group));
  }
  [[nodiscard]] std::size_t gamma_at(std::size_t cls, std::size_t group) const {
    return cls + classes_ * group;
  }
  [[nodiscard]] std::size_t beta_at(std::size_t coefficient, std::size_t cls,
                                    std::size_t group) const {
    return coefficient + coefficients_ * (cls + classes_ * group);
  }
  [[nodiscard]] std::size_t size(family of) const;
  [[nodiscard]] std::size_t classes() const { return classes_; }
  [[nodiscard]] std::size_t coefficients() const { return coefficients_; }
  /// Groups that the names of a family tell apart.
  [[nodiscard]] std::size_t groups_of(family of) const {
    return of == family::rho && shared_rho_ ? 1 : data_.groups();
  }

  /// Throws input_error for what the analysis does not have.
  /// \param groups_apart  a name without a group has one list for every group
  [[nodiscard]] parameter_cells find(const located_text& name, bool groups_apart) const;

  /// Offset of a class, by number or name. Throws input_error.
  [[nodiscard]] std::size_t find_class(const located_text& name) const;

  [[nodiscard]] std::string rho_name(std::size_t item, std::size_t category, std::size_t cls,
                                     std::size_t group) const;
  [[nodiscard]] std::string gamma_name(std::size_t cls, std::size_t group) const;
  [[nodiscard]] std::string beta_name(std::size_t coefficient, std::size_t cls,
                                      std::size_t group) const;

 private:
  struct choice;
  [[nodiscard]] std::size_t class_offset(const parameter_name::index& index,
                                         const located_text& name) const;
  [[nodiscard]] std::string class_and_group(std::size_t cls, std::size_t group, family of) const;
  [[nodiscard]] choice choose_class(const parameter_name::index& index,
                                    const located_text& name) const;
  [[nodiscard]] choice choose_group(const parameter_name& parts, std::size_t at,
                                    const located_text& name, bool groups_apart) const;
  [[nodiscard]] choice choose_coefficient(const parameter_name::index& index,
                                          const located_text& name) const;
  void find_rho(const parameter_name& parts, const located_text& name, const choice& groups,
                parameter_cells& found) const;

  const lca_data& data_;
  std::vector<std::string> class_names_;
  std::size_t items_, classes_, most_categories_, coefficients_;
  bool shared_rho_;
};

}  // namespace tolvenra::cli
