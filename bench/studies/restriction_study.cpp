// Are rows under fixed values and equality groups updated to their maximum, and refused exactly
// when no values meet them? 50,000 random patterns. Ends with status 1 otherwise.
#include "support/restriction_study.hpp"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  const auto study = tolvenra::test::study_restrictions(argc > 1 ? std::atoi(argv[1]) : 50000, 1);
  std::printf(
      "patterns                 %d\n"
      "possible                 %d\n"
      "  some values zero       %d\n"
      "  some values determined %d\n"
      "refused wrongly          %d\n"
      "accepted wrongly         %d\n"
      "parameters miscounted    %d\n"
      "updates                  %d\n"
      "  wrong outcome          %d\n"
      "  broken restrictions    %d\n"
      "row sums, from 1         %.1e\n"
      "determined values        %.1e\n"
      "below the maximum        %.1e of the total count\n"
      "stationarity             %.1e of the total count\n",
      study.patterns, study.possible, study.with_zeros, study.with_pinned, study.refused_wrongly,
      study.accepted_wrongly, study.miscounted, study.updates, study.outcome_wrong, study.broken,
      study.worst_sum, study.worst_known, study.worst_gap, study.worst_stationarity);
  if (!study.good()) std::printf("first fault: %s\n", study.first_fault.c_str());
  return study.good() ? 0 : 1;
}
