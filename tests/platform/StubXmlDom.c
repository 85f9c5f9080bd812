/* In C, where an interface is a table of functions of which one may fill a few. */

#define COBJMACROS
#include "tests/platform/StubXmlDom.h"

#include <msxml.h>

/* The class DOMDocument. */
static const CLSID kDomDocumentClass = {
    0xF6D90F11, 0x9C73, 0x11D3, {0xB3, 0x2E, 0x00, 0xC0, 0x4F, 0x99, 0x0B, 0xB4}};

static const StubXmlAnswers* answers;
static LONG references;
static DWORD registration;

/* ---- the document, which is also every node; IXMLDOMDocument begins as IXMLDOMNode does */

static IXMLDOMDocument document;

static HRESULT Hand(HRESULT answer, void** out) {
  *out = NULL;
  if (FAILED(answer)) return answer;
  *out = &document;
  ++references;
  return answer;
}

static HRESULT WINAPI QueryInterface(IXMLDOMDocument* self, REFIID id, void** out) {
  (void)self;
  if (IsEqualIID(id, &IID_IUnknown)) return Hand(S_OK, out);
  if (IsEqualIID(id, &IID_IXMLDOMDocument)) return Hand(answers->queryDocument, out);
  if (IsEqualIID(id, &IID_IXMLDOMNode)) return Hand(answers->queryNode, out);
  return Hand(E_NOINTERFACE, out);
}

static ULONG WINAPI AddRef(IXMLDOMDocument* self) {
  (void)self;
  return (ULONG)++references;
}

static ULONG WINAPI Release(IXMLDOMDocument* self) {
  (void)self;
  return (ULONG)--references;
}

static HRESULT WINAPI LoadXml(IXMLDOMDocument* self, BSTR text, VARIANT_BOOL* isSuccessful) {
  (void)self;
  (void)text;
  *isSuccessful = FAILED(answers->loadXml) ? VARIANT_FALSE : VARIANT_TRUE;
  return answers->loadXml;
}

static HRESULT WINAPI SelectSingleNode(IXMLDOMDocument* self, BSTR path, IXMLDOMNode** found) {
  (void)self;
  (void)path;
  return Hand(answers->selectSingleNode, (void**)found);
}

static HRESULT WINAPI GetText(IXMLDOMDocument* self, BSTR* text) {
  (void)self;
  *text = NULL;
  if (SUCCEEDED(answers->getText)) *text = SysAllocString(answers->text);
  return answers->getText;
}

static IXMLDOMDocumentVtbl documentTable = {
    .QueryInterface = QueryInterface,
    .AddRef = AddRef,
    .Release = Release,
    .get_text = GetText,
    .selectSingleNode = SelectSingleNode,
    .loadXML = LoadXml,
};
static IXMLDOMDocument document = {&documentTable};

/* ---- its class */

static HRESULT WINAPI QueryFactory(IClassFactory* self, REFIID id, void** out) {
  const BOOL isKnown = IsEqualIID(id, &IID_IUnknown) || IsEqualIID(id, &IID_IClassFactory);
  *out = isKnown ? self : NULL;
  return isKnown ? S_OK : E_NOINTERFACE;
}

static ULONG WINAPI KeepFactory(IClassFactory* self) {
  (void)self;
  return 1;
}

static HRESULT WINAPI Create(IClassFactory* self, IUnknown* outer, REFIID id, void** out) {
  (void)self;
  (void)outer;
  *out = NULL;
  if (FAILED(answers->create)) return answers->create;
  return QueryInterface(&document, id, out);
}

static HRESULT WINAPI LockServer(IClassFactory* self, BOOL isLocked) {
  (void)self;
  (void)isLocked;
  return S_OK;
}

static IClassFactoryVtbl factoryTable = {QueryFactory, KeepFactory, KeepFactory, Create,
                                         LockServer};
static IClassFactory factory = {&factoryTable};

HRESULT BeginStubXmlDom(const StubXmlAnswers* newAnswers) {
  answers = newAnswers;
  references = 0;
  return CoRegisterClassObject(&kDomDocumentClass, (IUnknown*)&factory, CLSCTX_INPROC_SERVER,
                               REGCLS_MULTIPLEUSE, &registration);
}

LONG EndStubXmlDom(void) {
  CoRevokeClassObject(registration);
  return references;
}
