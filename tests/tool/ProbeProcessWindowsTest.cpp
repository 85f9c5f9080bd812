// The probe of this build, started as ModuleProber starts this program.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "host/FileAccess.h"
#include "tests/support/TemporaryFolder.h"
#include "tool/validate/ModuleProber.h"
#include "tool/validate/Probe.h"

namespace harvane {
namespace {

const ProbeProgram kProbe = {{HARVANE_PROBE}, false, true};

TEST(ProbeProcess, ModuleDescribesItself) {
  const ProbeFolder folder;
  const ProbeEnd end =
      RunProbeProcess(kProbe, {"describe", HARVANE_MODULE, folder.Path()}, folder.Path(), 60);
  EXPECT_EQ(end.status, kProbeDone) << end.way;
  EXPECT_FALSE(end.isTimedOut);
  EXPECT_FALSE(LoadDescription(folder.Path()).scheme.empty());
}

TEST(ProbeProcess, WhatTheProbeSaysIsKeptAndItsStatusToldInWords) {
  const ProbeFolder folder;
  const ProbeEnd end =
      RunProbeProcess(kProbe, {"describe", "missing.rpi", folder.Path()}, folder.Path(), 60);
  EXPECT_EQ(end.status, kProbeUseless);
  EXPECT_EQ(end.way, "ended with status 2");
  const std::string said = support::ReadBytes(folder.FileIn(kProbeStreams));
  EXPECT_NE(said.find("missing.rpi: cannot be loaded"), std::string::npos) << said;
}

TEST(ProbeProcess, AFolderMayHaveAnyName) {
  const ProbeFolder folder;
  const std::string named = folder.FileIn("\xC3\xA4 \xE2\x82\xAC");
  std::filesystem::create_directory(PathOf(named));
  const ProbeEnd end =
      RunProbeProcess(kProbe,
                      {"test", HARVANE_MODULE, "Samples.OutputThatWasNotFetchedIsLost", "1", named,
                       (PathOf(named) / "report").string()},
                      folder.Path(), 60);
  EXPECT_EQ(end.status, kProbeDone) << end.way;
  std::ifstream report(PathOf(named) / "report");
  std::string line;
  EXPECT_TRUE(std::getline(report, line));
  EXPECT_EQ(line, "done");
}

TEST(ProbeProcess, AFatalStopIsNoStrayAccess) {
  const ProbeFolder folder;
  const ProbeEnd end = RunProbeProcess(kProbe,
                                       {"test", HARVANE_MODULE, "ProcessEnds.AtAFifthGroup", "1",
                                        folder.Path(), folder.FileIn("report")},
                                       folder.Path(), 60);
  EXPECT_NE(end.status, kProbeDone);
  EXPECT_FALSE(end.isStrayAccess) << end.way;
  EXPECT_FALSE(end.isTimedOut);
}

TEST(ProbeProcess, AStrayAccessIsToldFromOtherEnds) {
  const ProbeFolder folder;
  const ProbeProgram worker = {{HARVANE_PLAIN_WORKER}, false, true};
  const ProbeEnd end = RunProbeProcess(worker, {"crash"}, folder.Path(), 60);
  EXPECT_TRUE(end.isStrayAccess);
  EXPECT_EQ(end.status, std::nullopt);
  EXPECT_EQ(end.way, "ended with 0xC0000005 (access violation)");
}

TEST(ProbeProcess, WhatTakesTooLongIsEnded) {
  const ProbeFolder folder;
  const ProbeProgram worker = {{HARVANE_PLAIN_WORKER}, false, true};
  const ProbeEnd end = RunProbeProcess(worker, {"stay"}, folder.Path(), 1);
  EXPECT_TRUE(end.isTimedOut);
  EXPECT_GE(end.seconds, 1.0);
  EXPECT_LT(end.seconds, 20.0);
}

TEST(ProbeProcess, WhatCannotBeStartedIsAnErrorOfTheModule) {
  const ProbeFolder folder;
  EXPECT_THROW(RunProbeProcess({{"missing program.exe"}, false, true}, {}, folder.Path(), 1),
               ModuleError);
}

TEST(ProbeProcess, ItsFolderGoesWithAllThatIsInIt) {
  std::string path;
  {
    const ProbeFolder folder;
    path = folder.Path();
    support::WriteBytes(folder.FileIn("file"), "x");
    EXPECT_TRUE(std::filesystem::exists(PathOf(path)));
  }
  EXPECT_FALSE(std::filesystem::exists(PathOf(path)));
}

}  // namespace
}  // namespace harvane
