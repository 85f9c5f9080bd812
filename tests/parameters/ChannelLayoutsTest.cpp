#include "parameters/ChannelLayouts.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace harvane {
namespace {

// A row of eight numbers as text, a dash for no track.
std::string Row(const int (&row)[kChannelsPerGroup]) {
  std::string text;
  for (const int value : row) {
    if (!text.empty()) text += ' ';
    text += value == kNoTrack ? "-" : std::to_string(value);
  }
  return text;
}

struct Layout {
  int format;
  std::string name;
  std::string positions;
  std::string offsets;
  std::vector<int> counts;
};

class ChannelLayouts : public testing::TestWithParam<Layout> {};

TEST_P(ChannelLayouts, HasItsRows) {
  const Layout& wanted = GetParam();
  const ChannelLayout* const layout = FindChannelLayout(wanted.format);
  ASSERT_NE(layout, nullptr);
  EXPECT_EQ(layout->name, wanted.name);
  EXPECT_EQ(Row(layout->positionInTrack), wanted.positions);
  EXPECT_EQ(Row(layout->trackOffset), wanted.offsets);
  ASSERT_EQ(static_cast<std::size_t>(layout->trackCount), wanted.counts.size());
  for (std::size_t t = 0; t < wanted.counts.size(); ++t) {
    EXPECT_EQ(layout->channelCounts[t], wanted.counts[t]) << "track " << t;
  }
}

INSTANTIATE_TEST_SUITE_P(
    , ChannelLayouts,
    testing::Values(Layout{1, "1", "0 - - - - - - -", "0 - - - - - - -", {1}},
                    Layout{2, "2", "0 1 - - - - - -", "0 0 - - - - - -", {2}},
                    Layout{3, "2+2", "0 1 0 1 - - - -", "0 0 1 1 - - - -", {2, 2}},
                    Layout{4, "2+2+2", "0 1 0 1 0 1 - -", "0 0 1 1 2 2 - -", {2, 2, 2}},
                    Layout{5, "2+2+2+2", "0 1 0 1 0 1 0 1", "0 0 1 1 2 2 3 3", {2, 2, 2, 2}},
                    Layout{6, "5.1", "0 1 2 3 4 5 - -", "0 0 0 0 0 0 - -", {6}},
                    Layout{7, "5.1+2", "0 1 2 3 4 5 0 1", "0 0 0 0 0 0 1 1", {6, 2}},
                    Layout{8, "2+5.1", "0 1 0 1 2 3 4 5", "0 0 1 1 1 1 1 1", {2, 6}}),
    [](const auto& tested) { return "Format" + std::to_string(tested.param.format); });

TEST(ChannelLayoutsBounds, OtherFormatsHaveNoLayout) {
  for (const int format : {INT_MIN, -8, -1, 0, 9, 10, 256, 257, INT_MAX}) {
    EXPECT_EQ(FindChannelLayout(format), nullptr) << format;
  }
}

}  // namespace
}  // namespace harvane
