#ifndef HARVANE_TESTS_MEASUREMENT_EBU_EBUEXPECTATIONS_H
#define HARVANE_TESTS_MEASUREMENT_EBU_EBUEXPECTATIONS_H

#include <gtest/gtest.h>

#include <string>

#include "tests/measurement/ebu/EbuCases.h"

namespace ebu {

// Every value is within the published tolerance.
inline void ExpectPublished(const EbuCase& ebuCase, const std::vector<CaseReading>& readings) {
  EXPECT_FALSE(readings.empty());
  for (const CaseReading& reading : readings) {
    EXPECT_TRUE(IsWithin(ebuCase, reading))
        << ebuCase.signal << ": " << reading.what << " is " << reading.value << ", published "
        << reading.published << " -" << ebuCase.below << " +" << ebuCase.above;
  }
}

// What the module shows of a case is within the published tolerance.
inline void ExpectPublished(const std::string& name) {
  const EbuCase& ebuCase = EbuCaseOf(name);
  ExpectPublished(ebuCase, ebuCase.read(MeasuredByModule, kAllTones));
}

}  // namespace ebu

#endif  // HARVANE_TESTS_MEASUREMENT_EBU_EBUEXPECTATIONS_H
