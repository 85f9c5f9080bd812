// Jobs that must end the process: each runs in a process of its own, which must die and not go on.

#include "tests/host/ModuleUnderTest.h"
#include "tests/support/Signals.h"

namespace hosttest {
namespace {

// What the module says on its way out.
constexpr char kFatal[] = "fatal stop";

class FatalJobsDeathTest : public ModuleTest {};

class UnlimitableRateDeathTest : public ModuleTest, public testing::WithParamInterface<int> {};

TEST_P(UnlimitableRateDeathTest, LimiterWithoutPhasesEndsTheProcess) {
  const int rate = GetParam();
  Instance job(Module());
  auto texts = Texts();
  texts.Loudness = "-3";
  texts.MaxTP = "-12";
  job.Begin(texts, static_cast<std::uint32_t>(rate), 2);
  const std::vector<std::int16_t> signal =
      support::NoiseInt16(5, static_cast<std::size_t>(rate) * 2, 16000);
  std::uint32_t flag = 0;
  ASSERT_EQ(job.StartPass(0), 0U);
  ASSERT_EQ(job.Deliver(signal, 2, &flag), 0U);
  ASSERT_EQ(job.EndPass(), 0U);
  ASSERT_EQ(job.StartPass(1), 0U);
  EXPECT_DEATH(job.Deliver({1, 1}, 2, &flag), kFatal);
  EXPECT_EQ(job.EndSequence(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Exports, UnlimitableRateDeathTest, testing::Values(176400, 192000),
                         [](const auto& info) { return "Rate" + std::to_string(info.param); });

TEST_F(FatalJobsDeathTest, FifthGroupEndsTheProcessAtTheParameters) {
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfGroups = "5";
  EXPECT_DEATH(job.SetParameter(texts), kFatal);
}

TEST_F(FatalJobsDeathTest, NoGroupEndsTheProcessAtTheSequence) {
  for (const char* groups : {"0", "-3"}) {
    Instance job(Module());
    auto texts = Texts();
    texts.numberOfGroups = groups;
    ASSERT_EQ(job.SetParameter(texts), 0U);
    ASSERT_EQ(job.SetInput(support::FormatBlob(48000, 2)), 0U);
    EXPECT_DEATH(job.StartSequence(), kFatal) << groups;
  }
}

TEST_F(FatalJobsDeathTest, FetchWithoutChannelsEndsTheProcess) {
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  job.Begin(texts, 48000, 0);
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 0;
  EXPECT_DEATH(Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), kFatal);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(FatalJobsDeathTest, FetchBeforeASequenceEndsTheProcess) {
  Instance job(Module());
  ASSERT_EQ(job.SetParameter(Texts()), 0U);
  ASSERT_EQ(job.SetInput(support::FormatBlob(48000, 2)), 0U);
  PcmUnit* unit = nullptr;
  std::uint32_t flag = 0;
  EXPECT_DEATH(Module().xFetchPcmUnit(job.Handle(), 0, &unit, &flag), kFatal);
}

TEST_F(FatalJobsDeathTest, VideoRateWithDenominatorZeroEndsTheProcess) {
  Instance job(Module());
  auto texts = Texts();
  texts.frameRate = "1";
  ASSERT_EQ(job.SetParameter(texts), 0U);
  EXPECT_DEATH(job.SetInput(support::FormatBlobWithVideo(48000, 2, support::Vide(25, 0))), kFatal);
}

TEST_F(FatalJobsDeathTest, SecondPassBeforeAnyDecisionEndsTheProcess) {
  Instance job(Module());
  job.Begin(Texts(), 48000, 2);
  ASSERT_EQ(job.StartPass(1), 0U);
  std::uint32_t flag = 0;
  EXPECT_DEATH(job.Deliver({1, 1}, 2, &flag), kFatal);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(FatalJobsDeathTest, SecondPassWithFewerChannelsThanTheTracksEndsTheProcess) {
  Instance job(Module());
  auto texts = Texts();
  texts.formats[0] = "6";
  job.Begin(texts, 48000, 5);
  std::uint32_t flag = 0;
  ASSERT_EQ(job.StartPass(0), 0U);
  ASSERT_EQ(job.Deliver(std::vector<std::int16_t>(5 * 500, 100), 5, &flag), 0U);
  ASSERT_EQ(job.EndPass(), 0U);
  ASSERT_EQ(job.StartPass(1), 0U);
  EXPECT_DEATH(job.Deliver({1, 1, 1, 1, 1}, 5, &flag), kFatal);
  EXPECT_EQ(job.EndSequence(), 0U);
}

TEST_F(FatalJobsDeathTest, ChannelBeyondTheRecordsSixtyFourEndsTheProcess) {
  Instance job(Module());
  auto texts = Texts();
  texts.numberOfPasses = "1";
  job.Begin(texts, 48000, 65);
  std::uint32_t flag = 0;
  EXPECT_DEATH(job.Deliver(std::vector<std::int16_t>(65, 1), 65, &flag), kFatal);
  EXPECT_EQ(job.EndSequence(), 0U);
}

// The check itself: a call that returns is told from one that dies.
TEST_F(FatalJobsDeathTest, CallThatReturnsIsNoDeath) {
  Instance job(Module());
  EXPECT_EXIT(
      {
        job.SetParameter(Texts());
        std::exit(17);
      },
      testing::ExitedWithCode(17), "");
}

}  // namespace
}  // namespace hosttest
