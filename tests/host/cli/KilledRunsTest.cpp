// What stays of runs that are killed. More random moments: --cases=100.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"

namespace support {
namespace {

using Clock = std::chrono::steady_clock;

// Several files, normalised one after the other by runs of the program.
class KilledRuns : public testing::Test {
 protected:
  using Contents = std::map<std::string, std::string>;  // by name

  KilledRuns() {
    WriteSound(place.FileIn("a.wav"), kWav16, 48000, 2, PeakyNoise(48000, 2, 0.5));
    WriteSound(place.FileIn("b.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, 1,
               QuietNoise(44100, 1, 0.6));
    WriteSound(place.FileIn("c.aiff"), SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 48000, 6,
               QuietNoise(48000, 6, 0.2));
    inputs = Files();
    const Clock::time_point start = Clock::now();
    RunAll();
    wholeTime = Clock::now() - start;
    for (const auto& [name, bytes] : Files()) {
      if (inputs.count(name) == 0) outputs[name] = bytes;
    }
  }

  Contents Files() const {
    Contents files;
    for (const std::string& name : place.Names()) files[name] = ReadBytes(place.FileIn(name));
    return files;
  }

  // One run of the program; its results and notes go nowhere.
  std::vector<std::string> Command(const std::string& input) const {
    return {"/usr/bin/env",
            "HOME=" + home.Text(),
            HARVANE_PROGRAM,
            "normalise",
            place.FileIn(input),
            "-o",
            place.FileIn("out-" + input),
            "--overwrite",
            "-L",
            home.Text()};
  }

  pid_t Start(const std::string& input) const {
    const std::vector<std::string> command = Command(input);
    std::vector<char*> arguments = Pointers(command);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    EXPECT_EQ(posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return process;
  }

  // All runs in turn up to `end`, when the one under way is killed. True if all came to their end.
  bool RunUntil(Clock::time_point end) const {
    for (const auto& [name, bytes] : inputs) {
      const pid_t process = Start(name);
      int status = 0;
      while (waitpid(process, &status, WNOHANG) == 0) {
        if (Clock::now() < end) {
          std::this_thread::sleep_for(std::chrono::microseconds(200));
          continue;
        }
        kill(process, SIGKILL);
        waitpid(process, &status, 0);
        return false;
      }
    }
    return true;
  }

  void RunAll() const { EXPECT_TRUE(RunUntil(Clock::time_point::max())); }

  static std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
  }

  // Every name is an input's, as it was, an output's with `former` or with the right bytes, or a
  // hidden one.
  void ExpectWholeFiles(const std::string& former) const {
    for (const auto& [name, bytes] : Files()) {
      if (const auto input = inputs.find(name); input != inputs.end()) {
        EXPECT_TRUE(bytes == input->second) << name;
      } else if (const auto output = outputs.find(name); output != outputs.end()) {
        EXPECT_TRUE(bytes == output->second || (!former.empty() && bytes == former))
            << name << " has " << bytes.size() << " bytes of " << output->second.size();
      } else {
        EXPECT_EQ(name.rfind(".harvane-", 0), 0U) << name;
      }
    }
  }

  void ExpectAllDone() const {
    const Contents files = Files();
    for (const auto& [name, bytes] : outputs) {
      ASSERT_EQ(files.count(name), 1U) << name;
      EXPECT_TRUE(files.at(name) == bytes) << name;
    }
  }

  // No output, or one that a run must replace.
  void SetOutputs(const std::string& former) const {
    for (const auto& [name, bytes] : Files()) {
      if (inputs.count(name) == 0) std::filesystem::remove(place.FileIn(name));
    }
    if (former.empty()) return;
    for (const auto& [name, bytes] : outputs) WriteBytes(place.FileIn(name), former);
  }

  Workplace place;
  TemporaryFolder home;
  Contents inputs;
  Contents outputs;  // as they must come
  Clock::duration wholeTime{};
};

TEST_F(KilledRuns, ARandomMomentLeavesWholeFilesAndTheNextRunDoesTheRest) {
  ASSERT_EQ(outputs.size(), 3U);
  ForEachSeed(5, [&](std::uint64_t seed) {
    NoiseSource chance(seed);
    const std::string former = seed % 2 == 0 ? "former" : "";
    SetOutputs(former);
    RunUntil(Clock::now() + wholeTime * chance.NextBelow(1000) / 1000);
    ExpectWholeFiles(former);
    RunAll();
    ExpectAllDone();
    ExpectWholeFiles("");
  });
}

// ---- each system call that changes a folder, or makes a change last

// True where the stopped `process` is about to make such a call.
bool IsAtFolderCall(pid_t process) {
  constexpr unsigned long kCalls[] = {SYS_fsync, SYS_linkat, SYS_rename, SYS_unlink};
  __ptrace_syscall_info info{};
  const long size = ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info);
  return size > 0 && info.op == PTRACE_SYSCALL_INFO_ENTRY &&
         std::find(std::begin(kCalls), std::end(kCalls), info.entry.nr) != std::end(kCalls);
}

class KilledRunsByCall : public KilledRuns {
 protected:
  // Runs the program on a.wav up to the `n`-th such call, counted from 0, of its main thread, or of
  // its worker's, and kills both there. False where it came to its end before.
  bool RunUpToCall(int n, bool isOfWorker) const {
    const pid_t program = fork();
    if (program == 0) RunTraced();
    int status = 0;
    waitpid(program, &status, 0);
    EXPECT_TRUE(WIFSTOPPED(status)) << "the process cannot be traced";
    ptrace(PTRACE_SETOPTIONS, program, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_EXITKILL);
    ptrace(PTRACE_SYSCALL, program, nullptr, 0);
    std::set<pid_t> processes = {program};
    int calls = 0;
    while (processes.count(program) > 0) {
      const pid_t process = waitpid(-1, &status, __WALL);
      if (process < 0) return false;
      if (!WIFSTOPPED(status)) {
        processes.erase(process);
        continue;
      }
      const bool isNew = processes.insert(process).second;
      const bool isCall = WSTOPSIG(status) == (SIGTRAP | 0x80);
      // The two make theirs side by side, in an order that is not always the same.
      const bool isCounted = (process != program) == isOfWorker;
      if (isCall && isCounted && IsAtFolderCall(process) && calls++ == n) {
        KillAll(processes);
        return true;
      }
      // The trap of a new program or process is the tracer's alone.
      const bool isOurs = isCall || isNew || WSTOPSIG(status) == SIGTRAP;
      ptrace(PTRACE_SYSCALL, process, nullptr, isOurs ? 0 : WSTOPSIG(status));
    }
    KillAll(processes);
    return false;
  }

 private:
  static void KillAll(const std::set<pid_t>& processes) {
    for (const pid_t process : processes) kill(process, SIGKILL);
    for (const pid_t process : processes) {
      int status = 0;
      while (waitpid(process, &status, __WALL) == process && WIFSTOPPED(status)) {
      }
    }
  }

  [[noreturn]] void RunTraced() const {
    // A tracer has the place of the one that looks for leaks.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    const std::vector<std::string> command = Command("a.wav");
    const std::vector<char*> arguments = Pointers(command);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
};

TEST_F(KilledRunsByCall, EveryCallThatChangesTheFolderLeavesWholeFiles) {
  for (const std::string former : {"", "former"}) {
    bool isProgramKilled = true;
    for (int call = 0; isProgramKilled; ++call) {
      SCOPED_TRACE("call " + std::to_string(call) + " of the program, former \"" + former + "\"");
      SetOutputs(former);
      isProgramKilled = RunUpToCall(call, false);
      ExpectWholeFiles(former);
      ASSERT_LT(call, 100);
    }
    int calls = 0;
    int hidden = 0;
    for (bool isKilled = true; isKilled; ++calls) {
      SCOPED_TRACE("call " + std::to_string(calls) + " of its worker, former \"" + former + "\"");
      SetOutputs(former);
      isKilled = RunUpToCall(calls, true);
      ExpectWholeFiles(former);
      const std::vector<std::string> names = place.Names();
      hidden += static_cast<int>(std::count_if(
          names.begin(), names.end(), [](const std::string& name) { return name[0] == '.'; }));
      ASSERT_LT(calls, 100);
    }
    EXPECT_GT(calls, 3) << "the calls were not seen";
    EXPECT_EQ(ReadBytes(place.FileIn("out-a.wav")), outputs["out-a.wav"]);
    // Only a file that replaces another passes through a hidden name.
    EXPECT_EQ(hidden, former.empty() ? 0 : 1);
  }
}

}  // namespace
}  // namespace support
