/// \file saturated_em.hpp  Maximum-likelihood cell probabilities from incomplete responses.
///
/// The log-likelihood sum of n_p log P_p, P_p the probability of the cells that agree with pattern
/// p, is concave. EM climbs it, but slowly where patterns overlap, and its steps become small long
/// before the maximum. Three things make up for that:
///  - patterns and cells fall into blocks that share no cell. The blocks have known probabilities
///    (their share of the cases), so each is a problem of its own;
///  - after each pass the classes that have a probability, or whose derivative says that they
///    deserve one, take Newton steps one by one. That removes classes of probability 0 at once: few
///    of millions of classes stay, and sweeps over these are cheap beside a pass. Each block is
///    extrapolated too (squared extrapolation), where its log-likelihood rises;
///  - at any point the maximum of a block of n cases among N is at most n (f/N - 1) above its
///    present value, f the largest of the derivatives of its classes. The passes end when one of
///    them changes the cells by no more than the criterion and this bound is negligible too.
/// Source: Hartley (1958), Biometrics 14, 174-194; Chen & Fienberg (1974), Biometrics 30, 629-642
/// (EM); Varadhan & Roland (2008), Scand. J. Statist. 35, 335-353 (extrapolation); Lindsay (1983),
/// Ann. Statist. 11, 86-94 (the bound).
#pragma once

#include <functional>
#include <vector>

#include "core/types.hpp"
#include "estimation/saturated_cells.hpp"

namespace tolvenra::estimation {

/// What the passes ended with; all of it belongs to the same probabilities.
struct cell_fit {
  std::vector<double> mass;         ///< probability of each class of cells, all its cells together
  std::vector<double> probability;  ///< probability of each pattern
  double loglik = 0.0;              ///< natural log
  double shortfall = 0.0;           ///< the maximum is at most this far above `loglik`
  int32 passes = 0;                 ///< E-step and M-step each
  int64 visits = 0;                 ///< of a class by a pattern: the work done
  bool converged = false;           ///< false: a limit came first
  bool cancelled = false;           ///< nothing else has a meaning
};

struct cell_fit_controls {
  double criterion = 1e-8;  ///< mean absolute change of a reachable cell in one plain pass
  int32 max_passes = 1000;
  int64 max_visits = int64{1} << 31;  ///< of a class by a pattern, some nanoseconds each
  int32 threads = 1;
  std::function<bool()> cancelled = {};  ///< asked after each pass on the calling thread
  bool plain = false;  ///< nothing between the passes, the criterion alone ends them
};

/// EM from equal cells.
/// \param count  weighted number of cases with each pattern, positive
/// \throws std::bad_alloc
cell_fit fit_cells(const cell_classes& classes, const std::vector<double>& count,
                   const cell_fit_controls& controls);

}  // namespace tolvenra::estimation
