#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/Exports.h"
#include "delay_audio/PluginException.h"
#include "tests/support/Bits.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"

#ifdef _WIN32
#include "platform/XmlDom.h"
#include "tests/platform/StubXmlDom.h"
#endif

// The bodies of DelayAudio that read the parameter document and make the channel tables.

namespace harvane {
namespace {

using Probe = DelayAudioProbe;
using support::ParameterDocument;
using support::ParameterTexts;

constexpr const char* kAbsent = "(absent)";

void Set(DelayAudio* job, const ParameterTexts& texts) {
  job->SetParameter(ParameterDocument(texts).c_str());
}

// What left SetParameter: its kind and code, and its text.
struct Outcome {
  std::string text;
  int code;  // 0 for none, -1 for a std::runtime_error
};
bool operator==(const Outcome& a, const Outcome& b) { return a.text == b.text && a.code == b.code; }
void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.code << ' ' << outcome.text;
}

Outcome Try(DelayAudio* job, const std::string& xml) {
  try {
    job->SetParameter(xml.c_str());
    return {"", 0};
  } catch (const PluginException& failure) {
    return {failure.what(), static_cast<int>(failure.code)};
  } catch (const std::runtime_error& failure) {
    return {failure.what(), -1};
  }
}

// All that a document sets, as texts in the order of reading; the tables last.
std::vector<std::string> Members(DelayAudio& job) {
  std::string tables = std::to_string(Probe::NumberOfGroups(job)) + " groups, " +
                       std::to_string(Probe::TrackCount(job)) + " tracks:";
  for (const int count : Probe::TrackChannelCounts(job)) tables += " " + std::to_string(count);
  return {support::Show(Probe::Loudness(job)),
          support::Show(Probe::ShortTermLoudness(job)),
          support::Show(Probe::MaxTP(job)),
          support::Show(Probe::FrameRate(job)),
          std::to_string(Probe::NormalisationMode(job)),
          std::to_string(Probe::NumberOfPasses(job)),
          Probe::SourceFileName(job),
          Probe::TargetFilePath(job),
          Probe::LogPath(job),
          Probe::LogFileName(job),
          Probe::LogEntryName(job),
          tables};
}

constexpr const char* kOldMetadata =
    "<metadata><sourceInfo><fileName>old.wav</fileName></sourceInfo><targetInfo><path>C:\\old"
    "</path><baseFileName>old</baseFileName></targetInfo></metadata>";
constexpr const char* kNewMetadata =
    "<metadata><sourceInfo><fileName>new.wav</fileName></sourceInfo><targetInfo><path>C:\\new"
    "</path><baseFileName>new</baseFileName></targetInfo></metadata>";

ParameterTexts OldTexts() {
  return {"1",       "2",       {"1", "3", "2", "2"}, "-24", "-21",       "-2", "1",
          "oldPath", "oldName", "oldEntry",           "25",  kOldMetadata};
}
ParameterTexts NewTexts() {
  return {"2",       "4",       {"6", "7", "8", "5"}, "-16.5", "-18.25",    "-0.5", "0",
          "newPath", "newName", "newEntry",           "29.97", kNewMetadata};
}

std::vector<std::string> OldMembers() {
  return {support::Show(-24.0f),
          support::Show(-21.0f),
          support::Show(-2.0f),
          support::Show(25.0f),
          "1",
          "1",
          "old.wav",
          "C:\\old\\old",
          "oldPath",
          "oldName",
          "oldEntry",
          "2 groups, 3 tracks: 1 2 2"};
}
std::vector<std::string> NewMembers() {
  return {support::Show(-16.5f),
          support::Show(-18.25f),
          support::Show(-0.5f),
          support::Show(29.97f),
          "0",
          "2",
          "new.wav",
          "C:\\new\\new",
          "newPath",
          "newName",
          "newEntry",
          "4 groups, 9 tracks: 6 6 2 2 6 2 2 2 2"};
}

// ---- the values one by one

enum class Kind { kRequired, kNumber, kText };

struct Step {
  int number;  // place in the order of reading
  std::string element;
  std::string path;
  Kind kind;
  std::string byDefault;  // how a number shows when its element is absent
};

// Keeps the test's name readable in a failure message.
void PrintTo(const Step& step, std::ostream* out) { *out << step.path; }

std::string* Field(ParameterTexts* texts, const std::string& element) {
  if (element == "Loudness") return &texts->Loudness;
  if (element == "ShortTermLoudness") return &texts->ShortTermLoudness;
  if (element == "MaxTP") return &texts->MaxTP;
  if (element == "frameRate") return &texts->frameRate;
  if (element == "normalisationMode") return &texts->normalisationMode;
  if (element == "numberOfPasses") return &texts->numberOfPasses;
  if (element == "logPath") return &texts->logPath;
  if (element == "logFileName") return &texts->logFileName;
  if (element == "logEntryName") return &texts->logEntryName;
  if (element == "numberOfGroups") return &texts->numberOfGroups;
  if (element == "firstGroupChannelsFormat") return &texts->formats[0];
  if (element == "secondGroupChannelsFormat") return &texts->formats[1];
  if (element == "thirdGroupChannelsFormat") return &texts->formats[2];
  if (element == "fourthGroupChannelsFormat") return &texts->formats[3];
  throw std::logic_error(element);
}

class SetParameterStep : public testing::TestWithParam<Step> {
 protected:
  // New values over old ones, but for this step's text.
  Outcome Run(const std::string& text) {
    EXPECT_EQ(Try(&job, ParameterDocument(OldTexts())).code, 0);
    ParameterTexts texts = NewTexts();
    *Field(&texts, GetParam().element) = text;
    return Try(&job, ParameterDocument(texts));
  }
  std::size_t Index() const {
    return static_cast<std::size_t>(GetParam().number < 12 ? GetParam().number : 12) - 1;
  }
  // Members after a failure in this step: new before it, old from it on.
  std::vector<std::string> MembersUpToHere() const {
    std::vector<std::string> members = OldMembers();
    const std::vector<std::string> fresh = NewMembers();
    for (std::size_t i = 0; i < Index(); ++i) members[i] = fresh[i];
    return members;
  }
  Outcome NotFound() const { return {"Node is not found: " + GetParam().path, 4}; }
  std::string Doubled(const std::string& first, const std::string& second) const {
    return first + "</" + GetParam().element + "><" + GetParam().element + ">" + second;
  }
  // The new text of this step.
  std::string Text() const {
    ParameterTexts texts = NewTexts();
    return *Field(&texts, GetParam().element);
  }

  DelayAudio job;
};

TEST_P(SetParameterStep, PresentIsTaken) {
  EXPECT_EQ(Run(Text()), (Outcome{"", 0}));
  EXPECT_EQ(Members(job), NewMembers());
}

TEST_P(SetParameterStep, AbsentFailsOrHasItsDefault) {
  const Outcome outcome = Run(kAbsent);
  if (GetParam().kind == Kind::kRequired) {
    EXPECT_EQ(outcome, NotFound());
    EXPECT_EQ(Members(job), MembersUpToHere());
    return;
  }
  EXPECT_EQ(outcome, (Outcome{"", 0}));
  std::vector<std::string> wanted = NewMembers();
  wanted[Index()] = GetParam().byDefault;
  EXPECT_EQ(Members(job), wanted);
}

TEST_P(SetParameterStep, EmptyFailsAsANumberAndCountsAsAbsentAsAText) {
  const Outcome outcome = Run("");
  if (GetParam().kind != Kind::kText) {
    EXPECT_EQ(outcome, NotFound());
    EXPECT_EQ(Members(job), MembersUpToHere());
    return;
  }
  EXPECT_EQ(outcome, (Outcome{"", 0}));
  std::vector<std::string> wanted = NewMembers();
  wanted[Index()] = "";
  EXPECT_EQ(Members(job), wanted);
}

TEST_P(SetParameterStep, DoubledGivesTheFirst) {
  EXPECT_EQ(Run(Doubled(Text(), "1")), (Outcome{"", 0}));
  EXPECT_EQ(Members(job), NewMembers());
}

TEST_P(SetParameterStep, DoubledWithAnEmptyFirstGivesTheSecond) {
  EXPECT_EQ(Run(Doubled("", Text())), (Outcome{"", 0}));
  EXPECT_EQ(Members(job), NewMembers());
}

INSTANTIATE_TEST_SUITE_P(
    , SetParameterStep,
    testing::Values(
        Step{1, "Loudness", "/parameter/normalization/Loudness/text()", Kind::kRequired, ""},
        Step{2, "ShortTermLoudness", "/parameter/normalization/ShortTermLoudness/text()",
             Kind::kRequired, ""},
        Step{3, "MaxTP", "/parameter/normalization/MaxTP/text()", Kind::kRequired, ""},
        Step{4, "frameRate", "/parameter/logging/frameRate/text()", Kind::kRequired, ""},
        Step{5, "normalisationMode", "/parameter/normalization/normalisationMode/text()",
             Kind::kRequired, ""},
        Step{6, "numberOfPasses", "/parameter/audio/numberOfPasses/text()", Kind::kNumber, "2"},
        Step{9, "logPath", "/parameter/logging/logPath/text()", Kind::kText, ""},
        Step{10, "logFileName", "/parameter/logging/logFileName/text()", Kind::kText, ""},
        Step{11, "logEntryName", "/parameter/logging/logEntryName/text()", Kind::kText, ""},
        Step{12, "numberOfGroups", "/parameter/audio/numberOfGroups/text()", Kind::kNumber,
             "1 groups, 1 tracks: 6"},
        Step{13, "firstGroupChannelsFormat", "/parameter/audio/firstGroupChannelsFormat/text()",
             Kind::kNumber, "4 groups, 9 tracks: 2 6 2 2 6 2 2 2 2"},
        Step{14, "secondGroupChannelsFormat", "/parameter/audio/secondGroupChannelsFormat/text()",
             Kind::kNumber, "4 groups, 8 tracks: 6 2 2 6 2 2 2 2"},
        Step{15, "thirdGroupChannelsFormat", "/parameter/audio/thirdGroupChannelsFormat/text()",
             Kind::kNumber, "4 groups, 8 tracks: 6 6 2 2 2 2 2 2"},
        Step{16, "fourthGroupChannelsFormat", "/parameter/audio/fourthGroupChannelsFormat/text()",
             Kind::kNumber, "4 groups, 6 tracks: 6 6 2 2 6 2"}),
    [](const auto& tested) { return tested.param.element; });

// ---- metadata

class SetParameterMetadata : public testing::Test {
 protected:
  void SetMetadata(const std::string& xml) {
    Set(&job, OldTexts());
    ParameterTexts texts = NewTexts();
    texts.metadata = xml;
    Set(&job, texts);
  }
  void SetTarget(const std::string& xml) {
    SetMetadata("<metadata><targetInfo>" + xml + "</targetInfo></metadata>");
  }
  void SetSource(const std::string& xml) {
    SetMetadata("<metadata><sourceInfo>" + xml + "</sourceInfo></metadata>");
  }
  DelayAudio job;
};

TEST_F(SetParameterMetadata, AbsentBranchClearsBothNames) {
  SetMetadata("");
  EXPECT_EQ(Probe::SourceFileName(job), "");
  EXPECT_EQ(Probe::TargetFilePath(job), "");
}

TEST_F(SetParameterMetadata, FileNameIsFoundAtAnyDepth) {
  SetSource("<a><b><c><fileName>deep.wav</fileName></c></b></a>");
  EXPECT_EQ(Probe::SourceFileName(job), "deep.wav");
}

TEST_F(SetParameterMetadata, FirstFileNameInDocumentOrderWins) {
  SetSource("<a><fileName>first</fileName></a><fileName>second</fileName>");
  EXPECT_EQ(Probe::SourceFileName(job), "first");
}

TEST_F(SetParameterMetadata, EmptyFileNameCountsAsAbsent) {
  SetSource("<fileName/>");
  EXPECT_EQ(Probe::SourceFileName(job), "");
}

TEST_F(SetParameterMetadata, FileNameOfTheTargetIsNotTheSources) {
  SetTarget("<fileName>x</fileName>");
  EXPECT_EQ(Probe::SourceFileName(job), "");
}

TEST_F(SetParameterMetadata, TargetIsPathBackslashBaseName) {
  SetTarget("<path>D:\\out</path><baseFileName>show</baseFileName>");
  EXPECT_EQ(Probe::TargetFilePath(job), "D:\\out\\show");
}

TEST_F(SetParameterMetadata, TargetKeepsADoubledSeparator) {
  SetTarget("<path>D:\\out\\</path><baseFileName>\\show</baseFileName>");
  EXPECT_EQ(Probe::TargetFilePath(job), "D:\\out\\\\\\show");
}

TEST_F(SetParameterMetadata, TargetPartsMayLieApartAndInEitherOrder) {
  SetTarget("<a><baseFileName>show</baseFileName></a><b><c><path>D:</path></c></b>");
  EXPECT_EQ(Probe::TargetFilePath(job), "D:\\show");
}

TEST_F(SetParameterMetadata, TargetWithoutABaseNameIsCleared) {
  SetTarget("<path>D:\\out</path>");
  EXPECT_EQ(Probe::TargetFilePath(job), "");
}

TEST_F(SetParameterMetadata, TargetWithoutAPathIsCleared) {
  SetTarget("<baseFileName>show</baseFileName>");
  EXPECT_EQ(Probe::TargetFilePath(job), "");
}

TEST_F(SetParameterMetadata, TargetWithAnEmptyPartIsCleared) {
  SetTarget("<path/><baseFileName>show</baseFileName>");
  EXPECT_EQ(Probe::TargetFilePath(job), "");
  SetTarget("<path>D:\\out</path><baseFileName></baseFileName>");
  EXPECT_EQ(Probe::TargetFilePath(job), "");
}

TEST_F(SetParameterMetadata, FirstPartsInDocumentOrderMakeTheTarget) {
  SetTarget(
      "<path>a</path><path>b</path><baseFileName>c</baseFileName>"
      "<baseFileName>d</baseFileName>");
  EXPECT_EQ(Probe::TargetFilePath(job), "a\\c");
}

TEST_F(SetParameterMetadata, NamesAreUtf8) {
  SetSource("<fileName>\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80</fileName>");
  EXPECT_EQ(Probe::SourceFileName(job), "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
}

// ---- the whole document

TEST(SetParameter, DefaultsOfAllThatMayBeAbsent) {
  DelayAudio job;
  job.SetParameter(
      "<parameter><normalization><Loudness>-23</Loudness><ShortTermLoudness>-20"
      "</ShortTermLoudness><MaxTP>-1</MaxTP><normalisationMode>0</normalisationMode>"
      "</normalization><logging><frameRate>0</frameRate></logging></parameter>");
  EXPECT_EQ(Members(job),
            (std::vector<std::string>{support::Show(-23.0f), support::Show(-20.0f),
                                      support::Show(-1.0f), support::Show(0.0f), "0", "2", "", "",
                                      "", "", "", "1 groups, 1 tracks: 2"}));
}

TEST(SetParameter, AbsentFormatsAreTwoInEveryGroup) {
  DelayAudio job;
  ParameterTexts texts;
  texts.numberOfGroups = "4";
  texts.formats = {kAbsent, kAbsent, kAbsent, kAbsent};
  Set(&job, texts);
  EXPECT_EQ(Members(job).back(), "4 groups, 4 tracks: 2 2 2 2");
}

TEST(SetParameter, LoudnessIsNeededEvenWhereItIsNotUsed) {
  DelayAudio job;
  ParameterTexts texts;
  texts.normalisationMode = "1";
  texts.Loudness = kAbsent;
  EXPECT_EQ(Try(&job, ParameterDocument(texts)),
            (Outcome{"Node is not found: /parameter/normalization/Loudness/text()", 4}));
}

TEST(SetParameter, ValuesOutsideTheRangesAreTaken) {
  DelayAudio job;
  ParameterTexts texts;
  texts.Loudness = "-40";
  texts.ShortTermLoudness = "5";
  texts.MaxTP = "3";
  texts.normalisationMode = "-7";
  texts.numberOfPasses = "3";
  texts.frameRate = "1000";
  texts.logPath = std::string(1000, 'p');
  Set(&job, texts);
  EXPECT_BITS_EQ(-40.0f, Probe::Loudness(job));
  EXPECT_BITS_EQ(5.0f, Probe::ShortTermLoudness(job));
  EXPECT_BITS_EQ(3.0f, Probe::MaxTP(job));
  EXPECT_EQ(Probe::NormalisationMode(job), -7);
  EXPECT_EQ(Probe::NumberOfPasses(job), 3);
  EXPECT_BITS_EQ(1000.0f, Probe::FrameRate(job));
  EXPECT_EQ(Probe::LogPath(job), std::string(1000, 'p'));
}

TEST(SetParameter, TextsThatAreNoNumbersAreZero) {
  DelayAudio job;
  ParameterTexts texts;
  texts.Loudness = texts.ShortTermLoudness = texts.MaxTP = texts.frameRate = "abc";
  texts.normalisationMode = texts.numberOfPasses = texts.numberOfGroups = "abc";
  Set(&job, texts);
  EXPECT_BITS_EQ(0.0f, Probe::Loudness(job));
  EXPECT_BITS_EQ(0.0f, Probe::ShortTermLoudness(job));
  EXPECT_BITS_EQ(0.0f, Probe::MaxTP(job));
  EXPECT_BITS_EQ(0.0f, Probe::FrameRate(job));
  EXPECT_EQ(Probe::NormalisationMode(job), 0);
  EXPECT_EQ(Probe::NumberOfPasses(job), 0);
  EXPECT_EQ(Members(job).back(), "0 groups, 0 tracks:");
}

TEST(SetParameter, UnknownElementsAreIgnored) {
  DelayAudio job;
  ParameterTexts texts = NewTexts();
  texts.metadata += "<other><Loudness>1</Loudness></other>";
  texts.Loudness += "</Loudness><unknown>2</unknown><Loudness>";
  Set(&job, texts);
  EXPECT_EQ(Members(job), NewMembers());
}

TEST(SetParameter, TextThatDoesNotParseLeavesAllAsItWas) {
  DelayAudio job;
  Set(&job, OldTexts());
  const std::string xml = ParameterDocument(NewTexts());
  EXPECT_EQ(Try(&job, xml.substr(0, xml.size() - 1)),
            (Outcome{"Failed to parse parameter XML", -1}));
  EXPECT_EQ(Members(job), OldMembers());
}

TEST(SetParameter, EmptyTextDoesNotParse) {
  DelayAudio job;
  EXPECT_EQ(Try(&job, ""), (Outcome{"Failed to parse parameter XML", -1}));
}

TEST(SetParameter, ExportReturnsThreeForTextThatDoesNotParse) {
  DelayAudio job;
  EXPECT_EQ(xSetParameter(&job, "<parameter>"), 3u);
}

TEST(SetParameter, ExportReturnsFourForAMissingValueAndStoresNoText) {
  DelayAudio job;
  EXPECT_EQ(xSetParameter(&job, "<parameter/>"), 4u);
  EXPECT_EQ(Probe::LastErrorText(job), "");
}

#ifdef _WIN32
// The export on a stand-in for the reader.
class SetParameterOfAStub : public testing::Test {
 protected:
  std::uint32_t Set() { return xSetParameter(&job, "<parameter/>"); }
  // The code of the ComError that goes on into the host, or 0.
  ResultCode ErrorOfSet() {
    try {
      Set();
      return 0;
    } catch (const ComError& error) {
      return error.Error();
    }
  }
  StubXmlAnswers& Answers() { return stub.answers; }
  ~SetParameterOfAStub() override { EXPECT_EQ(stub.End(), 0) << "references are left"; }

  DelayAudio job;

 private:
  support::StubXmlDom stub;
};

TEST_F(SetParameterOfAStub, TakesItsText) {
  Answers().text = L"2";
  EXPECT_EQ(Set(), 0u);
  EXPECT_EQ(Members(job).back(), "2 groups, 2 tracks: 2 2");
}

TEST_F(SetParameterOfAStub, WithoutADocumentAnErrorOfComGoesIntoTheHost) {
  Answers().create = REGDB_E_CLASSNOTREG;
  EXPECT_EQ(ErrorOfSet(), kEmptyPointer);
  Answers().create = S_OK;
  Answers().queryDocument = E_NOINTERFACE;
  EXPECT_EQ(ErrorOfSet(), kEmptyPointer);
}

TEST_F(SetParameterOfAStub, DocumentThatIsNoNodeIsTheSameError) {
  Answers().queryNode = E_NOINTERFACE;
  EXPECT_EQ(ErrorOfSet(), kEmptyPointer);
}

TEST_F(SetParameterOfAStub, AnyOtherAnswerOfTheDocumentIsAnErrorWithItsCode) {
  Answers().queryNode = E_ACCESSDENIED;
  EXPECT_EQ(ErrorOfSet(), E_ACCESSDENIED);
}

TEST_F(SetParameterOfAStub, FailedOperationsAreThreeAndFour) {
  Answers().getText = E_FAIL;
  EXPECT_EQ(Set(), 4u);
  Answers().selectSingleNode = E_FAIL;
  EXPECT_EQ(Set(), 4u);
  Answers().loadXml = E_FAIL;
  EXPECT_EQ(Set(), 3u);
}

TEST_F(SetParameterOfAStub, ExhaustedMemoryIsTwoInEveryOperation) {
  Answers().getText = E_OUTOFMEMORY;
  EXPECT_EQ(Set(), 2u);
  Answers().selectSingleNode = E_OUTOFMEMORY;
  EXPECT_EQ(Set(), 2u);
  Answers().loadXml = E_OUTOFMEMORY;
  EXPECT_EQ(Set(), 2u);
}
#endif

TEST(SetParameter, SecondDocumentClearsTextsThatItLacks) {
  DelayAudio job;
  Set(&job, NewTexts());
  Set(&job, {});
  EXPECT_EQ(Members(job),
            (std::vector<std::string>{support::Show(-23.0f), support::Show(-20.0f),
                                      support::Show(-1.0f), support::Show(0.0f), "0", "2", "", "",
                                      "", "", "", "1 groups, 1 tracks: 2"}));
  for (int c = 2; c < kMaxChannels; ++c) {
    EXPECT_EQ(Probe::TrackOfChannel(job, c), -1) << c;
    EXPECT_EQ(Probe::ChannelIndexInTrack(job, c), -1) << c;
  }
}

TEST(SetParameter, UnknownFormatInAUsedGroupIsMinusOneTracksAndNoFailure) {
  DelayAudio job;
  ParameterTexts texts;
  texts.formats[0] = "9";
  EXPECT_EQ(xSetParameter(&job, ParameterDocument(texts).c_str()), 0u);
  EXPECT_EQ(Probe::TrackCount(job), -1);
}

TEST(SetParameter, UnknownFormatBeyondTheGroupsHasNoEffect) {
  DelayAudio job;
  ParameterTexts texts;
  texts.formats = {"2", "9", "0", "-1"};
  Set(&job, texts);
  EXPECT_EQ(Members(job).back(), "1 groups, 1 tracks: 2");
}

TEST(SetParameter, NoGroupsAreNoTracksAndNoFailure) {
  for (const char* groups : {"0", "-1", "-2147483648"}) {
    DelayAudio job;
    ParameterTexts texts;
    texts.numberOfGroups = groups;
    EXPECT_EQ(xSetParameter(&job, ParameterDocument(texts).c_str()), 0u) << groups;
    EXPECT_EQ(Probe::TrackCount(job), 0) << groups;
    EXPECT_EQ(Probe::NumberOfGroups(job), std::stoi(groups));
  }
}

TEST(SetParameterDeathTest, FifthGroupStops) {
  DelayAudio job;
  ParameterTexts texts;
  texts.numberOfGroups = "5";
  const std::string xml = ParameterDocument(texts);
  EXPECT_DEATH(xSetParameter(&job, xml.c_str()), "list index out of range");
}

// ---- frame rates, to the whole number that the time codes use

struct FrameRateCase {
  std::string text;
  float frameRate;
  int timecodeFrameRate;
};
void PrintTo(const FrameRateCase& rate, std::ostream* out) { *out << rate.text; }

std::uint32_t HARVANE_CALL KeepRecord(void* /*record*/) { return 0; }

class FrameRate : public testing::TestWithParam<FrameRateCase> {};

TEST_P(FrameRate, OfTheDocumentAndOfTheTimeCodes) {
  DelayAudio job;
  ParameterTexts texts;
  texts.frameRate = GetParam().text;
  Set(&job, texts);
  EXPECT_BITS_EQ(GetParam().frameRate, Probe::FrameRate(job));
  InfoBuffer info{};
  info.release = KeepRecord;
  job.SetInputInfo(&info);
  EXPECT_EQ(Probe::TimecodeFrameRate(job), GetParam().timecodeFrameRate);
}

INSTANTIATE_TEST_SUITE_P(
    , FrameRate,
    testing::Values(FrameRateCase{"0", 0.0f, 0}, FrameRateCase{"23.976", 23.976f, 24},
                    FrameRateCase{"24", 24.0f, 24}, FrameRateCase{"25", 25.0f, 25},
                    FrameRateCase{"29.97", 29.97f, 30}, FrameRateCase{"30", 30.0f, 30},
                    FrameRateCase{"50", 50.0f, 50}, FrameRateCase{"59,94", 59.0f, 59},
                    FrameRateCase{"59.94", 59.94f, 60}, FrameRateCase{"60", 60.0f, 60},
                    FrameRateCase{"1", 1.0f, 0}, FrameRateCase{"abc", 0.0f, 0}),
    [](const auto& tested) {
      std::string name = "Text" + tested.param.text;
      for (char& c : name) {
        if (c == '.') c = 'p';
        if (c == ',') c = 'c';
      }
      return name;
    });

// ---- channel tables

struct FormatRow {
  std::vector<int> positions;
  std::vector<int> offsets;
  std::vector<int> counts;
};

// By format number; -1 where the channel belongs to no track.
const FormatRow& Format(int format) {
  static const std::vector<FormatRow> kRows = {
      {{0, -1, -1, -1, -1, -1, -1, -1}, {0, -1, -1, -1, -1, -1, -1, -1}, {1}},
      {{0, 1, -1, -1, -1, -1, -1, -1}, {0, 0, -1, -1, -1, -1, -1, -1}, {2}},
      {{0, 1, 0, 1, -1, -1, -1, -1}, {0, 0, 1, 1, -1, -1, -1, -1}, {2, 2}},
      {{0, 1, 0, 1, 0, 1, -1, -1}, {0, 0, 1, 1, 2, 2, -1, -1}, {2, 2, 2}},
      {{0, 1, 0, 1, 0, 1, 0, 1}, {0, 0, 1, 1, 2, 2, 3, 3}, {2, 2, 2, 2}},
      {{0, 1, 2, 3, 4, 5, -1, -1}, {0, 0, 0, 0, 0, 0, -1, -1}, {6}},
      {{0, 1, 2, 3, 4, 5, 0, 1}, {0, 0, 0, 0, 0, 0, 1, 1}, {6, 2}},
      {{0, 1, 0, 1, 2, 3, 4, 5}, {0, 0, 1, 1, 1, 1, 1, 1}, {2, 6}}};
  return kRows.at(static_cast<std::size_t>(format) - 1);
}

std::vector<int> List(const CheckedList<int>& list) { return {list.begin(), list.end()}; }
std::vector<int> Positions(DelayAudio& job) {
  std::vector<int> all;
  for (int c = 0; c < kMaxChannels; ++c) all.push_back(Probe::ChannelIndexInTrack(job, c));
  return all;
}
std::vector<int> Tracks(DelayAudio& job) {
  std::vector<int> all;
  for (int c = 0; c < kMaxChannels; ++c) all.push_back(Probe::TrackOfChannel(job, c));
  return all;
}

class SetupChannelTables : public testing::TestWithParam<int> {};

TEST_P(SetupChannelTables, AllFormatsInAllGroups) {
  const int groups = GetParam();
  for (int mix = 0; mix < 4096; ++mix) {
    const CheckedList<int> formats = {mix % 8 + 1, mix / 8 % 8 + 1, mix / 64 % 8 + 1,
                                      mix / 512 + 1};
    std::vector<int> positions(32, -1);
    std::vector<int> tracks(32, -1);
    std::vector<int> counts;
    for (std::size_t g = 0; g < static_cast<std::size_t>(groups); ++g) {
      const FormatRow& row = Format(formats[g]);
      for (std::size_t i = 0; i < 8; ++i) {
        positions[8 * g + i] = row.positions[i];
        if (row.offsets[i] != -1)
          tracks[8 * g + i] = static_cast<int>(counts.size()) + row.offsets[i];
      }
      counts.insert(counts.end(), row.counts.begin(), row.counts.end());
    }
    DelayAudio job;
    ASSERT_EQ(job.SetupChannelTables(groups, formats), static_cast<int>(counts.size())) << mix;
    ASSERT_EQ(Positions(job), positions) << mix;
    ASSERT_EQ(Tracks(job), tracks) << mix;
    ASSERT_EQ(List(Probe::TrackChannelCounts(job)), counts) << mix;
    ASSERT_EQ(Probe::NumberOfGroups(job), groups);
  }
}

INSTANTIATE_TEST_SUITE_P(, SetupChannelTables, testing::Values(1, 2, 3, 4), [](const auto& tested) {
  return "Groups" + std::to_string(tested.param);
});

TEST(ChannelTables, OneStereoGroup) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(1, {2, 2, 2, 2}), 1);
  EXPECT_EQ(List(Probe::TrackChannelCounts(job)), (std::vector<int>{2}));
  EXPECT_EQ(Probe::TrackOfChannel(job, 0), 0);
  EXPECT_EQ(Probe::TrackOfChannel(job, 1), 0);
}

TEST(ChannelTables, SurroundAndStereoInEitherOrder) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(2, {7, 8, 2, 2}), 4);
  EXPECT_EQ(List(Probe::TrackChannelCounts(job)), (std::vector<int>{6, 2, 2, 6}));
  std::vector<int> tracks = {0, 0, 0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 3, 3, 3, 3};
  tracks.resize(32, -1);
  EXPECT_EQ(Tracks(job), tracks);
}

TEST(ChannelTables, MonoGroupsStayAtTheirPlaces) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(2, {1, 1, 2, 2}), 2);
  EXPECT_EQ(List(Probe::TrackChannelCounts(job)), (std::vector<int>{1, 1}));
  std::vector<int> tracks(32, -1);
  tracks[0] = 0;
  tracks[8] = 1;
  EXPECT_EQ(Tracks(job), tracks);
}

TEST(ChannelTables, SixteenStereoTracks) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(4, {5, 5, 5, 5}), 16);
  EXPECT_EQ(List(Probe::TrackChannelCounts(job)), std::vector<int>(16, 2));
  EXPECT_EQ(Probe::TrackOfChannel(job, 24), 12);
  EXPECT_EQ(Probe::TrackOfChannel(job, 25), 12);
  EXPECT_EQ(Probe::TrackOfChannel(job, 30), 15);
  EXPECT_EQ(Probe::TrackOfChannel(job, 31), 15);
}

TEST(ChannelTables, TracksAreNumberedAcrossGroupsWithoutGaps) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(2, {3, 6, 2, 2}), 3);
  EXPECT_EQ(Probe::TrackOfChannel(job, 0), 0);
  EXPECT_EQ(Probe::TrackOfChannel(job, 2), 1);
  EXPECT_EQ(Probe::TrackOfChannel(job, 8), 2);
}

TEST(ChannelTables, UsedChannelsAreNotCompacted) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(2, {2, 2, 2, 2}), 2);
  std::vector<int> positions(32, -1);
  positions[0] = positions[8] = 0;
  positions[1] = positions[9] = 1;
  EXPECT_EQ(Positions(job), positions);
}

TEST(ChannelTables, UnknownFormatStopsAtItsGroup) {
  for (const int unknown : {INT_MIN, -1, 0, 9, INT_MAX}) {
    DelayAudio job;
    EXPECT_EQ(job.SetupChannelTables(3, {7, unknown, 2, 2}), -1) << unknown;
    EXPECT_EQ(List(Probe::TrackChannelCounts(job)), (std::vector<int>{6, 2}));
    EXPECT_EQ(Probe::NumberOfGroups(job), 3);
    std::vector<int> positions = {0, 1, 2, 3, 4, 5, 0, 1};
    std::vector<int> tracks = {0, 0, 0, 0, 0, 0, 1, 1};
    positions.resize(32, -1);
    tracks.resize(32, -1);
    EXPECT_EQ(Positions(job), positions);
    EXPECT_EQ(Tracks(job), tracks);
  }
}

TEST(ChannelTables, NothingOfAFailedBuildRemains) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(4, {5, 5, 5, 9}), -1);
  EXPECT_EQ(job.SetupChannelTables(1, {1, 2, 2, 2}), 1);
  EXPECT_EQ(List(Probe::TrackChannelCounts(job)), (std::vector<int>{1}));
  std::vector<int> used(32, -1);
  used[0] = 0;
  EXPECT_EQ(Positions(job), used);
  EXPECT_EQ(Tracks(job), used);
}

TEST(ChannelTables, FormatsBehindTheLastGroupAreNotLookedAt) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(2, {1, 1, 9, 0}), 2);
}

TEST(ChannelTables, NoGroupsGiveNoTracks) {
  for (const int groups : {0, -1, INT_MIN}) {
    DelayAudio job;
    EXPECT_EQ(job.SetupChannelTables(groups, {2, 2, 2, 2}), 0);
    EXPECT_EQ(Probe::NumberOfGroups(job), groups);
    EXPECT_EQ(Positions(job), std::vector<int>(32, -1));
    EXPECT_EQ(Tracks(job), std::vector<int>(32, -1));
    EXPECT_TRUE(Probe::TrackChannelCounts(job).IsEmpty());
  }
}

TEST(ChannelTablesDeathTest, FifthGroupStops) {
  DelayAudio job;
  EXPECT_DEATH(job.SetupChannelTables(5, {2, 2, 2, 2}), "list index out of range");
}

TEST(ChannelTablesDeathTest, FifthGroupStopsEvenWhereItHasAFormat) {
  for (const int fifth : {2, 5, 9}) {
    DelayAudio job;
    EXPECT_DEATH(job.SetupChannelTables(5, {2, 2, 2, 2, fifth}), "a fifth group") << fifth;
    EXPECT_DEATH(job.SetupChannelTables(6, {2, 2, 2, 2, fifth, 2}), "a fifth group") << fifth;
  }
}

TEST(ChannelTables, FormatsOfMoreGroupsThanAreInUseAreNotLookedAt) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(4, {5, 5, 5, 5, 9}), 16);
}

TEST(ChannelTables, UnknownFormatIsMetBeforeTheFifthGroup) {
  DelayAudio job;
  EXPECT_EQ(job.SetupChannelTables(5, {2, 2, 2, 9}), -1);
}

// ---- lookup

// "position track", or "none" where the lookup fails and leaves the outputs alone.
std::string Look(const DelayAudio& job, int channel) {
  int position = 77;
  int track = 88;
  if (job.LookupChannel(channel, &position, &track)) {
    return std::to_string(position) + " " + std::to_string(track);
  }
  EXPECT_EQ(position, 77);
  EXPECT_EQ(track, 88);
  return "none";
}

TEST(LookupChannel, GivesPositionAndTrack) {
  DelayAudio job;
  job.SetupChannelTables(2, {7, 8, 2, 2});
  EXPECT_EQ(Look(job, 0), "0 0");
  EXPECT_EQ(Look(job, 5), "5 0");
  EXPECT_EQ(Look(job, 7), "1 1");
  EXPECT_EQ(Look(job, 8), "0 2");
  EXPECT_EQ(Look(job, 15), "5 3");
}

TEST(LookupChannel, ChannelOfNoTrackIsRefusedAndWritesNothing) {
  DelayAudio job;
  job.SetupChannelTables(1, {2, 2, 2, 2});
  for (int c = 2; c < kMaxChannels; ++c) EXPECT_EQ(Look(job, c), "none") << c;
}

TEST(LookupChannel, MonoGroupUsesItsFirstChannelAlone) {
  DelayAudio job;
  job.SetupChannelTables(1, {1, 2, 2, 2});
  EXPECT_EQ(Look(job, 0), "0 0");
  for (int c = 1; c < kChannelsPerGroup; ++c) EXPECT_EQ(Look(job, c), "none") << c;
}

TEST(LookupChannel, SurroundGroupLeavesItsLastTwoChannels) {
  DelayAudio job;
  job.SetupChannelTables(1, {6, 2, 2, 2});
  for (int c = 0; c < 6; ++c) EXPECT_EQ(Look(job, c), std::to_string(c) + " 0");
  EXPECT_EQ(Look(job, 6), "none");
  EXPECT_EQ(Look(job, 7), "none");
}

TEST(LookupChannel, ThreeFormatsUseAllEightChannels) {
  for (const int format : {5, 7, 8}) {
    DelayAudio job;
    job.SetupChannelTables(1, {format, 2, 2, 2});
    for (int c = 0; c < kChannelsPerGroup; ++c) EXPECT_NE(Look(job, c), "none") << format;
  }
}

TEST(LookupChannel, Channel32AndAboveAreRefusedWhenAllAreInUse) {
  DelayAudio job;
  job.SetupChannelTables(4, {5, 5, 5, 5});
  EXPECT_EQ(Look(job, 31), "1 15");
  for (const int channel : {32, 33, 64, INT_MAX}) EXPECT_EQ(Look(job, channel), "none") << channel;
}

TEST(LookupChannel, OneMissingEntryOfTheTwoIsEnough) {
  DelayAudio job;
  job.SetupChannelTables(1, {2, 2, 2, 2});
  Probe::ChannelIndexInTrack(job, 0) = -1;
  Probe::TrackOfChannel(job, 1) = -1;
  EXPECT_EQ(Look(job, 0), "none");
  EXPECT_EQ(Look(job, 1), "none");
}

}  // namespace
}  // namespace harvane
