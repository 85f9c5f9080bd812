// The module with one fault planted at its boundary, the one that PlantedFault.c of the same module
// names. What a fault needs to know of a job is taken from the calls.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "delay_audio/Exports.h"
#include "delay_audio/PassObserver.h"
#include "tests/tool/broken_modules/PlantedFault.h"

namespace {

bool Is(Fault fault) { return kPlantedFault == fault; }

constexpr std::uint32_t kNoFrame = 0xFFFFFFFF;
constexpr std::uint32_t kDelayFrames = 95;

// What is known of an instance.
struct Job {
  std::uint32_t channels = 0;
  std::uint32_t pass = 0;
  std::vector<std::uint32_t> firstInput = std::vector<std::uint32_t>(kPcmUnitChannels, kNoFrame);
  std::vector<bool> isLate = std::vector<bool>(kPcmUnitChannels);
  std::uint32_t framesIn = 0;
  std::uint32_t framesOut = 0;
  bool hasLostFrame = false;
  std::vector<std::int16_t> lastInput;  // planar, as it came
};

std::mutex jobsLock;
std::map<void*, Job>& Jobs() {
  static std::map<void*, Job> jobs;
  return jobs;
}

Job& JobOf(void* handle) {
  const std::lock_guard lock(jobsLock);
  return Jobs()[handle];
}

std::uint32_t ChannelsOf(const InfoBuffer& info) {
  const auto* const bytes = static_cast<const unsigned char*>(info.data);
  std::uint32_t channels = 0;
  for (std::uint32_t at = 0; at + sizeof(ChunkHeader) <= info.size;) {
    ChunkHeader header;
    std::memcpy(&header, bytes + at, sizeof header);
    at += sizeof header;
    if (header.tag == HARVANE_TAG_LPCM) std::memcpy(&channels, bytes + at + 8, sizeof channels);
    at += header.size;
  }
  return channels;
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

std::int16_t Scaled(std::int16_t sample, double decibels) {
  const double scaled = sample * std::pow(10.0, decibels / 20.0);
  return static_cast<std::int16_t>(std::lround(std::clamp(scaled, -32767.0, 32767.0)));
}

[[noreturn]] void Crash() {
  std::raise(SIGSEGV);
  std::abort();
}

// Keeps a copy of the samples, for what comes out.
void Remember(Job* job, const PcmUnit& unit) {
  const std::uint32_t channels = std::min<std::uint32_t>(job->channels, kPcmUnitChannels);
  job->lastInput.clear();
  for (std::uint32_t c = 0; c < channels && unit.data[c] != nullptr; ++c) {
    for (std::uint32_t s = 0; s < unit.sampleCount; ++s) {
      const std::int16_t sample = unit.data[c][s * unit.stride[c]];
      job->lastInput.push_back(sample);
      if (sample != 0 && job->firstInput[c] == kNoFrame) job->firstInput[c] = job->framesIn + s;
    }
  }
  job->framesIn += unit.sampleCount;
}

void SpoilInput(const Job& job, PcmUnit* unit) {
  if (Is(kChannelsSwapped)) {
    if (job.channels >= 6) std::swap(unit->data[3], unit->data[4]);
  }
  if (Is(kStridesTakenForBytes)) {
    for (std::uint32_t& stride : unit->stride) stride = stride == 3 ? 1 : stride;
  }
  if (Is(kMeasuresTooLoud)) {
    for (std::uint32_t c = 0; c < job.channels && unit->stride[c] != 0; ++c) {
      for (std::uint32_t s = 0; s < unit->sampleCount; ++s) {
        std::int16_t& sample = unit->data[c][s * unit->stride[c]];
        sample = Scaled(sample, 0.2);
      }
    }
  }
}

// Finds the tracks that come out late, which are the limited ones.
void FindDelays(Job* job, const PcmUnit& unit) {
  for (std::uint32_t c = 0; c < std::min<std::uint32_t>(job->channels, kPcmUnitChannels); ++c) {
    for (std::uint32_t s = 0; s < unit.sampleCount; ++s) {
      if (unit.data[c][s] == 0) continue;
      if (job->firstInput[c] + kDelayFrames == job->framesOut + s) job->isLate[c] = true;
      break;
    }
  }
}

void SpoilOutput(Job* job, PcmUnit* unit) {
  FindDelays(job, *unit);
  const std::uint32_t count = unit->sampleCount;
  for (std::uint32_t c = 0; c < std::min<std::uint32_t>(job->channels, kPcmUnitChannels); ++c) {
    std::int16_t* const first = unit->data[c];
    std::int16_t* const last = first + count;
    const auto scale = [&](double decibels) {
      std::transform(first, last, first, [&](std::int16_t s) { return Scaled(s, decibels); });
    };
    if (Is(kGainOffByATenth)) {
      if (job->pass == 1) scale(0.1);
    }
    if (Is(kPeakOverTheCeiling)) {
      if (job->isLate[c]) scale(0.5);
    }
    if (Is(kDelayTakenOut)) {
      if (job->isLate[c] && count > kDelayFrames) {
        std::fill(std::copy(first + kDelayFrames, last, first), last, std::int16_t{0});
      }
    }
    if (Is(kRoundsToNearest)) {
      if (job->pass == 0 && job->lastInput.size() == std::size_t{count} * job->channels) {
        std::copy_n(job->lastInput.begin() + c * count, count, first);
      }
    }
  }
  if (Is(kFrameLost)) {
    if (job->pass == 1 && count > 0 && !job->hasLostFrame) {
      job->hasLostFrame = true;
      --unit->sampleCount;
    }
  }
  job->framesOut += count;
}

int openInstances = 0;

}  // namespace

extern "C" {

// The module's own exports, compiled under these names.
decltype(xOpen) real_xOpen;
decltype(xClose) real_xClose;
decltype(xGetInstanceInformation) real_xGetInstanceInformation;
decltype(xGetParameterScheme) real_xGetParameterScheme;
decltype(xGetErrorMessage) real_xGetErrorMessage;
decltype(xSetParameter) real_xSetParameter;
decltype(xEnumInputInfo) real_xEnumInputInfo;
decltype(xSetInputInfo) real_xSetInputInfo;
decltype(xEnumOutputInfo) real_xEnumOutputInfo;
decltype(xSetOutputInfo) real_xSetOutputInfo;
decltype(xStartSequenceEx) real_xStartSequenceEx;
decltype(xStartPassEx) real_xStartPassEx;
decltype(xDeliverPcmUnit) real_xDeliverPcmUnit;
decltype(xFetchPcmUnit) real_xFetchPcmUnit;
decltype(xEndPass) real_xEndPass;
decltype(xEndSequence) real_xEndSequence;

HARVANE_EXPORT std::uint32_t xSeventeenth();

std::uint32_t xOpen(void** handle) {
  if (Is(kOneHandleForAll)) {
    static void* only = nullptr;
    if (only == nullptr) real_xOpen(&only);
    *handle = only;
    return 0;
  }
  if (++openInstances > 1 && Is(kCrashesAtTheSecondInstance)) Crash();
  const std::uint32_t code = real_xOpen(handle);
  const std::lock_guard lock(jobsLock);
  Jobs()[*handle] = Job();
  return code;
}

std::uint32_t xClose(void* handle) {
  if (Is(kOneHandleForAll)) return 0;
  if (handle != nullptr) --openInstances;
  {
    const std::lock_guard lock(jobsLock);
    Jobs().erase(handle);
  }
  return real_xClose(handle);
}

std::uint32_t xGetInstanceInformation(void* handle, InstanceInformation* information) {
  const std::uint32_t code = real_xGetInstanceInformation(handle, information);
  if (Is(kInformationTooLong)) {
    std::memset(reinterpret_cast<char*>(information) + sizeof *information, 0, 4);
  }
  return code;
}

std::uint32_t xGetParameterScheme(void* handle, InfoBuffer** scheme) {
  const std::uint32_t code = real_xGetParameterScheme(handle, scheme);
  if (Is(kSchemeWithoutItsNul)) --(*scheme)->size;
  return code;
}

std::uint32_t xGetErrorMessage(void* handle, InfoBuffer** message) {
  if (Is(kErrorMessageSpeaks)) {
    return real_xGetParameterScheme(handle, message);
  }
  return real_xGetErrorMessage(handle, message);
}

std::uint32_t xSetParameter(void* handle, const char* xml) {
  std::string document = xml;
  if (Is(kLogRowsBroken)) {
    document = Replaced(document, "</logEntryName>", "\nrest</logEntryName>");
  }
  if (Is(kFrameRateForgotten)) {
    document = Replaced(document, "<frameRate>", "<frameRate>0</frameRate><frameRate>");
  }
  if (Is(kStrayWriteAtAFifthGroup)) {
    if (document.find("<numberOfGroups>5") != std::string::npos) Crash();
  }
  const std::uint32_t code = real_xSetParameter(handle, document.c_str());
  return Is(kWrongCodeForMissingValue) && code == 4 ? 3 : code;
}

std::uint32_t xEnumInputInfo(void* handle, InfoBuffer** info) {
  const std::uint32_t code = real_xEnumInputInfo(handle, info);
  if (Is(kOfferOfAnotherRate)) {
    const std::uint32_t rate = 44100;
    std::memcpy(static_cast<unsigned char*>((*info)->data) + 84, &rate, sizeof rate);
  }
  return code;
}

std::uint32_t xSetInputInfo(void* handle, InfoBuffer* info) {
  JobOf(handle).channels = ChannelsOf(*info);
  return real_xSetInputInfo(handle, info);
}

std::uint32_t xEnumOutputInfo(void* handle, InfoBuffer** info) {
  return real_xEnumOutputInfo(handle, info);
}

std::uint32_t xSetOutputInfo(void* handle, InfoBuffer* info) {
  const std::uint32_t code = real_xSetOutputInfo(handle, info);
  if (Is(kAcceptsAnyOutputFormat) && code != 0) {
    info->release(info);
    return 0;
  }
  return code;
}

std::uint32_t xStartSequenceEx(void* handle, void* unused) {
  if (Is(kLeaksAMegabyteAJob)) {
    constexpr std::size_t kMegabyte = 1U << 20U;
    static std::vector<void*> kept;
    kept.push_back(std::malloc(kMegabyte));
    std::memset(kept.back(), 0x5A, kMegabyte);
  }
  return real_xStartSequenceEx(handle, unused);
}

std::uint32_t xStartPassEx(void* handle, const PassArgument* pass) {
  Job& job = JobOf(handle);
  const std::uint32_t channels = job.channels;
  job = Job();
  job.channels = channels;
  job.pass = pass->passNumber;
  return real_xStartPassEx(handle, pass);
}

std::uint32_t xDeliverPcmUnit(void* handle, std::uint32_t unused, PcmUnit* unit,
                              std::uint32_t* outFlag) {
  Job& job = JobOf(handle);
  ReleaseFunction release = nullptr;
  if (unit != nullptr) {
    SpoilInput(job, unit);
    Remember(&job, *unit);
    release = unit->release;
  }
  const std::uint32_t code = real_xDeliverPcmUnit(handle, unused, unit, outFlag);
  if (Is(kUnitReleasedTwice) && release != nullptr) release(unit);
  if (Is(kOutFlagInTheFirstPass) && job.pass == 0) *outFlag = 1;
  return code;
}

std::uint32_t xFetchPcmUnit(void* handle, std::uint32_t unused, PcmUnit** unit,
                            std::uint32_t* outFlag) {
  Job& job = JobOf(handle);
  if (Is(kGoesOnWithoutChannels) && job.channels == 0) {
    *outFlag = 0;
    return 0;
  }
  const std::uint32_t code = real_xFetchPcmUnit(handle, unused, unit, outFlag);
  if (code == 0) SpoilOutput(&job, *unit);
  return code;
}

std::uint32_t xEndPass(void* handle) {
  if (Is(kHangsAtTheEndOfAPass)) {
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  return real_xEndPass(handle);
}

std::uint32_t xEndSequence(void* handle) {
  const std::uint32_t code = real_xEndSequence(handle);
  if (Is(kLogRowsWrittenAtOnce)) harvane::WriteWaitingLogRows();
  return code;
}

// Shown by the list of exports of one module only.
std::uint32_t xSeventeenth() { return 0; }

}  // extern "C"
