// ebur128_bench FILE CHANNELS RATE [TRACKS]
// Measures raw 16-bit samples with libebur128: momentary every 100 ms, short-term every 750 ms,
// integrated, range and true peak at the end. With TRACKS the channels are split among as many
// states. Prints the processor seconds of the measuring, and of nothing else.
#include <ebur128.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "bench/RawSamples.h"

namespace {

double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

constexpr int kModes =
    EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK;

// One track's samples; returns something of every result, so that none can be left out.
double Measure(const std::vector<short>& samples, unsigned channels, unsigned rate) {
  ebur128_state* state = ebur128_init(channels, rate, kModes);
  if (channels == 6) {
    constexpr int kPositions[] = {EBUR128_LEFT,   EBUR128_RIGHT,         EBUR128_CENTER,
                                  EBUR128_UNUSED, EBUR128_LEFT_SURROUND, EBUR128_RIGHT_SURROUND};
    for (unsigned c = 0; c < channels; ++c) ebur128_set_channel(state, c, kPositions[c]);
  }
  const std::size_t frames = samples.size() / channels;
  const std::size_t step = rate / 20;  // 50 ms
  double all = 0.0;
  double value = 0.0;
  for (std::size_t first = 0, steps = 1; first < frames; first += step, ++steps) {
    ebur128_add_frames_short(state, samples.data() + first * channels,
                             std::min(step, frames - first));
    if (steps % 2 == 0 && ebur128_loudness_momentary(state, &value) == 0) all += value;
    if (steps % 15 == 0 && ebur128_loudness_shortterm(state, &value) == 0) all += value;
  }
  if (ebur128_loudness_global(state, &value) == 0) all += value;
  if (ebur128_loudness_range(state, &value) == 0) all += value;
  for (unsigned c = 0; c < channels; ++c) {
    if (ebur128_true_peak(state, c, &value) == 0) all += value;
  }
  ebur128_destroy(&state);
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: ebur128_bench FILE CHANNELS RATE [TRACKS]\n");
    return 2;
  }
  const auto samples = bench::ReadRawSamples(argv[1]);
  const auto channels = static_cast<std::size_t>(std::atoi(argv[2]));
  const auto rate = static_cast<unsigned>(std::atoi(argv[3]));
  const std::size_t tracks = argc > 4 ? static_cast<std::size_t>(std::atoi(argv[4])) : 1;
  const std::size_t width = channels / tracks;
  std::vector<std::vector<short>> split(tracks);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    split[i % channels / width].push_back(samples[i]);
  }
  double all = 0.0;
  const double start = ThreadSeconds();
  for (const auto& track : split) all += Measure(track, static_cast<unsigned>(width), rate);
  const double seconds = ThreadSeconds() - start;
  std::printf("%.6f\n", seconds);
  std::fprintf(stderr, "sum of results %.3f\n", all);
  return 0;
}
