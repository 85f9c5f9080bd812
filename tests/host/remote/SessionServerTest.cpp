// harvane-session itself, fed with streams that no RemoteSession would send.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/SessionProtocol.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

struct Answers {
  int status = -1;
  std::vector<Frame> frames;
};

void Add(std::string* stream, const Frame& frame) {
  SendFrame([stream](const void* bytes,
                     std::size_t size) { stream->append(static_cast<const char*>(bytes), size); },
            frame);
}

// Runs the program on a whole stream of requests.
Answers Serve(const std::string& requests, const std::string& module = HARVANE_TEST_MODULE) {
  const support::TemporaryFolder folder;
  support::WriteBytes(folder.FileIn("requests"), requests);
  const std::string command = std::string(HARVANE_TEST_SESSION) + " '" + module + "' <'" +
                              folder.FileIn("requests") + "' >'" + folder.FileIn("replies") + "'";
  const int status = std::system(command.c_str());  // NOLINT(cert-env33-c): the test's own command
  Answers answers;
  if (WIFEXITED(status)) answers.status = WEXITSTATUS(status);
  const std::string replies = support::ReadBytes(folder.FileIn("replies"));
  std::size_t position = 0;
  const auto read = [&](void* bytes, std::size_t size) {
    const std::size_t count = std::min(size, replies.size() - position);
    std::memcpy(bytes, replies.data() + position, count);
    position += count;
    return count;
  };
  for (Frame frame; ReceiveFrame(read, &frame);) answers.frames.push_back(frame);
  return answers;
}

std::string Opening() {
  std::string requests;
  Add(&requests, NumberFrame(kOpen, kProtocolVersion));
  return requests;
}

void ExpectFailure(const Answers& answers, const std::string& text) {
  EXPECT_EQ(answers.status, 1);
  ASSERT_FALSE(answers.frames.empty());
  EXPECT_EQ(answers.frames.back().kind, kFailure);
  EXPECT_NE(TakeText(answers.frames.back()).find(text), std::string::npos)
      << TakeText(answers.frames.back());
}

TEST(SessionServer, OpeningAndQuittingAreAnswered) {
  std::string requests = Opening();
  Add(&requests, EmptyFrame(kQuit));
  const Answers answers = Serve(requests);
  EXPECT_EQ(answers.status, 0);
  ASSERT_EQ(answers.frames.size(), 2U);
  EXPECT_EQ(answers.frames[0].kind, kDone);
  EXPECT_EQ(answers.frames[1].kind, kDone);
}

TEST(SessionServer, TheEndOfTheRequestsEndsIt) {
  const Answers answers = Serve(Opening());
  EXPECT_EQ(answers.status, 1);
  EXPECT_EQ(answers.frames.size(), 1U);
}

TEST(SessionServer, AnotherVersionIsRefused) {
  std::string requests;
  Add(&requests, NumberFrame(kOpen, kProtocolVersion + 1));
  ExpectFailure(Serve(requests), "version");
}

TEST(SessionServer, AModuleThatCannotBeLoadedIsNamed) {
  ExpectFailure(Serve(Opening(), "/nowhere/Harvane.rpi"), "/nowhere/Harvane.rpi: cannot be loaded");
}

TEST(SessionServer, ARequestBeforeTheOpeningEndsIt) {
  std::string requests;
  Add(&requests, EmptyFrame(kEndPass));
  ExpectFailure(Serve(requests), "before the opening");
}

TEST(SessionServer, ASecondOpeningEndsIt) { ExpectFailure(Serve(Opening() + Opening()), "twice"); }

TEST(SessionServer, AnUnknownRequestEndsIt) {
  std::string requests = Opening();
  Add(&requests, EmptyFrame(kDone));
  ExpectFailure(Serve(requests), "unknown kind");
}

TEST(SessionServer, ACutFrameEndsIt) {
  std::string requests = Opening();
  Add(&requests, NumberFrame(kStartPass, 0));
  requests.pop_back();
  ExpectFailure(Serve(requests), "within a frame");
}

TEST(SessionServer, AnAnnouncedLengthAboveTheLimitEndsIt) {
  ExpectFailure(Serve(Opening() + std::string("\5\0\0\0\xff\xff\xff\xff", 8)), "too long");
}

TEST(SessionServer, ChannelsBeyondTheRecordEndIt) {
  std::string requests = Opening();
  Add(&requests, SetupFrame({{48000, 65, {}}, ""}));
  ExpectFailure(Serve(requests), "too many channels");
}

TEST(SessionServer, SamplesThatAreNotTheFramesEndIt) {
  std::string requests = Opening();
  const std::int16_t samples[2] = {};
  Add(&requests, DeliverFrame(samples, 1, 2));  // no format yet: no channels
  ExpectFailure(Serve(requests), "not its frames");
}

TEST(SessionServer, ARefusalTravelsBackAndTheSessionGoesOn) {
  std::string requests = Opening();
  Add(&requests, SetupFrame({{48000, 2, {}}, "<parameter>"}));
  Add(&requests, EmptyFrame(kQuit));
  const Answers answers = Serve(requests);
  EXPECT_EQ(answers.status, 0);
  ASSERT_EQ(answers.frames.size(), 3U);
  EXPECT_STREQ(TakeRefusal(answers.frames[1]).ExportName(), "xSetParameter");
  EXPECT_EQ(TakeRefusal(answers.frames[1]).Code(), 3U);
}

}  // namespace
}  // namespace harvane
