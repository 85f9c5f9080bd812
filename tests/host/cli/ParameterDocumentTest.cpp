#include "host/ParameterDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>

#include <memory>
#include <random>

#include "parameters/NumberText.h"

namespace harvane {
namespace {

// Text of the first node at `path`, or "(none)".
std::string TextAt(const std::string& xml, const std::string& path) {
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, XML_PARSE_NONET),
      xmlFreeDoc);
  if (!document) return "(not well-formed)";
  const std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)> context(
      xmlXPathNewContext(document.get()), xmlXPathFreeContext);
  const std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)> found(
      xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(path.c_str()), context.get()),
      xmlXPathFreeObject);
  if (!found || xmlXPathNodeSetIsEmpty(found->nodesetval)) return "(none)";
  xmlChar* const content = xmlNodeGetContent(found->nodesetval->nodeTab[0]);
  std::string text = reinterpret_cast<const char*>(content);
  xmlFree(content);
  return text;
}

TEST(ParameterDocument, CarriesTheDefaultsOfTheScheme) {
  const std::string xml = ParameterDocument({});
  EXPECT_EQ(TextAt(xml, "/parameter/audio/numberOfPasses/text()"), "2");
  EXPECT_EQ(TextAt(xml, "/parameter/audio/numberOfGroups/text()"), "1");
  EXPECT_EQ(TextAt(xml, "/parameter/audio/firstGroupChannelsFormat/text()"), "2");
  EXPECT_EQ(TextAt(xml, "/parameter/audio/fourthGroupChannelsFormat/text()"), "2");
  EXPECT_EQ(TextAt(xml, "/parameter/normalization/Loudness/text()"), "-23");
  EXPECT_EQ(TextAt(xml, "/parameter/normalization/ShortTermLoudness/text()"), "-20");
  EXPECT_EQ(TextAt(xml, "/parameter/normalization/MaxTP/text()"), "-1");
  EXPECT_EQ(TextAt(xml, "/parameter/normalization/normalisationMode/text()"), "0");
  EXPECT_EQ(TextAt(xml, "/parameter/logging/frameRate/text()"), "0");
}

TEST(ParameterDocument, EmptyNamesHaveNoTextNode) {
  const std::string xml = ParameterDocument({});
  EXPECT_EQ(TextAt(xml, "/parameter/logging/logPath/text()"), "(none)");
  EXPECT_EQ(TextAt(xml, "/parameter/metadata/targetInfo"), "(none)");
}

TEST(ParameterDocument, GroupsStandInTheirOrder) {
  JobParameters parameters;
  parameters.groupFormats = {7, 1, 5};
  const std::string xml = ParameterDocument(parameters);
  EXPECT_EQ(TextAt(xml, "/parameter/audio/numberOfGroups/text()"), "3");
  EXPECT_EQ(TextAt(xml, "/parameter/audio/firstGroupChannelsFormat/text()"), "7");
  EXPECT_EQ(TextAt(xml, "/parameter/audio/secondGroupChannelsFormat/text()"), "1");
  EXPECT_EQ(TextAt(xml, "/parameter/audio/thirdGroupChannelsFormat/text()"), "5");
  EXPECT_EQ(TextAt(xml, "/parameter/audio/fourthGroupChannelsFormat/text()"), "2");
}

TEST(ParameterDocument, MarkupInTextsComesThrough) {
  JobParameters parameters;
  parameters.logEntryName = "a<b>&\"c'\r\n</parameter> ]]> \xC3\xA4";
  parameters.targetPath = "/x & y";
  parameters.targetBaseName = "<out>";
  const std::string xml = ParameterDocument(parameters);
  EXPECT_EQ(TextAt(xml, "/parameter/logging/logEntryName/text()"), parameters.logEntryName);
  EXPECT_EQ(TextAt(xml, "/parameter/metadata/targetInfo/path/text()"), "/x & y");
  EXPECT_EQ(TextAt(xml, "/parameter/metadata/targetInfo/baseFileName/text()"), "<out>");
}

TEST(ParameterDocument, FileNamesOfAnyBytesKeepItWellFormed) {
  JobParameters parameters;
  parameters.sourceFileName = "a\xFF\x01z";
  EXPECT_EQ(TextAt(ParameterDocument(parameters), "/parameter/metadata/sourceInfo/fileName/text()"),
            "a\xEF\xBF\xBD\xEF\xBF\xBDz");
}

TEST(ParameterDocument, NumbersReadBackAsTheSameDouble) {
  std::mt19937_64 chance(20);
  std::uniform_real_distribution<double> levels(-30.0, 0.0);
  for (int i = 0; i < 1000; ++i) {
    JobParameters parameters;
    parameters.maxTruePeak = i == 0 ? -1e-7 : levels(chance);
    const std::string text =
        TextAt(ParameterDocument(parameters), "/parameter/normalization/MaxTP/text()");
    ASSERT_EQ(DoubleFromText(text), parameters.maxTruePeak) << text;
  }
}

TEST(ParameterDocument, ControlCharactersAndBrokenUtf8AreNoDocumentText) {
  EXPECT_TRUE(IsDocumentText("a\tb\nc \xC3\xA4 \xF0\x9F\x8E\xB5"));
  EXPECT_FALSE(IsDocumentText("a\x01"));
  EXPECT_FALSE(IsDocumentText("\xC3"));
  EXPECT_FALSE(IsDocumentText("\xEF\xBF\xBF"));  // U+FFFF
}

}  // namespace
}  // namespace harvane
