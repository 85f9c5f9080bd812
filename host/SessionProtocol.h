#ifndef HARVANE_HOST_SESSIONPROTOCOL_H
#define HARVANE_HOST_SESSIONPROTOCOL_H

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/HostSession.h"

// How a RemoteSession and the process that holds its module talk: over two streams of
// bytes, one request, one reply, never two at a time.
//
// Frame      kind and payload length, 32 bits each, then the payload. All numbers are
//            little-endian; samples are signed 16-bit and interleaved; text is UTF-8
//            without a NUL.
// Order      kOpen first, with the version; kQuit last. A refusal leaves the session as
//            HostSession leaves it; after kFailure the process ends.
// Limits     a payload of kMaxPayloadBytes. A longer one, a stream that ends within a
//            frame, and a payload that does not fit its kind are ProtocolErrors. Memory
//            grows with the bytes that came, not with what a frame announces.
// Thread     one at a time on each stream.
namespace harvane {

inline constexpr std::uint32_t kProtocolVersion = 1;
inline constexpr std::uint32_t kMaxUnitBytes = 64U << 20U;  // samples of one unit
inline constexpr std::uint32_t kMaxPayloadBytes = kMaxUnitBytes + (1U << 20U);

enum FrameKind : std::uint32_t {
  // Requests, with their payloads.
  kOpen = 1,           // version
  kConfigure = 2,      // see SessionSetup
  kStartSequence = 3,  // nothing
  kStartPass = 4,      // pass number
  kDeliver = 5,        // number of frames, samples
  kEndPass = 6,        // nothing
  kEndSequence = 7,    // nothing
  kQuit = 8,           // nothing; answered once the module is unloaded
  // Replies.
  kDone = 101,     // nothing
  kAudio = 102,    // samples; the answer to kDeliver
  kRefusal = 103,  // code, name of the export: a ModuleRefusal
  kFailure = 104,  // text: what makes the session useless
};

struct Frame {
  std::uint32_t kind = 0;
  std::vector<std::uint8_t> payload;
};

// What kConfigure carries: sample rate, channels, 1 or 0 for a video frame rate with or
// without its numerator and denominator, then the parameter document.
struct SessionSetup {
  SessionFormat format;
  std::string parameterXml;
};

class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads up to `size` bytes, one at least; 0 at the end of the stream.
using ByteSource = std::function<std::size_t(void* bytes, std::size_t size)>;
// Writes them all.
using ByteSink = std::function<void(const void* bytes, std::size_t size)>;

// False at an end of the stream between two frames.
bool ReceiveFrame(const ByteSource& source, Frame* frame);
// Throws ProtocolError before anything is written, if the payload is too long.
void SendFrame(const ByteSink& sink, const Frame& frame);

// ---- payloads. Making throws std::bad_alloc, taking apart ProtocolError as well.

Frame EmptyFrame(FrameKind kind);
Frame NumberFrame(FrameKind kind, std::uint32_t number);
Frame TextFrame(FrameKind kind, const std::string& text);
Frame SetupFrame(const SessionSetup& setup);
Frame DeliverFrame(const std::int16_t* samples, std::uint32_t frames, std::uint32_t channels);
Frame AudioFrame(const std::vector<std::int16_t>& samples);
Frame RefusalFrame(const ModuleRefusal& refusal);

void ExpectEmpty(const Frame& frame);
std::uint32_t TakeNumber(const Frame& frame);
std::string TakeText(const Frame& frame);
SessionSetup TakeSetup(const Frame& frame);
// Returns the number of frames; appends the samples.
std::uint32_t TakeDelivery(const Frame& frame, std::uint32_t channels,
                           std::vector<std::int16_t>* samples);
void TakeAudio(const Frame& frame, std::vector<std::int16_t>* samples);
ModuleRefusal TakeRefusal(const Frame& frame);

}  // namespace harvane

#endif  // HARVANE_HOST_SESSIONPROTOCOL_H
