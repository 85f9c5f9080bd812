#ifndef HARVANE_TOOL_VALIDATE_MODULEINSTANCE_H
#define HARVANE_TOOL_VALIDATE_MODULEINSTANCE_H

#include <cstdint>
#include <string>
#include <vector>

#include "delay_audio/HostRecords.h"
#include "tool/validate/CountedRecords.h"
#include "tool/validate/TestRun.h"

namespace harvane {

using Bytes = std::vector<unsigned char>;
using Samples = std::vector<std::int16_t>;  // interleaved where there are channels

// The values of a parameter document as they stand there, unescaped.
struct JobTexts {
  std::string numberOfPasses = "2";
  std::string numberOfGroups = "1";
  std::vector<std::string> formats = {"2"};  // of the first groups
  std::string normalisationMode = "0";
  std::string Loudness = "-23";
  std::string ShortTermLoudness = "-20";
  std::string MaxTP = "-1";
  std::string logPath;
  std::string logFileName;
  std::string logEntryName;
  std::string frameRate = "0";
};

// `without` names an element that is left out; `empty` one that has no text.
std::string DocumentOf(const JobTexts& texts, const std::string& without = "",
                       const std::string& empty = "");

// Texts whose log is the file `stem` in the test's folder.
JobTexts TextsFor(const TestRun& run, const std::string& stem, const std::string& entryName);

// ---- format blobs

void AppendChunk(Bytes* blob, std::uint32_t tag, const Bytes& payload, std::uint32_t declaredSize);
// The payload with 0xEE in all that the module does not interpret.
Bytes LpcmPayloadOf(std::uint32_t sampleRate, std::uint32_t channels);
Bytes VidePayloadOf(std::uint32_t numerator, std::uint32_t denominator);
Bytes FormatBlobOf(std::uint32_t sampleRate, std::uint32_t channels);

// ---- the instance

// One instance of the module under test. Every call's result code, every out-flag and every
// release of a record is checked as it comes; a wrong one ends the test. What a test wants to go
// wrong it calls through Run().Module() itself.
class ModuleInstance {
 public:
  explicit ModuleInstance(TestRun& run);
  // Closes the instance, without ending a sequence.
  ~ModuleInstance();
  ModuleInstance(const ModuleInstance&) = delete;
  ModuleInstance& operator=(const ModuleInstance&) = delete;

  void* Handle() const { return handle; }

  // Answer with the code.
  std::uint32_t SetParameter(const std::string& xml);
  std::uint32_t SetInput(const Bytes& blob);
  std::uint32_t StartSequence();

  // Parameters, format and sequence, in the order of a host.
  void Begin(const JobTexts& texts, std::uint32_t sampleRate, std::uint32_t channelCount);
  void StartPass(std::uint32_t number);
  void Deliver(const std::int16_t* interleaved, std::uint32_t frames,
               Arrangement arrangement = Arrangement::kInterleaved);
  void Deliver(const Samples& interleaved);
  // All that waits, interleaved.
  Samples Fetch();
  void EndPass();
  void EndSequence();

  // A pass over the whole in units of `unitFrames`; the output.
  Samples Pass(std::uint32_t number, const Samples& interleaved, std::uint32_t unitFrames = 4096);
  // A sequence of one or two passes, as the texts of Begin say. The output.
  Samples Sequence(const Samples& interleaved, std::uint32_t unitFrames = 4096);

 private:
  TestRun& run;
  const ModuleExports& exports;
  void* handle = nullptr;
  std::uint32_t channels = 0;
  std::uint32_t currentPass = 0;
  bool hasTwoPasses = false;
};

// The bytes of a module's InfoBuffer, all of whose fields are checked; it is released.
Bytes TakeBlob(TestRun& run, InfoBuffer* record, const std::string& maker);

// One job from its instance's start to its end, all of it. The output.
Samples RunJob(TestRun& run, const JobTexts& texts, std::uint32_t sampleRate,
               std::uint32_t channels, const Samples& interleaved);

// ---- signals

// `decibels` is the peak, of full scale; `seconds` long. Begins at 0 and rises unless `phase`, in
// turns, says otherwise.
Samples Tone(double frequency, double decibels, double seconds, std::uint32_t sampleRate,
             double phase = 0.0);
Samples Silence(double seconds, std::uint32_t sampleRate);
void Append(Samples* signal, const Samples& more);
// Channels of one length side by side.
Samples Interleaved(const std::vector<Samples>& channels);
// The same signal on all channels.
Samples OnChannels(const Samples& signal, std::size_t channels);
// One channel out of `channels`.
Samples ChannelOf(const Samples& interleaved, std::size_t channel, std::size_t channels);
// Uniform noise, the same everywhere for one seed.
Samples Noise(std::uint64_t seed, std::size_t count, int amplitude);

// The amplitude, in dB of full scale, of a steady tone between two frames of one channel.
double ToneLevel(const Samples& signal, std::size_t first, std::size_t last);

// What a single pass makes of a sample: to single precision and back, towards zero.
std::int16_t RoundTrip(std::int16_t sample);

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_MODULEINSTANCE_H
