// libebur128 on the same signals: if it showed something else, they were not what is described.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/measurement/ebu/EbuExpectations.h"
#include "tests/measurement/ebu/EbuTable.h"
#include "tests/measurement/ebu/PeerReadings.h"
#include "tests/support/TemporaryFolder.h"

namespace ebu {
namespace {

// The lines of the document's table, its head of two lines included.
std::vector<std::string> WrittenTable() {
  const std::string text = support::ReadBytes(HARVANE_EBU_DOCUMENT);
  const std::size_t head = text.find(TableHead() + "\n");
  std::vector<std::string> lines;
  if (head == std::string::npos) return lines;
  std::istringstream rest(text.substr(head));
  for (std::string line; std::getline(rest, line) && line.starts_with("|");) lines.push_back(line);
  return lines;
}

class Ebur128 : public testing::TestWithParam<std::size_t> {};

TEST_P(Ebur128, ShowsThePublishedValueAsTheDocumentTells) {
  const EbuCase& ebuCase = EbuCases().at(GetParam());
  const std::vector<CaseReading> readings = ebuCase.read(MeasuredByPeer, kAllTones);
  ExpectPublished(ebuCase, readings);
  const std::vector<std::string> lines = WrittenTable();
  ASSERT_EQ(lines.size(), 2 + EbuCases().size()) << "head and rows of " << HARVANE_EBU_DOCUMENT;
  EXPECT_EQ(lines[2 + GetParam()], TableRow(ebuCase, readings)) << "build/release/ebu_table tells";
}

// "3341-1" as "Tech3341Case1".
INSTANTIATE_TEST_SUITE_P(Peer, Ebur128, testing::Range(std::size_t{0}, EbuCases().size()),
                         [](const auto& info) {
                           const std::string& name = EbuCases()[info.param].name;
                           const std::size_t dash = name.find('-');
                           return "Tech" + name.substr(0, dash) + "Case" + name.substr(dash + 1);
                         });

}  // namespace
}  // namespace ebu
