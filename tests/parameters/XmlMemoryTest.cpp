// Lets the n-th allocation inside libxml2 fail, n = 0, 1, 2 ... until a document is read.

#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/Exports.h"
#include "platform/XmlDom.h"
#include "tests/support/Bits.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"

namespace harvane {
namespace {

using Probe = DelayAudioProbe;

constexpr long kNever = -1;

enum class Shortage {
  kOnce,     // one allocation fails
  kLasting,  // and all later ones
};

// Counts down; at 0 the allocation fails.
long allocationsUntilFailure = kNever;
Shortage shortage = Shortage::kLasting;
bool hasAllocationFailed = false;

bool IsLacking() {
  if (allocationsUntilFailure == kNever) return false;
  if (allocationsUntilFailure > 0) {
    --allocationsUntilFailure;
    return false;
  }
  hasAllocationFailed = true;
  if (shortage == Shortage::kOnce) allocationsUntilFailure = kNever;
  return true;
}

void* Allocate(std::size_t size) { return IsLacking() ? nullptr : std::malloc(size); }
void* Reallocate(void* memory, std::size_t size) {
  return IsLacking() ? nullptr : std::realloc(memory, size);
}
char* Duplicate(const char* text) { return IsLacking() ? nullptr : strdup(text); }

// Before anything else uses the library.
const int kIsSetUp = xmlMemSetup(std::free, Allocate, Reallocate, Duplicate);

// Calls `action` with the n-th allocation failing, and says whether it came to that.
template <class Action>
bool FailsAt(int n, Shortage kind, Action action) {
  hasAllocationFailed = false;
  shortage = kind;
  allocationsUntilFailure = n;
  action();
  allocationsUntilFailure = kNever;
  return hasAllocationFailed;
}

// A document of which no value is a default.
std::string Document() {
  support::ParameterTexts texts;
  texts.Loudness = "-1&#54;.5";
  texts.ShortTermLoudness = "-18.25";
  texts.MaxTP = "-0.5";
  texts.frameRate = "29.97";
  texts.normalisationMode = "1";
  texts.numberOfPasses = "1";
  texts.numberOfGroups = "4";
  texts.formats = {"6", "7", "8", "5"};
  texts.logPath = "<![CDATA[C:\\logs]]>";
  texts.logFileName = std::string(5000, 'f');
  texts.logEntryName = "entry";
  texts.metadata =
      "<metadata><sourceInfo><a xml:space=\"preserve\"> <fileName>x.wav</fileName></a></sourceInfo>"
      "<targetInfo><path>C:\\out</path><baseFileName>y</baseFileName></targetInfo></metadata>";
  return support::ParameterDocument(texts);
}

void ExpectAllValues(DelayAudio& job) {
  EXPECT_BITS_EQ(-16.5F, Probe::Loudness(job));
  EXPECT_BITS_EQ(-18.25F, Probe::ShortTermLoudness(job));
  EXPECT_BITS_EQ(-0.5F, Probe::MaxTP(job));
  EXPECT_BITS_EQ(29.97F, Probe::FrameRate(job));
  EXPECT_EQ(Probe::NormalisationMode(job), 1);
  EXPECT_EQ(Probe::NumberOfPasses(job), 1);
  EXPECT_EQ(Probe::SourceFileName(job), "x.wav");
  EXPECT_EQ(Probe::TargetFilePath(job), "C:\\out\\y");
  EXPECT_EQ(Probe::LogPath(job), "C:\\logs");
  EXPECT_EQ(Probe::LogFileName(job), std::string(5000, 'f'));
  EXPECT_EQ(Probe::LogEntryName(job), "entry");
  EXPECT_EQ(Probe::TrackCount(job), 9);
}

TEST(XmlMemory, IsHandedOutHere) {
  ASSERT_EQ(kIsSetUp, 0);
  EXPECT_TRUE(FailsAt(0, Shortage::kOnce, [] { EXPECT_EQ(xmlMalloc(1), nullptr); }));
  EXPECT_FALSE(FailsAt(1, Shortage::kOnce, [] { xmlFree(xmlMalloc(1)); }));
}

// Before the library is warm, and after.
TEST(XmlMemory, LackOfItIsTwoWhereverItShows) {
  const std::string xml = Document();
  for (const bool isWarm : {false, true}) {
    int failures = 0;
    for (;; ++failures) {
      ASSERT_LT(failures, 2000);
      DelayAudio job;
      std::uint32_t code = 0;
      const auto set = [&] { code = xSetParameter(&job, xml.c_str()); };
      const bool hasFailed = FailsAt(failures, Shortage::kLasting, set);
      if (!hasFailed) {
        EXPECT_EQ(code, 0U);
        ExpectAllValues(job);
        break;
      }
      ASSERT_EQ(code, 2U) << "allocation " << failures << (isWarm ? ", warm" : ", cold");
      ASSERT_EQ(xSetParameter(&job, xml.c_str()), 0U) << "the same instance, with memory again";
      ExpectAllValues(job);
    }
    EXPECT_GE(failures, 20);
  }
}

TEST(XmlMemory, ReadingTakesNoTextForAnotherWhereItIsLacking) {
  XmlDocument document;
  bool isSuccessful = false;
  ASSERT_GE(document.LoadXml(L"<a><b>some text</b><![CDATA[more]]></a>", &isSuccessful), 0);
  ASSERT_TRUE(isSuccessful);
  for (const wchar_t* const path : {L"/a", L"/a/text()", L"//b", L"/a//text()"}) {
    XmlNode found;
    EXPECT_FALSE(FailsAt(0, Shortage::kOnce, [&] {
      EXPECT_EQ(document.AsNode().SelectSingleNode(path, &found), 0);
    })) << "a search takes none";
    for (int n = 0;; ++n) {
      ASSERT_LT(n, 2000);
      bool isLacking = false;
      XmlText text;
      const auto read = [&] {
        try {
          EXPECT_EQ(found.GetText(&text), 0);
        } catch (const std::bad_alloc&) {
          isLacking = true;
        }
      };
      const bool hasFailed = FailsAt(n, Shortage::kOnce, read);
      EXPECT_EQ(isLacking, hasFailed) << n;
      if (!hasFailed) break;
    }
  }
}

TEST(XmlMemory, NothingOfItsLackReachesStandardError) {
  const std::string xml = Document();
  testing::internal::CaptureStderr();
  for (int n = 0; n < 20; ++n) {
    DelayAudio job;
    FailsAt(n, Shortage::kLasting, [&] { xSetParameter(&job, xml.c_str()); });
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace harvane
