// Loading, and what a module says without an instance.

#include <algorithm>
#include <array>

#include "tool/validate/ExportList.h"
#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr int kLimitSeconds = 60;

void ExportSixteenFunctions(TestRun& run) { run.Module(); }

void ExportNothingElse(TestRun& run) {
  static constexpr std::array kSixteen = {"xOpen",
                                          "xClose",
                                          "xGetInstanceInformation",
                                          "xGetParameterScheme",
                                          "xGetErrorMessage",
                                          "xSetParameter",
                                          "xEnumInputInfo",
                                          "xSetInputInfo",
                                          "xEnumOutputInfo",
                                          "xSetOutputInfo",
                                          "xStartSequenceEx",
                                          "xStartPassEx",
                                          "xDeliverPcmUnit",
                                          "xFetchPcmUnit",
                                          "xEndPass",
                                          "xEndSequence"};
  std::size_t count = 0;
  for (const std::string& name : ExportedNames(run.ModulePath())) {
    const bool isWanted = std::find(kSixteen.begin(), kSixteen.end(), name) != kSixteen.end();
    run.Expect(isWanted, "exports " + name + ", which is none of the sixteen");
    if (isWanted) ++count;
  }
  run.ExpectEqual(kSixteen.size(), count, "names of the sixteen in its table");
}

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
  const TestGroup exports("Exports.", kLimitSeconds, tests);
  exports.Add("AreTheSixteenAlone", ExportNothingElse);
  const TestGroup instance("Instance.", kLimitSeconds, tests);
  instance.Add("NullHandleMayBeClosed", CloseNothing);
  instance.Add("DescribingNeedsNoInstance", DescribeWithoutInstance);
}

}  // namespace harvane
