#ifndef HARVANE_TESTS_SUPPORT_DELAYAUDIOPROBE_H
#define HARVANE_TESTS_SUPPORT_DELAYAUDIOPROBE_H

#include "delay_audio/DelayAudio.h"

namespace harvane {

// The members of a DelayAudio that none of its operations gives out, as
// references: they show later changes and end with the instance. A test may
// write through one that is not const.
class DelayAudioProbe {
 public:
  using SampleLists = CheckedList<CheckedList<float>>;

  // Format.
  static LpcmPayload& InputFormat(DelayAudio& job) { return job.inputFormat; }
  static VidePayload& VideoInfo(DelayAudio& job) { return job.videoInfo; }

  // Parameters.
  static std::string& SourceFileName(DelayAudio& job) { return job.sourceFileName; }
  static std::string& TargetFilePath(DelayAudio& job) { return job.targetFilePath; }
  static std::string& LogPath(DelayAudio& job) { return job.logPath; }
  static std::string& LogFileName(DelayAudio& job) { return job.logFileName; }
  static std::string& LogEntryName(DelayAudio& job) { return job.logEntryName; }
  static int& NumberOfPasses(DelayAudio& job) { return job.numberOfPasses; }
  static float& FrameRate(DelayAudio& job) { return job.frameRate; }
  static float& Loudness(DelayAudio& job) { return job.Loudness; }
  static float& ShortTermLoudness(DelayAudio& job) { return job.ShortTermLoudness; }
  static float& MaxTP(DelayAudio& job) { return job.MaxTP; }
  static int& NormalisationMode(DelayAudio& job) { return job.normalisationMode; }

  // Channel tables.
  static int& NumberOfGroups(DelayAudio& job) { return job.numberOfGroups; }
  static int& TrackCount(DelayAudio& job) { return job.trackCount; }
  static int& ChannelIndexInTrack(DelayAudio& job, int channel) {
    return job.channelIndexInTrack[channel];
  }
  static int& TrackOfChannel(DelayAudio& job, int channel) { return job.trackOfChannel[channel]; }
  static CheckedList<int>& TrackChannelCounts(DelayAudio& job) { return job.trackChannelCounts; }

  // Sequence and passes.
  static std::uint32_t& CurrentPass(DelayAudio& job) { return job.currentPass; }
  static int& SampleCounter(DelayAudio& job) { return job.sampleCounter; }
  static int& SampleRate(DelayAudio& job) { return job.sampleRate; }
  static int& TimecodeFrameRate(DelayAudio& job) { return job.timecodeFrameRate; }
  static std::uint32_t& BlockSize(DelayAudio& job) { return job.blockSize; }
  static std::string& LastErrorText(DelayAudio& job) { return job.lastErrorText; }

  // Callbacks: of the meters, with the null at the end of their table, and of the true peak.
  static constexpr MeterCallbacks kMeterCallbacks = {
      DelayAudio::OnMomentary, DelayAudio::OnShortTerm, DelayAudio::OnIntegrated,
      DelayAudio::OnRange, nullptr};
  static void OnTruePeak(float value, int position, int track, void* context) {
    DelayAudio::OnTruePeak(value, position, track, context);
  }

  // Track objects and scratch arrays.
  static CheckedList<TrackMeasurement>& Results(DelayAudio& job) { return job.results; }
  static CheckedList<float>& TrackGains(DelayAudio& job) { return job.trackGains; }
  static CheckedFlags& LimiterNeeded(DelayAudio& job) { return job.limiterNeeded; }
  static harvane::SampleMath& SampleMath(DelayAudio& job) { return job.sampleMath; }
  static CheckedList<LoudnessMeter*>& Meters(DelayAudio& job) { return job.meters; }
  static CheckedList<TruePeakMeter*>& TruePeakMeters(DelayAudio& job) { return job.truePeakMeters; }
  static CheckedList<TruePeakLimiter*>& Limiters(DelayAudio& job) { return job.limiters; }
  static float*& TruePeakScratch(DelayAudio& job) { return job.truePeakScratch; }
  static SampleLists& InputAccumulators(DelayAudio& job) { return job.inputAccumulators; }
  static SampleLists& OutputAccumulators(DelayAudio& job) { return job.outputAccumulators; }
  static PassObserver& Observer(DelayAudio& job) { return job.observer; }
};

}  // namespace harvane

#endif  // HARVANE_TESTS_SUPPORT_DELAYAUDIOPROBE_H
