#include "host/SessionProtocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace harvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Gives a stream of bytes in pieces of `step` at most.
ByteSource From(const Bytes& bytes, std::size_t step, std::size_t* position) {
  return [&bytes, step, position](void* target, std::size_t size) {
    const std::size_t count = std::min({size, step, bytes.size() - *position});
    std::copy_n(bytes.data() + *position, count, static_cast<std::uint8_t*>(target));
    *position += count;
    return count;
  };
}

ByteSink To(Bytes* bytes) {
  return [bytes](const void* source, std::size_t size) {
    const auto* const first = static_cast<const std::uint8_t*>(source);
    bytes->insert(bytes->end(), first, first + size);
  };
}

Bytes Sent(const Frame& frame) {
  Bytes bytes;
  SendFrame(To(&bytes), frame);
  return bytes;
}

Frame Received(const Bytes& bytes, std::size_t step = 1000) {
  std::size_t position = 0;
  Frame frame;
  EXPECT_TRUE(ReceiveFrame(From(bytes, step, &position), &frame));
  EXPECT_EQ(position, bytes.size());
  return frame;
}

TEST(SessionProtocol, AFrameIsKindLengthAndPayloadInLittleEndian) {
  EXPECT_EQ(Sent(NumberFrame(kStartPass, 0x01020304)),
            (Bytes{4, 0, 0, 0, 4, 0, 0, 0, 0x04, 0x03, 0x02, 0x01}));
  EXPECT_EQ(Sent(EmptyFrame(kDone)), (Bytes{101, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(SessionProtocol, AFrameComesInPiecesOfAnySize) {
  const std::string text(200000, 'x');
  const Bytes bytes = Sent(TextFrame(kFailure, text));
  for (const std::size_t step : {1, 7, 8, 65536, 1000000}) {
    const Frame frame = Received(bytes, step);
    EXPECT_EQ(frame.kind, kFailure);
    EXPECT_EQ(TakeText(frame), text) << step;
  }
}

TEST(SessionProtocol, AStreamThatEndsBetweenFramesIsAnEnd) {
  const Bytes nothing;
  std::size_t position = 0;
  Frame frame;
  EXPECT_FALSE(ReceiveFrame(From(nothing, 1, &position), &frame));
}

TEST(SessionProtocol, AStreamThatEndsWithinAFrameIsAnError) {
  const Bytes whole = Sent(TextFrame(kFailure, "text"));
  for (std::size_t length = 1; length < whole.size(); ++length) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    std::size_t position = 0;
    Frame frame;
    EXPECT_THROW(ReceiveFrame(From(cut, 100, &position), &frame), ProtocolError) << length;
  }
}

TEST(SessionProtocol, AnAnnouncedLengthAboveTheLimitIsRefusedUnread) {
  Bytes bytes = {1, 0, 0, 0, 0, 0, 0, 0, 0};
  const std::uint32_t length = kMaxPayloadBytes + 1;
  std::memcpy(bytes.data() + 4, &length, sizeof length);
  std::size_t position = 0;
  Frame frame;
  EXPECT_THROW(ReceiveFrame(From(bytes, 100, &position), &frame), ProtocolError);
  EXPECT_EQ(position, 8U);
}

TEST(SessionProtocol, AnAnnouncedLengthTakesMemoryOnlyAsTheBytesCome) {
  Bytes bytes(8 + 1000);
  std::memcpy(bytes.data() + 4, &kMaxPayloadBytes, sizeof kMaxPayloadBytes);
  std::size_t position = 0;
  Frame frame;
  EXPECT_THROW(ReceiveFrame(From(bytes, 100, &position), &frame), ProtocolError);
  EXPECT_LE(frame.payload.capacity(), 1U << 17U);
}

TEST(SessionProtocol, ASetupKeepsFormatAndDocument) {
  for (const bool hasVideo : {false, true}) {
    SessionSetup setup = {{44100, 6, {}}, "<parameter/>"};
    if (hasVideo) setup.format.videoFrameRate = {30000, 1001};
    const SessionSetup got = TakeSetup(Received(Sent(SetupFrame(setup))));
    EXPECT_EQ(got.format.sampleRate, 44100U);
    EXPECT_EQ(got.format.channels, 6U);
    EXPECT_EQ(got.parameterXml, "<parameter/>");
    ASSERT_EQ(got.format.videoFrameRate.has_value(), hasVideo);
    if (!hasVideo) continue;
    EXPECT_EQ(got.format.videoFrameRate->numerator, 30000U);
    EXPECT_EQ(got.format.videoFrameRate->denominator, 1001U);
  }
}

TEST(SessionProtocol, ADeliveryKeepsFramesAndSamples) {
  const std::vector<std::int16_t> samples = {1, -1, 32767, -32768, 0, 256};
  std::vector<std::int16_t> got = {5};
  EXPECT_EQ(TakeDelivery(Received(Sent(DeliverFrame(samples.data(), 3, 2))), 2, &got), 3U);
  EXPECT_EQ(got, (std::vector<std::int16_t>{5, 1, -1, 32767, -32768, 0, 256}));
  EXPECT_EQ(TakeDelivery(DeliverFrame(nullptr, 0, 2), 2, &got), 0U);
  EXPECT_EQ(TakeDelivery(DeliverFrame(nullptr, 9, 0), 0, &got), 9U);
  EXPECT_EQ(got.size(), 7U);
}

TEST(SessionProtocol, ADeliveryWhoseSamplesAreNotItsFramesIsAnError) {
  const std::vector<std::int16_t> samples(6);
  std::vector<std::int16_t> got;
  EXPECT_THROW(TakeDelivery(DeliverFrame(samples.data(), 3, 2), 3, &got), ProtocolError);
  Frame half = DeliverFrame(samples.data(), 3, 2);
  half.payload.pop_back();
  EXPECT_THROW(TakeDelivery(half, 2, &got), ProtocolError);
  Frame lie = NumberFrame(kDeliver, 0x80000000U);  // times two channels, as 32 bits, is 0
  EXPECT_THROW(TakeDelivery(lie, 2, &got), ProtocolError);
  EXPECT_TRUE(got.empty());
}

TEST(SessionProtocol, AUnitAboveTheLimitIsRefusedUnread) {
  EXPECT_THROW(DeliverFrame(nullptr, kMaxUnitBytes / 4 + 1, 2), ProtocolError);
  EXPECT_THROW(DeliverFrame(nullptr, 0xFFFFFFFFU, 0xFFFFFFFFU), ProtocolError);
}

TEST(SessionProtocol, AudioKeepsItsSamples) {
  std::vector<std::int16_t> got;
  TakeAudio(Received(Sent(AudioFrame({3, -3}))), &got);
  EXPECT_EQ(got, (std::vector<std::int16_t>{3, -3}));
  TakeAudio(AudioFrame({}), &got);
  EXPECT_EQ(got.size(), 2U);
  EXPECT_THROW(TakeAudio({kAudio, {1, 2, 3}}, &got), ProtocolError);
}

TEST(SessionProtocol, ARefusalKeepsExportAndCode) {
  const ModuleRefusal got = TakeRefusal(Received(Sent(RefusalFrame({"xSetOutputInfo", 3}))));
  EXPECT_STREQ(got.ExportName(), "xSetOutputInfo");
  EXPECT_EQ(got.Code(), 3U);
  EXPECT_THROW(TakeRefusal(RefusalFrame({"xNothing", 3})), ProtocolError);
}

TEST(SessionProtocol, PayloadsThatDoNotFitTheirKindAreErrors) {
  EXPECT_THROW(ExpectEmpty(NumberFrame(kEndPass, 1)), ProtocolError);
  EXPECT_THROW(TakeNumber({kStartPass, {1, 2, 3}}), ProtocolError);
  EXPECT_THROW(TakeNumber({kStartPass, {1, 2, 3, 4, 5}}), ProtocolError);
  EXPECT_THROW(TakeSetup({kConfigure, Bytes(19)}), ProtocolError);
  Frame video = {kConfigure, Bytes(20)};
  video.payload[8] = 2;
  EXPECT_THROW(TakeSetup(video), ProtocolError);
  EXPECT_THROW(TakeRefusal({kRefusal, {1}}), ProtocolError);
}

}  // namespace
}  // namespace harvane
