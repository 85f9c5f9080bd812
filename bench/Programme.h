#ifndef HARVANE_BENCH_PROGRAMME_H
#define HARVANE_BENCH_PROGRAMME_H

#include <cstdint>
#include <vector>

namespace bench {

// Interleaved 16-bit samples for timing, the same on every machine but for the last digit.
//
// Noise below about 5 kHz whose level moves every 2 to 10 s between -42 and -16 dB RMS, one
// stretch in twelve at -78 dB, below the absolute gate, with a louder burst of 20 ms about every
// 3 s: gates move, peaks recur, and a limiter has work at usual targets.
std::vector<std::int16_t> Noise(int channels, int sampleRate, int seconds);

// Steady sines at full scale, another frequency in each channel: peaks recur at the maximum, so
// nothing that looks at levels first can leave work out.
std::vector<std::int16_t> Tones(int channels, int sampleRate, int seconds);

}  // namespace bench

#endif  // HARVANE_BENCH_PROGRAMME_H
