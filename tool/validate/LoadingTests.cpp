// Loading, and what a module says without an instance.

#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 60;

void ExportSixteenFunctions(TestRun& run) { run.Module(); }

void LoadAgain(TestRun& run) {
  for (int round = 0; round < 3; ++round) {
    void* handle = nullptr;
    run.RequireCode(0, run.Module().xOpen(&handle), "xOpen");
    run.Require(handle != nullptr, "xOpen stored no handle");
    run.RequireCode(0, run.Module().xClose(handle), "xClose");
    run.Unload();
  }
}

void CloseNothing(TestRun& run) {
  run.ExpectCode(0, run.Module().xClose(nullptr), "xClose of a null handle");
}

void DescribeWithoutInstance(TestRun& run) {
  InstanceInformation information;
  run.ExpectCode(0, run.Module().xGetInstanceInformation(nullptr, &information),
                 "xGetInstanceInformation");
  InfoBuffer* record = nullptr;
  run.RequireCode(0, run.Module().xGetParameterScheme(nullptr, &record), "xGetParameterScheme");
  run.Expect(!TakeBlob(run, record, "xGetParameterScheme").empty(), "the scheme is empty");
  run.RequireCode(0, run.Module().xEnumInputInfo(nullptr, &record), "xEnumInputInfo");
  run.Expect(!TakeBlob(run, record, "xEnumInputInfo").empty(), "the offer is empty");
}

}  // namespace

void AddLoadingTests(std::vector<ValidationTest>* tests) {
  const TestGroup loading(kLoadingGroup, kLimitSeconds, tests);
  loading.Add("ExportsSixteenFunctions", ExportSixteenFunctions);
  loading.Add("LoadsAgainAfterUnloading", LoadAgain);
  const TestGroup instance("Instance.", kLimitSeconds, tests);
  instance.Add("NullHandleMayBeClosed", CloseNothing);
  instance.Add("DescribingNeedsNoInstance", DescribeWithoutInstance);
}

}  // namespace harvane
