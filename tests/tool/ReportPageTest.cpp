#include "tool/results/ReportPage.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/TestMain.h"
#include "tests/tool/ResultSamples.h"
#include "tool/results/HtmlText.h"

namespace harvane {
namespace {

using Texts = std::vector<std::string>;
using Document = std::unique_ptr<xmlDoc, void (*)(xmlDoc*)>;

std::string Text(const xmlChar* text) {
  std::string copy;
  for (const xmlChar* c = text; c != nullptr && *c != 0; ++c) copy += static_cast<char>(*c);
  return copy;
}

// The page, well-formed as it is promised to be.
Document Parsed(const std::string& page) {
  Document document(xmlReadMemory(page.data(), static_cast<int>(page.size()), "page", nullptr,
                                  XML_PARSE_NONET | XML_PARSE_HUGE),
                    xmlFreeDoc);
  EXPECT_NE(document, nullptr);
  return document;
}

void ForEachElement(const xmlNode* first, const std::function<void(const xmlNode*)>& call) {
  for (const xmlNode* node = first; node != nullptr; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    call(node);
    ForEachElement(node->children, call);
  }
}

std::string Content(const xmlNode* node) {
  xmlChar* const content = xmlNodeGetContent(node);
  const std::string text = Text(content);
  xmlFree(content);
  return text;
}

// The texts of all elements of a name.
Texts AllOf(const std::string& page, const std::string& name) {
  Texts texts;
  const Document document = Parsed(page);
  if (!document) return texts;
  ForEachElement(xmlDocGetRootElement(document.get()), [&](const xmlNode* node) {
    if (Text(node->name) == name) texts.push_back(Content(node));
  });
  return texts;
}

FileResult Judged(const std::string& name, double loudness, double missed) {
  TrackResult track;
  track.before.integratedLoudness = loudness;
  track.verdicts = {{"integratedLoudness", "-23.0 LUFS", loudness, std::nullopt, Verdict::kPass}};
  if (missed > 0.0) {
    track.verdicts[0].excess = missed;
    track.verdicts[0].verdict = Verdict::kFail;
  }
  FileResult file;
  file.input = name;
  file.tracks = {track};
  return file;
}

TEST(ReportPage, NeedsNothingElseAndHoldsNoScript) {
  const Document document = Parsed(ReportPage(support::FullRun()));
  ASSERT_NE(document, nullptr);
  int elements = 0;
  ForEachElement(xmlDocGetRootElement(document.get()), [&](const xmlNode* node) {
    ++elements;
    const std::set<std::string> loading = {"script", "link", "img", "iframe", "object", "image"};
    EXPECT_FALSE(loading.contains(Text(node->name))) << Text(node->name);
    for (const xmlAttr* attribute = node->properties; attribute; attribute = attribute->next) {
      const std::string name = Text(attribute->name);
      EXPECT_NE(name.substr(0, 2), "on");
      EXPECT_NE(name, "src");
      if (name == "href") {
        EXPECT_EQ(Text(attribute->children->content).substr(0, 1), "#");
      }
    }
  });
  EXPECT_GT(elements, 100);
  EXPECT_EQ(ReportPage(support::FullRun()).find("url("), std::string::npos);
}

TEST(ReportPage, AnyResultsGiveAWellFormedPage) {
  support::ForEachSeed(100, [](std::uint64_t seed) {
    EXPECT_NE(Parsed(ReportPage(support::AnyRun(seed))), nullptr);
  });
  EXPECT_NE(Parsed(ReportPage(RunResult())), nullptr);
}

TEST(ReportPage, NamesAndMessagesAreTextWhateverTheyHold) {
  RunResult run;
  run.files.resize(1);
  run.files[0].input = "<script>alert(1)</script>&amp;\"'.wav";
  run.files[0].status = FileStatus::kFailed;
  run.files[0].error = "</section><b>";
  const std::string page = ReportPage(run);
  EXPECT_EQ(AllOf(page, "script"), Texts());
  EXPECT_EQ(AllOf(page, "b"), Texts());
  EXPECT_EQ(AllOf(page, "h2"), Texts{"script>&amp;\"'.wav"});
}

TEST(ReportPage, IndexHasTheWorstFileFirst) {
  RunResult run;
  run.targetLoudness = -23.0;
  FileResult refused;
  refused.input = "refused";
  refused.status = FileStatus::kRefused;
  FileResult crashed;
  crashed.input = "crashed";
  crashed.status = FileStatus::kCrashed;
  run.files = {Judged("fine", -23.0, 0.0),   Judged("far", -21.0, 1.5),  refused,
               Judged("beside", -22.6, 0.0), Judged("near", -30.0, 0.5), crashed};
  EXPECT_EQ(AllOf(ReportPage(run), "a"),
            (Texts{"crashed", "refused", "far", "near", "beside", "fine"}));
  EXPECT_EQ(AllOf(ReportPage(run), "h2"),
            (Texts{"crashed", "refused", "far", "near", "beside", "fine"}));
}

TEST(ReportPage, LinksLeadToTheirFiles) {
  const Document document = Parsed(ReportPage(support::FullRun()));
  ASSERT_NE(document, nullptr);
  std::set<std::string> places;
  Texts links;
  ForEachElement(xmlDocGetRootElement(document.get()), [&](const xmlNode* node) {
    for (const xmlAttr* attribute = node->properties; attribute; attribute = attribute->next) {
      const std::string name = Text(attribute->name);
      if (name == "id") places.insert("#" + Text(attribute->children->content));
      if (name == "href") links.push_back(Text(attribute->children->content));
    }
  });
  EXPECT_EQ(links.size(), 3U);
  for (const std::string& link : links) EXPECT_TRUE(places.contains(link)) << link;
}

TEST(ReportPage, OneFileNeedsNoIndex) {
  RunResult run;
  run.files = {support::FullFile()};
  EXPECT_EQ(AllOf(ReportPage(run), "a"), Texts());
  EXPECT_EQ(AllOf(ReportPage(run), "h2"), Texts{"Café <1>, \"final\".wav"});
}

TEST(ReportPage, TrackHasValuesVerdictsAndPicturesBeforeAboveAfter) {
  RunResult run = support::FullRun();
  run.files.resize(1);
  const std::string page = ReportPage(run);
  EXPECT_EQ(AllOf(page, "h3"),
            (Texts{"Track 1 · channels 1–2 · stereo · gain −4.75 dB · limited · 95 frames late",
                   "Track 2 · channel 3 · mono · level kept: it could not be measured"}));
  EXPECT_EQ(AllOf(page, "svg").size(), 2U);
  const Texts captions = AllOf(page, "figcaption");
  ASSERT_EQ(captions.size(), 2U);
  EXPECT_EQ(captions[0].substr(0, 6), "Before");
  EXPECT_EQ(captions[1], "After");
  const Texts rows = AllOf(page, "tr");
  EXPECT_EQ(rows[1], "before−18.26.50.500:00:12.125−14.800:00:12.000−11.500:00:11.500");
  EXPECT_EQ(rows[5], "✗ integrated loudness−23.0 ±0.5 LUFS−23.750.25");
  EXPECT_EQ(rows[6], "✓ true peakat most −1.0 dBTP−1.50");
  EXPECT_EQ(rows.back(), "– integrated loudness−23.0 ±0.5 LUFSnot measured");
}

TEST(ReportPage, NotesAreAListAndWarningsSayThatTheyAre) {
  RunResult run;
  run.files.resize(1);
  run.files[0].notes = {"note: late", "warning: loud", "plain"};
  EXPECT_EQ(AllOf(ReportPage(run), "li"), (Texts{"late", "warning: loud", "plain"}));
}

TEST(ReportPage, TrackWithoutSeriesHasNoPicture) {
  RunResult run;
  run.files = {Judged("a", -23.0, 0.0)};
  EXPECT_EQ(AllOf(ReportPage(run), "svg"), Texts());
}

TEST(HtmlText, EscapesMarkupAndReplacesWhatNoPageMayHold) {
  EXPECT_EQ(HtmlText("a<b>&\"c'é"), "a&lt;b&gt;&amp;&quot;c&#39;é");
  EXPECT_EQ(HtmlText(std::string("a\0b\n\x7f", 5)), "a\uFFFDb\uFFFD\uFFFD");
  EXPECT_EQ(HtmlText("\xff"), "\uFFFD");
}

TEST(HtmlText, NumbersHaveATrueMinusButNotBeforeZero) {
  EXPECT_EQ(HtmlNumber(-23.05, 1), "−23.1");
  EXPECT_EQ(HtmlNumber(0.25, 2), "0.25");
  EXPECT_EQ(HtmlNumber(-0.04, 1), "0.0");
  EXPECT_EQ(HtmlNumber(1.0 / 0.0, 1), "–");
}

}  // namespace
}  // namespace harvane
