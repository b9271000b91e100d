#include "estimation/restrictions.hpp"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "core/dynamic_allocation.hpp"

namespace tolvenra::estimation {
namespace {

/// The words in which one family speaks of a row whose elements are all fixed.
struct wording {
  routine here;
  text_lines all_fixed;
  std::string_view parameters, tables;
  std::vector<std::string_view> dimensions;  ///< of the array; "" for that of the sums
};

/// Calls body(m, offset) for every real element of the first `nrows` rows.
template <class Body>
void for_each_element(const row_layout& rows, int32 nrows, Body&& body) {
  for (int32 m = 0; m < nrows; ++m)
    for (int32 r = 0; r < rows.length[static_cast<std::size_t>(m)]; ++r)
      body(m, static_cast<std::size_t>(rows.base(m) + r * rows.step));
}

/// Whether some equality number occurs once only; codes may be as large as an integer.
template <std::size_t R>
bool lone_equality_number(const prob_block<R>& block) {
  std::vector<int32> groups;
  for_each_element(block.rows, block.rows.nrows, [&](int32, std::size_t at) {
    if (block.code.flat[at] >= 2) groups.push_back(block.code.flat[at]);
  });
  std::sort(groups.begin(), groups.end());
  for (std::size_t k = 0; k < groups.size(); ++k)
    if ((k == 0 || groups[k - 1] != groups[k]) &&
        (k + 1 == groups.size() || groups[k + 1] != groups[k]))
      return true;
  return false;
}

template <std::size_t R>
bool row_all_fixed(const prob_block<R>& block) {
  std::vector<bool> open(static_cast<std::size_t>(block.rows.nrows), false);
  for_each_element(block.rows, block.rows.nrows, [&](int32 m, std::size_t at) {
    if (block.code.flat[at] != 0) open[static_cast<std::size_t>(m)] = true;
  });
  for (std::size_t m = 0; m < open.size(); ++m)
    if (!open[m] && block.rows.length[m] > 0) return true;
  return false;
}

/// The rows that are solved: the first ones of a family, or the copy that pools it.
struct solved_rows {
  std::span<const int32> code;
  std::span<const double> values;
  const row_layout& rows;
  int32 nrows;
  std::span<const std::size_t> offset;  ///< of a copy: its element for each of the family's array

  /// Where row m begins in the family's array.
  [[nodiscard]] std::size_t first_of(std::size_t m) const {
    const auto first = static_cast<std::size_t>(rows.base(static_cast<int64>(m)));
    const auto found = std::find(offset.begin(), offset.end(), first);
    return offset.empty() ? first : static_cast<std::size_t>(found - offset.begin());
  }
};

/// Refuses restrictions that leave no values for a row.
/// \param first  offset of its first element in the family's array
template <std::size_t R>
int32 say_unmet(const prob_block<R>& block, std::size_t first, const wording& words,
                error_type& err) {
  const auto index = indices_at(block.code.n, static_cast<int64>(first));
  std::string row;
  for (std::size_t k = 0; k < R; ++k)
    if (!words.dimensions[k].empty())
      row += std::string(row.empty() ? "" : ", ") + std::string(words.dimensions[k]) + " " +
             std::to_string(index[k]);
  return fail(err, words.here,
              {text("The equality and fixed restrictions on the ", words.parameters, " parameters"),
               text("cannot all be satisfied at the same time."),
               text("They leave no values for the probabilities of"), text(row, ".")});
}

template <std::size_t R>
int32 decode(prob_block<R>& block, const solved_rows& solved, const wording& words,
             error_type& err) {
  if (lone_equality_number(block))
    return fail(err, words.here, {text("Equality number must appear at least twice.")});
  if (row_all_fixed(block)) {
    for (const std::string& line : words.all_fixed) err_add_line(err.lines, line);
    err.occurred = true;
    return pass_on(err, words.here);
  }
  if (allocation::allocate_under(words.tables, words.here, err, [&] {
        block.solver = row_solver(solved.code, solved.values, solved.rows, solved.nrows);
      }) != 0)
    return -1;
  if (const auto row = block.solver.unmet_row())
    return say_unmet(block, solved.first_of(*row), words, err);
  row_layout shared = solved.rows;
  shared.nrows = solved.nrows;
  block.n_estimated = number_of_parameters_estimated(solved.code, shared);
  return 0;
}

template <std::size_t R>
int32 decode(prob_block<R>& block, const wording& words, error_type& err) {
  return decode(block, {block.code.flat, block.now.flat, block.rows, block.shared_rows, {}}, words,
                err);
}

/// Checks that codes, and the values of fixed elements, do not vary along dimension k (from 0).
template <std::size_t R>
int32 require_equal(const prob_block<R>& block, std::size_t k, std::string_view unequal,
                    const routine& here, error_type& err) {
  const auto stride = block.code.stride[k];
  for (std::size_t q = 0; q < block.code.size(); ++q) {
    const auto at = static_cast<int64>(q);
    const auto first = static_cast<std::size_t>(at - at / stride % block.code.n[k] * stride);
    if (block.code.flat[q] != block.code.flat[first]) return fail(err, here, {text(unequal)});
    if (block.code.flat[q] == 0 && block.now.flat[q] != block.now.flat[first])
      return fail(err, here, {text(unequal), text("Some of its fixed values differ.")});
  }
  return 0;
}

/// One copy of the rows that are equal along the marked dimensions.
pooled_rows pool(const prob_block<6>& block, const std::array<bool, 6>& equal,
                 std::span<const int32> categories) {
  pooled_rows pooled;
  std::array<int32, 6> extents = block.code.n;
  for (std::size_t k = 0; k < 6; ++k)
    if (equal[k]) extents[k] = std::min(extents[k], 1);
  pooled.rows = rows_along(extents, 2, categories);
  pooled.offset.resize(block.code.size());
  std::size_t size = 1;
  for (const int32 n : extents) size *= static_cast<std::size_t>(n);
  pooled.code.assign(size, 1);
  pooled.now.assign(size, 0.0);
  pooled.numerator.assign(size, 0.0);
  for (std::size_t q = pooled.offset.size(); q-- > 0;) {  // the first along a dimension comes last
    const auto index = indices_at(block.code.n, static_cast<int64>(q));
    int64 to = 0;
    int64 stride = 1;
    for (std::size_t k = 0; k < 6; ++k) {
      to += equal[k] ? 0 : (index[k] - 1) * stride;
      stride *= extents[k];
    }
    pooled.offset[q] = static_cast<std::size_t>(to);
    pooled.code[pooled.offset[q]] = block.code.flat[q];
    pooled.now[pooled.offset[q]] = block.now.flat[q];
  }
  return pooled;
}

}  // namespace

int32 get_info_from_gamma_restriction(mlworkspace& work, error_type& err) {
  work.gamma.shared_rows = work.gamma.rows.nrows;
  return decode(
      work.gamma,
      {{"get_info_from_gamma_restriction", "estimation"},
       {"Gamma parameter restrictions were FIXED for all",
        "latent classes in a row; please free the", "gamma parameters for at least one class."},
       "gamma",
       "get_info_from_gamma_restriction: work%gamma_rest_loc",
       {"", "stratum (group)"}},
      err);
}

int32 get_info_from_rho_restriction(mlworkspace& work, error_type& err) {
  constexpr routine here{"get_info_from_rho_restriction", "estimation"};
  work.rho.shared_rows = work.rho.rows.nrows;
  if (work.rho_equal_across_strata) {
    if (require_equal(work.rho, 3, "Rho must be equal across strata.", here, err) != 0) return -1;
    work.rho.shared_rows /= work.data.nstr;
  }
  return decode(work.rho,
                {here,
                 {"Rho parameter restrictions for one or more parameters",
                  "were FIXED for all response categories; please free the",
                  "rho parameters for at least one response category"},
                 "rho",
                 "get_info_from_rho_restriction: work%rho_rest_loc",
                 {"item", "class", "", "stratum (group)"}},
                err);
}

int32 get_info_from_delta_restriction(mlworkspace& work, error_type& err) {
  work.delta.shared_rows = work.delta.rows.nrows;
  return decode(
      work.delta,
      {{"get_info_from_delta_restriction", "estimation"},
       {"Delta parameter restrictions were FIXED for all",
        "latent statuses in a row; please free the", "delta parameters for at least one status."},
       "delta",
       "get_info_from_delta_restriction: work%delta_rest_loc",
       {"", "class", "stratum (group)"}},
      err);
}

int32 get_info_from_tau_restriction(mlworkspace& work, error_type& err) {
  work.tau.shared_rows = work.tau.rows.nrows;
  return decode(
      work.tau,
      {{"get_info_from_tau_restriction", "estimation"},
       {"Tau parameter restrictions were FIXED for all",
        "latent statuses in a row; please free the", "tau parameters for at least one status."},
       "tau",
       "get_info_from_tau_restriction: work%tau_rest_loc",
       {"status", "", "time", "class", "stratum (group)"}},
      err);
}

int32 get_info_from_big_rho_restriction(mlworkspace& work, error_type& err) {
  constexpr routine here{"get_info_from_big_rho_restriction", "estimation"};
  const param_type& param = work.given.param;
  prob_block<6>& block = work.big_rho;
  block.shared_rows = block.rows.nrows;
  const wording words{here,
                      {"Rho parameter restrictions for one or more parameters",
                       "were FIXED for all response categories; please free the",
                       "rho parameters for at least one response category"},
                      "big_rho",
                      "get_info_from_big_rho_restriction: work%big_rho_rest_loc",
                      {"item", "status", "", "time", "class", "stratum (group)"}};
  const bool across_class = param.big_rho_equal_across_class;
  const bool across_time = param.big_rho_equal_across_time;
  const bool across_strata = param.big_rho_equal_across_strata;
  if ((across_class &&
       require_equal(block, 4, "Big_Rho must be equal across class.", here, err) != 0) ||
      (across_time &&
       require_equal(block, 3, "Big_Rho must be equal across time.", here, err) != 0) ||
      (across_strata &&
       require_equal(block, 5, "Big_Rho must be equal across strata.", here, err) != 0))
    return -1;
  if (!across_class && !across_time && !across_strata) return decode(block, words, err);
  pooled_rows& pooled = work.big_rho_pool;
  if (allocation::allocate_under(words.tables, here, err, [&] {
        pooled = pool(block, {false, false, false, across_time, across_class, across_strata},
                      param.nrs.flat);
      }) != 0)
    return -1;
  return decode(block, {pooled.code, pooled.now, pooled.rows, pooled.rows.nrows, pooled.offset},
                words, err);
}

int32 number_of_parameters_estimated(std::span<const int32> codes, const row_layout& rows) {
  std::unordered_set<int32> equiv_classes;  // equality groups already met
  int32 count = 0;
  int32 in_row = 0;
  int32 row = 0;
  const auto close_row = [&] { count += std::max(std::exchange(in_row, 0) - 1, 0); };
  for_each_element(rows, rows.nrows, [&](int32 m, std::size_t at) {
    if (m != row) close_row();
    row = m;
    if (codes[at] == 1 || (codes[at] >= 2 && equiv_classes.insert(codes[at]).second)) ++in_row;
  });
  close_row();
  return count;
}

}  // namespace tolvenra::estimation
