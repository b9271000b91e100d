/// \file sandwich.hpp  The inverse of the information of the free parameters, module `estimation`.
#pragma once

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/free_parameters.hpp"

namespace tolvenra::estimation {

/// Inverts the rows and columns of the estimated parameters; those of held ones become 0.
///
/// A model that is not identified has a singular information, of which rounding and the point where
/// the iterations ended leave a small pivot of either sign. Scaled to unit diagonal, a pivot is
/// 1 - R^2 of a parameter's score given the earlier ones; below 1e-6 the matrix counts as singular.
///
/// Flat directions of the regressions take no part either: with T a basis of what they leave, the
/// inverse is T (T'HT)^-1 T'. Holding their coefficients instead would hold, with them, what the
/// data do tell, and the other standard errors would come out too small. \param[out] inverse
/// allocated here \return 0 or -1; the caller reports \throws std::bad_alloc
int32 invert_information(const mlworkspace& work, const free_parameters& map,
                         const array<double, 2>& information, array<double, 2>& inverse,
                         error_type& err);

}  // namespace tolvenra::estimation
