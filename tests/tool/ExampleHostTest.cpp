// The example host, compiled from the files that are installed, as its user runs it.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numbers>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

constexpr double kFullScale = 32767.0;

// Level of a steady tone on the left channel in dB of full scale, between a third and two thirds.
double LevelOf(const std::vector<std::int16_t>& stereo) {
  double sum = 0.0;
  std::size_t count = 0;
  for (std::size_t i = stereo.size() / 3 / 2 * 2; i < stereo.size() * 2 / 3; i += 2) {
    sum += stereo[i] / kFullScale * (stereo[i] / kFullScale);
    ++count;
  }
  return 10.0 * std::log10(2.0 * sum / static_cast<double>(count));
}

class ExampleHost : public testing::Test {
 protected:
  // The exit code.
  int Run(const std::string& arguments) const {
    const std::string command = "cd '" + folder.Text() + "' && HOME=. " HARVANE_EXAMPLE_HOST " " +
                                arguments + " 2>messages";
    return WEXITSTATUS(std::system(command.c_str()));
  }

  support::TemporaryFolder folder;
};

TEST_F(ExampleHost, BringsAToneToItsTarget) {
  constexpr int kFrames = 3 * 48000 + 17;
  std::vector<std::int16_t> tone;
  for (int i = 0; i < kFrames; ++i) {
    const double turn = 2.0 * std::numbers::pi * 997.0 / 48000.0 * i;
    tone.insert(tone.end(), 2, static_cast<std::int16_t>(std::lround(1000.0 * std::sin(turn))));
  }
  std::string bytes(tone.size() * sizeof tone[0], '\0');
  std::memcpy(bytes.data(), tone.data(), bytes.size());
  support::WriteBytes(folder.FileIn("in.raw"), bytes);
  ASSERT_EQ(Run(HARVANE_MODULE " 48000 -16.5 in.raw out.raw"), 0)
      << support::ReadBytes(folder.FileIn("messages"));
  const std::string given = support::ReadBytes(folder.FileIn("out.raw"));
  ASSERT_EQ(given.size(), bytes.size());
  std::memcpy(tone.data(), given.data(), given.size());
  // A tone of 997 Hz on both channels stands at its level; the tolerance is the filter's slope
  // there and the truncation to 16 bits.
  EXPECT_NEAR(LevelOf(tone), -16.5, 0.03);
}

TEST_F(ExampleHost, FailureHasAMessageAndAStatus) {
  EXPECT_EQ(Run(""), 1);
  EXPECT_EQ(Run("missing.rpi 48000 -23 in.raw out.raw"), 1);
  EXPECT_EQ(support::ReadBytes(folder.FileIn("messages")),
            "example_host: the module cannot be loaded\n");
  support::WriteBytes(folder.FileIn("in.raw"), "");
  EXPECT_EQ(Run(HARVANE_MODULE " 48000 '' in.raw out.raw"), 1);
  EXPECT_EQ(support::ReadBytes(folder.FileIn("messages")),
            "example_host: xSetParameter answered 4\n");
}

}  // namespace
}  // namespace harvane
