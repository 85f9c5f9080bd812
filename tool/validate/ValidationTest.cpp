#include "tool/validate/ValidationTest.h"

namespace harvane {

const std::vector<ValidationTest>& ValidationTests() {
  static const std::vector<ValidationTest> kTests = [] {
    std::vector<ValidationTest> tests;
    AddLoadingTests(&tests);
    AddRecordTests(&tests);
    AddParameterTests(&tests);
    AddSampleTests(&tests);
    AddMeasuringTests(&tests);
    AddTwoPassTests(&tests);
    AddLogTests(&tests);
    AddDeathTests(&tests);
    AddEnduranceTests(&tests);
    return tests;
  }();
  return kTests;
}

}  // namespace harvane
