#include "platform/XmlDom.h"

#include <gtest/gtest.h>

#include <chrono>
#include <exception>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/TemporaryFolder.h"

#ifdef _WIN32
#include "tests/platform/StubXmlDom.h"
#endif

namespace harvane {
namespace {

std::string Wide(const XmlText& text) { return Utf8FromWide(text.Wide()).Text(); }

class XmlDom : public testing::Test {
 protected:
  bool IsLoaded(const std::string& text) {
    bool isSuccessful = false;
    const ResultCode code = document.LoadXml(WideFromUtf8(text.c_str()).Text(), &isSuccessful);
    EXPECT_GE(code, 0);
    return isSuccessful;
  }
  XmlNode Find(const wchar_t* path) {
    XmlNode found;
    EXPECT_GE(document.AsNode().SelectSingleNode(path, &found), 0);
    return found;
  }
  // The text of the node at `path`, or "(none)".
  std::string Read(const wchar_t* path) {
    const XmlNode found = Find(path);
    if (found.IsEmpty()) return "(none)";
    XmlText text;
    EXPECT_GE(found.GetText(&text), 0);
    return Wide(text);
  }

 private:
  ComApartmentGuard apartment;

 protected:
  XmlDocument document;
};

TEST_F(XmlDom, ReadsTheTextOfAnElement) {
  ASSERT_TRUE(IsLoaded("<a><b>x</b></a>"));
  EXPECT_EQ(Read(L"/a/b/text()"), "x");
}

TEST_F(XmlDom, AMissingNodeIsEmptyAndNoFailure) {
  ASSERT_TRUE(IsLoaded("<a/>"));
  XmlNode found;
  const ResultCode code = document.AsNode().SelectSingleNode(L"/a/b", &found);
  EXPECT_GE(code, 0);
  EXPECT_TRUE(found.IsEmpty());
}

TEST_F(XmlDom, ASearchOverwritesAnEarlierResult) {
  ASSERT_TRUE(IsLoaded("<a/>"));
  XmlNode found;
  document.AsNode().SelectSingleNode(L"/a", &found);
  EXPECT_FALSE(found.IsEmpty());
  document.AsNode().SelectSingleNode(L"/b", &found);
  EXPECT_TRUE(found.IsEmpty());
}

TEST_F(XmlDom, FirstMatchInDocumentOrder) {
  ASSERT_TRUE(IsLoaded("<a><b>1</b><b>2</b></a>"));
  EXPECT_EQ(Read(L"/a/b/text()"), "1");
}

TEST_F(XmlDom, DescendantsAreSearchedInDocumentOrder) {
  ASSERT_TRUE(IsLoaded("<a><c><d><b>deep</b></d></c><b>shallow</b></a>"));
  EXPECT_EQ(Read(L"/a//b/text()"), "deep");
  EXPECT_EQ(Read(L"/a/b/text()"), "shallow");
}

TEST_F(XmlDom, DescendantsDoNotIncludeTheElementItself) {
  ASSERT_TRUE(IsLoaded("<b>own<c/></b>"));
  EXPECT_EQ(Read(L"/b//b/text()"), "(none)");
}

TEST_F(XmlDom, TextsOfNestedDescendantsComeInDocumentOrder) {
  ASSERT_TRUE(IsLoaded("<a><b><b>inner</b>outer</b></a>"));
  EXPECT_EQ(Read(L"/a//b/text()"), "inner");
  EXPECT_EQ(Read(L"/a/b/text()"), "outer");
  EXPECT_EQ(Read(L"//b/b/text()"), "inner");
  EXPECT_EQ(Read(L"//b//b/text()"), "inner");
  EXPECT_EQ(Read(L"//b//b//b/text()"), "(none)");
}

TEST_F(XmlDom, DescendantsMayFollowOneAnotherAtAnyDepth) {
  ASSERT_TRUE(IsLoaded("<a><x><b><y><z><c>deep</c></z></y></b></x><c>high</c></a>"));
  EXPECT_EQ(Read(L"/a//b//c/text()"), "deep");
  EXPECT_EQ(Read(L"//c/text()"), "deep");
  EXPECT_EQ(Read(L"/a//c/text()"), "deep");
  EXPECT_EQ(Read(L"/a/c/text()"), "high");
  EXPECT_EQ(Read(L"/a//z/c/text()"), "deep");
  EXPECT_EQ(Read(L"/a//y/c/text()"), "(none)");
  EXPECT_EQ(Read(L"/a/b//c/text()"), "(none)");
  EXPECT_EQ(Read(L"/x//c/text()"), "(none)");
}

TEST_F(XmlDom, DescendantTextIsTheFirstOfAll) {
  ASSERT_TRUE(IsLoaded("<a><!-- c --><b><?p?><c>1</c></b>2<d>3</d></a>"));
  EXPECT_EQ(Read(L"//text()"), "1");
  EXPECT_EQ(Read(L"/a//text()"), "1");
  EXPECT_EQ(Read(L"/a/text()"), "2");
  EXPECT_EQ(Read(L"/a/d//text()"), "3");
}

TEST_F(XmlDom, NamesAreComparedWhole) {
  ASSERT_TRUE(IsLoaded("<a><bb>1</bb><b.c>2</b.c><b-c>3</b-c><B>4</B></a>"));
  EXPECT_EQ(Read(L"/a/b/text()"), "(none)");
  EXPECT_EQ(Read(L"/a/b.c/text()"), "2");
  EXPECT_EQ(Read(L"/a/b-c/text()"), "3");
  EXPECT_EQ(Read(L"/a/B/text()"), "4");
}

#ifndef _WIN32
// Wine's reader finds no such name.
TEST_F(XmlDom, NamesMayBeOfAnyScriptOnPosix) {
  ASSERT_TRUE(IsLoaded("<a><\xC3\xA4>x</\xC3\xA4></a>"));
  EXPECT_EQ(Read(L"/a/\u00E4/text()"), "x");
}

TEST_F(XmlDom, PathsOfOtherStepsAreFailuresOnPosix) {
  ASSERT_TRUE(IsLoaded("<a b='1'><b>x</b></a>"));
  for (const wchar_t* const path :
       {L"", L"/", L"a", L"/a/", L"//", L"/a//", L"///b", L"/a/text()/b", L"/a/@b", L"/a/b[1]",
        L"/a/*", L"/a/node()", L"/a/.", L"/a/..", L"/a/b|/a", L" /a", L"/a ", L"/x:a", L"/1"}) {
    XmlNode found;
    EXPECT_LT(document.AsNode().SelectSingleNode(path, &found), 0) << Utf8FromWide(path).Text();
    EXPECT_TRUE(found.IsEmpty());
  }
}
#endif

TEST_F(XmlDom, AbsolutePathsStartAtTheDocumentFromAnyNode) {
  ASSERT_TRUE(IsLoaded("<a><b><c>x</c></b></a>"));
  XmlNode found;
  ASSERT_GE(Find(L"/a/b/c").SelectSingleNode(L"/a/b/c/text()", &found), 0);
  EXPECT_FALSE(found.IsEmpty());
}

TEST_F(XmlDom, BlankTextIsNoNode) {
  ASSERT_TRUE(IsLoaded("<a>\n  <b> \t </b>\r\n</a>"));
  EXPECT_EQ(Read(L"/a/text()"), "(none)");
  EXPECT_EQ(Read(L"/a/b/text()"), "(none)");
}

TEST_F(XmlDom, TextIsTrimmedAtBothEnds) {
  ASSERT_TRUE(IsLoaded("<a> \t\r\nx  y\n </a>"));
  EXPECT_EQ(Read(L"/a/text()"), "x  y");
}

TEST_F(XmlDom, CommentsCutTheTextInTwo) {
  ASSERT_TRUE(IsLoaded("<a>x<!-- c -->y</a>"));
  EXPECT_EQ(Read(L"/a/text()"), "x");
}

TEST_F(XmlDom, CdataIsATextNodeWithItsBlanks) {
  ASSERT_TRUE(IsLoaded("<a><![CDATA[ <x>&amp; ]]></a>"));
  EXPECT_EQ(Read(L"/a/text()"), " <x>&amp; ");
}

TEST_F(XmlDom, EmptyCdataIsATextNode) {
  ASSERT_TRUE(IsLoaded("<a><![CDATA[]]></a>"));
  EXPECT_EQ(Read(L"/a/text()"), "");
}

TEST_F(XmlDom, DeclaredEncodingIsNotLookedAt) {
  for (const char* encoding : {"UTF-8", "UTF-16", "ISO-8859-1", "US-ASCII", "windows-1252"}) {
    ASSERT_TRUE(IsLoaded(std::string("<?xml version=\"1.0\" encoding=\"") + encoding +
                         "\"?><a>\xE2\x82\xAC</a>"))
        << encoding;
    EXPECT_EQ(Read(L"/a/text()"), "\xE2\x82\xAC") << encoding;
  }
}

TEST_F(XmlDom, WhatIsNotWellFormedIsRefused) {
  for (const char* text : {"",
                           " ",
                           "x",
                           "<",
                           "<a",
                           "<a>",
                           "</a>",
                           "<a></b>",
                           "<a/><a/>",
                           "<a/>x",
                           "x<a/>",
                           "<a b=c/>",
                           "<a b='1' b='2'/>",
                           "<a>&x;</a>",
                           "<a>&</a>",
                           "<a>&#0;</a>",
                           "<a><![CDATA[</a>",
                           "<a><!-- -- --></a>",
                           "<a>]]></a>",
                           "<1/>",
                           "<a>\x01</a>",
                           "<!-- -->"}) {
    EXPECT_FALSE(IsLoaded(text)) << text;
  }
}

TEST_F(XmlDom, ARefusedTextLeavesTheDocumentWithoutContent) {
  ASSERT_TRUE(IsLoaded("<a>x</a>"));
  EXPECT_FALSE(IsLoaded("<a>y"));
  EXPECT_EQ(Read(L"/a/text()"), "(none)");
}

TEST_F(XmlDom, ALaterTextReplacesTheEarlierOne) {
  ASSERT_TRUE(IsLoaded("<a>x</a>"));
  ASSERT_TRUE(IsLoaded("<b>y</b>"));
  EXPECT_EQ(Read(L"/a/text()"), "(none)");
  EXPECT_EQ(Read(L"/b/text()"), "y");
}

TEST_F(XmlDom, ANodeOutlivesTheDocumentObject) {
  XmlNode found;
  {
    XmlDocument other;
    bool isSuccessful = false;
    ASSERT_GE(other.LoadXml(L"<a>x</a>", &isSuccessful), 0);
    ASSERT_TRUE(isSuccessful);
    ASSERT_GE(other.AsNode().SelectSingleNode(L"/a/text()", &found), 0);
  }
  XmlText text;
  ASSERT_GE(found.GetText(&text), 0);
  EXPECT_EQ(Wide(text), "x");
}

TEST_F(XmlDom, AFunctionThatThereIsNotIsAFailure) {
  ASSERT_TRUE(IsLoaded("<a/>"));
  XmlNode found;
  EXPECT_LT(document.AsNode().SelectSingleNode(L"/a[foo()]", &found), 0);
  EXPECT_TRUE(found.IsEmpty());
}

TEST_F(XmlDom, AnUntouchedDocumentHasNoContent) {
  EXPECT_FALSE(document.AsNode().IsEmpty());
  EXPECT_EQ(Read(L"/a"), "(none)");
}

TEST_F(XmlDom, ExternalEntitiesAreNotRead) {
  const support::TemporaryFolder folder;
  support::WriteBytes(folder.FileIn("secret.txt"), "secret");
  const std::string url = "file:///" + folder.FileIn("secret.txt");
  ASSERT_TRUE(IsLoaded("<!DOCTYPE a [<!ENTITY e SYSTEM \"" + url + "\">]><a>x&e;y</a>"));
  EXPECT_EQ(Read(L"/a/text()"), "x");
  EXPECT_EQ(Read(L"/a").find("secret"), std::string::npos);
}

TEST_F(XmlDom, ExternalParameterEntitiesAreNotRead) {
  const support::TemporaryFolder folder;
  support::WriteBytes(folder.FileIn("more.dtd"), "<!ENTITY e \"secret\">");
  const std::string url = "file:///" + folder.FileIn("more.dtd");
  IsLoaded("<!DOCTYPE a [<!ENTITY % p SYSTEM \"" + url + "\"> %p;]><a>x&e;</a>");
  EXPECT_EQ(Read(L"/a").find("secret"), std::string::npos);
}

TEST_F(XmlDom, ExternalDocumentTypesAreNotRead) {
  const support::TemporaryFolder folder;
  support::WriteBytes(folder.FileIn("more.dtd"), "<!ENTITY e \"secret\">");
  const std::string url = "file:///" + folder.FileIn("more.dtd");
  IsLoaded("<!DOCTYPE a SYSTEM \"" + url + "\"><a>x&e;</a>");
  EXPECT_EQ(Read(L"/a").find("secret"), std::string::npos);
}

TEST_F(XmlDom, EntitiesOnTheNetAreNotFetched) {
  const auto start = std::chrono::steady_clock::now();
  // An address that never answers, so that a fetch would take its time.
  EXPECT_TRUE(
      IsLoaded("<!DOCTYPE a SYSTEM \"http://192.0.2.1/a.dtd\" [<!ENTITY e SYSTEM "
               "\"http://192.0.2.1/e\">]><a>x&e;</a>"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST_F(XmlDom, EntitiesThatMultiplyAreRefusedAtOnce) {
  std::string text = "<!DOCTYPE a [<!ENTITY e0 \"ha\">";
  for (int i = 1; i < 30; ++i) {
    const std::string inner = "&e" + std::to_string(i - 1) + ";";
    text += "<!ENTITY e" + std::to_string(i) + " \"" + inner + inner + inner + inner + "\">";
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(IsLoaded(text + "]><a>&e29;</a>"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(XmlDom, BigEntityUsedOftenTakesNoMemoryPerUse) {
  std::string uses;
  for (int i = 0; i < 20000; ++i) uses += "&e;";
  const auto start = std::chrono::steady_clock::now();
  IsLoaded("<!DOCTYPE a [<!ENTITY e \"" + std::string(100000, 'x') + "\">]><a>" + uses + "</a>");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(Read(L"/a/text()"), "(none)");
}

TEST_F(XmlDom, EmptyNodeThrowsOnSearchAndOnText) {
  XmlNode found;
  XmlText text;
  try {
    XmlNode().SelectSingleNode(L"/a", &found);
    FAIL() << "nothing was thrown";
  } catch (const ComError& error) {
    EXPECT_EQ(error.Error(), static_cast<ResultCode>(static_cast<int>(0x80004003)));
  }
  try {
    XmlNode().GetText(&text);
    FAIL() << "nothing was thrown";
  } catch (const ComError& error) {
    EXPECT_EQ(error.Error(), kEmptyPointer);
  }
}

TEST(ComError, IsNoStandardException) {
  EXPECT_FALSE((std::is_base_of_v<std::exception, ComError>));
}

TEST(ComApartmentGuard, MayBeNested) {
  const ComApartmentGuard outer;
  { const ComApartmentGuard inner; }
  XmlDocument document;
  bool isSuccessful = false;
  EXPECT_GE(document.LoadXml(L"<a/>", &isSuccessful), 0);
  EXPECT_TRUE(isSuccessful);
}

#ifdef _WIN32
TEST(XmlDocument, WithoutComIsEmptyAndThrowsAtTheFirstUse) {
  // No apartment on this thread.
  XmlDocument document;
  bool isSuccessful = false;
  try {
    document.LoadXml(L"<a/>", &isSuccessful);
    FAIL() << "nothing was thrown";
  } catch (const ComError& error) {
    EXPECT_EQ(error.Error(), kEmptyPointer);
  }
  EXPECT_TRUE(document.AsNode().IsEmpty());
}

TEST(ComApartmentGuard, RefusalIsPassedOverAndLeavesTheApartmentAlone) {
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  {
    const ComApartmentGuard refused;
    XmlDocument document;
    bool isSuccessful = false;
    EXPECT_GE(document.LoadXml(L"<a/>", &isSuccessful), 0);
    EXPECT_TRUE(isSuccessful);
  }
  // Still initialised: the guard made no call too many.
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
  CoUninitialize();
  CoUninitialize();
}

// ---- what the reader's own operations may answer

// The code of the ComError that leaves `action`, or 0.
template <class Action>
ResultCode ErrorOf(Action action) {
  try {
    action();
    return 0;
  } catch (const ComError& error) {
    return error.Error();
  }
}

TEST(StubXmlDom, AnswersAndIsReleasedAsOften) {
  support::StubXmlDom stub;
  stub.answers.text = L" x ";
  {
    XmlDocument document;
    bool isSuccessful = false;
    EXPECT_EQ(document.LoadXml(L"<a/>", &isSuccessful), S_OK);
    EXPECT_TRUE(isSuccessful);
    XmlNode found;
    EXPECT_EQ(document.AsNode().SelectSingleNode(L"/a", &found), S_OK);
    XmlText text;
    EXPECT_EQ(found.GetText(&text), S_OK);
    EXPECT_EQ(Wide(text), " x ");
  }
  EXPECT_EQ(stub.End(), 0);
}

TEST(XmlDocument, ThatWasNotCreatedIsEmptyAndThrowsAtTheFirstUse) {
  support::StubXmlDom stub;
  bool isSuccessful = false;
  stub.answers.create = E_FAIL;
  EXPECT_EQ(ErrorOf([&] { XmlDocument().LoadXml(L"<a/>", &isSuccessful); }), kEmptyPointer);
  stub.answers.create = S_OK;
  for (const HRESULT answer : {E_NOINTERFACE, E_FAIL}) {
    stub.answers.queryDocument = answer;
    EXPECT_EQ(ErrorOf([&] { XmlDocument().LoadXml(L"<a/>", &isSuccessful); }), kEmptyPointer);
  }
  EXPECT_EQ(stub.End(), 0);
}

TEST(XmlDocument, ThatIsNoNodeGivesAnEmptyOneWhichThrowsAtItsUse) {
  support::StubXmlDom stub;
  stub.answers.queryNode = E_NOINTERFACE;
  {
    const XmlDocument document;
    const XmlNode node = document.AsNode();
    EXPECT_TRUE(node.IsEmpty());
    XmlNode found;
    EXPECT_EQ(ErrorOf([&] { node.SelectSingleNode(L"/a", &found); }), kEmptyPointer);
  }
  EXPECT_EQ(stub.End(), 0);
}

TEST(XmlDocument, ThatFailsToSayWhetherItIsANodeThrowsThatFailure) {
  support::StubXmlDom stub;
  for (const HRESULT answer : {E_FAIL, E_UNEXPECTED, E_ACCESSDENIED, RPC_E_DISCONNECTED}) {
    stub.answers.queryNode = answer;
    EXPECT_EQ(ErrorOf([&] { XmlDocument().AsNode(); }), answer);
  }
  EXPECT_EQ(stub.End(), 0);
}

TEST(XmlDocument, FailureOfAnOperationIsItsResultCode) {
  support::StubXmlDom stub;
  {
    XmlDocument document;
    const XmlNode node = document.AsNode();
    XmlNode found;
    XmlText text;
    bool isSuccessful = true;
    for (const HRESULT answer : {E_FAIL, E_INVALIDARG}) {
      stub.answers.loadXml = stub.answers.selectSingleNode = stub.answers.getText = answer;
      EXPECT_EQ(document.LoadXml(L"<a/>", &isSuccessful), answer);
      EXPECT_FALSE(isSuccessful);
      EXPECT_EQ(node.SelectSingleNode(L"/a", &found), answer);
      EXPECT_TRUE(found.IsEmpty());
      EXPECT_EQ(node.GetText(&text), answer);
    }
  }
  EXPECT_EQ(stub.End(), 0);
}

TEST(XmlDocument, OperationThatLacksMemoryThrowsBadAlloc) {
  support::StubXmlDom stub;
  {
    XmlDocument document;
    const XmlNode node = document.AsNode();
    stub.answers.loadXml = stub.answers.selectSingleNode = stub.answers.getText = E_OUTOFMEMORY;
    XmlNode found;
    XmlText text;
    bool isSuccessful = true;
    EXPECT_THROW(document.LoadXml(L"<a/>", &isSuccessful), std::bad_alloc);
    EXPECT_THROW(node.SelectSingleNode(L"/a", &found), std::bad_alloc);
    EXPECT_THROW(node.GetText(&text), std::bad_alloc);
  }
  EXPECT_EQ(stub.End(), 0);
}

// Takes all of the address space that lies in pieces of `kPiece` bytes or more.
class CrowdedMemory {
 public:
  static constexpr SIZE_T kPiece = SIZE_T{4} << 20;
  CrowdedMemory() {
    pieces.reserve(1000);
    for (SIZE_T size = SIZE_T{1} << 30; size >= kPiece; size /= 2) {
      while (pieces.size() < pieces.capacity()) {
        void* const piece = VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS);
        if (piece == nullptr) break;
        pieces.push_back(piece);
      }
    }
  }
  ~CrowdedMemory() {
    for (void* const piece : pieces) VirtualFree(piece, 0, MEM_RELEASE);
  }
  CrowdedMemory(const CrowdedMemory&) = delete;
  CrowdedMemory& operator=(const CrowdedMemory&) = delete;

 private:
  std::vector<void*> pieces;
};

TEST(XmlDocument, TextThatFindsNoRoomThrowsBadAlloc) {
  support::StubXmlDom stub;
  const std::wstring longText(4 * CrowdedMemory::kPiece, L'x');
  bool isMemoryLacking = false;
  bool isPathLacking = false;
  {
    XmlDocument document;
    const XmlNode node = document.AsNode();
    const CrowdedMemory crowded;
    try {
      bool isSuccessful = false;
      document.LoadXml(longText.c_str(), &isSuccessful);
    } catch (const std::bad_alloc&) {
      isMemoryLacking = true;
    }
    try {
      XmlNode found;
      node.SelectSingleNode(longText.c_str(), &found);
    } catch (const std::bad_alloc&) {
      isPathLacking = true;
    }
  }
  EXPECT_TRUE(isMemoryLacking);
  EXPECT_TRUE(isPathLacking);
}
#endif

// ---- conversions

std::string RoundTrip(const std::string& text) {
  return Utf8FromWide(WideFromUtf8(text.c_str()).Text()).Text();
}

TEST(WideFromUtf8, SizeCountsTheTerminator) {
  EXPECT_EQ(WideFromUtf8("").Size(), 1u);
  EXPECT_EQ(WideFromUtf8("abc").Size(), 4u);
  EXPECT_EQ(WideFromUtf8("\xC3\xA4").Size(), 2u);
}

TEST(WideFromUtf8, TextEndsAtTheNul) {
  EXPECT_EQ(std::wstring(WideFromUtf8("ab\0cd").Text()), L"ab");
}

TEST(WideFromUtf8, CharactersOfAllLengthsComeBack) {
  for (const char* text :
       {"", "a", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(RoundTrip(text), text);
  }
}

TEST(WideFromUtf8, BytesThatAreNotUtf8BecomeReplacementCharacters) {
  const std::string bad = "\xEF\xBF\xBD";
  EXPECT_EQ(RoundTrip("a\xFFz"), "a" + bad + "z");
  EXPECT_EQ(RoundTrip("a\x80z"), "a" + bad + "z");
  EXPECT_EQ(RoundTrip("a\xC3z."), "a" + bad + "z.");
  EXPECT_EQ(RoundTrip("a\xE2\x82z.."), "a" + bad + "z..");
  EXPECT_EQ(RoundTrip("a\xC0\x80z"), "a" + bad + bad + "z");
  EXPECT_EQ(RoundTrip("a\xE0\x80\x80z"), "a" + bad + bad + "z");
  EXPECT_EQ(RoundTrip("a\xED\xA0\x80z"), "a" + bad + bad + "z");
  EXPECT_EQ(RoundTrip("a\xF0\x80\x80\x80z"), "a" + bad + bad + bad + "z");
  EXPECT_EQ(RoundTrip("a\xF4\x90\x80\x80z"), "a" + bad + bad + bad + "z");
  EXPECT_EQ(RoundTrip("a\xF5\x80\x80\x80z"), "a" + bad + bad + bad + bad + "z");
  EXPECT_EQ(RoundTrip("a\xFE\xFFz"), "a" + bad + bad + "z");
}

TEST(WideFromUtf8, SequenceCutByTheEndIsOneReplacementCharacter) {
  for (const char* text : {"a\xC3", "a\xE2", "a\xE2\x82", "a\xF0", "a\xF0\x9F", "a\xF0\x9F\x98"}) {
    EXPECT_EQ(RoundTrip(text), "a\xEF\xBF\xBD");
  }
}

TEST(Utf8FromWide, NullIsEmpty) { EXPECT_STREQ(Utf8FromWide(nullptr).Text(), ""); }

TEST(Utf8FromWide, TextEndsAtTheNul) { EXPECT_STREQ(Utf8FromWide(L"ab\0cd").Text(), "ab"); }

TEST(Utf8FromWide, LoneSurrogateBecomesAReplacementCharacter) {
  const wchar_t text[] = {L'a', static_cast<wchar_t>(0xD800), L'z', L'\0'};
  EXPECT_STREQ(Utf8FromWide(text).Text(), "a\xEF\xBF\xBDz");
}

TEST(XmlText, NewTextIsEmpty) { EXPECT_STREQ(Utf8FromWide(XmlText().Wide()).Text(), ""); }

}  // namespace
}  // namespace harvane
