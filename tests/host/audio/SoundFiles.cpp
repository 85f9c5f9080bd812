#include "tests/host/audio/SoundFiles.h"

#include <gtest/gtest.h>

#include <memory>

namespace support {
namespace {

using OpenSound = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

template <class Sample>
void WriteWith(sf_count_t (*write)(SNDFILE*, const Sample*, sf_count_t), const std::string& path,
               int format, int rate, int channels, const std::vector<Sample>& samples) {
  SF_INFO info{};
  info.format = format;
  info.samplerate = rate;
  info.channels = channels;
  const OpenSound sound(sf_open(path.c_str(), SFM_WRITE, &info), sf_close);
  ASSERT_NE(sound, nullptr) << path << ": " << sf_strerror(nullptr);
  sf_command(sound.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
  const auto count = static_cast<sf_count_t>(samples.size());
  ASSERT_EQ(write(sound.get(), samples.data(), count), count) << path;
}

}  // namespace

void WriteSound(const std::string& path, int format, int rate, int channels,
                const std::vector<std::int16_t>& interleaved) {
  WriteWith(sf_write_short, path, format, rate, channels, interleaved);
}

void WriteFloats(const std::string& path, int format, int rate, int channels,
                 const std::vector<double>& interleaved) {
  WriteWith(sf_write_double, path, format, rate, channels, interleaved);
}

void WriteIntegers(const std::string& path, int format, int rate, int channels,
                   const std::vector<int>& interleaved) {
  WriteWith(sf_write_int, path, format, rate, channels, interleaved);
}

Sound ReadSound(const std::string& path) {
  Sound sound{};
  const OpenSound file(sf_open(path.c_str(), SFM_READ, &sound.info), sf_close);
  if (!file) {
    ADD_FAILURE() << path << ": " << sf_strerror(nullptr);
    return sound;
  }
  sound.samples.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
  EXPECT_EQ(sf_readf_short(file.get(), sound.samples.data(), sound.info.frames), sound.info.frames);
  return sound;
}

}  // namespace support
