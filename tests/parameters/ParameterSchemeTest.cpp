#include "parameters/ParameterScheme.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "delay_audio/Exports.h"
#include "platform/XmlDom.h"

namespace harvane {
namespace {

using Lines = std::vector<std::string>;

std::string Scheme() { return kParameterScheme; }

// The tags and comments as they are written, and each text between two of them with all its
// blanks unless it is nothing else.
Lines Pieces(const std::string& xml) {
  Lines pieces;
  std::size_t at = 0;
  while (at < xml.size()) {
    std::size_t end = 0;
    if (xml.compare(at, 4, "<!--") == 0) {
      end = xml.find("-->", at) + 3;
    } else if (xml[at] == '<') {
      // A `>` inside quotes does not end the tag.
      char quote = 0;
      for (end = at; quote != 0 || xml[end] != '>'; ++end) {
        if (quote == 0 && (xml[end] == '\'' || xml[end] == '"')) {
          quote = xml[end];
        } else if (xml[end] == quote) {
          quote = 0;
        }
      }
      ++end;
    } else {
      end = std::min(xml.find('<', at), xml.size());
    }
    const std::string piece = xml.substr(at, end - at);
    if (piece.find_first_not_of(" \t\n") != std::string::npos) pieces.push_back(piece);
    at = end;
  }
  return pieces;
}

struct Item {
  std::string name;
  std::string label;
};

Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

Lines Text(const std::string& element, const std::string& text) {
  return {"<" + element + ">", text, "</" + element + ">"};
}

Lines Head(const std::string& label, const std::string& description) {
  return Text("label", label) + Text("description", description);
}

Lines Choice(const std::string& name, const std::string& label, const std::string& description,
             const std::string& byDefault, const std::vector<Item>& items) {
  Lines lines = Lines{"<choice name='" + name + "'>"} + Head(label, description);
  if (!byDefault.empty()) lines = lines + Text("default", byDefault);
  for (const Item& item : items) {
    const std::string data = name == "numberOfPasses" ? " extData='" + item.name + "'" : "";
    lines = lines + Lines{"<item name='" + item.name + "'" + data + ">"} +
            Text("label", item.label) + Lines{"</item>"};
  }
  return lines + Lines{"</choice>"};
}

Lines Float(const std::string& name, const std::string& label, const std::string& description,
            const std::string& range) {
  return Lines{"<float name='" + name + "'>"} + Head(label, description) +
         Lines{"<range " + range + "/>", "</float>"};
}

Lines LogText(const std::string& name, const std::string& label, const std::string& description) {
  return {"<string name ='" + name + "'>",
          "<label>",
          label,
          "</label >",
          "<description>",
          description,
          "</description >",
          "<maxLength>",
          "260",
          "</maxLength>",
          "</string>"};
}

Lines Format(const std::string& name, const std::string& label, const std::string& head) {
  return Choice(name, label,
                head +
                    " The numbered options have the following meaning:1 - one mono track; 2 - "
                    "one stereo track; 2+2 - two stereo tracks; 2+2+2 - three stereo tracks; "
                    "2+2+2+2 - four stereo tracks; 5.1 - one surround track; 5.1+2 - one "
                    "surround and one stereo tracks; 2+5.1 - one stereo and one surround "
                    "tracks.",
                "2",
                {{"1", "1"},
                 {"2", "2"},
                 {"3", "2+2"},
                 {"4", "2+2+2"},
                 {"5", "2+2+2+2"},
                 {"6", "5.1"},
                 {"7", "5.1+2"},
                 {"8", "2+5.1"}});
}

Lines Group(const std::string& name, const std::string& label, const Lines& parameters) {
  return Lines{"<group name='" + name + "'>"} + Text("label", label) + parameters +
         Lines{"</group>"};
}

Lines Constraint(const std::string& path, const std::string& dependency,
                 const std::string& comparison) {
  return {"<param path='" + path + "'>",
          "<dependency path=\"" + dependency + "\"/>",
          "<choose>",
          "<when condition=\"" + dependency + " " + comparison + "\">",
          "<control enable='true' visible='true'/>",
          "</when>",
          "<otherwise>",
          "<control enable='false' visible='true'/>",
          "</otherwise>",
          "</choose>",
          "</param>"};
}

Lines Audio() {
  return Choice("numberOfPasses", "Plugin usage",
                "Specify if the plugin is used just for analysis or for analysis and process", "2",
                {{"1", "Analyze"}, {"2", "Analyze and process"}}) +
         Choice("numberOfGroups", "Number of audio groups",
                "Specify the desired number of audio groups to be processed. A group contains 8 "
                "audio channels.",
                "1", {{"1", "1"}, {"2", "2"}, {"3", "3"}, {"4", "4"}}) +
         Format("firstGroupChannelsFormat", "First Group Channels Layout",
                "Specify the format for the first audio channels group. This cantains audio "
                "channels from 0 to 7.") +
         Format("secondGroupChannelsFormat", "Second Group Channels Layout",
                "Specify the format for the second audio channels group. This cantains audio "
                "channels from 8 to 15.") +
         Format("thirdGroupChannelsFormat", "Third Group Channels Layout",
                "Specify the format for the third audio channels group. This cantains audio "
                "channels from 16 to 23.") +
         Format("fourthGroupChannelsFormat", "Fourth Group Channels Layout",
                "Specify the format for the fourth audio channels group. This cantains audio "
                "channels from 24 to 31.");
}

Lines Normalization() {
  return Choice("normalisationMode", "Normalization Parameter",
                "The normalization will be done according to this parameter: Program Loudness or "
                "Max SL. ( Maximum Short Term Loudness ).",
                "", {{"0", "Program Loudness"}, {"1", "Max. SL"}}) +
         Float("Loudness", "Target Program Loudness (LUFS)",
               "The target value of Program Loudness : Europe -23.00, USA -24.00, or any value you "
               "need (from -30.0 to -12.0).",
               "min=\"-30.0\" max=\"-12.0\" default=\"-23.0\"") +
         Float("ShortTermLoudness", "Target Max SL (LUFS)",
               "The target value of  Maximum Short Term Loudness: usually -20.00, but you can "
               "choose any value you need (from -30.0 to -12.0).",
               "min=\"-30.0\" max=\"-12.0\" default=\"-20.0\"") +
         Float("MaxTP", "Target Max TP (dBTP)",
               "The target value of Max True Peak : usually -1.00,  but you can choose any value "
               "you need (from -12.0 to 0.0).",
               "min=\"-12.0\" max=\"0.0\" default=\"-1.0\"");
}

Lines Logging() {
  return LogText("logPath", " Path to log files ",
                 " Enter the desired path for the log files. If this field is empty logs are "
                 "stored in the default location Documents\\HarvaneLogs.") +
         LogText("logFileName", " Log file name ",
                 " Enter the desired name for the log file. If this field is empty logs are saved "
                 "in the file with the default name Logdd_Month_Year.") +
         LogText("logEntryName", " Log entry name ",
                 " Enter the desired name for this log entry. If this field is empty logs entries "
                 "are saved with the default name JobAt_hh::mm::ss.") +
         Choice("frameRate", "Frame Rate",
                "Video frames rate used for time code logging. This must be the same with the "
                "frame rate of the original video material. If this field is marked as Unspecified "
                "time code log will display milliseconds insteam of frame number.",
                "0",
                {{"0", "Unspecified"},
                 {"23.976", "23.976"},
                 {"24", "24"},
                 {"25", "25"},
                 {"29.97", "29.97"},
                 {"30", "30"},
                 {"50", "50"},
                 {"59,94", "59,94"},
                 {"60", "60"}});
}

Lines Constraints() {
  return Constraint("normalization/Loudness", "normalization/normalisationMode", "= '0'") +
         Constraint("normalization/ShortTermLoudness", "normalization/normalisationMode", "= '1'") +
         Constraint("audio/secondGroupChannelsFormat", "audio/numberOfGroups", "> '1'") +
         Constraint("audio/thirdGroupChannelsFormat", "audio/numberOfGroups", "> '2'") +
         Constraint("audio/fourthGroupChannelsFormat", "audio/numberOfGroups", "> '3'");
}

Lines Whole() {
  return Lines{"<scheme version=\"1.00\">", "<!-- master element declares all the parameters -->",
               "<master>",
               "<!-- gruopType declares a category of parameter. It's used for UI\n"
               "         purpose.  -->"} +
         Group("audio", "Audio", Audio()) +
         Group("normalization", "Normalization", Normalization()) +
         Group("logging", "Logging", Logging()) +
         Lines{"</master>", "<!-- The constraints element defines the parameter rules.-->",
               "<constraints>"} +
         Constraints() + Lines{"</constraints>", "</scheme>"};
}

std::size_t Count(const std::string& text) {
  std::size_t count = 0;
  const std::string scheme = Scheme();
  for (std::size_t at = scheme.find(text); at != std::string::npos; at = scheme.find(text, at + 1))
    ++count;
  return count;
}

// The part of the pieces from the one that starts with `first` to `last`.
Lines Section(const std::string& first, const std::string& last) {
  const Lines pieces = Pieces(Scheme());
  const auto begin = std::find(pieces.begin(), pieces.end(), first);
  const auto end = std::find(begin, pieces.end(), last);
  return begin == pieces.end() || end == pieces.end() ? Lines() : Lines(begin, end + 1);
}

TEST(ParameterScheme, AudioGroupHasItsElements) {
  EXPECT_THAT(Section("<group name='audio'>", "</group>"),
              testing::ElementsAreArray(Group("audio", "Audio", Audio())));
}

TEST(ParameterScheme, NormalizationGroupHasItsElements) {
  EXPECT_THAT(Section("<group name='normalization'>", "</group>"),
              testing::ElementsAreArray(Group("normalization", "Normalization", Normalization())));
}

TEST(ParameterScheme, LoggingGroupHasItsElements) {
  EXPECT_THAT(Section("<group name='logging'>", "</group>"),
              testing::ElementsAreArray(Group("logging", "Logging", Logging())));
}

TEST(ParameterScheme, ConstraintsHaveTheirElements) {
  EXPECT_THAT(
      Section("<constraints>", "</constraints>"),
      testing::ElementsAreArray(Lines{"<constraints>"} + Constraints() + Lines{"</constraints>"}));
}

TEST(ParameterScheme, HasTheseElementsAndNoOthers) {
  EXPECT_THAT(Pieces(Scheme()), testing::ElementsAreArray(Whole()));
}

TEST(ParameterScheme, DeclaresFourteenParameters) {
  EXPECT_EQ(Count("<choice "), 8u);
  EXPECT_EQ(Count("<float "), 3u);
  EXPECT_EQ(Count("<string "), 3u);
}

TEST(ParameterScheme, IsAsciiWithLfLineEnds) {
  for (const char c : Scheme()) {
    ASSERT_TRUE(c == '\n' || c == '\t' || (c >= 0x20 && c < 0x7F)) << static_cast<int>(c);
  }
}

TEST(ParameterScheme, EndsWithTwoLineEnds) {
  const std::string scheme = Scheme();
  EXPECT_EQ(scheme.substr(scheme.size() - 11), "</scheme>\n\n");
}

TEST(ParameterScheme, StartsAtOnceWithoutADeclaration) {
  EXPECT_EQ(Scheme().substr(0, 24), "<scheme version=\"1.00\">\n");
  EXPECT_EQ(Count("<?"), 0u);
}

TEST(ParameterScheme, HasNoNamespaceAndNoReference) {
  EXPECT_EQ(Count("xmlns"), 0u);
  EXPECT_EQ(Count("&"), 0u);
}

TEST(ParameterScheme, GreaterSignsStandUnescapedInThreeConditions) {
  EXPECT_EQ(Count("audio/numberOfGroups > '"), 3u);
}

TEST(ParameterScheme, NoControlIsEverHidden) {
  EXPECT_EQ(Count("visible='true'"), 10u);
  EXPECT_EQ(Count("visible="), 10u);
}

TEST(ParameterScheme, FrameRateWithAComma) {
  EXPECT_EQ(Count("59,94"), 2u);
  EXPECT_EQ(Count("59.94"), 0u);
}

TEST(ParameterScheme, IsWellFormed) {
  const ComApartmentGuard apartment;
  XmlDocument document;
  bool isWellFormed = false;
  ASSERT_GE(document.LoadXml(WideFromUtf8(kParameterScheme).Text(), &isWellFormed), 0);
  EXPECT_TRUE(isWellFormed);
  XmlNode last;
  EXPECT_GE(document.AsNode().SelectSingleNode(L"/scheme/constraints/param/choose", &last), 0);
  EXPECT_FALSE(last.IsEmpty());
}

TEST(GetParameterScheme, SizeCountsTheTerminator) {
  InfoBuffer* scheme = nullptr;
  ASSERT_EQ(xGetParameterScheme(nullptr, &scheme), 0u);
  EXPECT_EQ(scheme->size, Scheme().size() + 1);
  EXPECT_STREQ(static_cast<const char*>(scheme->data), kParameterScheme);
  scheme->release(scheme);
}

TEST(GetParameterScheme, RecordIsZeroElsewhere) {
  InfoBuffer* scheme = nullptr;
  ASSERT_EQ(xGetParameterScheme(nullptr, &scheme), 0u);
  EXPECT_EQ(scheme->type, 0u);
  EXPECT_NE(scheme->release, nullptr);
  EXPECT_THAT(scheme->reserved1, testing::Each(0));
  EXPECT_THAT(scheme->reserved2, testing::Each(0));
  scheme->release(scheme);
}

TEST(GetParameterScheme, CopiesAreIndependent) {
  InfoBuffer* first = nullptr;
  InfoBuffer* second = nullptr;
  ASSERT_EQ(xGetParameterScheme(nullptr, &first), 0u);
  ASSERT_EQ(xGetParameterScheme(nullptr, &second), 0u);
  EXPECT_NE(first, second);
  EXPECT_NE(first->data, second->data);
  std::memset(first->data, 'x', first->size);
  EXPECT_EQ(first->release(first), 0u);
  EXPECT_STREQ(static_cast<const char*>(second->data), kParameterScheme);
  EXPECT_EQ(second->release(second), 0u);
}

}  // namespace
}  // namespace harvane
