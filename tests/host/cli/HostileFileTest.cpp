// Files whose headers lie, that break off, or that are no files at all. More damaged headers:
// --cases=1000.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <sstream>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"
#include "tool/FileJob.h"

namespace support {
namespace {

using testing::HasSubstr;

constexpr int kFrames = 24000;
constexpr std::uint32_t kNoSize = 0xFFFFFFFF;
constexpr std::uint64_t kNoLongSize = ~std::uint64_t{0};

// ---- headers, byte by byte

template <class Number>
std::string Little(Number number) {
  std::string bytes;
  for (std::size_t i = 0; i < sizeof number; ++i) {
    bytes += static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * i) & 0xFF);
  }
  return bytes;
}

template <class Number>
std::string Big(Number number) {
  std::string bytes = Little(number);
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

std::uint32_t SizeOf(const std::string& bytes) { return static_cast<std::uint32_t>(bytes.size()); }

std::string Samples(bool isBigEndian) {
  std::string bytes;
  for (const std::int16_t sample : NoiseInt16(5, kFrames * 2, 3000)) {
    const auto bits = static_cast<std::uint16_t>(sample);
    bytes += isBigEndian ? Big(bits) : Little(bits);
  }
  return bytes;
}

std::string Chunk(const std::string& tag, const std::string& payload, std::uint32_t size) {
  return tag + Little(size) + payload;
}
std::string Chunk(const std::string& tag, const std::string& payload) {
  return Chunk(tag, payload, SizeOf(payload));
}

struct Fmt {
  std::uint16_t channels = 2;
  std::uint32_t rate = 48000;
  std::uint16_t bits = 16;
  std::uint16_t blockBytes = 4;
  std::uint16_t coding = 1;
};

std::string FmtPayload(const Fmt& fmt) {
  return Little(fmt.coding) + Little(fmt.channels) + Little(fmt.rate) +
         Little(fmt.rate * fmt.blockBytes) + Little(fmt.blockBytes) + Little(fmt.bits);
}
std::string FmtChunk(const Fmt& fmt = {}) { return Chunk("fmt ", FmtPayload(fmt)); }
std::string DataChunk() { return Chunk("data", Samples(false)); }
std::string DataChunk(std::uint32_t size) { return Chunk("data", Samples(false), size); }

std::string Riff(const std::string& chunks, std::uint32_t size, const std::string& tag = "RIFF") {
  return tag + Little(size) + "WAVE" + chunks;
}
std::string Riff(const std::string& chunks) { return Riff(chunks, SizeOf(chunks) + 4); }
std::string Wav(const Fmt& fmt) { return Riff(FmtChunk(fmt) + DataChunk()); }

std::string Rf64(std::uint64_t riffSize, std::uint64_t dataSize, std::uint64_t frames,
                 std::uint32_t tableEntries = 0) {
  const std::string ds64 =
      Little(riffSize) + Little(dataSize) + Little(frames) + Little(tableEntries);
  return Riff(Chunk("ds64", ds64) + FmtChunk() + DataChunk(kNoSize), kNoSize, "RF64");
}

std::string BigChunk(const std::string& tag, const std::string& payload, std::uint32_t size) {
  return tag + Big(size) + payload;
}
std::string BigChunk(const std::string& tag, const std::string& payload) {
  return BigChunk(tag, payload, SizeOf(payload));
}

struct Comm {
  std::uint16_t channels = 2;
  std::uint32_t frames = kFrames;
  std::uint16_t bits = 16;
  std::string rate = std::string("\x40\x0E\xBB\x80\0\0\0\0\0\0", 10);  // 48000 in 80 bits
};

std::string Aiff(const Comm& comm, std::uint32_t soundSize, std::uint32_t offset = 0) {
  const std::string chunks =
      BigChunk("COMM", Big(comm.channels) + Big(comm.frames) + Big(comm.bits) + comm.rate) +
      BigChunk("SSND", Big(offset) + Big(std::uint32_t{0}) + Samples(true), soundSize);
  return BigChunk("FORM", "AIFF" + chunks);
}
std::string Aiff(const Comm& comm) { return Aiff(comm, 4 * kFrames + 8); }

// A good FLAC file, and one whose bytes 18 to 25 say something else: 20 bits of rate, 3 of
// channels less one, 5 of bits less one, 36 of frames.
std::string Flac() {
  const TemporaryFolder folder;
  const std::string path = folder.FileIn("x.flac");
  WriteSound(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2, NoiseInt16(5, kFrames * 2, 3000));
  return ReadBytes(path);
}
std::string FlacSaying(std::uint64_t rate, std::uint64_t channels, std::uint64_t bits,
                       std::uint64_t frames) {
  return Flac().replace(18, 8,
                        Big((rate << 44) | ((channels - 1) << 41) | ((bits - 1) << 36) | frames));
}

// ---- what must be refused

struct Hostile {
  std::string name;
  std::string bytes;
  std::string reason;
};

std::vector<Hostile> HostileFiles() {
  const std::string unreadable = "cannot be read as audio: ";
  const std::string impossible = unreadable + "its header names an impossible sample rate";
  const std::string damaged = unreadable + "its header is damaged";
  const std::string infinite("\x7F\xFF\x80\0\0\0\0\0\0\0", 10);
  const std::string negative("\xC0\x0E\xBB\x80\0\0\0\0\0\0", 10);
  return {
      {"no-channels.wav", Wav({.channels = 0}), unreadable + "Channel count is zero"},
      {"33-channels.wav", Wav({.channels = 33}), "has 33 channels, which stand for no layout"},
      {"65535-channels.wav", Wav({.channels = 65535}), unreadable + "Too many channels"},
      {"no-channels.aiff", Aiff({.channels = 0}), unreadable + "Bad channel count"},
      {"minus-channels.aiff", Aiff({.channels = 0x8000}), unreadable + "Bad channel count"},
      {"32767-channels.aiff", Aiff({.channels = 0x7FFF}), unreadable + "Bad channel count"},
      {"rate-0.wav", Wav({.rate = 0}), impossible},
      {"rate-minus.wav", Wav({.rate = 0xFFFFFFFF}), impossible},
      {"rate-smallest.wav", Wav({.rate = 0x80000000}), impossible},
      {"rate-1.wav", Wav({.rate = 1}), "has an unsupported sample rate of 1 Hz"},
      {"rate-largest.wav", Wav({.rate = 0x7FFFFFFF}), "unsupported sample rate of 2147483647 Hz"},
      {"rate-infinite.aiff", Aiff({.rate = infinite}), ": "},
      {"rate-minus.aiff", Aiff({.rate = negative}), impossible},
      {"rate-0.flac", FlacSaying(0, 2, 16, kFrames), impossible},
      {"bits-0.wav", Wav({.bits = 0}), unreadable},
      {"bits-65535.wav", Wav({.bits = 65535}), unreadable},
      {"bits-33.aiff", Aiff({.bits = 33}), unreadable},
      {"bits-4.flac", FlacSaying(48000, 2, 4, kFrames), unreadable},
      {"coding-unknown.wav", Wav({.coding = 0x1234}), unreadable},
      {"adpcm-block.wav",
       Riff(Chunk("fmt ", FmtPayload({.bits = 4, .blockBytes = 65535, .coding = 2}) +
                              Little(std::uint16_t{32}) + Little(std::uint16_t{65535}) +
                              std::string(30, '\0')) +
            DataChunk()),
       unreadable},
      {"no-fmt.wav", Riff(DataChunk()), unreadable},
      {"no-data.wav", Riff(FmtChunk()), unreadable},
      {"data-before-fmt.wav", Riff(DataChunk() + FmtChunk()), unreadable},
      {"fmt-short.wav", Riff(Chunk("fmt ", "\1") + DataChunk()), unreadable},
      {"fmt-2-gib.wav", Riff(Chunk("fmt ", FmtPayload({}), 0x7FFFFFF0) + DataChunk()), unreadable},
      {"bext-2-gib.wav", Riff(FmtChunk() + Chunk("bext", "x", 0x7FFFFFFF) + DataChunk()),
       unreadable},
      {"data-0.wav", Riff(FmtChunk() + DataChunk(0)), "is empty: it holds no frame of audio"},
      {"riff-only.wav", Riff("", kNoSize), unreadable},
      {"ds64-largest.rf64", Rf64(kNoLongSize, kNoLongSize, kNoLongSize), damaged},
      {"ds64-zero.rf64", Rf64(0, 0, 0), "is empty: it holds no frame of audio"},
      {"ds64-table.rf64", Rf64(96072, 96000, kFrames, kNoSize), unreadable},
      {"ds64-missing.rf64", Riff(FmtChunk() + DataChunk(kNoSize), kNoSize, "RF64"), damaged},
      {"sound-offset.aiff", Aiff({}, 4 * kFrames + 8, 0xFFFFFFF0), "is empty: it holds no frame"},
      {"half.flac", Flac().substr(0, Flac().size() / 2), ": "},
      {"header-only.flac", Flac().substr(0, 42), "ends after 0 of its 24000 frames"},
      {"all-but-the-end.flac", Flac().substr(0, Flac().size() - 5), ": "},
      {"frames-2-31.flac", FlacSaying(48000, 2, 16, std::uint64_t{1} << 31),
       "is longer than 2147483647 frames"},
      {"frames-one-less.flac", FlacSaying(48000, 2, 16, (std::uint64_t{1} << 31) - 1),
       "ends after 24000 of its 2147483647 frames"},
      {"empty.wav", "", "is empty; a WAV, RF64, W64, AIFF, CAF or FLAC file would be right"},
      {"one-byte.wav", "R", unreadable},
      {"text.wav", std::string(20000, 'a') + "\n", unreadable},
      {"zeros.wav", std::string(100000, '\0'), unreadable},
  };
}

// Memory and processor time of a run. A sanitizer needs more room than any limit.
std::string Limits() {
#if defined(__SANITIZE_ADDRESS__)
  return "ulimit -t 60;";
#else
  return "ulimit -t 20; ulimit -v 400000;";
#endif
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Lines on standard error about a file.
std::vector<std::string> LinesAbout(const RunResult& run, const std::string& name) {
  std::vector<std::string> lines;
  for (const std::string& line : LinesOf(run.err)) {
    if (line.rfind("harvane: " + name + ": ", 0) == 0) lines.push_back(line);
  }
  return lines;
}

// The report of a file without its name; empty if there is none.
std::string ReportOf(const RunResult& run, const std::string& name) {
  const std::string head = name + "\n";
  const std::size_t start = ("\n" + run.out).find("\n" + head);
  if (start == std::string::npos) return "";
  const std::size_t first = start + head.size();
  std::size_t end = first;
  for (int i = 0; i < 3; ++i) end = run.out.find('\n', end) + 1;
  return run.out.substr(first, end - first);
}

class HostileFile : public testing::Test {
 protected:
  HostileFile() {
    WriteBytes(place.FileIn("first.wav"), Wav({}));
    WriteBytes(place.FileIn("last.flac"), Flac());
  }

  // One run over the files, with a good one before and behind them; both must be measured.
  RunResult MeasureAll(const std::vector<std::string>& names) const {
    std::string arguments = "measure first.wav";
    for (const std::string& name : names) arguments += " " + name;
    const RunResult run = place.Run(arguments + " last.flac", Limits());
    EXPECT_NE(ReportOf(run, "first.wav"), "") << run.err;
    EXPECT_EQ(ReportOf(run, "last.flac"), ReportOf(run, "first.wav"));
    return run;
  }

  // Each file gives its reason in one line, and no more; normalising it leaves nothing.
  void ExpectRefusals(const std::vector<Hostile>& files) const {
    std::vector<std::string> names;
    for (const Hostile& file : files) names.push_back(file.name);
    const RunResult run = MeasureAll(names);
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(LinesOf(run.err).size(), files.size() + 1) << "one line each, and the log's\n"
                                                         << run.err;
    const std::vector<std::string> before = place.Names();
    for (const Hostile& file : files) {
      const std::vector<std::string> lines = LinesAbout(run, file.name);
      ASSERT_EQ(lines.size(), 1U) << file.name << "\n" << run.err;
      EXPECT_THAT(lines[0], HasSubstr(file.reason));
      EXPECT_EQ(ReportOf(run, file.name), "") << file.name;
      ExpectNothingNormalised(file.name, lines[0]);
    }
    EXPECT_EQ(place.Names(), before);
  }

  Workplace place;

 private:
  void ExpectNothingNormalised(const std::string& name, const std::string& line) const {
    harvane::JobOptions options;
    options.kind = harvane::JobKind::kNormalise;
    options.logFolder = place.LogFolder();
    harvane::ResolveJobOptions(&options);
    const harvane::FileResult result =
        harvane::RunFileJob(options, place.FileIn(name), place.FileIn("out.wav"), nullptr);
    EXPECT_EQ(result.status, harvane::FileStatus::kFailed) << name;
    EXPECT_EQ("harvane: " + name + ": " + result.error, line);
  }
};

TEST_F(HostileFile, IsRefusedInOneLineAndTheOthersGoOn) {
  const std::vector<Hostile> files = HostileFiles();
  for (const Hostile& file : files) WriteBytes(place.FileIn(file.name), file.bytes);
  ExpectRefusals(files);
}

TEST_F(HostileFile, WhatIsNoRegularFileIsNeitherReadNorWaitedFor) {
  std::filesystem::create_directory(place.FileIn("folder.wav"));
  ASSERT_EQ(mkfifo(place.FileIn("pipe.wav").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", place.FileIn("zero.wav"));
  std::filesystem::create_symlink("loop.wav", place.FileIn("loop.wav"));
  std::filesystem::create_symlink("nothing", place.FileIn("dangling.wav"));
  ExpectRefusals({{"folder.wav", "", "is a folder; an audio file would be right"},
                  {"pipe.wav", "", "is not a regular file, and cannot be read twice"},
                  {"zero.wav", "", "is not a regular file, and cannot be read twice"},
                  {"loop.wav", "", "cannot be opened: Too many levels of symbolic links"},
                  {"dangling.wav", "", "cannot be opened: No such file or directory"}});
}

TEST_F(HostileFile, GibibytesWithoutDataAreNotWorkedThrough) {
  constexpr std::uintmax_t kLarge = (std::uintmax_t{1} << 32) + 1000;
  WriteBytes(place.FileIn("hole.wav"), "");
  WriteBytes(place.FileIn("bytes.wav"),
             Riff(FmtChunk({.channels = 1, .rate = 44100, .bits = 8, .blockBytes = 1}) +
                      Chunk("data", "", 0xFFFFFFF0),
                  kNoSize));
  // A rate with a warning of its own, which must not stand before the refusal.
  WriteBytes(place.FileIn("slow.wav"),
             Riff(FmtChunk({.channels = 1, .rate = 8000, .bits = 8, .blockBytes = 1}) +
                      Chunk("data", "", 0xFFFFFFF0),
                  kNoSize));
  for (const char* name : {"hole.wav", "bytes.wav", "slow.wav"}) {
    std::filesystem::resize_file(place.FileIn(name), kLarge);  // takes no room on the disk
  }
  ExpectRefusals({{"hole.wav", "", "cannot be read as audio"},
                  {"bytes.wav", "", "is longer than 2147483647 frames"},
                  {"slow.wav", "", "is longer than 2147483647 frames"}});
}

// ---- what is taken for what it holds

TEST_F(HostileFile, WrongSizesInAHeaderAreSaidAndTheFramesFoundAreTaken) {
  const std::vector<std::pair<std::string, std::string>> files = {
      {"data-4-gib.wav", Riff(FmtChunk() + DataChunk(kNoSize), kNoSize)},
      {"data-2-gib.wav", Riff(FmtChunk() + DataChunk(0x7FFFFFFF))},
      {"data-minus.wav", Riff(FmtChunk() + DataChunk(0x80000000))},
      {"data-longer.wav", Riff(FmtChunk() + DataChunk(4 * kFrames + 4))},
      {"riff-2-gib.wav", Riff(FmtChunk() + DataChunk(), 0x7FFFFFFF)},
      {"block-0.wav", Wav({.blockBytes = 0})},
      {"block-1.wav", Wav({.blockBytes = 1})},
      {"block-3.wav", Wav({.blockBytes = 3})},
      {"block-65535.wav", Wav({.blockBytes = 65535})},
      {"ds64-minus.rf64", Rf64(std::uint64_t{1} << 63, std::uint64_t{1} << 63, 1)},
      {"ds64-2-62.rf64", Rf64(std::uint64_t{1} << 62, std::uint64_t{1} << 62, 1)},
      {"frames-4-gib.aiff", Aiff({.frames = 0xFFFFFFFF})},
      {"frames-2-gib.aiff", Aiff({.frames = 0x7FFFFFFF})},
      {"frames-0.aiff", Aiff({.frames = 0})},
      {"sound-4-gib.aiff", Aiff({}, kNoSize)},
  };
  std::vector<std::string> names;
  for (const auto& [name, bytes] : files) {
    WriteBytes(place.FileIn(name), bytes);
    names.push_back(name);
  }
  const RunResult run = MeasureAll(names);
  EXPECT_EQ(run.code, 0);
  for (const std::string& name : names) {
    EXPECT_EQ(LinesAbout(run, name),
              std::vector<std::string>{"harvane: " + name +
                                       ": warning: its header does not fit its "
                                       "contents; the 24000 frames found are taken"})
        << run.err;
    EXPECT_EQ(ReportOf(run, name), ReportOf(run, "first.wav")) << name;
  }
}

TEST_F(HostileFile, RightHeadersOfAllCodingsGiveNoWarning) {
  std::vector<std::string> names;
  for (const int kind : {SF_FORMAT_WAV, SF_FORMAT_WAVEX, SF_FORMAT_RF64, SF_FORMAT_AIFF}) {
    for (const int coding : {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_FLOAT,
                             SF_FORMAT_DOUBLE, SF_FORMAT_ALAW}) {
      names.push_back("right-" + std::to_string(names.size()));
      WriteSound(place.FileIn(names.back()), kind | coding, 48000, 2,
                 NoiseInt16(5, kFrames * 2, 3000));
    }
  }
  const RunResult run = MeasureAll(names);
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err, testing::Not(HasSubstr("does not fit")));
}

TEST_F(HostileFile, DamagedHeadersAreEitherRefusedOrMeasured) {
  const std::string originals[] = {Wav({}), Aiff({}), Rf64(96072, 96000, kFrames), Flac()};
  constexpr std::size_t kHeaderBytes = 80;
  constexpr std::size_t kShort = 8000;  // of the file
  constexpr std::uint64_t kFilesOfARun = 25;
  NoiseSource chance(SeedsFor(1).first);
  const std::uint64_t runs = (SeedsFor(2 * kFilesOfARun).count + kFilesOfARun - 1) / kFilesOfARun;
  for (std::uint64_t r = 0; r < runs; ++r) {
    std::vector<std::string> names;
    for (std::uint64_t i = 0; i < kFilesOfARun; ++i) {
      std::string bytes = originals[chance.NextBelow(4)].substr(0, kShort);
      for (std::uint32_t n = 1 + chance.NextBelow(6); n > 0; --n) {
        bytes[chance.NextBelow(kHeaderBytes)] = static_cast<char>(chance.NextBelow(256));
      }
      names.push_back("damaged-" + std::to_string(i));
      WriteBytes(place.FileIn(names.back()), bytes);
    }
    const RunResult run = MeasureAll(names);
    ASSERT_LE(run.code, 1) << run.err;
    for (const std::string& name : names) {
      const std::vector<std::string> lines = LinesAbout(run, name);
      const auto isRemark = [](const std::string& line) {
        return line.find(": warning: ") != std::string::npos ||
               line.find(": note: ") != std::string::npos;
      };
      const auto refusals = std::count_if(lines.begin(), lines.end(), std::not_fn(isRemark));
      EXPECT_EQ(refusals, ReportOf(run, name).empty() ? 1 : 0) << name << " of run " << r << "\n"
                                                               << run.err;
    }
  }
}

}  // namespace
}  // namespace support
