#include "host/JobSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/PassRecorder.h"
#include "tests/host/cli/CliSupport.h"
#include "tests/support/Bits.h"

namespace harvane {
namespace {

constexpr int kRate = 48000;

std::vector<std::int16_t> RunJob(JobSession* session, const std::vector<std::int16_t>& samples,
                                 const std::string& logFolder) {
  support::ParameterTexts texts;
  texts.logPath = logFolder;
  std::vector<std::int16_t> output;
  session->Configure(support::ParameterDocument(texts), {kRate, 2, {}});
  session->StartSequence();
  for (std::uint32_t pass = 0; pass < 2; ++pass) {
    session->StartPass(pass);
    session->Deliver(samples.data(), static_cast<std::uint32_t>(samples.size() / 2), &output);
    session->EndPass();
  }
  session->EndSequence();
  return output;
}

TEST(JobSession, LinkedAndLoadedModuleGiveTheSameSamples) {
  const support::TemporaryFolder logs;
  const std::vector<std::int16_t> samples = support::PeakyNoise(kRate, 2, 5.0);
  JobSession linked;
  JobSession loaded{std::string(HARVANE_MODULE)};
  const std::vector<std::int16_t> wanted = support::RunDirectly({}, kRate, 2, samples).output;
  EXPECT_EQ(RunJob(&linked, samples, logs.Text()), wanted);
  EXPECT_EQ(RunJob(&loaded, samples, logs.Text()), wanted);
  WriteWaitingLogRows();
}

TEST(JobSession, AFileThatIsNoModuleIsRefusedByName) {
  const support::TemporaryFolder folder;
  support::WriteBytes(folder.FileIn("m.rpi"), "no module");
  try {
    const JobSession session{folder.FileIn("m.rpi")};
    ADD_FAILURE() << "accepted";
  } catch (const ModuleError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("m.rpi: cannot be loaded"));
  }
}

TEST(JobSession, RefusalsCarryTheExportAndItsCode) {
  JobSession session;
  try {
    session.Configure("<parameter/>", {kRate, 2, {}});
    ADD_FAILURE() << "accepted";
  } catch (const ModuleRefusal& refusal) {
    EXPECT_STREQ(refusal.ExportName(), "xSetParameter");
    EXPECT_EQ(refusal.Code(), 4U);
  }
}

TEST(Witness, MeasuresWhatAnAnalysisMeasures) {
  const std::vector<std::int16_t> samples = support::QuietNoise(kRate, 2, 5.0);
  support::ParameterTexts texts;
  texts.numberOfPasses = "1";
  const auto wanted = support::RunDirectly(texts, kRate, 2, samples).measurements;
  Witness witness({2}, {kRate, 2, {}});
  witness.Hear(samples.data(), 1000);
  witness.Hear(samples.data() + 2000, static_cast<std::uint32_t>(samples.size() / 2 - 1000));
  const auto measured = witness.Finish();
  ASSERT_EQ(measured.size(), 1U);
  EXPECT_BITS_EQ(wanted.at(0).integratedLoudness, measured[0].integratedLoudness);
  EXPECT_BITS_EQ(wanted.at(0).loudnessRange, measured[0].loudnessRange);
  EXPECT_BITS_EQ(wanted.at(0).maxTruePeak, measured[0].maxTruePeak);
  EXPECT_BITS_EQ(wanted.at(0).maxShortTerm, measured[0].maxShortTerm);
  EXPECT_BITS_EQ(wanted.at(0).maxMomentary, measured[0].maxMomentary);
}

}  // namespace
}  // namespace harvane
