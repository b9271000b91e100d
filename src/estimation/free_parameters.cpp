#include "estimation/free_parameters.hpp"

#include <algorithm>

#include "estimation/flat_directions.hpp"
#include "estimation/logit_rows.hpp"

namespace tolvenra::estimation {
namespace {

/// Probabilities up to ten times the change at which the iterations stop cannot be told from 0;
/// a coarse criterion does not make larger ones extreme.
double edge_of(const em_state& em) { return std::min(std::max(1e-6, 10.0 * em.criterion), 0.01); }

int32 binary_class(const mlworkspace& work) {
  return work.beta.active ? work.beta.fits.front().binary : 0;
}

bool absent(const mlworkspace& work, int32 c, int32 g) {
  return work.beta.active &&
         work.beta.fits[static_cast<std::size_t>(g - 1)].absent[static_cast<std::size_t>(c - 1)];
}

/// Sizes of the blocks, the same in every stratum.
void set_sizes(const mlworkspace& work, free_parameters& map) {
  map = free_parameters{};
  map.edge = edge_of(work.em);
  map.nc = work.latent.nc;
  map.nstr = work.data.nstr;
  map.copies = work.rho_equal_across_strata ? 1 : map.nstr;
  const int32 compared = binary_class(work);
  if (work.beta.active) {
    map.columns = work.beta.fits.front().x.n[1];
    for (int32 c = 1; c <= map.nc; ++c)
      if (compared > 0 ? c == compared : c != work.beta.fits.front().baseline)
        map.slope_class.push_back(c);
    map.slopes = map.columns * static_cast<int32>(map.slope_class.size());
  }
  map.shares = !work.beta.active ? map.nc - 1 : compared > 0 ? map.nc - 2 : 0;
  map.membership = map.slopes + map.shares;
  map.share_class.allocate({map.shares, map.nstr});
  map.reference.allocate({work.data.nci, map.nc, map.copies}, 1);
  for (int32 j = 1; j <= work.data.nci; ++j) {
    map.item_first.push_back(map.responses);
    map.responses += std::max(work.data.nrc(j) - 1, 0);
  }
  map.place.assign(map.responses_at(map.copies, map.nc + 1), logit_place{});
}

/// Every coefficient is free unless its class is left out of the regression. What an empty class
/// has no finite estimate of is none of the boundary's.
void place_slopes(const mlworkspace& work, free_parameters& map, std::vector<bool>& parameters) {
  for (int32 g = 1; g <= map.nstr; ++g) {
    std::size_t at = map.membership_at(g);
    for (const int32 c : map.slope_class)
      for (int32 j = 0; j < map.columns; ++j, ++at) {
        if (absent(work, c, g)) continue;
        map.place[at] = {static_cast<int32>(parameters.size()), 1.0};
        const fitted_row& row = work.beta.rows[static_cast<std::size_t>(g - 1)];
        parameters.push_back(!map.at_boundary(work.gamma.now(c, g)) || is_runaway(row, j + 1, c));
      }
  }
}

bool place_shares(const mlworkspace& work, free_parameters& map, std::vector<bool>& parameters) {
  if (map.shares < 1) return true;
  const int32 compared = binary_class(work);
  std::vector<logit_row> rows;
  std::vector<int32> classes;
  for (int32 c = 1; c <= map.nc; ++c)
    if (c != compared) classes.push_back(c);
  for (int32 g = 1; g <= map.nstr; ++g) {
    logit_row& row = rows.emplace_back();
    row.first = map.membership_at(g) + static_cast<std::size_t>(map.slopes);
    for (const int32 c : classes) {
      row.code.push_back(compared > 0 ? (absent(work, c, g) ? 0 : 1) : work.gamma.code(c, g));
      row.value.push_back(work.gamma.now(c, g));
    }
  }
  if (!place_rows(rows, map, map.place, parameters)) return false;
  for (int32 g = 1; g <= map.nstr; ++g)
    for (int32 l = 0; l < map.shares; ++l) {
      const auto at = static_cast<std::size_t>(l);
      const bool behind = at >= rows[static_cast<std::size_t>(g - 1)].reference;
      map.share_class(l + 1, g) = classes[at + (behind ? 1 : 0)];
    }
  return true;
}

/// Whether a class has members in some stratum that shares a copy of the responses.
bool populated(const mlworkspace& work, const free_parameters& map, int32 c, int32 copy) {
  for (int32 g = 1; g <= map.nstr; ++g)
    if (map.copy_of(g) == copy && work.gamma.now(c, g) >= map.edge) return true;
  return false;
}

bool place_responses(const mlworkspace& work, free_parameters& map, std::vector<bool>& parameters) {
  std::vector<logit_row> rows;
  std::vector<int32*> reference;
  for (int32 copy = 1; copy <= map.copies; ++copy)
    for (int32 c = 1; c <= map.nc; ++c)
      for (int32 j = 1; j <= work.data.nci; ++j) {
        const int32 categories = work.data.nrc(j);
        if (categories < 2) continue;
        logit_row& row = rows.emplace_back();
        reference.push_back(&map.reference(j, c, copy));
        row.first = map.responses_at(copy, c) +
                    static_cast<std::size_t>(map.item_first[static_cast<std::size_t>(j - 1)]);
        row.populated = populated(work, map, c, copy);
        for (int32 r = 1; r <= categories; ++r) {
          row.code.push_back(work.rho.code(j, c, r, copy));
          row.value.push_back(work.rho.now(j, c, r, copy));
        }
        // What fixed elements leave to a longer row is not a softmax of all its logits.
        if (categories > 2 && std::count(row.code.begin(), row.code.end(), 0) > 0) return false;
      }
  if (!place_rows(rows, map, map.place, parameters)) return false;
  for (std::size_t m = 0; m < rows.size(); ++m)
    *reference[m] = static_cast<int32>(rows[m].reference) + 1;
  return true;
}

}  // namespace

int32 find_free_parameters(const mlworkspace& work, free_parameters& map, const routine& here,
                           error_type& err) {
  set_sizes(work, map);
  if (work.beta.active &&
      work.beta.now.n != std::array<int32, 3>{map.columns, map.nc, map.nstr})  // cannot happen
    return fail(err, here, {text("Unexpected error in the indexing of the coefficients.")});
  std::vector<bool> parameters;
  place_slopes(work, map, parameters);
  if (!place_shares(work, map, parameters) || !place_responses(work, map, parameters))
    return fail(
        err, here,
        {text("Cannot get derivatives or standard errors because the pattern of constraints is",
              " too complicated.")});
  map.estimated.allocate({static_cast<int32>(parameters.size())});
  for (std::size_t k = 0; k < parameters.size(); ++k) {
    map.estimated.flat[k] = parameters[k] ? logical::yes : logical::no;
    map.boundary += parameters[k] ? 0 : 1;
  }
  return 0;
}

void add_restricted(const free_parameters& map, const array<double, 2>& block, std::size_t rows,
                    std::size_t columns, array<double, 2>& matrix) {
  for (int32 j = 1; j <= block.n[1]; ++j) {
    const logit_place& column = map.place[columns + static_cast<std::size_t>(j - 1)];
    if (column.free < 0) continue;
    for (int32 i = 1; i <= block.n[0]; ++i) {
      const logit_place& row = map.place[rows + static_cast<std::size_t>(i - 1)];
      if (row.free >= 0)
        matrix(row.free + 1, column.free + 1) += row.sign * column.sign * block(i, j);
    }
  }
}

}  // namespace tolvenra::estimation
