#ifndef HARVANE_TESTS_MEASUREMENT_EBU_EBUSOUNDS_H
#define HARVANE_TESTS_MEASUREMENT_EBU_EBUSOUNDS_H

#include <cstddef>
#include <cstdint>
#include <vector>

// The signals of EBU Tech 3341 and 3342 from their descriptions, at 48000 Hz.
//
// Units      levels: dBFS of the peak of each channel, 0 dBFS at 32767. Lengths: seconds, whole
//            samples of 48000 Hz. Samples: 16 bits, nearest step, frames of all channels.
// Phase      a tone begins at 0 degrees, the same in all channels.
// Thread     pure functions.
namespace ebu {

inline constexpr int kRate = 48000;  // Hz

struct Sound {
  std::uint32_t channels = 0;
  std::vector<std::int16_t> frames;  // interleaved

  std::size_t FrameCount() const { return frames.size() / channels; }
};

struct Tone {
  double seconds;
  double level;
};

// For a Tone that is silence.
inline constexpr double kSilence = -1000.0;  // dBFS, less than any step

// Tones of 1000 Hz without a gap, two channels.
Sound StereoTones(const std::vector<Tone>& tones);

// One tone of 1000 Hz in channels L, R, C, LFE, Ls, Rs; the LFE is silent.
Sound SurroundTone(double seconds, double frontLevel, double centreLevel, double surroundLevel);

// Half a second of 48000 / `divisor` Hz in two channels; `amplitude` of full scale, `phase` in
// degrees. Faded in and out over 10 ms.
Sound PeakTone(int divisor, double amplitude, double phase);

// A tone of 8000 Hz at half of full scale with one period of 12000 Hz at full scale in its middle,
// joined where both rise through 0, two channels. Made at 192000 Hz, faded in and out over 10 ms,
// put through a low pass and taken down to each fourth sample, from sample `offset` on.
//
// The low pass is not published. This one is a sinc of 511 taps at 22900 Hz under a Blackman
// window: 6 dB down at 22900 Hz, flat up to 21800 Hz.
Sound PeakBurst(std::size_t offset);

}  // namespace ebu

#endif  // HARVANE_TESTS_MEASUREMENT_EBU_EBUSOUNDS_H
