#ifndef HARVANE_TESTS_SUPPORT_PARAMETERDOCUMENTS_H
#define HARVANE_TESTS_SUPPORT_PARAMETERDOCUMENTS_H

#include <string>
#include <vector>

namespace support {

// The values of a parameter document as texts, so that a test can put anything
// there. An entry of "(absent)" leaves the element out; "" makes it empty.
struct ParameterTexts {
  std::string numberOfPasses = "2";
  std::string numberOfGroups = "1";
  std::vector<std::string> formats = {"2", "2", "2", "2"};
  std::string Loudness = "-23";
  std::string ShortTermLoudness = "-20";
  std::string MaxTP = "-1";
  std::string normalisationMode = "0";
  std::string logPath = "(absent)";
  std::string logFileName = "(absent)";
  std::string logEntryName = "(absent)";
  std::string frameRate = "0";
  std::string metadata;  // XML, as it stands behind the three groups
};

// The document as a host writes it. The texts go in as they are, unescaped.
inline std::string ParameterDocument(const ParameterTexts& texts) {
  const auto element = [](const std::string& name, const std::string& text) {
    return text == "(absent)" ? std::string() : "<" + name + ">" + text + "</" + name + ">";
  };
  static const std::vector<std::string> kFormatNames = {
      "firstGroupChannelsFormat", "secondGroupChannelsFormat", "thirdGroupChannelsFormat",
      "fourthGroupChannelsFormat"};
  std::string xml = "<parameter><audio>" + element("numberOfPasses", texts.numberOfPasses) +
                    element("numberOfGroups", texts.numberOfGroups);
  for (std::size_t g = 0; g < texts.formats.size(); ++g) {
    xml += element(kFormatNames.at(g), texts.formats[g]);
  }
  xml += "</audio><normalization>" + element("normalisationMode", texts.normalisationMode) +
         element("Loudness", texts.Loudness) +
         element("ShortTermLoudness", texts.ShortTermLoudness) + element("MaxTP", texts.MaxTP) +
         "</normalization><logging>" + element("logPath", texts.logPath) +
         element("logFileName", texts.logFileName) + element("logEntryName", texts.logEntryName) +
         element("frameRate", texts.frameRate) + "</logging>" + texts.metadata + "</parameter>";
  return xml;
}

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_PARAMETERDOCUMENTS_H
