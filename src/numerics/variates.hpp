/// \file variates.hpp  Random variates by published samplers, module `random_generator`.
///
/// The samplers' tables and constants are the published ones, held as single-precision values
/// widened to double; together with the single-precision uniforms they fix the streams. Constants
/// that depend on a shape are computed in every call: there is no state but the caller's. Each
/// routine returns 0, or -1 with its report and a result of 0.
/// Sources: Ahrens & Dieter (1973), Math. Comp. 27, 927-937, algorithm FL (normal); Ahrens & Dieter
/// (1972), Comm. ACM 15, 873-882, algorithm SA (exponential); Ahrens & Dieter (1982), Comm. ACM 25,
/// 47-54, algorithm GD, and (1974), Computing 12, 223-246, algorithm GS (gamma).
#pragma once

#include "numerics/random_generator.hpp"

namespace tolvenra::random_generator {

/// A standard normal deviate.
int32 ran_snorm(ran_state_type& state, double& result, error_type& err);

/// A standard exponential deviate.
int32 ran_sexp(ran_state_type& state, double& result, error_type& err);

/// A gamma deviate of scale 1. \param shape  positive and finite
int32 ran_sgamma(ran_state_type& state, double shape, double& result, error_type& err);

/// A gamma deviate of mean shape / rate.
int32 ran_gengam(ran_state_type& state, double rate, double shape, double& result, error_type& err);

/// A chi-square deviate. \param df  positive
int32 ran_genchi(ran_state_type& state, double df, double& result, error_type& err);

/// A Student t deviate. \param df  positive
int32 ran_gent(ran_state_type& state, double df, double& result, error_type& err);

/// A multivariate normal deviate; only the lower triangle of `cov` is read.
/// \param mean  p values \param cov  (p, p) \param[out] x  p values, allocated by the caller
int32 ran_genmn(ran_state_type& state, const array<double, 1>& mean, const array<double, 2>& cov,
                array<double, 1>& x, error_type& err);

/// Allocates `lower` as the factor L with a = L L', zeros above the diagonal.
int32 cholesky_lower(const array<double, 2>& a, array<double, 2>& lower, error_type& err);

}  // namespace tolvenra::random_generator
