#ifndef HARVANE_TESTS_DELAY_AUDIO_JOBS_H
#define HARVANE_TESTS_DELAY_AUDIO_JOBS_H

#include <string>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {

using Probe = DelayAudioProbe;

// The log of these tests goes where the system's temporary files go, and is not looked at.
inline support::ParameterTexts TextsOfPasses(int numberOfPasses) {
  static const support::TemporaryFolder folder;
  support::ParameterTexts texts;
  texts.numberOfPasses = std::to_string(numberOfPasses);
  texts.logPath = folder.Text();
  texts.logFileName = "log";
  texts.logEntryName = "job";
  return texts;
}

// An instance with parameters and format, driven below the exports.
class TestJob {
 public:
  explicit TestJob(const support::ParameterTexts& texts, std::uint32_t sampleRate = 48000,
                   std::uint32_t channels = 2)
      : channels(channels) {
    job.SetParameter(support::ParameterDocument(texts).c_str());
    SetInput(support::FormatBlob(sampleRate, channels));
  }
  ~TestJob() { job.EndSequence(); }

  void SetInput(const support::Blob& blob) {
    support::CountedInfo info(blob);
    job.SetInputInfo(info.Record());
  }
  // Interleaved samples as one unit; gives the out-flag, which was 9 before.
  std::uint32_t Deliver(const std::vector<std::int16_t>& interleaved) {
    support::CountedUnit unit(interleaved.data(),
                              static_cast<std::uint32_t>(interleaved.size() / channels), channels,
                              support::Arrangement::kInterleaved);
    std::uint32_t flag = 9;
    job.DeliverPcmUnit(unit.Record(), &flag);
    return flag;
  }

  DelayAudio& operator*() { return job; }
  DelayAudio* operator->() { return &job; }

 private:
  DelayAudio job;
  std::uint32_t channels;
};

}  // namespace harvane

#endif  // HARVANE_TESTS_DELAY_AUDIO_JOBS_H
