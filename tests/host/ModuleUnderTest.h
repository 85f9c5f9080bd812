#ifndef HARVANE_TESTS_HOST_MODULEUNDERTEST_H
#define HARVANE_TESTS_HOST_MODULEUNDERTEST_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host/ModuleExports.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

namespace hosttest {

// The --module argument of this program.
const std::string& ModulePath();

// The module under test, loaded for one test and unloaded behind it. Its log goes to a folder of
// the test's own.
class ModuleTest : public testing::Test {
 protected:
  ModuleTest() : module(std::make_unique<harvane::LoadedModule>(ModulePath())) {}

  const harvane::ModuleExports& Module() const { return module->Exports(); }
  // Writes the older half of the rows that wait. Nothing of the module may be used afterwards.
  void Unload() { module = nullptr; }
  std::string LogFolder() const { return folder.Text(); }

  // Parameters whose log goes to the test's folder.
  support::ParameterTexts Texts() const {
    support::ParameterTexts texts;
    texts.logPath = folder.Text();
    texts.logFileName = "log";
    texts.logEntryName = "job";
    return texts;
  }

 private:
  support::TemporaryFolder folder;  // outlives the module, whose end writes there
  std::unique_ptr<harvane::LoadedModule> module;
};

// One instance, closed at its end. Its calls answer with the export's result code; records that
// the host hands in are counted and come and go within the call.
class Instance {
 public:
  explicit Instance(const harvane::ModuleExports& exports) : exports(exports) {
    EXPECT_EQ(exports.xOpen(&handle), 0U);
  }
  ~Instance() { EXPECT_EQ(exports.xClose(handle), 0U); }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  void* Handle() const { return handle; }

  std::uint32_t SetParameter(const support::ParameterTexts& texts) {
    return exports.xSetParameter(handle, support::ParameterDocument(texts).c_str());
  }
  std::uint32_t SetInput(const support::Blob& blob) {
    support::CountedInfo info(blob);
    return exports.xSetInputInfo(handle, info.Record());
  }
  std::uint32_t StartSequence() { return exports.xStartSequenceEx(handle, nullptr); }
  std::uint32_t StartPass(std::uint32_t number) {
    const PassArgument pass = {number};
    return exports.xStartPassEx(handle, &pass);
  }
  std::uint32_t EndPass() { return exports.xEndPass(handle); }
  std::uint32_t EndSequence() { return exports.xEndSequence(handle); }

  // Parameters, format and sequence; all must succeed.
  void Begin(const support::ParameterTexts& texts, std::uint32_t sampleRate,
             std::uint32_t channels) {
    ASSERT_EQ(SetParameter(texts), 0U);
    ASSERT_EQ(SetInput(support::FormatBlob(sampleRate, channels)), 0U);
    ASSERT_EQ(StartSequence(), 0U);
  }

  // Result code of delivering one planar unit; the out-flag goes to `flag`.
  std::uint32_t Deliver(const std::vector<std::int16_t>& interleaved, std::uint32_t channels,
                        std::uint32_t* flag) {
    support::CountedUnit unit(interleaved.data(),
                              static_cast<std::uint32_t>(interleaved.size() / channels), channels,
                              support::Arrangement::kPlanar);
    return exports.xDeliverPcmUnit(handle, 0, unit.Record(), flag);
  }
  // The samples that wait, interleaved.
  std::vector<std::int16_t> Fetch(std::uint32_t channels) {
    PcmUnit* unit = nullptr;
    std::uint32_t flag = 1;
    EXPECT_EQ(exports.xFetchPcmUnit(handle, 0, &unit, &flag), 0U);
    EXPECT_EQ(flag, 0U);
    std::vector<std::int16_t> samples;
    for (std::uint32_t s = 0; s < unit->sampleCount; ++s) {
      for (std::uint32_t c = 0; c < channels; ++c) {
        samples.push_back(unit->data[c][s * unit->stride[c]]);
      }
    }
    EXPECT_EQ(unit->release(unit), 0U);
    return samples;
  }

 private:
  const harvane::ModuleExports& exports;
  void* handle = nullptr;
};

}  // namespace hosttest

#endif  // HARVANE_TESTS_HOST_MODULEUNDERTEST_H
