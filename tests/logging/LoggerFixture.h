#ifndef HARVANE_TESTS_LOGGING_LOGGERFIXTURE_H
#define HARVANE_TESTS_LOGGING_LOGGERFIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "logging/OrvelSingletonLoudnessLogger.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/twin/Kernels.h"

#ifndef _WIN32
#include <unistd.h>
#endif

// What the tests of the logger share: a clock that they set, the rows that they wait for, and a
// logger of their own with a folder.
namespace harvane::logger_tests {

using Steady = std::chrono::steady_clock;

inline constexpr int kNever = 3600000;  // ms: the writer sleeps through the whole test

// ---- the clock that tests set

inline std::atomic<juce::int64> nowMs{0};

inline juce::Time Now() { return juce::Time(nowMs.load()); }

inline void SetLocalTime(int year, int month, int day, int hour, int minute, int second) {
  nowMs = juce::Time(year, month - 1, day, hour, minute, second, 0, true).toMilliseconds();
}

// A clock that holds up whoever asks for the time, until it is let go.
inline std::atomic<bool> isHeld{false};
inline std::atomic<int> waitingForTime{0};

inline juce::Time HeldNow() {
  ++waitingForTime;
  while (isHeld) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return Now();
}

template <class Condition>
bool Within(std::chrono::milliseconds limit, Condition condition) {
  const auto end = Steady::now() + limit;
  while (!condition()) {
    if (Steady::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// ---- files, by UTF-8 names

inline std::filesystem::path PathOf(const std::string& text) {
  return {std::u8string(text.begin(), text.end())};
}

inline std::string Bytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The row that Add queues under this name.
inline std::string Row(const std::string& name) {
  return twin::RowBytes(twin::RowText(name, "Analysis", 0, 2, twin::TrackValues(), 0, 48000));
}

inline std::string Rows(const std::vector<std::string>& names) {
  std::string rows;
  for (const std::string& name : names) rows += Row(name);
  return rows;
}

// Entry names of all rows of a file, whatever stands between them.
inline std::vector<std::string> NamesIn(const std::string& bytes) {
  std::vector<std::string> names;
  std::size_t first = 0;
  while (first < bytes.size()) {
    std::size_t end = bytes.find('\n', first);
    if (end == std::string::npos) end = bytes.size();
    const std::string line = bytes.substr(first, end - first);
    const std::size_t pass = line.find(",Analysis,0,1,Stereo,");
    if (pass != std::string::npos) names.push_back(line.substr(0, pass));
    first = end + 1;
  }
  return names;
}

inline LogMeasurement Silence() {
  return {"Analysis", 0, 1, -70.0F, -70.0F, -70.0F, {}, -70.0F, {}, -70.0F, {}};
}

// A logger with a folder of its own, at 17:04:09 on the 7th of March 2013. Add sends rows to the
// file rows.csv in it.
class LoggerFixture : public testing::Test {
 protected:
  LoggerFixture() {
    SetLocalTime(2013, 3, 7, 17, 4, 9);
    Start();
  }
  ~LoggerFixture() override {
    isHeld = false;
    logger = nullptr;
  }

  void Start(OrvelSingletonLoudnessLogger::Clock clock = Now, int intervalMs = kNever) {
    logger = std::make_unique<OrvelSingletonLoudnessLogger>(clock, intervalMs);
  }

  void AddTo(const std::string& path, const std::string& stem, const std::string& name) {
    logger->AddEntry(Silence(), stem, path, name, 0);
  }
  void Add(const std::string& name) { AddTo(folder.Text(), "rows", name); }
  void AddNumbered(int count) {
    for (int i = 1; i <= count; ++i) Add(std::to_string(i));
  }

  void WriteAll() {
    while (logger->WaitingEntries() > 0) logger->DrainQueue();
  }

  std::filesystem::path InFolder(const std::string& name) const {
    return folder.Path() / PathOf(name);
  }
  std::string File() const { return Bytes(InFolder("rows.csv")); }
  std::vector<std::string> Names() const { return NamesIn(File()); }

  support::TemporaryFolder folder;
  std::unique_ptr<OrvelSingletonLoudnessLogger> logger;
};

#ifndef _WIN32
// Nobody's rights in place of root's, which no folder refuses.
class OrdinaryUser {
 public:
  static constexpr uid_t kNobody = 65534;

  OrdinaryUser() : isRoot(geteuid() == 0) {
    if (isRoot) isOrdinary = seteuid(kNobody) == 0;
  }
  ~OrdinaryUser() {
    if (isRoot && isOrdinary) static_cast<void>(!seteuid(0));
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;
  bool IsOrdinary() const { return isOrdinary; }

 private:
  bool isRoot;
  bool isOrdinary = true;
};
#endif

}  // namespace harvane::logger_tests

#endif  // HARVANE_TESTS_LOGGING_LOGGERFIXTURE_H
