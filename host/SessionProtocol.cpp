#include "host/SessionProtocol.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace harvane {
namespace {

static_assert(std::endian::native == std::endian::little, "samples travel as they lie in memory");

constexpr std::size_t kStepBytes = 1U << 16U;

constexpr const char* kExportNames[] = {
    "xOpen",          "xClose",           "xGetInstanceInformation",
    "xSetParameter",  "xEnumInputInfo",   "xGetParameterScheme",
    "xSetInputInfo",  "xEnumOutputInfo",  "xGetErrorMessage",
    "xSetOutputInfo", "xStartSequenceEx", "xStartPassEx",
    "xEndPass",       "xDeliverPcmUnit",  "xFetchPcmUnit",
    "xEndSequence"};

// Returns how many came; fewer than `size` only where the stream ended.
std::size_t Fill(const ByteSource& source, std::uint8_t* bytes, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const std::size_t count = source(bytes + filled, size - filled);
    if (count == 0) break;
    filled += count;
  }
  return filled;
}

void Append(Frame* frame, const void* bytes, std::size_t size) {
  if (size == 0) return;
  const std::size_t before = frame->payload.size();
  frame->payload.resize(before + size);
  std::memcpy(frame->payload.data() + before, bytes, size);
}

void AppendNumber(Frame* frame, std::uint32_t number) { Append(frame, &number, sizeof number); }

// Takes a payload apart from its front.
class PayloadCursor {
 public:
  explicit PayloadCursor(const Frame& frame) : frame(frame) {}

  std::uint32_t Number() {
    std::uint32_t number = 0;
    if (Left() < sizeof number) throw ProtocolError("a payload is too short");
    std::memcpy(&number, frame.payload.data() + position, sizeof number);
    position += sizeof number;
    return number;
  }

  std::string Text() {
    std::string text(frame.payload.begin() + static_cast<std::ptrdiff_t>(position),
                     frame.payload.end());
    position = frame.payload.size();
    return text;
  }

  void Samples(std::vector<std::int16_t>* samples) {
    if (Left() % sizeof(std::int16_t) != 0) throw ProtocolError("half a sample");
    if (Left() == 0) return;
    const std::size_t before = samples->size();
    samples->resize(before + Left() / sizeof(std::int16_t));
    std::memcpy(samples->data() + before, frame.payload.data() + position, Left());
    position = frame.payload.size();
  }

  std::size_t Left() const { return frame.payload.size() - position; }

 private:
  const Frame& frame;
  std::size_t position = 0;
};

}  // namespace

bool ReceiveFrame(const ByteSource& source, Frame* frame) {
  std::uint8_t header[8];
  const std::size_t came = Fill(source, header, sizeof header);
  if (came == 0) return false;
  if (came < sizeof header) throw ProtocolError("the stream ended within a frame");
  std::uint32_t length = 0;
  std::memcpy(&frame->kind, header, sizeof frame->kind);
  std::memcpy(&length, header + sizeof frame->kind, sizeof length);
  if (length > kMaxPayloadBytes) throw ProtocolError("a frame is too long");
  frame->payload.clear();
  while (frame->payload.size() < length) {
    const std::size_t before = frame->payload.size();
    const std::size_t step = std::min(length - before, std::max(kStepBytes, before));
    frame->payload.resize(before + step);
    if (Fill(source, frame->payload.data() + before, step) < step) {
      throw ProtocolError("the stream ended within a frame");
    }
  }
  return true;
}

void SendFrame(const ByteSink& sink, const Frame& frame) {
  if (frame.payload.size() > kMaxPayloadBytes) throw ProtocolError("a frame is too long");
  const auto length = static_cast<std::uint32_t>(frame.payload.size());
  std::uint8_t header[8];
  std::memcpy(header, &frame.kind, sizeof frame.kind);
  std::memcpy(header + sizeof frame.kind, &length, sizeof length);
  sink(header, sizeof header);
  if (length != 0) sink(frame.payload.data(), length);
}

Frame EmptyFrame(FrameKind kind) { return {kind, {}}; }

Frame NumberFrame(FrameKind kind, std::uint32_t number) {
  Frame frame = {kind, {}};
  AppendNumber(&frame, number);
  return frame;
}

Frame TextFrame(FrameKind kind, const std::string& text) {
  return {kind, {text.begin(), text.end()}};
}

Frame SetupFrame(const SessionSetup& setup) {
  Frame frame = {kConfigure, {}};
  AppendNumber(&frame, setup.format.sampleRate);
  AppendNumber(&frame, setup.format.channels);
  const auto& video = setup.format.videoFrameRate;
  AppendNumber(&frame, video ? 1 : 0);
  AppendNumber(&frame, video ? video->numerator : 0);
  AppendNumber(&frame, video ? video->denominator : 0);
  Append(&frame, setup.parameterXml.data(), setup.parameterXml.size());
  return frame;
}

Frame DeliverFrame(const std::int16_t* samples, std::uint32_t frames, std::uint32_t channels) {
  const std::uint64_t count = std::uint64_t{frames} * channels;
  if (count > kMaxUnitBytes / sizeof *samples) throw ProtocolError("a unit is too long");
  Frame frame = {kDeliver, {}};
  const std::size_t bytes = static_cast<std::size_t>(count) * sizeof *samples;
  frame.payload.reserve(sizeof frames + bytes);
  AppendNumber(&frame, frames);
  Append(&frame, samples, bytes);
  return frame;
}

Frame AudioFrame(const std::vector<std::int16_t>& samples) {
  Frame frame = {kAudio, {}};
  Append(&frame, samples.data(), samples.size() * sizeof(std::int16_t));
  return frame;
}

Frame RefusalFrame(const ModuleRefusal& refusal) {
  Frame frame = {kRefusal, {}};
  AppendNumber(&frame, refusal.Code());
  Append(&frame, refusal.ExportName(), std::strlen(refusal.ExportName()));
  return frame;
}

void ExpectEmpty(const Frame& frame) {
  if (!frame.payload.empty()) throw ProtocolError("a payload where none belongs");
}

std::uint32_t TakeNumber(const Frame& frame) {
  PayloadCursor cursor(frame);
  const std::uint32_t number = cursor.Number();
  if (cursor.Left() != 0) throw ProtocolError("a payload is too long");
  return number;
}

std::string TakeText(const Frame& frame) { return PayloadCursor(frame).Text(); }

SessionSetup TakeSetup(const Frame& frame) {
  PayloadCursor cursor(frame);
  SessionSetup setup;
  setup.format.sampleRate = cursor.Number();
  setup.format.channels = cursor.Number();
  const std::uint32_t hasVideo = cursor.Number();
  const std::uint32_t numerator = cursor.Number();
  const std::uint32_t denominator = cursor.Number();
  if (hasVideo > 1) throw ProtocolError("a video frame rate that is neither there nor missing");
  if (hasVideo == 1) setup.format.videoFrameRate = {numerator, denominator};
  setup.parameterXml = cursor.Text();
  return setup;
}

std::uint32_t TakeDelivery(const Frame& frame, std::uint32_t channels,
                           std::vector<std::int16_t>* samples) {
  PayloadCursor cursor(frame);
  const std::uint32_t frames = cursor.Number();
  if (cursor.Left() % sizeof(std::int16_t) != 0 ||
      cursor.Left() / sizeof(std::int16_t) != std::uint64_t{frames} * channels) {
    throw ProtocolError("a unit whose samples are not its frames");
  }
  cursor.Samples(samples);
  return frames;
}

void TakeAudio(const Frame& frame, std::vector<std::int16_t>* samples) {
  PayloadCursor(frame).Samples(samples);
}

ModuleRefusal TakeRefusal(const Frame& frame) {
  PayloadCursor cursor(frame);
  const std::uint32_t code = cursor.Number();
  const std::string name = cursor.Text();
  const auto* const known = std::find(std::begin(kExportNames), std::end(kExportNames), name);
  if (known == std::end(kExportNames)) throw ProtocolError("a refusal by no export: " + name);
  return {*known, code};
}

}  // namespace harvane
