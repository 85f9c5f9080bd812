#ifndef HARVANE_TESTS_HOST_AUDIO_SOUNDFILES_H
#define HARVANE_TESTS_HOST_AUDIO_SOUNDFILES_H

#include <sndfile.h>

#include <cstdint>
#include <string>
#include <vector>

namespace support {

inline constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

// Audio files; `format` as libsndfile wants it: SF_FORMAT_WAV | SF_FORMAT_PCM_16.
void WriteSound(const std::string& path, int format, int rate, int channels,
                const std::vector<std::int16_t>& interleaved);
void WriteFloats(const std::string& path, int format, int rate, int channels,
                 const std::vector<double>& interleaved);
void WriteIntegers(const std::string& path, int format, int rate, int channels,
                   const std::vector<int>& interleaved);

struct Sound {
  SF_INFO info;
  std::vector<std::int16_t> samples;
};
Sound ReadSound(const std::string& path);

}  // namespace support

#endif  // HARVANE_TESTS_HOST_AUDIO_SOUNDFILES_H
