#include "tool/ParameterReading.h"

#include <libxml/parser.h>
#include <libxml/xpath.h>

#include <charconv>
#include <limits>
#include <memory>
#include <new>

namespace harvane {
namespace {

using XmlDocument = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
using XPathContext = std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)>;
using XPathObject = std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)>;

constexpr int kUnusedGroupFormat = 2;

const xmlChar* Xml(const std::string& text) {
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

// The number that a text begins with, after blanks and a sign; 0 where it begins with none.
template <class Number>
Number NumberFrom(const std::string& text) {
  const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
  if (start == std::string::npos) return 0;
  const char* const first = text.data() + start + (text[start] == '+' ? 1 : 0);
  Number number = 0;
  std::from_chars(first, text.data() + text.size(), number);
  return number;
}

class Reading {
 public:
  explicit Reading(xmlDoc* document) : context(xmlXPathNewContext(document), xmlXPathFreeContext) {
    if (!context) throw std::bad_alloc();
  }

  std::optional<std::string> Text(const std::string& path) const {
    const XPathObject found(
        xmlXPathEvalExpression(Xml("/parameter/" + path + "/text()"), context.get()),
        xmlXPathFreeObject);
    if (!found) throw std::bad_alloc();
    if (xmlXPathNodeSetIsEmpty(found->nodesetval)) return std::nullopt;
    const std::unique_ptr<xmlChar, void (*)(void*)> text(
        xmlNodeGetContent(found->nodesetval->nodeTab[0]), [](void* p) { xmlFree(p); });
    if (!text) throw std::bad_alloc();
    return std::string(reinterpret_cast<const char*>(text.get()));
  }

  int Int(const std::string& path, int absent) const {
    const std::optional<std::string> text = Text(path);
    return text ? NumberFrom<int>(*text) : absent;
  }

  // Single precision, as the module keeps it.
  double Float(const std::string& path, double absent) const {
    const std::optional<std::string> text = Text(path);
    return text ? static_cast<float>(NumberFrom<double>(*text)) : absent;
  }

 private:
  XPathContext context;
};

}  // namespace

std::optional<ReadParameters> ReadParameterDocument(const std::string& xml) {
  if (xml.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return std::nullopt;
  const XmlDocument document(
      xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                    XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET),
      xmlFreeDoc);
  if (!document) return std::nullopt;
  const Reading reading(document.get());
  ReadParameters read;
  JobParameters& parameters = read.parameters;
  parameters.numberOfPasses = reading.Int("audio/numberOfPasses", parameters.numberOfPasses);
  read.numberOfGroups = reading.Int("audio/numberOfGroups", read.numberOfGroups);
  parameters.groupFormats.clear();
  for (const char* group : {"first", "second", "third", "fourth"}) {
    parameters.groupFormats.push_back(
        reading.Int(std::string("audio/") + group + "GroupChannelsFormat", kUnusedGroupFormat));
  }
  const int mode = reading.Int("normalization/normalisationMode", 0);
  parameters.mode =
      mode == 0 ? NormalisationMode::kProgrammeLoudness : NormalisationMode::kMaxShortTerm;
  parameters.loudness = reading.Float("normalization/Loudness", parameters.loudness);
  parameters.shortTermLoudness =
      reading.Float("normalization/ShortTermLoudness", parameters.shortTermLoudness);
  parameters.maxTruePeak = reading.Float("normalization/MaxTP", parameters.maxTruePeak);
  parameters.frameRate = reading.Text("logging/frameRate").value_or("0");
  parameters.logPath = reading.Text("logging/logPath").value_or("");
  parameters.logFileName = reading.Text("logging/logFileName").value_or("");
  parameters.logEntryName = reading.Text("logging/logEntryName").value_or("");
  return read;
}

}  // namespace harvane
