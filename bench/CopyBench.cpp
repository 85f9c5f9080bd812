// copy_bench IN OUT
// Reads a sound file twice and writes it once, 16 bits, with libsndfile and nothing else: what any
// two-pass tool has to do. Prints the seconds of wall time.
#include <sndfile.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

constexpr sf_count_t kFrames = 65536;

bool Copy(const char* input, const char* output) {
  SF_INFO info{};
  SNDFILE* const source = sf_open(input, SFM_READ, &info);
  if (source == nullptr) return false;
  SNDFILE* target = nullptr;
  if (output != nullptr) {
    SF_INFO wanted{};
    wanted.channels = info.channels;
    wanted.samplerate = info.samplerate;
    wanted.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    target = sf_open(output, SFM_WRITE, &wanted);
  }
  bool isGood = output == nullptr || target != nullptr;
  std::vector<std::int16_t> block(static_cast<std::size_t>(kFrames * info.channels));
  sf_count_t frames = 0;
  while (isGood && (frames = sf_readf_short(source, block.data(), kFrames)) > 0) {
    isGood = target == nullptr || sf_writef_short(target, block.data(), frames) == frames;
  }
  sf_close(source);
  if (target != nullptr) sf_close(target);
  return isGood;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: copy_bench IN OUT\n");
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  if (!Copy(argv[1], nullptr) || !Copy(argv[1], argv[2])) {
    std::fprintf(stderr, "copy_bench: %s or %s failed\n", argv[1], argv[2]);
    return 1;
  }
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  std::printf("%.6f\n", taken.count());
  return 0;
}
