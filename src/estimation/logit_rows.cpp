#include "estimation/logit_rows.hpp"

#include <algorithm>
#include <map>
#include <numeric>

namespace tolvenra::estimation {
namespace {

class row_placement {
 public:
  row_placement(std::vector<logit_row>& rows, const free_parameters& map,
                std::vector<logit_place>& place, std::vector<bool>& parameters)
      : rows_(rows), map_(map), place_(place), parameters_(parameters) {}

  bool run() {
    for (const auto& component : components()) {
      const bool pairs = std::all_of(component.begin(), component.end(),
                                     [&](std::size_t m) { return rows_[m].code.size() == 2; });
      if (pairs)
        place_pairs(component);
      else if (!place_symbols(component))
        return false;
    }
    return true;
  }

 private:
  using component_list = std::vector<std::vector<std::size_t>>;

  /// Rows that share an equality group stand together, in the order of their first rows.
  component_list components() const {
    std::vector<std::size_t> root(rows_.size());
    std::iota(root.begin(), root.end(), std::size_t{0});
    const auto root_of = [&](std::size_t m) {
      while (root[m] != m) m = root[m] = root[root[m]];
      return m;
    };
    std::map<int32, std::size_t> first_row;
    for (std::size_t m = 0; m < rows_.size(); ++m)
      for (const int32 code : rows_[m].code) {
        if (code < 2) continue;
        const std::size_t a = root_of(first_row.emplace(code, m).first->second);
        const std::size_t b = root_of(m);
        root[std::max(a, b)] = std::min(a, b);
      }
    std::vector<std::vector<std::size_t>> by_root(rows_.size());
    for (std::size_t m = 0; m < rows_.size(); ++m) by_root[root_of(m)].push_back(m);
    std::erase_if(by_root, [](const auto& component) { return component.empty(); });
    return by_root;
  }

  int32 new_parameter(double value) {
    parameters_.push_back(!map_.at_boundary(value));
    return static_cast<int32>(parameters_.size()) - 1;
  }

  void put(const logit_row& row, std::size_t element, int32 free, double sign) {
    place_[row.first + element - (element > row.reference ? 1 : 0)] = {free, sign};
  }

  static std::size_t largest(const logit_row& row) {
    std::size_t best = row.code.size();
    for (std::size_t r = 0; r < row.code.size(); ++r)
      if (row.code[r] != 0 && (best == row.code.size() || row.value[r] > row.value[best])) best = r;
    return best == row.code.size() ? 0 : best;
  }

  /// Rows of two elements have one logit; a shared group makes two of them equal or opposite.
  void place_pairs(const std::vector<std::size_t>& component) {
    for (const std::size_t m : component) rows_[m].reference = largest(rows_[m]);
    std::map<std::size_t, double> sign{{component.front(), 1.0}};
    if (!find_signs(component, sign)) return;  // all of them fixed
    const logit_row& front = rows_[component.front()];
    const int32 free = new_parameter(front.value[0]);
    bool populated = false;
    for (const std::size_t m : component) {
      logit_row& row = rows_[m];
      const double turned = row.reference == front.reference ? 1.0 : -1.0;
      put(row, 1 - row.reference, free, sign[m] * turned);
      populated = populated || row.populated;
    }
    if (!populated) parameters_.back() = false;
  }

  /// Sign of every row's log(p_2 / p_1) against the first row's.
  /// \return false when a fixed element or a row equal to its own mirror image leaves no parameter
  bool find_signs(const std::vector<std::size_t>& component, std::map<std::size_t, double>& sign) {
    bool free = true;
    for (bool moved = true; moved;) {
      moved = false;
      std::map<int32, double> of_code;  // sign of log(v / (1 - v)) of the group's value v
      for (int pass = 0; pass < 2; ++pass)
        for (const std::size_t m : component)
          for (std::size_t e = 0; e < 2; ++e) {
            const int32 code = rows_[m].code[e];
            free = free && code != 0;
            if (code < 2) continue;
            const double turn = e == 1 ? 1.0 : -1.0;
            const auto known = sign.find(m);
            const auto group = of_code.find(code);
            if (known != sign.end() && group != of_code.end())
              free = free && group->second == turn * known->second;
            else if (known != sign.end())
              of_code[code] = turn * known->second;
            else if (group != of_code.end())
              moved = sign.emplace(m, turn * group->second).second || moved;
          }
    }
    return free;
  }

  /// Longer rows: equality groups are symbols, and linked rows must consist of the same ones.
  bool place_symbols(const std::vector<std::size_t>& component) {
    const auto symbols_of = [&](std::size_t m) {
      auto symbols = rows_[m].code;
      std::sort(symbols.begin(), symbols.end());
      return symbols;
    };
    const auto symbols = symbols_of(component.front());
    for (const std::size_t m : component)
      if (component.size() > 1 && (symbols.front() < 2 || symbols_of(m) != symbols)) return false;
    const logit_row& front = rows_[component.front()];
    const int32 reference = front.code[largest(front)];
    std::map<int32, int32> parameter_of;
    const std::size_t first_parameter = parameters_.size();
    bool populated = false;
    for (const std::size_t m : component) {
      logit_row& row = rows_[m];
      row.reference = largest(front);
      if (reference >= 2)
        row.reference = static_cast<std::size_t>(
            std::find(row.code.begin(), row.code.end(), reference) - row.code.begin());
      place_symbols(row, parameter_of);
      populated = populated || row.populated;
    }
    if (!populated)
      std::fill(parameters_.begin() + static_cast<std::ptrdiff_t>(first_parameter),
                parameters_.end(), false);
    return true;
  }

  void place_symbols(const logit_row& row, std::map<int32, int32>& parameter_of) {
    const int32 reference = row.code[row.reference];
    for (std::size_t r = 0; r < row.code.size(); ++r) {
      const int32 code = row.code[r];
      if (r == row.reference || code == 0 || (code >= 2 && code == reference)) continue;
      int32 free = -1;
      if (const auto known = parameter_of.find(code); code >= 2 && known != parameter_of.end())
        free = known->second;
      else
        free = new_parameter(row.value[r]);
      if (code >= 2) parameter_of.emplace(code, free);
      put(row, r, free, 1.0);
    }
  }

  std::vector<logit_row>& rows_;
  const free_parameters& map_;
  std::vector<logit_place>& place_;
  std::vector<bool>& parameters_;
};

}  // namespace

bool place_rows(std::vector<logit_row>& rows, const free_parameters& map,
                std::vector<logit_place>& place, std::vector<bool>& parameters) {
  return row_placement(rows, map, place, parameters).run();
}

}  // namespace tolvenra::estimation
