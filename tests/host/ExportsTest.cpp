// The boundary, call by call: records, ownership, flags, result codes.

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <thread>

#include "tests/host/JobRunner.h"
#include "tests/host/ModuleUnderTest.h"
#include "tests/support/Signals.h"

#ifdef _WIN32
#include <windows.h>
// After windows.h.
#include <tlhelp32.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace hosttest {
namespace {

using support::Arrangement;
using support::Blob;
using support::CountedInfo;
using support::CountedUnit;

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kJunkFlag = 0xABCD;

class Exports : public ModuleTest {};

// Where the fields of a record lie: by pointers of 4 bytes, the wire format, and of 8.
constexpr bool kIs32 = sizeof(void*) == 4;
struct InfoOffsets {
  std::size_t release = kIs32 ? 4 : 8;
  std::size_t reserved1 = kIs32 ? 8 : 16;
  std::size_t data = kIs32 ? 24 : 32;
  std::size_t size = kIs32 ? 28 : 40;
  std::size_t reserved2 = kIs32 ? 32 : 44;
};
struct UnitOffsets {
  std::size_t release = kIs32 ? 4 : 8;
  std::size_t reserved1 = kIs32 ? 8 : 16;
  std::size_t data = kIs32 ? 24 : 32;
  std::size_t stride = kIs32 ? 280 : 544;
  std::size_t sampleCount = kIs32 ? 536 : 800;
  std::size_t reserved2 = kIs32 ? 540 : 804;
};

template <class T>
T At(const void* record, std::size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const unsigned char*>(record) + offset, sizeof value);
  return value;
}

bool IsZero(const void* record, std::size_t offset, std::size_t count) {
  const auto* const first = static_cast<const unsigned char*>(record) + offset;
  return std::all_of(first, first + count, [](unsigned char byte) { return byte == 0; });
}

// Checks all fields of a module's InfoBuffer at their offsets, takes its blob and releases it.
Blob TakeBlob(InfoBuffer* record) {
  constexpr InfoOffsets kAt;
  EXPECT_EQ(At<std::uint32_t>(record, 0), 0U);
  EXPECT_TRUE(IsZero(record, kAt.reserved1, 16));
  EXPECT_TRUE(IsZero(record, kAt.reserved2, 16));
  const auto* const data = At<const unsigned char*>(record, kAt.data);
  const auto size = At<std::uint32_t>(record, kAt.size);
  Blob blob(data, data + size);
  const auto release = At<ReleaseFunction>(record, kAt.release);
  EXPECT_EQ(release(record), 0U);
  return blob;
}

const Blob& InputOfferBytes() {
  static const Blob kBytes = [] {
    Blob bytes = {0x45, 0x44, 0x49, 0x56, 0x40, 0, 0, 0};  // "VIDE" reversed, 64
    bytes.insert(bytes.end(), 28, 0);
    const Blob words = {3, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    bytes.insert(bytes.end(), words.begin(), words.end());
    bytes.insert(bytes.end(), 28, 0);
    const Blob lpcm = {0x4D, 0x43, 0x50, 0x4C, 0x28, 0,    0, 0,  // "LPCM" reversed, 40
                       0,    0,    0,    0,    0x80, 0xBB, 0, 0, 0, 0,
                       0,    0,    16,   0,    0,    0,    2, 0, 0, 0};
    bytes.insert(bytes.end(), lpcm.begin(), lpcm.end());
    bytes.insert(bytes.end(), 20, 0);
    return bytes;
  }();
  return kBytes;
}

// ---- records that the module makes

TEST_F(Exports, InputOfferHasItsHundredAndTwentyBytes) {
  ASSERT_EQ(InputOfferBytes().size(), 120U);
  Instance job(Module());
  InfoBuffer* offer = nullptr;
  ASSERT_EQ(Module().xEnumInputInfo(job.Handle(), &offer), 0U);
  EXPECT_EQ(TakeBlob(offer), InputOfferBytes());
}

TEST_F(Exports, InputOfferDoesNotDependOnTheFormatThatWasSet) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlobWithVideo(96000, 6, support::Vide(30, 1))), 0U);
  InfoBuffer* offer = nullptr;
  ASSERT_EQ(Module().xEnumInputInfo(job.Handle(), &offer), 0U);
  EXPECT_EQ(TakeBlob(offer), InputOfferBytes());
}

TEST_F(Exports, OutputOfferBeforeAnyFormatIsAllZero) {
  Instance job(Module());
  InfoBuffer* offer = nullptr;
  ASSERT_EQ(Module().xEnumOutputInfo(job.Handle(), &offer), 0U);
  Blob wanted = {0x4D, 0x43, 0x50, 0x4C, 0x28, 0, 0, 0};
  wanted.resize(48, 0);
  EXPECT_EQ(TakeBlob(offer), wanted);
}

TEST_F(Exports, OutputOfferHandsBackAllFortyBytesAsTheyCame) {
  LpcmPayload lpcm;
  for (std::size_t i = 0; i < sizeof lpcm; ++i) {
    reinterpret_cast<unsigned char*>(&lpcm)[i] = static_cast<unsigned char>(200 - 3 * i);
  }
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::LpcmBlob(lpcm)), 0U);
  InfoBuffer* offer = nullptr;
  ASSERT_EQ(Module().xEnumOutputInfo(job.Handle(), &offer), 0U);
  Blob wanted = {0x4D, 0x43, 0x50, 0x4C, 0x28, 0, 0, 0};
  for (int i = 0; i < 40; ++i) wanted.push_back(static_cast<unsigned char>(200 - 3 * i));
  EXPECT_EQ(TakeBlob(offer), wanted);
}

TEST_F(Exports, OffersStayAsTheyAreThroughLaterCalls) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(44100, 1)), 0U);
  InfoBuffer* first = nullptr;
  InfoBuffer* second = nullptr;
  ASSERT_EQ(Module().xEnumOutputInfo(job.Handle(), &first), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(96000, 6)), 0U);
  ASSERT_EQ(Module().xEnumOutputInfo(job.Handle(), &second), 0U);
  EXPECT_EQ(TakeBlob(second), support::FormatBlob(96000, 6));
  EXPECT_EQ(TakeBlob(first), support::FormatBlob(44100, 1));
}

TEST_F(Exports, RecordsOutliveTheInstance) {
  InfoBuffer* scheme = nullptr;
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 0;
  {
    Instance job(Module());
    auto texts = Texts();
    texts.numberOfPasses = "1";
    job.Begin(texts, kRate, 2);
    ASSERT_EQ(Module().xGetParameterScheme(job.Handle(), &scheme), 0U);
    ASSERT_EQ(job.Deliver({100, 200, 300, 400}, 2, &flag), 0U);
    ASSERT_EQ(Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), 0U);
    ASSERT_EQ(job.EndSequence(), 0U);
  }
  EXPECT_EQ(unit->sampleCount, 2U);
  EXPECT_EQ(unit->release(unit), 0U);
  EXPECT_EQ(scheme->release(scheme), 0U);
}

TEST_F(Exports, FetchedUnitHasItsFieldsAtTheirOffsets) {
  constexpr UnitOffsets kAt;
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 3);
  std::uint32_t flag = 0;
  ASSERT_EQ(job.Deliver({0, 32767, -32767, 0, -32768, 0}, 3, &flag), 0U);
  PcmUnit* unit = nullptr;
  ASSERT_EQ(Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), 0U);
  EXPECT_EQ(At<std::uint32_t>(unit, 0), 2U);
  EXPECT_TRUE(IsZero(unit, kAt.reserved1, 16));
  EXPECT_TRUE(IsZero(unit, kAt.reserved2, 16));
  EXPECT_EQ(At<std::uint32_t>(unit, kAt.sampleCount), 2U);
  const std::int16_t wanted[3][2] = {{0, 0}, {32767, -32767}, {-32767, 0}};
  for (std::size_t c = 0; c < 64; ++c) {
    const auto* const data = At<const std::int16_t*>(unit, kAt.data + c * sizeof(void*));
    const auto stride = At<std::uint32_t>(unit, kAt.stride + c * 4);
    if (c >= 3) {
      EXPECT_EQ(data, nullptr) << c;
      EXPECT_EQ(stride, 0U) << c;
      continue;
    }
    EXPECT_EQ(stride, 1U) << c;
    EXPECT_EQ(data[0], wanted[c][0]) << c;
    EXPECT_EQ(data[1], wanted[c][1]) << c;
  }
  EXPECT_EQ(At<ReleaseFunction>(unit, kAt.release)(unit), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, FetchWithNothingWaitingGivesAnEmptyUnitWithOneAllocationPerChannel) {
  Instance job(Module());
  job.Begin(Texts(), kRate, 2);
  PcmUnit* unit = nullptr;
  std::uint32_t flag = kJunkFlag;
  ASSERT_EQ(Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), 0U);
  EXPECT_EQ(flag, 0U);
  EXPECT_EQ(unit->sampleCount, 0U);
  EXPECT_NE(unit->data[0], nullptr);
  EXPECT_NE(unit->data[1], nullptr);
  EXPECT_NE(unit->data[0], unit->data[1]);
  EXPECT_EQ(unit->data[2], nullptr);
  EXPECT_EQ(unit->release(unit), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, InstanceInformationFillsExactlyItsBuffer) {
  constexpr std::size_t kSize = 1424;
  std::array<unsigned char, kSize + 16> buffer;
  buffer.fill(0xFF);
  ASSERT_EQ(Module().xGetInstanceInformation(nullptr,
                                             reinterpret_cast<InstanceInformation*>(buffer.data())),
            0U);
  EXPECT_FALSE(IsZero(buffer.data(), 0, 16)) << "the identity";
  const std::string name = "Harvane";
  const std::string description =
      "EBU-compatible loudness normalizer with Program Loudness or Short-Term Loudness "
      "normalisation and True Peak limiting.";
  EXPECT_EQ(std::memcmp(buffer.data() + 16, name.c_str(), name.size() + 1), 0);
  EXPECT_TRUE(IsZero(buffer.data(), 16 + name.size(), 256 - name.size()));
  EXPECT_EQ(std::memcmp(buffer.data() + 272, description.c_str(), description.size() + 1), 0);
  EXPECT_TRUE(IsZero(buffer.data(), 272 + description.size(), 1152 - description.size()));
  EXPECT_TRUE(std::all_of(buffer.begin() + kSize, buffer.end(),
                          [](unsigned char byte) { return byte == 0xFF; }));
}

TEST_F(Exports, IdentityIsConstant) {
  InstanceInformation first;
  InstanceInformation second;
  ASSERT_EQ(Module().xGetInstanceInformation(nullptr, &first), 0U);
  Instance job(Module());
  ASSERT_EQ(Module().xGetInstanceInformation(job.Handle(), &second), 0U);
  EXPECT_EQ(std::memcmp(&first, &second, sizeof first), 0);
}

TEST_F(Exports, DescribingCallsNeedNoInstance) {
  InfoBuffer* scheme = nullptr;
  ASSERT_EQ(Module().xGetParameterScheme(nullptr, &scheme), 0U);
  const Blob text = TakeBlob(scheme);
  InfoBuffer* offer = nullptr;
  ASSERT_EQ(Module().xEnumInputInfo(nullptr, &offer), 0U);
  EXPECT_EQ(TakeBlob(offer), InputOfferBytes());
  const std::string wholeText(text.begin(), text.end());
  EXPECT_EQ(wholeText.size(), std::strlen(wholeText.c_str()) + 1) << "the size counts the NUL";
  EXPECT_EQ(wholeText.substr(0, 7), "<scheme");
  const std::string ending("</scheme>\n\n\0", 12);
  ASSERT_GE(wholeText.size(), ending.size());
  EXPECT_EQ(wholeText.substr(wholeText.size() - ending.size()), ending);
}

TEST_F(Exports, ErrorMessageIsAlwaysTheEmptyText) {
  Instance job(Module());
  const Blob empty = {0};
  for (int round = 0; round < 2; ++round) {
    InfoBuffer* message = nullptr;
    ASSERT_EQ(Module().xGetErrorMessage(job.Handle(), &message), 0U);
    EXPECT_EQ(TakeBlob(message), empty);
    EXPECT_EQ(Module().xSetParameter(job.Handle(), "not xml"), 3U);
  }
}

// ---- records that the host hands in

TEST_F(Exports, SetInputInfoReleasesTheRecordOnce) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  CountedInfo info(support::FormatBlobWithVideo(kRate, 2, support::Vide(25, 1)));
  EXPECT_EQ(Module().xSetInputInfo(job.Handle(), info.Record()), 0U);
  EXPECT_EQ(info.Releases(), 1);
}

TEST_F(Exports, SetOutputInfoReleasesAnEchoOnce) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(kRate, 2)), 0U);
  CountedInfo echo(support::FormatBlob(kRate, 2));
  EXPECT_EQ(Module().xSetOutputInfo(job.Handle(), echo.Record()), 0U);
  EXPECT_EQ(echo.Releases(), 1);
}

TEST_F(Exports, SetOutputInfoRefusesAChangeInAnyByteAndDoesNotRelease) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(kRate, 2)), 0U);
  for (std::size_t byte = 8; byte < 48; ++byte) {
    Blob blob = support::FormatBlob(kRate, 2);
    blob[byte] ^= 0x80;
    CountedInfo changed(blob);
    EXPECT_EQ(Module().xSetOutputInfo(job.Handle(), changed.Record()), 3U) << byte;
    EXPECT_EQ(changed.Releases(), 0) << byte;
  }
  CountedInfo echo(support::FormatBlob(kRate, 2));
  EXPECT_EQ(Module().xSetOutputInfo(job.Handle(), echo.Record()), 0U) << "nothing was stored";
}

TEST_F(Exports, SetOutputInfoTakesTheFirstChunkForTheFormatWhateverItsHeaderSays) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(kRate, 2)), 0U);
  Blob blob = support::FormatBlob(kRate, 2);
  std::fill(blob.begin(), blob.begin() + 8, static_cast<unsigned char>(0x11));
  CountedInfo strange(blob);
  EXPECT_EQ(Module().xSetOutputInfo(job.Handle(), strange.Record()), 0U);
  EXPECT_EQ(strange.Releases(), 1);
  // A leading VIDE chunk stands where the format is looked for.
  CountedInfo withVideo(support::FormatBlobWithVideo(kRate, 2, support::Vide(25, 1)));
  EXPECT_EQ(Module().xSetOutputInfo(job.Handle(), withVideo.Record()), 3U);
  EXPECT_EQ(withVideo.Releases(), 0);
}

TEST_F(Exports, UnitsAreReleasedOnceInEveryKindOfPass) {
  const std::vector<std::int16_t> samples(2 * 1000, 1000);
  for (const int passes : {1, 2, 3}) {
    Instance job(Module());
    auto texts = Texts();
    texts.numberOfPasses = std::to_string(passes);
    job.Begin(texts, kRate, 2);
    for (std::uint32_t pass = 0; pass < 2; ++pass) {
      ASSERT_EQ(job.StartPass(pass), 0U);
      for (const std::uint32_t frames : {0U, 1U, 1000U}) {
        CountedUnit unit(samples.data(), frames, 2, Arrangement::kInterleaved);
        std::uint32_t flag = kJunkFlag;
        EXPECT_EQ(Module().xDeliverPcmUnit(job.Handle(), 7, unit.Record(), &flag), 0U);
        EXPECT_EQ(unit.Releases(), 1) << passes << ' ' << pass << ' ' << frames;
      }
      ASSERT_EQ(job.EndPass(), 0U);
    }
    ASSERT_EQ(job.EndSequence(), 0U);
  }
}

// ---- out-flags

struct FlagCase {
  const char* name;
  const char* passes;
  std::uint32_t pass;
  std::uint32_t withoutUnit;
  std::uint32_t withUnit;
};

class OutFlag : public Exports, public testing::WithParamInterface<FlagCase> {};

TEST_P(OutFlag, IsWrittenAsTheKindOfPassAsks) {
  const FlagCase& wanted = GetParam();
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = wanted.passes;
  job.Begin(texts, kRate, 2);
  if (wanted.pass > 0) {
    ASSERT_EQ(job.StartPass(0), 0U);
    ASSERT_EQ(job.EndPass(), 0U);
  }
  ASSERT_EQ(job.StartPass(wanted.pass), 0U);
  std::uint32_t flag = kJunkFlag;
  EXPECT_EQ(Module().xDeliverPcmUnit(job.Handle(), 0, nullptr, &flag), 0U);
  EXPECT_EQ(flag, wanted.withoutUnit);
  flag = kJunkFlag;
  EXPECT_EQ(job.Deliver({1, 2, 3, 4}, 2, &flag), 0U);
  EXPECT_EQ(flag, wanted.withUnit);
  flag = kJunkFlag;
  PcmUnit* unit = nullptr;
  EXPECT_EQ(Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), 0U);
  EXPECT_EQ(flag, 0U);
  EXPECT_EQ(unit->sampleCount, wanted.withUnit == 0 ? 0U : 2U);
  unit->release(unit);
  EXPECT_EQ(job.EndPass(), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

INSTANTIATE_TEST_SUITE_P(EveryKindOfPass, OutFlag,
                         testing::Values(FlagCase{"FirstOfTwo", "2", 0, 0, 0},
                                         FlagCase{"SecondOfTwo", "2", 1, kJunkFlag, 1},
                                         FlagCase{"ThirdOfTwo", "2", 2, kJunkFlag, 1},
                                         FlagCase{"OnlyOne", "1", 0, kJunkFlag, 1},
                                         FlagCase{"SecondOfOne", "1", 1, kJunkFlag, 1},
                                         FlagCase{"FirstOfThree", "3", 0, kJunkFlag, 1},
                                         FlagCase{"FirstOfNone", "0", 0, kJunkFlag, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- result codes

TEST_F(Exports, CloseWithNullHandleReturnsZero) { EXPECT_EQ(Module().xClose(nullptr), 0U); }

TEST_F(Exports, CloseInTheMiddleOfASequenceReturnsZero) {
#if defined(__SANITIZE_ADDRESS__)
  // Deliberate: what the sequence made is then left behind.
  const __lsan::ScopedDisabler expectedLeak;
#endif
  Instance job(Module());
  job.Begin(Texts(), kRate, 2);
  ASSERT_EQ(job.StartPass(0), 0U);
}

TEST_F(Exports, TextThatIsNotXmlIsRefusedWithThree) {
  Instance job(Module());
  for (const char* text : {"", "not xml", "<parameter>", "<a/><b/>"}) {
    EXPECT_EQ(Module().xSetParameter(job.Handle(), text), 3U) << text;
  }
}

TEST_F(Exports, MissingValueIsRefusedWithFour) {
  Instance job(Module());
  EXPECT_EQ(Module().xSetParameter(job.Handle(), "<parameter/>"), 4U);
  auto texts = Texts();
  texts.Loudness = "(absent)";
  EXPECT_EQ(job.SetParameter(texts), 4U);
  texts = Texts();
  texts.numberOfPasses = "";
  EXPECT_EQ(job.SetParameter(texts), 4U);
  EXPECT_EQ(job.SetParameter(Texts()), 0U);
}

TEST_F(Exports, UnknownLayoutIsRefusedAtTheSequenceWithThree) {
  Instance job(Module());
  auto texts = Texts();
  texts.formats[0] = "9";
  ASSERT_EQ(job.SetParameter(texts), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(kRate, 2)), 0U);
  EXPECT_EQ(job.StartSequence(), 3U);
  EXPECT_EQ(job.StartSequence(), 3U);
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  EXPECT_EQ(job.StartSequence(), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, RateWithoutWindowsIsRefusedAtTheSequenceWithTwo) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  for (const std::uint32_t rate : {0xFFFFFFFFU, 0xFFFFFC18U, 0x80000000U, 715827862U}) {
    ASSERT_EQ(job.SetInput(support::FormatBlob(rate, 2)), 0U) << rate;
    EXPECT_EQ(job.StartSequence(), 2U) << rate;
    EXPECT_EQ(job.EndSequence(), 0U) << rate;
  }
  ASSERT_EQ(job.SetInput(support::FormatBlob(kRate, 2)), 0U);
  EXPECT_EQ(job.StartSequence(), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, RefusedSequenceLeavesTheWaitingOutputAsItWas) {
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 2);
  std::uint32_t flag = 0;
  ASSERT_EQ(job.StartPass(0), 0U);
  ASSERT_EQ(job.Deliver({32767, -32767, 0, 32767}, 2, &flag), 0U);
  texts.formats[0] = "0";
  ASSERT_EQ(job.SetParameter(texts), 0U);
  EXPECT_EQ(job.StartSequence(), 3U);
  EXPECT_EQ(job.Fetch(2), (std::vector<std::int16_t>{32767, -32767, 0, 32767}));
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, FormatsBeyondTheGroupsInUseDoNotMatter) {
  Instance job(Module());
  auto texts = Texts();
  texts.formats = {"2", "9", "-1", "abc"};
  job.Begin(texts, kRate, 2);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, SequenceArgumentIsNotLookedAt) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(kRate, 2)), 0U);
  EXPECT_EQ(Module().xStartSequenceEx(job.Handle(), reinterpret_cast<void*>(std::uintptr_t{1})),
            0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

// ---- samples

std::int16_t RoundTrip(int sample) {
  const auto x = static_cast<float>(static_cast<double>(sample) / 32767.0);
  const double clamped = std::min(1.0, std::max(-1.0, static_cast<double>(x)));
  return static_cast<std::int16_t>(clamped * 32767.0);
}

TEST_F(Exports, All65536SamplesGoThroughASinglePassAtMostOneStepTowardsZero) {
  std::vector<std::int16_t> samples;
  for (int sample = -32768; sample <= 32767; ++sample) {
    samples.push_back(static_cast<std::int16_t>(sample));
    samples.push_back(static_cast<std::int16_t>(-1 - sample));
  }
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  texts.formats[0] = "1";  // channel 1 belongs to no track
  job.Begin(texts, kRate, 2);
  ASSERT_EQ(job.StartPass(0), 0U);
  std::uint32_t flag = 0;
  ASSERT_EQ(job.Deliver(samples, 2, &flag), 0U);
  const std::vector<std::int16_t> given = job.Fetch(2);
  ASSERT_EQ(given.size(), samples.size());
  int lowered = 0;
  for (std::size_t i = 0; i < given.size(); ++i) {
    ASSERT_EQ(given[i], RoundTrip(samples[i])) << samples[i];
    const int step = std::abs(samples[i]) - std::abs(given[i]);
    ASSERT_TRUE(step == 0 || step == 1) << samples[i];
    if (i % 2 == 0 && samples[i] > 0 && step == 1) ++lowered;
  }
  EXPECT_EQ(lowered, 16639);
  EXPECT_EQ(given[0], -32767) << "of -32768";
  EXPECT_EQ(given[2 * 32769], 0) << "of 1";
  EXPECT_EQ(given[2 * 32767], 0) << "of -1";
  EXPECT_EQ(job.EndPass(), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, StrideOfZeroRepeatsTheFirstSample) {
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 2);
  const std::vector<std::int16_t> samples = {32767, -32767, 0, 0, 0, 0};
  CountedUnit unit(samples.data(), 3, 2, Arrangement::kPlanar);
  unit.Record()->stride[0] = 0;
  std::uint32_t flag = 0;
  ASSERT_EQ(Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag), 0U);
  EXPECT_EQ(job.Fetch(2), (std::vector<std::int16_t>{32767, -32767, 32767, 0, 32767, 0}));
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, SixtyFourChannelsPassThrough) {
  constexpr std::uint32_t kChannels = 64;
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  texts.numberOfGroups = "4";
  texts.formats = {"5", "5", "5", "5"};
  job.Begin(texts, kRate, kChannels);
  const std::vector<std::int16_t> samples = support::NoiseInt16(64, kChannels * 500, 32767);
  std::uint32_t flag = 0;
  ASSERT_EQ(job.Deliver(samples, kChannels, &flag), 0U);
  std::vector<std::int16_t> wanted;
  for (const std::int16_t sample : samples) wanted.push_back(RoundTrip(sample));
  EXPECT_EQ(Difference(wanted, job.Fetch(kChannels)), "");
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, OnlyTheStatedChannelsOfAUnitAreRead) {
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 2);
  const std::vector<std::int16_t> samples = {32767, 0, 5, 0, -32767, 5};
  CountedUnit unit(samples.data(), 2, 3, Arrangement::kInterleaved);
  unit.Record()->data[2] = nullptr;
  std::uint32_t flag = 0;
  ASSERT_EQ(Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag), 0U);
  EXPECT_EQ(job.Fetch(2), (std::vector<std::int16_t>{32767, 0, 0, -32767}));
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, ChannelOfNoTrackIsNotReadInAFirstPassOfTwo) {
  Instance job(Module());
  auto texts = Texts();
  texts.formats[0] = "1";
  job.Begin(texts, kRate, 2);
  ASSERT_EQ(job.StartPass(0), 0U);
  const std::vector<std::int16_t> samples(2 * 300, 1);
  CountedUnit unit(samples.data(), 300, 2, Arrangement::kPlanar);
  unit.Record()->data[1] = nullptr;
  std::uint32_t flag = 0;
  EXPECT_EQ(Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag), 0U);
  EXPECT_EQ(unit.Releases(), 1);
  EXPECT_EQ(job.EndPass(), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, OutputThatWasNotFetchedIsLostWithThePass) {
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  job.Begin(texts, kRate, 2);
  std::uint32_t flag = 0;
  ASSERT_EQ(job.StartPass(0), 0U);
  ASSERT_EQ(job.Deliver({1, 2, 3, 4}, 2, &flag), 0U);
  ASSERT_EQ(job.EndPass(), 0U);
  EXPECT_TRUE(job.Fetch(2).empty());
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(Exports, FormatBlobWithoutLpcmLeavesNoChannelToRead) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  const VidePayload vide = support::Vide(25, 1);
  Blob blob;
  support::AppendChunk(&blob, HARVANE_TAG_VIDE, &vide, sizeof vide, sizeof vide);
  ASSERT_EQ(job.SetInput(blob), 0U);
  ASSERT_EQ(job.StartSequence(), 0U);
  ASSERT_EQ(job.StartPass(0), 0U);
  const std::int16_t none = 0;
  CountedUnit unit(&none, 0, 1, Arrangement::kPlanar);
  unit.Record()->data[0] = nullptr;
  unit.Record()->sampleCount = 1000;
  std::uint32_t flag = kJunkFlag;
  EXPECT_EQ(Module().xDeliverPcmUnit(job.Handle(), 0, unit.Record(), &flag), 0U);
  EXPECT_EQ(unit.Releases(), 1);
  EXPECT_EQ(job.EndPass(), 0U);
  EXPECT_EQ(job.EndSequence(), 0U);
}

// ---- whole jobs

twin::JobSpec StereoJob(int passes) {
  twin::JobSpec spec;
  spec.numberOfPasses = passes;
  spec.loudness = -10.0F;
  spec.maxTp = -3.0F;
  spec.entryName = "job";
  return spec;
}

class EveryLayout : public Exports, public testing::WithParamInterface<int> {};

TEST_P(EveryLayout, GivesTheTwinsSamplesInBothKindsOfJob) {
  constexpr int kChannels = 8;
  for (const int passes : {1, 2}) {
    twin::JobSpec spec = StereoJob(passes);
    spec.formats[0] = GetParam();
    spec.channels = kChannels;
    const auto seed = static_cast<std::uint64_t>(GetParam());
    const std::vector<std::int16_t> signal =
        support::Programme(seed, spec.sampleRate, kChannels, 36000);
    const twin::JobResult wanted = twin::RunJob(spec, signal);
    JobRunner job(Module(), spec, LogFolder(), "log");
    job.StartSequence();
    std::vector<std::int16_t> output;
    for (int pass = 0; pass < passes; ++pass) {
      output = job.RunPass(static_cast<std::uint32_t>(pass), signal, Delivery());
    }
    job.EndSequence();
    EXPECT_EQ(Difference(wanted.output, output), "") << passes << " passes";
  }
}

INSTANTIATE_TEST_SUITE_P(Exports, EveryLayout, testing::Range(1, 9),
                         [](const auto& info) { return "Format" + std::to_string(info.param); });

class EveryRate : public Exports, public testing::WithParamInterface<int> {};

TEST_P(EveryRate, GivesTheTwinsSamplesInBothKindsOfJob) {
  for (const int passes : {1, 2}) {
    twin::JobSpec spec = StereoJob(passes);
    spec.sampleRate = GetParam();
    if (spec.sampleRate > 96000) spec.loudness = -45.0F;  // a limiter would end the process
    const std::vector<std::int16_t> signal = support::Programme(
        7, spec.sampleRate, spec.channels, static_cast<std::size_t>(spec.sampleRate) * 3 / 4);
    const twin::JobResult wanted = twin::RunJob(spec, signal);
    ASSERT_FALSE(wanted.endsProcess);
    JobRunner job(Module(), spec, LogFolder(), "log");
    job.StartSequence();
    std::vector<std::int16_t> output;
    for (int pass = 0; pass < passes; ++pass) {
      output = job.RunPass(static_cast<std::uint32_t>(pass), signal, Delivery());
    }
    job.EndSequence();
    EXPECT_EQ(Difference(wanted.output, output), "") << passes << " passes";
  }
}

INSTANTIATE_TEST_SUITE_P(Exports, EveryRate,
                         testing::Values(22050, 32000, 44100, 48000, 88200, 96000, 176400, 192000),
                         [](const auto& info) { return "Rate" + std::to_string(info.param); });

TEST_F(Exports, SequencesOnOneInstanceInheritNothing) {
  const twin::JobSpec spec = StereoJob(2);
  const auto signal = support::Programme(11, spec.sampleRate, spec.channels, 40000);
  JobRunner job(Module(), spec, LogFolder(), "log");
  std::vector<std::int16_t> first;
  for (int sequence = 0; sequence < 3; ++sequence) {
    job.StartSequence();
    job.RunPass(0, signal, Delivery());
    const std::vector<std::int16_t> output = job.RunPass(1, signal, Delivery());
    job.EndSequence();
    if (sequence == 0) first = output;
    EXPECT_EQ(Difference(first, output), "") << sequence;
  }
  EXPECT_EQ(Difference(twin::RunJob(spec, signal).output, first), "");
}

TEST_F(Exports, SequenceMayStartAgainWithoutAnEnd) {
  const twin::JobSpec spec = StereoJob(2);
  const auto signal = support::Programme(12, spec.sampleRate, spec.channels, 30000);
  JobRunner job(Module(), spec, LogFolder(), "log");
  job.StartSequence();
  job.RunPass(0, signal, Delivery());
  job.StartPass(1);
  job.Deliver(signal.data(), 5000, Arrangement::kPlanar);
  job.StartSequence();
  job.RunPass(0, signal, Delivery());
  const std::vector<std::int16_t> output = job.RunPass(1, signal, Delivery());
  job.EndSequence();
  EXPECT_EQ(Difference(twin::RunJob(spec, signal).output, output), "");
}

TEST_F(Exports, GainsOfASequenceServeALaterSecondPassAlone) {
  const twin::JobSpec spec = StereoJob(2);
  const auto signal = support::Programme(13, spec.sampleRate, spec.channels, 30000);
  JobRunner job(Module(), spec, LogFolder(), "log");
  twin::Job oracle(spec);
  job.StartSequence();
  ASSERT_EQ(oracle.StartSequence(), twin::Job::Start::kStarted);
  job.RunPass(0, signal, Delivery());
  oracle.RunPass(0, signal);
  job.EndSequence();
  job.StartSequence();
  ASSERT_EQ(oracle.StartSequence(), twin::Job::Start::kStarted);
  const std::vector<std::int16_t> output = job.RunPass(1, signal, Delivery());
  job.EndSequence();
  EXPECT_EQ(Difference(oracle.RunPass(1, signal).output, output), "");
}

TEST_F(Exports, InstancesThatTakeTurnsDoNotDisturbEachOther) {
  constexpr std::size_t kInstances = 3;
  std::vector<twin::JobSpec> specs(kInstances, StereoJob(2));
  specs[1].sampleRate = 44100;
  specs[1].formats[0] = 3;
  specs[1].channels = 4;
  specs[2].numberOfPasses = 1;
  std::vector<std::vector<std::int16_t>> signals;
  std::vector<std::unique_ptr<JobRunner>> jobs;
  for (std::size_t i = 0; i < kInstances; ++i) {
    signals.push_back(support::Programme(20 + i, specs[i].sampleRate, specs[i].channels, 30000));
    jobs.push_back(std::make_unique<JobRunner>(Module(), specs[i], LogFolder(), "log"));
    jobs[i]->StartSequence();
  }
  std::vector<std::vector<std::int16_t>> outputs(kInstances);
  for (std::uint32_t pass = 0; pass < 2; ++pass) {
    for (std::size_t i = 0; i < kInstances; ++i) {
      if (pass == 0 || specs[i].numberOfPasses == 2) jobs[i]->StartPass(pass);
    }
    for (std::size_t frame = 0; frame < 30000; frame += 1000) {
      for (std::size_t i = 0; i < kInstances; ++i) {
        if (pass == 1 && specs[i].numberOfPasses == 1) continue;
        const auto channels = static_cast<std::size_t>(specs[i].channels);
        jobs[i]->Deliver(signals[i].data() + frame * channels, 1000, Arrangement::kInterleaved);
        jobs[i]->Fetch(&outputs[i]);
      }
    }
    for (std::size_t i = 0; i < kInstances; ++i) {
      if (pass == 0 || specs[i].numberOfPasses == 2) jobs[i]->EndPass();
    }
  }
  for (std::size_t i = 0; i < kInstances; ++i) {
    jobs[i]->EndSequence();
    EXPECT_EQ(Difference(twin::RunJob(specs[i], signals[i]).output, outputs[i]), "") << i;
  }
}

TEST_F(Exports, InstancesRunOnThreadsOfTheirOwn) {
  constexpr std::size_t kThreads = 4;
  const twin::JobSpec spec = StereoJob(2);
  std::vector<std::vector<std::int16_t>> signals;
  for (std::size_t i = 0; i < kThreads; ++i) {
    signals.push_back(support::Programme(30 + i, spec.sampleRate, spec.channels, 30000));
  }
  std::vector<std::vector<std::int16_t>> outputs(kThreads);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      JobRunner job(Module(), spec, LogFolder(), "log");
      job.StartSequence();
      job.RunPass(0, signals[i], Delivery());
      outputs[i] = job.RunPass(1, signals[i], Delivery());
      job.EndSequence();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < kThreads; ++i) {
    EXPECT_EQ(Difference(twin::RunJob(spec, signals[i]).output, outputs[i]), "") << i;
  }
}

// ---- log rows. The writer wakes after five seconds; the end of the module wakes it too.

TEST_F(Exports, UnloadingWritesTheOlderHalfOfTheRows) {
  auto texts = Texts();
  texts.numberOfPasses = "1";
  texts.frameRate = "25";
  {
    Instance job(Module());
    for (int row = 0; row < 5; ++row) {
      texts.logEntryName = "row-" + std::to_string(row);
      job.Begin(texts, kRate, 2);
      ASSERT_EQ(job.StartPass(0), 0U);
      ASSERT_EQ(job.EndPass(), 0U);
      ASSERT_EQ(job.EndSequence(), 0U);
    }
  }
  Unload();
  const std::string rest =
      ",Analysis,0,1,Stereo,-70.0,-70.0,-70.0,00:00:00:00,-70.0,00:00:00:00,"
      "-70.0,00:00:00:00";
  EXPECT_EQ(ReadRows(LogFilePath(LogFolder(), "log")),
            (std::vector<std::string>{"row-0" + rest, "row-1" + rest, "row-2" + rest}));
}

TEST_F(Exports, RowsAreTheTwinsInTheOrderOfTheInstances) {
  std::vector<std::string> wanted;
  const auto run = [&](const twin::JobSpec& spec, std::uint64_t seed, std::size_t frames) {
    const auto signal = support::Programme(seed, spec.sampleRate, spec.channels, frames);
    JobRunner job(Module(), spec, LogFolder(), "log");
    job.StartSequence();
    for (int pass = 0; pass < spec.numberOfPasses; ++pass) {
      job.RunPass(static_cast<std::uint32_t>(pass), signal, Delivery());
    }
    job.EndSequence();
    const twin::JobResult result = twin::RunJob(spec, signal);
    wanted.insert(wanted.end(), result.rows.begin(), result.rows.end());
  };
  twin::JobSpec spec = StereoJob(2);
  spec.frameRate = 29.97F;
  run(spec, 41, 40000);
  spec.numberOfPasses = 1;
  spec.formats[0] = 7;
  spec.channels = 8;
  spec.frameRate = 0.0F;
  run(spec, 42, 160000);
  spec.channels = 1;
  spec.formats[0] = 1;
  run(spec, 43, 238);  // shorter than a chunk: the reset values
  // Rates without filters of their own; the windows of 22050 are not four hops long.
  spec = StereoJob(2);
  spec.sampleRate = 22050;
  run(spec, 44, 72000);
  spec.sampleRate = 32000;
  run(spec, 45, 100000);
  QueueFillerRows(Module(), LogFolder(), static_cast<int>(wanted.size()));
  Unload();
  EXPECT_EQ(wanted.size(), 9U);
  EXPECT_EQ(Difference(wanted, ReadRows(LogFilePath(LogFolder(), "log"))), "");
}

TEST_F(Exports, JobsThatAreNeitherOfOneNorOfTwoPassesLeaveNoRow) {
  for (const char* passes : {"0", "3", "-1"}) {
    Instance job(Module());
    auto texts = Texts();
    texts.numberOfPasses = passes;
    texts.logFileName = "none";
    job.Begin(texts, kRate, 2);
    for (std::uint32_t pass = 0; pass < 3; ++pass) {
      ASSERT_EQ(job.StartPass(pass), 0U);
      ASSERT_EQ(job.EndPass(), 0U);
    }
    ASSERT_EQ(job.EndSequence(), 0U);
  }
  QueueFillerRows(Module(), LogFolder(), 20);
  Unload();
  EXPECT_FALSE(std::filesystem::exists(LogFilePath(LogFolder(), "none")));
  EXPECT_FALSE(ReadRows(LogFilePath(LogFolder(), "filler")).empty());
}

// Threads of this process.
int ThreadCount() {
#ifdef _WIN32
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  int count = 0;
  for (BOOL isThere = Thread32First(snapshot, &entry); isThere != FALSE;
       isThere = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
#else
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<int>(std::distance(begin(threads), end(threads)));
#endif
}

TEST_F(Exports, OnlyThreadStartsAtTheFirstPassEndAndGoesWithTheModule) {
  auto texts = Texts();
  {
    Instance job(Module());  // whatever the system starts for the XML reader
    ASSERT_EQ(job.SetParameter(texts), 0U);
  }
  Unload();
  const int before = ThreadCount();
  {
    const harvane::LoadedModule another(ModulePath());
    EXPECT_EQ(ThreadCount(), before) << "loaded";
    {
      Instance job(another.Exports());
      job.Begin(texts, kRate, 2);
      std::uint32_t flag = 0;
      ASSERT_EQ(job.StartPass(0), 0U);
      ASSERT_EQ(job.Deliver(std::vector<std::int16_t>(20000, 7), 2, &flag), 0U);
      ASSERT_EQ(job.StartPass(1), 0U);
      ASSERT_EQ(job.EndSequence(), 0U);
      texts.numberOfPasses = "3";
      job.Begin(texts, kRate, 2);
      ASSERT_EQ(job.StartPass(0), 0U);
      ASSERT_EQ(job.EndPass(), 0U);
      ASSERT_EQ(job.EndSequence(), 0U);
    }
    EXPECT_EQ(ThreadCount(), before) << "a job that ends no pass, and one whose ends log nothing";
    texts.numberOfPasses = "1";
    for (int round = 0; round < 3; ++round) {
      Instance job(another.Exports());
      job.Begin(texts, kRate, 2);
      ASSERT_EQ(job.StartPass(0), 0U);
      ASSERT_EQ(job.EndPass(), 0U);
      EXPECT_EQ(ThreadCount(), before + 1) << "one for all instances";
      ASSERT_EQ(job.EndSequence(), 0U);
    }
    EXPECT_EQ(ThreadCount(), before + 1) << "it outlives the instances";
  }
  EXPECT_EQ(ThreadCount(), before);
}

TEST_F(Exports, UnloadingAndLoadingAgainStartsAfresh) {
  for (int round = 0; round < 3; ++round) {
    const std::string name = "round-" + std::to_string(round);
    {
      const harvane::LoadedModule another(ModulePath());
      Unload();
      QueueFillerRows(another.Exports(), LogFolder(), 1);
      twin::JobSpec spec = StereoJob(1);
      JobRunner job(another.Exports(), spec, LogFolder(), name);
      job.StartSequence();
      job.RunPass(0, {}, Delivery());
      job.EndSequence();
      QueueFillerRows(another.Exports(), LogFolder(), 17);
    }
    EXPECT_EQ(ReadRows(LogFilePath(LogFolder(), name)).size(), 1U) << round;
  }
}

}  // namespace
}  // namespace hosttest
