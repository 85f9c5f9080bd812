// Jobs on a module in another process, compared with the same jobs on the module linked in here.
//
// Without HARVANE_TEST_WINDOWS_MODULE the module is the native one, in a native harvane-session
// behind a runner that undoes what WindowsPathOf does.

#include "host/RemoteSession.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/SessionProtocol.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/Signals.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using support::ParameterTexts;
using support::TemporaryFolder;

class RemoteSession : public testing::Test {
 protected:
  void SetUp() override {
    const char* const windowsModule = std::getenv("HARVANE_TEST_WINDOWS_MODULE");
    isWindows = windowsModule != nullptr;
    if (isWindows) {
      module = windowsModule;
      ASSERT_TRUE(IsWindowsModule(module))
          << module << " is missing or not a Windows module; build it first: "
          << "cmake --preset windows && cmake --build --preset windows";
    } else {
      // Beside the module, as RemoteSession looks for it. The runner starts the native one.
      std::filesystem::create_symlink(HARVANE_TEST_MODULE, folder.Path() / "Harvane.rpi");
      support::WriteBytes(folder.FileIn("harvane-session.exe"), "");
      module = folder.FileIn("Harvane.rpi");
      UseRunner("shift 2\npath=${2#'Z:\\host'}\nexec '" HARVANE_TEST_SESSION
                "' \"${path//\\\\//}\"\n");
    }
  }
  void TearDown() override {
    if (!isWindows) unsetenv("HARVANE_WINE_RUNNER");
  }

  // Makes a script the runner of what follows.
  void UseRunner(const std::string& body) {
    const std::string runner = folder.FileIn("runner");
    support::WriteBytes(runner, "#!/bin/bash\n" + body);
    chmod(runner.c_str(), 0755);
    setenv("HARVANE_WINE_RUNNER", runner.c_str(), 1);
  }

  std::string LogFolder() const { return isWindows ? WindowsPathOf(folder.Text()) : folder.Text(); }

  TemporaryFolder folder;
  std::string module;
  bool isWindows = false;
};

struct Job {
  int passes = 2;
  std::uint32_t sampleRate = 48000;
  std::vector<std::string> formats = {"2"};
  std::uint32_t channels = 2;
  std::uint32_t unitFrames = 4096;
  std::string loudness = "-23";
};

std::string Document(const Job& job, const std::string& logFolder) {
  ParameterTexts texts;
  texts.numberOfPasses = std::to_string(job.passes);
  texts.numberOfGroups = std::to_string(job.formats.size());
  texts.formats = job.formats;
  texts.Loudness = job.loudness;
  texts.logPath = logFolder;
  texts.logFileName = "remote";
  texts.logEntryName = "entry";
  return ParameterDocument(texts);
}

// What the module gives back, pass by pass one after the other.
template <class Session>
std::vector<std::int16_t> RunJob(Session* session, const Job& job, const std::string& logFolder,
                                 const std::vector<std::int16_t>& input) {
  std::vector<std::int16_t> output;
  session->Configure(Document(job, logFolder),
                     {job.sampleRate, job.channels, SessionFormat::FrameRate{25, 1}});
  session->StartSequence();
  const std::size_t frames = input.size() / job.channels;
  for (int pass = 0; pass < job.passes; ++pass) {
    session->StartPass(static_cast<std::uint32_t>(pass));
    for (std::size_t at = 0; at < frames; at += job.unitFrames) {
      const auto count =
          static_cast<std::uint32_t>(std::min<std::size_t>(job.unitFrames, frames - at));
      session->Deliver(input.data() + at * job.channels, count, &output);
    }
    session->EndPass();
  }
  session->EndSequence();
  return output;
}

TEST_F(RemoteSession, GivesTheSameSamplesAsTheLinkedModule) {
  const Job jobs[] = {
      {2, 48000, {"2"}, 2, 4096, "-23"},
      {2, 48000, {"2"}, 2, 1, "-12"},
      {2, 44100, {"7"}, 8, 997, "-12"},
      {1, 48000, {"2", "1"}, 10, 480, "-23"},
      {2, 96000, {"5", "8", "6", "3"}, 32, 100000, "-16"},
  };
  for (const Job& job : jobs) {
    SCOPED_TRACE(std::to_string(job.channels) + " channels in units of " +
                 std::to_string(job.unitFrames));
    const std::size_t frames = job.unitFrames == 1 ? 3000 : job.sampleRate;
    const auto input = support::Programme(7, static_cast<int>(job.sampleRate),
                                          static_cast<int>(job.channels), frames);
    HostSession here(LinkedModuleExports());
    const auto expected = RunJob(&here, job, folder.FileIn("here"), input);
    ASSERT_EQ(expected.size(), input.size());
    harvane::RemoteSession there(module);
    EXPECT_EQ(RunJob(&there, job, LogFolder(), input), expected);
  }
}

TEST_F(RemoteSession, AUnitBiggerThanAnyPipeComesThrough) {
  const Job job = {1, 48000, {"2"}, 2, 2000000, "-23"};
  const auto input = support::NoiseInt16(3, std::size_t{2000000} * 2, 20000);
  HostSession here(LinkedModuleExports());
  harvane::RemoteSession there(module);
  EXPECT_EQ(RunJob(&there, job, LogFolder(), input),
            RunJob(&here, job, folder.FileIn("here"), input));
}

TEST_F(RemoteSession, ItsEndLeavesTheLastRowsInTheLog) {
  const Job job = {2, 48000, {"5"}, 8, 4800, "-23"};
  {
    harvane::RemoteSession there(module);
    RunJob(&there, job, LogFolder(), support::Programme(1, 48000, 8, 4800));
  }
  // Four tracks, two passes: half of the eight rows, all of the first pass.
  const std::string log = support::ReadBytes(folder.FileIn("remote.csv"));
  EXPECT_NE(log.find("entry,Analysis,6,7,Stereo,"), std::string::npos) << log;
  EXPECT_EQ(log.find("entry,Process,"), std::string::npos) << log;
}

void ExpectRefusal(harvane::RemoteSession* session, const std::string& xml, const char* exportName,
                   std::uint32_t code) {
  try {
    session->Configure(xml, {48000, 2, {}});
    FAIL() << "no refusal";
  } catch (const ModuleRefusal& refusal) {
    EXPECT_STREQ(refusal.ExportName(), exportName);
    EXPECT_EQ(refusal.Code(), code);
  }
}

TEST_F(RemoteSession, RefusalsComeBackByNameAndCodeAndTheSessionGoesOn) {
  harvane::RemoteSession session(module);
  ExpectRefusal(&session, "<parameter><audio>", "xSetParameter", 3);
  ParameterTexts texts;
  texts.MaxTP = "(absent)";
  ExpectRefusal(&session, ParameterDocument(texts), "xSetParameter", 4);
  const Job job;
  RunJob(&session, job, LogFolder(), support::Programme(2, 48000, 2, 4800));
}

std::string ErrorOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const ModuleError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no ModuleError";
  return {};
}

TEST_F(RemoteSession, AModuleThatEndsItsProcessIsReportedAndNothingElseDies) {
  // At 192 kHz the limiter finds no oversampling phases and stops for good.
  const Job job = {2, 192000, {"2"}, 2, 4096, "-12"};
  const auto input = support::Programme(5, 192000, 2, 192000 * 4);
  harvane::RemoteSession session(module);
  std::string error;
  try {
    RunJob(&session, job, LogFolder(), input);
    ADD_FAILURE() << "no death";
  } catch (const ModuleDeath& death) {
    error = death.what();
  }
  EXPECT_EQ(error.rfind(module + ": the module ended its process in a unit of audio, ", 0), 0U)
      << error;
  EXPECT_EQ(ErrorOf([&] { session.EndPass(); }), error);
  EXPECT_THROW(session.EndPass(), ModuleDeath);
}

TEST_F(RemoteSession, AModuleThatCannotBeLoadedIsReported) {
  const std::string missing = std::filesystem::path(module).parent_path() / "Missing.rpi";
  EXPECT_NE(ErrorOf([&] { harvane::RemoteSession session(missing); }).find("cannot be loaded"),
            std::string::npos);
}

// ---- without Wine

using RemoteSessionFailure = RemoteSession;

TEST_F(RemoteSessionFailure, ARunnerThatDoesNotStartAnythingIsReported) {
  UseRunner("exit 125\n");
  try {
    harvane::RemoteSession session(module);
  } catch (const ModuleDeath&) {
    ADD_FAILURE() << "nothing was there to die";
  } catch (const ModuleError&) {  // NOLINT(bugprone-empty-catch): as it must be
  }
  EXPECT_NE(ErrorOf([&] { harvane::RemoteSession session(module); }).find("status 125"),
            std::string::npos);
}

TEST_F(RemoteSessionFailure, ARunnerThatIsNotThereIsReported) {
  setenv("HARVANE_WINE_RUNNER", "/nowhere/runner", 1);
  EXPECT_NE(ErrorOf([&] { harvane::RemoteSession session(module); }).find("/nowhere/runner"),
            std::string::npos);
}

TEST_F(RemoteSessionFailure, AnswersThatAreNoProtocolAreReported) {
  UseRunner("cat >/dev/null & echo 'Something quite different from a frame'; wait\n");
  EXPECT_NE(ErrorOf([&] { harvane::RemoteSession session(module); }).find("too long"),
            std::string::npos);
}

TEST_F(RemoteSessionFailure, AProcessThatDiesBehindPipesHeldOpenIsNoticed) {
  UseRunner("sleep 20 2>&- & exit 3\n");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_NE(ErrorOf([&] { harvane::RemoteSession session(module); }).find("status 3"),
            std::string::npos);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(RemoteSessionFailure, ADeathWithinAUnitIsAnErrorAndNoSignal) {
  // Answers the opening and the setup, then goes while the unit is on its way.
  UseRunner(
      "head -c 12 >/dev/null; printf '\\145\\0\\0\\0\\0\\0\\0\\0'\n"
      "head -c 28 >/dev/null; printf '\\145\\0\\0\\0\\0\\0\\0\\0'\n"
      "head -c 1000 >/dev/null; exit 9\n");
  harvane::RemoteSession session(module);
  session.Configure("", {48000, 2, {}});
  const std::vector<std::int16_t> input(4000000);
  std::vector<std::int16_t> output;
  const std::string error = ErrorOf([&] { session.Deliver(input.data(), 2000000, &output); });
  EXPECT_NE(error.find("in a unit of audio, status 9"), std::string::npos) << error;
}

TEST_F(RemoteSessionFailure, AUnitAboveTheLimitIsReported) {
  harvane::RemoteSession session(module);
  const Job job;
  session.Configure(Document(job, LogFolder()), {48000, 2, {}});
  std::vector<std::int16_t> output;
  EXPECT_NE(ErrorOf([&] { session.Deliver(nullptr, kMaxUnitBytes, &output); }).find("too long"),
            std::string::npos);
}

TEST(RemotePlaces, TheSessionProgramIsBesideTheModuleOrInTheWindowsBuild) {
  const TemporaryFolder folder;
  const auto at = [&](const char* name) { return folder.Path() / name; };
  std::filesystem::create_directories(at("build/release"));
  std::filesystem::create_directories(at("build/windows"));
  const std::string programFolder = at("build/release").string();
  const std::string module = at("Harvane.rpi").string();
  EXPECT_NE(ErrorOf([&] {
              SessionProgram(module, programFolder);
            }).find("cmake --preset windows && cmake --build --preset windows"),
            std::string::npos);
  support::WriteBytes(at("build/windows/harvane-session.exe").string(), "");
  EXPECT_TRUE(std::filesystem::equivalent(SessionProgram(module, programFolder),
                                          at("build/windows/harvane-session.exe")));
  support::WriteBytes(at("harvane-session.exe").string(), "");
  EXPECT_EQ(SessionProgram(module, programFolder), at("harvane-session.exe").string());
}

TEST(RemotePlaces, TheRunnerIsTheCheckoutsUnlessTheEnvironmentNamesAnother) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder.Path() / "build" / "release");
  std::filesystem::create_directories(folder.Path() / "tools");
  const std::string programFolder = folder.FileIn("build/release");
  unsetenv("HARVANE_WINE_RUNNER");
  EXPECT_NE(ErrorOf([&] { WineRunner(programFolder); }).find("HARVANE_WINE_RUNNER"),
            std::string::npos);
  support::WriteBytes(folder.FileIn("tools/i386-root"), "");
  EXPECT_EQ(WineRunner(programFolder), folder.FileIn("tools/i386-root"));
  setenv("HARVANE_WINE_RUNNER", "other", 1);
  EXPECT_EQ(WineRunner(programFolder), "other");
  unsetenv("HARVANE_WINE_RUNNER");
}

TEST(RemotePlaces, WindowsPathsStandBelowTheMachinesRoot) {
  EXPECT_EQ(WindowsPathOf(""), "");
  EXPECT_EQ(WindowsPathOf("/"), "Z:\\host\\");
  EXPECT_EQ(WindowsPathOf("/no such/\xC3\xA9/../log"), "Z:\\host\\no such\\log");
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path() / "real");
  std::filesystem::create_directory_symlink(folder.Path() / "real", folder.Path() / "link");
  EXPECT_EQ(WindowsPathOf(folder.FileIn("link/x")), WindowsPathOf(folder.FileIn("real/x")));
}

TEST(RemotePlaces, AWindowsModuleIsKnownByItsSignatures) {
  const TemporaryFolder folder;
  const std::string path = folder.FileIn("module");
  EXPECT_FALSE(IsWindowsModule(path));
  EXPECT_FALSE(IsWindowsModule(HARVANE_TEST_MODULE));
  std::string bytes(0x80, '\0');
  bytes.replace(0, 2, "MZ");
  bytes[0x3C] = 0x70;
  support::WriteBytes(path, bytes);
  EXPECT_FALSE(IsWindowsModule(path));
  bytes.replace(0x70, 4, std::string("PE\0\0", 4));
  support::WriteBytes(path, bytes);
  EXPECT_TRUE(IsWindowsModule(path));
  support::WriteBytes(path, bytes.substr(0, 0x3D));
  EXPECT_FALSE(IsWindowsModule(path));
}

}  // namespace
}  // namespace harvane
