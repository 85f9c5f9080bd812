#include <new>

#include "platform/XmlDom.h"

namespace harvane {
namespace {

// {F6D90F11-9C73-11D3-B32E-00C04F990BB4}, the class DOMDocument
constexpr CLSID kDomDocumentClass = {
    0xF6D90F11, 0x9C73, 0x11D3, {0xB3, 0x2E, 0x00, 0xC0, 0x4F, 0x99, 0x0B, 0xB4}};
constexpr DWORD kAnyServer =
    CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;
static_assert(kAnyServer == 0x17);

// A copy of a text as COM takes it. Throws std::bad_alloc, where _bstr_t has an error of COM.
class OwnedBstr {
 public:
  explicit OwnedBstr(const wchar_t* text) : copy(SysAllocString(text)) {
    if (copy == nullptr) throw std::bad_alloc();
  }
  ~OwnedBstr() { SysFreeString(copy); }
  OwnedBstr(const OwnedBstr&) = delete;
  OwnedBstr& operator=(const OwnedBstr&) = delete;
  BSTR Text() const { return copy; }

 private:
  BSTR copy;
};

// `result`, unless memory was exhausted, which is no failure of the operation.
ResultCode Checked(HRESULT result) {
  if (result == E_OUTOFMEMORY) throw std::bad_alloc();
  return result;
}

}  // namespace

ComApartmentGuard::ComApartmentGuard() : result(CoInitialize(nullptr)) {}
ComApartmentGuard::~ComApartmentGuard() {
  if (SUCCEEDED(result)) CoUninitialize();
}

WideFromUtf8::WideFromUtf8(const char* text) {
  const int size = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
  buffer.resize(static_cast<std::size_t>(size) + 1);
  MultiByteToWideChar(CP_UTF8, 0, text, -1, buffer.data(), size);
  buffer.resize(std::char_traits<wchar_t>::length(buffer.c_str()));
}

Utf8FromWide::Utf8FromWide(const wchar_t* text) {
  if (text == nullptr) return;
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  buffer.resize(static_cast<std::size_t>(size) + 1);
  WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer.data(), size, nullptr, nullptr);
  buffer.resize(std::char_traits<char>::length(buffer.c_str()));
}

const wchar_t* XmlText::Wide() const { return text.get(); }

bool XmlNode::IsEmpty() const { return node.GetInterfacePtr() == nullptr; }

ResultCode XmlNode::SelectSingleNode(const wchar_t* xPath, XmlNode* found) const {
  const OwnedBstr query(xPath);
  IXMLDOMNode* match = nullptr;
  const HRESULT result = node->selectSingleNode(query.Text(), &match);
  found->node.Attach(match);
  return Checked(result);
}

ResultCode XmlNode::GetText(XmlText* text) const {
  BSTR taken = nullptr;
  const HRESULT result = node->get_text(&taken);
  text->text.reset(taken);
  return Checked(result);
}

// The pointer class creates through IUnknown, runs the object (OleRun) and asks
// it for IXMLDOMDocument. A failure is not examined here.
XmlDocument::XmlDocument() { document.CreateInstance(kDomDocumentClass, nullptr, kAnyServer); }

ResultCode XmlDocument::LoadXml(const wchar_t* text, bool* isSuccessful) {
  VARIANT_BOOL flag = VARIANT_FALSE;
  const OwnedBstr source(text);
  const HRESULT result = document->loadXML(source.Text(), &flag);
  *isSuccessful = flag != VARIANT_FALSE;
  return Checked(result);
}

XmlNode XmlDocument::AsNode() const {
  XmlNode whole;
  whole.node = document;
  return whole;
}

}  // namespace harvane
