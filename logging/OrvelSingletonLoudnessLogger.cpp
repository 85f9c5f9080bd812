#include "logging/OrvelSingletonLoudnessLogger.h"

#include <chrono>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "logging/LogRow.h"

namespace harvane {
namespace {

// Holds the one logger. Where the process ends with its threads already gone,
// destroying a juce::Thread would wait for one of them for ever.
class SingletonHolder {
 public:
  SingletonHolder() { new (storage) OrvelSingletonLoudnessLogger; }
  ~SingletonHolder() {
    ModuleCall::EndModule();
    if (ProcessIsEnding()) {
      Get().DrainWithoutWriter();
    } else {
      Get().~OrvelSingletonLoudnessLogger();
    }
  }
  OrvelSingletonLoudnessLogger& Get() {
    return *std::launder(reinterpret_cast<OrvelSingletonLoudnessLogger*>(storage));
  }

 private:
  alignas(OrvelSingletonLoudnessLogger) unsigned char storage[sizeof(OrvelSingletonLoudnessLogger)];
};

juce::String FromUtf8(const std::string& text) { return juce::String::fromUTF8(text.c_str()); }

}  // namespace

OrvelSingletonLoudnessLogger& OrvelSingletonLoudnessLogger::SingletonInstance() {
  static SingletonHolder holder;
  return holder.Get();
}

OrvelSingletonLoudnessLogger::OrvelSingletonLoudnessLogger(Clock clock, int drainIntervalMs)
    : juce::Thread("Logger Writer"), clock(clock), drainIntervalMs(drainIntervalMs) {
  const juce::String separator = juce::File::getSeparatorString();
  documentsPath =
      juce::File::getSpecialLocation(juce::File::userDocumentsDirectory).getFullPathName();
  logFolderSuffix = separator + "HarvaneLogs" + separator;
  defaultLogFolder = documentsPath + logFolderSuffix;
  logFileStem = "Log";
  logFileExtension = ".csv";
  // The first wait and the first look at the clock load libraries. A writer that did so while
  // the module is being unloaded would wait for the unloading thread, and that for the writer.
  static_cast<void>(SystemClock().getDayOfMonth());
  wait(0);
  startThread();
  threadEnd.AwaitEntry(kStopTimeoutMs);
}

OrvelSingletonLoudnessLogger::~OrvelSingletonLoudnessLogger() {
  const bool hasDrained = threadEnd.Stop(this, kStopTimeoutMs);
  if (!hasDrained && !hasBegun) DrainWithoutWriter();
  entries.consume_all([](LogEntry* entry) { delete entry; });
}

void OrvelSingletonLoudnessLogger::AddEntry(const LogMeasurement& measurement,
                                            const std::string& logFileName,
                                            const std::string& logPath,
                                            const std::string& logEntryName, int frameRate) try {
  const std::string name = logEntryName.empty() ? DefaultEntryName(clock()) : logEntryName;
  auto entry = std::make_unique<LogEntry>(
      LogEntry{LogRow(name, measurement, frameRate), FromUtf8(logPath), FromUtf8(logFileName)});
  if (!entries.push(entry.get())) return;
  entry.release();
  ++entryCount;
} catch (const std::exception&) {
  // The row is lost.
}

void OrvelSingletonLoudnessLogger::run() {
  threadEnd.Enter();
  hasBegun = true;
  // A stop that comes before the first wait finds its drain, too.
  do {
    wait(drainIntervalMs);
    DrainQueue();
  } while (!threadShouldExit());
  threadEnd.Leave();
}

void OrvelSingletonLoudnessLogger::DrainQueue() {
  const juce::ScopedLock lock(entriesLock);
  DrainHalf(Haste::kNone);
}

void OrvelSingletonLoudnessLogger::DrainWithoutWriter() {
  const juce::ScopedTryLock lock(entriesLock);
  if (lock.isLocked()) DrainHalf(Haste::kLastDrain);
}

void OrvelSingletonLoudnessLogger::DrainHalf(Haste haste) {
  std::optional<std::chrono::steady_clock::time_point> hurriedSince;
  // A writer that went on past its time would be killed at an unknown place. JUCE's clock of
  // milliseconds is no measure of it: under Wine it stands still while the server is busy.
  const auto isTimeOver = [&] {
    if (haste == Haste::kNone && !threadShouldExit()) return false;
    const auto now = std::chrono::steady_clock::now();
    if (!hurriedSince) hurriedSince = now;
    return now - *hurriedSince > std::chrono::milliseconds(kLastDrainMs);
  };
  // Deliberate: the counter grows while the queue shrinks, and they meet in the middle.
  for (int i = 0; i < entryCount.load() && !isTimeOver(); ++i) {
    LogEntry* front = nullptr;
    if (!entries.pop(front)) return;
    const std::unique_ptr<LogEntry> entry(front);
    Write(*entry);
    --entryCount;
  }
}

void OrvelSingletonLoudnessLogger::Write(const LogEntry& entry) {
  const juce::String folder =
      entry.folder.isNotEmpty() ? EnsureTrailingBackslash(entry.folder) : defaultLogFolder;
  const juce::String stem =
      entry.fileStem.isNotEmpty() ? entry.fileStem : DatedFileStem(logFileStem, clock());
  const juce::File file(folder + stem + logFileExtension);
  const juce::String welcome = file.exists() ? juce::String() : LogHeader();
  currentLogger = std::make_unique<LogFile>(file, welcome, kMaxLogFileBytes);
  currentLogger->LogMessage(entry.line);
  currentLogger = nullptr;
}

juce::String EnsureTrailingBackslash(const juce::String& folder) {
  const juce::String separator = juce::File::getSeparatorString();
  return folder.endsWith(separator) ? folder : folder + separator;
}

}  // namespace harvane
