#include "tool/validate/ModuleInstance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <utility>

namespace harvane {
namespace {

constexpr std::uint32_t kJunkFlag = 0xABCD;
constexpr double kFullScale = 32767.0;

std::string Element(const std::string& name, const std::string& text, const std::string& without,
                    const std::string& empty) {
  if (name == without) return "";
  return "<" + name + ">" + (name == empty ? "" : text) + "</" + name + ">";
}

void PutWord(Bytes* bytes, std::size_t offset, std::uint32_t word) {
  std::memcpy(bytes->data() + offset, &word, sizeof word);
}

bool IsZero(const std::uint8_t* bytes, std::size_t count) {
  return std::all_of(bytes, bytes + count, [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

std::string DocumentOf(const JobTexts& texts, const std::string& without,
                       const std::string& empty) {
  constexpr std::array kFormatNames = {"firstGroupChannelsFormat", "secondGroupChannelsFormat",
                                       "thirdGroupChannelsFormat", "fourthGroupChannelsFormat"};
  const auto put = [&](const std::string& name, const std::string& text) {
    return Element(name, text, without, empty);
  };
  std::string xml = "<parameter><audio>" + put("numberOfPasses", texts.numberOfPasses) +
                    put("numberOfGroups", texts.numberOfGroups);
  for (std::size_t g = 0; g < texts.formats.size(); ++g) {
    xml += put(kFormatNames.at(g), texts.formats[g]);
  }
  return xml + "</audio><normalization>" + put("normalisationMode", texts.normalisationMode) +
         put("Loudness", texts.Loudness) + put("ShortTermLoudness", texts.ShortTermLoudness) +
         put("MaxTP", texts.MaxTP) + "</normalization><logging>" + put("logPath", texts.logPath) +
         put("logFileName", texts.logFileName) + put("logEntryName", texts.logEntryName) +
         put("frameRate", texts.frameRate) + "</logging></parameter>";
}

JobTexts TextsFor(const TestRun& run, const std::string& stem, const std::string& entryName) {
  JobTexts texts;
  texts.logPath = run.Folder();
  texts.logFileName = stem;
  texts.logEntryName = entryName;
  return texts;
}

void AppendChunk(Bytes* blob, std::uint32_t tag, const Bytes& payload, std::uint32_t declaredSize) {
  const std::size_t start = blob->size();
  blob->resize(start + sizeof(ChunkHeader));
  PutWord(blob, start, tag);
  PutWord(blob, start + 4, declaredSize);
  blob->insert(blob->end(), payload.begin(), payload.end());
}

Bytes LpcmPayloadOf(std::uint32_t sampleRate, std::uint32_t channels) {
  Bytes payload(sizeof(LpcmPayload), kJunkByte);
  PutWord(&payload, 4, sampleRate);
  PutWord(&payload, 8, channels);
  return payload;
}

Bytes VidePayloadOf(std::uint32_t numerator, std::uint32_t denominator) {
  Bytes payload(sizeof(VidePayload), kJunkByte);
  PutWord(&payload, 20, numerator);
  PutWord(&payload, 24, denominator);
  return payload;
}

Bytes FormatBlobOf(std::uint32_t sampleRate, std::uint32_t channels) {
  Bytes blob;
  AppendChunk(&blob, HARVANE_TAG_LPCM, LpcmPayloadOf(sampleRate, channels), sizeof(LpcmPayload));
  return blob;
}

ModuleInstance::ModuleInstance(TestRun& run) : run(run), exports(run.Module()) {
  run.RequireCode(0, exports.xOpen(&handle), "xOpen");
}

ModuleInstance::~ModuleInstance() { run.ExpectCode(0, exports.xClose(handle), "xClose"); }

std::uint32_t ModuleInstance::SetParameter(const std::string& xml) {
  return exports.xSetParameter(handle, xml.c_str());
}

std::uint32_t ModuleInstance::SetInput(const Bytes& blob) {
  CountedInfo info(blob);
  const std::uint32_t code = exports.xSetInputInfo(handle, info.Record());
  run.ExpectEqual(code == 0 ? 1 : 0, info.Releases(), "releases of xSetInputInfo's record");
  return code;
}

std::uint32_t ModuleInstance::StartSequence() { return exports.xStartSequenceEx(handle, nullptr); }

void ModuleInstance::Begin(const JobTexts& texts, std::uint32_t sampleRate,
                           std::uint32_t channelCount) {
  run.RequireCode(0, SetParameter(DocumentOf(texts)), "xSetParameter");
  run.RequireCode(0, SetInput(FormatBlobOf(sampleRate, channelCount)), "xSetInputInfo");
  InfoBuffer* offer = nullptr;
  run.RequireCode(0, exports.xEnumOutputInfo(handle, &offer), "xEnumOutputInfo");
  CountedInfo echo(TakeBlob(run, offer, "xEnumOutputInfo"));
  run.RequireCode(0, exports.xSetOutputInfo(handle, echo.Record()), "xSetOutputInfo");
  run.ExpectEqual(1, echo.Releases(), "releases of xSetOutputInfo's record");
  run.RequireCode(0, StartSequence(), "xStartSequenceEx");
  channels = channelCount;
  hasTwoPasses = texts.numberOfPasses == "2";
}

void ModuleInstance::StartPass(std::uint32_t number) {
  const PassArgument pass = {number};
  run.RequireCode(0, exports.xStartPassEx(handle, &pass), "xStartPassEx");
  currentPass = number;
}

void ModuleInstance::Deliver(const std::int16_t* interleaved, std::uint32_t frames,
                             Arrangement arrangement) {
  CountedUnit unit(interleaved, frames, channels, arrangement);
  std::uint32_t flag = kJunkFlag;
  run.RequireCode(0, exports.xDeliverPcmUnit(handle, 0, unit.Record(), &flag), "xDeliverPcmUnit");
  run.Require(unit.Releases() == 1,
              Joined("xDeliverPcmUnit released its unit ", unit.Releases(), " times"));
  const std::uint32_t wanted = hasTwoPasses && currentPass == 0 ? 0 : 1;
  run.Require(flag == wanted, Joined("xDeliverPcmUnit's out-flag is ", flag, ", not ", wanted));
}

void ModuleInstance::Deliver(const Samples& interleaved) {
  Deliver(interleaved.data(), static_cast<std::uint32_t>(interleaved.size() / channels));
}

Samples ModuleInstance::Fetch() {
  PcmUnit* unit = nullptr;
  std::uint32_t flag = kJunkFlag;
  run.RequireCode(0, exports.xFetchPcmUnit(handle, 0, &unit, &flag), "xFetchPcmUnit");
  run.Require(unit != nullptr, "xFetchPcmUnit stored no unit");
  run.ExpectEqual(0U, flag, "xFetchPcmUnit's out-flag");
  run.ExpectEqual(2U, unit->type, "type of xFetchPcmUnit's unit");
  const std::size_t frames = unit->sampleCount;
  Samples samples(frames * channels);
  for (std::uint32_t c = 0; c < channels; ++c) {
    run.Require(unit->data[c] != nullptr && unit->stride[c] == 1,
                Joined("channel ", c, " of xFetchPcmUnit's unit is not planar"));
    for (std::size_t s = 0; s < frames; ++s) samples[s * channels + c] = unit->data[c][s];
  }
  run.ExpectCode(0, unit->release(unit), "release of xFetchPcmUnit's unit");
  return samples;
}

void ModuleInstance::EndPass() { run.RequireCode(0, exports.xEndPass(handle), "xEndPass"); }

void ModuleInstance::EndSequence() {
  run.RequireCode(0, exports.xEndSequence(handle), "xEndSequence");
}

Samples ModuleInstance::Pass(std::uint32_t number, const Samples& interleaved,
                             std::uint32_t unitFrames) {
  Samples output;
  StartPass(number);
  const std::size_t frames = interleaved.size() / channels;
  for (std::size_t done = 0; done < frames; done += unitFrames) {
    const std::size_t count = std::min<std::size_t>(unitFrames, frames - done);
    Deliver(interleaved.data() + done * channels, static_cast<std::uint32_t>(count));
    if (hasTwoPasses && number == 0) continue;
    const Samples given = Fetch();
    run.Require(given.size() == count * channels,
                Joined("xFetchPcmUnit gave ", given.size() / channels, " frames for ", count));
    output.insert(output.end(), given.begin(), given.end());
  }
  EndPass();
  return output;
}

Samples ModuleInstance::Sequence(const Samples& interleaved, std::uint32_t unitFrames) {
  Samples output = Pass(0, interleaved, unitFrames);
  return hasTwoPasses ? Pass(1, interleaved, unitFrames) : output;
}

Bytes TakeBlob(TestRun& run, InfoBuffer* record, const std::string& maker) {
  run.Require(record != nullptr, maker + " stored no record");
  run.ExpectEqual(0U, record->type, "type of " + maker + "'s record");
  run.Expect(IsZero(record->reserved1, sizeof record->reserved1) &&
                 IsZero(record->reserved2, sizeof record->reserved2),
             "reserved bytes of " + maker + "'s record are not zero");
  run.Require(record->data != nullptr, maker + "'s record has no data");
  run.Require(record->release != nullptr, maker + "'s record has no release");
  const auto* const first = static_cast<const unsigned char*>(record->data);
  Bytes blob(first, first + record->size);
  run.ExpectCode(0, record->release(record), "release of " + maker + "'s record");
  return blob;
}

Samples RunJob(TestRun& run, const JobTexts& texts, std::uint32_t sampleRate,
               std::uint32_t channels, const Samples& interleaved) {
  ModuleInstance job(run);
  job.Begin(texts, sampleRate, channels);
  Samples output = job.Sequence(interleaved);
  job.EndSequence();
  return output;
}

Samples Tone(double frequency, double decibels, double seconds, std::uint32_t sampleRate,
             double phase) {
  const double amplitude = kFullScale * std::pow(10.0, decibels / 20.0);
  const double turns = frequency / sampleRate;
  Samples tone(static_cast<std::size_t>(std::llround(seconds * sampleRate)));
  for (std::size_t i = 0; i < tone.size(); ++i) {
    const double angle = 2.0 * std::numbers::pi * (turns * static_cast<double>(i) + phase);
    tone[i] = static_cast<std::int16_t>(std::lround(amplitude * std::sin(angle)));
  }
  return tone;
}

Samples Silence(double seconds, std::uint32_t sampleRate) {
  return Samples(static_cast<std::size_t>(std::llround(seconds * sampleRate)));
}

void Append(Samples* signal, const Samples& more) {
  signal->insert(signal->end(), more.begin(), more.end());
}

Samples Interleaved(const std::vector<Samples>& channels) {
  const std::size_t frames = channels[0].size();
  Samples frame;
  frame.reserve(frames * channels.size());
  for (std::size_t s = 0; s < frames; ++s) {
    for (const Samples& channel : channels) frame.push_back(channel[s]);
  }
  return frame;
}

Samples OnChannels(const Samples& signal, std::size_t channels) {
  return Interleaved(std::vector<Samples>(channels, signal));
}

Samples ChannelOf(const Samples& interleaved, std::size_t channel, std::size_t channels) {
  Samples samples;
  for (std::size_t i = channel; i < interleaved.size(); i += channels) {
    samples.push_back(interleaved[i]);
  }
  return samples;
}

// SplitMix64.
Samples Noise(std::uint64_t seed, std::size_t count, int amplitude) {
  Samples noise(count);
  for (std::int16_t& sample : noise) {
    std::uint64_t bits = seed += 0x9E3779B97F4A7C15U;
    bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBU;
    const auto below = 2 * static_cast<std::uint64_t>(amplitude) + 1;
    sample = static_cast<std::int16_t>(static_cast<int>((bits ^ (bits >> 31)) % below) - amplitude);
  }
  return noise;
}

double ToneLevel(const Samples& signal, std::size_t first, std::size_t last) {
  double sum = 0.0;
  for (std::size_t i = first; i < last; ++i) sum += double{1.0} * signal[i] * signal[i];
  const double meanSquare = sum / static_cast<double>(last - first) / (kFullScale * kFullScale);
  return 10.0 * std::log10(2.0 * meanSquare);
}

std::int16_t RoundTrip(std::int16_t sample) {
  const auto single = static_cast<float>(sample / kFullScale);
  const double clamped = std::clamp(static_cast<double>(single), -1.0, 1.0);
  return static_cast<std::int16_t>(clamped * kFullScale);
}

}  // namespace harvane
