#include "tool/validate/Probe.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "tool/validate/ModuleDescription.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

int RunTest(const std::string& modulePath, const std::string& name, const std::string& seed,
            const std::string& folder, const std::string& report) {
  const std::vector<ValidationTest>& tests = ValidationTests();
  const auto test = std::find_if(tests.begin(), tests.end(),
                                 [&](const ValidationTest& one) { return one.name == name; });
  if (test == tests.end()) {
    std::fprintf(stderr, "harvane: there is no test %s\n", name.c_str());
    return kProbeUseless;
  }
  // Never destroyed: the process ends without it.
  auto* const run = new TestRun(modulePath, std::stoull(seed), folder, report);
  try {
    test->run(*run);
  } catch (const TestEnded&) {  // NOLINT(bugprone-empty-catch): its reason is reported
  } catch (const std::exception& failure) {
    run->Expect(false, failure.what());
  }
  run->Finish();
  return run->HasFailed() ? kProbeFailed : kProbeDone;
}

int Describe(const std::string& modulePath, const std::string& folder) {
  const LoadedModule module(modulePath);
  SaveDescription(DescriptionOf(module.Exports()), folder);
  return kProbeDone;
}

int Dispatch(const std::vector<std::string>& arguments) {
  if (arguments.size() == 6 && arguments[0] == "test") {
    return RunTest(arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
  }
  if (arguments.size() == 3 && arguments[0] == "describe") {
    return Describe(arguments[1], arguments[2]);
  }
  return kProbeUseless;
}

}  // namespace

void RunProbe(const std::vector<std::string>& arguments) {
  int status = kProbeUseless;
  try {
    status = Dispatch(arguments);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "harvane: %s\n", failure.what());
  }
  std::fflush(stdout);
  std::fflush(stderr);
  std::_Exit(status);
}

}  // namespace harvane
