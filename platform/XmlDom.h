#ifndef HARVANE_PLATFORM_XMLDOM_H
#define HARVANE_PLATFORM_XMLDOM_H

#include <memory>
#include <string>

#ifdef _WIN32
#include <windows.h>
// After windows.h.
#include <comdef.h>
#include <msxml.h>
_COM_SMARTPTR_TYPEDEF(IXMLDOMDocument, IID_IXMLDOMDocument);
_COM_SMARTPTR_TYPEDEF(IXMLDOMNode, IID_IXMLDOMNode);
#else
struct _xmlDoc;   // NOLINT(bugprone-reserved-identifier): the names are libxml2's
struct _xmlNode;  // NOLINT(bugprone-reserved-identifier)
#endif

// Reading an XML document by XPath: MSXML through COM on Windows, libxml2
// elsewhere, with one behaviour. A document that is not well-formed, namespaces
// included, is refused. Text between elements that is blank is no text node,
// unless xml:space="preserve" covers it. A reference to an entity, other than the
// five of XML itself, ends a text node and is none. Nothing is fetched.
//
// Names      a path names elements as the document writes them: `a` is found under
//            a default namespace and `x:a` is another name.
// Texts      wide: UTF-16 on Windows, UTF-32 elsewhere.
// Errors     an operation that fails says so in its result code, as COM does; but
//            exhausted memory is std::bad_alloc wherever it shows.
//            An operation on an empty reference throws ComError with
//            kEmptyPointer, which is not a std::exception.
// Thread     a document and its nodes belong to the thread that made them.

namespace harvane {

using ResultCode = long;  // negative: failed
inline constexpr ResultCode kEmptyPointer = static_cast<ResultCode>(static_cast<int>(0x80004003));

#ifdef _WIN32
using ComError = _com_error;
#else
// What an operation on an empty reference throws.
class ComError {
 public:
  explicit ComError(ResultCode code) : code(code) {}
  ResultCode Error() const noexcept { return code; }

 private:
  ResultCode code;
};
#endif

// Enters COM on this thread for its lifetime, where there is COM. A refusal is
// passed over, and then nothing is left at the end either.
class ComApartmentGuard {
 public:
  ComApartmentGuard();
  ~ComApartmentGuard();  // NOLINT(performance-trivially-destructible): not where there is COM
  ComApartmentGuard(const ComApartmentGuard&) = delete;
  ComApartmentGuard& operator=(const ComApartmentGuard&) = delete;

 private:
  ResultCode result;
};

// A UTF-8 text made wide. Bytes that are not UTF-8 become U+FFFD.
class WideFromUtf8 {
 public:
  // `text` ends at its NUL. Throws std::bad_alloc.
  explicit WideFromUtf8(const char* text);
  const wchar_t* Text() const { return buffer.c_str(); }
  // Wide characters, the NUL included.
  std::size_t Size() const { return buffer.size() + 1; }

 private:
  std::wstring buffer;
};

// A wide text made UTF-8. What is not Unicode becomes U+FFFD.
class Utf8FromWide {
 public:
  // `text` ends at its NUL; null counts as empty. Throws std::bad_alloc.
  explicit Utf8FromWide(const wchar_t* text);
  const char* Text() const { return buffer.c_str(); }

 private:
  std::string buffer;
};

// Text of a node, as the document gives it out; owns it.
class XmlText {
 public:
  // Null for an empty text.
  const wchar_t* Wide() const;

 private:
  friend class XmlNode;
#ifdef _WIN32
  struct Freed {
    void operator()(BSTR text) const { SysFreeString(text); }
  };
  std::unique_ptr<wchar_t, Freed> text;
#else
  std::wstring text;
#endif
};

// A counted reference to a node of a document, or empty.
class XmlNode {
 public:
  XmlNode() = default;
  bool IsEmpty() const;

  // First node in document order that matches the absolute path `xPath`, or
  // empty, which is no failure. Names behind "/" or "//", and "text()" at the end,
  // are understood everywhere; any other step may be a failure.
  ResultCode SelectSingleNode(const wchar_t* xPath, XmlNode* found) const;
  // Blanks at both ends of a text are left out, those of a CDATA section are not.
  ResultCode GetText(XmlText* text) const;

 private:
  friend class XmlDocument;
#ifdef _WIN32
  IXMLDOMNodePtr node;
#else
  std::shared_ptr<_xmlDoc> document;
  _xmlNode* node = nullptr;  // the document itself where null and `document` is set
#endif
};

class XmlDocument {
 public:
  // A failure to create it leaves it empty and shows at the first use.
  XmlDocument();

  // `isSuccessful` is false where the text is not well-formed; the document is
  // then without content.
  ResultCode LoadXml(const wchar_t* text, bool* isSuccessful);

  // The document as the node to search from.
  XmlNode AsNode() const;

 private:
#ifdef _WIN32
  IXMLDOMDocumentPtr document;
#else
  std::shared_ptr<_xmlDoc> document;
#endif
};

}  // namespace harvane

#endif  // HARVANE_PLATFORM_XMLDOM_H
