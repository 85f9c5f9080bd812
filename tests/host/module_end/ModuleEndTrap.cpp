// module_end_trap MODULE FOLDER END [JOBS [PAUSE]]: runs jobs on a module, then ends it in one way.
//
// Sixteen stereo tracks in two passes make 32 rows a job; other counts come from END's second
// word, as in "unload/5": so many tracks in one pass. The rows go to FOLDER, in a file named
// trap.csv. PAUSE microseconds later "ending" on standard output tells that the end begins now. The
// status is kTrapStatus where the way to end lets the program choose it.
//
// Where the program comes to its end by the C++ runtime, "took" tells the milliseconds since then:
// who reads from outside may have been told late.
//
// "storm-R/1" ends R passes a second in each of ten threads at once, JOBS of them each, and unloads
// when the writer rests. It tells how many rows it has "sent", and how many are "written" by then.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/HostSession.h"
#include "host/ModuleExports.h"
#include "tests/host/module_end/TrapContract.h"
#include "tests/support/ParameterDocuments.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace {

using harvane::HostSession;
using harvane::LoadedModule;
using harvane::ModuleExports;
using support::kTrapStatus;
using support::kTrapThreads;

constexpr std::uint32_t kSampleRate = 48000;
constexpr std::uint32_t kChannelsOfGroup = 8;
constexpr std::uint32_t kFrames = 480;
constexpr int kAllTracks = 16;
// A little longer than the writer sleeps.
constexpr auto kPastFirstDrain = std::chrono::milliseconds(5700);

struct Plan {
  std::string module;
  std::string folder;
  std::string end;
  int tracks = kAllTracks;
  int passes = 2;
  int jobs = 1;
  std::chrono::microseconds pause{0};
};

// The layouts of as many groups as it takes: format 5 has four stereo tracks, 3 two, 2 one.
std::vector<std::string> Formats(int tracks) {
  std::vector<std::string> formats;
  for (; tracks >= 4; tracks -= 4) formats.emplace_back("5");
  if (tracks >= 2) formats.emplace_back("3");
  if (tracks % 2 == 1) formats.emplace_back("2");
  return formats;
}

support::ParameterTexts Texts(const Plan& plan) {
  support::ParameterTexts texts;
  texts.formats = Formats(plan.tracks);
  texts.numberOfGroups = std::to_string(texts.formats.size());
  texts.numberOfPasses = std::to_string(plan.passes);
  texts.logPath = plan.folder;
  texts.logFileName = support::kTrapFile;
  texts.logEntryName = support::kTrapEntry;
  return texts;
}

void RunJob(const ModuleExports& exports, const Plan& plan) {
  const support::ParameterTexts texts = Texts(plan);
  const auto channels = static_cast<std::uint32_t>(texts.formats.size()) * kChannelsOfGroup;
  const std::vector<std::int16_t> silence(std::size_t{kFrames} * channels);
  std::vector<std::int16_t> output;
  HostSession session(exports);
  session.Configure(ParameterDocument(texts), {kSampleRate, channels, {}});
  session.StartSequence();
  for (int pass = 0; pass < plan.passes; ++pass) {
    session.StartPass(static_cast<std::uint32_t>(pass));
    session.Deliver(silence.data(), kFrames, &output);
    session.EndPass();
  }
  session.EndSequence();
}

void RunJobs(const ModuleExports& exports, const Plan& plan) {
  for (int i = 0; i < plan.jobs; ++i) RunJob(exports, plan);
}

std::chrono::steady_clock::time_point endingSince;

void Announce() {
  std::puts("ending");
  std::fflush(stdout);
  endingSince = std::chrono::steady_clock::now();
}

// Registered before the module is loaded: called when it is gone.
void TellTime() {
  const auto took = std::chrono::steady_clock::now() - endingSince;
  std::printf(
      "took %d\n",
      static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()));
}

// Returns once the writer has appended its first row to the file, without opening it.
void AwaitFirstRow(const Plan& plan) {
  const std::filesystem::path file =
      std::filesystem::path(plan.folder) / (std::string(support::kTrapFile) + ".csv");
  const auto before = std::filesystem::file_size(file);
  while (std::filesystem::file_size(file) == before) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

[[noreturn]] void EndBySystem() {
#ifdef _WIN32
  ExitProcess(kTrapStatus);
#else
  std::exit(kTrapStatus);
#endif
}

#if defined(_WIN32) && defined(__i386__)

// Calls a module's entry point as the system does on unloading, `offset` bytes below a stack
// that is aligned to 16.
void DetachWithStackOffset(HMODULE module, unsigned offset) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(module);
  IMAGE_DOS_HEADER dos;
  std::memcpy(&dos, bytes, sizeof dos);
  IMAGE_NT_HEADERS headers;
  std::memcpy(&headers, bytes + dos.e_lfanew, sizeof headers);
  const unsigned char* const entry = bytes + headers.OptionalHeader.AddressOfEntryPoint;
  // Three words of arguments, and one to make it sixteen bytes.
  asm volatile(
      "movl %%esp, %%ebx\n\t"
      "andl $-16, %%esp\n\t"
      "subl %[offset], %%esp\n\t"
      "subl $4, %%esp\n\t"
      "pushl $0\n\t"
      "pushl $0\n\t"
      "pushl %[module]\n\t"
      "call *%[entry]\n\t"
      "movl %%ebx, %%esp"
      :
      : [module] "r"(module), [entry] "r"(entry), [offset] "r"(offset)
      : "eax", "ebx", "memory", "cc");
}

#endif

// Runs `work(thread)` in ten threads. Gives the number of those that failed.
template <class Work>
int RunThreads(Work work) {
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  threads.reserve(kTrapThreads);
  for (int i = 0; i < kTrapThreads; ++i) {
    threads.emplace_back([&, i] {
      try {
        work(i);
      } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        ++failed;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return failed;
}

void EndPassesInStep(const ModuleExports& exports, const Plan& plan, int thread,
                     std::chrono::steady_clock::time_point start,
                     std::chrono::microseconds period) {
  support::ParameterTexts texts = Texts(plan);
  HostSession session(exports);
  session.Configure(ParameterDocument(texts), {kSampleRate, kChannelsOfGroup, {}});
  session.StartSequence();
  for (int pass = 0; pass < plan.jobs; ++pass) {
    texts.logFileName = support::StormFile(pass / support::kStormPassesPerFile);
    texts.logEntryName = std::string(support::kTrapEntry) + "/" + std::to_string(thread) + "/" +
                         std::to_string(pass);
    if (exports.xSetParameter(session.Handle(), ParameterDocument(texts).c_str()) != 0) {
      throw std::runtime_error("no parameters");
    }
    session.StartPass(0);
    std::this_thread::sleep_until(start + pass * period);
    session.EndPass();
  }
  session.EndSequence();
}

int RowsInFolder(const Plan& plan) {
  int rows = 0;
  for (const auto& entry : std::filesystem::directory_iterator(plan.folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    for (std::string line; std::getline(file, line);) {
      if (line.rfind(support::kTrapEntry, 0) == 0) ++rows;
    }
  }
  return rows;
}

// The number of rows once it stays the same for a while.
int AwaitRest(const Plan& plan) {
  for (int rows = RowsInFolder(plan);;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const int now = RowsInFolder(plan);
    if (now == rows) return rows;
    rows = now;
  }
}

int RunStorm(const ModuleExports& exports, const Plan& plan, int passesPerSecond) {
  const auto start = std::chrono::steady_clock::now();
  const std::chrono::microseconds period(1000000 / passesPerSecond);
  const int failed =
      RunThreads([&](int thread) { EndPassesInStep(exports, plan, thread, start, period); });
  std::printf("sent %d\n", kTrapThreads * plan.jobs);
  std::printf("written %d\n", AwaitRest(plan));
  return failed;
}

// Still known where leaks are looked for.
LoadedModule* volatile leftLoaded = nullptr;

// An instance that a static object of the host closes: when the module's own are gone.
std::unique_ptr<HostSession> heldToTheEnd;

// Calls the module until a static object of the host ends it, and a little longer.
class BusyThread {
 public:
  ~BusyThread() {
    if (!thread.joinable()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    isEnding = true;
    thread.join();
  }
  void Start(const ModuleExports& exports) {
    thread = std::thread([this, &exports] {
      while (!isEnding) {
        void* handle = nullptr;
        if (exports.xOpen(&handle) == 0) exports.xClose(handle);
      }
    });
  }

 private:
  std::atomic<bool> isEnding{false};
  std::thread thread;
};
BusyThread busyThread;

// Returns the status, where the end itself does not.
int Run(const Plan& plan) {
  if (plan.end == "reload") {
    for (int i = 0; i < plan.jobs; ++i) {
      const LoadedModule module(plan.module);
      RunJob(module.Exports(), plan);
      if (i == plan.jobs - 1) Announce();
    }
    return kTrapStatus;
  }
  auto module = std::make_unique<LoadedModule>(plan.module);
  const ModuleExports& exports = module->Exports();
  if (plan.end == "threads") {
    if (RunThreads([&](int) { RunJobs(exports, plan); }) != 0) return 1;
    Announce();
    module.reset();
    return kTrapStatus;
  }
  if (plan.end.rfind("storm-", 0) == 0) {
    if (RunStorm(exports, plan, std::stoi(plan.end.substr(6))) != 0) return 1;
    Announce();
    module.reset();
    return kTrapStatus;
  }
  RunJobs(exports, plan);
  std::this_thread::sleep_for(plan.pause);
  if (plan.end == "unload") {
    Announce();
    module.reset();
  } else if (plan.end == "unload-later") {
    std::this_thread::sleep_for(kPastFirstDrain);
    Announce();
    module.reset();
  } else if (plan.end == "unload-draining") {
    AwaitFirstRow(plan);
    Announce();
    module.reset();
  } else if (plan.end == "return") {
    Announce();
    leftLoaded = module.release();
  } else if (plan.end == "exit-holding-an-instance") {
    LoadedModule* const left = module.release();
    leftLoaded = left;
    heldToTheEnd = std::make_unique<HostSession>(left->Exports());
    Announce();
    std::exit(kTrapStatus);
  } else if (plan.end == "exit-joining-a-thread") {
    LoadedModule* const left = module.release();
    leftLoaded = left;
    busyThread.Start(left->Exports());
    Announce();
    std::exit(kTrapStatus);
  } else if (plan.end == "exit") {
    Announce();
    std::exit(kTrapStatus);
  } else if (plan.end == "system-exit") {
    Announce();
    EndBySystem();
  } else if (plan.end == "exit-draining") {
    AwaitFirstRow(plan);
    Announce();
    EndBySystem();
  } else if (plan.end == "exit-beside-a-job" || plan.end == "exit-beside-a-log") {
    // Ended by another thread while this one is inside the module.
    std::thread([&plan] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50) + plan.pause);
      Announce();
      EndBySystem();
    }).detach();
    Plan other = plan;
    if (plan.end == "exit-beside-a-job") {
      other.passes = 3;  // of no known kind: measures, and logs nothing
    }
    for (;;) RunJob(exports, other);
#if defined(_WIN32) && defined(__i386__)
  } else if (plan.end.rfind("detach-at-", 0) == 0) {
    const HMODULE loaded =
        GetModuleHandleA(std::filesystem::path(plan.module).filename().string().c_str());
    if (loaded == nullptr) throw std::runtime_error("the module is not found");
    Announce();
    DetachWithStackOffset(loaded, static_cast<unsigned>(std::stoi(plan.end.substr(10))));
    TerminateProcess(GetCurrentProcess(), kTrapStatus);
#endif
  } else {
    throw std::runtime_error("no such end: " + plan.end);
  }
  return kTrapStatus;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count < 4) throw std::runtime_error("MODULE FOLDER END [JOBS [PAUSE]]");
    Plan plan = {arguments[1], arguments[2], arguments[3]};
    const std::size_t slash = plan.end.find('/');
    if (slash != std::string::npos) {
      plan.tracks = std::stoi(plan.end.substr(slash + 1));
      plan.passes = 1;
      plan.end.resize(slash);
    }
    if (count > 4) plan.jobs = std::stoi(arguments[4]);
    if (count > 5) plan.pause = std::chrono::microseconds(std::stoi(arguments[5]));
#ifdef _WIN32
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
#endif
    std::atexit(TellTime);
    return Run(plan);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "module_end_trap: %s\n", failure.what());
    return 1;
  }
}
