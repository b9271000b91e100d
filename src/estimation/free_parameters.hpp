/// \file free_parameters.hpp  The logits of a latent class model and the free parameters behind
/// them, module `estimation`.
///
/// Scores and information are formed for one logit per place: in every stratum first its
/// membership block, then the responses.
///  - Membership without covariates: log(gamma_c / gamma_ref) for the classes but the reference,
///    which is the largest (its logit is well conditioned and never on the boundary).
///  - Membership on covariates: the coefficients of every class but the baseline; in the binary
///    form those of the compared class, then log(q_c / q_ref) of the shares of the other classes.
///  - Responses (phi): by class, item and category log(rho_r / rho_ref), the reference being the
///    row's most likely category. One copy serves all strata where rho is equal across them.
///
/// Restrictions are the linear map theta = T theta_free, T of 0 and +-1: at most one free parameter
/// moves a place. Equal probabilities have equal logits only where whole rows are equal (in any
/// order of their elements) or have two elements; other patterns are not linear on this scale.
///
/// A free parameter whose probability lies at the boundary is held there: it takes no part in the
/// information, and its standard error is 0. The responses of a class without members likewise.
#pragma once

#include <vector>

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "core/types.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// What moves a place: a free parameter, 0-based, -1 for none, with its sign.
struct logit_place {
  int32 free = -1;
  double sign = 0.0;
};

struct free_parameters {
  int32 nc = 0, nstr = 0;
  int32 copies = 0;      ///< of the responses: 1 where all strata share them
  int32 columns = 0;     ///< of the design, the intercept among them; 0 without covariates
  int32 slopes = 0;      ///< coefficients of a stratum
  int32 shares = 0;      ///< logits of class shares of a stratum
  int32 membership = 0;  ///< slopes + shares
  int32 responses = 0;   ///< logits of the responses of one class
  std::vector<int32> slope_class;  ///< class of every column block of the slopes, 1-based
  array<int32, 2> share_class;     ///< (shares, nstr) class of every share logit
  std::vector<int32> item_first;   ///< (nci) place of an item's first logit within its class
  array<int32, 3> reference;       ///< (nci, nc, copies) reference category
  std::vector<logit_place> place;  ///< all membership blocks, then all responses
  array<logical, 1> estimated;     ///< (free parameters) no: held at the boundary
  double edge = 1e-6;              ///< probabilities outside (edge, 1 - edge) are at the boundary
  int32 boundary = 0;              ///< free parameters held there

  [[nodiscard]] int32 count() const { return estimated.n[0]; }
  [[nodiscard]] int32 copy_of(int32 g) const { return copies == 1 ? 1 : g; }
  /// First place of the membership block of stratum g, and of the responses of class c.
  [[nodiscard]] std::size_t membership_at(int32 g) const {
    return static_cast<std::size_t>(g - 1) * static_cast<std::size_t>(membership);
  }
  [[nodiscard]] std::size_t responses_at(int32 copy, int32 c) const {
    return membership_at(nstr + 1) +
           static_cast<std::size_t>((copy - 1) * nc + c - 1) * static_cast<std::size_t>(responses);
  }
  /// Logits of one stratum: its membership block, then the responses of its classes.
  [[nodiscard]] std::size_t in_stratum() const {
    return static_cast<std::size_t>(membership) +
           static_cast<std::size_t>(nc) * static_cast<std::size_t>(responses);
  }
  /// Place of logit i (0-based) of stratum g.
  [[nodiscard]] std::size_t at(int32 g, std::size_t i) const {
    const auto m = static_cast<std::size_t>(membership);
    return i < m ? membership_at(g) + i : responses_at(copy_of(g), 1) + (i - m);
  }
  [[nodiscard]] bool at_boundary(double probability) const {
    return !(probability > edge && probability < 1.0 - edge);
  }
  /// Category of logit l (0-based) of item j, class c: the reference is passed over.
  [[nodiscard]] int32 category(int32 j, int32 c, int32 copy, int32 l) const {
    return l + 1 < reference(j, c, copy) ? l + 1 : l + 2;
  }
};

/// Decodes the restrictions at the estimates of a finished run.
/// \param here  the routine under which a pattern that is not linear in the logits is reported
/// \return 0 or -1
int32 find_free_parameters(const mlworkspace& work, free_parameters& map, const routine& here,
                           error_type& err);

/// Adds T' A T of a square block of places to the matrix of the free parameters.
/// \param rows, columns  first place of the block's rows and columns
void add_restricted(const free_parameters& map, const array<double, 2>& block, std::size_t rows,
                    std::size_t columns, array<double, 2>& matrix);

}  // namespace tolvenra::estimation
