#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"

namespace support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

int LinesOf(const std::string& text) {
  return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

// A run that must fail with one line on standard error and leave the folder as it was. The results
// say so too.
void ExpectRefusal(const Workplace& place, const std::string& arguments, const std::string& line) {
  const std::vector<std::string> before = place.Names();
  const RunResult run = place.Run(arguments);
  EXPECT_EQ(run.code, 1) << arguments;
  EXPECT_THAT(run.err, HasSubstr(line));
  EXPECT_EQ(LinesOf(run.err), 1) << run.err;
  EXPECT_THAT(run.out, HasSubstr(": failed\n"));
  EXPECT_EQ(place.Names(), before);
}

TEST(Failure, TheInputIsNeverWrittenOver) {
  const Workplace place;
  const std::string in = place.FileIn("in.wav");
  WriteSound(in, kWav16, 48000, 1, QuietNoise(48000, 1, 0.5));
  const std::string before = ReadBytes(in);
  std::filesystem::create_symlink("in.wav", place.FileIn("soft.wav"));
  std::filesystem::create_hard_link(in, place.FileIn("hard.wav"));
  for (const char* files :
       {"in.wav -o in.wav", "in.wav -o ./in.wav", "in.wav -o soft.wav", "soft.wav -o in.wav"}) {
    for (const char* overwriting : {"", " --overwrite"}) {
      const RunResult run = place.Run(std::string("normalise ") + files + overwriting);
      EXPECT_EQ(run.code, 2) << files;
      EXPECT_THAT(run.err, HasSubstr("would be written over"));
      EXPECT_EQ(run.out, "");
    }
  }
  ExpectRefusal(place, "normalise in.wav -o hard.wav", "is there already");
  ExpectRefusal(place, "normalise in.wav -o hard.wav --overwrite", "is the input itself");
  EXPECT_EQ(ReadBytes(in), before);
}

TEST(Failure, LayoutsThatDoNotFitSayWhatWouldBeRight) {
  const Workplace place;
  WriteSound(place.FileIn("six.wav"), kWav16, 48000, 6, NoiseInt16(1, 600, 99));
  WriteSound(place.FileIn("three.wav"), kWav16, 48000, 3, NoiseInt16(1, 600, 99));
  WriteSound(place.FileIn("many.wav"), kWav16, 48000, 40, NoiseInt16(1, 600, 99));
  ExpectRefusal(place, "normalise six.wav -o o.wav -c 2",
                "six.wav: has 6 channels, too many for the layout 2, which takes 2; --layout 2+2+2 "
                "or 5.1 would be right");
  ExpectRefusal(place, "measure six.wav -c 5.1+2", "too few for the layout 5.1+2, which takes 8");
  ExpectRefusal(place, "measure three.wav",
                "three.wav: has 3 channels, which stand for no layout by themselves; a --layout of "
                "several groups, separated by commas, would be right");
  ExpectRefusal(place, "measure many.wav",
                "many.wav: has 40 channels, which stand for no layout by themselves");
}

TEST(Failure, RatesOutsideTheRangeAreRefused) {
  const Workplace place;
  WriteSound(place.FileIn("slow.wav"), kWav16, 4000, 1, NoiseInt16(1, 600, 99));
  WriteSound(place.FileIn("fast.wav"), kWav16, 400000, 1, NoiseInt16(1, 600, 99));
  ExpectRefusal(place, "normalise slow.wav -o o.wav",
                "slow.wav: has an unsupported sample rate of 4000 Hz; 44100, 48000, 88200, 96000, "
                "176400, 192000 Hz would be right");
  ExpectRefusal(place, "measure fast.wav", "unsupported sample rate of 400000 Hz");
}

TEST(Failure, UnreadableFilesSayWhatWouldBeRight) {
  const Workplace place;
  WriteBytes(place.FileIn("empty.wav"), "");
  WriteBytes(place.FileIn("text.wav"), "only text");
  WriteSound(place.FileIn("none.wav"), kWav16, 48000, 2, {});
  ExpectRefusal(place, "normalise empty.wav -o o.wav",
                "empty.wav: is empty; a WAV, RF64, W64, AIFF, CAF or FLAC file would be right");
  ExpectRefusal(place, "normalise text.wav -o o.wav", "text.wav: cannot be read as audio");
  ExpectRefusal(place, "normalise none.wav -o o.wav", "none.wav: is empty: it holds no frame");
  ExpectRefusal(place, "normalise missing.wav -o o.wav", "missing.wav: cannot be opened");
}

TEST(Failure, OutputsThatCannotBeAreRefusedBeforeTheWork) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 16, NoiseInt16(1, 16000, 99));
  const std::string job = "normalise in.wav -c 5.1+2,2+5.1 -o ";
  ExpectRefusal(place, job + "o.mp3", "o.mp3: its name ends in \".mp3\"");
  ExpectRefusal(place, job + "o.flac", "o.flac: FLAC holds 8 channels at most");
  ExpectRefusal(place, job + "none/o.wav", "none/o.wav: cannot be written");
  ExpectRefusal(place, job + ".", ".: ");
}

TEST(Failure, AFlacFileThatBreaksOffLeavesNothing) {
  const Workplace place;
  const std::string in = place.FileIn("in.flac");
  WriteSound(in, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 1, QuietNoise(48000, 1, 2.0));
  std::filesystem::resize_file(in, std::filesystem::file_size(in) / 2);
  ExpectRefusal(place, "normalise in.flac -o o.wav", "in.flac: ");
}

TEST(Failure, MoreFramesThanTheModuleCountsAreRefused) {
  const Workplace place;
  const std::string in = place.FileIn("in.flac");
  WriteSound(in, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 1, QuietNoise(48000, 1, 1.0));
  std::string bytes = ReadBytes(in);
  bytes.replace(22, 4, std::string("\x80\0\0\0", 4));  // 2^31 frames, by STREAMINFO
  WriteBytes(in, bytes);
  ExpectRefusal(place, "normalise in.flac -o o.wav",
                "in.flac: is longer than 2147483647 frames, the most that the module counts");
}

TEST(Failure, AFullDiskLeavesNothingAndIsNamed) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, QuietNoise(48000, 1, 4.0));
  for (const char* out : {"o.wav", "o.aiff", "o.flac", "o.rf64"}) {
    // At most 100 blocks of 512 or 1024 bytes in any file.
    const RunResult run = place.Run(std::string("normalise in.wav -o ") + out, "ulimit -f 100;");
    EXPECT_EQ(run.code, 1) << run.err;
    EXPECT_THAT(run.err, HasSubstr(std::string(out) + ": cannot be written: File too large"));
    EXPECT_THAT(place.Names(), ElementsAre("in.wav"));
  }
}

TEST(Failure, AKilledRunLeavesNothing) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 6, QuietNoise(48000, 6, 120.0));
  for (const char* signal : {"KILL", "TERM", "INT"}) {
    int killed = 0;
    for (const char* delay : {"0.02", "0.05", "0.1", "0.3", "0.6"}) {
      const RunResult run =
          place.Run("normalise in.wav -o o.wav", std::string("timeout -s ") + signal + " " + delay);
      if (run.code == 0) break;  // done before the signal
      ++killed;
      EXPECT_THAT(place.Names(), ElementsAre("in.wav")) << signal << " " << delay;
    }
    EXPECT_GT(killed, 0) << signal;
    std::filesystem::remove(place.FileIn("o.wav"));
  }
}

TEST(Failure, ALimiterAtAQuadRateIsRefusedBetweenThePasses) {
  for (const int rate : {176400, 192000}) {
    const Workplace place;
    // Two mono tracks: only the second one peaks, for a while and in the first samples of chunks.
    std::vector<std::int16_t> samples = NoiseInt16(3, static_cast<std::size_t>(rate) * 8, 300);
    for (std::size_t i = 1; i < 4000; i += 2) samples[i] = 32000;
    WriteSound(place.FileIn("in.wav"), kWav16, rate, 2, samples);
    for (const std::string module : {"", " -L logs -N m -M " HARVANE_MODULE}) {
      const RunResult run = place.Run("normalise in.wav -o o.wav -c 1,1" + module);
      EXPECT_EQ(run.code, 1) << run.err;
      EXPECT_THAT(run.err, HasSubstr("in.wav: track 2 (channel 2) would need the limiter, by "));
      EXPECT_THAT(run.err, HasSubstr("does not have at " + std::to_string(rate) + " Hz"));
      EXPECT_FALSE(std::filesystem::exists(place.FileIn("o.wav")));
    }
  }
}

TEST(Failure, AFileThatIsNoModuleIsNamed) {
  const Workplace place;
  WriteSound(place.FileIn("in.wav"), kWav16, 48000, 1, NoiseInt16(1, 600, 99));
  WriteBytes(place.FileIn("m.rpi"), "no module");
  const RunResult run = place.Run("normalise in.wav -o o.wav -M m.rpi");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, HasSubstr("m.rpi: cannot be loaded"));
}

TEST(Failure, WrongUsageIsExitCodeTwo) {
  const Workplace place;
  EXPECT_EQ(place.Run("").code, 2);
  EXPECT_EQ(place.Run("normalise in.wav").code, 2);
  EXPECT_EQ(place.Run("normalise in.wav -o o.wav -l 5").code, 2);
  EXPECT_EQ(place.Run("--help").code, 0);
}

TEST(Failure, WeirdBytesInNamesAreNoObstacle) {
  const Workplace place;
  const std::string name = "in<&\xFF.wav";
  WriteSound(place.FileIn(name), kWav16, 48000, 1, QuietNoise(48000, 1, 1.0));
  const RunResult run = place.Run("normalise '" + name + "' -o 'o&<\xFE.wav'");
  EXPECT_EQ(run.code, 0) << run.err;
}

}  // namespace
}  // namespace support
