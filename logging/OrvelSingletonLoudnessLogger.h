#ifndef HARVANE_LOGGING_ORVELSINGLETONLOUDNESSLOGGER_H
#define HARVANE_LOGGING_ORVELSINGLETONLOUDNESSLOGGER_H

#include <atomic>
#include <boost/lockfree/queue.hpp>
#include <memory>
#include <string>

#include "logging/LogMeasurement.h"
#include "platform/JuceCore.h"
#include "platform/LogFile.h"
#include "platform/ModuleEnd.h"

namespace harvane {

inline constexpr int kDrainIntervalMs = 5000;
inline constexpr int kStopTimeoutMs = 1000;
inline constexpr int kLastDrainMs = 800;
inline constexpr juce::int64 kMaxLogFileBytes = 131072;  // 128 KiB

// What the queue holds: a finished row and where it goes.
struct LogEntry {
  juce::String line;
  juce::String folder;    // empty: the default folder
  juce::String fileStem;  // empty: the dated default name
};

// Writes the CSV log on a thread of its own, so that a host never waits for a
// disk. One for all instances of the module, made at the first pass end and
// destroyed when the module goes.
//
// Thread     AddEntry: any, at the same time; it takes no lock and never waits.
//            DrainQueue: the writer, or anyone; one at a time, by `entriesLock`.
// Errors     a file that cannot be made or written loses its rows, silently, and
//            AddEntry its row where memory is exhausted. Making the logger
//            throws std::bad_alloc.
//
// Deliberate: a drain of N entries writes the oldest ceil(N/2) and leaves the
// others to the next wake-up; the last drain, on unloading, does the same, and
// what is left is lost. Test: ADrainWritesHalfOfTheQueueRoundedUp.
class OrvelSingletonLoudnessLogger : public juce::Thread {
 public:
  using Clock = juce::Time (*)();
  static juce::Time SystemClock() { return juce::Time::getCurrentTime(); }

  // The one logger of the module.
  static OrvelSingletonLoudnessLogger& SingletonInstance();

  // Starts the writer. The first drain comes `drainIntervalMs` later. A program
  // that wants a logger of its own, such as a test, may set both arguments.
  explicit OrvelSingletonLoudnessLogger(Clock clock = SystemClock,
                                        int drainIntervalMs = kDrainIntervalMs);
  // Stops the writer after a last drain, which ends after kLastDrainMs even with rows left;
  // waits for it kStopTimeoutMs at most. A writer that hangs is ended by force. What waits
  // then is lost.
  ~OrvelSingletonLoudnessLogger() override;

  // Forms the row now, with the clock's time where `logEntryName` is empty, and
  // queues it. `frameRate` in whole video frames per second, 0 for none.
  void AddEntry(const LogMeasurement& measurement, const std::string& logFileName,
                const std::string& logPath, const std::string& logEntryName, int frameRate);

  void run() override;

  void DrainQueue();

  // Entries that wait to be written.
  int WaitingEntries() const { return entryCount.load(); }

  // For a writer that never began, and for the end of a process that has ended its other
  // threads: a last drain on the calling thread. Given up where `entriesLock` is held: a
  // writer that died within a drain may have the file, and what lies below it, locked.
  void DrainWithoutWriter();

 private:
  enum class Haste { kNone, kLastDrain };
  void DrainHalf(Haste haste);
  void Write(const LogEntry& entry);

  juce::String documentsPath;
  juce::String logFolderSuffix;
  juce::String defaultLogFolder;
  juce::String logFileStem;
  juce::String logFileExtension;
  std::unique_ptr<LogFile> currentLogger;  // set while one entry is being written
  boost::lockfree::queue<LogEntry*> entries{0};
  std::atomic<int> entryCount{0};  // entries in the queue; the queue itself cannot tell
  juce::CriticalSection entriesLock;
  ThreadEnd threadEnd;
  std::atomic<bool> hasBegun{false};  // a writer that never ran has not drained either
  Clock clock;
  int drainIntervalMs;
};

// `folder` with the platform's separator behind it, unless it is there.
juce::String EnsureTrailingBackslash(const juce::String& folder);

}  // namespace harvane

#endif  // HARVANE_LOGGING_ORVELSINGLETONLOUDNESSLOGGER_H
