/// \file cdf.hpp  Distribution functions and their inverses, module `cdf`.
///
/// Each routine solves for one of its arguments, selected by `which` in the order of the arguments:
/// 1 computes p and q from the others, 2, 3, 4 compute the first, second, third argument behind q
/// from p, q and the rest. p is the lower tail and q the upper one; the smaller of the two keeps
/// its relative accuracy (1e-13 for chi-square and normal, 1e-12 for t and F, 4 or 40 eps |ln p| in
/// far tails), the inverses reproduce it to 1e-10. Inverses search x in [0, 1e100], t and normal
/// arguments in [-1e100, 1e100], degrees of freedom in [1e-100, 1e100] (t: up to 1e10); a solution
/// below the smallest normal number comes back as 0. The forward x, t and f may be infinite.
/// Interface in the style of Brown, Lovato & Russell.
/// \return 0, or -1 with its report and the computed argument unchanged
#pragma once

#include "core/error_handler.hpp"

namespace tolvenra::cdf {

/// Chi-square with df > 0 degrees of freedom, x >= 0. which = 1: p, q; 2: x; 3: df.
int32 cdf_chi(int32 which, double& p, double& q, double& x, double& df, error_type& err);

/// Student's t with df > 0 degrees of freedom. which = 1: p, q; 2: t; 3: df.
int32 cdf_t(int32 which, double& p, double& q, double& t, double& df, error_type& err);

/// F with dfn and dfd degrees of freedom, f >= 0. which = 1: p, q; 2: f; 3: dfn; 4: dfd.
/// The tails are not always monotone in a number of degrees of freedom; then one of the
/// solutions is found, or none between the bounds.
int32 cdf_f(int32 which, double& p, double& q, double& f, double& dfn, double& dfd,
            error_type& err);

/// Normal with standard deviation sd > 0. which = 1: p, q; 2: x; 3: mean; 4: sd.
int32 cdf_nor(int32 which, double& p, double& q, double& x, double& mean, double& sd,
              error_type& err);

}  // namespace tolvenra::cdf
