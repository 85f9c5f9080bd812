// Runs the reference jobs of tests/golden/jobs and compares every output sample, every row and
// every value, bit for bit, with what an independent implementation gave.
//
//   reference_jobs --module PATH --jobs FOLDER
//
// Each job runs twice: through the module's file, where samples and rows can be seen, and through
// the module linked into this program, where an observer sees the values as well. FOLDER has
// jobs.txt, the list of the jobs, and one folder for each with its texts and its unpacked audio:
// input.s16 and maybe output.s16, 16 bits, little-endian, channels interleaved.
// Exit status: 0 if everything is equal, 1 if anything differs or is missing, 2 for wrong
// arguments.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/PassObserver.h"
#include "logging/LogMeasurement.h"
#include "normalisation/GainDecision.h"
#include "tests/host/JobRunner.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using harvane::DelayAudio;

// Key to value: a float as its eight digits of bits, a whole number as it is.
using Values = std::map<std::string, std::string>;

struct Reference {
  std::string name;
  twin::JobSpec spec;
  std::uint32_t unitFrames = 0;
  std::vector<std::int16_t> input;
  std::vector<std::int16_t> output;  // only where it is stored whole
  std::size_t outputSamples = 0;
  std::uint64_t outputCrc = 0;
  std::vector<std::string> rows;
  Values values;
};

struct Outcome {
  std::vector<std::int16_t> output;
  std::vector<std::string> rows;
};

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path + " is missing");
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> ReadLines(const std::string& path) {
  std::istringstream text(ReadFile(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  if (lines.empty()) throw std::runtime_error(path + " is empty");
  return lines;
}

std::vector<std::int16_t> ReadSamples(const std::string& path) {
  const std::string bytes = ReadFile(path);
  if (bytes.empty()) throw std::runtime_error(path + " is empty");
  std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
  std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(std::int16_t));
  return samples;
}

// "key value" lines.
std::map<std::string, std::string> ReadPairs(const std::string& path) {
  std::map<std::string, std::string> pairs;
  for (const std::string& line : ReadLines(path)) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string::npos) throw std::runtime_error(path + ": no value in: " + line);
    pairs[line.substr(0, blank)] = line.substr(blank + 1);
  }
  return pairs;
}

// Takes a key out of `pairs`, so that what is left was not understood.
std::string Take(std::map<std::string, std::string>* pairs, const std::string& key) {
  const auto found = pairs->find(key);
  if (found == pairs->end()) throw std::runtime_error("no " + key);
  const std::string value = found->second;
  pairs->erase(found);
  return value;
}

// A key of a pass or a decision has five or four words, any other one. The decimal that stands
// before the bits is left out.
Values ReadValues(const std::string& path) {
  Values values;
  for (const std::string& line : ReadLines(path)) {
    std::istringstream text(line);
    std::vector<std::string> words;
    for (std::string word; text >> word;) words.push_back(word);
    const std::string& kind = words.front();
    if (kind == "precision") continue;  // of the other implementation's intermediates
    const std::size_t keyWords = kind == "pass" ? 5 : kind == "decision" ? 4 : 1;
    if (words.size() <= keyWords) throw std::runtime_error(path + ": no value in: " + line);
    std::string key = kind;
    for (std::size_t i = 1; i < keyWords; ++i) key += ' ' + words[i];
    const std::size_t first = keyWords == 1 ? 1 : words.size() - 1;
    std::string value = words[first];
    for (std::size_t i = first + 1; i < words.size(); ++i) value += ' ' + words[i];
    values[key] = value;
  }
  if (values.empty()) throw std::runtime_error(path + " has no values");
  return values;
}

float Number(const std::string& text) {
  return static_cast<float>(std::strtod(text.c_str(), nullptr));
}

Reference ReadReference(const std::string& name, const std::string& jobs) {
  const std::string folder = jobs + "/" + name;
  Reference reference;
  reference.name = name;
  auto pairs = ReadPairs(folder + "/job.txt");
  twin::JobSpec& spec = reference.spec;
  spec.sampleRate = std::stoi(Take(&pairs, "sampleRate"));
  spec.channels = std::stoi(Take(&pairs, "channels"));
  spec.numberOfPasses = std::stoi(Take(&pairs, "numberOfPasses"));
  spec.numberOfGroups = std::stoi(Take(&pairs, "numberOfGroups"));
  for (int g = 0; g < spec.numberOfGroups; ++g) {
    spec.formats[g] = std::stoi(Take(&pairs, "format" + std::to_string(g + 1)));
  }
  spec.normalisationMode = std::stoi(Take(&pairs, "normalisationMode"));
  spec.loudness = Number(Take(&pairs, "Loudness"));
  spec.shortTermLoudness = Number(Take(&pairs, "ShortTermLoudness"));
  spec.maxTp = Number(Take(&pairs, "MaxTP"));
  spec.frameRate = Number(Take(&pairs, "frameRate"));
  spec.entryName = Take(&pairs, "entryName");
  reference.unitFrames = static_cast<std::uint32_t>(std::stoi(Take(&pairs, "unitFrames")));
  if (!pairs.empty()) throw std::runtime_error(name + ": unknown key " + pairs.begin()->first);

  reference.input = ReadSamples(folder + "/input.s16");
  if (std::ifstream(folder + "/output.txt").good()) {
    auto summary = ReadPairs(folder + "/output.txt");
    reference.outputSamples = std::stoul(Take(&summary, "samples"));
    reference.outputCrc = std::stoull(Take(&summary, "crc64"), nullptr, 16);
  } else {
    reference.output = ReadSamples(folder + "/output.s16");
    reference.outputSamples = reference.output.size();
    reference.outputCrc = hosttest::Crc64(reference.output);
  }
  reference.rows = ReadLines(folder + "/rows.csv");
  reference.values = ReadValues(folder + "/values.txt");
  return reference;
}

std::string Bits(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  char text[12];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(bits));
  return text;
}

// Notes the values of each track at the end of a pass, from the instance itself.
class ValueRecorder {
 public:
  explicit ValueRecorder(void* handle) : handle(handle) {
    harvane::SetPassObserver(handle, {Note, this});
  }

  void StartPass(int number) {
    pass = number;
    track = 0;
  }
  // Once the format is set.
  void NoteFormat() {
    DelayAudio& job = Job();
    values["sampleRate"] = std::to_string(Probe::SampleRate(job));
    values["channels"] = std::to_string(Probe::InputFormat(job).channels);
    values["blockSize"] = std::to_string(Probe::BlockSize(job));
    values["timecodeFrameRate"] = std::to_string(Probe::TimecodeFrameRate(job));
    values["trackCount"] = std::to_string(Probe::TrackCount(job));
    Join("trackChannelCounts", job.TrackChannelCounts());
    std::vector<int> tracks;
    std::vector<int> positions;
    for (int c = 0; c < harvane::kMaxChannels; ++c) {
      tracks.push_back(Probe::TrackOfChannel(job, c));
      positions.push_back(Probe::ChannelIndexInTrack(job, c));
    }
    Join("trackOfChannel", tracks);
    Join("channelIndexInTrack", positions);
  }
  // After the end of the first pass of two.
  void NoteDecisions() {
    DelayAudio& job = Job();
    for (std::size_t t = 0; t < job.TrackGains().Size(); ++t) {
      const std::string key = "decision track " + std::to_string(t) + " ";
      values[key + "trackGain"] = Bits(job.TrackGains()[t]);
      values[key + "limiterNeeded"] = job.LimiterNeeded()[t] ? "1" : "0";
      values[key + "limiterThreshold"] = Bits(job.Limiters()[t]->Threshold());
    }
  }
  // After the end of the second pass.
  void NoteLimiters() {
    DelayAudio& job = Job();
    for (std::size_t t = 0; t < job.Limiters().Size(); ++t) {
      values["decision track " + std::to_string(t) + " limiterFinalPeakHold"] =
          Bits(job.Limiters()[t]->PeakHold(0));
    }
  }

  const Values& Noted() const { return values; }

 private:
  using Probe = harvane::DelayAudioProbe;

  DelayAudio& Job() const { return *static_cast<DelayAudio*>(handle); }

  template <class List>
  void Join(const std::string& key, const List& numbers) {
    std::string text;
    for (const int number : numbers) text += (text.empty() ? "" : " ") + std::to_string(number);
    values[key] = text;
  }

  static void Note(const harvane::LogMeasurement& measurement, void* context) {
    auto& recorder = *static_cast<ValueRecorder*>(context);
    const auto t = static_cast<std::size_t>(recorder.track++);
    DelayAudio& job = recorder.Job();
    const harvane::TrackMeasurement& result = job.Results()[t];
    const harvane::LoudnessMeter& meter = *job.Meters()[t];
    Values& values = recorder.values;
    const std::string key =
        "pass " + std::to_string(recorder.pass) + " track " + std::to_string(t) + " ";
    values[key + "maxMomentary"] = Bits(measurement.maxMomentary);
    values[key + "maxMomentaryPosition"] = std::to_string(result.maxMomentaryPosition);
    values[key + "maxShortTerm"] = Bits(measurement.maxShortTerm);
    values[key + "maxShortTermPosition"] = std::to_string(result.maxShortTermPosition);
    values[key + "integratedLoudness"] = Bits(measurement.integratedLoudness);
    values[key + "loudnessRange"] = Bits(measurement.loudnessRange);
    values[key + "maxTruePeak"] = Bits(measurement.maxTruePeak);
    values[key + "maxTruePeakPosition"] = std::to_string(result.maxTruePeakPosition);
    values[key + "integratedRelativeGate"] = Bits(meter.IntegratedSeries().RelativeGate());
    values[key + "rangeRelativeGate"] = Bits(meter.RangeSeries().RelativeGate());
    values[key + "recentLow"] = Bits(meter.Recent().low);
    values[key + "recentHigh"] = Bits(meter.Recent().high);
    if (recorder.pass > 0 || Probe::NumberOfPasses(job) != 2) return;
    const harvane::NormalisationTargets targets = {
        Probe::NormalisationMode(job), Probe::Loudness(job), Probe::ShortTermLoudness(job),
        Probe::MaxTP(job)};
    const harvane::GainDecision decision = harvane::DecideGain(result, targets);
    const std::string decisionKey = "decision track " + std::to_string(t) + " ";
    values[decisionKey + "gainDb"] = Bits(decision.gainDb);
    values[decisionKey + "headroom"] = Bits(decision.headroomDb);
  }

  void* handle;
  int pass = 0;
  int track = 0;
  Values values;
};

std::vector<std::int16_t> RunFile(const harvane::ModuleExports& exports, const Reference& reference,
                                  const std::string& logFolder) {
  hosttest::Delivery delivery;
  delivery.unitFrames = {reference.unitFrames};
  hosttest::JobRunner job(exports, reference.spec, logFolder, reference.name);
  job.StartSequence();
  std::vector<std::int16_t> output = job.RunPass(0, reference.input, delivery);
  if (reference.spec.numberOfPasses == 2) output = job.RunPass(1, reference.input, delivery);
  job.EndSequence();
  return output;
}

std::vector<std::int16_t> RunLinked(const Reference& reference, const std::string& logFolder,
                                    Values* values) {
  hosttest::Delivery delivery;
  delivery.unitFrames = {reference.unitFrames};
  hosttest::JobRunner job(harvane::LinkedModuleExports(), reference.spec, logFolder,
                          reference.name);
  ValueRecorder recorder(job.Handle());
  recorder.NoteFormat();
  job.StartSequence();
  recorder.StartPass(0);
  std::vector<std::int16_t> output = job.RunPass(0, reference.input, delivery);
  if (reference.spec.numberOfPasses == 2) {
    recorder.NoteDecisions();
    recorder.StartPass(1);
    output = job.RunPass(1, reference.input, delivery);
    recorder.NoteLimiters();
  }
  job.EndSequence();
  *values = recorder.Noted();
  return output;
}

class Report {
 public:
  void Differs(const std::string& what, const std::string& problem) {
    if (problem.empty()) return;
    ++differences;
    std::printf("DIFFERS %s: %s\n", what.c_str(), problem.c_str());
  }
  void CompareOutput(const std::string& what, const Reference& reference,
                     const std::vector<std::int16_t>& output) {
    samples += output.size();
    if (output.size() == reference.outputSamples &&
        hosttest::Crc64(output) == reference.outputCrc) {
      return;
    }
    // The twin names the sample where the reference's own output is not at hand.
    const std::vector<std::int16_t> wanted =
        reference.output.empty() ? twin::RunJob(reference.spec, reference.input).output
                                 : reference.output;
    const std::string place = hosttest::Difference(wanted, output);
    Differs(what, place.empty() ? "another checksum than the reference's" : place);
  }
  void CompareValues(const std::string& what, const Values& wanted, const Values& got) {
    for (const auto& [key, value] : wanted) {
      const auto found = got.find(key);
      ++valuesCompared;
      const std::string came = found == got.end() ? "nothing" : found->second;
      if (came != value) Differs(what, key + " wanted " + value + ", came " + came);
    }
    for (const auto& [key, value] : got) {
      if (wanted.count(key) == 0) Differs(what, key + " not wanted, came " + value);
    }
  }
  int Summary(std::size_t jobs) const {
    std::printf("%u jobs, %llu output samples, %u values: %d differences\n",
                static_cast<unsigned>(jobs), static_cast<unsigned long long>(samples),
                valuesCompared, differences);
    return differences == 0 && jobs > 0 && valuesCompared > 0 ? 0 : 1;
  }

 private:
  int differences = 0;
  unsigned valuesCompared = 0;
  std::size_t samples = 0;
};

int Run(const std::string& modulePath, const std::string& jobs) {
  std::vector<Reference> references;
  for (const std::string& name : ReadLines(jobs + "/jobs.txt")) {
    references.push_back(ReadReference(name, jobs));
  }
  Report report;
  const support::TemporaryFolder fileLogs;
  {
    const harvane::LoadedModule module(modulePath);
    int rows = 0;
    for (const Reference& reference : references) {
      report.CompareOutput(reference.name + " through the file", reference,
                           RunFile(module.Exports(), reference, fileLogs.Text()));
      rows += static_cast<int>(reference.rows.size());
    }
    hosttest::QueueFillerRows(module.Exports(), fileLogs.Text(), rows);
  }
  const support::TemporaryFolder linkedLogs;
  for (const Reference& reference : references) {
    const std::string what = reference.name + " linked";
    Values values;
    report.CompareOutput(what, reference, RunLinked(reference, linkedLogs.Text(), &values));
    report.CompareValues(what, reference.values, values);
  }
  harvane::WriteWaitingLogRows();
  for (const Reference& reference : references) {
    for (const support::TemporaryFolder* folder : {&fileLogs, &linkedLogs}) {
      const std::string path = hosttest::LogFilePath(folder->Text(), reference.name);
      report.Differs(reference.name + (folder == &fileLogs ? " through the file" : " linked"),
                     hosttest::Difference(reference.rows, hosttest::ReadRows(path)));
    }
  }
  return report.Summary(references.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::map<std::string, std::string> options;
  for (int i = 1; i + 1 < argc; i += 2) options[argv[i]] = argv[i + 1];
  if (options.count("--module") + options.count("--jobs") != 2) {
    std::fprintf(stderr, "usage: reference_jobs --module PATH --jobs FOLDER\n");
    return 2;
  }
  try {
    return Run(options["--module"], options["--jobs"]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
