#include "host/ParameterDocument.h"

#include <fmt/format.h>
#include <libxml/chvalid.h>
#include <libxml/xmlwriter.h>
#include <utf8.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <new>

namespace harvane {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr int kUnusedGroupFormat = 2;
constexpr std::array kGroupFormatNames = {"firstGroupChannelsFormat", "secondGroupChannelsFormat",
                                          "thirdGroupChannelsFormat", "fourthGroupChannelsFormat"};

using Buffer = std::unique_ptr<xmlBuffer, decltype(&xmlBufferFree)>;
using Writer = std::unique_ptr<xmlTextWriter, decltype(&xmlFreeTextWriter)>;

// Memory is all that can fail here.
void Check(int result) {
  if (result < 0) throw std::bad_alloc();
}

const xmlChar* Xml(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

bool IsDocumentCharacter(char32_t c) { return xmlIsCharQ(static_cast<unsigned int>(c)); }

std::string Cleaned(const std::string& text) {
  std::string valid;
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid));
  std::string cleaned;
  for (auto it = valid.begin(); it != valid.end();) {
    const char32_t c = utf8::next(it, valid.end());
    utf8::append(IsDocumentCharacter(c) ? c : kReplacement, std::back_inserter(cleaned));
  }
  return cleaned;
}

class Document {
 public:
  Document() : buffer(xmlBufferCreate(), xmlBufferFree), writer(nullptr, xmlFreeTextWriter) {
    if (buffer) writer.reset(xmlNewTextWriterMemory(buffer.get(), 0));
    if (!writer) throw std::bad_alloc();
    Check(xmlTextWriterStartDocument(writer.get(), nullptr, "UTF-8", nullptr));
  }
  void Open(const char* name) { Check(xmlTextWriterStartElement(writer.get(), Xml(name))); }
  void Close() { Check(xmlTextWriterEndElement(writer.get())); }
  void Put(const char* name, const std::string& text) {
    Check(xmlTextWriterWriteElement(writer.get(), Xml(name), Xml(text.c_str())));
  }
  void Put(const char* name, int number) { Put(name, fmt::format("{}", number)); }
  void Put(const char* name, double number) { Put(name, fmt::format("{}", number)); }
  std::string End() {
    Check(xmlTextWriterEndDocument(writer.get()));
    Check(xmlTextWriterFlush(writer.get()));
    return reinterpret_cast<const char*>(xmlBufferContent(buffer.get()));
  }

 private:
  Buffer buffer;
  Writer writer;
};

}  // namespace

std::string ParameterDocument(const JobParameters& parameters) {
  Document document;
  document.Open("parameter");
  document.Open("audio");
  document.Put("numberOfPasses", parameters.numberOfPasses);
  document.Put("numberOfGroups", static_cast<int>(parameters.groupFormats.size()));
  for (std::size_t g = 0; g < kGroupFormatNames.size(); ++g) {
    document.Put(kGroupFormatNames[g], g < parameters.groupFormats.size()
                                           ? parameters.groupFormats[g]
                                           : kUnusedGroupFormat);
  }
  document.Close();
  document.Open("normalization");
  document.Put("normalisationMode", static_cast<int>(parameters.mode));
  document.Put("Loudness", parameters.loudness);
  document.Put("ShortTermLoudness", parameters.shortTermLoudness);
  document.Put("MaxTP", parameters.maxTruePeak);
  document.Close();
  document.Open("logging");
  document.Put("logPath", parameters.logPath);
  document.Put("logFileName", parameters.logFileName);
  document.Put("logEntryName", parameters.logEntryName);
  document.Put("frameRate", parameters.frameRate);
  document.Close();
  document.Open("metadata");
  document.Open("sourceInfo");
  document.Put("fileName", Cleaned(parameters.sourceFileName));
  document.Close();
  if (!parameters.targetBaseName.empty()) {
    document.Open("targetInfo");
    document.Put("path", Cleaned(parameters.targetPath));
    document.Put("baseFileName", Cleaned(parameters.targetBaseName));
    document.Close();
  }
  document.Close();
  document.Close();
  return document.End();
}

bool IsDocumentText(const std::string& text) {
  if (!utf8::is_valid(text.begin(), text.end())) return false;
  for (auto it = text.begin(); it != text.end();) {
    if (!IsDocumentCharacter(utf8::next(it, text.end()))) return false;
  }
  return true;
}

}  // namespace harvane
