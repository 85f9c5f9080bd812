// Compares the slow twin with one reference job, bit for bit.
//
//   CheckVectors FOLDER
//
// FOLDER holds job.txt ("key value" lines), input.s16 and output.s16 (16 bits, little-endian,
// channels interleaved), rows.csv (one row a line) and values.txt ("key... value [bits]" lines).
// Exit status: 0 if everything is equal, 1 if anything differs, 2 if something is missing or
// cannot be understood.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/twin/Job.h"

namespace {

std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::vector<std::string> ReadLines(const std::string& path) {
  std::istringstream text(ReadBytes(path));
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(text, line)) lines.push_back(line);
  return lines;
}

std::vector<std::int16_t> ReadSamples(const std::string& path) {
  const std::string bytes = ReadBytes(path);
  if (bytes.size() % 2 != 0) throw std::runtime_error("odd length of " + path);
  std::vector<std::int16_t> samples;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    const unsigned low = static_cast<unsigned char>(bytes[i]);
    const unsigned high = static_cast<unsigned char>(bytes[i + 1]);
    samples.push_back(static_cast<std::int16_t>(low | (high << 8)));
  }
  return samples;
}

// What a text is worth as a parameter: the number at its start, with a point.
double NumberAtStart(const std::string& text) { return std::strtod(text.c_str(), nullptr); }

twin::JobSpec ReadJob(const std::string& path) {
  twin::JobSpec spec;
  for (const std::string& line : ReadLines(path)) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string::npos) throw std::runtime_error("no value in " + path + ": " + line);
    const std::string key = line.substr(0, blank);
    const std::string text = line.substr(blank + 1);
    const double number = NumberAtStart(text);
    const int whole = static_cast<int>(number);
    if (key == "sampleRate") {
      spec.sampleRate = whole;
    } else if (key == "channels") {
      spec.channels = whole;
    } else if (key == "numberOfPasses") {
      spec.numberOfPasses = whole;
    } else if (key == "numberOfGroups") {
      spec.numberOfGroups = whole;
    } else if (key == "format1" || key == "format2" || key == "format3" || key == "format4") {
      spec.formats[key[6] - '1'] = whole;
    } else if (key == "normalisationMode") {
      spec.normalisationMode = whole;
    } else if (key == "Loudness") {
      spec.loudness = static_cast<float>(number);
    } else if (key == "ShortTermLoudness") {
      spec.shortTermLoudness = static_cast<float>(number);
    } else if (key == "MaxTP") {
      spec.maxTp = static_cast<float>(number);
    } else if (key == "frameRate") {
      spec.frameRate = static_cast<float>(number);
    } else if (key == "entryName") {
      spec.entryName = text;
    } else if (key != "unitFrames") {  // units leave no trace in any result
      throw std::runtime_error("unknown key in " + path + ": " + key);
    }
  }
  return spec;
}

std::string Bits(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  char text[16];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(bits));
  return text;
}

template <typename List>
std::string Joined(const List& numbers) {
  std::string text;
  for (int number : numbers) text += (text.empty() ? "" : " ") + std::to_string(number);
  return text;
}

std::map<std::string, std::string> ValuesOf(const twin::JobSpec& spec,
                                            const twin::JobResult& result) {
  std::map<std::string, std::string> values;
  values["sampleRate"] = std::to_string(spec.sampleRate);
  values["channels"] = std::to_string(spec.channels);
  values["blockSize"] = std::to_string(result.blockSize);
  values["timecodeFrameRate"] = std::to_string(result.timecodeFrameRate);
  values["trackCount"] = std::to_string(result.layout.trackCount);
  values["trackChannelCounts"] = Joined(result.layout.trackChannelCounts);
  values["trackOfChannel"] = Joined(result.layout.trackOfChannel);
  values["channelIndexInTrack"] = Joined(result.layout.channelIndexInTrack);
  for (std::size_t p = 0; p < result.passes.size(); ++p) {
    for (std::size_t t = 0; t < result.passes[p].size(); ++t) {
      const twin::TrackReport& track = result.passes[p][t];
      const std::string head = "pass " + std::to_string(p) + " track " + std::to_string(t) + " ";
      values[head + "maxMomentary"] = Bits(track.values.maxMomentary);
      values[head + "maxMomentaryPosition"] = std::to_string(track.values.maxMomentaryPosition);
      values[head + "maxShortTerm"] = Bits(track.values.maxShortTerm);
      values[head + "maxShortTermPosition"] = std::to_string(track.values.maxShortTermPosition);
      values[head + "integratedLoudness"] = Bits(track.values.integratedLoudness);
      values[head + "loudnessRange"] = Bits(track.values.loudnessRange);
      values[head + "maxTruePeak"] = Bits(track.values.maxTruePeak);
      values[head + "maxTruePeakPosition"] = std::to_string(track.values.maxTruePeakPosition);
      values[head + "recentLow"] = Bits(track.recentLow);
      values[head + "recentHigh"] = Bits(track.recentHigh);
      values[head + "integratedRelativeGate"] = Bits(track.integratedRelativeGate);
      values[head + "rangeRelativeGate"] = Bits(track.rangeRelativeGate);
    }
  }
  for (std::size_t t = 0; t < result.decisions.size(); ++t) {
    const twin::Decision& decision = result.decisions[t];
    const std::string head = "decision track " + std::to_string(t) + " ";
    values[head + "gainDb"] = Bits(decision.gainDb);
    values[head + "headroom"] = Bits(decision.headroom);
    values[head + "trackGain"] = Bits(decision.trackGain);
    values[head + "limiterNeeded"] = decision.limiterNeeded ? "1" : "0";
    values[head + "limiterThreshold"] = Bits(decision.limiterThreshold);
    values[head + "limiterFinalPeakHold"] = Bits(result.limiterFinalPeakHold.at(t));
  }
  return values;
}

// A line's key and its value: the bits where it has them. Keys of passes and decisions have
// five and four words, all others one.
std::pair<std::string, std::string> SplitValueLine(const std::string& line) {
  std::size_t keyWords = 1;
  if (line.rfind("pass ", 0) == 0) keyWords = 5;
  if (line.rfind("decision ", 0) == 0) keyWords = 4;
  std::size_t end = 0;
  for (std::size_t word = 0; word < keyWords; ++word) {
    end = line.find(' ', word == 0 ? 0 : end + 1);
    if (end == std::string::npos) throw std::runtime_error("value line too short: " + line);
  }
  std::string value = line.substr(end + 1);
  const std::size_t blank = value.find(' ');
  if (keyWords > 1 && blank != std::string::npos) value = value.substr(blank + 1);
  return {line.substr(0, end), value};
}

int Check(const std::string& folder) {
  const twin::JobSpec spec = ReadJob(folder + "/job.txt");
  const twin::JobResult result = twin::RunJob(spec, ReadSamples(folder + "/input.s16"));
  std::size_t differences = 0;
  if (result.endsProcess || result.sequenceRefused) {
    std::printf("  the job did not run to its end\n");
    ++differences;
  }

  std::map<std::string, std::string> values = ValuesOf(spec, result);
  std::size_t valuesCompared = 0;
  for (const std::string& line : ReadLines(folder + "/values.txt")) {
    if (line.rfind("precision ", 0) == 0) continue;
    const auto [key, expected] = SplitValueLine(line);
    const auto found = values.find(key);
    const std::string actual = found == values.end() ? "nothing" : found->second;
    if (actual != expected) {
      std::printf("  %s: expected %s, got %s\n", key.c_str(), expected.c_str(), actual.c_str());
      ++differences;
    }
    if (found != values.end()) values.erase(found);
    ++valuesCompared;
  }
  for (const auto& [key, value] : values) {
    std::printf("  %s: not expected, got %s\n", key.c_str(), value.c_str());
    ++differences;
  }

  const std::vector<std::string> rows = ReadLines(folder + "/rows.csv");
  for (std::size_t i = 0; i < rows.size() || i < result.rows.size(); ++i) {
    const std::string expected = i < rows.size() ? rows[i] : "nothing";
    const std::string actual = i < result.rows.size() ? result.rows[i] : "nothing";
    if (expected == actual) continue;
    std::printf("  row %u\n    expected %s\n    got      %s\n", static_cast<unsigned>(i),
                expected.c_str(), actual.c_str());
    ++differences;
  }

  const std::vector<std::int16_t> output = ReadSamples(folder + "/output.s16");
  if (output.size() != result.output.size()) {
    std::printf("  samples: expected %u, got %u\n", static_cast<unsigned>(output.size()),
                static_cast<unsigned>(result.output.size()));
    ++differences;
  }
  std::size_t samplesDiffering = 0;
  for (std::size_t i = 0; i < output.size() && i < result.output.size(); ++i) {
    if (output[i] == result.output[i]) continue;
    if (samplesDiffering == 0) {
      std::printf("  first differing sample %u: expected %d, got %d\n", static_cast<unsigned>(i),
                  output[i], result.output[i]);
    }
    ++samplesDiffering;
  }
  differences += samplesDiffering;

  std::printf("%s %s: %u values, %u rows, %u samples, %u differences\n",
              differences == 0 ? "equal" : "DIFFERS", folder.c_str(),
              static_cast<unsigned>(valuesCompared), static_cast<unsigned>(rows.size()),
              static_cast<unsigned>(output.size()), static_cast<unsigned>(differences));
  return differences == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: CheckVectors FOLDER\n");
    return 2;
  }
  try {
    return Check(argv[1]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 2;
  }
}
