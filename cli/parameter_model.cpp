#include "parameter_model.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

/// Sums to 1 as far as rounded figures can.
bool is_one(double sum) { return std::abs(sum - 1.0) <= 1e-6; }

/// Probabilities that sum to 1.
struct probability_row {
  std::size_t family = 0;
  std::vector<std::size_t> cells;
  std::vector<std::string> names;
};

/// Calls visit(indices) for every combination of the axes in this order, the first slowest.
template <class Visit>
void walk(const parameter_space& space, const parameter_family& family,
          const std::vector<std::size_t>& order, std::size_t depth, std::vector<std::size_t>& at,
          const Visit& visit) {
  if (depth == order.size()) return visit(at);
  const std::size_t n = space.extent(family, order[depth], at);
  for (at[order[depth]] = 0; at[order[depth]] < n; ++at[order[depth]])
    walk(space, family, order, depth + 1, at, visit);
  at[order[depth]] = 0;
}

/// Groups, then times, then the other axes but the one that sums.
std::vector<std::size_t> row_order(const parameter_family& family) {
  std::vector<std::size_t> order;
  const auto add = [&](auto&& wanted) {
    for (std::size_t k = 0; k < family.axes.size(); ++k)
      if (k != family.sums && wanted(family.axes[k].of)) order.push_back(k);
  };
  using kind = parameter_axis::kind;
  add([](kind of) { return of == kind::group; });
  add([](kind of) { return of == kind::time; });
  add([](kind of) { return of != kind::group && of != kind::time; });
  return order;
}

std::vector<probability_row> rows_of(const parameter_space& space) {
  std::vector<probability_row> rows;
  for (std::size_t f = 0; f < space.families().size(); ++f) {
    const parameter_family& family = space.families()[f];
    if (!family.sums) continue;
    std::vector<std::size_t> at(family.axes.size(), 0);
    walk(space, family, row_order(family), 0, at, [&](std::vector<std::size_t> cell) {
      probability_row& row = rows.emplace_back(probability_row{f, {}, {}});
      const std::size_t n = space.extent(family, *family.sums, cell);
      for (cell[*family.sums] = 0; cell[*family.sums] < n; ++cell[*family.sums]) {
        row.cells.push_back(offset_of(family, cell));
        row.names.push_back(space.name_of(family, cell));
      }
    });
  }
  return rows;
}

/// What is known of every parameter of one family.
struct family_state {
  std::vector<std::size_t> set;  ///< one member of the set a cell belongs to
  std::vector<std::optional<double>> fixed, start;
  std::vector<const located_text*> fixed_by, equal_by, start_by;

  explicit family_state(std::size_t n)
      : set(n), fixed(n), start(n), fixed_by(n), equal_by(n), start_by(n) {
    std::iota(set.begin(), set.end(), std::size_t{0});
  }

  std::size_t root(std::size_t cell) {
    while (set[cell] != cell) cell = set[cell] = set[set[cell]];
    return cell;
  }
};

/// One value for all parameters of a name, or one for each that `each` runs through.
void check_count(const located_value& given, const parameter_cells& cells) {
  if (given.values.size() == 1 || given.values.size() == cells.lists.size()) return;
  throw input_error::of(
      "{}: \"{}\" has {} values; it should have one, or {}: one for each that `each` runs "
      "through.",
      given.name.where, given.name.text, given.values.size(), cells.lists.size());
}

void check_probabilities(const located_value& given, const char* does) {
  for (const double value : given.values)
    if (!(value >= 0.0 && value <= 1.0))
      throw input_error::of("{}: \"{}\" {} at {}; a probability lies between 0 and 1.",
                            given.name.where, given.name.text, does, value);
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
    return input_error::of("{}: the fixed values of {} sum to {}, {}.", by->where,
                           fmt::join(row.names, ", "), sum, what);
  };
  if (!(sum <= 1.0 + 1e-6)) throw complain("more than 1");
  if (all && !is_one(sum)) throw complain("not to 1, and leave nothing to estimate");
  if (all || sum < 1.0) return;
  for (const std::size_t at : row.cells)
    if (!known.fixed[at] && known.equal_by[at] == nullptr) known.fixed[at] = 0.0;
}

/// A row with nothing left to estimate keeps its largest cell free: it is what the others leave.
void free_largest(const probability_row& row, const family_state& known,
                  std::vector<std::int32_t>& code) {
  std::size_t largest = row.cells.front();
  for (const std::size_t at : row.cells) {
    if (code[at] != 0) return;
    if (*known.fixed[at] > *known.fixed[largest]) largest = at;
  }
  code[largest] = 1;
}

class model_builder {
 public:
  model_builder(const parameter_space& space, const std::vector<family_rules>& rules,
                const analysis_options& options)
      : space_(space), rules_(rules), options_(options) {}

  parameter_model build() {
    model_.stated.start_given = !options_.start.empty();
    for (const parameter_family& family : space_.families())
      model_.families.push_back({{}, std::vector<double>(family.size, 0.0)});
    const bool nothing =
        options_.equal.empty() && options_.fix.empty() && !model_.stated.start_given;
    const bool fills = std::any_of(rules_.begin(), rules_.end(),
                                   [](const family_rules& rules) { return rules.always_filled; });
    if (nothing && !fills) return std::move(model_);
    rows_ = rows_of(space_);
    for (const parameter_family& family : space_.families()) state_.emplace_back(family.size);
    for (const equal_set& set : options_.equal) add_equal(set);
    for (const located_value& fix : options_.fix) add_fixed(fix);
    for (const located_value& start : options_.start) add_start(start);
    for (std::size_t f = 0; f < state_.size(); ++f) set_codes(f);
    set_values();
    for (std::size_t f = 0; f < state_.size(); ++f) share(f);
    return std::move(model_);
  }

 private:
  parameter_cells find_restricted(const located_text& name, bool groups_apart) {
    parameter_cells cells = space_.find(name, groups_apart);
    const std::string& reason = rules_[cells.family].no_restriction;
    if (!reason.empty()) throw input_error::of("{}: \"{}\": {}", name.where, name.text, reason);
    return cells;
  }

  void add_equal(const equal_set& set) {
    std::vector<parameter_cells> members;
    for (const located_text& name : set) {
      members.push_back(find_restricted(name, true));
      const parameter_cells& first = members.front();
      const parameter_cells& cells = members.back();
      if (const std::string& reason = rules_[cells.family].only_zeros; !reason.empty())
        throw input_error::of("{}: \"{}\": {}", name.where, name.text, reason);
      if (cells.family != first.family)
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
      join(set.front(), state_[members.front().family], together);
    }
  }

  static void join(const located_text& name, family_state& known,
                   const std::vector<std::size_t>& cells) {
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

  void add_fixed(const located_value& fix) {
    const located_text& name = fix.name;
    const parameter_cells cells = find_restricted(name, false);
    check_count(fix, cells);
    check_probabilities(fix, "is fixed");
    const std::string& only_zeros = rules_[cells.family].only_zeros;
    family_state& known = state_[cells.family];
    std::size_t next = 0;
    for (const auto& [key, list] : cells.lists) {
      const double value = fix.values[fix.values.size() == 1 ? 0 : next++];
      if (value != 0.0 && !only_zeros.empty())
        throw input_error::of("{}: \"{}\": {}", name.where, name.text, only_zeros);
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
    if (space_.families()[cells.family].sums) check_probabilities(start, "starts");
    family_state& known = state_[cells.family];
    std::size_t next = 0;
    for (const auto& [key, list] : cells.lists) {
      const double value = start.values[start.values.size() == 1 ? 0 : next++];
      for (const std::size_t at : list) {
        const auto& no_start_at = rules_[cells.family].no_start_at;
        if (const std::string reason = no_start_at ? no_start_at(at) : ""; !reason.empty())
          throw input_error::of("{}: \"{}\": {}", name.where, name.text, reason);
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

  void set_codes(std::size_t f) {
    family_state& known = state_[f];
    family_values& values = model_.families[f];
    stated_parameters& stated = model_.stated;
    const std::size_t n = known.set.size();
    std::vector<std::int32_t>& code = values.code;
    code.assign(n, 1);
    std::vector<std::size_t> members(n, 0), position(n, 0);
    std::vector<std::int32_t> number(n, 0);
    for (std::size_t at = 0; at < n; ++at) ++members[known.root(at)];
    std::int32_t next = 2;
    for (const probability_row& row : rows_) {
      if (row.family != f) continue;
      fix_what_is_left(row, known);
      for (std::size_t k = 0; k < row.cells.size(); ++k) {
        const std::size_t at = row.cells[k];
        const std::size_t root = known.root(at);
        if (known.fixed[at]) {
          code[at] = 0;
          values.value[at] = *known.fixed[at];
          stated.fix.emplace_back(row.names[k], values.value[at]);
        } else if (members[root] > 1) {
          if (number[root] == 0) {
            number[root] = next++;
            position[root] = stated.equal.size();
            stated.equal.emplace_back();
          }
          code[at] = number[root];
          stated.equal[position[root]].push_back(row.names[k]);
        }
      }
      free_largest(row, known, code);
    }
    if (std::all_of(code.begin(), code.end(), [](std::int32_t c) { return c == 1; })) code.clear();
  }

  void set_values() {
    const bool given = model_.stated.start_given;
    for (const probability_row& row : rows_) {
      const family_rules& rules = rules_[row.family];
      if (!given && !rules.always_filled) continue;
      const family_state& known = state_[row.family];
      std::vector<double>& value = model_.families[row.family].value;
      const bool stated = given && rules.no_start.empty();
      if (!rules.no_start.empty()) refuse_start(row);
      const double each = share_of_the_rest(row, known, stated);
      for (std::size_t k = 0; k < row.cells.size(); ++k) {
        const std::size_t at = row.cells[k];
        value[at] = known.start[at] ? *known.start[at] : known.fixed[at].value_or(each);
        if (stated) model_.stated.start.emplace_back(row.names[k], value[at]);
      }
    }
    for (std::size_t f = 0; given && f < state_.size(); ++f) start_coefficients(f);
  }

  void start_coefficients(std::size_t f) {
    const parameter_family& family = space_.families()[f];
    const family_rules& rules = rules_[f];
    if (family.sums || !rules.no_start.empty()) return;
    std::vector<std::size_t> order(family.axes.size()), at(family.axes.size(), 0);
    std::iota(order.rbegin(), order.rend(), std::size_t{0});
    walk(space_, family, order, 0, at, [&](const std::vector<std::size_t>& cell) {
      const std::size_t offset = offset_of(family, cell);
      if (rules.no_start_at && !rules.no_start_at(offset).empty()) return;
      double& value = model_.families[f].value[offset];
      value = state_[f].start[offset].value_or(0.0);
      model_.stated.start.emplace_back(space_.name_of(family, cell), value);
    });
  }

  void refuse_start(const probability_row& row) {
    const family_state& known = state_[row.family];
    for (std::size_t k = 0; k < row.cells.size(); ++k)
      if (known.start[row.cells[k]])
        throw input_error::of("{}: \"{}\": {}", known.start_by[row.cells[k]]->where, row.names[k],
                              rules_[row.family].no_start);
  }

  /// What a cell of the row starts from that is neither given nor fixed.
  double share_of_the_rest(const probability_row& row, const family_state& known, bool required) {
    static const located_text nowhere;
    double sum = 0.0;
    std::size_t open = 0;
    const located_text* by = options_.start.empty() ? &nowhere : &options_.start.front().name;
    bool any = false;
    for (const std::size_t at : row.cells) {
      const auto given = known.start[at] ? known.start[at] : known.fixed[at];
      if (known.start_by[at] != nullptr) by = known.start_by[at];
      any = any || given;
      sum += given.value_or(0.0);
      open += given ? 0 : 1;
    }
    const std::string& needed = rules_[row.family].start_required;
    if (!any && required && !needed.empty() && row.cells.size() > 1)
      throw input_error::of("{}: there is no starting value for {}; {}", by->where,
                            fmt::join(row.names, ", "), needed);
    if (!(sum <= 1.0 + 1e-6) || (open == 0 && !is_one(sum)))
      throw input_error::of("{}: the starting values of {} sum to {}; they should sum to 1.",
                            by->where, fmt::join(row.names, ", "), sum);
    return open == 0 ? 0.0 : std::max(0.0, 1.0 - sum) / static_cast<double>(open);
  }

  /// Gives all that no name tells apart what was said of the first.
  void share(std::size_t f) {
    family_values& values = model_.families[f];
    for (const auto& [extent, stride] : space_.families()[f].shared)
      for (std::size_t at = 0; at < values.value.size(); ++at) {
        const std::size_t first = at - at / stride % extent * stride;
        values.value[at] = values.value[first];
        if (!values.code.empty()) values.code[at] = values.code[first];
      }
  }

  const parameter_space& space_;
  const std::vector<family_rules>& rules_;
  const analysis_options& options_;
  std::vector<probability_row> rows_;
  std::vector<family_state> state_;
  parameter_model model_;
};

}  // namespace

parameter_model make_parameter_model(const parameter_space& space,
                                     const std::vector<family_rules>& rules,
                                     const analysis_options& options) {
  return model_builder(space, rules, options).build();
}

void warn_of_equal_starts(std::size_t items, std::size_t classes, const std::vector<double>& rho,
                          const char* latents, std::vector<std::string>& warnings) {
  const auto same = [&](std::size_t a, std::size_t b) {
    for (std::size_t at = 0; at < rho.size(); at += items * classes)
      for (std::size_t j = 0; j < items; ++j)
        if (rho[at + j + items * a] != rho[at + j + items * b]) return false;
    return true;
  };
  for (std::size_t b = 1; b < classes; ++b)
    for (std::size_t a = 0; a < b; ++a)
      if (same(a, b))
        warnings.push_back(
            fmt::format("{} {} and {} start from the same response probabilities: the fit "
                        "cannot tell them apart.",
                        latents, a + 1, b + 1));
}

}  // namespace tolvenra::cli
