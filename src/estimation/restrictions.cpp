#include "estimation/restrictions.hpp"

#include <algorithm>
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

template <std::size_t R>
int32 decode(prob_block<R>& block, const wording& words, error_type& err) {
  if (lone_equality_number(block))
    return fail(err, words.here, {text("Equality number must appear at least twice.")});
  if (row_all_fixed(block)) {
    for (const std::string& line : words.all_fixed) err_add_line(err.lines, line);
    err.occurred = true;
    return pass_on(err, words.here);
  }
  bool consistent = false;
  if (allocation::allocate_under(words.tables, words.here, err, [&] {
        block.solver = row_solver(block.code.flat, block.now.flat, block.rows, block.shared_rows);
        consistent = block.solver.consistent(block.now.flat);
      }) != 0)
    return -1;
  if (!consistent)
    return fail(
        err, words.here,
        {text("The equality and fixed restrictions on the ", words.parameters, " parameters"),
         text("cannot all be satisfied at the same time.")});
  row_layout shared = block.rows;
  shared.nrows = block.shared_rows;
  block.n_estimated = number_of_parameters_estimated(block.code.flat, shared);
  return 0;
}

bool codes_equal_across_strata(const array<int32, 4>& code) {
  const auto stride = static_cast<std::ptrdiff_t>(code.stride[3]);
  for (int32 g = 1; g < code.n[3]; ++g)
    if (!std::equal(code.flat.begin(), code.flat.begin() + stride, code.flat.begin() + g * stride))
      return false;
  return true;
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
       "get_info_from_gamma_restriction: work%gamma_rest_loc"},
      err);
}

int32 get_info_from_rho_restriction(mlworkspace& work, error_type& err) {
  constexpr routine here{"get_info_from_rho_restriction", "estimation"};
  work.rho.shared_rows = work.rho.rows.nrows;
  if (work.rho_equal_across_strata) {
    if (!codes_equal_across_strata(work.rho.code))
      return fail(err, here, {text("Rho must be equal across strata.")});
    work.rho.shared_rows /= work.data.nstr;
  }
  return decode(work.rho,
                {here,
                 {"Rho parameter restrictions for one or more parameters",
                  "were FIXED for all response categories; please free the",
                  "rho parameters for at least one response category"},
                 "rho",
                 "get_info_from_rho_restriction: work%rho_rest_loc"},
                err);
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
