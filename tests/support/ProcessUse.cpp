#include "tests/support/ProcessUse.h"

#ifdef _WIN32
#include <windows.h>
// Behind windows.h, whose types they take.
#include <psapi.h>
#include <tlhelp32.h>
#else
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#endif

namespace support {

#ifdef _WIN32

ProcessUse UseOfProcess() {
  ProcessUse use{};
  PROCESS_MEMORY_COUNTERS memory{};
  K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
  use.residentBytes = static_cast<std::int64_t>(memory.WorkingSetSize);
  // Wine counts no handles, but gives the lowest number that is free.
  HANDLE const next = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  use.handles = static_cast<int>(reinterpret_cast<std::uintptr_t>(next) / 4);
  CloseHandle(next);
  HANDLE const all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 thread{};
  thread.dwSize = sizeof thread;
  for (BOOL isThere = Thread32First(all, &thread); isThere != FALSE;
       isThere = Thread32Next(all, &thread)) {
    if (thread.th32OwnerProcessID == GetCurrentProcessId()) ++use.threads;
  }
  CloseHandle(all);
  return use;
}

double ThreadSeconds() {
  constexpr double kTicksPerSecond = 1e7;
  FILETIME unused{};
  FILETIME kernel{};
  FILETIME user{};
  GetThreadTimes(GetCurrentThread(), &unused, &unused, &kernel, &user);
  const auto ticks = [](const FILETIME& time) {
    return static_cast<double>((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime);
  };
  return (ticks(kernel) + ticks(user)) / kTicksPerSecond;
}

#else

namespace {

int EntriesOf(const char* folder) {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

ProcessUse UseOfProcess() {
  ProcessUse use{};
  std::int64_t totalPages = 0;
  std::int64_t residentPages = 0;
  std::ifstream("/proc/self/statm") >> totalPages >> residentPages;
  use.residentBytes = residentPages * sysconf(_SC_PAGESIZE);
  use.handles = EntriesOf("/proc/self/fd") - 1;  // less the one that lists them
  use.threads = EntriesOf("/proc/self/task");
  return use;
}

double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

#endif

}  // namespace support
