#ifndef HARVANE_TESTS_MEASUREMENT_EBU_EBUTABLE_H
#define HARVANE_TESTS_MEASUREMENT_EBU_EBUTABLE_H

#include <string>
#include <vector>

#include "tests/measurement/ebu/EbuCases.h"

// The table of docs/ebu-conformance.md: its head, and a row for each case, without line ends. Two
// decimals, which no rounding of a mathematical library moves.
namespace ebu {

// Two lines.
std::string TableHead();

// `peer` as libebur128 reads the case; everything else is measured here.
std::string TableRow(const EbuCase& ebuCase, const std::vector<CaseReading>& peer);

}  // namespace ebu

#endif  // HARVANE_TESTS_MEASUREMENT_EBU_EBUTABLE_H
