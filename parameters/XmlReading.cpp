#include "parameters/XmlReading.h"

#include <cstdio>

#include "delay_audio/PluginException.h"
#include "parameters/NumberText.h"

namespace harvane {
namespace {

constexpr std::size_t kMessageBytes = 256;

bool HasFailed(ResultCode code) { return code < 0; }

std::string Utf8(const wchar_t* text) { return Utf8FromWide(text).Text(); }

}  // namespace

XmlNode SelectNode(const XmlNode& root, const wchar_t* xPath) {
  XmlNode found;
  if (HasFailed(root.SelectSingleNode(xPath, &found))) {
    char message[kMessageBytes];
    std::snprintf(message, sizeof message, "failed to find %s node", Utf8(xPath).c_str());
    throw PluginException(message, kDocumentFailure);
  }
  return found;
}

std::string ReadNodeText(const XmlNode& root, const wchar_t* xPath) {
  const XmlNode node = SelectNode(root, xPath);
  if (node.IsEmpty()) {
    throw PluginException("Node is not found: " + Utf8(xPath), kDocumentFailure);
  }
  XmlText text;
  if (HasFailed(node.GetText(&text))) {
    throw PluginException("Failed to read text value: " + Utf8(xPath), kDocumentFailure);
  }
  return Utf8(text.Wide());
}

int ReadNodeInt(const XmlNode& root, const wchar_t* xPath) {
  return IntFromText(ReadNodeText(root, xPath));
}

float ReadNodeFloat(const XmlNode& root, const wchar_t* xPath) {
  return static_cast<float>(DoubleFromText(ReadNodeText(root, xPath)));
}

}  // namespace harvane
