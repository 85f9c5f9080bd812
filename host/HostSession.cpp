#include "host/HostSession.h"

#include <emmintrin.h>

#include <cstring>
#include <memory>

namespace harvane {
namespace {

constexpr std::int32_t kBitsPerSample = 16;

// Ends a record that the module has handed out.
template <class Record>
struct Released {
  void operator()(Record* record) const { record->release(record); }
};
template <class Record>
using Received = std::unique_ptr<Record, Released<Record>>;

// The host's own records: memory of this module, freed by this module.
uint32_t HARVANE_CALL FreeInfoBuffer(void* record) {
  auto* const info = static_cast<InfoBuffer*>(record);
  delete[] static_cast<unsigned char*>(info->data);
  delete info;
  return 0;
}

uint32_t HARVANE_CALL FreePcmUnit(void* record) {
  delete static_cast<PcmUnit*>(record);
  return 0;
}

void AppendChunk(std::vector<unsigned char>* blob, std::uint32_t tag, const void* payload,
                 std::uint32_t size) {
  const ChunkHeader header = {tag, size};
  const auto append = [blob](const void* bytes, std::size_t count) {
    const auto* const first = static_cast<const unsigned char*>(bytes);
    blob->insert(blob->end(), first, first + count);
  };
  append(&header, sizeof header);
  append(payload, size);
}

InfoBuffer* MakeHostBuffer(const std::vector<unsigned char>& blob) {
  auto info = std::make_unique<InfoBuffer>();
  info->data = std::memcpy(new unsigned char[blob.size()], blob.data(), blob.size());
  info->size = static_cast<std::uint32_t>(blob.size());
  info->release = FreeInfoBuffer;
  return info.release();
}

std::vector<unsigned char> FormatBlob(const SessionFormat& format) {
  std::vector<unsigned char> blob;
  if (format.videoFrameRate) {
    VidePayload video{};
    video.frameRateNumerator = format.videoFrameRate->numerator;
    video.frameRateDenominator = format.videoFrameRate->denominator;
    AppendChunk(&blob, HARVANE_TAG_VIDE, &video, sizeof video);
  }
  LpcmPayload lpcm{};
  lpcm.sampleRate = format.sampleRate;
  lpcm.channels = format.channels;
  lpcm.bitsPerSample = kBitsPerSample;
  AppendChunk(&blob, HARVANE_TAG_LPCM, &lpcm, sizeof lpcm);
  return blob;
}

// As AppendInterleaved, of two channels without gaps.
void InterleavePair(const std::int16_t* left, const std::int16_t* right, std::size_t count,
                    std::int16_t* target) {
  constexpr std::size_t kLanes = 8;
  std::size_t s = 0;
  for (; s + kLanes <= count; s += kLanes) {
    const __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(left + s));
    const __m128i r = _mm_loadu_si128(reinterpret_cast<const __m128i*>(right + s));
    auto* const place = reinterpret_cast<__m128i*>(target + 2 * s);
    _mm_storeu_si128(place, _mm_unpacklo_epi16(l, r));
    _mm_storeu_si128(place + 1, _mm_unpackhi_epi16(l, r));
  }
  for (; s < count; ++s) {
    target[2 * s] = left[s];
    target[2 * s + 1] = right[s];
  }
}

void AppendInterleaved(const PcmUnit& unit, std::uint32_t channels,
                       std::vector<std::int16_t>* output) {
  const std::size_t start = output->size();
  output->resize(start + static_cast<std::size_t>(unit.sampleCount) * channels);
  if (channels == 2 && unit.stride[0] == 1 && unit.stride[1] == 1) {
    InterleavePair(unit.data[0], unit.data[1], unit.sampleCount, output->data() + start);
    return;
  }
  for (std::uint32_t c = 0; c < channels; ++c) {
    const std::int16_t* source = unit.data[c];
    std::int16_t* target = output->data() + start + c;
    for (std::uint32_t s = 0; s < unit.sampleCount; ++s) {
      *target = *source;
      source += unit.stride[c];
      target += channels;
    }
  }
}

}  // namespace

ModuleRefusal::ModuleRefusal(const char* exportName, std::uint32_t code)
    : std::runtime_error("the module's " + std::string(exportName) + " answered " +
                         std::to_string(code)),
      exportName(exportName),
      code(code) {}

HostSession::HostSession(const ModuleExports& exports) : exports(&exports) {
  Check("xOpen", exports.xOpen(&handle));
}

HostSession::~HostSession() { exports->xClose(handle); }

void HostSession::Configure(const std::string& parameterXml, const SessionFormat& format) {
  Check("xSetParameter", exports->xSetParameter(handle, parameterXml.c_str()));
  InfoBuffer* offered = nullptr;
  Check("xEnumInputInfo", exports->xEnumInputInfo(handle, &offered));
  const Received<InfoBuffer> inputOffer(offered);
  InfoBuffer* const input = MakeHostBuffer(FormatBlob(format));
  const std::uint32_t inputCode = exports->xSetInputInfo(handle, input);
  if (inputCode != 0) input->release(input);
  Check("xSetInputInfo", inputCode);
  Check("xEnumOutputInfo", exports->xEnumOutputInfo(handle, &offered));
  const Received<InfoBuffer> outputOffer(offered);
  const auto* const first = static_cast<const unsigned char*>(outputOffer->data);
  InfoBuffer* const echo = MakeHostBuffer({first, first + outputOffer->size});
  const std::uint32_t outputCode = exports->xSetOutputInfo(handle, echo);
  if (outputCode != 0) echo->release(echo);
  Check("xSetOutputInfo", outputCode);
  channels = format.channels;
}

void HostSession::StartSequence() {
  Check("xStartSequenceEx", exports->xStartSequenceEx(handle, nullptr));
}

void HostSession::StartPass(std::uint32_t passNumber) {
  const PassArgument pass = {passNumber};
  Check("xStartPassEx", exports->xStartPassEx(handle, &pass));
}

void HostSession::Deliver(const std::int16_t* interleaved, std::uint32_t frames,
                          std::vector<std::int16_t>* output) {
  auto unit = std::make_unique<PcmUnit>();
  unit->type = kPcmUnitType;
  unit->release = FreePcmUnit;
  for (std::uint32_t c = 0; c < channels && c < kPcmUnitChannels; ++c) {
    // The module only reads what it is handed.
    unit->data[c] = const_cast<std::int16_t*>(interleaved) + c;
    unit->stride[c] = channels;
  }
  unit->sampleCount = frames;
  std::uint32_t isOutputWaiting = 0;
  const std::uint32_t code = exports->xDeliverPcmUnit(handle, 0, unit.get(), &isOutputWaiting);
  if (code == 0) static_cast<void>(unit.release());  // released by the module
  Check("xDeliverPcmUnit", code);
  if (isOutputWaiting == 0) return;
  PcmUnit* fetched = nullptr;
  Check("xFetchPcmUnit", exports->xFetchPcmUnit(handle, 0, &fetched, &isOutputWaiting));
  const Received<PcmUnit> given(fetched);
  AppendInterleaved(*given, channels, output);
}

void HostSession::EndPass() { Check("xEndPass", exports->xEndPass(handle)); }

void HostSession::EndSequence() { Check("xEndSequence", exports->xEndSequence(handle)); }

void HostSession::Check(const char* exportName, std::uint32_t code) const {
  if (code != 0) throw ModuleRefusal(exportName, code);
}

}  // namespace harvane
