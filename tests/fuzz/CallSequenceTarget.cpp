// Bytes as a host's calls of the sixteen exports: several instances, any calls in any order and
// with any values that the contract allows. What ends the process by design is not asked for, so
// that each fatal stop that is met is a finding. Rows end up in a log, which is read back.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "delay_audio/Exports.h"
#include "delay_audio/PassObserver.h"
#include "host/LogReading.h"
#include "parameters/NumberText.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using fuzz::InputBytes;
using fuzz::Require;
using harvane::DelayAudio;
using Probe = harvane::DelayAudioProbe;

constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kMemoryExhausted = 2;
constexpr std::uint32_t kFailed = 3;
constexpr std::uint32_t kMissing = 4;
constexpr std::size_t kLargestAllocation = std::size_t{1} << 20;
constexpr unsigned kInstances = 3;
constexpr unsigned kCallKinds = 32;  // the last one closes
// Of one input, so that none takes long.
constexpr int kMostCalls = 100;
constexpr std::uint32_t kMostSamples = 6000;

const char* const kPasses[] = {"2", "1", "2", "1", "(absent)", "0", "3", "-1", ""};
const char* const kGroups[] = {"1", "2", "3", "4", "(absent)", "0", "-3", "x", ""};
const char* const kFormats[] = {"1", "2", "3", "4", "5", "6", "7", "8", "(absent)", "9", "0", ""};
const char* const kLevels[] = {"-23", "-20",  "-1",    "0",     "-70",  "40",   "-300",
                               "300", "1e39", "-1e39", "1e-45", "text", "-0.0", ""};
const char* const kModes[] = {"0", "1", "-1", "2147483648", ""};
const char* const kFrameRates[] = {"0",  "25",         "1",    "59,94",        "23.976", "1000000",
                                   "-2", "2147483647", "-1e9", "-99999999999", "1.0",    ""};
const char* const kNames[] = {"job", "(absent)", "a,b", ",,,,,,,,,,,,,,", " ", "&amp;&#228;", ""};
// Rates of Hz whose windows a few samples fill, the six, and what is beyond use.
constexpr std::uint32_t kRates[] = {400,    1000,   48000, 44100, 96000,      88200,     192000,
                                    176400, 201,    200,   1,     0,          8000,      2000,
                                    32000,  384000, 3000,  600,   0x7FFFFFFF, 0x80000000};
constexpr std::uint32_t kPassNumbers[] = {0, 1, 0, 1, 2, 0xFFFFFFFF};

// The log of all instances, in a folder that ends with the program.
const support::TemporaryFolder& LogFolder() {
  static const support::TemporaryFolder folder;
  return folder;
}
constexpr char kLogName[] = "rows";
constexpr char kAbsent[] = "(absent)";

struct Delivered {
  std::uint32_t frames = 0;
  // Per channel, of a single pass: what came in since the latest fetch.
  std::vector<std::vector<std::int16_t>> samples;
};

// A unit whose memory ends where the contract lets the module read.
class ExactUnit {
 public:
  ExactUnit(std::uint32_t frames, std::uint32_t channels) : frames(frames) {
    counted.record.release = Release;
    counted.record.sampleCount = frames;
    memory.resize(std::min<std::uint32_t>(channels, kPcmUnitChannels));
  }

  // `sampleOf` gives the sample of a place in the channel's memory.
  template <class Source>
  void SetChannel(std::uint32_t c, std::uint32_t stride, Source sampleOf) {
    const std::size_t count = frames == 0 ? 0 : (frames - 1) * std::size_t{stride} + 1;
    memory[c] = std::make_unique<std::int16_t[]>(count);
    for (std::size_t i = 0; i < count; ++i) memory[c][i] = sampleOf(i);
    counted.record.data[c] = memory[c].get();
    counted.record.stride[c] = stride;
  }

  PcmUnit* Record() { return &counted.record; }
  int Releases() const { return counted.releases; }

 private:
  struct Counted {
    PcmUnit record{};
    int releases = 0;
  };
  static std::uint32_t HARVANE_CALL Release(void* record) {
    ++static_cast<Counted*>(record)->releases;
    return 0;
  }

  std::uint32_t frames;
  std::vector<std::unique_ptr<std::int16_t[]>> memory;
  Counted counted;
};

support::ParameterTexts Texts(InputBytes* bytes) {
  support::ParameterTexts texts;
  texts.numberOfPasses = bytes->OneOf(kPasses);
  texts.numberOfGroups = bytes->OneOf(kGroups);
  const unsigned formats = bytes->Byte();
  for (std::size_t g = 0; g < texts.formats.size(); ++g) {
    texts.formats[g] = kFormats[(formats >> (2 * g)) % std::size(kFormats)];
  }
  texts.formats[0] = bytes->OneOf(kFormats);
  texts.Loudness = bytes->OneOf(kLevels);
  texts.ShortTermLoudness = bytes->OneOf(kLevels);
  texts.MaxTP = bytes->OneOf(kLevels);
  texts.normalisationMode = bytes->OneOf(kModes);
  texts.frameRate = bytes->OneOf(kFrameRates);
  texts.logPath = LogFolder().Text();
  texts.logFileName = kLogName;
  texts.logEntryName = bytes->OneOf(kNames);
  return texts;
}

// What a document of these texts does, in a fraction of the time.
void SetDirectly(const support::ParameterTexts& texts, DelayAudio* job) {
  const auto number = [](const std::string& text, int byDefault) {
    return text == kAbsent ? byDefault : harvane::IntFromText(text);
  };
  const auto level = [](const std::string& text) {
    return static_cast<float>(harvane::DoubleFromText(text));
  };
  Probe::Loudness(*job) = level(texts.Loudness);
  Probe::ShortTermLoudness(*job) = level(texts.ShortTermLoudness);
  Probe::MaxTP(*job) = level(texts.MaxTP);
  Probe::FrameRate(*job) = level(texts.frameRate);
  Probe::NormalisationMode(*job) = number(texts.normalisationMode, 0);
  Probe::NumberOfPasses(*job) = number(texts.numberOfPasses, 2);
  Probe::LogPath(*job) = texts.logPath;
  Probe::LogFileName(*job) = texts.logFileName;
  Probe::LogEntryName(*job) = texts.logEntryName == kAbsent ? "" : texts.logEntryName;
  harvane::CheckedList<int> formats;
  for (const std::string& text : texts.formats) formats.Append(number(text, 2));
  Probe::TrackCount(*job) = job->SetupChannelTables(number(texts.numberOfGroups, 1), formats);
}

// One instance, and of its state what decides about the calls that are allowed.
class Host {
 public:
  Host() { Require(xOpen(&handle) == kDone, "an instance opens"); }
  ~Host() {
    EndSequence();
    Require(xClose(handle) == kDone, "an instance closes");
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  int Rows() const { return rows; }

  // Parameters, a format, a sequence, and its first pass, as far as the bytes make them good.
  void Begin(InputBytes* bytes) {
    SetParameter(bytes);
    SetInput(bytes);
    StartSequence();
    StartPass(0);
  }

  void Call(unsigned call, InputBytes* bytes, std::uint32_t* samplesLeft) {
    if (call < 2) return SetParameter(bytes);
    if (call < 4) return SetInput(bytes);
    if (call < 5) return SetOutput(bytes);
    if (call < 7) return StartSequence();
    if (call < 11) return StartPass(bytes->OneOf(kPassNumbers));
    if (call < 21) return Deliver(bytes, samplesLeft);
    if (call < 22) return DeliverNothing();
    if (call < 24) return Fetch();
    if (call < 28) return EndPass();
    if (call < 30) return EndSequence();
    return Describe();
  }

 private:
  DelayAudio& Job() const { return *static_cast<DelayAudio*>(handle); }
  std::uint32_t Channels() const { return Probe::InputFormat(Job()).channels; }
  std::size_t Tracks() const { return Job().TrackChannelCounts().Size(); }
  bool IsOfTwoPasses() const { return Probe::NumberOfPasses(Job()) == 2; }
  bool IsFirstOfTwo() const { return IsOfTwoPasses() && Probe::CurrentPass(Job()) == 0; }
  bool IsInTrack(std::uint32_t c) const {
    int position = 0;
    int track = 0;
    return Job().LookupChannel(static_cast<int>(c), &position, &track);
  }

  // Parameters and format come before the sequence.
  void SetParameter(InputBytes* bytes) {
    const support::ParameterTexts texts = Texts(bytes);
    const unsigned way = bytes->Below(32);
    const unsigned cut = bytes->Byte();
    if (isInSequence) return;
    if (way > 1) return SetDirectly(texts, &Job());
    std::string xml = support::ParameterDocument(texts);
    if (way == 1) xml.resize(cut * xml.size() / 256);
    const std::uint32_t code = xSetParameter(handle, xml.c_str());
    Require(code == kDone || code == kFailed || code == kMissing, "a code of xSetParameter");
  }

  void SetInput(InputBytes* bytes) {
    const unsigned kind = bytes->Byte();
    const std::uint32_t rate = kind % 8 == 7 ? bytes->Word() : bytes->OneOf(kRates);
    const std::uint32_t channels = bytes->Below(kind % 16 == 5 ? 100 : 40);
    const VidePayload video = support::Vide(bytes->Byte(), bytes->Byte());
    if (isInSequence) return;
    const bool hasVideo = kind >= 128;
    // Ends the process, and is meant to.
    if (hasVideo && video.frameRateDenominator == 0 && Probe::FrameRate(Job()) == 1.0F) return;
    support::CountedInfo info(hasVideo ? support::FormatBlobWithVideo(rate, channels, video)
                                       : support::FormatBlob(rate, channels));
    Require(xSetInputInfo(handle, info.Record()) == kDone, "a format is taken");
    Require(info.Releases() == 1, "the format is released once");
  }

  void SetOutput(InputBytes* bytes) {
    InfoBuffer* offer = nullptr;
    Require(xEnumOutputInfo(handle, &offer) == kDone, "an output format is offered");
    support::Blob blob(static_cast<unsigned char*>(offer->data),
                       static_cast<unsigned char*>(offer->data) + offer->size);
    offer->release(offer);
    const unsigned spoilt = bytes->Byte();
    const bool isSame = spoilt < sizeof(ChunkHeader) || spoilt >= blob.size();
    if (!isSame) blob[spoilt] ^= 0x80;
    support::CountedInfo echo(blob);
    const std::uint32_t code = xSetOutputInfo(handle, echo.Record());
    Require(code == (isSame ? kDone : kFailed), "only the same format is taken");
    Require(echo.Releases() == (isSame ? 1 : 0), "only what is taken is released");
  }

  void StartSequence() {
    const int tracks = Probe::TrackCount(Job());
    // A job without tracks ends the process, and is meant to.
    if (tracks == 0) return;
    const fuzz::AllocationLimit limit(kLargestAllocation);
    const std::uint32_t code = xStartSequenceEx(handle, nullptr);
    if (tracks == harvane::kNoTrack) {
      Require(code == kFailed, "a sequence without tables is refused");
    } else {
      Require(code == kDone || code == kMemoryExhausted, "a sequence starts or lacks memory");
    }
    isInSequence = code == kDone;
    waiting = {};
  }

  void StartPass(std::uint32_t number) {
    const PassArgument pass = {number};
    Require(xStartPassEx(handle, &pass) == kDone, "a pass starts");
  }

  // What must be so for a second pass, or the process ends.
  bool IsSecondPassAllowed() const {
    const DelayAudio& job = Job();
    if (job.TrackGains().Size() < Tracks()) return false;
    std::size_t present = 0;
    for (std::uint32_t c = 0; c < Channels(); ++c) present += IsInTrack(c) ? 1 : 0;
    std::size_t wanted = 0;
    for (std::size_t t = 0; t < Tracks(); ++t) {
      wanted += static_cast<std::size_t>(job.TrackChannelCounts()[t]);
      if (job.LimiterNeeded()[t] && Probe::TruePeakMeters(Job())[t]->GetBank() == nullptr) {
        return false;
      }
    }
    return present == wanted;
  }

  void Deliver(InputBytes* bytes, std::uint32_t* samplesLeft) {
    const unsigned kind = bytes->Byte();
    const unsigned shape = bytes->Byte();
    std::uint32_t frames = bytes->Byte();
    if (shape % 4 == 3) frames *= 8;
    if (shape % 32 == 31) frames *= 4;
    if (!isInSequence) return;
    const std::uint32_t channels = Channels();
    if (!IsFirstOfTwo() && channels > kPcmUnitChannels) return;
    if (IsOfTwoPasses() && !IsFirstOfTwo() && !IsSecondPassAllowed()) return;
    frames = std::min(frames, *samplesLeft / std::max(channels, 1U));
    *samplesLeft -= frames * channels;

    const bool isSingle = !IsOfTwoPasses();
    waiting.samples.resize(isSingle ? channels : 0);
    ExactUnit unit(frames, channels);
    std::uint32_t noise = kind * 2654435761U + shape;
    for (std::uint32_t c = 0; c < std::min<std::uint32_t>(channels, kPcmUnitChannels); ++c) {
      // What is not read need not be there.
      if (IsFirstOfTwo() && !IsInTrack(c)) continue;
      constexpr std::uint32_t kStrides[] = {1, 2, 0, 9};
      const std::uint32_t stride = kStrides[(shape / 4 + c * (shape / 128)) % std::size(kStrides)];
      unit.SetChannel(c, stride, [&](std::size_t i) { return Sample(kind, i, &noise); });
      if (!isSingle) continue;
      const PcmUnit& record = *unit.Record();
      for (std::size_t s = 0; s < frames; ++s) {
        waiting.samples[c].push_back(record.data[c][s * stride]);
      }
    }
    std::uint32_t flag = 7;
    const bool isFirst = IsFirstOfTwo();
    Require(xDeliverPcmUnit(handle, kind, unit.Record(), &flag) == kDone, "a unit is taken");
    Require(unit.Releases() == 1, "a unit is released once");
    Require(flag == (isFirst ? 0U : 1U), "the flag tells of output");
    if (!isFirst && channels > 0) waiting.frames += frames;
  }

  static std::int16_t Sample(unsigned kind, std::size_t i, std::uint32_t* noise) {
    *noise = *noise * 1664525U + 1013904223U;
    const auto wide = static_cast<std::int16_t>(*noise >> 16);
    switch (kind % 8) {
      case 0:
        return 0;
      case 1:
        return wide;
      case 2:
        return static_cast<std::int16_t>(wide / 64);
      case 3:
        return i / (1 + kind / 8) % 2 == 0 ? std::int16_t{32767} : std::int16_t{-32768};
      case 4:
        return -32768;
      case 5:
        return static_cast<std::int16_t>(i * kind);
      case 6:
        return i % (2 + kind / 8) == 0 ? std::int16_t{32767} : std::int16_t{0};
      default:
        return static_cast<std::int16_t>(kind);
    }
  }

  void DeliverNothing() {
    std::uint32_t flag = 7;
    const bool isFirst = IsFirstOfTwo();
    Require(xDeliverPcmUnit(handle, 0, nullptr, &flag) == kDone, "no unit is taken");
    Require(flag == (isFirst ? 0U : 7U), "the flag is left alone but for a first pass of two");
  }

  void Fetch() {
    if (!isInSequence || Channels() == 0 || Channels() > kPcmUnitChannels) return;
    PcmUnit* unit = nullptr;
    std::uint32_t flag = 7;
    Require(xFetchPcmUnit(handle, 0, &unit, &flag) == kDone, "output is fetched");
    Require(flag == 0, "nothing waits any more");
    Require(unit->type == kPcmUnitType, "a unit has its type");
    Require(unit->sampleCount == waiting.frames, "all frames that waited come");
    for (std::uint32_t c = 0; c < kPcmUnitChannels; ++c) {
      Require((unit->data[c] != nullptr) == (c < Channels()), "each channel has its samples");
    }
    for (std::size_t c = 0; c < waiting.samples.size() && waiting.frames > 0; ++c) {
      Require(waiting.samples[c].size() == waiting.frames, "the driver kept what it delivered");
      for (std::uint32_t s = 0; s < waiting.frames; ++s) {
        CheckCopy(waiting.samples[c][s], unit->data[c][s]);
      }
    }
    Require(unit->release(unit) == 0, "a unit is released");
    waiting = {};
  }

  // A pass without gain moves a sample by one step at most, towards zero.
  static void CheckCopy(int in, int out) {
    in = std::max(in, -32767);
    const int step = std::abs(in) - std::abs(out);
    Require((step == 0 || step == 1) && (out == 0 || (in < 0) == (out < 0)), "a sample is copied");
  }

  void EndPass() {
    if (!isInSequence) return;
    const int passes = Probe::NumberOfPasses(Job());
    const std::uint32_t pass = Probe::CurrentPass(Job());
    Require(xEndPass(handle) == kDone, "a pass ends");
    if ((passes == 1 && pass == 0) || (passes == 2 && pass <= 1))
      rows += static_cast<int>(Tracks());
    waiting = {};
  }

  void EndSequence() {
    Require(xEndSequence(handle) == kDone, "a sequence ends");
    isInSequence = false;
    waiting = {};
  }

  void Describe() const {
    InstanceInformation information;
    Require(xGetInstanceInformation(handle, &information) == kDone, "information is given");
    for (const auto& give : {xGetParameterScheme, xEnumInputInfo, xGetErrorMessage}) {
      InfoBuffer* info = nullptr;
      Require(give(handle, &info) == kDone && info->size > 0, "a text or a format is given");
      Require(info->release(info) == 0, "what was given is released");
    }
  }

  void* handle = nullptr;
  bool isInSequence = false;
  Delivered waiting;
  int rows = 0;  // of the log, so far
};

// All rows are in the log, whole.
void CheckLog(int rows) {
  harvane::WriteWaitingLogRows();
  const std::string path = LogFolder().FileIn(std::string(kLogName) + ".csv");
  const std::string text = support::ReadBytes(path);
  std::filesystem::remove(path);
  const harvane::LogReading log = harvane::ReadLog(text);
  // The oldest of many rows are trimmed away.
  constexpr std::size_t kTrimmedFrom = 100000;
  if (text.size() > kTrimmedFrom) return;
  Require(log.problemCount == 0, "every line of the log is a row or of the banner");
  Require(log.tracks.size() == static_cast<std::size_t>(rows), "every row is in the log");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  InputBytes input(bytes, size);
  std::optional<Host> hosts[kInstances];
  std::uint32_t samplesLeft = kMostSamples;
  int rows = 0;
  const auto close = [&rows](std::optional<Host>* host) {
    if (*host) rows += (*host)->Rows();
    host->reset();
  };
  Require(xClose(nullptr) == kDone, "no instance closes");
  for (int call = 0; call < kMostCalls && !input.IsEmpty(); ++call) {
    const unsigned head = input.Byte();
    const unsigned kind = head % kCallKinds;
    std::optional<Host>& host = hosts[head / kCallKinds % kInstances];
    if (kind == kCallKinds - 1) {
      close(&host);
    } else if (!host) {
      host.emplace();
      if (kind != 0) host->Begin(&input);
    } else {
      host->Call(kind, &input, &samplesLeft);
    }
  }
  for (std::optional<Host>& host : hosts) close(&host);
  if (rows > 0) CheckLog(rows);
  return 0;
}
