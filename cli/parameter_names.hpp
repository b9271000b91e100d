/// \file parameter_names.hpp  Parameters by name: "rho[A, yes, class 1]".
///
/// A name is a family and its indices in square brackets, for a latent class analysis
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
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "analysis_options.hpp"
#include "columns.hpp"

namespace tolvenra::cli {

/// One index of the names of a family.
struct parameter_axis {
  enum class kind { item, category, latent, group, time, coefficient };
  kind of = kind::item;
  std::size_t extent = 0;
  std::size_t stride = 1;           ///< between neighbours in the engine's array
  std::vector<std::string> labels;  ///< latent classes without names: empty. Coefficients: without
                                    ///< the intercept. Categories: empty, their item has them
};

/// Parameters of one name, an array of the engine.
struct parameter_family {
  std::string name;
  std::vector<parameter_axis> axes;  ///< in the order of the indices; a group is the last one
  std::size_t size = 0;              ///< of the array
  std::optional<std::size_t> sums;   ///< the axis along which probabilities sum to 1
  /// Extents and strides of dimensions that no name tells apart: all share the elements of the
  /// first.
  std::vector<std::pair<std::size_t, std::size_t>> shared;
  std::string no_group;  ///< why a name with a group is refused
};

/// The parts of a name, not yet compared with a model.
struct parameter_name {
  struct index {
    std::string text;
    bool quoted = false;
    [[nodiscard]] bool is(const char* word) const { return !quoted && text == word; }
  };
  std::size_t family = 0;
  std::vector<index> indices;
};

/// The parameters that a name stands for: offsets into the array of the family, one list for every
/// combination of what `each` runs through.
struct parameter_cells {
  std::size_t family = 0;
  std::map<std::vector<std::size_t>, std::vector<std::size_t>> lists;
};

/// The parameters of one analysis.
class parameter_space {
 public:
  /// \param items  with their labels, one for each element of an item axis
  /// \param latent  "class" or "status"
  /// \param latents  "classes" or "statuses"
  /// \param forms  how names should read, for messages
  parameter_space(std::vector<parameter_family> families, std::vector<const categories*> items,
                  std::string latent, std::string latents, std::string forms)
      : families_(std::move(families)),
        items_(std::move(items)),
        latent_(std::move(latent)),
        latents_(std::move(latents)),
        forms_(std::move(forms)) {}

  [[nodiscard]] const std::vector<parameter_family>& families() const { return families_; }

  /// Throws input_error for a text of another form.
  [[nodiscard]] parameter_name parse(const located_text& name) const;

  /// Throws input_error for what the analysis does not have.
  /// \param groups_apart  a name without a group has one list for every group
  [[nodiscard]] parameter_cells find(const located_text& name, bool groups_apart) const;

  /// Offset of a class or status, by number or name. Throws input_error.
  [[nodiscard]] std::size_t find_latent(const located_text& name) const;

  /// Elements of an axis, given the elements of the axes before it.
  [[nodiscard]] std::size_t extent(const parameter_family& family, std::size_t axis,
                                   const std::vector<std::size_t>& before) const;

  /// Name of the parameter with these indices.
  [[nodiscard]] std::string name_of(const parameter_family& family,
                                    const std::vector<std::size_t>& at) const;

 private:
  struct choice;
  [[nodiscard]] choice choose(const parameter_axis& axis, const parameter_name::index& index,
                              const located_text& name, std::size_t item) const;
  [[nodiscard]] std::size_t find_index(const parameter_axis& axis,
                                       const parameter_name::index& index, const located_text& name,
                                       std::size_t item) const;
  [[nodiscard]] std::size_t latent_offset(const parameter_axis& axis,
                                          const parameter_name::index& index,
                                          const located_text& name) const;
  void check_count(const parameter_name& parts, const located_text& name) const;
  void collect(const parameter_name& parts, const located_text& name, bool groups_apart,
               const std::vector<std::size_t>& before, const std::vector<std::size_t>& key,
               parameter_cells& found) const;
  [[nodiscard]] std::string text_of(const parameter_axis& axis, std::size_t at,
                                    std::size_t item) const;

  std::vector<parameter_family> families_;
  std::vector<const categories*> items_;
  std::string latent_, latents_, forms_;
};

/// Offset into the array of a family.
std::size_t offset_of(const parameter_family& family, const std::vector<std::size_t>& at);

}  // namespace tolvenra::cli
