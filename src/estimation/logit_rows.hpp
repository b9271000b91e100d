/// \file logit_rows.hpp  Which logits of probability rows move together under equality groups,
/// module `estimation`.
#pragma once

#include <vector>

#include "core/types.hpp"
#include "estimation/free_parameters.hpp"

namespace tolvenra::estimation {

/// One row of probabilities. Its logits have the places first, first + 1, ... of the elements but
/// the reference.
struct logit_row {
  std::vector<int32> code;    ///< 0 fixed, 1 free, k >= 2 equality group
  std::vector<double> value;  ///< estimates, for the reference and the boundary
  std::size_t first = 0;
  bool populated = true;      ///< some case can show it
  std::size_t reference = 0;  ///< out, 0-based
};

/// Gives every place of the rows its free parameter, numbered on from those that `parameters`
/// holds.
/// \param[in,out] parameters  one per free parameter: whether it is estimated (not held)
/// \return false when the equality groups are not linear in the logits
bool place_rows(std::vector<logit_row>& rows, const free_parameters& map,
                std::vector<logit_place>& place, std::vector<bool>& parameters);

}  // namespace tolvenra::estimation
