#include "lca_model.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>

#include "input_error.hpp"
#include "parameter_names.hpp"

namespace tolvenra::cli {
namespace {

/// Sums to 1 as far as rounded figures can.
bool is_one(double sum) { return std::abs(sum - 1.0) <= 1e-6; }

/// One row of probabilities: of an item in a class, or of the classes of a group.
struct probability_row {
  family of = family::rho;
  std::size_t item = 0, cls = 0, group = 0;
  std::vector<std::size_t> cells;
};

/// Every row that is a parameter of its own: with rho shared by the groups, those of group 1.
std::vector<probability_row> rows_of(const lca_data& data, const parameter_space& space) {
  std::vector<probability_row> rows;
  for (std::size_t g = 0; g < space.groups_of(family::gamma); ++g) {
    probability_row& row = rows.emplace_back(probability_row{family::gamma, 0, 0, g, {}});
    for (std::size_t c = 0; c < space.classes(); ++c) row.cells.push_back(space.gamma_at(c, g));
  }
  for (std::size_t g = 0; g < space.groups_of(family::rho); ++g)
    for (std::size_t j = 0; j < data.items.size(); ++j)
      for (std::size_t c = 0; c < space.classes(); ++c) {
        probability_row& row = rows.emplace_back(probability_row{family::rho, j, c, g, {}});
        for (std::size_t k = 0; k < data.items[j].labels.size(); ++k)
          row.cells.push_back(space.rho_at(j, k, c, g));
      }
  return rows;
}

/// What is known of every parameter of one family.
struct family_state {
  std::vector<std::size_t> set;  ///< one member of the set a cell belongs to
  std::vector<std::optional<double>> fixed, start;
  std::vector<const located_text*> fixed_by, equal_by, start_by;

  family_state() = default;
  explicit family_state(std::size_t n)
      : set(n), fixed(n), start(n), fixed_by(n), equal_by(n), start_by(n) {
    std::iota(set.begin(), set.end(), std::size_t{0});
  }

  std::size_t root(std::size_t cell) {
    while (set[cell] != cell) cell = set[cell] = set[set[cell]];
    return cell;
  }
};

class model_builder {
 public:
  model_builder(const lca_data& data, const lca_options& options)
      : data_(data),
        options_(options),
        space_(data, options.class_names, static_cast<std::size_t>(options.classes),
               options.invariant) {}

  lca_model build() {
    set_classes();
    model_.gamma.assign(space_.size(family::gamma), 0.0);
    model_.rho.assign(space_.size(family::rho), 0.0);
    model_.start_given = !options_.start.empty();
    if (options_.equal.empty() && options_.fix.empty() && !model_.start_given)
      return std::move(model_);
    rows_ = rows_of(data_, space_);
    for (const family of : {family::gamma, family::rho, family::beta})
      state(of) = family_state(space_.size(of));
    for (const equal_set& set : options_.equal) add_equal(set);
    for (const located_value& fix : options_.fix) add_fixed(fix);
    for (const located_value& start : options_.start) add_start(start);
    set_codes(family::gamma, model_.gamma_code, model_.gamma);
    set_codes(family::rho, model_.rho_code, model_.rho);
    if (model_.start_given) set_start();
    share_rho();
    return std::move(model_);
  }

 private:
  family_state& state(family of) {
    if (of == family::gamma) return gamma_;
    return of == family::rho ? rho_ : beta_;
  }

  /// Name of the k-th cell of a row.
  [[nodiscard]] std::string name_of(const probability_row& row, std::size_t k) const {
    return row.of == family::gamma ? space_.gamma_name(k, row.group)
                                   : space_.rho_name(row.item, k, row.cls, row.group);
  }

  [[nodiscard]] std::string names_of(const probability_row& row) const {
    std::vector<std::string> names;
    for (std::size_t k = 0; k < row.cells.size(); ++k) names.push_back(name_of(row, k));
    return fmt::format("{}", fmt::join(names, ", "));
  }

  void set_classes() {
    model_.class_names = options_.class_names;
    const auto chosen = [&](const std::string& text, const char* key) {
      return text.empty() ? 0 : space_.find_class({text, options_.asked_by(key)});
    };
    model_.reference = chosen(options_.reference, "reference");
    model_.binary = !options_.binary.empty();
    model_.compared = chosen(options_.binary, "binary");
  }

  parameter_cells find_restricted(const located_text& name, bool groups_apart) {
    parameter_cells cells = space_.find(name, groups_apart);
    if (cells.of == family::beta)
      throw input_error::of("{}: \"{}\": coefficients cannot be restricted; rho and gamma can.",
                            name.where, name.text);
    if (cells.of == family::gamma && !data_.covariates.empty())
      throw input_error::of(
          "{}: \"{}\": with covariates the class shares follow from the coefficients and cannot be "
          "restricted.",
          name.where, name.text);
    return cells;
  }

  void add_equal(const equal_set& set) {
    std::vector<parameter_cells> members;
    for (const located_text& name : set) {
      members.push_back(find_restricted(name, true));
      const parameter_cells& first = members.front();
      const parameter_cells& cells = members.back();
      if (cells.of != first.of)
        throw input_error::of("{}: \"{}\" and \"{}\" are of different kinds and cannot be equal.",
                              name.where, set.front().text, name.text);
      const auto same_key = [](const auto& a, const auto& b) { return a.first == b.first; };
      if (!std::equal(cells.lists.begin(), cells.lists.end(), first.lists.begin(),
                      first.lists.end(), same_key))
        throw input_error::of(
            "{}: \"{}\" and \"{}\" do not match: `each` (and a group that is left out) should run "
            "through equally many parameters in both.",
            name.where, set.front().text, name.text);
    }
    for (const auto& [key, unused] : members.front().lists) {
      std::vector<std::size_t> together;
      for (const parameter_cells& cells : members) {
        const auto& list = cells.lists.at(key);
        together.insert(together.end(), list.begin(), list.end());
      }
      join(set.front(), members.front().of, together);
    }
  }

  void join(const located_text& name, family of, const std::vector<std::size_t>& cells) {
    family_state& known = state(of);
    const bool several = std::any_of(cells.begin(), cells.end(),
                                     [&](std::size_t at) { return at != cells.front(); });
    if (!several)
      throw input_error::of(
          "{}: \"{}\" stands for one parameter only; name at least two that are to be equal.",
          name.where, name.text);
    for (const std::size_t at : cells) {
      known.set[known.root(at)] = known.root(cells.front());
      known.equal_by[at] = &name;
    }
  }

  /// One value for all parameters of a name, or one for each that `each` runs through.
  static void check_count(const located_value& given, const parameter_cells& cells) {
    if (given.values.size() == 1 || given.values.size() == cells.lists.size()) return;
    throw input_error::of(
        "{}: \"{}\" has {} values; it should have one, or {}: one for each that `each` runs "
        "through.",
        given.name.where, given.name.text, given.values.size(), cells.lists.size());
  }

  static void check_probabilities(const located_value& given, const char* does) {
    for (const double value : given.values)
      if (!(value >= 0.0 && value <= 1.0))
        throw input_error::of("{}: \"{}\" {} at {}; a probability lies between 0 and 1.",
                              given.name.where, given.name.text, does, value);
  }

  void add_fixed(const located_value& fix) {
    const located_text& name = fix.name;
    const parameter_cells cells = find_restricted(name, false);
    check_count(fix, cells);
    check_probabilities(fix, "is fixed");
    family_state& known = state(cells.of);
    std::size_t next = 0;
    for (const auto& [key, list] : cells.lists) {
      const double value = fix.values[fix.values.size() == 1 ? 0 : next++];
      for (const std::size_t at : list) {
        if (known.fixed[at].value_or(value) != value)
          throw input_error::of("{}: \"{}\" is fixed at {}, but at {} by \"{}\" ({}).", name.where,
                                name.text, value, *known.fixed[at], known.fixed_by[at]->text,
                                known.fixed_by[at]->where);
        if (known.equal_by[at] != nullptr)
          throw input_error::of(
              "{}: \"{}\" is fixed, but equal to others by \"{}\" ({}); fix all of these instead.",
              name.where, name.text, known.equal_by[at]->text, known.equal_by[at]->where);
        known.fixed[at] = value;
        known.fixed_by[at] = &name;
      }
    }
  }

  void add_start(const located_value& start) {
    const located_text& name = start.name;
    const parameter_cells cells = space_.find(name, false);
    check_count(start, cells);
    if (cells.of == family::beta) {
      check_coefficients(name, cells);
    } else {
      check_probabilities(start, "starts");
    }
    family_state& known = state(cells.of);
    std::size_t next = 0;
    for (const auto& [key, list] : cells.lists) {
      const double value = start.values[start.values.size() == 1 ? 0 : next++];
      for (const std::size_t at : list) {
        if (known.start[at].value_or(value) != value)
          throw input_error::of("{}: \"{}\" starts at {}, but another line says {}.", name.where,
                                name.text, value, *known.start[at]);
        if (known.fixed[at].value_or(value) != value)
          throw input_error::of("{}: \"{}\" starts at {}, but is fixed at {} ({}).", name.where,
                                name.text, value, *known.fixed[at], known.fixed_by[at]->where);
        known.start[at] = value;
        known.start_by[at] = &name;
      }
    }
  }

  /// Is class c of a regression one that has coefficients?
  [[nodiscard]] bool has_coefficients(std::size_t c) const {
    return model_.binary ? c == model_.compared : c != model_.reference;
  }

  void check_coefficients(const located_text& name, const parameter_cells& cells) {
    for (const auto& [key, list] : cells.lists)
      for (const std::size_t at : list)
        if (!has_coefficients(at / space_.coefficients() % space_.classes()))
          throw input_error::of(
              "{}: \"{}\": {} and has no coefficients to start from.", name.where, name.text,
              model_.binary ? "a class that is not the one of `binary` belongs to the others"
                            : "the reference class is what the others are compared with");
  }

  /// A row with nothing left to estimate keeps its largest cell free: it is what the others leave.
  void set_codes(family of, std::vector<std::int32_t>& code, std::vector<double>& value) {
    family_state& known = state(of);
    const std::size_t n = known.set.size();
    code.assign(n, 1);
    std::vector<std::size_t> members(n, 0), position(n, 0);
    std::vector<std::int32_t> number(n, 0);
    for (std::size_t at = 0; at < n; ++at) ++members[known.root(at)];
    std::int32_t next = 2;
    for (const probability_row& row : rows_) {
      if (row.of != of) continue;
      fix_what_is_left(row, known);
      for (std::size_t k = 0; k < row.cells.size(); ++k) {
        const std::size_t at = row.cells[k];
        const std::size_t root = known.root(at);
        if (known.fixed[at]) {
          code[at] = 0;
          value[at] = *known.fixed[at];
          model_.fix.emplace_back(name_of(row, k), value[at]);
        } else if (members[root] > 1) {
          if (number[root] == 0) {
            number[root] = next++;
            position[root] = model_.equal.size();
            model_.equal.emplace_back();
          }
          code[at] = number[root];
          model_.equal[position[root]].push_back(name_of(row, k));
        }
      }
      free_largest(row, known, code);
    }
    if (std::all_of(code.begin(), code.end(), [](std::int32_t c) { return c == 1; })) code.clear();
  }

  void fix_what_is_left(const probability_row& row, family_state& known) {
    double sum = 0.0;
    const located_text* by = nullptr;
    bool all = true;
    for (const std::size_t at : row.cells) {
      sum += known.fixed[at].value_or(0.0);
      all = all && known.fixed[at];
      if (known.fixed_by[at] != nullptr) by = known.fixed_by[at];
    }
    if (by == nullptr) return;
    const auto complain = [&](const char* what) {
      return input_error::of("{}: the fixed values of {} sum to {}, {}.", by->where, names_of(row),
                             sum, what);
    };
    if (!(sum <= 1.0 + 1e-6)) throw complain("more than 1");
    if (all && !is_one(sum)) throw complain("not to 1, and leave nothing to estimate");
    if (all || sum < 1.0) return;
    for (const std::size_t at : row.cells)
      if (!known.fixed[at] && known.equal_by[at] == nullptr) known.fixed[at] = 0.0;
  }

  static void free_largest(const probability_row& row, const family_state& known,
                           std::vector<std::int32_t>& code) {
    std::size_t largest = row.cells.front();
    for (const std::size_t at : row.cells) {
      if (code[at] != 0) return;
      if (*known.fixed[at] > *known.fixed[largest]) largest = at;
    }
    code[largest] = 1;
  }

  void set_start() {
    for (const probability_row& row : rows_) {
      family_state& known = state(row.of);
      std::vector<double>& value = row.of == family::gamma ? model_.gamma : model_.rho;
      if (row.of == family::gamma && !data_.covariates.empty()) {
        refuse_start_of_shares(row);
        for (const std::size_t at : row.cells)
          value[at] = 1.0 / static_cast<double>(space_.classes());
        continue;
      }
      const double each = share_of_the_rest(row, known);
      for (std::size_t k = 0; k < row.cells.size(); ++k) {
        const std::size_t at = row.cells[k];
        value[at] = known.start[at] ? *known.start[at] : known.fixed[at].value_or(each);
        model_.start.emplace_back(name_of(row, k), value[at]);
      }
    }
    if (data_.covariates.empty()) return;
    model_.beta.assign(beta_.set.size(), 0.0);
    for (std::size_t g = 0; g < data_.groups(); ++g)
      for (std::size_t c = 0; c < space_.classes(); ++c)
        for (std::size_t v = 0; has_coefficients(c) && v < space_.coefficients(); ++v) {
          const std::size_t at = space_.beta_at(v, c, g);
          model_.beta[at] = beta_.start[at].value_or(0.0);
          model_.start.emplace_back(space_.beta_name(v, c, g), model_.beta[at]);
        }
  }

  void refuse_start_of_shares(const probability_row& row) {
    for (std::size_t k = 0; k < row.cells.size(); ++k)
      if (gamma_.start[row.cells[k]])
        throw input_error::of(
            "{}: \"{}\": with covariates the class shares follow from the coefficients; start from "
            "beta[intercept, ...] instead.",
            gamma_.start_by[row.cells[k]]->where, name_of(row, k));
  }

  /// What a cell of the row starts from that is neither given nor fixed.
  double share_of_the_rest(const probability_row& row, const family_state& known) {
    double sum = 0.0;
    std::size_t open = 0;
    const located_text* by = &options_.start.front().name;
    bool any = false;
    for (const std::size_t at : row.cells) {
      const auto given = known.start[at] ? known.start[at] : known.fixed[at];
      if (known.start_by[at] != nullptr) by = known.start_by[at];
      any = any || given;
      sum += given.value_or(0.0);
      open += given ? 0 : 1;
    }
    const std::string& where = by->where;
    if (!any && row.of == family::rho && row.cells.size() > 1)
      throw input_error::of(
          "{}: there is no starting value for {}; a start needs every item in every class (the "
          "last "
          "category may be left out).",
          where, names_of(row));
    if (!(sum <= 1.0 + 1e-6) || (open == 0 && !is_one(sum)))
      throw input_error::of("{}: the starting values of {} sum to {}; they should sum to 1.", where,
                            names_of(row), sum);
    return open == 0 ? 0.0 : std::max(0.0, 1.0 - sum) / static_cast<double>(open);
  }

  /// Gives all groups what was said of group 1.
  void share_rho() {
    if (!options_.invariant) return;
    const std::size_t size = model_.rho.size() / data_.groups();
    for (std::size_t at = size; at < model_.rho.size(); ++at) {
      model_.rho[at] = model_.rho[at - size];
      if (!model_.rho_code.empty()) model_.rho_code[at] = model_.rho_code[at - size];
    }
  }

  const lca_data& data_;
  const lca_options& options_;
  parameter_space space_;
  std::vector<probability_row> rows_;
  family_state gamma_, rho_, beta_;
  lca_model model_;
};

}  // namespace

lca_model make_lca_model(const lca_data& data, const lca_options& options) {
  return model_builder(data, options).build();
}

}  // namespace tolvenra::cli
