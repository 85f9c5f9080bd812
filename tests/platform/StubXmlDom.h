#ifndef HARVANE_TESTS_PLATFORM_STUBXMLDOM_H
#define HARVANE_TESTS_PLATFORM_STUBXMLDOM_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a document of this stand-in answers; it is its own only node. */
typedef struct StubXmlAnswers {
  HRESULT create;           /* of the class, to CoCreateInstance */
  HRESULT queryDocument;    /* to the question for IXMLDOMDocument */
  HRESULT queryNode;        /* to the question for IXMLDOMNode */
  HRESULT loadXml;          /* the text is well-formed */
  HRESULT selectSingleNode; /* finds the document */
  HRESULT getText;          /* gives `text` */
  const wchar_t* text;      /* null for no string at all */
} StubXmlAnswers;

/* Makes this thread's COM, which must be entered, create such documents in place of MSXML's,
 * until the end. One at a time. Answers may change in between; they must outlive the end. */
HRESULT BeginStubXmlDom(const StubXmlAnswers* answers);
/* Gives the number of references to documents that were not released. */
LONG EndStubXmlDom(void);

#ifdef __cplusplus
}

namespace support {

// The stand-in for its lifetime, on a thread with COM. All answers are S_OK at first, the text
// is empty.
class StubXmlDom {
 public:
  StubXmlDom() {
    CoInitialize(nullptr);
    BeginStubXmlDom(&answers);
  }
  ~StubXmlDom() {
    End();
    CoUninitialize();
  }
  StubXmlDom(const StubXmlDom&) = delete;
  StubXmlDom& operator=(const StubXmlDom&) = delete;

  // References that are left; MSXML is back.
  LONG End() {
    if (!isOver) left = EndStubXmlDom();
    isOver = true;
    return left;
  }

  StubXmlAnswers answers{};

 private:
  bool isOver = false;
  LONG left = 0;
};

}  // namespace support
#endif

#endif  // HARVANE_TESTS_PLATFORM_STUBXMLDOM_H
