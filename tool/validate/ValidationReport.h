#ifndef HARVANE_TOOL_VALIDATE_VALIDATIONREPORT_H
#define HARVANE_TOOL_VALIDATE_VALIDATIONREPORT_H

#include <cstdint>
#include <string>
#include <vector>

namespace harvane {

enum class TestResult { kPassed, kFailed, kCrashed };

// What became of one test. A test that took too long counts as crashed.
struct TestOutcome {
  std::string name;
  int level;
  TestResult result;
  double seconds;
  std::vector<std::string> reasons;  // one line each; none where it passed
};

// What became of one module.
struct ModuleOutcome {
  std::string module;  // as it was given
  bool isWindows = false;
  std::string error;  // one line, where no test could be run
  std::size_t planned = 0;
  std::vector<TestOutcome> tests;  // fewer than planned where loading failed
};

struct ValidationCounts {
  std::size_t planned = 0;
  std::size_t run = 0;
  std::size_t passed = 0;
  std::size_t failed = 0;
  std::size_t crashed = 0;
};
ValidationCounts CountsOf(const std::vector<ModuleOutcome>& modules);

// 5 where a test crashed, else 1 where a module could not be tested, else 3 where one failed, else
// 0.
int ExitCodeOf(const std::vector<ModuleOutcome>& modules);

// "planned 82, run 82, passed 81, failed 1, crashed 0"
std::string ClosingLine(const std::vector<ModuleOutcome>& modules);

// One line for a test, its reasons indented behind it.
std::string TextOf(const TestOutcome& test);

struct ValidationSettings {
  int level = 1;
  std::uint64_t seed = 1;
};
std::string JsonOf(const std::vector<ModuleOutcome>& modules, const ValidationSettings& settings);
// JUnit's XML: a suite for each module. A crash is an error, a failed test a failure.
std::string JUnitOf(const std::vector<ModuleOutcome>& modules);

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_VALIDATIONREPORT_H
