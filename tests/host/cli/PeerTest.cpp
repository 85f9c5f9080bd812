#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"

namespace support {
namespace {

// Integrated loudness of a file by ffmpeg, in steps of 0.1 LUFS; NaN if there is none.
double LoudnessByFfmpeg(const std::string& path) {
  const TemporaryFolder folder;
  const std::string command = "ffmpeg -nostdin -hide_banner -i '" + path +
                              "' -af ebur128 -f null - >/dev/null 2>'" + folder.FileIn("log") + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << "ffmpeg is missing or failed";
  const std::string log = ReadBytes(folder.FileIn("log"));
  const std::size_t summary = log.rfind("Integrated loudness:");
  if (summary == std::string::npos) return std::nan("");
  const std::size_t value = log.find("I:", summary);
  return value == std::string::npos ? std::nan("") : std::strtod(log.c_str() + value + 2, nullptr);
}

class Peer : public testing::TestWithParam<double> {};

TEST_P(Peer, FfmpegMeasuresTheTargetLoudness) {
  const double target = GetParam();
  for (const int channels : {1, 2}) {
    const Workplace place;
    WriteSound(place.FileIn("in.wav"), kWav16, 48000, channels, QuietNoise(48000, channels, 30.0));
    const RunResult run =
        place.Run(fmt::format("normalise in.wav -o out.wav -t 0 --loudness {}", target));
    ASSERT_EQ(run.code, 0) << run.err;
    ASSERT_EQ(run.out.find("  yes  "), std::string::npos) << "a limiter would take loudness away";
    // 0.1 LU, the tolerance of EBU Tech 3341.
    EXPECT_NEAR(LoudnessByFfmpeg(place.FileIn("out.wav")), target, 0.1001);
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, Peer, testing::Values(-23.0, -24.0, -30.0), [](const auto& info) {
  return fmt::format("Minus{}", static_cast<int>(-info.param));
});

}  // namespace
}  // namespace support
