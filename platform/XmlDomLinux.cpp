#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <utf8.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>
#include <string_view>
#include <vector>

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

// libxml2 prepares itself at its first use, which two threads must not do at once. Up to 2.9 its
// initialisation leaves out the lock of the dictionaries, which the first one makes.
void PrepareLibrary() {
  static const bool isReady = [] {
    xmlInitParser();
    xmlDictFree(xmlDictCreate());
    return true;
  }();
  static_cast<void>(isReady);
}

std::shared_ptr<_xmlDoc> Own(xmlDoc* document) {
  return std::shared_ptr<_xmlDoc>(document, xmlFreeDoc);
}

std::shared_ptr<_xmlDoc> NewDocument() {
  xmlDoc* const document = xmlNewDoc(AsXml("1.0"));
  if (document == nullptr) throw std::bad_alloc();
  return Own(document);
}

// Notices the lack of memory inside libxml2, which often goes on with less than there is, and
// keeps its messages from standard error, which is the host's.
class MemoryWatch {
 public:
  MemoryWatch() : previous(xmlStructuredError), previousContext(xmlStructuredErrorContext) {
    xmlSetStructuredErrorFunc(&isLacking, [](void* lacking, auto* error) {
      if (error->code == XML_ERR_NO_MEMORY) *static_cast<bool*>(lacking) = true;
    });
  }
  ~MemoryWatch() { xmlSetStructuredErrorFunc(previousContext, previous); }
  MemoryWatch(const MemoryWatch&) = delete;
  MemoryWatch& operator=(const MemoryWatch&) = delete;

  // Throws std::bad_alloc if memory was lacking since the beginning.
  void Check() const {
    if (isLacking) throw std::bad_alloc();
  }

 private:
  xmlStructuredErrorFunc previous;
  void* previousContext;
  bool isLacking = false;
};

// libxml2's own XPath frees memory twice, and misses nodes, where memory is lacking. The paths
// that are asked for need little of it, and no memory.
struct Step {
  std::string_view name;  // of an element, or kTextStep
  bool isDeeper;          // behind "//": any descendant of the step before, not its child
};
constexpr std::string_view kTextStep = "text()";

bool IsName(std::string_view text) {
  return xmlValidateNCName(AsXml(std::string(text).c_str()), 0) == 0;
}

// False for anything but names behind "/" or "//", and "text()" at the end.
bool ReadSteps(std::string_view path, std::vector<Step>* steps) {
  do {
    if (path.empty() || path.front() != '/') return false;
    path.remove_prefix(1);
    const bool isDeeper = !path.empty() && path.front() == '/';
    if (isDeeper) path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    if (!IsName(name) && !(name == kTextStep && path.empty())) return false;
    steps->push_back({name, isDeeper});
  } while (!path.empty());
  return true;
}

bool IsNamedBy(const xmlNode* node, const Step& step) {
  if (step.name == kTextStep) {
    return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
  }
  return node->type == XML_ELEMENT_NODE && node->ns == nullptr && AsView(node->name) == step.name;
}

// Whether the first `count` steps lead to `node`.
bool IsReachedBy(const xmlNode* node, const Step* steps, std::size_t count) {
  const Step& last = steps[count - 1];
  if (!IsNamedBy(node, last)) return false;
  const xmlNode* above = node->parent;
  if (count == 1) return last.isDeeper || above->type == XML_DOCUMENT_NODE;
  for (; above->type == XML_ELEMENT_NODE; above = above->parent) {
    if (IsReachedBy(above, steps, count - 1)) return true;
    if (!last.isDeeper) break;
  }
  return false;
}

// The node behind `node` in document order, elements before what they hold. Null at the end.
xmlNode* NextInDocument(xmlNode* node) {
  if (node->type == XML_ELEMENT_NODE && node->children != nullptr) return node->children;
  while (node->next == nullptr) {
    node = node->parent;
    if (node->type != XML_ELEMENT_NODE) return nullptr;
  }
  return node->next;
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
  const std::string path = Encode(xPath);
  std::vector<Step> steps;
  if (!ReadSteps(path, &steps)) return kFailure;
  for (xmlNode* at = document->children; at != nullptr; at = NextInDocument(at)) {
    if (!IsReachedBy(at, steps.data(), steps.size())) continue;
    found->document = document;
    found->node = at;
    return kSuccess;
  }
  return kNoMatch;
}

ResultCode XmlNode::GetText(XmlText* text) const {
  if (IsEmpty()) throw ComError(kEmptyPointer);
  auto* const target = node != nullptr ? node : reinterpret_cast<xmlNode*>(document.get());
  const MemoryWatch watch;
  const std::unique_ptr<xmlChar, XmlChars> content(xmlNodeGetContent(target));
  watch.Check();
  std::string_view read = AsView(content.get());
  if (target->type != XML_CDATA_SECTION_NODE) {
    read.remove_prefix(std::min(read.find_first_not_of(kXmlBlanks), read.size()));
    read = read.substr(0, read.find_last_not_of(kXmlBlanks) + 1);
  }
  text->text = WideFromUtf8(std::string(read).c_str()).Text();
  return kSuccess;
}

XmlDocument::XmlDocument() {
  const MemoryWatch watch;
  PrepareLibrary();
  document = NewDocument();
}

ResultCode XmlDocument::LoadXml(const wchar_t* text, bool* isSuccessful) {
  if (document == nullptr) throw ComError(kEmptyPointer);
  *isSuccessful = false;
  const std::string source = Encode(text);
  if (source.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return kFailure;
  const MemoryWatch watch;
  const ParserContext parser(xmlNewParserCtxt());
  if (parser == nullptr) throw std::bad_alloc();
  // References stay references: what an entity holds is no text of the element.
  constexpr int kOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
  // The text is Unicode already, whatever encoding its declaration names.
  document = Own(xmlCtxtReadMemory(parser.get(), source.data(), static_cast<int>(source.size()),
                                   nullptr, "UTF-8", kOptions));
  watch.Check();
  if (document == nullptr || parser->nsWellFormed == 0) {
    document = NewDocument();
    return kNoMatch;
  }
  MakeReadable(reinterpret_cast<xmlNode*>(document.get()));
  watch.Check();
  *isSuccessful = true;
  return kSuccess;
}

XmlNode XmlDocument::AsNode() const {
  XmlNode whole;
  whole.document = document;
  return whole;
}

}  // namespace harvane
