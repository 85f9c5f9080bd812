#include "delay_audio/DelayAudio.h"
#include "logging/LogMeasurement.h"
#include "logging/OrvelSingletonLoudnessLogger.h"

namespace harvane {

void DelayAudio::LogPass(const std::string& passName) {
  const auto timeOf = [this](int position) {
    TimeCode time{};
    sampleMath.SamplesToTimeCode(position, timecodeFrameRate, sampleRate, &time);
    return time;
  };
  int startChannel = 0;
  for (std::size_t t = 0; t < trackChannelCounts.Size(); ++t) {
    const TrackMeasurement& result = results[t];
    const int nextStart = startChannel + trackChannelCounts[t];
    const LogMeasurement measurement = {
        juce::String(passName),
        startChannel,
        nextStart - 1,
        result.integratedLoudness,
        result.loudnessRange,
        result.maxTruePeak,
        timeOf(result.maxTruePeakPosition),
        result.maxShortTerm,
        timeOf(result.maxShortTermPosition),
        result.maxMomentary,
        timeOf(result.maxMomentaryPosition),
    };
    if (observer.onTrack != nullptr) observer.onTrack(measurement, observer.context);
    OrvelSingletonLoudnessLogger::SingletonInstance().AddEntry(measurement, logFileName, logPath,
                                                               logEntryName, timecodeFrameRate);
    startChannel = nextStart;
  }
}

}  // namespace harvane
