#include <new>

#include "delay_audio/DelayAudio.h"
#include "logging/LogMeasurement.h"
#include "logging/OrvelSingletonLoudnessLogger.h"

namespace harvane {

void DelayAudio::LogTrack(const std::string& passName, std::size_t t, int startChannel,
                          int endChannel) {
  const auto timeOf = [this](int position) {
    TimeCode time{};
    sampleMath.SamplesToTimeCode(position, timecodeFrameRate, sampleRate, &time);
    return time;
  };
  const TrackMeasurement& result = results[t];
  const LogMeasurement measurement = {
      juce::String(passName),
      startChannel,
      endChannel,
      result.integratedLoudness,
      result.loudnessRange,
      result.maxTruePeak,
      timeOf(result.maxTruePeakPosition),
      result.maxShortTerm,
      timeOf(result.maxShortTermPosition),
      result.maxMomentary,
      timeOf(result.maxMomentaryPosition),
      result.maxTruePeakPosition,
      result.maxShortTermPosition,
      result.maxMomentaryPosition,
  };
  if (observer.onTrack != nullptr) observer.onTrack(measurement, observer.context);
  if (ModuleCall::IsModuleEnding()) return;
  OrvelSingletonLoudnessLogger::SingletonInstance().AddEntry(measurement, logFileName, logPath,
                                                             logEntryName, timecodeFrameRate);
}

void DelayAudio::LogPass(const std::string& passName) {
  int startChannel = 0;
  for (std::size_t t = 0; t < trackChannelCounts.Size(); ++t) {
    const int nextStart = startChannel + trackChannelCounts[t];
    try {
      LogTrack(passName, t, startChannel, nextStart - 1);
    } catch (const std::bad_alloc&) {
      // The row is lost and the pass goes on. But who observes must not miss a track.
      if (observer.onTrack != nullptr) throw;
    }
    startChannel = nextStart;
  }
}

}  // namespace harvane
