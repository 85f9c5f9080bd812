#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <utf8.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>
#include <string_view>

#include "platform/XmlDom.h"

namespace harvane {
namespace {

constexpr ResultCode kSuccess = 0;
constexpr ResultCode kNoMatch = 1;  // a success, as S_FALSE is
constexpr ResultCode kFailure = static_cast<ResultCode>(static_cast<int>(0x80004005));
constexpr std::string_view kXmlBlanks = " \t\r\n";

template <class T, void (*kFree)(T*)>
struct Freed {
  void operator()(T* object) const { kFree(object); }
};
using ParserContext = std::unique_ptr<xmlParserCtxt, Freed<xmlParserCtxt, xmlFreeParserCtxt>>;
using XPathContext = std::unique_ptr<xmlXPathContext, Freed<xmlXPathContext, xmlXPathFreeContext>>;
using XPathResult = std::unique_ptr<xmlXPathObject, Freed<xmlXPathObject, xmlXPathFreeObject>>;
struct XmlChars {
  void operator()(xmlChar* text) const { xmlFree(text); }
};

const xmlChar* AsXml(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
std::string_view AsView(const xmlChar* text) {
  return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

bool IsBlank(std::string_view text) {
  return text.find_first_not_of(kXmlBlanks) == std::string_view::npos;
}

// Text between elements that is blank is layout and no content, unless its element
// says xml:space="preserve". Element names are compared as they are written, so a
// namespace without a prefix hides no element.
void MakeReadable(xmlNode* parent) {
  const bool isKeepingBlanks = xmlNodeGetSpacePreserve(parent) == 1;
  for (xmlNode* child = parent->children; child != nullptr;) {
    xmlNode* const next = child->next;
    if (child->type == XML_TEXT_NODE && !isKeepingBlanks && IsBlank(AsView(child->content))) {
      xmlUnlinkNode(child);
      xmlFreeNode(child);
    } else if (child->type == XML_ELEMENT_NODE) {
      if (child->ns != nullptr && child->ns->prefix == nullptr) child->ns = nullptr;
      MakeReadable(child);
    }
    child = next;
  }
}

int FollowerCount(unsigned char lead) {
  if (lead < 0xC2 || lead > 0xF4) return 0;
  if (lead < 0xE0) return 1;
  return lead < 0xF0 ? 2 : 3;
}

// `value`: the bits of the first two bytes. False for what a shorter sequence could
// say, for a surrogate, and beyond U+10FFFF.
bool CanGoOn(int followerCount, char32_t value) {
  if (followerCount == 2) return value >= 0x20 && (value < 0x360 || value > 0x37F);
  if (followerCount == 3) return value >= 0x10 && value < 0x110;
  return true;
}

// Reads one character at `*text` and moves it on. A broken sequence is one U+FFFD. As
// on Windows it ends before the byte that can't continue it, or behind its second
// byte where these two can't go on. A NUL continues nothing.
char32_t DecodeNext(const char** text) {
  constexpr char32_t kReplacement = 0xFFFD;
  const auto lead = static_cast<unsigned char>(*(*text)++);
  if (lead < 0x80) return lead;
  const int followerCount = FollowerCount(lead);
  if (followerCount == 0) return kReplacement;
  char32_t value = lead & (0x3Fu >> followerCount);
  for (int taken = 1; taken <= followerCount; ++taken) {
    const auto follower = static_cast<unsigned char>(**text);
    if ((follower & 0xC0) != 0x80) return kReplacement;
    ++*text;
    value = value << 6 | (follower & 0x3Fu);
    if (taken == 1 && !CanGoOn(followerCount, value)) return kReplacement;
  }
  return value;
}

std::string Encode(const wchar_t* text) {
  std::string encoded;
  for (; *text != L'\0'; ++text) {
    const auto point = static_cast<std::uint32_t>(*text);
    const bool isValid = utf8::internal::is_code_point_valid(point);
    utf8::append(isValid ? point : 0xFFFD, std::back_inserter(encoded));
  }
  return encoded;
}

// libxml2 prepares itself at its first use, which two threads must not do at once.
void PrepareLibrary() {
  static const bool isReady = [] {
    xmlInitParser();
    return true;
  }();
  static_cast<void>(isReady);
}

std::shared_ptr<_xmlDoc> Own(xmlDoc* document) {
  return std::shared_ptr<_xmlDoc>(document, xmlFreeDoc);
}

}  // namespace

ComApartmentGuard::ComApartmentGuard() : result(kSuccess) {}
ComApartmentGuard::~ComApartmentGuard() = default;

WideFromUtf8::WideFromUtf8(const char* text) {
  while (*text != '\0') buffer += static_cast<wchar_t>(DecodeNext(&text));
}

Utf8FromWide::Utf8FromWide(const wchar_t* text) {
  if (text != nullptr) buffer = Encode(text);
}

const wchar_t* XmlText::Wide() const { return text.c_str(); }

bool XmlNode::IsEmpty() const { return document == nullptr; }

ResultCode XmlNode::SelectSingleNode(const wchar_t* xPath, XmlNode* found) const {
  if (IsEmpty()) throw ComError(kEmptyPointer);
  *found = XmlNode();
  const XPathContext context(xmlXPathNewContext(document.get()));
  if (context == nullptr) throw std::bad_alloc();
  if (node != nullptr) context->node = node;
  context->error = [](void*, xmlError*) {};  // nothing to standard error
  const std::string path = Encode(xPath);
  const XPathResult matches(xmlXPathEval(AsXml(path.c_str()), context.get()));
  if (matches == nullptr || matches->type != XPATH_NODESET) return kFailure;
  if (xmlXPathNodeSetIsEmpty(matches->nodesetval)) return kNoMatch;
  found->document = document;
  found->node = matches->nodesetval->nodeTab[0];
  return kSuccess;
}

ResultCode XmlNode::GetText(XmlText* text) const {
  if (IsEmpty()) throw ComError(kEmptyPointer);
  auto* const target = node != nullptr ? node : reinterpret_cast<xmlNode*>(document.get());
  const std::unique_ptr<xmlChar, XmlChars> content(xmlNodeGetContent(target));
  std::string_view read = AsView(content.get());
  if (target->type != XML_CDATA_SECTION_NODE) {
    read.remove_prefix(std::min(read.find_first_not_of(kXmlBlanks), read.size()));
    read = read.substr(0, read.find_last_not_of(kXmlBlanks) + 1);
  }
  text->text = WideFromUtf8(std::string(read).c_str()).Text();
  return kSuccess;
}

XmlDocument::XmlDocument() {
  PrepareLibrary();
  document = Own(xmlNewDoc(AsXml("1.0")));
}

ResultCode XmlDocument::LoadXml(const wchar_t* text, bool* isSuccessful) {
  if (document == nullptr) throw ComError(kEmptyPointer);
  *isSuccessful = false;
  const std::string source = Encode(text);
  if (source.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return kFailure;
  const ParserContext parser(xmlNewParserCtxt());
  if (parser == nullptr) throw std::bad_alloc();
  // References stay references: what an entity holds is no text of the element.
  constexpr int kOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
  // The text is Unicode already, whatever encoding its declaration names.
  document = Own(xmlCtxtReadMemory(parser.get(), source.data(), static_cast<int>(source.size()),
                                   nullptr, "UTF-8", kOptions));
  if (document == nullptr || parser->nsWellFormed == 0) {
    document = Own(xmlNewDoc(AsXml("1.0")));
    return kNoMatch;
  }
  MakeReadable(reinterpret_cast<xmlNode*>(document.get()));
  *isSuccessful = true;
  return kSuccess;
}

XmlNode XmlDocument::AsNode() const {
  XmlNode whole;
  whole.document = document;
  return whole;
}

}  // namespace harvane
