#include "tests/host/JobRunner.h"

#include <boost/crc.hpp>
#include <cstdio>
#include <memory>

#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

namespace hosttest {
namespace {

constexpr std::uint32_t kJunkFlag = 0xABCD;

void Require(bool isKept, const std::string& rule) {
  if (!isKept) throw RuleBroken(rule);
}

void RequireDone(const char* exportName, std::uint32_t code) {
  Require(code == 0, std::string(exportName) + " answered " + std::to_string(code));
}

std::string Shortest(float value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
  return text;
}

// Ends a record of the module.
struct Ended {
  template <class Record>
  void operator()(Record* record) const {
    record->release(record);
  }
};

}  // namespace

std::string DocumentFor(const twin::JobSpec& spec, const std::string& logPath,
                        const std::string& logFileName) {
  support::ParameterTexts texts;
  texts.numberOfPasses = std::to_string(spec.numberOfPasses);
  texts.numberOfGroups = std::to_string(spec.numberOfGroups);
  for (std::size_t g = 0; g < 4; ++g) texts.formats[g] = std::to_string(spec.formats[g]);
  texts.normalisationMode = std::to_string(spec.normalisationMode);
  texts.Loudness = Shortest(spec.loudness);
  texts.ShortTermLoudness = Shortest(spec.shortTermLoudness);
  texts.MaxTP = Shortest(spec.maxTp);
  texts.frameRate = Shortest(spec.frameRate);
  if (!spec.entryName.empty()) texts.logEntryName = spec.entryName;
  if (!logPath.empty()) {
    texts.logPath = logPath;
    texts.logFileName = logFileName;
  }
  return support::ParameterDocument(texts);
}

support::Blob BlobFor(const twin::JobSpec& spec) {
  const auto rate = static_cast<std::uint32_t>(spec.sampleRate);
  const auto channels = static_cast<std::uint32_t>(spec.channels);
  if (!spec.hasVideo) return support::FormatBlob(rate, channels);
  return support::FormatBlobWithVideo(
      rate, channels, support::Vide(spec.frameRateNumerator, spec.frameRateDenominator));
}

JobRunner::JobRunner(const harvane::ModuleExports& exports, const twin::JobSpec& spec,
                     const std::string& logPath, const std::string& logFileName)
    : exports(exports), spec(spec) {
  RequireDone("xOpen", exports.xOpen(&handle));
  RequireDone("xSetParameter",
              exports.xSetParameter(handle, DocumentFor(spec, logPath, logFileName).c_str()));
  support::CountedInfo input(BlobFor(spec));
  RequireDone("xSetInputInfo", exports.xSetInputInfo(handle, input.Record()));
  Require(input.Releases() == 1, "the input information is released once");
  InfoBuffer* offered = nullptr;
  RequireDone("xEnumOutputInfo", exports.xEnumOutputInfo(handle, &offered));
  const std::unique_ptr<InfoBuffer, Ended> offer(offered);
  const auto* const first = static_cast<const unsigned char*>(offer->data);
  support::CountedInfo output(support::Blob(first, first + offer->size));
  RequireDone("xSetOutputInfo", exports.xSetOutputInfo(handle, output.Record()));
  Require(output.Releases() == 1, "the output information is released once");
}

JobRunner::~JobRunner() { exports.xClose(handle); }

void JobRunner::StartSequence() {
  RequireDone("xStartSequenceEx", exports.xStartSequenceEx(handle, nullptr));
}

void JobRunner::StartPass(std::uint32_t passNumber) {
  const PassArgument pass = {passNumber};
  RequireDone("xStartPassEx", exports.xStartPassEx(handle, &pass));
  currentPass = passNumber;
}

void JobRunner::Deliver(const std::int16_t* interleaved, std::uint32_t frames,
                        support::Arrangement arrangement) {
  support::CountedUnit unit(interleaved, frames, static_cast<std::uint32_t>(spec.channels),
                            arrangement);
  std::uint32_t flag = kJunkFlag;
  RequireDone("xDeliverPcmUnit", exports.xDeliverPcmUnit(handle, 0, unit.Record(), &flag));
  Require(unit.Releases() == 1, "a delivered unit is released once");
  const bool isFirstOfTwo = spec.numberOfPasses == 2 && currentPass == 0;
  Require(flag == (isFirstOfTwo ? 0U : 1U), "the out-flag says whether output waits");
}

void JobRunner::Fetch(std::vector<std::int16_t>* output) {
  PcmUnit* fetched = nullptr;
  std::uint32_t flag = kJunkFlag;
  RequireDone("xFetchPcmUnit", exports.xFetchPcmUnit(handle, 0, &fetched, &flag));
  Require(flag == 0, "nothing waits behind a fetch");
  const std::unique_ptr<PcmUnit, Ended> unit(fetched);
  for (std::uint32_t s = 0; s < unit->sampleCount; ++s) {
    for (std::size_t c = 0; c < static_cast<std::size_t>(spec.channels); ++c) {
      output->push_back(unit->data[c][s * unit->stride[c]]);
    }
  }
}

std::vector<std::int16_t> JobRunner::RunPass(std::uint32_t passNumber,
                                             const std::vector<std::int16_t>& interleaved,
                                             const Delivery& delivery) {
  StartPass(passNumber);
  const bool givesBack = spec.numberOfPasses != 2 || passNumber != 0;
  const auto channels = static_cast<std::size_t>(spec.channels);
  const std::size_t frames = interleaved.size() / channels;
  std::vector<std::int16_t> output;
  std::size_t done = 0;
  int units = 0;
  while (done < frames) {
    const std::size_t wanted =
        delivery.unitFrames[static_cast<std::size_t>(units) % delivery.unitFrames.size()];
    const std::size_t count = wanted < frames - done ? wanted : frames - done;
    Deliver(interleaved.data() + done * channels, static_cast<std::uint32_t>(count),
            delivery.arrangement);
    done += count;
    ++units;
    if (givesBack && (units % delivery.fetchEvery == 0 || done == frames)) Fetch(&output);
  }
  EndPass();
  return output;
}

void JobRunner::EndPass() { RequireDone("xEndPass", exports.xEndPass(handle)); }

void JobRunner::EndSequence() { RequireDone("xEndSequence", exports.xEndSequence(handle)); }

std::string LogFilePath(const std::string& folder, const std::string& fileStem) {
  return (std::filesystem::path(folder) / (fileStem + ".csv")).string();
}

std::vector<std::string> ReadRows(const std::string& path) {
  const std::string bytes = support::ReadBytes(path);
  Require(!bytes.empty(), "the log file " + path + " exists");
  const std::string started = "Log started: ";
  const std::size_t startLine = bytes.find(started);
  Require(startLine != std::string::npos, "a log file begins with its banner");
  const std::size_t startEnd = bytes.find("\r\n", startLine);
  Require(startEnd != std::string::npos, "the start time ends its line");
  const std::string startTime =
      bytes.substr(startLine + started.size(), startEnd - startLine - started.size());
  const std::string banner = twin::BannerBytes(startTime);
  Require(bytes.compare(0, banner.size(), banner) == 0, "a log file begins with its banner");

  const std::string rowEnd = "\n\r\n";
  std::vector<std::string> rows;
  std::size_t start = banner.size();
  while (start < bytes.size()) {
    const std::size_t end = bytes.find(rowEnd, start);
    Require(end != std::string::npos, "a row ends in LF, CR, LF");
    rows.push_back(bytes.substr(start, end - start));
    start = end + rowEnd.size();
  }
  return rows;
}

void QueueFillerRows(const harvane::ModuleExports& exports, const std::string& folder, int count) {
  constexpr int kTracks = 16;
  twin::JobSpec spec;
  spec.numberOfPasses = 1;
  spec.numberOfGroups = 4;
  for (int& format : spec.formats) format = 5;
  spec.entryName = "filler";
  JobRunner runner(exports, spec, folder, "filler");
  runner.StartSequence();
  for (int queued = 0; queued < count; queued += kTracks) {
    runner.StartPass(0);
    runner.EndPass();
  }
  runner.EndSequence();
}

std::uint64_t Crc64(const void* bytes, std::size_t size) {
  boost::crc_optimal<64, 0x42F0E1EBA9EA3693ULL, 0xFFFFFFFFFFFFFFFFULL, 0xFFFFFFFFFFFFFFFFULL, true,
                     true>
      crc;
  crc.process_bytes(bytes, size);
  return crc.checksum();
}

std::uint64_t Crc64(const std::vector<std::int16_t>& samples) {
  return Crc64(samples.data(), samples.size() * sizeof(std::int16_t));
}

std::uint64_t Crc64(const std::vector<std::string>& rows) {
  std::string text;
  for (const std::string& row : rows) text += row + "\n";
  return Crc64(text.data(), text.size());
}

std::string Hex(std::uint64_t value) {
  char text[20];
  std::snprintf(text, sizeof text, "%08x%08x", static_cast<unsigned>(value >> 32),
                static_cast<unsigned>(value & 0xFFFFFFFFU));
  return text;
}

std::string Difference(const std::vector<std::int16_t>& wanted,
                       const std::vector<std::int16_t>& got) {
  if (wanted.size() != got.size()) {
    return std::to_string(wanted.size()) + " samples wanted, " + std::to_string(got.size()) +
           " came";
  }
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (wanted[i] != got[i]) {
      return "sample " + std::to_string(i) + ": wanted " + std::to_string(wanted[i]) + ", came " +
             std::to_string(got[i]);
    }
  }
  return {};
}

std::string Difference(const std::vector<std::string>& wanted,
                       const std::vector<std::string>& got) {
  for (std::size_t i = 0; i < wanted.size() || i < got.size(); ++i) {
    const std::string want = i < wanted.size() ? wanted[i] : "(none)";
    const std::string came = i < got.size() ? got[i] : "(none)";
    if (want != came) {
      return "row " + std::to_string(i) + ": wanted\n    " + want + "\n  came\n    " + came;
    }
  }
  return {};
}

}  // namespace hosttest
