/// \file standard_errors.hpp  Standard errors and 95 % intervals of an analysis, in the order and
/// with the reference class in which the estimates are printed.
#pragma once

#include <string>
#include <vector>

#include "lca_run.hpp"

namespace tolvenra::cli {

/// How well one estimate is known.
struct uncertainty {
  enum class kind {
    known,
    fixed,     ///< nothing was estimated: by a restriction, or the only one of its kind
    boundary,  ///< a probability of 0 or 1, or a coefficient that depends on one
    runaway    ///< a coefficient without a finite estimate
  };
  kind is = kind::fixed;
  double se = 0.0;
  double low = 0.0, high = 0.0;  ///< the 95 % interval
};

/// From a standard error of the engine, which is 0 at the boundary. The interval of a probability
/// is formed on the logit scale and carried back: it stays between 0 and 1.
uncertainty of_probability(double p, double se);
uncertainty of_coefficient(double b, double se);

struct standard_errors {
  bool given = false;
  std::string reason;                           ///< why there are none, as the end of a sentence
  std::vector<std::vector<uncertainty>> gamma;  ///< [group][class]
  std::vector<std::vector<std::vector<uncertainty>>> beta;   ///< [group][class][coefficient]
  using item_table = std::vector<std::vector<uncertainty>>;  ///< [class][category]
  std::vector<std::vector<item_table>> rho;                  ///< [group][item]
  /// Without the sandwich: right only when the model holds and the cases are independent. NaN
  /// where `gamma` is not known.
  std::vector<std::vector<double>> gamma_model;
  int held = 0;  ///< free parameters at the boundary

  [[nodiscard]] double largest_of_probabilities() const;
};

struct lca_answer;

/// \param fit  completed, with standard errors asked for
/// \param answer  with its order of the classes and its coefficients
standard_errors make_standard_errors(const lca_data& data, std::size_t classes, const lca_fit& fit,
                                     const lca_answer& answer);

/// The engine's report as the end of the sentence "Standard errors cannot be given: ...".
std::string plain_reason(const std::string& message);

}  // namespace tolvenra::cli
