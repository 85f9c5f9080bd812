#include "parameters/XmlReading.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "delay_audio/PluginException.h"
#include "tests/support/Bits.h"

#ifdef _WIN32
#include "tests/platform/StubXmlDom.h"
#endif

namespace harvane {
namespace {

// A loaded document and the COM that it needs.
class XmlReading : public testing::Test {
 protected:
  XmlNode Load(const wchar_t* text) {
    bool isWellFormed = false;
    EXPECT_GE(document.LoadXml(text, &isWellFormed), 0);
    EXPECT_TRUE(isWellFormed);
    return document.AsNode();
  }
  // The float of <a>`text`</a>.
  float Float(const std::wstring& text) {
    return ReadNodeFloat(Load((L"<a>" + text + L"</a>").c_str()), L"/a/text()");
  }

 private:
  ComApartmentGuard apartment;
  XmlDocument document;
};

template <class Action>
void ExpectFailure(Action action, const std::string& text) {
  try {
    action();
    FAIL() << "nothing was thrown";
  } catch (const PluginException& failure) {
    EXPECT_EQ(failure.what(), text);
    EXPECT_EQ(failure.code, 4u);
  }
}

TEST_F(XmlReading, SearchWithoutAMatchIsAnEmptyNode) {
  EXPECT_TRUE(SelectNode(Load(L"<a/>"), L"/b").IsEmpty());
}

TEST_F(XmlReading, SearchFindsAnEmptyElementButNoTextInIt) {
  const XmlNode root = Load(L"<a><b/></a>");
  EXPECT_FALSE(SelectNode(root, L"/a/b").IsEmpty());
  EXPECT_TRUE(SelectNode(root, L"/a/b/text()").IsEmpty());
}

// A function that there isn't makes the search itself fail. (A path that breaks off would do
// so as well, but Wine 8 crashes over it.)
std::wstring FailingPath(const std::wstring& element) { return L"/" + element + L"[foo()]"; }

TEST_F(XmlReading, SearchThatFailsIsAFailureWithThePath) {
  const XmlNode root = Load(L"<a/>");
  ExpectFailure([&] { SelectNode(root, FailingPath(L"a").c_str()); },
                "failed to find /a[foo()] node");
  ExpectFailure([&] { ReadNodeText(root, FailingPath(L"a").c_str()); },
                "failed to find /a[foo()] node");
}

TEST_F(XmlReading, FailedSearchNamesThePathInUtf8) {
  const XmlNode root = Load(L"<a/>");
  ExpectFailure([&] { SelectNode(root, L"/a[foo('\u00E4')]"); },
                "failed to find /a[foo('\xC3\xA4')] node");
}

TEST_F(XmlReading, TextOfAFailedSearchIsCutTo255Bytes) {
  const XmlNode root = Load((L"<" + std::wstring(400, L'b') + L"/>").c_str());
  const std::string whole = "failed to find /" + std::string(400, 'b') + "[foo()] node";
  ExpectFailure([&] { SelectNode(root, FailingPath(std::wstring(400, L'b')).c_str()); },
                whole.substr(0, 255));
}

TEST_F(XmlReading, TextOfAFailedSearchFitsAt255Bytes) {
  // "failed to find ", "/", "[foo()]" and " node" are 28 bytes.
  const XmlNode root = Load((L"<" + std::wstring(227, L'b') + L"/>").c_str());
  ExpectFailure([&] { SelectNode(root, FailingPath(std::wstring(227, L'b')).c_str()); },
                "failed to find /" + std::string(227, 'b') + "[foo()] node");
}

TEST_F(XmlReading, ReadingWithoutANodeIsAFailureWithThePath) {
  const XmlNode root = Load(L"<a/>");
  ExpectFailure([&] { ReadNodeText(root, L"/a/text()"); }, "Node is not found: /a/text()");
  ExpectFailure([&] { ReadNodeInt(root, L"/a/text()"); }, "Node is not found: /a/text()");
  ExpectFailure([&] { ReadNodeFloat(root, L"/a/text()"); }, "Node is not found: /a/text()");
}

TEST_F(XmlReading, PathOfAMissingNodeIsNotCut) {
  const XmlNode root = Load(L"<a/>");
  const std::wstring path = L"/" + std::wstring(400, L'b');
  ExpectFailure([&] { ReadNodeText(root, path.c_str()); },
                "Node is not found: /" + std::string(400, 'b'));
}

#ifdef _WIN32
TEST(XmlReadingOfAStub, TextThatCannotBeReadIsAFailureWithThePath) {
  support::StubXmlDom stub;
  stub.answers.getText = E_FAIL;
  const std::wstring path = L"/\u00E4" + std::wstring(400, L'b') + L"/text()";
  const std::string text =
      "Failed to read text value: /\xC3\xA4" + std::string(400, 'b') + "/text()";
  {
    const XmlDocument document;
    const XmlNode root = document.AsNode();
    ExpectFailure([&] { ReadNodeText(root, path.c_str()); }, text);
    ExpectFailure([&] { ReadNodeInt(root, path.c_str()); }, text);
    ExpectFailure([&] { ReadNodeFloat(root, path.c_str()); }, text);
  }
  EXPECT_EQ(stub.End(), 0);
}

TEST(XmlReadingOfAStub, TextWithoutAStringIsEmpty) {
  support::StubXmlDom stub;
  const XmlDocument document;
  EXPECT_EQ(ReadNodeText(document.AsNode(), L"/a/text()"), "");
}
#endif

TEST_F(XmlReading, EmptyRootIsAnErrorOfTheReader) {
  EXPECT_THROW(SelectNode(XmlNode(), L"/a"), ComError);
  EXPECT_THROW(ReadNodeText(XmlNode(), L"/a"), ComError);
}

TEST_F(XmlReading, TextIsUtf8) {
  EXPECT_EQ(ReadNodeText(Load(L"<a>\u00E4\u20AC</a>"), L"/a/text()"), "\xC3\xA4\xE2\x82\xAC");
}

TEST_F(XmlReading, IntTakesTheStartOfTheText) {
  const XmlNode root = Load(L"<a>23.976</a>");
  EXPECT_EQ(ReadNodeInt(root, L"/a/text()"), 23);
}

TEST_F(XmlReading, TextThatIsNoNumberIsZero) {
  EXPECT_EQ(ReadNodeInt(Load(L"<a>abc</a>"), L"/a/text()"), 0);
  EXPECT_BITS_EQ(0.0f, Float(L"abc"));
}

TEST_F(XmlReading, FloatIsTheDoubleNarrowed) {
  EXPECT_BITS_EQ(0.1f, Float(L"0.1"));
  EXPECT_BITS_EQ(16777216.0f, Float(L"16777217"));
  // Just below the middle of two floats: the double is the middle itself, and that goes to
  // the even float. Rounded at once it would be the lower one, 3f800001.
  EXPECT_BITS_EQ(std::bit_cast<float>(0x3f800002u), Float(L"1.00000017881393432617187499"));
}

TEST_F(XmlReading, FloatBeyondItsRangeIsInfinityOrZero) {
  EXPECT_BITS_EQ(std::numeric_limits<float>::infinity(), Float(L"1e39"));
  EXPECT_BITS_EQ(-std::numeric_limits<float>::infinity(), Float(L"-1e400"));
  EXPECT_BITS_EQ(-0.0f, Float(L"-1e-60"));
}

TEST_F(XmlReading, FrameRatesOfTheSchemeArriveAsTheyAreButTheOneWithAComma) {
  EXPECT_BITS_EQ(23.976f, Float(L"23.976"));
  EXPECT_BITS_EQ(29.97f, Float(L"29.97"));
  EXPECT_BITS_EQ(59.0f, Float(L"59,94"));
}

}  // namespace
}  // namespace harvane
