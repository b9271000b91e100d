/// \file saturated.hpp  The saturated model of incomplete responses, module `estimation`.
///
/// One probability for every cell of the cross-classification of the items, common to all
/// missingness patterns; missing responses are ignorable. It is what the latent class model is
/// compared with, and against free probabilities for each missingness pattern it tests "missing
/// completely at random". Models are conditional on the stratum: one record per stratum. Source:
/// Fuchs (1982), JASA 77, 270-278; Little & Rubin (2002), Statistical Analysis with Missing Data,
/// 2nd ed., chapter 13.
#pragma once

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "estimation/mlworkspace.hpp"
#include "estimation/saturated_cells.hpp"
#include "estimation/saturated_em.hpp"

namespace tolvenra {

/// What `md_preliminaries` and `md_catmod` know of one stratum. Patterns are in ascending key order
/// and 1-based, missingness patterns too.
struct mdinfo_type {
  array<int32, 1> levs;          ///< (p) levels of each item
  array<int32, 2> r;             ///< (missingness patterns, p) 1 observed, 0 missing
  array<int32, 1> mdp;           ///< (npatt) missingness pattern of each pattern
  array<int32, 1> jmp;           ///< (p) stride of each item in the cell number, 0 beyond 32 bits
  array<int32, 1> mobs;          ///< (missingness patterns) number of observed items
  array<int32, 1> ord;           ///< (npatt) patterns sorted by missingness pattern
  array<int32, 1> mdpst;         ///< (missingness patterns) first position in `ord`
  array<int32, 1> umdp;          ///< (missingness patterns) a pattern that shows it
  array<int32, 1> nmdp;          ///< (missingness patterns) number of patterns that show it
  array<int32, 2> orig_obspat;   ///< (npatt, p) the response patterns, 0 missing
  array<double, 1> orig_counts;  ///< (npatt) weighted counts
  array<int32, 2> x;             ///< (patterns with a response, p) in `ord` order: what EM works on
  array<double, 1> theta;        ///< probability of every cell, first item fastest, while the table
                                 ///< has at most 65536; `fit.mass` holds them by class always
  array<double, 1> expect_sat;   ///< (npatt) expected counts under the saturated model
  array<double, 1> expected;     ///< (npatt) expected counts under the latent class model

  std::vector<int32> rows;  ///< (npatt) a distinct row of the data with each pattern, 1-based
  estimation::cell_limits limits;          ///< may be set before the fit, and so may
  estimation::cell_fit_controls controls;  ///< all but the criterion
  estimation::cell_classes classes;
  estimation::cell_fit fit;
  bool overflow = false;  ///< the table is beyond the limits: no fit
};

namespace estimation {

/// Fills the pattern tables of one stratum, 1-based, from the data of the workspace.
int32 md_preliminaries(const mlworkspace& work, mdinfo_type& mdinfo, error_type& err,
                       int32 stratum = 1);

/// Fits the cell probabilities.
///
/// Patterns without any response say nothing about them: they stay out of the fit and have
/// probability
/// 1. A table beyond the limits is no failure: it sets `overflow` and leaves everything else empty.
/// \param criterion        mean absolute change of a reachable cell that ends the passes
/// \param[out] iterations  passes made, at most 1000
int32 md_catmod(const mlworkspace& work, mdinfo_type& mdinfo, double criterion, int32& iterations,
                error_type& err);

/// Sum of the counts that show missingness pattern m, 1-based.
double missingness_total(const mdinfo_type& mdinfo, int32 m);

/// Degrees of freedom of "missing completely at random": free probabilities for each missingness
/// pattern, less the rank of the common ones. The rank counts, over every set of items that some
/// missingness pattern observes together, the product of (levels - 1): cells - 1 as soon as one
/// pattern is complete. \return NaN when the sets are too many to count. \throws std::bad_alloc
double missingness_df(const mdinfo_type& mdinfo);

/// Releases every field.
int32 nullify_mdinfo(mdinfo_type& mdinfo, error_type& err);

}  // namespace estimation
}  // namespace tolvenra
