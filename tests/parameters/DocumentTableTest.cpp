#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "delay_audio/Exports.h"
#include "tests/support/Bits.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/ParameterDocuments.h"

#ifdef _WIN32
#include <windows.h>
#endif

// What the two XML readers, MSXML and libxml2, must answer alike: documents in all
// states, through the export. Values that a row does not name are those of a plain
// document, so a row that is refused names a code alone.

namespace harvane {
namespace {

constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kRefused = 3;  // not well-formed
constexpr std::uint32_t kMissing = 4;  // a value that has to be there is not

constexpr const char* kBom = "\xEF\xBB\xBF";

struct Row {
  std::string name;
  std::string xml;
  std::uint32_t code;
  std::string logPath = "";
  float loudness = -23.0f;
  std::string sourceFileName = "";
};

// In place of a path, in a row that both Microsoft's reader and ours refuse while
// Wine's takes it: no harm, but no answer of the system that Wine stands for.
constexpr const char* kWineAccepts = "(accepted by Wine)";

bool IsWine() {
#ifdef _WIN32
  const HMODULE system = GetModuleHandleW(L"ntdll.dll");
  return system != nullptr && GetProcAddress(system, "wine_get_version") != nullptr;
#else
  return false;
#endif
}

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

std::string Times(std::size_t count, const std::string& text) {
  std::string all;
  all.reserve(count * text.size());
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

std::string Plain() { return support::ParameterDocument({}); }

// Documents in which one place is `xml`.
std::string Path(const std::string& xml) {
  support::ParameterTexts texts;
  texts.logPath = xml;
  return support::ParameterDocument(texts);
}
std::string Loud(const std::string& xml) {
  support::ParameterTexts texts;
  texts.Loudness = xml;
  return support::ParameterDocument(texts);
}
std::string Metadata(const std::string& xml) {
  support::ParameterTexts texts;
  texts.metadata = "<metadata>" + xml + "</metadata>";
  return support::ParameterDocument(texts);
}

// `document` with the first `from` replaced.
std::string Replaced(std::string document, const std::string& from, const std::string& to) {
  return document.replace(document.find(from), from.size(), to);
}

std::string ManyAttributes(int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += " c" + std::to_string(i) + "=''";
  return all;
}

std::string Laughs() {
  std::string dtd = "<!DOCTYPE parameter [<!ENTITY e0 \"lol\">";
  for (int i = 1; i < 12; ++i) {
    const std::string inner = "&e" + std::to_string(i - 1) + ";";
    dtd += "<!ENTITY e" + std::to_string(i) + " \"" + Times(10, inner) + "\">";
  }
  return dtd + "]>" + Path("&e11;");
}

// clang-format off
std::vector<Row> Rows() {
  const std::string entity = "<!DOCTYPE parameter [<!ENTITY e \"abc\">]>";
  return {
      // Blanks.
      {"PlainText", Path("abc"), kDone, "abc"},
      {"LeadingBlanks", Path("  abc"), kDone, "abc"},
      {"TrailingBlanks", Path("abc  "), kDone, "abc"},
      {"BlanksOfAllKindsAround", Path("\t\r\n abc \n\r\t"), kDone, "abc"},
      {"InnerBlanks", Path("a  b\tc"), kDone, "a  b\tc"},
      {"InnerCrLf", Path("a\r\nb\rc\nd"), kDone, "a\nb\nc\nd"},
      {"CarriageReturnReference", Path("a&#13;b"), kDone, "a\rb"},
      {"OnlyBlanks", Path(" \t\r\n "), kDone, ""},
      {"BlankReferenceAlone", Path("&#32;"), kDone, ""},
      {"BlankReferencesAround", Path("&#32;abc&#32;"), kDone, "abc"},
      {"NoBreakSpaceAround", Path("\xC2\xA0" "abc" "\xC2\xA0"), kDone, "\xC2\xA0" "abc" "\xC2\xA0"},
      {"IdeographicSpaceAround", Path("\xE3\x80\x80" "abc" "\xE3\x80\x80"), kDone, "\xE3\x80\x80" "abc" "\xE3\x80\x80"},
      {"NextLineAround", Path("\xC2\x85" "abc" "\xC2\x85"), kDone, "\xC2\x85" "abc" "\xC2\x85"},
      {"OnlyNoBreakSpace", Path("\xC2\xA0"), kDone, "\xC2\xA0"},
      {"ZeroWidthSpaceAround", Path("\xE2\x80\x8B" "abc"), kDone, "\xE2\x80\x8B" "abc"},
      {"BlanksPreserved", Replaced(Path("  abc "), "<logPath>", "<logPath xml:space=\"preserve\">"), kDone, "abc"},
      {"BlanksPreservedFromRoot", Replaced(Path("  abc "), "<parameter>", "<parameter xml:space=\"preserve\">"), kDone, "abc"},
      {"BlanksPreservedThenDefault", Replaced(Replaced(Path("  abc "), "<parameter>", "<parameter xml:space=\"preserve\">"), "<logPath>", "<logPath xml:space=\"default\">"), kDone, "abc"},
      {"BlanksDefault", Replaced(Path("  abc "), "<logPath>", "<logPath xml:space=\"default\">"), kDone, "abc"},
      {"OnlyBlanksPreserved", Replaced(Path("  "), "<logPath>", "<logPath xml:space=\"preserve\">"), kDone, ""},
      {"LoudnessOfPreservedBlanks", Replaced(Loud("  "), "<Loudness>", "<Loudness xml:space=\"preserve\">"), kDone, "", 0.0f},
      {"LoudnessOfBlanks", Loud("  "), kMissing},
      {"LoudnessOfBlankReferences", Loud("&#32;&#10;"), kMissing},
      {"LoudnessWithLayout", Loud("\n    -12.5\n  "), kDone, "", -12.5f},
      // References.
      {"FiveEntities", Path("a&amp;b&lt;c&gt;d&quot;e&apos;f"), kDone, "a&b<c>d\"e'f"},
      {"DecimalReference", Path("&#65;&#228;"), kDone, "A\xC3\xA4"},
      {"HexadecimalReference", Path("&#x41;&#xE4;"), kDone, "A\xC3\xA4"},
      {"ReferenceAboveTheBasicPlane", Path("&#x1F600;"), kDone, "\xF0\x9F\x98\x80"},
      {"CharacterAboveTheBasicPlane", Path("\xF0\x9F\x98\x80"), kDone, "\xF0\x9F\x98\x80"},
      {"LoudnessInReferences", Loud("&#45;1&#53;"), kDone, "", -15.0f},
      {"NulReference", Path("a&#0;b"), kRefused},
      {"ControlReference", Path("a&#1;b"), kRefused},
      {"SurrogateReference", Path("a&#xD800;b"), kRefused},
      {"NoncharacterReference", Path("a&#xFFFF;b"), kRefused},
      {"ReferenceBeyondUnicode", Path("a&#x110000;b"), kRefused},
      {"ReferenceWithoutDigits", Path("a&#;b"), kRefused},
      {"ReferenceWithoutSemicolon", Path("a&#65 b"), kRefused},
      {"EntityWithoutSemicolon", Path("a&amp b"), kRefused},
      {"BareAmpersand", Path("a & b"), kRefused},
      {"UndeclaredEntity", Path("a&nbsp;b"), kRefused},
      // CDATA, comments, processing instructions, child elements.
      {"Cdata", Path("<![CDATA[abc]]>"), kDone, "abc"},
      {"CdataWithMarkup", Path("<![CDATA[<a>&amp;]]>"), kDone, "<a>&amp;"},
      {"CdataEmpty", Path("<![CDATA[]]>"), kDone, ""},
      {"CdataOfBlanks", Path("<![CDATA[  ]]>"), kDone, "  "},
      {"CdataWithBlanksInside", Path("<![CDATA[ abc ]]>"), kDone, " abc "},
      {"CdataBehindText", Path("abc<![CDATA[def]]>"), kDone, "abc"},
      {"CdataBeforeText", Path("<![CDATA[abc]]>def"), kDone, "abc"},
      {"CdataBehindBlanks", Path("  <![CDATA[abc]]>  "), kDone, "abc"},
      {"CdataBehindCdata", Path("<![CDATA[abc]]><![CDATA[def]]>"), kDone, "abcdef"},
      {"LoudnessInCdata", Loud("<![CDATA[-14]]>"), kDone, "", -14.0f},
      {"LoudnessInEmptyCdata", Loud("<![CDATA[]]>"), kDone, "", 0.0f},
      {"LoudnessInBlankCdata", Loud("<![CDATA[ ]]>"), kDone, "", 0.0f},
      {"CommentInsideText", Path("abc<!-- x -->def"), kDone, "abc"},
      {"CommentBeforeText", Path("<!-- x -->abc"), kDone, "abc"},
      {"BlanksAndCommentBeforeText", Path("  <!-- x --> abc"), kDone, "abc"},
      {"CommentAlone", Path("<!-- x -->"), kDone, ""},
      {"LoudnessCutByComment", Loud("-1<!-- x -->5"), kDone, "", -1.0f},
      {"LoudnessOfCommentAlone", Loud("<!-- -23 -->"), kMissing},
      {"InstructionInsideText", Path("abc<?x y?>def"), kDone, "abc"},
      {"InstructionBeforeText", Path("<?x y?>abc"), kDone, "abc"},
      {"ChildInsideText", Path("abc<b>def</b>ghi"), kDone, "abc"},
      {"ChildBeforeText", Path("<b>def</b>abc"), kDone, "abc"},
      {"ChildAlone", Path("<b>def</b>"), kDone, ""},
      // Elements more than once, elsewhere, or with attributes.
      {"DoubledElement", Path("a</logPath><logPath>b"), kDone, "a"},
      {"DoubledElementFirstEmpty", Path("</logPath><logPath>b"), kDone, "b"},
      {"DoubledLoudness", Loud("-13</Loudness><Loudness>-14"), kDone, "", -13.0f},
      {"DoubledLoudnessFirstEmpty", Loud("</Loudness><Loudness>-14"), kDone, "", -14.0f},
      {"DoubledGroup", Replaced(Plain(), "<normalization>", "<normalization><MaxTP>0</MaxTP></normalization><normalization>"), kDone},
      {"ValueInADeeperElement", Replaced(Replaced(Plain(), "<Loudness>", "<a><Loudness>"), "</Loudness>", "</Loudness></a>"), kMissing},
      {"OtherCase", Replaced(Replaced(Plain(), "<Loudness>", "<loudness>"), "</Loudness>", "</loudness>"), kMissing},
      {"OtherRoot", "<parameters>" + Plain() + "</parameters>", kMissing},
      {"EmptyRoot", "<parameter/>", kMissing},
      {"Attributes", Replaced(Path("abc"), "<logPath>", "<logPath a='1' b=\"2\">"), kDone, "abc"},
      {"ValueInAnAttribute", Replaced(Plain(), "<Loudness>-23</Loudness>", "<Loudness v='-23'/>"), kMissing},
      {"FileNameAtAnyDepth", Metadata("<sourceInfo><a><b><fileName>x</fileName></b></a></sourceInfo>"), kDone, "", -23.0f, "x"},
      {"FileNameInDocumentOrder", Metadata("<sourceInfo><a><fileName>x</fileName></a><fileName>y</fileName></sourceInfo>"), kDone, "", -23.0f, "x"},
      {"FileNameDeepBehindShallow", Metadata("<sourceInfo><fileName>y</fileName><a><fileName>x</fileName></a></sourceInfo>"), kDone, "", -23.0f, "y"},
      {"FileNameFirstEmpty", Metadata("<sourceInfo><fileName/><a><fileName>x</fileName></a></sourceInfo>"), kDone, "", -23.0f, "x"},
      {"FileNameNested", Metadata("<sourceInfo><fileName><fileName>x</fileName>y</fileName></sourceInfo>"), kDone, "", -23.0f, "x"},
      {"FileNameInSecondSource", Metadata("<sourceInfo/><sourceInfo><fileName>x</fileName></sourceInfo>"), kDone, "", -23.0f, "x"},
      {"FileNameOutsideTheSource", Metadata("<fileName>x</fileName>"), kDone},
      // Prologue.
      {"Declaration", "<?xml version=\"1.0\"?>" + Path("abc"), kDone, "abc"},
      {"DeclarationUtf8", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + Path("\xC3\xA4"), kDone, "\xC3\xA4"},
      {"DeclarationUtf16", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + Path("\xC3\xA4"), kDone, "\xC3\xA4"},
      {"DeclarationLatin1", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + Path("\xC3\xA4"), kDone, "\xC3\xA4"},
      {"DeclarationWindows1252", "<?xml version=\"1.0\" encoding=\"windows-1252\"?>" + Path("\xC3\xA4"), kDone, "\xC3\xA4"},
      {"DeclarationUnknownEncoding", "<?xml version=\"1.0\" encoding=\"x-none\"?>" + Path("\xC3\xA4"), kRefused},
      {"DeclarationStandalone", "<?xml version='1.0' standalone='yes'?>" + Path("abc"), kDone, "abc"},
      {"DeclarationVersion11", "<?xml version='1.1'?>" + Path("abc"), kDone, "abc"},
      {"DeclarationVersion20", "<?xml version='2.0'?>" + Path("abc"), kRefused},
      {"DeclarationWithoutVersion", "<?xml encoding='UTF-8'?>" + Path("abc"), kRefused},
      {"DeclarationWithUnknownAttribute", "<?xml version='1.0' a='b'?>" + Path("abc"), kRefused},
      {"DeclarationUnclosed", "<?xml version='1.0'>" + Path("abc"), kRefused},
      {"DeclarationBehindBlanks", " \r\n<?xml version='1.0'?>" + Path("abc"), kRefused},
      {"DeclarationBehindComment", "<!-- x --><?xml version='1.0'?>" + Path("abc"), kRefused},
      {"BlanksBeforeTheRoot", " \t\r\n" + Path("abc"), kDone, "abc"},
      {"ByteOrderMark", kBom + Path("abc"), kDone, "abc"},
      {"ByteOrderMarkAndDeclaration", kBom + ("<?xml version='1.0' encoding='UTF-8'?>" + Path("abc")), kDone, "abc"},
      {"ByteOrderMarkBehindBlanks", std::string(" ") + kBom + Path("abc"), kRefused},
      {"TwoByteOrderMarks", std::string(kBom) + kBom + Path("abc"), kRefused, kWineAccepts},
      {"CommentsAndInstructionsAround", "<!-- a --><?x y?>" + Path("abc") + "<!-- b --><?x y?>\n", kDone, "abc"},
      {"CrLfBetweenAllElements", Replaced(Replaced(Path("abc"), "<audio>", "\r\n <audio>\r\n"), "</logging>", "\r\n</logging>\r\n"), kDone, "abc"},
      // Document types.
      {"DocumentType", "<!DOCTYPE parameter>" + Path("abc"), kDone, "abc"},
      {"DocumentTypeOfAnotherRoot", "<!DOCTYPE other>" + Path("abc"), kDone, "abc"},
      {"DocumentTypeTwice", "<!DOCTYPE parameter><!DOCTYPE parameter>" + Path("abc"), kRefused},
      {"DocumentTypeBehindTheRoot", Path("abc") + "<!DOCTYPE parameter>", kRefused},
      {"DocumentTypeUnclosed", "<!DOCTYPE parameter [" + Path("abc"), kRefused},
      {"DocumentTypeExternal", "<!DOCTYPE parameter SYSTEM \"file:///missing.dtd\">" + Path("abc"), kDone, "abc"},
      {"ElementsDeclared", "<!DOCTYPE parameter [<!ELEMENT parameter ANY>]>" + Path("abc"), kDone, "abc"},
      {"ElementsDeclaredOtherwise", "<!DOCTYPE parameter [<!ELEMENT parameter EMPTY>]>" + Path("abc"), kDone, "abc"},
      {"SpaceAttributeDeclared", "<!DOCTYPE parameter [<!ATTLIST logPath xml:space (default|preserve) 'preserve'>]>" + Path(" abc "), kDone, "abc"},
      {"Entity", entity + Path("&e;"), kDone, ""},
      {"EntityInsideText", entity + Path("x&e;y"), kDone, "x"},
      {"EntityBeforeText", entity + Path("&e;y"), kDone, "y"},
      {"EntityDeclaredTwice", "<!DOCTYPE parameter [<!ENTITY e \"abc\"><!ENTITY e \"def\">]>" + Path("&e;"), kDone, ""},
      {"EntityWithAReference", "<!DOCTYPE parameter [<!ENTITY e \"a&#38;#98;c\">]>" + Path("&e;"), kDone, ""},
      {"EntityInAnEntity", "<!DOCTYPE parameter [<!ENTITY d \"b\"><!ENTITY e \"a&d;c\">]>" + Path("&e;"), kDone, ""},
      {"EntityWithMarkup", "<!DOCTYPE parameter [<!ENTITY e \"<b>x</b>abc\">]>" + Path("&e;"), kDone, ""},
      {"EntityWithBrokenMarkup", "<!DOCTYPE parameter [<!ENTITY e \"<b>x\">]>" + Path("&e;"), kRefused},
      {"EntityOfBlanks", "<!DOCTYPE parameter [<!ENTITY e \"  \">]>" + Path("&e;"), kDone, ""},
      {"EntityEmpty", "<!DOCTYPE parameter [<!ENTITY e \"\">]>" + Path("x&e;y"), kDone, "x"},
      {"EntityAsWholeElement", "<!DOCTYPE parameter [<!ENTITY e \"<logPath>abc</logPath>\">]>" + Replaced(Plain(), "<logging>", "<logging>&e;"), kDone, ""},
      {"LoudnessInAnEntity", "<!DOCTYPE parameter [<!ENTITY e \"-16\">]>" + Loud("&e;"), kMissing},
      {"EntityCallingItself", "<!DOCTYPE parameter [<!ENTITY e \"a&e;\">]>" + Path("&e;"), kRefused},
      {"EntitiesCallingEachOther", "<!DOCTYPE parameter [<!ENTITY e \"&d;\"><!ENTITY d \"&e;\">]>" + Path("&e;"), kRefused},
      {"EntityNotUsed", "<!DOCTYPE parameter [<!ENTITY e SYSTEM \"file:///etc/passwd\">]>" + Path("abc"), kDone, "abc"},
      {"EntityExternal", "<!DOCTYPE parameter [<!ENTITY e SYSTEM \"file:///etc/passwd\">]>" + Path("a&e;b"), kDone, "a"},
      {"EntityExternalPublic", "<!DOCTYPE parameter [<!ENTITY e PUBLIC \"p\" \"http://127.0.0.1:9/e\">]>" + Path("a&e;b"), kDone, "a"},
      {"EntityInAnAttribute", entity + Replaced(Path("abc"), "<logPath>", "<logPath a='&e;'>"), kDone, "abc"},
      {"ParameterEntityExternal", "<!DOCTYPE parameter [<!ENTITY % p SYSTEM \"file:///missing.dtd\"> %p;]>" + Path("abc"), kDone, "abc"},
      {"EntitiesGrowingTenfoldElevenTimes", Laughs(), kRefused},
      // Namespaces.
      {"NamespaceDefault", Replaced(Plain(), "<parameter>", "<parameter xmlns=\"urn:a\">"), kDone},
      {"NamespaceUnused", Replaced(Path("abc"), "<parameter>", "<parameter xmlns:a=\"urn:a\">"), kDone, "abc"},
      {"NamespacePrefixedValue", Replaced(Replaced(Plain(), "<Loudness>", "<a:Loudness xmlns:a=\"urn:a\">"), "</Loudness>", "</a:Loudness>"), kMissing},
      {"NamespacePrefixedMetadata", Metadata("<a:b xmlns:a=\"urn:a\"/><sourceInfo><fileName>x</fileName></sourceInfo>"), kDone, "", -23.0f, "x"},
      {"NamespaceDefaultOfMetadata", Metadata("<sourceInfo xmlns=\"urn:a\"><fileName>x</fileName></sourceInfo>"), kDone, "", -23.0f, "x"},
      {"NamespaceUndeclaredPrefix", Metadata("<a:b/>"), kRefused, kWineAccepts},
      {"NamespaceUndeclaredAttributePrefix", Metadata("<b a:c=''/>"), kRefused, kWineAccepts},
      {"NamespaceEmptyPrefixed", Metadata("<b xmlns:a=''/>"), kRefused, kWineAccepts},
      {"NamespaceTwoColons", Metadata("<a:b:c xmlns:a='urn:a'/>"), kRefused, kWineAccepts},
      {"NamespaceColonFirst", Metadata("<:b/>"), kRefused, kWineAccepts},
      {"NamespaceSameAttributeTwice", Metadata("<b xmlns:c='urn:a' xmlns:d='urn:a' c:x='' d:x=''/>"), kRefused},
      // Not well-formed.
      {"Nothing", "", kRefused},
      {"BlanksAlone", " \r\n\t", kRefused},
      {"TextAlone", "abc", kRefused},
      {"CommentAloneInTheDocument", "<!-- x -->", kRefused},
      {"DeclarationAlone", "<?xml version='1.0'?>", kRefused},
      {"RootUnclosed", Replaced(Plain(), "</parameter>", ""), kRefused},
      {"CutInATag", Replaced(Plain(), "</parameter>", "</parame"), kRefused},
      {"TagsCrossed", Replaced(Plain(), "</audio><normalization>", "<normalization></audio>"), kRefused},
      {"EndTagWithoutStart", Plain() + "</parameter>", kRefused},
      {"EndTagOfOtherCase", Replaced(Plain(), "</Loudness>", "</loudness>"), kRefused},
      {"TwoRoots", Plain() + Plain(), kRefused},
      {"TextBehindTheRoot", Plain() + "abc", kRefused},
      {"TextBeforeTheRoot", "abc" + Plain(), kRefused},
      {"BlanksBehindTheRoot", Path("abc") + " \r\n", kDone, "abc"},
      {"ReferenceBehindTheRoot", Plain() + "&#32;", kRefused},
      {"CdataBehindTheRoot", Plain() + "<![CDATA[ ]]>", kRefused},
      {"AttributeTwice", Metadata("<b c='' c=''/>"), kRefused},
      {"AttributeWithoutQuotes", Metadata("<b c=d/>"), kRefused},
      {"AttributeWithoutValue", Metadata("<b c/>"), kRefused},
      {"AttributesWithoutBlank", Metadata("<b c='1'd='2'/>"), kRefused},
      {"AttributeWithTagSign", Metadata("<b c='<'/>"), kRefused},
      {"AttributeInEndTag", Metadata("<b></b c=''>"), kRefused},
      {"AttributeUnclosed", Metadata("<b c='>"), kRefused},
      {"TagSignInText", Path("a < b"), kRefused},
      {"GreaterSignInText", Path("a > b"), kDone, "a > b"},
      {"CdataEndInText", Path("a]]>b"), kRefused},
      {"CdataUnclosed", Path("<![CDATA[abc"), kRefused},
      {"CdataOfOtherCase", Path("<![cdata[abc]]>"), kRefused},
      {"CommentUnclosed", Metadata("<!-- x"), kRefused},
      {"CommentWithTwoDashes", Metadata("<!-- x -- y -->"), kRefused},
      {"CommentEndingInThreeDashes", Metadata("<!-- x --->"), kRefused},
      {"InstructionNamedXml", Metadata("<?xml x?>"), kRefused},
      {"InstructionUnclosed", Metadata("<?x y"), kRefused},
      {"BlankInFrontOfAName", Metadata("< b/>"), kRefused},
      {"BlankBehindANameInEndTag", Replaced(Plain(), "</Loudness>", "</Loudness >"), kDone},
      {"NameWithDigitFirst", Metadata("<1b/>"), kRefused},
      {"NameEmpty", Metadata("<></>"), kRefused},
      {"NameNotAscii", Metadata("<gr\xC3\xB6\xC3\x9F" "e/>"), kDone},
      {"ControlCharacter", Path("a\x01" "b"), kRefused},
      {"DeleteCharacter", Path("a\x7F" "b"), kDone, "a\x7F" "b"},
      {"Noncharacter", Path("a\xEF\xBF\xBE" "b"), kRefused},
      {"ReplacementCharacter", Path("a\xEF\xBF\xBD" "b"), kDone, "a\xEF\xBF\xBD" "b"},
      // Bytes that are not UTF-8.
      {"ByteOfNoCharacter", Path("a\xFF" "b"), kDone, "a\xEF\xBF\xBD" "b"},
      {"ByteLatin1", Path("a\xE4" "b"), kDone, "a\xEF\xBF\xBD" "b"},
      {"BytesTwoCutToOne", Path("a\xC3"), kDone, "a\xEF\xBF\xBD"},
      {"BytesThreeCutToTwo", Path("a\xE2\x82" "b"), kDone, "a\xEF\xBF\xBD" "b"},
      {"BytesFourCutToThree", Path("a\xF0\x9F\x98" "b"), kDone, "a\xEF\xBF\xBD" "b"},
      {"BytesOverlong", Path("a\xC0\xAF" "b"), kDone, "a\xEF\xBF\xBD\xEF\xBF\xBD" "b"},
      {"BytesOverlongOfThree", Path("a\xE0\x80\xAF" "b"), kDone, "a\xEF\xBF\xBD\xEF\xBF\xBD" "b"},
      {"BytesOfASurrogate", Path("a\xED\xA0\x80" "b"), kDone, "a\xEF\xBF\xBD\xEF\xBF\xBD" "b"},
      {"BytesBeyondUnicode", Path("a\xF4\x90\x80\x80" "b"), kDone, "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD" "b"},
      {"ByteOfContinuation", Path("a\x80\x80" "b"), kDone, "a\xEF\xBF\xBD\xEF\xBF\xBD" "b"},
      {"BytesOfFive", Path("a\xF8\x88\x80\x80\x80" "b"), kDone, "a" + Times(5, "\xEF\xBF\xBD") + "b"},
      // Sizes.
      {"NestedTo257", Metadata(Times(255, "<a>") + Times(255, "</a>")), kDone},
      {"NestedTo258", Metadata(Times(256, "<a>") + Times(256, "</a>")), kRefused},
      {"Nested3000", Metadata(Times(3000, "<a>") + Times(3000, "</a>")), kRefused},
      {"TextOf1Mb", Path(Times(1 << 20, "a")), kDone, Times(1 << 20, "a")},
      {"TextOf9Mb", Path(Times(9000000, "a")), kDone, Times(9000000, "a")},
      {"TextOf11Mb", Path(Times(11000000, "a")), kRefused},
      {"CommentOf1Mb", Metadata("<!--" + Times(1 << 20, "a") + "-->"), kDone},
      {"AttributeOf1Mb", Metadata("<b c='" + Times(1 << 20, "a") + "'/>"), kDone},
      {"NameOf1Mb", Metadata("<" + Times(1 << 20, "a") + "/>"), kRefused},
      {"Attributes2000", Metadata("<b" + ManyAttributes(2000) + "/>"), kDone},
      {"Elements50000", Metadata(Times(50000, "<a/>")), kDone},
      {"LoudnessOf1MbOfDigits", Loud("-2" + Times(1 << 20, "0")), kDone, "", -std::numeric_limits<float>::infinity()},
      {"LoudnessOf1MbOfDecimals", Loud("-23." + Times(1 << 20, "0") + "1"), kDone},
  };
}
// clang-format on

std::string Brief(const std::string& text) {
  if (text.size() < 100) return testing::PrintToString(text);
  return std::to_string(text.size()) + " bytes from " + text.substr(0, 20);
}

class DocumentTable : public testing::TestWithParam<Row> {};

TEST_P(DocumentTable, GivesCodeAndValues) {
  const Row& row = GetParam();
  DelayAudio job;
  if (IsWine() && row.logPath == kWineAccepts) {
    EXPECT_EQ(xSetParameter(&job, row.xml.c_str()), kDone);
    return;
  }
  ASSERT_EQ(xSetParameter(&job, row.xml.c_str()), row.code);
  if (row.code != kDone) return;
  EXPECT_EQ(Brief(DelayAudioProbe::LogPath(job)), Brief(row.logPath));
  EXPECT_TRUE(DelayAudioProbe::LogPath(job) == row.logPath);
  EXPECT_BITS_EQ(row.loudness, DelayAudioProbe::Loudness(job));
  EXPECT_EQ(DelayAudioProbe::SourceFileName(job), row.sourceFileName);
  EXPECT_EQ(DelayAudioProbe::TrackCount(job), 1);
}

INSTANTIATE_TEST_SUITE_P(, DocumentTable, testing::ValuesIn(Rows()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace harvane
