// The end of the tour: all findings in one line.
#ifndef TOUR_SUMMARY_H
#define TOUR_SUMMARY_H

#include <vector>

#include "Findings.h"

/// Prints the checks that did not hold, if any, and then the summary line.
/// @param steps    the findings of each step
/// @param seconds  how long the tour took
/// @return the status to end the process with: 0 when every check held, else 1
int summarise(const std::vector<Findings>& steps, double seconds);

#endif
