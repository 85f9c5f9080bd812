// make_programme noise|tones CHANNELS RATE SECONDS > FILE
// Writes a test programme as raw interleaved little-endian 16-bit samples.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/Programme.h"

int main(int argc, char** argv) {
  const bool isTones = argc == 5 && std::strcmp(argv[1], "tones") == 0;
  if (!isTones && !(argc == 5 && std::strcmp(argv[1], "noise") == 0)) {
    std::fprintf(stderr, "usage: make_programme noise|tones CHANNELS RATE SECONDS > FILE\n");
    return 2;
  }
  const int channels = std::atoi(argv[2]);
  const int rate = std::atoi(argv[3]);
  const int seconds = std::atoi(argv[4]);
  if (channels < 1 || rate < 8000 || seconds < 1) {
    std::fprintf(stderr, "make_programme: CHANNELS from 1, RATE from 8000, SECONDS from 1\n");
    return 2;
  }
  const auto samples =
      isTones ? bench::Tones(channels, rate, seconds) : bench::Noise(channels, rate, seconds);
  const std::size_t written =
      std::fwrite(samples.data(), sizeof samples[0], samples.size(), stdout);
  return written == samples.size() && std::fflush(stdout) == 0 ? 0 : 1;
}
