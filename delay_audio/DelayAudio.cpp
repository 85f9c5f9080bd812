#include "delay_audio/DelayAudio.h"

#include <algorithm>

namespace harvane {

// The parameters have no meaning before SetParameter. Tables without a track
// make a sequence that is started too early fail instead of running on chance.
DelayAudio::DelayAudio()
    : numberOfPasses(0),
      currentPass(0),
      frameRate(0.0F),
      Loudness(0.0F),
      ShortTermLoudness(0.0F),
      MaxTP(0.0F),
      blockSize(0),
      sampleRate(0),
      timecodeFrameRate(0),
      truePeakScratch(nullptr),
      normalisationMode(0),
      sampleCounter(0),
      numberOfGroups(0),
      trackCount(kNoTrack) {
  std::fill(std::begin(channelIndexInTrack), std::end(channelIndexInTrack), kNoTrack);
  std::fill(std::begin(trackOfChannel), std::end(trackOfChannel), kNoTrack);
}

}  // namespace harvane
