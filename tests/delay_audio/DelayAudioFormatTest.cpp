// Input and output information, the block size and the time-code rate.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tests/delay_audio/Jobs.h"
#include "tests/support/KeepsLines.h"

namespace harvane {
namespace {

using support::Blob;
using support::CountedInfo;

// ---- block size and rate

struct RateCase {
  std::uint32_t sampleRate;
  std::uint32_t blockSize;
};

class DelayAudioBlockSize : public testing::TestWithParam<RateCase> {};

TEST_P(DelayAudioBlockSize, IsTheRequiredOne) {
  TestJob job(TextsOfPasses(2), GetParam().sampleRate);
  EXPECT_EQ(Probe::BlockSize(*job), GetParam().blockSize);
  EXPECT_EQ(Probe::SampleRate(*job), static_cast<int>(GetParam().sampleRate));
}

INSTANTIATE_TEST_SUITE_P(EveryRate, DelayAudioBlockSize,
                         testing::Values(RateCase{44100, 220}, RateCase{48000, 239},
                                         RateCase{88200, 440}, RateCase{96000, 479},
                                         RateCase{176400, 881}, RateCase{192000, 959}),
                         [](const auto& info) {
                           return "Rate" + std::to_string(info.param.sampleRate);
                         });

TEST(DelayAudioFormat, BlockSizeIsOneShortWhere200Divides) {
  for (const std::uint32_t sampleRate : {200U, 8000U, 32000U, 48000U, 64000U, 192000U}) {
    TestJob job(TextsOfPasses(2), sampleRate);
    EXPECT_EQ(Probe::BlockSize(*job), sampleRate / 200 - 1) << sampleRate;
  }
  for (const std::uint32_t sampleRate : {11025U, 22050U, 44100U, 199U}) {
    TestJob job(TextsOfPasses(2), sampleRate);
    EXPECT_EQ(Probe::BlockSize(*job), sampleRate / 200) << sampleRate;
  }
}

// ---- time-code rate

int TimecodeRate(const std::string& frameRate, const Blob& blob) {
  auto texts = TextsOfPasses(2);
  texts.frameRate = frameRate;
  TestJob job(texts);
  job.SetInput(blob);
  return Probe::TimecodeFrameRate(*job);
}

TEST(DelayAudioFormat, FrameRateIsRoundedToTheNextWholeNumber) {
  const Blob blob = support::FormatBlob(48000, 2);
  const std::pair<const char*, int> cases[] = {
      {"0", 0},   {"23.976", 24}, {"24", 24}, {"25", 25},      {"29.97", 30}, {"30", 30},
      {"50", 50}, {"59,94", 59},  {"60", 60}, {"59.94", 60},   {"0.49", 0},   {"0.5", 1},
      {"-1", 0},  {"-2", -1},     {"abc", 0}, {"1.0000001", 1}};
  for (const auto& [text, wanted] : cases) EXPECT_EQ(TimecodeRate(text, blob), wanted) << text;
}

TEST(DelayAudioFormat, FrameRateOfExactlyOneTakesTheVideosWithoutItsFraction) {
  const auto video = [](std::uint32_t numerator, std::uint32_t denominator) {
    return support::FormatBlobWithVideo(48000, 2, support::Vide(numerator, denominator));
  };
  EXPECT_EQ(TimecodeRate("1", video(25, 1)), 25);
  EXPECT_EQ(TimecodeRate("1", video(30000, 1001)), 29);
  EXPECT_EQ(TimecodeRate("1.0", video(60000, 1001)), 59);
  EXPECT_EQ(TimecodeRate("1", video(1, 2)), 0);
  EXPECT_EQ(TimecodeRate("1", video(0xFFFFFFFE, 2)), 0x7FFFFFFF);
}

TEST(DelayAudioFormat, FrameRateOfExactlyOneWithoutVideoIsNone) {
  EXPECT_EQ(TimecodeRate("1", support::FormatBlob(48000, 2)), 0);
}

TEST(DelayAudioFormat, VideoOfAnEarlierFormatDoesNotServeALaterOne) {
  auto texts = TextsOfPasses(2);
  texts.frameRate = "1";
  TestJob job(texts);
  job.SetInput(support::FormatBlobWithVideo(48000, 2, support::Vide(25, 1)));
  EXPECT_EQ(Probe::TimecodeFrameRate(*job), 25);
  job.SetInput(support::FormatBlob(48000, 2));
  EXPECT_EQ(Probe::TimecodeFrameRate(*job), 0);
  EXPECT_EQ(Probe::VideoInfo(*job).frameRateNumerator, 25U);
}

TEST(DelayAudioFormat, AnyOtherFrameRateDoesNotLookAtTheVideo) {
  const Blob blob = support::FormatBlobWithVideo(48000, 2, support::Vide(25, 0));
  EXPECT_EQ(TimecodeRate("30", blob), 30);
  EXPECT_EQ(TimecodeRate("0", blob), 0);
}

TEST(DelayAudioFormatDeathTest, DenominatorOfZeroStops) {
  auto texts = TextsOfPasses(2);
  texts.frameRate = "1";
  TestJob job(texts);
  CountedInfo info(support::FormatBlobWithVideo(48000, 2, support::Vide(25, 0)));
  EXPECT_DEATH(job->SetInputInfo(info.Record()), "denominator");
}

// ---- the walk over the chunks

TEST(DelayAudioFormat, ChunksAreTakenInEitherOrderAndOthersSkipped) {
  const VidePayload vide = support::Vide(24, 1);
  const LpcmPayload lpcm = support::Lpcm(96000, 6);
  const unsigned char other[13] = {1, 2, 3};
  Blob blob;
  support::AppendChunk(&blob, 0x41424344, other, sizeof other, sizeof other);
  support::AppendChunk(&blob, HARVANE_TAG_LPCM, &lpcm, sizeof lpcm, sizeof lpcm);
  support::AppendChunk(&blob, 0, other, 0, 0);
  support::AppendChunk(&blob, HARVANE_TAG_VIDE, &vide, sizeof vide, sizeof vide);
  TestJob job(TextsOfPasses(2));
  job.SetInput(blob);
  EXPECT_EQ(std::memcmp(&Probe::InputFormat(*job), &lpcm, sizeof lpcm), 0);
  EXPECT_EQ(std::memcmp(&Probe::VideoInfo(*job), &vide, sizeof vide), 0);
  EXPECT_EQ(Probe::SampleRate(*job), 96000);
}

TEST(DelayAudioFormat, LaterChunkOfATagWins) {
  const LpcmPayload first = support::Lpcm(96000, 6);
  const LpcmPayload second = support::Lpcm(44100, 1);
  Blob blob = support::LpcmBlob(first);
  support::AppendChunk(&blob, HARVANE_TAG_LPCM, &second, sizeof second, sizeof second);
  TestJob job(TextsOfPasses(2));
  job.SetInput(blob);
  EXPECT_EQ(Probe::SampleRate(*job), 44100);
  EXPECT_EQ(Probe::InputFormat(*job).channels, 1U);
}

TEST(DelayAudioFormat, WrongLengthStillCopiesFortyBytesAndTheWalkGoesOnByIt) {
  const LpcmPayload lpcm = support::Lpcm(88200, 3);
  const VidePayload vide = support::Vide(50, 1);
  // Declared 4 bytes too long: what follows is found 4 bytes later.
  Blob longer;
  support::AppendChunk(&longer, HARVANE_TAG_LPCM, &lpcm, sizeof lpcm, sizeof lpcm + 4);
  longer.resize(longer.size() + 4, 0x77);
  support::AppendChunk(&longer, HARVANE_TAG_VIDE, &vide, sizeof vide, sizeof vide);
  TestJob job(TextsOfPasses(2));
  job.SetInput(longer);
  EXPECT_EQ(std::memcmp(&Probe::InputFormat(*job), &lpcm, sizeof lpcm), 0);
  EXPECT_EQ(std::memcmp(&Probe::VideoInfo(*job), &vide, sizeof vide), 0);

  // Declared 8 bytes too short: the walk takes the payload's last 8 bytes for a header.
  Blob shorter;
  support::AppendChunk(&shorter, HARVANE_TAG_LPCM, &lpcm, sizeof lpcm, sizeof lpcm - 8);
  TestJob another(TextsOfPasses(2));
  another.SetInput(shorter);
  EXPECT_EQ(std::memcmp(&Probe::InputFormat(*another), &lpcm, sizeof lpcm), 0);
  EXPECT_EQ(Probe::SampleRate(*another), 88200);
}

TEST(DelayAudioFormat, ChunkThatReachesPastTheEndEndsTheWalk) {
  const LpcmPayload lpcm = support::Lpcm(48000, 2);
  Blob blob;
  support::AppendChunk(&blob, HARVANE_TAG_LPCM, &lpcm, sizeof lpcm, 0xFFFFFFFF);
  TestJob job(TextsOfPasses(2));
  job.SetInput(blob);
  EXPECT_EQ(Probe::SampleRate(*job), 48000);
}

TEST(DelayAudioFormat, BlobWithoutLpcmLeavesTheFormatZero) {
  const VidePayload vide = support::Vide(25, 1);
  Blob blob;
  support::AppendChunk(&blob, HARVANE_TAG_VIDE, &vide, sizeof vide, sizeof vide);
  DelayAudio job;
  job.SetParameter(support::ParameterDocument(TextsOfPasses(2)).c_str());
  CountedInfo info(blob);
  job.SetInputInfo(info.Record());
  EXPECT_EQ(info.Releases(), 1);
  const LpcmPayload zero{};
  EXPECT_EQ(std::memcmp(&Probe::InputFormat(job), &zero, sizeof zero), 0);
  EXPECT_EQ(Probe::SampleRate(job), 0);
  EXPECT_EQ(Probe::BlockSize(job), 0U);
}

TEST(DelayAudioFormat, EmptyBlobIsReleasedAndKeepsTheFormat) {
  TestJob job(TextsOfPasses(2), 44100, 1);
  CountedInfo info(Blob(1));
  info.Record()->size = 0;
  job->SetInputInfo(info.Record());
  EXPECT_EQ(info.Releases(), 1);
  EXPECT_EQ(Probe::SampleRate(*job), 44100);
}

// ---- diagnostic lines

TEST(DelayAudioFormat, OfferSaysItsSizeToWhoDebugs) {
  support::KeepsLines logger;
  InfoBuffer* const offer = DelayAudio::EnumInputInfo();
  EXPECT_EQ(logger.lines, std::vector<std::string>{"Sent InfoBuffer size: 120"});
  offer->release(offer);
}

TEST(DelayAudioFormat, FormatThatIsSetSaysItsRecordsSizeToWhoDebugs) {
  const VidePayload vide = support::Vide(25, 1);
  TestJob job(TextsOfPasses(2));
  support::KeepsLines logger;
  job.SetInput(support::FormatBlob(48000, 2));
  job.SetInput(support::FormatBlobWithVideo(48000, 2, vide));
  CountedInfo empty(Blob(1));
  empty.Record()->size = 0;
  job->SetInputInfo(empty.Record());
  EXPECT_EQ(logger.lines, (std::vector<std::string>{"Received InfoBuffer size: 48",
                                                    "Received InfoBuffer size: 120",
                                                    "Received InfoBuffer size: 0"}));
}

TEST(DelayAudioFormat, SizeOfARecordIsWrittenWithoutASign) {
  TestJob job(TextsOfPasses(2));
  support::KeepsLines logger;
  // A chunk that reaches to the end of a record of that size.
  const LpcmPayload lpcm = support::Lpcm(48000, 2);
  Blob blob;
  support::AppendChunk(&blob, HARVANE_TAG_LPCM, &lpcm, sizeof lpcm, 0xFFFFFFF0);
  CountedInfo info(blob);
  InfoBuffer* const record = info.Record();
  record->size = 0xFFFFFFF8;
  record->release = [](void*) -> std::uint32_t { return 0; };
  job->SetInputInfo(record);
  EXPECT_EQ(logger.lines, std::vector<std::string>{"Received InfoBuffer size: 4294967288"});
}

TEST(DelayAudioFormat, OtherCallsOfTheFormatSayNothing) {
  TestJob job(TextsOfPasses(2));
  support::KeepsLines logger;
  InfoBuffer* const offer = job->EnumOutputInfo();
  CountedInfo echo(support::FormatBlob(48000, 2));
  job->SetOutputInfo(echo.Record());
  EXPECT_TRUE(logger.lines.empty());
  offer->release(offer);
}

// ---- output information

TEST(DelayAudioFormat, DifferentOutputInfoThrowsAndIsNotReleased) {
  TestJob job(TextsOfPasses(2));
  Blob blob = support::FormatBlob(48000, 2);
  blob.back() ^= 1;  // a reserved byte
  CountedInfo info(blob);
  try {
    job->SetOutputInfo(info.Record());
    FAIL() << "nothing was thrown";
  } catch (const std::logic_error& failure) {
    EXPECT_STREQ(failure.what(), "[DelayAudio::SetOutputInfo] not expected.");
  }
  EXPECT_EQ(info.Releases(), 0);
}

TEST(DelayAudioFormat, ErrorMessageHandsOutTheTextOnceAndEmptiesIt) {
  TestJob job(TextsOfPasses(2));
  Probe::LastErrorText(*job) = "told";
  InfoBuffer* message = job->GetErrorMessage();
  EXPECT_EQ(message->size, 5U);
  EXPECT_STREQ(static_cast<const char*>(message->data), "told");
  message->release(message);
  message = job->GetErrorMessage();
  EXPECT_EQ(message->size, 1U);
  EXPECT_STREQ(static_cast<const char*>(message->data), "");
  message->release(message);
}

}  // namespace
}  // namespace harvane
