#ifndef HARVANE_LOGGING_LOGMEASUREMENT_H
#define HARVANE_LOGGING_LOGMEASUREMENT_H

#include "measurement/SampleMath.h"
#include "platform/JuceCore.h"

namespace harvane {

// One track's values at the end of a pass, unrounded: what a log row is made
// of. Loudness in LUFS, range in LU, peak in dBTP. Channels count from 0 over
// the channels that belong to tracks; `endChannel` is the track's last.
struct LogMeasurement {
  juce::String pass;  // "Analysis" or "Process"
  int startChannel;
  int endChannel;
  float integratedLoudness;
  float loudnessRange;
  float maxTruePeak;
  TimeCode maxTruePeakTime;
  float maxShortTerm;
  TimeCode maxShortTermTime;
  float maxMomentary;
  TimeCode maxMomentaryTime;
  // The same places in frames since the start of the pass, which no row shows.
  int maxTruePeakPosition = 0;
  int maxShortTermPosition = 0;
  int maxMomentaryPosition = 0;
};

}  // namespace harvane

#endif  // HARVANE_LOGGING_LOGMEASUREMENT_H
