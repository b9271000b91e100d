// Does the test of "missing completely at random" have its nominal distribution? 400 data sets,
// seeds 1 to 400. Ends with status 1 when mean or level are more than three standard errors off.
#include <cmath>
#include <cstdio>

#include "support/mcar_data.hpp"

int main() {
  const auto study = tolvenra::test::study_mcar(400, 1);
  const double level = static_cast<double>(study.rejected) / study.sets;
  const double level_error = std::sqrt(0.05 * 0.95 / study.sets);
  std::printf(
      "data sets          %d\ndegrees of freedom %d\nmean of cat_g2     %.3f (standard error "
      "%.3f)\n"
      "rejected at 5 %%    %.4f (standard error %.4f)\n",
      study.sets, study.df, study.mean, study.standard_error, level, level_error);
  const bool good = std::abs(study.mean - study.df) <= 3 * study.standard_error &&
                    std::abs(level - 0.05) <= 3 * level_error;
  return good ? 0 : 1;
}
